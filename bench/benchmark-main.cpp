// Times every case with Google Benchmark; the name of a benchmark is ROUTINE/SIDE/SIZE.
#include <benchmark/benchmark.h>

#include "bench/cases.h"

int main(int argument_count, char **arguments)
{
    const quintral::BenchCases cases = quintral::all_cases();
    for (const quintral::BenchCase &one : cases) {
        const std::string name = case_name(one);
        benchmark::RegisterBenchmark(name.c_str(), [&one](benchmark::State &state) {
            for (auto _ : state)
                one.run();
        });
    }
    benchmark::Initialize(&argument_count, arguments);
    if (benchmark::ReportUnrecognizedArguments(argument_count, arguments))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
