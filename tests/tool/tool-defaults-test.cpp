// The default options on a system whose uname fails.
#include "tool/options.h"

#include <cerrno>

#include <gtest/gtest.h>
#include <sys/utsname.h>

// Takes precedence over the function of the C library.
extern "C" int uname(utsname *) noexcept
{
    errno = EFAULT;
    return -1;
}

namespace quintral {
namespace {

TEST(ToolDefaults, AreThoseOfThePlatformLibraryAndNoProcessorIfUnameFails)
{
    char program[] = "quintral";
    char *arguments[] = {program, nullptr};
    ToolOptions options;
    ASSERT_EQ(read_options(1, arguments, &options), 0);
    EXPECT_STREQ(options.os, "Linux");
    EXPECT_STREQ(options.os_version, "unknown");
    EXPECT_STREQ(options.processor_arch, "");
}

} // namespace
} // namespace quintral
