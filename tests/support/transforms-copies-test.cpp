// The copying transforms: a table for each, and every byte value through each. The examples of
// docs/strings-dates-clocks.md are in docs-test.
#include "support/c-utils/transforms.h"

#include "tests/harness/each-locale.h"
#include "tests/support/transform-calls.h"

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using namespace std::string_literals;
using namespace tests;

class Transforms : public tests::InEachLocale {};

INSTANTIATE_TEST_SUITE_P(Locales, Transforms, tests::each_locale(), tests::locale_label);

const std::string digits = "0123456789";

struct CopyRow {
    std::string source;
    std::string expected;
};

void expect_copy(Copy copy, const CopyRow &row, std::size_t growth = 1)
{
    EXPECT_EQ(copied(copy, row.source, growth), row.expected) << "source \"" << row.source << '"';
}

// A copy that can grow cannot work in place.
void expect_copies(Copy copy, const std::vector<CopyRow> &rows, std::size_t growth = 1)
{
    for (const CopyRow &row : rows) {
        expect_copy(copy, row, growth);
        if (growth == 1) {
            EXPECT_EQ(copied_in_place(copy, row.source), row.expected)
                << "in place, source \"" << row.source << '"';
        }
    }
}

TEST_P(Transforms, CopyLowerCaseMapsAsciiLettersOnlyAndReturns0)
{
    const std::vector<CopyRow> rows = {
        {"", ""},
        {"a", "a"},
        {"A", "a"},
        {"Hello World 5!", "hello world 5!"},
        {"@AZ[`az{", "@az[`az{"},
        {"\xc4\xd6\xdc\xe4", "\xc4\xd6\xdc\xe4"},
        {"\xc3\x84", "\xc3\x84"},
    };
    expect_copies(copy_lower_case_returning_0, rows);
}

TEST_P(Transforms, CopyUpperCaseMapsAsciiLettersOnly)
{
    const std::vector<CopyRow> rows = {
        {"", ""},
        {"a", "A"},
        {"A", "A"},
        {"Hello World 5!", "HELLO WORLD 5!"},
        {"@AZ[`az{", "@AZ[`AZ{"},
        {"stra\337e\xe4\xff", "STRA\337E\xe4\xff"},
        {"\xc3\xa4", "\xc3\xa4"},
    };
    expect_copies(copy_upper_case, rows);
}

TEST_P(Transforms, CopyWithoutSpacesAndUnderscoresDropsThoseTwo)
{
    const std::vector<CopyRow> rows = {
        {"", ""},
        {" ", ""},
        {"_", ""},
        {" _ _", ""},
        {"my layer_name", "mylayername"},
        {"_a__b  c ", "abc"},
        {"a\tb\nc-d\xa0", "a\tb\nc-d\xa0"},
    };
    expect_copies(copy_without_spaces_and_underscores, rows);
}

TEST_P(Transforms, CopyWithoutFullStopsDropsThem)
{
    const std::vector<CopyRow> rows = {
        {"", ""},
        {".", ""},
        {"...", ""},
        {".a.b.", "ab"},
        // other punctuation
        {"a,b:c;d", "a,b:c;d"},
    };
    expect_copies(copy_without_full_stops, rows);
}

TEST_P(Transforms, CopyWithoutSpacesDropsSpacesOnly)
{
    const std::vector<CopyRow> rows = {
        {"", ""},
        {"   ", ""},
        {" a b  c ", "abc"},
        {"a_b\tc\nd\re\vf\fg\xa0", "a_b\tc\nd\re\vf\fg\xa0"},
    };
    expect_copies(copy_without_spaces, rows);
}

TEST_P(Transforms, LineBreaksToSpacesReplacesEachByteOfABreak)
{
    const std::vector<CopyRow> rows = {
        {"", ""},
        {"\n", " "},
        {"\r", " "},
        {"a\nb\rc", "a b c"},
        {"a\r\nb", "a  b"},
        {"\n\na\n", "  a "},
        {"a\tb\vc\f", "a\tb\vc\f"},
    };
    expect_copies(line_breaks_to_spaces, rows);
}

TEST_P(Transforms, CollapseSpacesKeepsOneOfARunAndNoneAtTheStart)
{
    const std::vector<CopyRow> rows = {
        {"", ""},
        {" ", ""},
        {"    ", ""},
        {"a", "a"},
        {" a", "a"},
        {"   a", "a"},
        {"a b", "a b"},
        {"a  b", "a b"},
        {"a     b", "a b"},
        {"a ", "a "},
        {"  a  b  ", "a b "},
        {"a.  b", "a. b"},
        {"a \t b", "a \t b"},
        {"a\t\tb\n\n", "a\t\tb\n\n"},
        {"\t a", "\t a"},
    };
    expect_copies(collapse_spaces, rows);
}

