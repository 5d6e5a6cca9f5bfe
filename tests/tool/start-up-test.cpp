// Dropping the launch argument.
#include "tool/start-up.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/tool/command-line.h"

namespace quintral::tests::tool {
namespace {

TEST(LaunchArgument, IsDroppedIfItIsTheFirstArgument)
{
    using Strings = std::vector<std::string>;
    const struct {
        Strings before;
        Strings after;
    } rows[] = {
        {{"prog", "-psn_0_12345"}, {"prog"}},
        {{"prog", "-psn_0_12345", "-proxy", "cache:3128"}, {"prog", "-proxy", "cache:3128"}},
        {{"prog", "-psn_"}, {"prog"}},
        {{"prog", "-psn_=x", "a"}, {"prog", "a"}},
        {{"prog", "-psn_0_1", "-psn_0_2"}, {"prog", "-psn_0_2"}},
        {{"prog", "-psn"}, {"prog", "-psn"}},
        {{"prog", "-psn0_1"}, {"prog", "-psn0_1"}},
        {{"prog", "-PSN_0_1"}, {"prog", "-PSN_0_1"}},
        {{"prog", "--psn_0_1"}, {"prog", "--psn_0_1"}},
        {{"prog", "psn_0_1"}, {"prog", "psn_0_1"}},
        {{"prog", "-json", "-psn_0_1"}, {"prog", "-json", "-psn_0_1"}},
        {{"prog", ""}, {"prog", ""}},
        {{"prog"}, {"prog"}},
        {{"-psn_0_1"}, {"-psn_0_1"}},
        {{}, {}},
    };
    for (const auto &row : rows) {
        CommandLine line(row.before);
        int count = static_cast<int>(row.before.size());
        char **arguments = line.arguments.data();
        drop_launch_argument(&count, &arguments);
        const std::string what = testing::PrintToString(row.before);
        ASSERT_EQ(count, static_cast<int>(row.after.size())) << what;
        EXPECT_EQ(Strings(arguments, arguments + count), row.after) << what;
        EXPECT_EQ(arguments[count], nullptr) << what;
    }
}

} // namespace
} // namespace quintral::tests::tool
