// The descriptors of this process: how many are open, for tests that look for leaks, and how many
// may be.
#ifndef QUINTRAL_TESTS_HARNESS_DESCRIPTORS_H
#define QUINTRAL_TESTS_HARNESS_DESCRIPTORS_H

#include <algorithm>
#include <cstddef>

#include <fcntl.h>
#include <sys/resource.h>

namespace quintral::tests {

// The number of open descriptors below 2048. Opens none itself.
inline std::size_t open_descriptors()
{
    std::size_t count = 0;
    for (int descriptor = 0; descriptor < 2048; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) >= 0)
            ++count;
    }
    return count;
}

// Raises the limit of open files to `count`, unless it is higher. Returns false if the hard limit
// (ulimit -Hn) is lower.
inline bool allow_descriptors(rlim_t count)
{
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return false;
    limit.rlim_cur = std::max(limit.rlim_cur, count);
    return limit.rlim_cur <= limit.rlim_max && setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

inline const char *const too_few_descriptors = "too few open files are allowed (ulimit -Hn)";

} // namespace quintral::tests

#endif
