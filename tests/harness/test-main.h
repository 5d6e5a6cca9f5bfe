// What every test program starts from.
#ifndef QUINTRAL_TESTS_HARNESS_TEST_MAIN_H
#define QUINTRAL_TESTS_HARNESS_TEST_MAIN_H

namespace quintral::tests {

// The name of the test locale for std::setlocale: Latin-1 letters above byte 0x7F and a comma for
// a decimal point. The build makes it and clean_environment tells the C library where it is; a
// test that sets it asserts that setlocale did not return null, and sets "C" again at its end.
extern const char *const comma_locale;

// The same for its twin in UTF-8.
extern const char *const utf8_locale;

// Takes the proxy, locale and POSIXLY_CORRECT settings out of this process's environment, which
// children inherit. Called by main before any test.
void clean_environment();

} // namespace quintral::tests

#endif
