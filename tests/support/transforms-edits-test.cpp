// The transforms that edit strings: normalise_spaces, insert_string_into_string and replace_all.
// The examples of docs/strings-dates-clocks.md are in docs-test.
#include "support/c-utils/transforms.h"

#include "tests/harness/child-process.h"
#include "tests/harness/each-locale.h"
#include "tests/support/transform-calls.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using namespace std::string_literals;
using namespace tests;

constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();

class Transforms : public tests::InEachLocale {};

INSTANTIATE_TEST_SUITE_P(Locales, Transforms, tests::each_locale(), tests::locale_label);

void expect_normalised(const std::string &text, const std::string &expected)
{
    EXPECT_EQ(normalised(text), expected) << "string \"" << text << '"';
}

TEST_P(Transforms, NormaliseSpacesKeepsOneOfARunAndTwoAfterAPeriod)
{
    const struct {
        const char *text;
        const char *expected;
    } rows[] = {
        {"", ""},
        {"a", "a"},
        {"a b", "a b"},
        {"a  b", "a b"},
        {"a    b", "a b"},
        // every kind of white space
        {"a\tb\nc\vd\fe\rf", "a b c d e f"},
        {"a \t\r\n b", "a b"},
        // none at the start
        {" ", ""},
        {"   ", ""},
        {"\t\n a", "a"},
        {"  . a", ". a"},
        // after removed bytes
        {"  a\t\tb", "a b"},
        {"   a.   b   c.d  e", "a.  b c.d e"},
        // one at the end
        {"a ", "a "},
        {"a  \n", "a "},
        // after a period
        {"a. b", "a. b"},
        {"a.  b", "a.  b"},
        {"a.   b", "a.  b"},
        {"a.\n\t\n\tb", "a.  b"},
        {"a.  ", "a.  "},
        {"a.   ", "a.  "},
        {".  a", ".  a"},
        {"..  a", "..  a"},
        {"a .  b", "a .  b"},
        {"a!  b?  c,  d", "a! b? c, d"},
        {"a.b  c", "a.b c"},
        {".a  b", ".a b"},
        {"a\xa0\xa0 b\x85", "a\xa0\xa0 b\x85"},
    };
    for (const auto &row : rows)
        expect_normalised(row.text, row.expected);
}

TEST_P(Transforms, NormaliseSpacesChangesTheSixWhiteSpaceBytesOnly)
{
    for (const char c : every_byte()) {
        const std::string byte(1, c);
        const bool space = holds(white_space, c);
        expect_normalised(byte, space ? "" : byte);
        expect_normalised("x" + byte + "y", space ? "x y" : "x" + byte + "y");
        expect_normalised("x" + byte + byte + "y", space ? "x y" : "x" + byte + byte + "y");
        expect_normalised(byte + "  y", c == '.' ? ".  y" : space ? "y" : byte + " y");
    }
}

void expect_insertion(const std::string &insert, const std::string &into, std::int32_t location,
                      const std::string &expected, const std::string &printed)
{
    const Insertion result = inserted(insert, into, location);
    EXPECT_EQ(result.text, expected)
        << '"' << insert << "\" into \"" << into << "\" at " << location;
    EXPECT_EQ(result.printed, printed);
    EXPECT_EQ(result.returned, static_cast<std::int32_t>(printed.size())) << printed;
}

TEST_P(Transforms, InsertionPrintsTheNewStringAndReturnsTheBytesPrinted)
{
    const std::string long_text(5000, 'x');
    const struct {
        std::string insert;
        std::string into;
        std::int32_t location;
        std::string expected;
    } rows[] = {
        {"XY", "abcd", 0, "XYabcd"},
        {"XY", "abcd", 3, "abcXYd"},
        {"", "abcd", 2, "abcd"},
        {"XY", "", 0, "XY"},
        {"", "", 0, ""},
        {"longer than that", "ab", 1, "alonger than thatb"},
        {"%s%n%", "5%d", 1, "5%s%n%%d"},
        {every_byte(), "ab", 1, "a" + every_byte() + "b"},
        {long_text, "ab", 2, "ab" + long_text},
    };
    for (const auto &row : rows)
        expect_insertion(row.insert, row.into, row.location, row.expected,
                         "insert_string_into_string: " + row.expected + " \n");
}

