// The main of every test program. It cleans the environment, so that no test depends on the proxy,
// locale and option settings of whoever started it.
#include "tests/harness/test-main.h"

#include <cstdlib>

#include <gtest/gtest.h>

namespace quintral::tests {

const char *const comma_locale = QUINTRAL_TEST_COMMA_LOCALE;
const char *const utf8_locale = "de_DE.UTF-8";

void clean_environment()
{
    static const char *const names[] = {
        "http_proxy", "HTTP_PROXY", "https_proxy",     "HTTPS_PROXY", "all_proxy",   "ALL_PROXY",
        "no_proxy",   "NO_PROXY",   "POSIXLY_CORRECT", "LANG",        "LANGUAGE",    "LC_ALL",
        "LC_CTYPE",   "LC_NUMERIC", "LC_COLLATE",      "LC_MESSAGES", "LC_MONETARY", "LC_TIME",
    };
    for (const char *name : names)
        unsetenv(name);
    setenv("LOCPATH", QUINTRAL_TEST_LOCALES, 1);
}

} // namespace quintral::tests

int main(int argument_count, char **arguments)
{
    quintral::tests::clean_environment();
    testing::InitGoogleTest(&argument_count, arguments);
    return RUN_ALL_TESTS();
}
