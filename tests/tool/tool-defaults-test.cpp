// The default values of the query, on a system whose uname fails, and when the system is asked for
// them.
#include "tool/command-line.h"
#include "tool/query.h"

#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/utsname.h>

#include "tests/tool/command-line.h"

namespace {

int uname_count = 0;

} // namespace

// Takes precedence over the function of the C library.
extern "C" int uname(utsname *) noexcept
{
    ++uname_count;
    errno = EFAULT;
    return -1;
}

namespace quintral::tests::tool {
namespace {

using Strings = std::vector<std::string>;

// Reads the command line and fills the query.
void read_query(const Strings &words, ToolQuery *query)
{
    Strings all = {"quintral"};
    all.insert(all.end(), words.begin(), words.end());
    CommandLine line(all);
    ToolOptions options;
    UsageError error;
    uname_count = 0;
    ASSERT_EQ(read_options(static_cast<int>(all.size()), line.arguments.data(), &options, &error),
              0)
        << error.message;
    EXPECT_EQ(uname_count, 0) << "the command line asks the system for nothing";
    fill_query(options, query);
}

TEST(ToolDefaults, AreThoseOfThePlatformLibraryAndNoProcessorIfUnameFails)
{
    ToolQuery query;
    read_query({}, &query);
    EXPECT_EQ(query.values[4].value, "Linux");
    EXPECT_EQ(query.values[5].value, "unknown");
    EXPECT_EQ(query.values[7].value, "");
    for (const std::size_t i : {4U, 5U, 7U})
        EXPECT_STREQ(query.values[i].origin, "detected");
}

// On Linux both the version and the processor come from uname.
TEST(ToolDefaults, TheSystemIsAskedOnlyForValuesThatAreNeeded)
{
    const struct {
        Strings words;
        int count;
    } rows[] = {
        {{}, 2},
        {{"-os-version", "5"}, 1},
        {{"-os-version", ""}, 1},
        {{"-processor-arch", "x"}, 1},
        {{"-os-version", "5", "-processor-arch", "x"}, 0},
        {{"-show-request", "-processor-arch", "x"}, 1},
        {{"-record", "f", "-processor-arch", "x"}, 1},
        {{"-explain-proxy", "-processor-arch", "x"}, 0},
        {{"-parse", "f", "-processor-arch", "x"}, 0},
    };
    for (const auto &row : rows) {
        ToolQuery query;
        read_query(row.words, &query);
        EXPECT_EQ(uname_count, row.count) << testing::PrintToString(row.words);
    }
}

} // namespace
} // namespace quintral::tests::tool
