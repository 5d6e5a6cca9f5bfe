// The locales and the environment of every test program.
#ifndef QUINTRAL_TESTS_HARNESS_TEST_MAIN_H
#define QUINTRAL_TESTS_HARNESS_TEST_MAIN_H

namespace quintral::tests {

// The name of a test locale for std::setlocale, with Latin-1 letters above byte 0x7F and a decimal
// comma. The build makes it, and clean_environment makes it known to the C library. A test that
// sets it asserts that setlocale did not return null, and sets "C" again at its end.
extern const char *const comma_locale;

// The same locale in UTF-8.
extern const char *const utf8_locale;

// Removes the proxy, locale and POSIXLY_CORRECT settings from this process's environment, which
// children inherit. main calls it before any test.
void clean_environment();

} // namespace quintral::tests

#endif
