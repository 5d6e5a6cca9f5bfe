// Counts the memory blocks that the code under test keeps, and makes chosen allocations fail.
//
// The linker replaces the program's calls of malloc, realloc and free (--wrap). In a program that
// links quintral_test_allocation too, operator new and delete go through them and are counted as
// well. Only the thread that runs the tests is counted, so a loopback peer does not change the
// count.
//
//     start_counting();
//     ... call the code under test ...
//     memory_count.on = false;
//     EXPECT_EQ(memory_count.live, 0);
#ifndef QUINTRAL_TESTS_WEB_COUNTED_MEMORY_H
#define QUINTRAL_TESTS_WEB_COUNTED_MEMORY_H

#include <cstddef>
#include <cstdint>

namespace quintral::tests {

struct MemoryCount {
    bool on = false;
    std::int64_t live = 0;        // blocks allocated minus blocks released
    std::int64_t allocations = 0; // including those that were made to fail
    std::int64_t fail_at = 0;     // the allocation that fails, counted from 1; 0 for none
    std::size_t failing_size = 0; // every allocation of this many bytes fails; 0 for none
    bool failed = false;          // an allocation was made to fail
};

extern MemoryCount memory_count;

// Starts a new count, in which the allocation with this number fails.
inline void start_counting(std::int64_t fail_at = 0)
{
    memory_count = {};
    memory_count.fail_at = fail_at;
    memory_count.on = true;
}

// The same, in which every allocation of this many bytes fails.
inline void start_counting_with_failing_size(std::size_t size)
{
    start_counting();
    memory_count.failing_size = size;
}

// While one exists, nothing is counted and nothing fails: for work that a test does on its own
// behalf in the middle of a count.
class CountingPause {
public:
    CountingPause() : was_on_(memory_count.on)
    {
        memory_count.on = false;
    }

    ~CountingPause()
    {
        memory_count.on = was_on_;
    }

    CountingPause(const CountingPause &) = delete;
    CountingPause &operator=(const CountingPause &) = delete;

private:
    bool was_on_;
};

} // namespace quintral::tests

#endif
