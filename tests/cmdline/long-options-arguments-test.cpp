// Arguments of short and long options: required, optional and none.
#include "cmdline/long-options.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/cmdline/long-options-calls.h"

namespace quintral::tests {
namespace {

TEST(LongOptionsArgument, RequiredOfAShortOption)
{
    const std::string missing_o = missing("-o");
    run_rows({
        {"attached", "-ofile", "o:", {"o 2 =file", "end 2 =file"}},
        {"attached with '='", "-o=file", "o:", {"o 2 =file"}},
        {"only one '=' is dropped", "-o==file", "o:", {"o 2 ==file"}},
        {"the next element", "-o|file", "o:", {"o 3 =file", "end 3 =file"}},
        {"the next element after a lone '='", "-o=|file", "o:", {"o 3 =file"}},
        {"the next element, even an option", "-o|-o|-ox", "o:", {"o 3 =-o", "o 4 =x"}},
        {"the next element, even two dashes", "-o|--|-ox", "o:", {"o 3 =--", "o 4 =x"}},
        {"the next element, even an empty one", "-o|", "o:", {"o 3 ="}},
        {"at the end of a cluster", "-xo|file", "xo:", {"x 1.2", "o 3 =file"}},
        {"missing", "-o", "o:", {":! 2", "end 2"}, missing_o},
        {"missing after '='", "-o=", "o:", {":! 2"}, missing_o},
        {"missing, position stays", "-xo", "xo:", {"x 1.2", ":! 2.2", "end 2.2"}, missing_o},
        {"missing, last argument stays", "-ov|-o", "o:", {"o 2 =v", ":! 3 =v"}, missing_o},
    });
}

TEST(LongOptionsArgument, RequiredOfALongOption)
{
    const std::string missing_need = missing("--need");
    run_rows({
        {"attached", "--need=file", longs, {"102 2 #1 =file", "end 2 =file"}},
        {"only one '=' is dropped", "--need==a=b", longs, {"102 2 #1 ==a=b"}},
        {"attached to an abbreviation, one dash", "-ne=file", longs_only, {"102 2 #1 =file"}},
        {"the next element", "-need|-none", longs_only, {"102 3 #1 =-none", "end 3 =-none"}},
        {"the next element after a lone '='", "--need=|file", longs, {"102 3 #1 =file"}},
        {"missing, position stays", "--need", longs, {":! 2.2", "end 2.2"}, missing_need},
        {"missing after one dash", "-need", longs_only, {":! 2"}, missing_need},
        {"the message has the name from the table", "+ne=", longs_only, {":! 2"}, missing_need},
    });
}

TEST(LongOptionsArgument, OptionalIsAttachedOrAbsent)
{
    run_rows({
        {"attached", "-afile", "a::b", {"a 2 =file"}},
        {"attached with '='", "-a==file", "a::b", {"a 2 ==file"}},
        {"absent: skipped, the next element is an operand", "-a|file", "a::b", {"a 2", "end 2"}},
        {"a lone '='", "-a=|file", "a::b", {"a 2"}},
        {"attached in a cluster", "-bafile", "a::b", {"b 1.2", "a 2 =file"}},
        {"absent: the last argument is cleared", "-afile|-a", "a::b", {"a 2 =file", "a 3"}},
        {"long, attached", "--maybe=file", longs, {"103 2 #2 =file"}},
        {"long, absent after one dash", "-maybe|file", longs_only, {"103 2 #2", "end 2"}},
        {"long, absent after plus", "+maybe=", longs_only, {"103 2 #2"}},
    });
}

TEST(LongOptionsArgument, AbsentOptionalLeavesThePositionSoTheOptionIsReturnedAgain)
{
    run_rows({
        {"at the end of a cluster", "-ba|file", "a::b", {"b 1.2", "a 1.2", "a 1.2"}},
        {"long, then the code without short options",
         "--maybe|file",
         longs,
         {"103 1.2 #2", "? 1.2"}},
        {"operands before it stay there", "x|--maybe=", longs, {"103 2.2 #2"}},
    });
}

TEST(LongOptionsArgument, CallerCanSkipAnAbsentOptionalArgument)
{
    const Arguments arguments = make_arguments("prog|-ba|--maybe|-b|file");
    std::vector<int> results;
    reset_parser();
    for (int call = 0; call < 10 && (results.empty() || results.back() != -1); ++call) {
        results.push_back(
            parse_options(arguments.count, arguments.vector.get(), "a::b", kinds, nullptr, 0));
        const bool optional = results.back() == 'a' || results.back() == 103;
        if (optional && option_argument == nullptr && option_position != 1) {
            ++option_index;
            option_position = 1;
        }
    }
    EXPECT_EQ((std::vector<int>{'b', 'a', 103, 'b', -1}), results);
    EXPECT_EQ(4, option_index);
}

TEST(LongOptionsArgument, LongOptionWithoutOneIgnoresAnAttachedValue)
{
    run_rows({
        {"attached", "--none=value|--store=", longs, {"101 2 #0", "0 3 #3 flag 104"}},
        {"the last argument is cleared", "--need=a|--none", longs, {"102 2 #1 =a", "101 3 #0"}},
    });
}

} // namespace
} // namespace quintral::tests
