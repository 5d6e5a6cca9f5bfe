// String transforms but for number reading: a table for each routine, the whole domain of bytes
// through each, destinations of exactly the room that the header asks for; under "C" and under
// locales whose letters reach above 0x7F.
#include "support/c-utils/transforms.h"

#include "tests/harness/captured-output.h"
#include "tests/harness/child-process.h"
#include "tests/harness/each-locale.h"
#include "tests/harness/exact-buffer.h"

#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using tests::captured_output;
using tests::ChildOptions;
using tests::ChildResult;
using tests::ChildStream;
using tests::exact_copy;
using tests::room_for;
using tests::with_terminator;
using tests::written;

using namespace std::string_literals;

const std::string digits = "0123456789";
const std::string uppers = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
const std::string lowers = "abcdefghijklmnopqrstuvwxyz";
const std::string spaces = " \t\n\v\f\r";

constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();

class Transforms : public tests::InEachLocale {};

INSTANTIATE_TEST_SUITE_P(Locales, Transforms, tests::each_locale(), tests::locale_label);

bool holds(const std::string &set, char c)
{
    return set.find(c) != std::string::npos;
}

// The byte at the same place in `to` as the given one in `from`; one that is not there as it is.
char mapped(char c, const std::string &from, const std::string &to)
{
    const std::size_t place = from.find(c);
    return place == std::string::npos ? c : to[place];
}

char to_upper(char c)
{
    return mapped(c, lowers, uppers);
}

char byte_char(int byte)
{
    return static_cast<char>(byte);
}

// Every byte that a text can hold, in order.
std::string every_byte()
{
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte)
        bytes += byte_char(byte);
    return bytes;
}

// Copies

using Copy = char *(*)(const char *source, char *destination);

enum class Place { Any, Apart };

struct CopyRow {
    std::string source;
    std::string expected;
};

// The bytes of the destination behind the terminator stay as they were. `growth` is how many bytes
// one byte of the source may become.
void expect_copy(Copy copy, const CopyRow &row, std::size_t growth = 1)
{
    const std::vector<char> source = exact_copy(row.source);
    const std::string before = room_for(growth * row.source.size() + 1);
    const std::string result = written(before, [&](char *destination) {
        EXPECT_EQ(static_cast<void *>(copy(source.data(), destination)),
                  static_cast<void *>(destination))
            << "the result is the destination";
    });
    const std::string expected = with_terminator(row.expected);
    EXPECT_EQ(result, room_for(before.size(), expected)) << "source \"" << row.source << '"';
}

void expect_copy_in_place(Copy copy, const CopyRow &row)
{
    const std::string result =
        written(with_terminator(row.source), [&](char *text) { copy(text, text); });
    EXPECT_EQ(result.substr(0, row.expected.size() + 1), with_terminator(row.expected))
        << "in place, source \"" << row.source << '"';
}

void expect_copies(Copy copy, const std::vector<CopyRow> &rows, Place place = Place::Any,
                   std::size_t growth = 1)
{
    for (const CopyRow &row : rows) {
        expect_copy(copy, row, growth);
        if (place == Place::Any)
            expect_copy_in_place(copy, row);
    }
}

char *copy_lower_case_returning_0(const char *source, char *destination)
{
    EXPECT_EQ(copy_lower_case(source, destination), 0);
    return destination;
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
        {"v5.1.2", "v512"},
        {".a.b.", "ab"},
        // marks that look much the same
        {"a,b:c;d", "a,b:c;d"},
    };
    expect_copies(copy_without_full_stops, rows);
}

TEST_P(Transforms, CopyWithoutSpacesDropsBlanksOnly)
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
        {"a   ", "a "},
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

TEST_P(Transforms, SpacesToUnderscoresReplacesBlanksOnly)
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
        // one that is doubled already is doubled again
        {"%%", "%%%%"},
        {"100% of %s", "100%% of %%s"},
    };
    expect_copies(double_percents, rows, Place::Apart, 2);
}

TEST_P(Transforms, DoubledPercentsPrintAsTheSource)
{
    const std::string source = "100% of %s, %n %5.2f%%";
    char format[64], printed[64];
    double_percents(source.c_str(), format);
    // A volatile pointer, since the compiler is right to distrust a format that it can't see.
    int (*volatile print)(char *, std::size_t, const char *, ...) = std::snprintf;
    EXPECT_EQ(print(printed, sizeof printed, format), static_cast<int>(source.size()));
    EXPECT_EQ(printed, source);
}

