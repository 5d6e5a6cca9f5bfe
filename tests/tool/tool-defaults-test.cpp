// What the utility says of a computer whose system says nothing of itself: the names come from the
// platform library, not from the system's record.
#include "tool/options.h"

#include <cerrno>

#include <gtest/gtest.h>
#include <sys/utsname.h>

// Stands before the C library's.
extern "C" int uname(utsname *) noexcept
{
    errno = EFAULT;
    return -1;
}

namespace quintral {
namespace {

TEST(ToolDefaults, AreThePlatformsNamesAndNoProcessorWhereTheSystemSaysNothing)
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
