// The option parser's variables, bad calls, messages, and starting a parse again.
#include "cmdline/long-options.h"

#include <string>

#include <gtest/gtest.h>

#include "tests/cmdline/long-options-calls.h"
#include "tests/harness/captured-output.h"

namespace quintral::tests {
namespace {

// The variables before any test has changed them.
const int initial_index = option_index;
const int initial_position = option_position;
char *const initial_argument = option_argument;
const int initial_errors = option_errors;
const int initial_code = option_code;

TEST(LongOptionsState, StartsReadyForAFirstParse)
{
    EXPECT_EQ(0, initial_index);
    EXPECT_EQ(0, initial_position);
    EXPECT_EQ(nullptr, initial_argument);
    EXPECT_EQ(1, initial_errors);
    EXPECT_EQ('?', initial_code);
}

TEST(LongOptionsTable, KindsAreTheNumbers0To2)
{
    EXPECT_EQ(0, static_cast<int>(NoArgument));
    EXPECT_EQ(1, static_cast<int>(RequiredArgument));
    EXPECT_EQ(2, static_cast<int>(OptionalArgument));
}

TEST(LongOptionsCall, BadCallIsASilentError)
{
    const Arguments arguments = make_arguments("prog|-x");
    char **vector = arguments.vector.get();
    const struct {
        const char *rule;
        int count;
        char **vector;
        const char *short_options;
        const LongOption *long_options;
    } rows[] = {
        {"a count of 0", 0, vector, "x", kinds},
        {"no vector", 2, nullptr, "x", kinds},
        {"neither list", 2, vector, nullptr, nullptr},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.rule);
        reset_parser();
        option_code = 'z';
        int result = 0;
        const std::string messages = captured_error([&] {
            result = parse_options(row.count, row.vector, row.short_options, row.long_options,
                                   nullptr, 0);
        });
        EXPECT_EQ('?', result);
        EXPECT_EQ("", messages);
        EXPECT_EQ('?', option_code);
        EXPECT_EQ(0, option_index);
        EXPECT_EQ(0, option_position);
    }
}

TEST(LongOptionsCall, OneListIsEnough)
{
    run_rows({
        {"only short options", "-x", "x", {"x 2"}},
        {"only a table", "--none", longs, {"101 2 #0"}},
    });
}

TEST(LongOptionsCall, ParseEndsWithTheVector)
{
    const Arguments arguments = make_arguments("prog|-x");
    const struct {
        const char *rule;
        int count;
        int index;
    } rows[] = {
        {"index at the count", 2, 2},
        {"index beyond the count", 2, 3},
        {"index at a null before the count", 5, 2},
        {"a negative count", -1, 0},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.rule);
        reset_parser();
        option_index = row.index;
        option_position = 1;
        option_code = 'z';
        EXPECT_EQ(-1, parse_options(row.count, arguments.vector.get(), "x", kinds, nullptr, 0));
        EXPECT_EQ(row.index, option_index);
        EXPECT_EQ('z', option_code);
    }
}

TEST(LongOptionsCall, VectorWithoutWordsEndsAtOnceInEveryOrdering)
{
    for (const char *short_options : {"x", "+x", "-x", "", "+", "-"}) {
        for (int only : {0, 1})
            run_rows({{"no words", "", {short_options, kinds, only}, {"end 1", "end 1"}}});
    }
    run_rows({{"no words", "", longs_only, {"end 1"}}});
}

TEST(LongOptionsCall, NullProgramNameEndsTheVector)
{
    reset_parser();
    char *arguments[] = {nullptr, nullptr};
    EXPECT_EQ(-1, parse_options(1, arguments, "x", nullptr, nullptr, 0));
    EXPECT_EQ(0, option_index);
}

TEST(LongOptionsMessages, AreNotPrintedIfTheCallerDisablesThem)
{
    const Row rows[] = {
        {"several errors", "-qx|-z|-need", {"x", kinds, 1}, {"? 1.2", "x 2", "? 3", ": 4"}},
        {"a missing argument of a short option", "-o", "o:", {": 2"}},
        {"an element that ends", "+", {"o:", nullptr, 1}, {"? 2"}},
        {"an ambiguous word", "--n", longs, {"? 1.2"}},
    };
    for (const Row &row : rows) {
        reset_parser();
        option_errors = 0;
        continue_row(row);
    }
}

