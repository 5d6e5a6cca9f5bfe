// Runs every case whose name contains the argument once, after one run to warm up, for
//
//     valgrind --tool=callgrind --instr-atstart=no --callgrind-out-file=FILE quintral_count [TEXT]
//
// which writes one file for each case: "desc: Trigger: Client Request: ROUTINE/SIDE/SIZE" names it,
// "totals: N" is its number of instructions.
#include <string>

#include <valgrind/callgrind.h>

#include "bench/cases.h"

int main(int argument_count, char **arguments)
{
    const std::string wanted = argument_count > 1 ? arguments[1] : "";
    const quintral::BenchCases cases = quintral::all_cases();
    for (const quintral::BenchCase &one : cases) {
        const std::string name = one.routine + '/' + one.side + '/' + std::to_string(one.size);
        if (name.find(wanted) == std::string::npos)
            continue;
        one.run();
        CALLGRIND_START_INSTRUMENTATION;
        CALLGRIND_ZERO_STATS;
        one.run();
        CALLGRIND_DUMP_STATS_AT(name.c_str());
        CALLGRIND_STOP_INSTRUMENTATION;
    }
}
