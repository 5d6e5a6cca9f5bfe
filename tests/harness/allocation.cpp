// A separate file, because a compiler that sees these operators in a caller warns about blocks of
// operator new that are released by free.
#include "tests/harness/allocation.h"

#include <cstddef>
#include <cstdlib>
#include <new>

#include <unistd.h>

namespace quintral::tests {

bool (*allow_allocation)() = nullptr;
void (*note_release)(void *block) = nullptr;

bool exit_on_allocation()
{
    _exit(99);
}

} // namespace quintral::tests

void *operator new(std::size_t size)
{
    using quintral::tests::allow_allocation;
    void *block = nullptr;
    if (allow_allocation == nullptr || allow_allocation())
        block = std::malloc(size != 0 ? size : 1);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

void operator delete(void *block) noexcept
{
    if (quintral::tests::note_release != nullptr)
        quintral::tests::note_release(block);
    std::free(block);
}

void operator delete(void *block, std::size_t) noexcept
{
    operator delete(block);
}