TEST_P(Transforms, SnakeToCamelRaisesTheFirstByteAndEachBehindUnderscores)
{
    const std::vector<CopyRow> rows = {
        {"", ""},
        {"_", ""},
        {"___", ""},
        {"a", "A"},
        {"foo", "Foo"},
        {"foo_bar", "FooBar"},
        {"foo__bar_", "FooBar"},
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
        {"my layer #2_b", "mylayer2_b"},
        {"2nd", "2nd"},
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
        {"fooBar", "foo"},
        {"my_name", "my"},
        {"my name", "my"},
        {"ABC", "A"},
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

// The rules that look at one byte alone: what it becomes.
struct ByteRule {
    const char *name;
    Copy copy;
    std::size_t growth;
    std::string (*expected)(char c);
};

std::string unless_in(const std::string &dropped, char c)
{
    return holds(dropped, c) ? "" : std::string(1, c);
}

std::string address_form(char c)
{
    if (holds(uppers + lowers + digits + "$-_.+!*(),", c))
        return std::string(1, c);
    const std::string high = "01234567.+!*(),\0"s;
    const std::string low = "0123456789ABCDEF";
    const std::size_t byte = static_cast<unsigned char>(c);
    return {'%', high[byte / 16], low[byte % 16]};
}

const ByteRule byte_rules[] = {
    {"copy_lower_case", copy_lower_case_returning_0, 1,
     [](char c) { return std::string(1, mapped(c, uppers, lowers)); }},
    {"copy_upper_case", copy_upper_case, 1,
     [](char c) { return std::string(1, mapped(c, lowers, uppers)); }},
    {"copy_without_spaces_and_underscores", copy_without_spaces_and_underscores, 1,
     [](char c) { return unless_in(" _", c); }},
    {"copy_without_full_stops", copy_without_full_stops, 1,
     [](char c) { return unless_in(".", c); }},
    {"copy_without_spaces", copy_without_spaces, 1, [](char c) { return unless_in(" ", c); }},
    {"line_breaks_to_spaces", line_breaks_to_spaces, 1,
     [](char c) { return std::string(1, mapped(c, "\n\r", "  ")); }},
    {"underscores_to_spaces", underscores_to_spaces, 1,
     [](char c) { return std::string(1, mapped(c, "_", " ")); }},
    {"spaces_to_underscores", spaces_to_underscores, 1,
     [](char c) { return std::string(1, mapped(c, " ", "_")); }},
    {"double_percents", double_percents, 2,
     [](char c) { return c == '%' ? "%%" : std::string(1, c); }},
    {"copy_identifier_chars", copy_identifier_chars, 1,
     [](char c) { return holds(uppers + lowers + digits + "_", c) ? std::string(1, c) : ""; }},
    {"url_escape", url_escape, 3, address_form},
};

TEST_P(Transforms, EachByteAloneBecomesWhatTheCopysRuleSays)
{
    for (const ByteRule &rule : byte_rules) {
        SCOPED_TRACE(rule.name);
        for (const char c : every_byte())
            expect_copy(rule.copy, {std::string(1, c), rule.expected(c)}, rule.growth);
    }
}

TEST_P(Transforms, EachByteBecomesTheSameAmongAllOthers)
{
    for (const ByteRule &rule : byte_rules) {
        SCOPED_TRACE(rule.name);
        std::string expected;
        for (const char c : every_byte())
            expected += rule.expected(c);
        expect_copy(rule.copy, {every_byte(), expected}, rule.growth);
    }
}

TEST_P(Transforms, CollapseSpacesKeepsEveryByteButSecondBlanks)
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

TEST_P(Transforms, SnakeToCamelRaisesEveryAsciiLetterAndKeepsEveryOtherByte)
{
    for (const char c : every_byte()) {
        const std::string byte(1, c);
        const std::string raised(1, to_upper(c));
        expect_copy(snake_to_camel, {byte + "y", c == '_' ? "Y" : raised + "y"});
        expect_copy(snake_to_camel, {"x_" + byte + "y", c == '_' ? "XY" : "X" + raised + "y"});
        expect_copy(snake_to_camel, {"x" + byte + "y", c == '_' ? "XY" : "X" + byte + "y"});
    }
}

TEST_P(Transforms, CutAtWordBreakCutsAtEachOfItsBytesAndNoOther)
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

TEST_P(Transforms, UrlEscapeWritesTwoDigitsOrTheOldTableOfHighBytes)
{
    const std::vector<CopyRow> rows = {
        {"", ""},
        {"a b/c", "a%20b%2Fc"},
        {"$-_.+!*(),", "$-_.+!*(),"},
        {"AZaz09", "AZaz09"},
        {"~&=?#%", "%7E%26%3D%3F%23%25"},
        {"\n\x01\x7f", "%0A%01%7F"},
        {"\x80", "%.0"},
        {"\x9a", "%+A"},
        {"\xab", "%!B"},
        {"\xbc", "%*C"},
        {"\xcd", "%(D"},
        {"\xde", "%)E"},
        {"\xe9", "%,9"},
        {"\xf3", "%\0003"s},
        {"a\xf3z", "a%\0003z"s},
        {"\xff\xff\xff", "%\0F%\0F%\0F"s},
    };
    expect_copies(url_escape, rows, Place::Apart, 3);
}

TEST_P(Transforms, CopyLengthPrefixedCopiesItsLengthByteAndAsManyAsItSays)
{
    for (int length = 0; length < 256; ++length) {
        std::string source(1, byte_char(length));
        for (int i = 1; i <= length; ++i)
            source += byte_char(i * 7); // all values, NUL too
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

TEST_P(Transforms, CopyLengthPrefixedWritesNoTerminatorAndNothingBehindIt)
{
    const std::string result = written(
        room_for(8), [](char *destination) { copy_length_prefixed(destination, "\3abcdef"); });
    EXPECT_EQ(result, "\3abc####");
}

// Changes in place and by parts

void expect_normalised(const std::string &text, const std::string &expected)
{
    const std::string result = written(with_terminator(text), normalise_spaces);
    EXPECT_EQ(result.substr(0, expected.size() + 1), with_terminator(expected))
        << "text \"" << text << '"';
}

TEST_P(Transforms, NormaliseSpacesKeepsOneOfARunAndTwoBehindAFullStop)
{
    const CopyRow rows[] = {
        {"", ""},
        {"a", "a"},
        {"a b", "a b"},
        {"a  b", "a b"},
        {"a    b", "a b"},
        // every kind of white space is a blank
        {"a\tb\nc\vd\fe\rf", "a b c d e f"},
        {"a \t\r\n b", "a b"},
        // none at the start
        {" ", ""},
        {"   ", ""},
        {"\t\n a", "a"},
        {"  . a", ". a"},
        // what was dropped before does not shift what counts as the previous byte
        {"  a\t\tb", "a b"},
        {"   a.   b   c.d  e", "a.  b c.d e"},
        // one at the end
        {"a ", "a "},
        {"a  \n", "a "},
        // behind a full stop
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
    for (const CopyRow &row : rows)
        expect_normalised(row.source, row.expected);
}

TEST_P(Transforms, NormaliseSpacesChangesTheSixSpacesAndNoOtherByte)
{
    for (const char c : every_byte()) {
        const std::string byte(1, c);
        const bool space = holds(spaces, c);
        expect_normalised(byte, space ? "" : byte);
        expect_normalised("x" + byte + "y", space ? "x y" : "x" + byte + "y");
        expect_normalised("x" + byte + byte + "y", space ? "x y" : "x" + byte + byte + "y");
        expect_normalised(byte + "  y", c == '.' ? ".  y" : space ? "y" : byte + " y");
    }
}

struct InsertRow {
    std::string insert;
    std::string into;
    std::int32_t location;
    std::string expected;
    std::string printed;
};

void expect_insertion(const InsertRow &row)
{
    const std::vector<char> insert = exact_copy(row.insert);
    const std::size_t room = row.into.size() + row.insert.size() + 1;
    std::string printed;
    std::int32_t returned = 0;
    const std::string result = written(room_for(room, with_terminator(row.into)), [&](char *into) {
        printed = captured_output(
            [&] { returned = insert_string_into_string(insert.data(), into, row.location); });
    });
    EXPECT_EQ(result, room_for(room, with_terminator(row.expected)))
        << '"' << row.insert << "\" into \"" << row.into << "\" at " << row.location;
    EXPECT_EQ(printed, row.printed);
    EXPECT_EQ(returned, static_cast<std::int32_t>(row.printed.size())) << row.printed;
}

TEST_P(Transforms, InsertionPrintsTheNewTextAndReturnsTheBytesPrinted)
{
    const std::string begin = "insert_string_into_string: ";
    const InsertRow rows[] = {
        {"XY", "abcd", 2, "abXYcd", begin + "abXYcd \n"},
        {"XY", "abcd", 0, "XYabcd", begin + "XYabcd \n"},
        {"XY", "abcd", 4, "abcdXY", begin + "abcdXY \n"},
        {"XY", "abcd", 3, "abcXYd", begin + "abcXYd \n"},
        {"", "abcd", 2, "abcd", begin + "abcd \n"},
        {"XY", "", 0, "XY", begin + "XY \n"},
        {"", "", 0, "", begin + " \n"},
        {"longer than that", "ab", 1, "alonger than thatb", begin + "alonger than thatb \n"},
        {"%s%n%", "5%d", 1, "5%s%n%%d", begin + "5%s%n%%d \n"},
        {every_byte(), "ab", 1, "a" + every_byte() + "b", begin + "a" + every_byte() + "b \n"},
        {std::string(5000, 'x'), "ab", 2, "ab" + std::string(5000, 'x'),
         begin + "ab" + std::string(5000, 'x') + " \n"},
    };
    for (const InsertRow &row : rows)
        expect_insertion(row);
}

TEST_P(Transforms, InsertionAtABadLocationChangesNothingAndSaysSo)
{
    const std::string begin = "insert_string_into_string: bad location ";
    const InsertRow rows[] = {
        {"XY", "abcd", 5, "abcd", begin + "5, into_string length 4 \n"},
        {"XY", "abcd", -1, "abcd", begin + "-1, into_string length 4 \n"},
        {"", "abcd", 5, "abcd", begin + "5, into_string length 4 \n"},
        {"XY", "", 1, "", begin + "1, into_string length 0 \n"},
        {"XY", "abcd", highest, "abcd", begin + "2147483647, into_string length 4 \n"},
        {"XY", "abcd", lowest, "abcd", begin + "-2147483648, into_string length 4 \n"},
    };
    for (const InsertRow &row : rows)
        expect_insertion(row);
}

// With standard output unbuffered, so that the print itself meets the failure.
int insert_with_broken_output(std::int32_t location, const char *expected)
{
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    char into[16] = "abcd";
    const std::int32_t returned = insert_string_into_string("XY", into, location);
    if (std::strcmp(into, expected) != 0)
        return 2;
    return returned < 0 ? 0 : 1;
}

TEST(InsertStringIntoString, ReturnsANegativeValueWhereItCannotPrint)
{
    for (const ChildStream stream : {ChildStream::FullDisk, ChildStream::Closed}) {
        ChildOptions options;
        options.output = stream;
        const ChildResult inserted = tests::run_child_function(
            [] { return insert_with_broken_output(2, "abXYcd"); }, options);
        EXPECT_EQ(inserted.exit_status, 0);
        const ChildResult refused =
            tests::run_child_function([] { return insert_with_broken_output(5, "abcd"); }, options);
        EXPECT_EQ(refused.exit_status, 0);
    }
}

struct ReplaceRow {
    std::string find;
    std::string replacement;
    std::string source;
    std::string expected;
};

void expect_replacement(const ReplaceRow &row)
{
    const std::vector<char> find = exact_copy(row.find);
    const std::vector<char> replacement = exact_copy(row.replacement);
    const std::vector<char> source = exact_copy(row.source);
    const std::string expected = with_terminator(row.expected);
    const std::string result = written(room_for(expected.size()), [&](char *destination) {
        replace_all(find.data(), replacement.data(), source.data(), destination);
    });
    EXPECT_EQ(result, expected) << '"' << row.find << "\" by \"" << row.replacement << "\" in \""
                                << row.source << '"';
    if (row.replacement.size() > row.find.size())
        return;
    const std::string in_place = written(with_terminator(row.source), [&](char *text) {
        replace_all(find.data(), replacement.data(), text, text);
    });
    EXPECT_EQ(in_place.substr(0, expected.size()), expected)
        << "in place, \"" << row.find << "\" by \"" << row.replacement << "\" in \"" << row.source
        << '"';
}

TEST_P(Transforms, ReplaceAllReplacesFromLeftToRight)
{
    const ReplaceRow rows[] = {
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
        {"a", "XYZ", "banana", "bXYZnXYZnXYZ"},
        {"aa", "b", "aaaaa", "bba"},
        {"aa", "cd", "aaaa", "cdcd"},
        {"ab", "x", "aab", "ax"},
        // what was put in is not looked at
        {"a", "aa", "aba", "aabaa"},
        {"aa", "a", "aaaa", "aa"},
        {"ab", "b", "aab", "ab"},
        {"/", "//", "a/b//c", "a//b////c"},
        // case and locale play no part
        {"B", "X", "abc", "abc"},
        {"\xe4", "ae", "\xe4\xc4", "ae\xc4"},
        // an empty text to find is nowhere
        {"", "X", "abc", "abc"},
        {"", "", "abc", "abc"},
        {"", "X", "", ""},
    };
    for (const ReplaceRow &row : rows)
        expect_replacement(row);
}

TEST_P(Transforms, ReplaceAllFindsEveryByteAmongAllOthers)
{
    for (const char c : every_byte()) {
        const std::size_t place = static_cast<unsigned char>(c) - std::size_t{1};
        for (const std::string &replacement : {""s, "!"s, "<->"s}) {
            std::string expected = every_byte();
            expected.replace(place, 1, replacement);
            expect_replacement({std::string(1, c), replacement, every_byte(), expected});
        }
    }
}

// Words

struct WordRow {
    std::string text;
    std::int32_t n;
    std::int32_t offset;
    std::string word;
};

void expect_word(const WordRow &row)
{
    const std::vector<char> text = exact_copy(row.text);
    const std::string expected = with_terminator(row.word);
    const std::string result = written(room_for(expected.size()), [&](char *destination) {
        EXPECT_EQ(nth_word(text.data(), row.n, destination), row.offset)
            << "word " << row.n << " of \"" << row.text << '"';
    });
    EXPECT_EQ(result, expected) << "word " << row.n << " of \"" << row.text << '"';
    const std::string in_place = written(with_terminator(row.text), [&](char *destination) {
        EXPECT_EQ(nth_word(destination, row.n, destination), row.offset)
            << "in place, word " << row.n << " of \"" << row.text << '"';
    });
    EXPECT_EQ(in_place.substr(0, expected.size()), expected)
        << "in place, word " << row.n << " of \"" << row.text << '"';
}

TEST_P(Transforms, NthWordCountsFrom0AndTellsTheWordsOffset)
{
    const WordRow rows[] = {
        {"  one\\two three", 0, 2, "one"},
        {"  one\\two three", 1, 6, "two"},
        {"  one\\two three", 2, 10, "three"},
        {"  one\\two three", 3, -1, ""},
        {"  one\\two three", highest, -1, ""},
        // below 0 counts as 0
        {"  one\\two three", -1, 2, "one"},
        {"  one\\two three", lowest, 2, "one"},
        // runs of separators, at the ends too
        {" \t\n\\one\\\n\t two\\ ", 0, 4, "one"},
        {" \t\n\\one\\\n\t two\\ ", 1, 11, "two"},
        {" \t\n\\one\\\n\t two\\ ", 2, -1, ""},
        // no words
        {"", 0, -1, ""},
        {"", -1, -1, ""},
        {" \t\n\\", 0, -1, ""},
        // one word
        {"a", 0, 0, "a"},
        {"a", 1, -1, ""},
        {"a ", 1, -1, ""},
        // other white space is no separator
        {"one\rtwo\vthree\ffour five", 0, 0, "one\rtwo\vthree\ffour"},
        {"one\rtwo\vthree\ffour five", 1, 19, "five"},
        {"one\xa0two three", 1, 8, "three"},
        {"C:\\Program Files\\x.txt", 3, 17, "x.txt"},
    };
    for (const WordRow &row : rows)
        expect_word(row);
}

TEST_P(Transforms, NthWordSeparatesAtFourBytesAndNoOther)
{
    for (const char c : every_byte()) {
        const std::string byte(1, c);
        const bool separates = holds(" \t\n\\", c);
        const std::string text = "ab" + byte + "cd";
        expect_word({text, 0, 0, separates ? "ab" : text});
        expect_word({text, 1, separates ? 3 : -1, separates ? "cd" : ""});
        expect_word({byte, 0, separates ? -1 : 0, separates ? "" : byte});
    }
}

TEST_P(Transforms, NthWordTakesTextsOf2047Bytes)
{
    expect_word({std::string(2047, 'x'), 0, 0, std::string(2047, 'x')});
    expect_word({std::string(2046, ' ') + "x", 0, 2046, "x"});
    expect_word({std::string(2047, ' '), 0, -1, ""});
}

TEST(NthWord, EndsTheProgramForTextsOf2048BytesAndMore)
{
    const std::string texts[] = {
        std::string(2048, 'x'),
        std::string(2048, ' '),
        "one " + std::string(2044, 'x'),
        std::string(100000, 'x'),
    };
    for (const std::string &text : texts) {
        const ChildResult result = tests::run_child_function([&] {
            std::vector<char> destination(text.size() + 1);
            nth_word(text.c_str(), 0, destination.data());
            return 0;
        });
        EXPECT_EQ(result.signal, SIGABRT) << text.size() << " bytes";
        EXPECT_EQ(result.exit_status, -1) << text.size() << " bytes";
    }
}

struct LengthRow {
    const char *text;
    std::size_t length;
};

TEST_P(Transforms, WordLengthIsUpToWhiteSpaceOrTheEnd)
{
    const LengthRow rows[] = {
        {"", 0},
        {"a", 1},
        {"abc", 3},
        // white space of each kind
        {"abc def", 3},
        {"abc\t", 3},
        {"a\nb", 1},
        {"a\v", 1},
        {"ab\fcd", 2},
        {"abc\rd", 3},
        // at the start
        {" abc", 0},
        {"\n", 0},
        // other bytes are of the word
        {"\xa0\x85\xe4 \xe4", 3},
        {"a\\b_c-d e", 7},
    };
    for (const LengthRow &row : rows)
        EXPECT_EQ(word_length(exact_copy(row.text).data()), row.length)
            << "text \"" << row.text << '"';
}

TEST_P(Transforms, WordLengthEndsAtTheSixSpacesAndNoOtherByte)
{
    for (const char c : every_byte()) {
        const std::string text = "ab"s + c + "cd";
        EXPECT_EQ(word_length(exact_copy(text).data()), holds(spaces, c) ? 2u : 5u)
            << "byte " << int{static_cast<unsigned char>(c)};
    }
}

constexpr int nowhere = -1;

struct FindRow {
    std::string text;
    std::string pattern;
    int offset; // or nowhere
};

void expect_find(const FindRow &row)
{
    const std::vector<char> text = exact_copy(row.text);
    const std::vector<char> pattern = exact_copy(row.pattern);
    const char *found = find_ignoring_case(text.data(), pattern.data());
    const int offset = found == nullptr ? nowhere : static_cast<int>(found - text.data());
    EXPECT_EQ(offset, row.offset) << '"' << row.pattern << "\" in \"" << row.text << '"';
}

TEST_P(Transforms, FindIgnoringCaseGivesTheFirstPlaceWhereAllOfThePatternIs)
{
    const FindRow rows[] = {
        {"Hello World", "WORLD", 6},
        {"Hello World", "hello", 0},
        {"Hello World", "Hello World", 0},
        {"Hello World", "Hello Worlds", nowhere},
        {"Hello World", "o", 4},
        {"Hello World", "O W", 4},
        {"Hello World", "d", 10},
        {"Hello World", "x", nowhere},
        {"Hello World", "worlx", nowhere},
        // a place where the pattern only begins is passed over
        {"aab", "AB", 1},
        {"aaab", "aab", 1},
        {"ababac", "ABAC", 2},
        {"abab", "abac", nowhere},
        {"ab", "abc", nowhere},
        // bytes that are not letters are themselves
        {"v5.1", "5.", 1},
        {"a[b", "a{b", nowhere},
        {"[", "{", nowhere},
        {"@", "`", nowhere},
        {"`x", "@x", nowhere},
        {"\xe4", "\xe4", 0},
        {"\xe4", "\xc4", nowhere},
        {"x\xc4", "X\xe4", nowhere},
        // an empty pattern is nowhere, unlike with strstr; so is anything in an empty text
        {"abc", "", nowhere},
        {"", "", nowhere},
        {"", "a", nowhere},
    };
    for (const FindRow &row : rows)
        expect_find(row);
}

TEST_P(Transforms, FindIgnoringCaseTakesTwoBytesForTheSameOnlyIfTheyAreOneAsciiLetter)
{
    for (const char in_text : every_byte()) {
        for (const char in_pattern : every_byte()) {
            const char text[] = {'-', 'x', in_text, '\0'};
            const char first[] = {in_pattern, '\0'}, second[] = {'X', in_pattern, '\0'};
            const bool same = to_upper(in_text) == to_upper(in_pattern);
            ASSERT_EQ(find_ignoring_case(text + 2, first), same ? text + 2 : nullptr)
                << "bytes " << int{in_text} << " and " << int{in_pattern};
            ASSERT_EQ(find_ignoring_case(text, second), same ? text + 1 : nullptr)
                << "bytes " << int{in_text} << " and " << int{in_pattern};
        }
    }
}

struct CompareRow {
    const char *first;
    const char *second;
    std::int32_t expected;
};

TEST_P(Transforms, CompareWordsHasTheSignOfTheSecondAgainstTheFirst)
{
    const CompareRow rows[] = {
        {"abc", "abc", 0},
        {"abc def", "abc", 0},
        {"abc", "abc def", 0},
        {"abc\tx", "abc\ny", 0},
        {"abc\v", "abc\f\r", 0},
        // the first difference
        {"abc", "abd", 1},
        {"abd", "abc", -1},
        {"abc", "xbc", 23},
        {"xbc", "abc", -23},
        {"abc", "axx", 22},
        {"Abc", "abc", 32},
        {"abc", "Abc", -32},
        // one begins the other
        {"abc", "ab", -1},
        {"ab", "abc", 1},
        {"abc", "ab c", -1},
        {"ab c", "abc", 1},
        {"a", "abcdef", 1},
        {"abcdef", "a", -1},
        // no word at all
        {"", "", 0},
        {"", "a", 1},
        {"a", "", -1},
        {" ", "a", 1},
        {"a", " a", -1},
        {" a", " b", 0},
        {"", " b", 0},
        // bytes are signed
        {"\x7f", "\x80", -255},
        {"\x80", "\x7f", 255},
        {"a", "\xe4", -125},
        {"\xe4", "a", 125},
        {"\xff", "a", 98},
        {"\xa0", "", -1},
    };
    for (const CompareRow &row : rows) {
        const std::vector<char> first = exact_copy(row.first);
        const std::vector<char> second = exact_copy(row.second);
        EXPECT_EQ(compare_words(first.data(), second.data()), row.expected)
            << '"' << row.first << "\" and \"" << row.second << '"';
    }
}

int signed_byte(int byte)
{
    return byte < 128 ? byte : byte - 256;
}

// What two words say that are the same up to one byte; 0 is the end of the text.
int expected_of_bytes(int first, int second)
{
    const std::string ends = spaces + '\0';
    const bool first_ends = holds(ends, byte_char(first));
    const bool second_ends = holds(ends, byte_char(second));
    if (first_ends)
        return second_ends ? 0 : 1;
    return second_ends ? -1 : signed_byte(second) - signed_byte(first);
}

TEST_P(Transforms, CompareWordsTellsEveryPairOfBytesApart)
{
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            const char first_text[] = {'x', byte_char(first), '\0'};
            const char second_text[] = {'x', byte_char(second), '\0'};
            ASSERT_EQ(compare_words(first_text, second_text), expected_of_bytes(first, second))
                << "bytes " << first << " and " << second;
        }
    }
}

// Plausibility

struct EmailRow {
    const char *text;
    int expected;
};

TEST_P(Transforms, LooksLikeEmailAsksForSixBytesAnAtSignAndAFullStop)
{
    const EmailRow rows[] = {
        // an empty field
        {"", 1},
        {" ", 1},
        {" \t\n\v\f\r", 1},
        // at least 6 bytes
        {"a@b.c", 0},
        {"a@b.cd", 1},
        {"     a@b.c", 0},
        {"  a@b.cd", 1},
        {"\t\r\na@b.cd", 1},
        {"a@b.c ", 1},
        {"a", 0},
        {"@", 0},
        {"@....", 0},
        // an at sign
        {"abc.de", 0},
        {"john.smith.example", 0},
        // a full stop, anywhere
        {"abc@de", 0},
        {"a.b@cd", 1},
        {".abcd@", 1},
        {"@abcd.", 1},
        {"@....@", 1},
        {"john@example", 0},
        {"john@mail.example", 1},
        {"not an address. @", 1},
        {"\xe4@b.cd", 1},
        {"\xa0@b.c", 0},
    };
    for (const EmailRow &row : rows)
        EXPECT_EQ(looks_like_email(exact_copy(row.text).data()), row.expected)
            << "text \"" << row.text << '"';
}

TEST_P(Transforms, LooksLikeEmailSkipsTheSixSpacesAndNoOtherByte)
{
    for (const char c : every_byte()) {
        const std::string byte(1, c);
        const bool space = holds(spaces, c);
        const int number = static_cast<unsigned char>(c);
        EXPECT_EQ(looks_like_email(exact_copy(byte).data()), space ? 1 : 0) << "byte " << number;
        EXPECT_EQ(looks_like_email(exact_copy(byte + "a@b.c").data()), space ? 0 : 1)
            << "byte " << number;
        EXPECT_EQ(looks_like_email(exact_copy("abcd@" + byte).data()), c == '.' ? 1 : 0)
            << "byte " << number;
        EXPECT_EQ(looks_like_email(exact_copy("abcd." + byte).data()), c == '@' ? 1 : 0)
            << "byte " << number;
    }
}

// Colours and ranges

constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

std::uint32_t float_bits(float number)
{
    std::uint32_t bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    return bits;
}

struct ChannelRow {
    float channel;
    std::uint32_t expected;
};

const ChannelRow channel_rows[] = {
    {0.0F, 0},
    {-0.0F, 0},
    {0.2F, 51},
    {0.5F, 128},
    {1.0F, 255},
    // out of the range
    {-0.2F, 0},
    {-1.0F, 0},
    {-1e30F, 0},
    {-infinity, 0},
    {-1.401298464e-45F, 0},
    {0x1.000002p+0F, 255},
    {1.5F, 255},
    {256.0F, 255},
    {1e30F, 255},
    {infinity, 255},
    {not_a_number, 0},
    {-not_a_number, 0},
    {1.401298464e-45F, 0},
    // The two floats on either side of a half. The lower ones of 1, 129, 200, 254 and 255 come out
    // one higher when a step is rounded to single precision.
    {0x1.0100p-9F, 0},
    {0x1.010102p-9F, 1},
    {0x1.818180p-8F, 1},
    {0x1.818182p-8F, 2},
    {0x1.fbfbfap-2F, 126},
    {0x1.fbfbfcp-2F, 127},
    {0x1.fffffep-2F, 127},
    {0x1.020202p-1F, 128},
    {0x1.020204p-1F, 129},
    {0x1.909090p-1F, 199},
    {0x1.909092p-1F, 200},
    {0x1.fcfcfcp-1F, 253},
    {0x1.fcfcfep-1F, 254},
    {0x1.fefefep-1F, 254},
    {0x1.feff00p-1F, 255},
};

TEST_P(Transforms, PackRgbRoundsEachChannelOnItsOwn)
{
    for (const ChannelRow &row : channel_rows) {
        EXPECT_EQ(pack_rgb(row.channel, 0, 0), row.expected << 16) << row.channel;
        EXPECT_EQ(pack_rgb(0, row.channel, 0), row.expected << 8) << row.channel;
        EXPECT_EQ(pack_rgb(0, 0, row.channel), row.expected) << row.channel;
        EXPECT_EQ(pack_rgb(1, row.channel, not_a_number), 0xff0000 | row.expected << 8)
            << row.channel;
    }
    EXPECT_EQ(pack_rgb(1.0F, 0.5F, -0.2F), 0xff8000u);
    EXPECT_EQ(pack_rgb(0.2F, 0.4F, 0.6F), 0x336699u);
}

// k / 255 in single precision by integers alone: the nearest float to 1/255 is 8421505 / 2^31, and
// k times that is rounded to 24 bits, halves to even.
std::uint32_t channel_value_bits(std::uint64_t k)
{
    if (k == 0)
        return 0;
    std::uint64_t product = k * 8421505;
    std::uint32_t shift = 0;
    while (product >> shift >= 1u << 24)
        ++shift;
    const std::uint64_t rest = product & ((std::uint64_t{1} << shift) - 1);
    const std::uint64_t half = shift == 0 ? 1 : std::uint64_t{1} << (shift - 1);
    product >>= shift;
    if (rest > half || (rest == half && product % 2 == 1))
        ++product;
    // 2^23 <= product <= 2^24, times 2^(shift - 31): one more than its top bit in the exponent.
    const std::uint32_t exponent = 127 + 23 + shift - 31;
    return static_cast<std::uint32_t>(product) + ((exponent - 1) << 23);
}

TEST_P(Transforms, UnpackRgbGivesEveryChannelTimesOneDividedBy255)
{
    // 0, 1, 128 and 255 worked out apart from the rest, to hold the helper to.
    ASSERT_EQ(channel_value_bits(1), 0x3b808081u);
    ASSERT_EQ(channel_value_bits(3), 0x3c40c0c2u);
    ASSERT_EQ(channel_value_bits(100), 0x3ec8c8cau);
    ASSERT_EQ(channel_value_bits(128), 0x3f008081u);
    ASSERT_EQ(channel_value_bits(255), 0x3f800000u);
    for (std::uint32_t k = 0; k < 256; ++k) {
        const std::uint32_t other = 255 - k;
        float red = -1, green = -1, blue = -1;
        unpack_rgb(k << 16 | other << 8 | k, &red, &green, &blue);
        EXPECT_EQ(float_bits(red), channel_value_bits(k)) << "red " << k;
        EXPECT_EQ(float_bits(green), channel_value_bits(other)) << "green " << other;
        EXPECT_EQ(float_bits(blue), channel_value_bits(k)) << "blue " << k;
    }
}

TEST_P(Transforms, UnpackRgbIgnoresTheHighByte)
{
    float red = -1, green = -1, blue = -1;
    unpack_rgb(0xff000000, &red, &green, &blue);
    EXPECT_EQ(float_bits(red), 0u);
    EXPECT_EQ(float_bits(green), 0u);
    EXPECT_EQ(float_bits(blue), 0u);
}

TEST_P(Transforms, PackRgbGivesBackEveryChannelThatWasUnpacked)
{
    for (std::uint32_t k = 0; k < 256; ++k) {
        const std::uint32_t colour = k << 16 | (255 - k) << 8 | (k ^ 0x55);
        float red = -1, green = -1, blue = -1;
        unpack_rgb(colour, &red, &green, &blue);
        EXPECT_EQ(pack_rgb(red, green, blue), colour);
    }
}

struct MapRow {
    float x, from_low, from_high, to_low, to_high;
    std::uint32_t expected; // bits
};

// The bits where steps round were worked out with exact fractions, each step rounded to 24 bits.
const MapRow map_rows[] = {
    // in proportion
    {5, 0, 10, 0, 100, 0x42480000},
    {0, 0, 10, 20, 100, 0x41a00000},
    {10, 0, 10, 20, 100, 0x42c80000},
    {-1, -2, 2, -8, 8, 0xc0800000},
    {5, 10, 0, 0, 100, 0x42480000},
    {2, 10, 0, 0, 100, 0x42a00000},
    // every step rounds
    {1, 0, 3, 0, 1, 0x3eaaaaab},
    {0.7F, 0, 1, -1, 1, 0x3ecccccc},
    {1.96F, -3.8F, 5.4F, -5.7F, 60.2F, 0x420e3c8e},
    {3.43F, -4.2F, 6.1F, -1.2F, 52.3F, 0x4219b9ea},
    {6.36F, -4.8F, 7.9F, -4.7F, 71.4F, 0x4278b03f},
    {-0.23F, -1.4F, 2.7F, -1.5F, 57.2F, 0x417403fe},
    // clamped
    {-1, 0, 10, 20, 100, 0x41a00000},
    {11, 0, 10, 20, 100, 0x42c80000},
    {-1e30F, 0, 10, 20, 100, 0x41a00000},
    {1e30F, 0, 10, 20, 100, 0x42c80000},
    {-infinity, 0, 10, 20, 100, 0x41a00000},
    {infinity, 0, 10, 20, 100, 0x42c80000},
    {11, 10, 0, 20, 100, 0x41a00000},
    {-1, 10, 0, 20, 100, 0x42c80000},
    {0, -3e38F, 3e38F, 20, 100, 0x41a00000}, // the width of the range is infinite
    // equal bounds of the source: the smaller one of the target, whatever x is
    {5, 3, 3, 20, 100, 0x41a00000},
    {3, 3, 3, 100, 20, 0x41a00000},
    {infinity, 3, 3, 20, 100, 0x41a00000},
    {not_a_number, 3, 3, 20, 100, 0x41a00000},
    {5, 0.0F, -0.0F, 20, 100, 0x41a00000},
    {5, infinity, infinity, 20, 100, 0x41a00000},
    // equal bounds of the target
    {5, 0, 10, 7, 7, 0x40e00000},
    {-5, 0, 10, 7, 7, 0x40e00000},
    // a target upside down: below its first bound that one, otherwise at most the second
    {5, 0, 10, 10, 0, 0x41200000},
    {-2, 0, 10, 10, 0, 0x00000000},
};

TEST_P(Transforms, MapClampedKeepsWithinTheTarget)
{
    for (const MapRow &row : map_rows) {
        const float y = map_clamped(row.x, row.from_low, row.from_high, row.to_low, row.to_high);
        EXPECT_EQ(float_bits(y), row.expected)
            << y << " for " << row.x << " of " << row.from_low << " to " << row.from_high << " in "
            << row.to_low << " to " << row.to_high;
    }
}

TEST_P(Transforms, MapClampedOfNotANumberIsThatOrABound)
{
    const float bounds[] = {20, 100};
    for (int place = 0; place < 5; ++place) {
        float n[] = {5, 0, 10, bounds[0], bounds[1]};
        n[place] = not_a_number;
        const float y = map_clamped(n[0], n[1], n[2], n[3], n[4]);
        EXPECT_TRUE(std::isnan(y) || y == bounds[0] || y == bounds[1])
            << y << " with no number at " << place;
    }
    const float y = map_clamped(infinity, 0, infinity, bounds[0], bounds[1]);
    EXPECT_TRUE(std::isnan(y) || y == bounds[0] || y == bounds[1]) << y;
}

} // namespace
} // namespace quintral
