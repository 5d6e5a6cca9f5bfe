// The option parser, one row per rule: a whole vector goes through parse_options call by call, and
// after each call everything a caller can see is compared as one line of text: the result, the
// parser's variables, the long index, the stored flag, the order of the vector and what came out on
// standard error.
#include "cmdline/long-options.h"

#include <algorithm>
#include <clocale>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/harness/test-main.h"

namespace quintral::tests {
namespace {

// What the variables hold before any test has touched them.
const int initial_index = option_index;
const int initial_position = option_position;
char *const initial_argument = option_argument;
const int initial_errors = option_errors;
const int initial_code = option_code;

// Stands in the long index and in the flag before each call, so that a row shows who writes them.
constexpr int untouched = -77;

std::int32_t stored = untouched;

const LongOption kinds[] = {
    {"none", NoArgument, nullptr, 101},        {"need", RequiredArgument, nullptr, 102},
    {"maybe", OptionalArgument, nullptr, 103}, {"store", NoArgument, &stored, 104},
    {"keep", RequiredArgument, &stored, 105},  {nullptr, NoArgument, nullptr, 0},
};
const LongOption alphas[] = {
    {"alpha", NoArgument, nullptr, 201},
    {"alpha-one", NoArgument, nullptr, 202},
    {"alpha-two", NoArgument, nullptr, 203},
    {nullptr, NoArgument, nullptr, 0},
};
const LongOption exact_behind_two[] = {
    {"abc", NoArgument, nullptr, 301},
    {"abd", NoArgument, nullptr, 302},
    {"ab", NoArgument, nullptr, 303},
    {nullptr, NoArgument, nullptr, 0},
};
const LongOption exact_behind_one[] = {
    {"abc", NoArgument, nullptr, 301},
    {"ab", NoArgument, nullptr, 303},
    {nullptr, NoArgument, nullptr, 0},
};
const LongOption single[] = {
    {"only", NoArgument, nullptr, 401},
    {nullptr, NoArgument, nullptr, 0},
};
const LongOption negative[] = {
    {"5", NoArgument, nullptr, 501},
    {"5x", NoArgument, nullptr, 502},
    {nullptr, NoArgument, nullptr, 0},
};
const LongOption no_entries[] = {
    {nullptr, NoArgument, nullptr, 0},
};

// Stands for a vector that a call leaves in the order that it found.
const std::string same;

// What one call leaves behind. The vector's elements are joined with '|'; the argument is null for
// none.
struct Expected {
    int result;
    int index;
    int position;
    const char *argument;
    int code;
    std::string vector = same;
    std::string error = "";
    int long_index = untouched;
    int flag = untouched;
};

// The options and the mode that a row's calls are made with.
struct Mode {
    const char *short_options;
    const LongOption *long_options;
    int long_only;
};

struct Row {
    const char *rule;
    std::string vector;
    Mode mode;
    std::vector<Expected> calls;
};

// A vector may end by its count, with or without a null behind, or by a null before its count.
enum class VectorEnd { CountAndNull, CountAlone, NullAlone };

// An argument vector in blocks of exactly its size, so that a sanitizer sees any read behind them.
struct Arguments {
    int count;
    std::vector<std::unique_ptr<char[]>> texts;
    std::unique_ptr<char *[]> vector;
};

std::vector<std::string> split(const std::string &joined)
{
    std::vector<std::string> words;
    std::size_t begin = 0;
    for (std::size_t end; (end = joined.find('|', begin)) != std::string::npos; begin = end + 1)
        words.push_back(joined.substr(begin, end - begin));
    words.push_back(joined.substr(begin));
    return words;
}

// `joined` holds the elements with '|' between them.
Arguments make_arguments(const std::string &joined, VectorEnd end)
{
    const std::vector<std::string> words = split(joined);
    Arguments arguments;
    const std::size_t nulls = end == VectorEnd::CountAlone ? 0 : 1;
    arguments.vector = std::make_unique<char *[]>(words.size() + nulls);
    for (const std::string &word : words) {
        arguments.texts.push_back(std::make_unique<char[]>(word.size() + 1));
        std::memcpy(arguments.texts.back().get(), word.c_str(), word.size() + 1);
        arguments.vector[arguments.texts.size() - 1] = arguments.texts.back().get();
    }
    arguments.count = static_cast<int>(words.size()) + (end == VectorEnd::NullAlone ? 2 : 0);
    return arguments;
}

std::string join(const Arguments &arguments)
{
    std::string joined;
    for (std::size_t i = 0; i < arguments.texts.size(); ++i)
        joined += (i == 0 ? "" : "|") + std::string(arguments.vector[i]);
    return joined;
}

// True for null and for a pointer to a byte or the terminator of an element.
bool points_into(const Arguments &arguments, const char *argument)
{
    return argument == nullptr ||
           std::any_of(arguments.texts.begin(), arguments.texts.end(),
                       [argument](const auto &text) {
                           return argument >= text.get() &&
                                  argument <= text.get() + std::strlen(text.get());
                       });
}

std::string number(int value)
{
    return value == untouched ? "untouched" : std::to_string(value);
}

std::string describe(const Expected &state)
{
    return "result " + number(state.result) + ", index " + number(state.index) + ", position " +
           number(state.position) + ", argument " +
           (state.argument == nullptr ? "null" : "\"" + std::string(state.argument) + "\"") +
           ", code " + number(state.code) + ", long index " + number(state.long_index) + ", flag " +
           number(state.flag) + ", vector " + state.vector + ", error \"" + state.error + "\"";
}

void reset_parser()
{
    option_index = 0;
    option_position = 0;
    option_argument = nullptr;
    option_errors = 1;
    option_code = '?';
}

// Makes one call and tells what a caller sees after it.
std::string call_parser(const Arguments &arguments, const Mode &mode)
{
    int long_index = untouched;
    stored = untouched;
    testing::internal::CaptureStderr();
    const int result = parse_options(arguments.count, arguments.vector.get(), mode.short_options,
                                     mode.long_options, &long_index, mode.long_only);
    const std::string error = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(points_into(arguments, option_argument)) << "the argument is no part of the vector";
    return describe({result, option_index, option_position, option_argument, option_code,
                     join(arguments), error, long_index, stored});
}

// Makes a row's calls from the state as it stands.
void continue_row(const Row &row, const Arguments &arguments)
{
    for (std::size_t call = 0; call < row.calls.size(); ++call) {
        const std::string before = join(arguments);
        Expected expected = row.calls[call];
        if (expected.vector == same)
            expected.vector = before;
        ASSERT_EQ(describe(expected), call_parser(arguments, row.mode))
            << row.rule << "\ncall " << call + 1 << " with " << before;
    }
}

// Makes a row's calls with its own vector, from the state as it stands.
void continue_row(const Row &row)
{
    continue_row(row, make_arguments(row.vector, VectorEnd::CountAlone));
}

// Runs each row as a fresh parse, for every way in which a vector may end.
void run_rows(const std::vector<Row> &rows)
{
    for (const Row &row : rows) {
        for (VectorEnd end :
             {VectorEnd::CountAndNull, VectorEnd::CountAlone, VectorEnd::NullAlone}) {
            reset_parser();
            continue_row(row, make_arguments(row.vector, end));
        }
    }
}

const Mode shorts_x = {"x", nullptr, 0};
const Mode shorts_o = {"o:", nullptr, 0};
const Mode shorts_ba = {"a::b", nullptr, 0};
const Mode longs = {nullptr, kinds, 0};
const Mode longs_only = {nullptr, kinds, 1};

TEST(LongOptionsState, StartsReadyForAFirstParse)
{
    EXPECT_EQ(0, initial_index);
    EXPECT_EQ(0, initial_position);
    EXPECT_EQ(nullptr, initial_argument);
    EXPECT_EQ(1, initial_errors);
    EXPECT_EQ('?', initial_code);
}

TEST(LongOptionsTable, KindsHaveTheNumbersThatProgramsWriteInTables)
{
    EXPECT_EQ(0, static_cast<int>(NoArgument));
    EXPECT_EQ(1, static_cast<int>(RequiredArgument));
    EXPECT_EQ(2, static_cast<int>(OptionalArgument));
}

TEST(LongOptionsCall, BadCallIsAnErrorInSilence)
{
    const Arguments arguments = make_arguments("prog|-x", VectorEnd::CountAndNull);
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
        reset_parser();
        option_code = 'z';
        testing::internal::CaptureStderr();
        EXPECT_EQ('?', parse_options(row.count, row.vector, row.short_options, row.long_options,
                                     nullptr, 0))
            << row.rule;
        EXPECT_EQ("", testing::internal::GetCapturedStderr()) << row.rule;
        EXPECT_EQ('?', option_code) << row.rule;
        EXPECT_EQ(0, option_index) << row.rule;
        EXPECT_EQ(0, option_position) << row.rule;
    }
}

TEST(LongOptionsCall, OneListIsEnough)
{
    run_rows({
        {"short options alone", "prog|-x", shorts_x, {{'x', 2, 1, nullptr, 'x'}}},
        {"a table alone", "prog|--none", longs, {{101, 2, 1, nullptr, '?', same, "", 0}}},
    });
}

TEST(LongOptionsCall, ParseIsOverWhereTheVectorEnds)
{
    const Arguments arguments = make_arguments("prog|-x", VectorEnd::CountAndNull);
    const struct {
        const char *rule;
        int count;
        int index;
    } rows[] = {
        {"index at the count", 2, 2},
        {"index behind the count", 2, 3},
        {"index at a null before the count", 5, 2},
        {"a negative count", -1, 0},
    };
    for (const auto &row : rows) {
        reset_parser();
        option_index = row.index;
        option_position = 1;
        option_code = 'z';
        EXPECT_EQ(-1, parse_options(row.count, arguments.vector.get(), "x", kinds, nullptr, 0))
            << row.rule;
        EXPECT_EQ(row.index, option_index) << row.rule;
        EXPECT_EQ('z', option_code) << row.rule;
    }
}

TEST(LongOptionsCall, VectorOfTheProgramNameAloneIsOverInEveryOrdering)
{
    for (const char *short_options : {"x", "+x", "-x", "", "+", "-"}) {
        for (int long_only : {0, 1}) {
            run_rows({{"no words",
                       "prog",
                       {short_options, kinds, long_only},
                       {{-1, 1, 1, nullptr, '?'}, {-1, 1, 1, nullptr, '?'}}}});
        }
    }
    run_rows({{"no words", "prog", longs_only, {{-1, 1, 1, nullptr, '?'}}}});
}

TEST(LongOptionsCall, NullProgramNameEndsTheVector)
{
    reset_parser();
    char *arguments[] = {nullptr, nullptr};
    EXPECT_EQ(-1, parse_options(1, arguments, "x", nullptr, nullptr, 0));
    EXPECT_EQ(0, option_index);
}

TEST(LongOptionsTwoDashes, EndTheOptions)
{
    run_rows({
        {"behind an option, nothing is moved",
         "prog|-x|--|-x",
         shorts_x,
         {{'x', 2, 1, nullptr, 'x'}, {-1, 3, 1, nullptr, 'x'}}},
        {"right behind the program name, permuting",
         "prog|--|a",
         shorts_x,
         {{-1, 2, 1, nullptr, '?'}}},
        {"behind operands, which move behind it in their order",
         "prog|a|b|--|-x",
         shorts_x,
         {{-1, 2, 1, nullptr, '?', "prog|--|a|b|-x"}}},
        {"behind one operand", "prog|a|--|b", shorts_x, {{-1, 2, 1, nullptr, '?', "prog|--|a|b"}}},
        {"in long-only mode",
         "prog|a|--|-none",
         longs_only,
         {{-1, 2, 1, nullptr, '?', "prog|--|a|-none"}}},
        {"behind an operand in order",
         "prog|a|--|b",
         {"-x", nullptr, 0},
         {{1, 2, 1, "a", 1}, {-1, 3, 1, "a", 1}}},
        {"behind an option where the order is required",
         "prog|-x|--|b",
         {"+x", nullptr, 0},
         {{'x', 2, 1, nullptr, 'x'}, {-1, 3, 1, nullptr, 'x'}}},
    });
}

TEST(LongOptionsTwoDashes, RightBehindTheProgramNameAreAnOptionUnlessPermuting)
{
    const std::string invalid = "prog: invalid option -- `--'\n";
    const std::string ambiguous =
        "prog: option `--' is ambiguous (could be `--none' or `--need')\n";
    run_rows({
        {"order required, short options only",
         "prog|--|a",
         {"+x", nullptr, 0},
         {{'?', 2, 1, nullptr, '?', same, invalid}, {-1, 2, 1, nullptr, '?'}}},
        {"in order, short options only",
         "prog|--|a",
         {"-x", nullptr, 0},
         {{'?', 2, 1, nullptr, '?', same, invalid}, {1, 3, 1, "a", 1}}},
        {"a listed '-' is found",
         "prog|--|a",
         {"+-", nullptr, 0},
         {{'-', 2, 1, nullptr, '-'}, {-1, 2, 1, nullptr, '-'}}},
        {"an empty abbreviation of several entries",
         "prog|--|a",
         {"+x", kinds, 0},
         {{'?', 1, 2, nullptr, '?', same, ambiguous}, {-1, 2, 2, nullptr, '?'}}},
        {"an empty abbreviation of the only entry",
         "prog|--|a",
         {"-x", single, 0},
         {{401, 2, 1, nullptr, '?', same, "", 0}, {1, 3, 1, "a", 1}}},
        {"an empty table",
         "prog|--|a",
         {"+x", no_entries, 0},
         {{'?', 2, 1, nullptr, '?', same, "prog: invalid option -- `-'\n"},
          {-1, 2, 1, nullptr, '?'}}},
    });
}

TEST(LongOptionsTwoDashes, AsTheProgramNameEndTheFirstCall)
{
    run_rows({
        {"the next call reads short options from the first character",
         "--|-x",
         shorts_x,
         {{-1, 1, 0, nullptr, '?'},
          {'?', 1, 1, nullptr, '?', same, "--: invalid option -- `--'\n"},
          {'x', 2, 1, nullptr, 'x'}}},
    });
}

// Sets POSIXLY_CORRECT for its life.
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

const char *const option_behind_operand = "prog|a|-x";
const std::vector<Expected> permuted = {{'x', 2, 1, nullptr, 'x', "prog|-x|a"},
                                        {-1, 2, 1, nullptr, 'x'}};
const std::vector<Expected> stopped = {{-1, 1, 1, nullptr, '?', "prog|a|-x"},
                                       {-1, 1, 1, nullptr, '?'}};
const std::vector<Expected> in_order = {
    {1, 2, 1, "a", 1}, {'x', 3, 1, nullptr, 'x'}, {-1, 3, 1, nullptr, 'x'}};

TEST(LongOptionsOrdering, IsChosenByTheFirstCharacter)
{
    run_rows({
        {"permute", option_behind_operand, {"x", nullptr, 0}, permuted},
        {"'+' requires the order", option_behind_operand, {"+x", nullptr, 0}, stopped},
        {"'-' returns in order", option_behind_operand, {"-x", nullptr, 0}, in_order},
        {"permute without a short-option string",
         "prog|a|--none",
         longs,
         {{101, 2, 1, nullptr, '?', "prog|--none|a", "", 0}, {-1, 2, 1, nullptr, '?'}}},
    });
}

TEST(LongOptionsOrdering, PosixlyCorrectRequiresTheOrderWhateverItsValue)
{
    for (const char *value : {"1", "0", ""}) {
        const PosixlyCorrect set(value);
        run_rows({
            {"instead of permuting", option_behind_operand, {"x", nullptr, 0}, stopped},
            {"with '+'", option_behind_operand, {"+x", nullptr, 0}, stopped},
            {"but not against '-'", option_behind_operand, {"-x", nullptr, 0}, in_order},
            {"without a short-option string", "prog|a|--none", longs, {{-1, 1, 1, nullptr, '?'}}},
            {"behind an option",
             "prog|-x|a|-x",
             {"x", nullptr, 0},
             {{'x', 2, 1, nullptr, 'x'}, {-1, 2, 1, nullptr, 'x'}}},
        });
    }
}

TEST(LongOptionsOrdering, IsChosenAnewByEachCall)
{
    const Row first = {"permuting at first",
                       "prog|a|-x|b|-x",
                       shorts_x,
                       {{'x', 2, 1, nullptr, 'x', "prog|-x|a|b|-x"}}};
    const Row second = {"then not", "", shorts_x, {{-1, 2, 1, nullptr, 'x'}}};
    const Arguments arguments = make_arguments(first.vector, VectorEnd::CountAndNull);
    reset_parser();
    continue_row(first, arguments);
    const PosixlyCorrect set("");
    continue_row(second, arguments);
}

TEST(LongOptionsOrdering, LeadingCharacterIsNoOptionAndOnlyOneIsTaken)
{
    run_rows({
        {"'+' is no option",
         "prog|-+",
         {"+x", nullptr, 0},
         {{'?', 2, 1, nullptr, '?', same, "prog: invalid option -- `-+'\n"}}},
        {"a second '+' is", "prog|-+", {"++x", nullptr, 0}, {{'+', 2, 1, nullptr, '+'}}},
        {"a '-' behind '+' is an option, the order is required",
         "prog|--x|a",
         {"+-x", nullptr, 0},
         {{'-', 1, 2, nullptr, '-'}, {'x', 2, 1, nullptr, 'x'}, {-1, 2, 1, nullptr, 'x'}}},
    });
}

struct OperandRow {
    const char *element;
    bool operand;
    bool operand_in_long_only;
};

const OperandRow operand_rows[] = {
    {"", true, true},       {"a", true, true},         {"a-b", true, true},
    {" -x", true, true},    {"5", true, true},         {"-", true, true},
    {"-5", true, true},     {"-0.5", true, true},      {"-0.25", true, true},
    {"-.5", true, true},    {"-5.", true, true},       {"-1e3", true, true},
    {"-1E+3", true, true},  {"-1e-3", true, true},     {"-1e999", true, true},
    {"-inf", true, true},   {"-INFINITY", true, true}, {"-nan", true, true},
    {"-0x1p3", true, true}, {"-5 ", true, true},       {"-5 \t\n\v\f\r", true, true},
    {"-5x", false, false},  {"-5 x", false, false},    {"-5 6", false, false},
    {"-5-", false, false},  {"-0,5", false, false},    {"-infx", false, false},
    {"-in", false, false},  {"-.", false, false},      {"-e5", false, false},
    {"- 5", false, false},  {"--5", false, false},     {"-x", false, false},
    {"--x", false, false},  {"-x5", false, false},     {"+", true, false},
    {"+5", true, false},    {"+x", true, false},       {"+-", true, false},
    {"++", true, false},
};

// An ordering that returns operands tells at once whether the element was one.
bool is_taken_for_operand(const char *element, int long_only)
{
    const Arguments arguments =
        make_arguments("prog|" + std::string(element), VectorEnd::CountAlone);
    reset_parser();
    option_errors = 0;
    return parse_options(2, arguments.vector.get(), "-", nullptr, nullptr, long_only) == 1 &&
           option_argument == arguments.vector[1];
}

void check_operand_rows()
{
    for (const OperandRow &row : operand_rows) {
        EXPECT_EQ(row.operand, is_taken_for_operand(row.element, 0)) << row.element;
        EXPECT_EQ(row.operand_in_long_only, is_taken_for_operand(row.element, 1))
            << row.element << " (long-only)";
    }
}

TEST(LongOptionsOperand, IsAWordWithoutADashOrANumber)
{
    check_operand_rows();
}

TEST(LongOptionsOperand, NumberHasAPointUnderACommaLocale)
{
    ASSERT_NE(nullptr, std::setlocale(LC_ALL, comma_locale));
    check_operand_rows();
    char text[8];
    std::snprintf(text, sizeof text, "%.1f", 0.5);
    std::setlocale(LC_ALL, "C");
    EXPECT_STREQ("0,5", text) << "the program's locale has not come back";
}

TEST(LongOptionsOperand, NumberOfAnyLengthIsReadWhole)
{
    const std::string digits = "-" + std::string(1 << 20, '7');
    EXPECT_TRUE(is_taken_for_operand(digits.c_str(), 0));
    EXPECT_TRUE(is_taken_for_operand((digits + std::string(1 << 20, ' ')).c_str(), 0));
    EXPECT_FALSE(is_taken_for_operand((digits + std::string(1 << 20, ' ') + "x").c_str(), 0));
    EXPECT_FALSE(is_taken_for_operand(("-5" + std::string(1 << 20, 'x')).c_str(), 0));
}

TEST(LongOptionsOperand, NumberIsNoOptionEvenIfItsDigitsAre)
{
    run_rows({
        {"short options",
         "prog|-5|-5x",
         {"5x", nullptr, 0},
         {{'5', 2, 2, nullptr, '5'}, {'x', 3, 1, nullptr, 'x'}, {-1, 3, 1, nullptr, 'x'}}},
        {"long options",
         "prog|-5|-5x|--5",
         {nullptr, negative, 1},
         {{502, 2, 1, nullptr, '?', "prog|-5x|-5|--5", "", 1},
          {501, 3, 1, nullptr, '?', "prog|-5x|--5|-5", "", 0},
          {-1, 3, 1, nullptr, '?'}}},
    });
}

TEST(LongOptionsOperand, InOrderIsReturnedAsResultOne)
{
    run_rows({
        {"words, numbers, a lone dash and an empty element",
         "prog|-x|a|-5|-||-x",
         {"-x", nullptr, 0},
         {{'x', 2, 1, nullptr, 'x'},
          {1, 3, 1, "a", 1},
          {1, 4, 1, "-5", 1},
          {1, 5, 1, "-", 1},
          {1, 6, 1, "", 1},
          {'x', 7, 1, nullptr, 'x'},
          {-1, 7, 1, nullptr, 'x'}}},
        {"no operand inside a cluster",
         "prog|-xy|a",
         {"-xy", nullptr, 0},
         {{'x', 1, 2, nullptr, 'x'}, {'y', 2, 1, nullptr, 'y'}, {1, 3, 1, "a", 1}}},
        {"with long options in long-only mode",
         "prog|a|-none|+5",
         {"-", kinds, 1},
         {{1, 2, 1, "a", 1},
          {101, 3, 1, nullptr, 1, same, "", 0},
          {'?', 4, 1, nullptr, '?', same, "prog: invalid option -- `-5'\n"},
          {-1, 4, 1, nullptr, '?'}}},
    });
}

TEST(LongOptionsPermute, MovesOperandsBehindTheOption)
{
    run_rows({
        {"one operand",
         "prog|a|-x|b",
         shorts_x,
         {{'x', 2, 1, nullptr, 'x', "prog|-x|a|b"}, {-1, 2, 1, nullptr, 'x'}}},
        {"several, call after call, in their order",
         "prog|a|b|-x|c|-y|d",
         {"xy", nullptr, 0},
         {{'x', 2, 1, nullptr, 'x', "prog|-x|a|b|c|-y|d"},
          {'y', 3, 1, nullptr, 'y', "prog|-x|-y|a|b|c|d"},
          {-1, 3, 1, nullptr, 'y'}}},
        {"an option with its argument in the next element",
         "prog|a|b|c|-o|file|d",
         shorts_o,
         {{'o', 3, 1, "file", 'o', "prog|-o|file|a|b|c|d"}, {-1, 3, 1, "file", 'o'}}},
        {"an option with its argument attached",
         "prog|a|-ofile|d",
         shorts_o,
         {{'o', 2, 1, "file", 'o', "prog|-ofile|a|d"}}},
        {"a long option",
         "prog|a|-|--none|-5",
         longs,
         {{101, 2, 1, nullptr, '?', "prog|--none|a|-|-5", "", 0}, {-1, 2, 1, nullptr, '?'}}},
        {"a long option with its argument in the next element",
         "prog|a|--need|--none|b",
         longs,
         {{102, 3, 1, "--none", '?', "prog|--need|--none|a|b", "", 1}, {-1, 3, 1, "--none", '?'}}},
        {"an unknown word of long-only mode without short options",
         "prog|a|-zzz|b",
         longs_only,
         {{'?', 2, 1, nullptr, '?', "prog|-zzz|a|b"}, {-1, 2, 1, nullptr, '?'}}},
    });
}

TEST(LongOptionsPermute, StaysAtTheFirstOfTheLastOperands)
{
    run_rows({
        {"operands only", "prog|a|b", shorts_x, {{-1, 1, 1, nullptr, '?'}}},
        {"operands behind an option",
         "prog|-x|a|b",
         shorts_x,
         {{'x', 2, 1, nullptr, 'x'}, {-1, 2, 1, nullptr, 'x'}, {-1, 2, 1, nullptr, 'x'}}},
    });
}

TEST(LongOptionsPermute, LeavesOperandsInFrontOfAClusterOfSeveralCalls)
{
    run_rows({
        {"two options",
         "prog|a|-xy",
         {"xy", nullptr, 0},
         {{'x', 2, 2, nullptr, 'x'}, {'y', 3, 1, nullptr, 'y'}, {-1, 3, 1, nullptr, 'y'}}},
        {"the last with its argument in the next element",
         "prog|a|-xo|file|b",
         {"xo:", nullptr, 0},
         {{'x', 2, 2, nullptr, 'x'}, {'o', 4, 1, "file", 'o'}, {-1, 4, 1, "file", 'o'}}},
    });
}

TEST(LongOptionsPermute, LeavesOperandsInFrontOfAnError)
{
    run_rows({
        {"an unknown option",
         "prog|a|-q|b",
         shorts_x,
         {{'?', 3, 1, nullptr, '?', same, "prog: invalid option -- `-q'\n"},
          {-1, 3, 1, nullptr, '?'}}},
        {"a missing argument",
         "prog|a|-o",
         shorts_o,
         {{':', 3, 1, nullptr, ':', same, "prog: argument required for option `-o'\n"},
          {-1, 3, 1, nullptr, ':'}}},
        {"an ambiguous word, which is not passed over",
         "prog|a|--n|b",
         longs,
         {{'?', 2, 2, nullptr, '?', same,
           "prog: option `--n' is ambiguous (could be `--none' or `--need')\n"}}},
    });
}

TEST(LongOptionsLong, AreTriedBehindTwoDashesOnlyOutsideLongOnlyMode)
{
    const Mode both = {"n", kinds, 0};
    const Mode both_long_only = {"n", kinds, 1};
    run_rows({
        {"two dashes", "prog|--none", both, {{101, 2, 1, nullptr, '?', same, "", 0}}},
        {"one dash is a cluster",
         "prog|-none",
         both,
         {{'n', 1, 2, nullptr, 'n'},
          {'?', 1, 3, nullptr, '?', same, "prog: invalid option -- `-o'\n"},
          {'n', 1, 4, nullptr, 'n'},
          {'?', 2, 1, nullptr, '?', same, "prog: invalid option -- `-e'\n"}}},
        {"plus is an operand", "prog|+none", both, {{-1, 1, 1, nullptr, '?'}}},
        {"long-only, two dashes",
         "prog|--none",
         both_long_only,
         {{101, 2, 1, nullptr, '?', same, "", 0}}},
        {"long-only, one dash",
         "prog|-none",
         both_long_only,
         {{101, 2, 1, nullptr, '?', same, "", 0}}},
        {"long-only, plus", "prog|+none", both_long_only, {{101, 2, 1, nullptr, '?', same, "", 0}}},
        {"long-only, two plus signs: the second belongs to the name",
         "prog|++none",
         longs_only,
         {{'?', 2, 1, nullptr, '?'}}},
        {"long-only, plus and dash: the dash belongs to the name",
         "prog|+-none",
         longs_only,
         {{'?', 2, 1, nullptr, '?'}}},
        {"long-only without a table is short options",
         "prog|-xx|--x",
         {"x", nullptr, 1},
         {{'x', 1, 2, nullptr, 'x'},
          {'x', 2, 1, nullptr, 'x'},
          {'?', 2, 2, nullptr, '?', same, "prog: invalid option -- `--'\n"},
          {'x', 3, 1, nullptr, 'x'}}},
        {"never in the middle of a cluster",
         "prog|-x-only",
         {"x-onl", single, 0},
         {{'x', 1, 2, nullptr, 'x'}, {'-', 1, 3, nullptr, '-'}}},
    });
}

TEST(LongOptionsLong, ExactNameWinsOverOnePrefixMatchAndUniquePrefixMatches)
{
    run_rows({
        {"an exact name in front of longer ones",
         "prog|-alpha",
         {nullptr, alphas, 1},
         {{201, 2, 1, nullptr, '?', same, "", 0}}},
        {"a unique abbreviation",
         "prog|-alpha-o",
         {nullptr, alphas, 1},
         {{202, 2, 1, nullptr, '?', same, "", 1}}},
        {"the exact name behind one prefix match",
         "prog|--ab",
         {nullptr, exact_behind_one, 0},
         {{303, 2, 1, nullptr, '?', same, "", 1}}},
        {"up to the '='",
         "prog|--ab=c",
         {nullptr, exact_behind_one, 0},
         {{303, 2, 1, nullptr, '?', same, "", 1}}},
        {"an abbreviation up to the '='",
         "prog|--m=v",
         longs,
         {{103, 2, 1, "v", '?', same, "", 2}}},
        {"bytes are compared: letter case counts",
         "prog|-NONE",
         longs_only,
         {{'?', 2, 1, nullptr, '?'}}},
        {"a name longer than the entry's is no match",
         "prog|-nonesuch",
         longs_only,
         {{'?', 2, 1, nullptr, '?'}}},
        {"an empty name abbreviates the only entry",
         "prog|--=x|-=|+",
         {nullptr, single, 1},
         {{401, 2, 1, nullptr, '?', same, "", 0},
          {401, 3, 1, nullptr, '?', same, "", 0},
          {401, 4, 1, nullptr, '?', same, "", 0}}},
    });
}

TEST(LongOptionsLong, SecondPrefixMatchIsAmbiguousAndNotPassedOver)
{
    const std::string one_two =
        "prog: option `-alpha-' is ambiguous (could be `--alpha-one' or `--alpha-two')\n";
    const std::string abc_abd = "' is ambiguous (could be `--abc' or `--abd')\n";
    const std::string none_need = "' is ambiguous (could be `--none' or `--need')\n";
    run_rows({
        {"one dash: each call says so again",
         "prog|-alpha-",
         {nullptr, alphas, 1},
         {{'?', 1, 1, nullptr, '?', same, one_two}, {'?', 1, 1, nullptr, '?', same, one_two}}},
        {"an exact name is never reached behind two prefix matches",
         "prog|--ab",
         {nullptr, exact_behind_two, 0},
         {{'?', 1, 2, nullptr, '?', same, "prog: option `--ab" + abc_abd}}},
        {"two dashes: the next calls read short options from the third character",
         "prog|--ab",
         {"ab", exact_behind_two, 0},
         {{'?', 1, 2, nullptr, '?', same, "prog: option `--ab" + abc_abd},
          {'a', 1, 3, nullptr, 'a'},
          {'b', 2, 1, nullptr, 'b'},
          {-1, 2, 1, nullptr, 'b'}}},
        {"two dashes without short options: the next calls return the code",
         "prog|--ab",
         {nullptr, exact_behind_two, 0},
         {{'?', 1, 2, nullptr, '?', same, "prog: option `--ab" + abc_abd},
          {'?', 1, 2, nullptr, '?'},
          {'?', 1, 2, nullptr, '?'}}},
        {"the message shows the element as typed",
         "prog|+n=1=2",
         longs_only,
         {{'?', 1, 1, nullptr, '?', same, "prog: option `+n=1=2" + none_need}}},
        {"an empty name behind two dashes",
         "prog|--=x",
         longs,
         {{'?', 1, 2, nullptr, '?', same, "prog: option `--=x" + none_need}}},
        {"a lone plus",
         "prog|+",
         longs_only,
         {{'?', 1, 1, nullptr, '?', same, "prog: option `+" + none_need}}},
        {"even where short options are given",
         "prog|-n",
         {"n", kinds, 1},
         {{'?', 1, 1, nullptr, '?', same, "prog: option `-n" + none_need}}},
    });
}

TEST(LongOptionsLong, UnmatchedWordIsReadAsShortOptions)
{
    run_rows({
        {"two dashes: from the third character",
         "prog|--xy",
         {"xy", kinds, 0},
         {{'x', 1, 3, nullptr, 'x'}, {'y', 2, 1, nullptr, 'y'}, {-1, 2, 1, nullptr, 'y'}}},
        {"two dashes and one character",
         "prog|--x|a",
         {"x", kinds, 0},
         {{'x', 2, 1, nullptr, 'x'}}},
        {"one dash: from the second character",
         "prog|-xy",
         {"xy", kinds, 1},
         {{'x', 1, 2, nullptr, 'x'}, {'y', 2, 1, nullptr, 'y'}}},
        {"plus: from the second character",
         "prog|+xy",
         {"xy", kinds, 1},
         {{'x', 1, 2, nullptr, 'x'}, {'y', 2, 1, nullptr, 'y'}}},
        {"an argument attached behind two dashes",
         "prog|--ofile",
         {"o:", kinds, 0},
         {{'o', 2, 1, "file", 'o'}}},
        {"unknown both ways",
         "prog|--zx",
         {"x", kinds, 0},
         {{'?', 1, 3, nullptr, '?', same, "prog: invalid option -- `-z'\n"},
          {'x', 2, 1, nullptr, 'x'}}},
    });
}

TEST(LongOptionsLong, UnmatchedWordWithoutShortOptionsReturnsTheCodeInSilence)
{
    run_rows({
        {"one dash: passed over",
         "prog|-zzz|-none",
         longs_only,
         {{'?', 2, 1, nullptr, '?'}, {101, 3, 1, nullptr, '?', same, "", 0}}},
        {"plus: passed over", "prog|+zzz=1|-none", longs_only, {{'?', 2, 1, nullptr, '?'}}},
        {"two dashes: not passed over, since the position is 2",
         "prog|--zzz|--none",
         longs_only,
         {{'?', 1, 2, nullptr, '?'}, {'?', 1, 2, nullptr, '?'}}},
        {"one dash outside long-only mode: passed over",
         "prog|-zzz|--none",
         longs,
         {{'?', 2, 1, nullptr, '?'}, {101, 3, 1, nullptr, '?', same, "", 0}}},
        {"an empty table, a lone plus",
         "prog|+",
         {nullptr, no_entries, 1},
         {{'?', 2, 1, nullptr, '?'}}},
    });
}

TEST(LongOptionsLong, UnmatchedWordReturnsTheCodeAsItStands)
{
    const Row row = {"what a caller has set",
                     "prog|-zzz|-none|-zzz",
                     longs_only,
                     {{'z', 2, 1, nullptr, 'z'},
                      {101, 3, 1, nullptr, 'z', same, "", 0},
                      {'z', 4, 1, nullptr, 'z'},
                      {-1, 4, 1, nullptr, 'z'}}};
    reset_parser();
    option_code = 'z';
    continue_row(row);
}

TEST(LongOptionsLong, MatchStoresItsValueThroughTheFlagOrReturnsIt)
{
    run_rows({
        {"with a flag: 0, and the value stored",
         "prog|--store",
         longs,
         {{0, 2, 1, nullptr, '?', same, "", 3, 104}}},
        {"with a flag and an argument",
         "prog|--keep=v",
         longs,
         {{0, 2, 1, "v", '?', same, "", 4, 105}}},
        {"without a flag: the value",
         "prog|--none",
         longs,
         {{101, 2, 1, nullptr, '?', same, "", 0}}},
        {"a missing argument stores neither value nor index",
         "prog|--keep",
         longs,
         {{':', 2, 2, nullptr, ':', same, "prog: argument required for option `--keep'\n"}}},
        {"the code stays that of the short option before",
         "prog|-x|--none",
         {"x", kinds, 0},
         {{'x', 2, 1, nullptr, 'x'}, {101, 3, 1, nullptr, 'x', same, "", 0}}},
    });
}

TEST(LongOptionsLong, IndexMayBeNull)
{
    const Arguments arguments = make_arguments("prog|--store", VectorEnd::CountAndNull);
    reset_parser();
    stored = untouched;
    EXPECT_EQ(0, parse_options(2, arguments.vector.get(), nullptr, kinds, nullptr, 0));
    EXPECT_EQ(104, stored);
}

TEST(LongOptionsShort, ClusterReturnsOneOptionPerCall)
{
    run_rows({
        {"three options",
         "prog|-xyx",
         {"xy", nullptr, 0},
         {{'x', 1, 2, nullptr, 'x'},
          {'y', 1, 3, nullptr, 'y'},
          {'x', 2, 1, nullptr, 'x'},
          {-1, 2, 1, nullptr, 'x'}}},
        {"the last takes the rest",
         "prog|-xofile",
         {"xo:", nullptr, 0},
         {{'x', 1, 2, nullptr, 'x'}, {'o', 2, 1, "file", 'o'}}},
        {"a dash inside is an option like any other",
         "prog|-x-x",
         {"x-", nullptr, 0},
         {{'x', 1, 2, nullptr, 'x'}, {'-', 1, 3, nullptr, '-'}, {'x', 2, 1, nullptr, 'x'}}},
        {"an '=' behind an option without argument is the next option",
         "prog|-x=",
         shorts_x,
         {{'x', 1, 2, nullptr, 'x'},
          {'?', 2, 1, nullptr, '?', same, "prog: invalid option -- `-='\n"}}},
        {"a listed '=' is an option", "prog|-=", {"=", nullptr, 0}, {{'=', 2, 1, nullptr, '='}}},
    });
}

TEST(LongOptionsShort, UnknownCharacterIsReportedAndPassedOver)
{
    const std::string invalid = "prog: invalid option -- `-q'\n";
    run_rows({
        {"alone", "prog|-q", shorts_x, {{'?', 2, 1, nullptr, '?', same, invalid}}},
        {"the next call goes on behind it",
         "prog|-qx",
         shorts_x,
         {{'?', 1, 2, nullptr, '?', same, invalid},
          {'x', 2, 1, nullptr, 'x'},
          {-1, 2, 1, nullptr, 'x'}}},
        {"at the end",
         "prog|-xq|-x",
         shorts_x,
         {{'x', 1, 2, nullptr, 'x'},
          {'?', 2, 1, nullptr, '?', same, invalid},
          {'x', 3, 1, nullptr, 'x'}}},
        {"the argument of the option before stays",
         "prog|-ofile|-q",
         shorts_o,
         {{'o', 2, 1, "file", 'o'}, {'?', 3, 1, "file", '?', same, invalid}}},
        {"an empty short-option string knows none",
         "prog|-q",
         {"", kinds, 1},
         {{'?', 2, 1, nullptr, '?', same, invalid}}},
        {"a byte of Latin-1 is printed as it is",
         "prog|-\xE9",
         shorts_x,
         {{'?', 2, 1, nullptr, '?', same, "prog: invalid option -- `-\xE9'\n"}}},
    });
}

TEST(LongOptionsShort, ByteAbove127IsAPositiveCode)
{
    run_rows({
        {"0xE9", "prog|-\xE9", {"\xE9", nullptr, 0}, {{0xE9, 2, 1, nullptr, 0xE9}}},
        {"0xFF, which must not look like the end",
         "prog|-\xFF",
         {"\xFF", nullptr, 0},
         {{0xFF, 2, 1, nullptr, 0xFF}}},
        {"in the message about a missing argument",
         "prog|-\xE9",
         {"\xE9:", nullptr, 0},
         {{':', 2, 1, nullptr, ':', same, "prog: argument required for option `-\xE9'\n"}}},
    });
}

TEST(LongOptionsShort, ColonIsFoundWhereTheStringHasOne)
{
    run_rows({
        {"one colon: no argument", "prog|-:", {"x:", nullptr, 0}, {{':', 2, 1, nullptr, ':'}}},
        {"two colons: the first is followed by one, a required argument",
         "prog|-:|v",
         {"x::", nullptr, 0},
         {{':', 3, 1, "v", ':'}}},
        {"no colon",
         "prog|-:",
         shorts_x,
         {{'?', 2, 1, nullptr, '?', same, "prog: invalid option -- `-:'\n"}}},
    });
}

TEST(LongOptionsShort, ElementThatEndsWhereACharacterShouldStandIsUnknown)
{
    const std::string invalid = "prog: invalid option -- `-'\n";
    run_rows({
        {"a lone plus in long-only mode, no entry",
         "prog|+|-x",
         {"x", no_entries, 1},
         {{'?', 2, 1, nullptr, '?', same, invalid}, {'x', 3, 1, nullptr, 'x'}}},
        {"a lone plus in long-only mode, no table",
         "prog|+",
         {"x:", nullptr, 1},
         {{'?', 2, 1, nullptr, '?', same, invalid}, {-1, 2, 1, nullptr, '?'}}},
    });
}

TEST(LongOptionsShort, StalePositionIsNeverReadBehindTheTerminator)
{
    const struct {
        const char *rule;
        const char *element;
        int position;
    } rows[] = {
        {"at the terminator", "-xx", 3},   {"behind it", "-xx", 4},
        {"far behind it", "-xx", 1 << 30}, {"the greatest", "-xx", 0x7FFFFFFF},
        {"a negative one", "-xx", -1},     {"an empty element, at its start", "", 0},
        {"an empty element", "", 2},
    };
    for (const auto &row : rows) {
        const Row calls = {row.rule,
                           "prog|" + std::string(row.element) + "|a",
                           {"x", kinds, 0},
                           {{'?', 2, 1, nullptr, '?', same, "prog: invalid option -- `-'\n"},
                            {-1, 2, 1, nullptr, '?'}}};
        reset_parser();
        option_index = 1;
        option_position = row.position;
        continue_row(calls);
    }
}

TEST(LongOptionsShort, StalePositionWithoutShortOptionsReadsNothing)
{
    const Row row = {
        "the code as it stands", "prog|-none", longs_only, {{'?', 1, 99, nullptr, '?'}}};
    reset_parser();
    option_index = 1;
    option_position = 99;
    continue_row(row);
}

TEST(LongOptionsArgument, RequiredOfAShortOption)
{
    const std::string missing = "prog: argument required for option `-o'\n";
    run_rows({
        {"attached", "prog|-ofile", shorts_o, {{'o', 2, 1, "file", 'o'}, {-1, 2, 1, "file", 'o'}}},
        {"attached with '='", "prog|-o=file", shorts_o, {{'o', 2, 1, "file", 'o'}}},
        {"only one '=' is dropped", "prog|-o==file", shorts_o, {{'o', 2, 1, "=file", 'o'}}},
        {"the next element",
         "prog|-o|file",
         shorts_o,
         {{'o', 3, 1, "file", 'o'}, {-1, 3, 1, "file", 'o'}}},
        {"the next element behind an '=' alone",
         "prog|-o=|file",
         shorts_o,
         {{'o', 3, 1, "file", 'o'}}},
        {"the next element whatever it is: an option",
         "prog|-o|-o|-ox",
         shorts_o,
         {{'o', 3, 1, "-o", 'o'}, {'o', 4, 1, "x", 'o'}}},
        {"the next element whatever it is: two dashes",
         "prog|-o|--|-ox",
         shorts_o,
         {{'o', 3, 1, "--", 'o'}, {'o', 4, 1, "x", 'o'}}},
        {"the next element whatever it is: empty", "prog|-o|", shorts_o, {{'o', 3, 1, "", 'o'}}},
        {"at the end of a cluster",
         "prog|-xo|file",
         {"xo:", nullptr, 0},
         {{'x', 1, 2, nullptr, 'x'}, {'o', 3, 1, "file", 'o'}}},
        {"missing",
         "prog|-o",
         shorts_o,
         {{':', 2, 1, nullptr, ':', same, missing}, {-1, 2, 1, nullptr, ':'}}},
        {"missing behind an '='", "prog|-o=", shorts_o, {{':', 2, 1, nullptr, ':', same, missing}}},
        {"missing at the end of a cluster: the position stays",
         "prog|-xo",
         {"xo:", nullptr, 0},
         {{'x', 1, 2, nullptr, 'x'},
          {':', 2, 2, nullptr, ':', same, missing},
          {-1, 2, 2, nullptr, ':'}}},
        {"missing: the argument of the option before stays",
         "prog|-ofile|-o",
         shorts_o,
         {{'o', 2, 1, "file", 'o'}, {':', 3, 1, "file", ':', same, missing}}},
    });
}

TEST(LongOptionsArgument, RequiredOfALongOption)
{
    const std::string missing = "prog: argument required for option `--need'\n";
    run_rows({
        {"attached",
         "prog|--need=file",
         longs,
         {{102, 2, 1, "file", '?', same, "", 1}, {-1, 2, 1, "file", '?'}}},
        {"only one '=' is dropped",
         "prog|--need==a=b",
         longs,
         {{102, 2, 1, "=a=b", '?', same, "", 1}}},
        {"attached to an abbreviation, one dash",
         "prog|-ne=file",
         longs_only,
         {{102, 2, 1, "file", '?', same, "", 1}}},
        {"the next element",
         "prog|-need|-none",
         longs_only,
         {{102, 3, 1, "-none", '?', same, "", 1}, {-1, 3, 1, "-none", '?'}}},
        {"the next element behind an '=' alone",
         "prog|--need=|file",
         longs,
         {{102, 3, 1, "file", '?', same, "", 1}}},
        {"missing: the position stays behind the dashes",
         "prog|--need",
         longs,
         {{':', 2, 2, nullptr, ':', same, missing}, {-1, 2, 2, nullptr, ':'}}},
        {"missing behind one dash",
         "prog|-need",
         longs_only,
         {{':', 2, 1, nullptr, ':', same, missing}}},
        {"missing: the message has the name from the table however it was typed",
         "prog|+ne=",
         longs_only,
         {{':', 2, 1, nullptr, ':', same, missing}}},
    });
}

TEST(LongOptionsArgument, OptionalIsAttachedOrAbsent)
{
    run_rows({
        {"short, attached", "prog|-afile", shorts_ba, {{'a', 2, 1, "file", 'a'}}},
        {"short, attached with '='", "prog|-a==file", shorts_ba, {{'a', 2, 1, "=file", 'a'}}},
        {"short, absent at the start of a word: passed over, the next element is no argument",
         "prog|-a|file",
         shorts_ba,
         {{'a', 2, 1, nullptr, 'a'}, {-1, 2, 1, nullptr, 'a'}}},
        {"short, an '=' alone", "prog|-a=|file", shorts_ba, {{'a', 2, 1, nullptr, 'a'}}},
        {"short, attached in a cluster",
         "prog|-bafile",
         shorts_ba,
         {{'b', 1, 2, nullptr, 'b'}, {'a', 2, 1, "file", 'a'}}},
        {"short, absent: the argument of the option before is gone",
         "prog|-afile|-a",
         shorts_ba,
         {{'a', 2, 1, "file", 'a'}, {'a', 3, 1, nullptr, 'a'}}},
        {"long, attached", "prog|--maybe=file", longs, {{103, 2, 1, "file", '?', same, "", 2}}},
        {"long, absent behind one dash: passed over",
         "prog|-maybe|file",
         longs_only,
         {{103, 2, 1, nullptr, '?', same, "", 2}, {-1, 2, 1, nullptr, '?'}}},
        {"long, absent behind plus: passed over",
         "prog|+maybe=",
         longs_only,
         {{103, 2, 1, nullptr, '?', same, "", 2}}},
    });
}

TEST(LongOptionsArgument, AbsentOptionalLeavesThePositionSoThatTheOptionComesAgain)
{
    run_rows({
        {"at the end of a cluster",
         "prog|-ba|file",
         shorts_ba,
         {{'b', 1, 2, nullptr, 'b'}, {'a', 1, 2, nullptr, 'a'}, {'a', 1, 2, nullptr, 'a'}}},
        {"a long option behind two dashes, no short options: the code comes",
         "prog|--maybe|file",
         longs,
         {{103, 1, 2, nullptr, '?', same, "", 2}, {'?', 1, 2, nullptr, '?'}}},
        {"operands in front stay there",
         "prog|x|--maybe=",
         longs,
         {{103, 2, 2, nullptr, '?', same, "", 2}}},
    });
}

TEST(LongOptionsArgument, CallerCanPassOverAnAbsentOptionalOne)
{
    const Arguments arguments = make_arguments("prog|-ba|--maybe|-b|file", VectorEnd::CountAndNull);
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

TEST(LongOptionsArgument, NoneOfALongOptionIgnoresAnAttachedValue)
{
    run_rows({
        {"attached",
         "prog|--none=value|--store=",
         longs,
         {{101, 2, 1, nullptr, '?', same, "", 0}, {0, 3, 1, nullptr, '?', same, "", 3, 104}}},
        {"the argument of the option before is gone",
         "prog|--need=a|--none",
         longs,
         {{102, 2, 1, "a", '?', same, "", 1}, {101, 3, 1, nullptr, '?', same, "", 0}}},
    });
}

TEST(LongOptionsMessages, AreSilentWhenTheCallerSaysSo)
{
    const std::vector<Row> rows = {
        {"unknown options and a missing argument",
         "prog|-qx|-z|-need",
         {"x", kinds, 1},
         {{'?', 1, 2, nullptr, '?'},
          {'x', 2, 1, nullptr, 'x'},
          {'?', 3, 1, nullptr, '?'},
          {':', 4, 1, nullptr, ':'}}},
        {"a missing argument of a short option", "prog|-o", shorts_o, {{':', 2, 1, nullptr, ':'}}},
        {"an element that ends", "prog|+", {"o:", nullptr, 1}, {{'?', 2, 1, nullptr, '?'}}},
        {"an ambiguous word", "prog|--n", longs, {{'?', 1, 2, nullptr, '?'}}},
    };
    for (const Row &row : rows) {
        reset_parser();
        option_errors = 0;
        continue_row(row);
    }
}

TEST(LongOptionsMessages, AreSaidForAnyOtherNumber)
{
    const Row row = {"a negative number",
                     "prog|-q",
                     shorts_x,
                     {{'?', 2, 1, nullptr, '?', same, "prog: invalid option -- `-q'\n"}}};
    reset_parser();
    option_errors = -1;
    continue_row(row);
}

TEST(LongOptionsMessages, BeginWithTheProgramNameWhateverItHolds)
{
    run_rows({
        {"an empty name",
         "|-q",
         shorts_x,
         {{'?', 2, 1, nullptr, '?', same, ": invalid option -- `-q'\n"}}},
        {"a name like a format",
         "%s%n/prog|-o",
         shorts_o,
         {{':', 2, 1, nullptr, ':', same, "%s%n/prog: argument required for option `-o'\n"}}},
    });
}

TEST(LongOptionsMessages, ElementOfAnyLengthIsShownWhole)
{
    const std::string rest(1 << 20, 'v');
    const std::string word = "--n=" + rest;
    const std::string program(1 << 16, 'p');
    run_rows({
        {"an ambiguous word",
         program + "|" + word,
         longs,
         {{'?', 1, 2, nullptr, '?', same,
           program + ": option `" + word + "' is ambiguous (could be `--none' or `--need')\n"}}},
        {"an argument", "prog|-o" + rest, shorts_o, {{'o', 2, 1, rest.c_str(), 'o'}}},
    });
}

TEST(LongOptionsRestart, IndexOfZeroStartsAgain)
{
    const Arguments arguments = make_arguments("prog|-xy|a|-y", VectorEnd::CountAndNull);
    const Mode mode = {"xy", nullptr, 0};
    reset_parser();
    continue_row({"stop in a cluster", "", mode, {{'x', 1, 2, nullptr, 'x'}}}, arguments);
    option_index = 0;
    continue_row({"the same vector",
                  "",
                  mode,
                  {{'x', 1, 2, nullptr, 'x'},
                   {'y', 2, 1, nullptr, 'y'},
                   {'y', 3, 1, nullptr, 'y', "prog|-xy|-y|a"},
                   {-1, 3, 1, nullptr, 'y'}}},
                 arguments);
    option_index = 0;
    continue_row({"another vector",
                  "other|-none|b",
                  longs_only,
                  {{101, 2, 1, nullptr, 'y', same, "", 0}, {-1, 2, 1, nullptr, 'y'}}});
}

TEST(LongOptionsRestart, IndexOfOneByHandReadsTheFirstElementFromItsFirstCharacter)
{
    const std::string dash = "prog: invalid option -- `--'\n";
    const std::vector<Row> rows = {
        {"the dash is an unknown option, then the word is read as usual",
         "prog|-x|a",
         shorts_x,
         {{'?', 1, 1, nullptr, '?', same, dash},
          {'x', 2, 1, nullptr, 'x'},
          {-1, 2, 1, nullptr, 'x'}}},
        {"a long option too",
         "prog|--none",
         {"x", kinds, 0},
         {{'?', 1, 1, nullptr, '?', same, dash}, {101, 2, 1, nullptr, '?', same, "", 0}}},
        {"a listed character in front has the position of a finished word",
         "prog|xyz|-x",
         shorts_x,
         {{'x', 2, 1, nullptr, 'x'}, {'x', 3, 1, nullptr, 'x'}}},
        {"an operand is no operand", "prog|ofile", {"-o:", nullptr, 0}, {{'o', 2, 1, "file", 'o'}}},
        {"without short options the code comes",
         "prog|--none",
         longs,
         {{'?', 1, 0, nullptr, '?'}, {'?', 1, 0, nullptr, '?'}}},
        {"two dashes are still the end",
         "prog|--|-x",
         {"+x", nullptr, 0},
         {{-1, 2, 0, nullptr, '?'}}},
    };
    for (const Row &row : rows) {
        reset_parser();
        option_index = 1;
        continue_row(row);
    }
}

TEST(LongOptionsRestart, IndexAndPositionByHandBehaveAsAtTheStartOfAWord)
{
    const Row row = {"position 1, in the middle of a vector",
                     "prog|-skipped|a|-x",
                     shorts_x,
                     {{'x', 3, 1, nullptr, 'x', "prog|-skipped|-x|a"}}};
    reset_parser();
    option_index = 2;
    option_position = 1;
    continue_row(row);
}

TEST(LongOptionsLongOnly, IsParseOptionsWithTheModeOn)
{
    const Arguments arguments =
        make_arguments("prog|a|-need|v|+store|-zzz", VectorEnd::CountAndNull);
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
    EXPECT_EQ("prog|-need|v|+store|-zzz|a", join(arguments));
    option_index = 0;
    EXPECT_EQ('?', parse_long_only_options(6, vector, nullptr, nullptr, nullptr)) << "a bad call";
    option_index = 0;
    EXPECT_EQ('n', parse_long_only_options(6, vector, "n", nullptr, nullptr)) << "short options";
}

std::string random_text(std::mt19937 &random, const char *alphabet, std::size_t longest)
{
    const std::size_t letters = std::strlen(alphabet);
    std::string text;
    for (std::size_t length = random() % (longest + 1); text.size() < length;)
        text += alphabet[random() % letters];
    return text;
}

// A vector, the lists and a starting state at random; the strings own what the pointers show.
struct RandomCase {
    std::string vector;
    std::vector<std::string> names;
    std::vector<LongOption> table;
    std::string short_options;
    Mode mode;
    VectorEnd end;
};

void fill_random_table(std::mt19937 &random, RandomCase &random_case)
{
    for (std::size_t count = random() % 5; random_case.names.size() < count;)
        random_case.names.push_back(random_text(random, "abx-=", 3));
    int value = 1000;
    for (const std::string &name : random_case.names)
        random_case.table.push_back({name.c_str(), static_cast<std::int32_t>(random() % 3),
                                     random() % 2 == 0 ? nullptr : &stored, ++value});
    random_case.table.push_back({nullptr, NoArgument, nullptr, 0});
}

void fill_random_case(std::mt19937 &random, RandomCase &random_case)
{
    random_case.vector = random() % 20 == 0 ? "--" : "prog";
    for (std::size_t words = random() % 7; words > 0; --words)
        random_case.vector += "|" + random_text(random, "---++abx=:5.e \xE9", 5);
    fill_random_table(random, random_case);
    random_case.short_options = random_text(random, "+-abx5::", 6);
    random_case.mode = {random() % 4 == 0 ? nullptr : random_case.short_options.c_str(),
                        random() % 3 == 0 ? nullptr : random_case.table.data(),
                        static_cast<int>(random() % 2)};
    random_case.end = static_cast<VectorEnd>(random() % 3);
}

std::string describe(const RandomCase &random_case)
{
    std::string text = "short options ";
    text += random_case.mode.short_options == nullptr ? "null" : random_case.mode.short_options;
    text += random_case.mode.long_only != 0 ? ", long-only" : "";
    text += ", vector " + random_case.vector;
    text += random_case.mode.long_options == nullptr ? ", no table" : ", table";
    for (const LongOption &entry : random_case.table) {
        if (entry.name != nullptr)
            text += " \"" + std::string(entry.name) + "\" " + std::to_string(entry.has_argument);
    }
    return text;
}

void set_random_state(std::mt19937 &random, int count)
{
    reset_parser();
    if (random() % 4 != 0)
        return;
    option_index = static_cast<int>(random() % static_cast<unsigned>(count + 1));
    option_position = static_cast<int>(random() % 12) - 3;
}

// The result has to be one that the lists can give, stored as a code where it is no long match.
bool is_possible(const RandomCase &random_case, int result, int long_index)
{
    if (result == -1)
        return long_index == untouched;
    if (long_index == untouched)
        return result == option_code;
    const LongOption &entry = random_case.table[static_cast<std::size_t>(long_index)];
    return entry.flag == nullptr ? result == entry.value : result == 0 && stored == entry.value;
}

std::vector<char *> sorted_elements(const Arguments &arguments)
{
    std::vector<char *> elements(arguments.vector.get(),
                                 arguments.vector.get() + arguments.texts.size());
    std::sort(elements.begin(), elements.end());
    return elements;
}

void check_random_case(const RandomCase &random_case, const Arguments &arguments)
{
    const std::vector<char *> elements = sorted_elements(arguments);
    const int count = static_cast<int>(elements.size());
    for (int call = 0; call < 30; ++call) {
        int long_index = untouched;
        stored = untouched;
        const int result =
            parse_options(arguments.count, arguments.vector.get(), random_case.mode.short_options,
                          random_case.mode.long_options, &long_index, random_case.mode.long_only);
        ASSERT_GE(option_index, 0);
        ASSERT_LE(option_index, count);
        ASSERT_EQ(elements, sorted_elements(arguments)) << "elements were lost";
        ASSERT_EQ(arguments.texts[0].get(), arguments.vector[0]) << "the program name moved";
        ASSERT_TRUE(points_into(arguments, option_argument));
        if (random_case.mode.short_options != nullptr || random_case.mode.long_options != nullptr) {
            ASSERT_TRUE(is_possible(random_case, result, long_index)) << "result " << result;
        }
    }
}

TEST(LongOptionsRandom, AnyVectorKeepsTheIndexInsideAndTheVectorWhole)
{
    std::mt19937 random(20090417);
    testing::internal::CaptureStderr();
    for (int i = 0; i < 4000 && !HasFatalFailure(); ++i) {
        RandomCase random_case;
        fill_random_case(random, random_case);
        const Arguments arguments = make_arguments(random_case.vector, random_case.end);
        set_random_state(random, static_cast<int>(arguments.texts.size()));
        SCOPED_TRACE("case " + std::to_string(i) + ": " + describe(random_case));
        check_random_case(random_case, arguments);
    }
    const std::string messages = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, messages.find("is ambiguous"));
    EXPECT_NE(std::string::npos, messages.find("argument required"));
    EXPECT_NE(std::string::npos, messages.find("invalid option -- `-'"));
    EXPECT_EQ(std::string::npos, messages.find('\0'));
    reset_parser();
}

} // namespace
} // namespace quintral::tests
