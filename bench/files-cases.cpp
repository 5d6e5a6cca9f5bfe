// Opening a file beside the C library's calls alone. remove_tree is measured by its system calls:
// see remove-tree-bench.cpp.
#include "bench/cases.h"

#include <cstdio>

#include <sys/stat.h>

#include "support/c-utils/files.h"

namespace quintral {

namespace {

// Opening /dev/null changes no permissions that matter: everybody may read and write it anyway.
constexpr const char *path = "/dev/null";
constexpr int repetitions = 100;

void open_with_ours()
{
    for (int i = 0; i < repetitions; ++i)
        close_file(open_file(path, "w", OpenReport));
}

void open_with_fopen()
{
    for (int i = 0; i < repetitions; ++i) {
        std::FILE *stream = std::fopen(path, "w");
        bench_keep(fchmod(fileno(stream), 0666));
        std::fclose(stream);
    }
}

} // namespace

void add_files_cases(BenchCases *cases)
{
    cases->push_back({"open_file", "ours", 1, open_with_ours});
    cases->push_back({"open_file", "fopen", 1, open_with_fopen});
}

} // namespace quintral
