// The test program's own operator new and delete, with hooks. A program that uses them lists
// quintral_test_allocation among the libraries it links.
#ifndef QUINTRAL_TESTS_HARNESS_ALLOCATION_H
#define QUINTRAL_TESTS_HARNESS_ALLOCATION_H

namespace quintral::tests {

// Called before each allocation; false makes operator new throw std::bad_alloc. Null, as at start,
// allows every allocation. The hook must not allocate.
extern bool (*allow_allocation)();

// Called before each release with the block. Null, as at start, for none.
extern void (*note_release)(void *block);

// An allow_allocation that ends the process with status 99, for a child process that must not
// allocate any more.
bool exit_on_allocation();

} // namespace quintral::tests

#endif
