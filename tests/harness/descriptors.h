// The open descriptors of this process, for tests that look for leaks.
#ifndef QUINTRAL_TESTS_HARNESS_DESCRIPTORS_H
#define QUINTRAL_TESTS_HARNESS_DESCRIPTORS_H

#include <cstddef>

#include <fcntl.h>

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

} // namespace quintral::tests

#endif
