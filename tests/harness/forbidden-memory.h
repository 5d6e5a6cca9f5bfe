// operator new of a test program that can be forbidden to hand anything out.
#ifndef QUINTRAL_TESTS_HARNESS_FORBIDDEN_MEMORY_H
#define QUINTRAL_TESTS_HARNESS_FORBIDDEN_MEMORY_H

namespace quintral::tests {

// While true, the next operator new ends the process with status 99. For a child that must not
// allocate any more. The program links forbidden-memory.cpp.
extern bool memory_is_forbidden;

} // namespace quintral::tests

#endif
