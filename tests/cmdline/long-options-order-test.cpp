// Options and operands: the "--" that ends the options, the three orderings, what an operand is,
// and how permuting moves operands.
#include "cmdline/long-options.h"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/cmdline/long-options-calls.h"
#include "tests/harness/test-main.h"

namespace quintral::tests {
namespace {

TEST(LongOptionsTwoDashes, EndTheOptions)
{
    run_rows({
        {"after an option, nothing is moved", "-x|--|-x", "x", {"x 2", "end 3"}},
        {"permuting, directly after the program name", "--|a", "x", {"end 2"}},
        {"permuting, operands move after it in order", "a|b|--|-x", "x", {"end 2 [--|a|b|-x]"}},
        {"permuting, after one operand", "a|--|b", "x", {"end 2 [--|a|b]"}},
        {"in long-only mode", "a|--|-none", longs_only, {"end 2 [--|a|-none]"}},
        {"in order, after an operand", "a|--|b", "-x", {"1 2 =a", "end 3 =a"}},
        {"order required, after an option", "-x|--|b", "+x", {"x 2", "end 3"}},
    });
}

TEST(LongOptionsTwoDashes, RightAfterTheProgramNameAreAnOptionUnlessPermuting)
{
    const std::string none_or_need = ambiguous("--", "--none", "--need");
    run_rows({
        {"order required, only short options", "--|a", "+x", {"?! 2", "end 2"}, invalid("--")},
        {"in order, only short options", "--|a", "-x", {"?! 2", "1 3 =a"}, invalid("--")},
        {"a listed '-'", "--|a", "+-", {"- 2", "end 2"}},
        {"abbreviates two entries", "--|a", {"+x", kinds}, {"?! 1.2", "end 2.2"}, none_or_need},
        {"abbreviates the only entry", "--|a", {"-x", single}, {"401 2 #0", "1 3 =a"}},
        {"an empty table", "--|a", {"+x", no_entries}, {"?! 2", "end 2"}, invalid("-")},
    });
}

// The second call reads the short options of "-x" from its first character.
TEST(LongOptionsTwoDashes, AsTheProgramNameEndTheFirstCall)
{
    const std::string message = "--: invalid option -- `--'\n";
    run_rows({{"'-' is unknown", "-x", "x", {"end 1.0", "?! 1", "x 2"}, message, "--"}});
}

// Sets POSIXLY_CORRECT while it exists.
struct PosixlyCorrect {
    explicit PosixlyCorrect(const char *value)
    {
        setenv("POSIXLY_CORRECT", value, 1);
    }
    ~PosixlyCorrect()
    {
        unsetenv("POSIXLY_CORRECT");
    }
};

TEST(LongOptionsOrdering, IsChosenByTheFirstCharacter)
{
    run_rows({
        {"permuting", "a|-x", "x", {"x 2 [-x|a]", "end 2"}},
        {"'+' requires the order", "a|-x", "+x", {"end 1", "end 1"}},
        {"'-' returns operands in order", "a|-x", "-x", {"1 2 =a", "x 3", "end 3"}},
        {"no short options: permuting", "a|--none", longs, {"101 2 #0 [--none|a]", "end 2"}},
    });
}

TEST(LongOptionsOrdering, PosixlyCorrectRequiresTheOrderWhateverItsValue)
{
    for (const char *value : {"1", "0", ""}) {
        const PosixlyCorrect set(value);
        run_rows({
            {"instead of permuting", "a|-x", "x", {"end 1", "end 1"}},
            {"with '+'", "a|-x", "+x", {"end 1", "end 1"}},
            {"but '-' takes precedence", "a|-x", "-x", {"1 2 =a", "x 3", "end 3"}},
            {"without short options", "a|--none", longs, {"end 1"}},
            {"after an option", "-x|a|-x", "x", {"x 2", "end 2"}},
        });
    }
}

TEST(LongOptionsOrdering, IsChosenByEachCall)
{
    const Arguments arguments = make_arguments("prog|a|-x|b|-x");
    reset_parser();
    continue_row({"permuting at first", "", "x", {"x 2 [-x|a|b|-x]"}}, arguments);
    const PosixlyCorrect set("");
    continue_row({"then requiring the order", "", "x", {"end 2"}}, arguments);
}

TEST(LongOptionsOrdering, LeadingCharacterIsNotAnOptionAndOnlyOneIsSkipped)
{
    run_rows({
        {"'+' is not an option", "-+", "+x", {"?! 2"}, invalid("-+")},
        {"a second '+' is", "-+", "++x", {"+ 2"}},
        {"a '-' after '+' is one too", "--x|a", "+-x", {"- 1.2", "x 2", "end 2"}},
    });
}

const char *const operands[] = {
    "",     "a",         "a-b",   " -x", "5",    "-",     "-5",    "-5 ",    "-5 \t\n\v\f\r",
    "-0.5", "-.5",       "-0.25", "-5.", "-1e3", "-1E+3", "-1e-3", "-1e999", "-0x1p3",
    "-inf", "-INFINITY", "-nan",
};
const char *const operands_outside_long_only_mode[] = {"+", "+5", "+x", "+-", "++"};
const char *const options[] = {"-5x", "-5 x", "-5 6", "-5-", "-0,5", "-infx", "-in",
                               "-.",  "-e5",  "- 5",  "--5", "-x",   "--x",   "-x5"};

// An ordering that returns operands shows whether the element was one.
bool is_operand(const std::string &element, int long_only)
{
    const Arguments arguments = make_arguments("prog|" + element, VectorEnd::CountAlone);
    reset_parser();
    option_errors = 0;
    return parse_options(2, arguments.vector.get(), "-", nullptr, nullptr, long_only) == 1 &&
           option_argument == arguments.vector[1];
}

void check_operands()
{
    for (const char *element : operands) {
        EXPECT_TRUE(is_operand(element, 0)) << element;
        EXPECT_TRUE(is_operand(element, 1)) << element << " (long-only)";
    }
    for (const char *element : operands_outside_long_only_mode) {
        EXPECT_TRUE(is_operand(element, 0)) << element;
        EXPECT_FALSE(is_operand(element, 1)) << element << " (long-only)";
    }
    for (const char *element : options) {
        EXPECT_FALSE(is_operand(element, 0)) << element;
        EXPECT_FALSE(is_operand(element, 1)) << element << " (long-only)";
    }
}

TEST(LongOptionsOperand, IsAWordWithoutADashOrANumber)
{
    check_operands();
}

TEST(LongOptionsOperand, NumberHasAPointUnderACommaLocale)
{
    ASSERT_NE(nullptr, std::setlocale(LC_ALL, comma_locale));
    check_operands();
    char text[8];
    std::snprintf(text, sizeof text, "%.1f", 0.5);
    std::setlocale(LC_ALL, "C");
    EXPECT_STREQ("0,5", text) << "the program's locale was not restored";
}

TEST(LongOptionsOperand, NumberOfAnyLengthIsReadCompletely)
{
    const std::string spaces(1 << 20, ' ');
    const std::string number = "-" + std::string(1 << 20, '7');
    EXPECT_TRUE(is_operand(number, 0));
    EXPECT_TRUE(is_operand(number + spaces, 0));
    EXPECT_FALSE(is_operand(number + spaces + "x", 0));
    EXPECT_FALSE(is_operand("-5" + std::string(1 << 20, 'x'), 0));
}

TEST(LongOptionsOperand, NumberIsNotAnOptionEvenIfItsDigitsAre)
{
    const LongOption digits[] = {
        {"5", NoArgument, nullptr, 501},
        {"5x", NoArgument, nullptr, 502},
        {nullptr, NoArgument, nullptr, 0},
    };
    const std::vector<std::string> long_calls = {"502 2 #1 [-5x|-5|--5]", "501 3 #0 [-5x|--5|-5]",
                                                 "end 3"};
    run_rows({
        {"short options", "-5|-5x", "5x", {"5 2.2", "x 3", "end 3"}},
        {"long options", "-5|-5x|--5", {nullptr, digits, 1}, long_calls},
    });
}

TEST(LongOptionsOperand, InOrderIsReturnedAsResult1)
{
    using Calls = std::vector<std::string>;
    const Calls words = {"x 2", "1 3 =a", "1 4 =-5", "1 5 =-", "1 6 =", "x 7", "end 7"};
    const Calls with_long_options = {"1 2 =a", "101 3 #0", "?! 4", "end 4"};
    run_rows({
        {"a word, a number, a dash and an empty element", "-x|a|-5|-||-x", "-x", words},
        {"no operand inside a cluster", "-xy|a", "-xy", {"x 1.2", "y 2", "1 3 =a"}},
        {"long-only", "a|-none|+5", {"-", kinds, 1}, with_long_options, invalid("-5")},
    });
}

TEST(LongOptionsPermute, MovesOperandsAfterTheOption)
{
    using Calls = std::vector<std::string>;
    const Calls several = {"x 2 [-x|a|b|c|-y|d]", "y 3 [-x|-y|a|b|c|d]", "end 3"};
    const Calls with_argument = {"102 3 #1 =--none [--need|--none|a|b]", "end 3 =--none"};
    run_rows({
        {"one operand", "a|-x|b", "x", {"x 2 [-x|a|b]", "end 2"}},
        {"several in several calls, in their order", "a|b|-x|c|-y|d", "xy", several},
        {"an argument", "a|b|c|-o|file|d", "o:", {"o 3 =file [-o|file|a|b|c|d]", "end 3 =file"}},
        {"an attached argument", "a|-ofile|d", "o:", {"o 2 =file [-ofile|a|d]"}},
        {"a long option", "a|-|--none|-5", longs, {"101 2 #0 [--none|a|-|-5]", "end 2"}},
        {"a long option's argument", "a|--need|--none|b", longs, with_argument},
        {"an unknown long-only word", "a|-zzz|b", longs_only, {"? 2 [-zzz|a|b]", "end 2"}},
    });
}

TEST(LongOptionsPermute, EndsAtTheFirstOperand)
{
    run_rows({
        {"only operands", "a|b", "x", {"end 1"}},
        {"operands after an option", "-x|a|b", "x", {"x 2", "end 2", "end 2"}},
    });
}

TEST(LongOptionsPermute, LeavesOperandsBeforeAClusterOfSeveralCalls)
{
    run_rows({
        {"two options", "a|-xy", "xy", {"x 2.2", "y 3", "end 3"}},
        {"the last has an argument", "a|-xo|file|b", "xo:", {"x 2.2", "o 4 =file", "end 4 =file"}},
    });
}

TEST(LongOptionsPermute, LeavesOperandsBeforeAnError)
{
    const std::string none_or_need = ambiguous("--n", "--none", "--need");
    run_rows({
        {"an unknown option", "a|-q|b", "x", {"?! 3", "end 3"}, invalid("-q")},
        {"a missing argument", "a|-o", "o:", {":! 3", "end 3"}, missing("-o")},
        {"an ambiguous word, which is not skipped", "a|--n|b", longs, {"?! 2.2"}, none_or_need},
    });
}

} // namespace
} // namespace quintral::tests
