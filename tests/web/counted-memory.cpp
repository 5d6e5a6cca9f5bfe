#include "tests/web/counted-memory.h"

#include <cerrno>

#include <pthread.h>

extern "C" {
void *__real_malloc(size_t size);
void *__real_realloc(void *block, size_t size);
void __real_free(void *block);

void *__wrap_malloc(size_t size);
void *__wrap_realloc(void *block, size_t size);
void __wrap_free(void *block);
}

namespace quintral::tests {

MemoryCount memory_count;

namespace {

const pthread_t test_thread = pthread_self();

// The thread comes first: other threads must not read a record that the test is changing.
bool is_counted()
{
    return pthread_equal(pthread_self(), test_thread) != 0 && memory_count.on;
}

bool allocation_fails(std::size_t size)
{
    if (!is_counted())
        return false;
    MemoryCount &count = memory_count;
    ++count.allocations;
    const bool fails =
        count.allocations == count.fail_at || (size != 0 && size == count.failing_size);
    count.failed = count.failed || fails;
    count.live += fails ? 0 : 1;
    return fails;
}

void *fail_allocation()
{
    errno = ENOMEM;
    return nullptr;
}

void count_release(const void *block)
{
    if (block != nullptr && is_counted())
        --memory_count.live;
}

} // namespace
} // namespace quintral::tests

using namespace quintral::tests;

void *__wrap_malloc(size_t size)
{
    return allocation_fails(size) ? fail_allocation() : __real_malloc(size);
}

void *__wrap_realloc(void *block, size_t size)
{
    if (allocation_fails(size))
        return fail_allocation();
    count_release(block);
    return __real_realloc(block, size);
}

void __wrap_free(void *block)
{
    count_release(block);
    __real_free(block);
}