TEST_P(Transforms, UnderscoresToSpacesReplacesEach)
{
    const std::vector<CopyRow> rows = {
        {"", ""},
        {"_", " "},
        {"__a_b c-d__", "  a b c-d  "},
    };
    expect_copies(underscores_to_spaces, rows);
}

TEST_P(Transforms, SpacesToUnderscoresReplacesSpacesOnly)
{
    const std::vector<CopyRow> rows = {
        {"", ""},
        {" ", "_"},
        {"  a b_c\td\n", "__a_b_c\td\n"},
    };
    expect_copies(spaces_to_underscores, rows);
}

TEST_P(Transforms, DoublePercentsWritesEachTwice)
{
    const std::vector<CopyRow> rows = {
        {"", ""},
        {"a", "a"},
        {"%", "%%"},
        {"%%", "%%%%"},
    };
    expect_copies(double_percents, rows, 2);
}

TEST_P(Transforms, DoubledPercentsPrintAsTheSource)
{
    const std::string source = "100% of %s, %n %5.2f%%";
    char format[64], printed[64];
    double_percents(source.c_str(), format);
    // The volatile pointer avoids the compiler's warning about a format that is not a literal.
    int (*volatile print)(char *, std::size_t, const char *, ...) = std::snprintf;
    EXPECT_EQ(print(printed, sizeof printed, format), static_cast<int>(source.size()));
    EXPECT_EQ(printed, source);
}

TEST_P(Transforms, SnakeToCamelCapitalisesTheFirstByteAndEachAfterUnderscores)
{
    const std::vector<CopyRow> rows = {
        {"", ""},
        {"_", ""},
        {"___", ""},
        {"a", "A"},
        {"foo", "Foo"},
        {"foo_bar", "FooBar"},
        {"__x_", "X"},
        {"fooBar_baz", "FooBarBaz"},
        {"FOO_BAR", "FOOBAR"},
        {"layer_2_name", "Layer2Name"},
        {"a b_c", "A bC"},
        {"_\xe4_\xe4", "\xe4\xe4"},
    };
    expect_copies(snake_to_camel, rows);
}

TEST_P(Transforms, CopyIdentifierCharsKeepsLettersDigitsAndUnderscores)
{
    const std::vector<CopyRow> rows = {
        {"", ""},
        {"-", ""},
        {"2nd", "2nd"},
        // the neighbours of each range, and non-ASCII bytes
        {"@AZ[`az{/09:^_", "AZaz09_"},
        {"\344b\xb2\xaa", "b"},
    };
    expect_copies(copy_identifier_chars, rows);
}

TEST_P(Transforms, CutAtWordBreakKeepsTheFirstByteWhateverItIs)
{
    const std::vector<CopyRow> rows = {
        {"", ""},
        {"a", "a"},
        {"my name", "my"},
        {"Foo", "Foo"},
        {"FooBar", "Foo"},
        {"_foo_bar", "_foo"},
        {" foo bar", " foo"},
        {"__foo", "_"},
        {"  foo", " "},
        {"foo\tbar-baz.2", "foo\tbar-baz.2"},
        {"foo\304bar", "foo\304bar"},
    };
    expect_copies(cut_at_word_break, rows);
}

using Rule = std::function<std::string(char)>;

Rule keeps(const std::string &bytes)
{
    return [bytes](char c) { return holds(bytes, c) ? std::string(1, c) : ""; };
}

Rule drops(const std::string &bytes)
{
    return [bytes](char c) { return holds(bytes, c) ? "" : std::string(1, c); };
}

Rule maps(const std::string &from, const std::string &to)
{
    return [from, to](char c) { return std::string(1, mapped(c, from, to)); };
}

std::string doubled_percent(char c)
{
    return c == '%' ? "%%" : std::string(1, c);
}

std::string escaped(char c)
{
    if (holds(uppers + lowers + digits + "$-_.+!*(),", c))
        return std::string(1, c);
    const std::string high = "01234567.+!*(),\0"s;
    const std::string low = "0123456789ABCDEF";
    const std::size_t byte = static_cast<unsigned char>(c);
    return {'%', high[byte / 16], low[byte % 16]};
}

// The copies that treat each byte independently of its neighbours.
const struct {
    const char *name;
    Copy copy;
    Rule rule;
    std::size_t growth = 1;
} byte_rules[] = {
    {"copy_lower_case", copy_lower_case_returning_0, maps(uppers, lowers)},
    {"copy_upper_case", copy_upper_case, maps(lowers, uppers)},
    {"copy_without_spaces_and_underscores", copy_without_spaces_and_underscores, drops(" _")},
    {"copy_without_full_stops", copy_without_full_stops, drops(".")},
    {"copy_without_spaces", copy_without_spaces, drops(" ")},
    {"line_breaks_to_spaces", line_breaks_to_spaces, maps("\n\r", "  ")},
    {"underscores_to_spaces", underscores_to_spaces, maps("_", " ")},
    {"spaces_to_underscores", spaces_to_underscores, maps(" ", "_")},
    {"copy_identifier_chars", copy_identifier_chars, keeps(uppers + lowers + digits + "_")},
    {"double_percents", double_percents, doubled_percent, 2},
    {"url_escape", url_escape, escaped, 3},
};