TEST_P(Transforms, InsertionAtABadLocationChangesNothingAndReportsIt)
{
    const struct {
        const char *insert;
        const char *into;
        std::int32_t location;
        std::string printed;
    } rows[] = {
        {"", "abcd", 5, "5, into_string length 4"},
        {"XY", "", 1, "1, into_string length 0"},
        {"XY", "abcd", highest, "2147483647, into_string length 4"},
        {"XY", "abcd", lowest, "-2147483648, into_string length 4"},
    };
    for (const auto &row : rows)
        expect_insertion(row.insert, row.into, row.location, row.into,
                         "insert_string_into_string: bad location " + row.printed + " \n");
}

// Standard output is unbuffered, so that the print itself fails.
int insert_with_broken_output(std::int32_t location, const char *expected)
{
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    char into[16] = "abcd";
    const std::int32_t returned = insert_string_into_string("XY", into, location);
    if (std::strcmp(into, expected) != 0)
        return 2;
    return returned < 0 ? 0 : 1;
}

TEST(InsertStringIntoString, ReturnsANegativeValueIfItCannotPrint)
{
    for (const ChildStream stream : {ChildStream::FullDisk, ChildStream::Closed}) {
        ChildOptions options;
        options.output = stream;
        const ChildResult good =
            run_child_function([] { return insert_with_broken_output(2, "abXYcd"); }, options);
        EXPECT_EQ(good.exit_status, 0);
        const ChildResult bad =
            run_child_function([] { return insert_with_broken_output(5, "abcd"); }, options);
        EXPECT_EQ(bad.exit_status, 0);
    }
}

void expect_replacement(const std::string &find, const std::string &replacement,
                        const std::string &source, const std::string &expected)
{
    SCOPED_TRACE('"' + find + "\" by \"" + replacement + "\" in \"" + source + '"');
    EXPECT_EQ(replaced(find, replacement, source, expected.size() + 1), expected);
    if (replacement.size() <= find.size()) {
        EXPECT_EQ(replaced_in_place(find, replacement, source), expected) << "in place";
    }
}

TEST_P(Transforms, ReplaceAllReplacesFromLeftToRight)
{
    const struct {
        const char *find;
        const char *replacement;
        const char *source;
        const char *expected;
    } rows[] = {
        {"x", "y", "", ""},
        {"x", "y", "abc", "abc"},
        {"b", "X", "abc", "aXc"},
        {"a", "X", "abc", "Xbc"},
        {"c", "X", "abc", "abX"},
        {"abc", "X", "abc", "X"},
        {"abcd", "X", "abc", "abc"},
        {"a", "", "banana", "bnn"},
        {"ana", "", "banana", "bna"},
        {"aaa", "", "aaa", ""},
        {"aa", "cd", "aaaa", "cdcd"},
        {"ab", "x", "aab", "ax"},
        // the replacement is not searched again
        {"aa", "a", "aaaa", "aa"},
        {"ab", "b", "aab", "ab"},
        {"/", "//", "a/b//c", "a//b////c"},
        // non-ASCII bytes
        {"\xe4", "ae", "\xe4\xc4", "ae\xc4"},
        // an empty search string
        {"", "", "abc", "abc"},
        {"", "X", "", ""},
    };
    for (const auto &row : rows)
        expect_replacement(row.find, row.replacement, row.source, row.expected);
}

TEST_P(Transforms, ReplaceAllFindsEveryByteAmongAllOthers)
{
    for (const char c : every_byte()) {
        const std::size_t position = static_cast<unsigned char>(c) - std::size_t{1};
        for (const std::string &replacement : {""s, "!"s, "<->"s}) {
            std::string expected = every_byte();
            expected.replace(position, 1, replacement);
            expect_replacement(std::string(1, c), replacement, every_byte(), expected);
        }
    }
}

} // namespace
} // namespace quintral