TEST(LongOptionsMessages, ArePrintedForAnyOtherValue)
{
    reset_parser();
    option_errors = -1;
    continue_row({"a negative number", "-q", "x", {"?! 2"}, invalid("-q")});
}

TEST(LongOptionsMessages, BeginWithTheProgramNameWhateverItContains)
{
    const std::string missing_o = "%s%n/prog: argument required for option `-o'\n";
    run_rows({
        {"an empty name", "-q", "x", {"?! 2"}, ": invalid option -- `-q'\n", ""},
        {"a name like a format", "-o", "o:", {":! 2"}, missing_o, "%s%n/prog"},
    });
}

TEST(LongOptionsMessages, ShowElementsOfAnyLengthInFull)
{
    const std::string value(1 << 20, 'v');
    const std::string word = "--n=" + value;
    const std::string program(1 << 16, 'p');
    const std::string message =
        program + ": option `" + word + "' is ambiguous (could be `--none' or `--need')\n";
    run_rows({
        {"an ambiguous word", word, longs, {"?! 1.2"}, message, program},
        {"an argument", "-o" + value, "o:", {"o 2 =" + value}},
    });
}

TEST(LongOptionsRestart, IndexOf0StartsAgain)
{
    const Arguments arguments = make_arguments("prog|-xy|a|-y");
    reset_parser();
    continue_row({"stop in a cluster", "", "xy", {"x 1.2"}}, arguments);
    option_index = 0;
    continue_row({"the same vector", "", "xy", {"x 1.2", "y 2", "y 3 [-xy|-y|a]", "end 3"}},
                 arguments);
    option_index = 0;
    continue_row({"another vector", "-none|b", longs_only, {"101 2 #0", "end 2"}, "", "other"});
    EXPECT_EQ('y', option_code) << "the first parse set it";
}

TEST(LongOptionsRestart, IndexSetTo1ReadsTheFirstElementFromItsFirstCharacter)
{
    const Row rows[] = {
        {"the dash is an unknown option", "-x|a", "x", {"?! 1", "x 2", "end 2"}, invalid("--")},
        {"also of a long option", "--none", {"x", kinds}, {"?! 1", "101 2 #0"}, invalid("--")},
        {"a listed first character finishes the word", "xyz|-x", "x", {"x 2", "x 3"}},
        {"an operand is read as an option", "ofile", "-o:", {"o 2 =file"}},
        {"without short options the code is returned", "--none", longs, {"? 1.0", "? 1.0"}},
        {"two dashes still end the options", "--|-x", "+x", {"end 2.0"}},
    };
    for (const Row &row : rows) {
        reset_parser();
        option_index = 1;
        continue_row(row);
    }
}

TEST(LongOptionsRestart, IndexAndPositionSetByTheCallerStartAWord)
{
    reset_parser();
    option_index = 2;
    option_position = 1;
    continue_row({"inside a vector", "-skipped|a|-x", "x", {"x 3 [-skipped|-x|a]"}});
}

TEST(LongOptionsLongOnly, IsParseOptionsWithTheModeOn)
{
    const Arguments arguments = make_arguments("prog|a|-need|v|+store|-zzz");
    char **vector = arguments.vector.get();
    int long_index = untouched;
    stored = untouched;
    reset_parser();
    EXPECT_EQ(102, parse_long_only_options(6, vector, nullptr, kinds, &long_index));
    EXPECT_EQ(1, long_index);
    EXPECT_STREQ("v", option_argument);
    EXPECT_EQ(0, parse_long_only_options(6, vector, nullptr, kinds, &long_index));
    EXPECT_EQ(3, long_index);
    EXPECT_EQ(104, stored);
    EXPECT_EQ('?', parse_long_only_options(6, vector, nullptr, kinds, &long_index));
    EXPECT_EQ(-1, parse_long_only_options(6, vector, nullptr, kinds, nullptr));
    EXPECT_EQ(5, option_index);
    EXPECT_EQ("-need|v|+store|-zzz|a", join_words(arguments));
    option_index = 0;
    EXPECT_EQ('?', parse_long_only_options(6, vector, nullptr, nullptr, nullptr)) << "a bad call";
    option_index = 0;
    EXPECT_EQ('n', parse_long_only_options(6, vector, "n", nullptr, nullptr)) << "short options";
}

} // namespace
} // namespace quintral::tests