TEST_P(Transforms, EachByteAloneFollowsTheRuleOfTheCopy)
{
    for (const auto &[name, copy, rule, growth] : byte_rules) {
        SCOPED_TRACE(name);
        for (const char c : every_byte())
            expect_copy(copy, {std::string(1, c), rule(c)}, growth);
    }
}

TEST_P(Transforms, EachByteFollowsTheSameRuleAmongAllOthers)
{
    for (const auto &[name, copy, rule, growth] : byte_rules) {
        SCOPED_TRACE(name);
        std::string expected;
        for (const char c : every_byte())
            expected += rule(c);
        expect_copy(copy, {every_byte(), expected}, growth);
    }
}

TEST_P(Transforms, CollapseSpacesKeepsEveryByteExceptRepeatedSpaces)
{
    for (const char c : every_byte()) {
        const std::string byte(1, c);
        expect_copy(collapse_spaces, {byte, c == ' ' ? "" : byte});
        expect_copy(collapse_spaces, {"x" + byte + "y", "x" + byte + "y"});
        expect_copy(collapse_spaces,
                    {"x" + byte + byte + "y", c == ' ' ? "x y" : "x" + byte + byte + "y"});
        expect_copy(collapse_spaces, {"x " + byte + "y", c == ' ' ? "x y" : "x " + byte + "y"});
    }
}

TEST_P(Transforms, SnakeToCamelCapitalisesEveryAsciiLetterAndKeepsEveryOtherByte)
{
    for (const char c : every_byte()) {
        const std::string byte(1, c);
        const std::string upper(1, to_upper(c));
        expect_copy(snake_to_camel, {byte + "y", c == '_' ? "Y" : upper + "y"});
        expect_copy(snake_to_camel, {"x_" + byte + "y", c == '_' ? "XY" : "X" + upper + "y"});
        expect_copy(snake_to_camel, {"x" + byte + "y", c == '_' ? "XY" : "X" + byte + "y"});
    }
}

TEST_P(Transforms, CutAtWordBreakCutsAtUnderscoresSpacesAndCapitalsOnly)
{
    for (const char c : every_byte()) {
        const std::string byte(1, c);
        const bool cuts = holds("_ " + uppers, c);
        expect_copy(cut_at_word_break, {byte, byte});
        expect_copy(cut_at_word_break, {byte + "y", byte + "y"});
        expect_copy(cut_at_word_break, {"x" + byte + "y", cuts ? "x" : "x" + byte + "y"});
        expect_copy(cut_at_word_break, {"xy" + byte, cuts ? "xy" : "xy" + byte});
    }
}

TEST_P(Transforms, UrlEscapeWritesTwoDigitsAndReplacesTheFirstForHighBytes)
{
    const std::vector<CopyRow> rows = {
        {"", ""},
        {"AZaz09", "AZaz09"},
        {"~&=?#%", "%7E%26%3D%3F%23%25"},
        {"\n\x01\x7f", "%0A%01%7F"},
        {"\x80", "%.0"},
        {"\x9a", "%+A"},
        {"\xab", "%!B"},
        {"\xbc", "%*C"},
        {"\xcd", "%(D"},
        {"\xde", "%)E"},
        {"\xf3", "%\0003"s},
        {"a\xf3z", "a%\0003z"s},
        {"\xff\xff\xff", "%\0F%\0F%\0F"s},
    };
    expect_copies(url_escape, rows, 3);
}

TEST_P(Transforms, CopyLengthPrefixedCopiesTheLengthByteAndThatManyBytes)
{
    for (int length = 0; length < 256; ++length) {
        std::string source(1, byte_char(length));
        for (int i = 1; i <= length; ++i)
            source += byte_char(i * 7); // all values, including NUL
        const std::vector<char> exact(source.begin(), source.end());
        const std::string result = written(room_for(source.size()), [&](char *destination) {
            EXPECT_EQ(static_cast<void *>(copy_length_prefixed(destination, exact.data())),
                      static_cast<void *>(destination));
        });
        EXPECT_EQ(result, source) << "length " << length;
        const std::string in_place =
            written(source, [](char *text) { copy_length_prefixed(text, text); });
        EXPECT_EQ(in_place, source) << "in place, length " << length;
    }
}

TEST_P(Transforms, CopyLengthPrefixedWritesNoTerminatorAndNothingElse)
{
    const std::string result = written(
        room_for(8), [](char *destination) { copy_length_prefixed(destination, "\3abcdef"); });
    EXPECT_EQ(result, "\3abc####");
}

} // namespace
} // namespace quintral
