// Counts instructions, for programs that run as
//
//     valgrind --tool=callgrind --instr-atstart=no --callgrind-out-file=FILE PROGRAM [TEXT]
//
// which writes one file for each case: "desc: Trigger: Client Request: ROUTINE/SIDE/SIZE" names it,
// "totals: N" is its number of instructions.
#ifndef QUINTRAL_BENCH_COUNT_H
#define QUINTRAL_BENCH_COUNT_H

#include <string>

#include <valgrind/callgrind.h>

#include "bench/cases.h"

namespace quintral {

// Runs every case whose name contains the text once, after one run to warm up.
inline void count_cases(const BenchCases &cases, const std::string &text)
{
    for (const BenchCase &one : cases) {
        const std::string name = case_name(one);
        if (name.find(text) == std::string::npos)
            continue;
        one.run();
        CALLGRIND_START_INSTRUMENTATION;
        CALLGRIND_ZERO_STATS;
        one.run();
        CALLGRIND_DUMP_STATS_AT(name.c_str());
        CALLGRIND_STOP_INSTRUMENTATION;
    }
}

} // namespace quintral

#endif
