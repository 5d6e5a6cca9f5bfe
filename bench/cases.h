// The measured calls. Each file NAME-cases.cpp adds those of one subject; benchmark-main.cpp times
// them with Google Benchmark, count-main.cpp counts their instructions under callgrind.
#ifndef QUINTRAL_BENCH_CASES_H
#define QUINTRAL_BENCH_CASES_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace quintral {

// One measured call. All sides of one routine and size get the same input and give the same result.
struct BenchCase {
    std::string routine;       // what is measured, as "find_ignoring_case/prose"; no spaces
    std::string side;          // "ours", "reference" (the simple loop), or the name of the peer
    std::size_t size;          // bytes or entries of the input
    std::function<void()> run; // may be called any number of times
};

using BenchCases = std::vector<BenchCase>;

// "ROUTINE/SIDE/SIZE".
inline std::string case_name(const BenchCase &one)
{
    return one.routine + '/' + one.side + '/' + std::to_string(one.size);
}

// Adds a case. A small input is taken 100 times, on all sides alike, so that what surrounds the
// call does not count.
template <typename Call>
void add_repeated(BenchCases *cases, const std::string &routine, const char *side, std::size_t size,
                  const Call &call)
{
    const int times = size <= 1024 ? 100 : 1;
    cases->push_back({routine, side, size, [times, call] {
                          for (int i = 0; i < times; ++i)
                              call();
                      }});
}

// Returns the piece, repeated and cut to the size.
inline std::string repeat_to(const std::string &piece, std::size_t size)
{
    std::string text;
    while (text.size() < size)
        text += piece;
    return text.substr(0, size);
}

void add_transforms_cases(BenchCases *cases);
void add_memory_cases(BenchCases *cases);
void add_dates_cases(BenchCases *cases);
void add_error_cases(BenchCases *cases);
void add_options_cases(BenchCases *cases);
void add_files_cases(BenchCases *cases);
void add_web_cases(BenchCases *cases);
void add_tool_cases(BenchCases *cases);

inline BenchCases all_cases()
{
    BenchCases cases;
    add_transforms_cases(&cases);
    add_memory_cases(&cases);
    add_dates_cases(&cases);
    add_error_cases(&cases);
    add_options_cases(&cases);
    add_files_cases(&cases);
    add_web_cases(&cases);
    add_tool_cases(&cases);
    return cases;
}

// Keeps the compiler from leaving out the work that gives the value.
template <typename Value> void bench_keep(const Value &value)
{
    asm volatile("" : : "r,m"(value) : "memory");
}

} // namespace quintral

#endif
