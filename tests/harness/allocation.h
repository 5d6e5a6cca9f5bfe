// Replacements for operator new and delete, with hooks. A program that uses them links
// quintral_test_allocation.
#ifndef QUINTRAL_TESTS_HARNESS_ALLOCATION_H
#define QUINTRAL_TESTS_HARNESS_ALLOCATION_H

namespace quintral::tests {

// Called before each allocation; false makes operator new throw std::bad_alloc. Null, the default,
// allows every allocation. The hook must not allocate.
extern bool (*allow_allocation)();

// Called with each block before it is released. Null, the default, for no call.
extern void (*note_release)(void *block);

// A hook for allow_allocation that ends the process with status 99, for a child process that must
// not allocate.
bool exit_on_allocation();

} // namespace quintral::tests

#endif
