// A file of its own, so that no compiler looks into these operators from a caller.
#include "tests/harness/forbidden-memory.h"

#include <cstdlib>
#include <new>

#include <unistd.h>

namespace quintral::tests {

bool memory_is_forbidden = false;

} // namespace quintral::tests

// In front of the language's own.
void *operator new(std::size_t size)
{
    if (quintral::tests::memory_is_forbidden)
        _exit(99);
    void *block = std::malloc(size != 0 ? size : 1);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

void operator delete(void *block) noexcept
{
    std::free(block);
}

void operator delete(void *block, std::size_t) noexcept
{
    std::free(block);
}
