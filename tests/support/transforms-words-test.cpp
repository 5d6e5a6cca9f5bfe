// The transforms that look for words and patterns, and looks_like_email. The examples of
// docs/strings-dates-clocks.md are in docs-test.
#include "support/c-utils/transforms.h"

#include "tests/harness/child-process.h"
#include "tests/harness/each-locale.h"
#include "tests/support/transform-calls.h"

#include <csignal>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using namespace std::string_literals;
using namespace tests;

constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();

class Transforms : public tests::InEachLocale {};

INSTANTIATE_TEST_SUITE_P(Locales, Transforms, tests::each_locale(), tests::locale_label);

struct WordRow {
    std::string text;
    std::int32_t n;
    std::int32_t offset;
    std::string word;
};

void expect_word(const WordRow &row)
{
    SCOPED_TRACE("word " + std::to_string(row.n) + " of \"" + row.text + '"');
    const FoundWord found = found_word(row.text, row.n, row.word.size() + 1);
    EXPECT_EQ(found.offset, row.offset);
    EXPECT_EQ(found.word, row.word);
    const FoundWord in_place = found_word_in_place(row.text, row.n);
    EXPECT_EQ(in_place.offset, row.offset) << "in place";
    EXPECT_EQ(in_place.word, row.word) << "in place";
}

TEST_P(Transforms, NthWordCountsFrom0AndReturnsTheWordsOffset)
{
    const WordRow rows[] = {
        {"  one\\two three", 0, 2, "one"},
        {"  one\\two three", 2, 10, "three"},
        {"  one\\two three", highest, -1, ""},
        // a negative number counts as 0
        {"  one\\two three", -1, 2, "one"},
        {"  one\\two three", lowest, 2, "one"},
        // runs of separators, also at the ends
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
        // other white space does not separate
        {"one\rtwo\vthree\ffour five", 0, 0, "one\rtwo\vthree\ffour"},
        {"one\rtwo\vthree\ffour five", 1, 19, "five"},
        {"one\xa0two three", 1, 8, "three"},
        {"C:\\Program Files\\x.txt", 3, 17, "x.txt"},
    };
    for (const WordRow &row : rows)
        expect_word(row);
}

TEST_P(Transforms, NthWordSeparatesAtFourBytesOnly)
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

TEST_P(Transforms, NthWordAcceptsStringsOf2047Bytes)
{
    expect_word({std::string(2047, 'x'), 0, 0, std::string(2047, 'x')});
    expect_word({std::string(2046, ' ') + "x", 0, 2046, "x"});
    expect_word({std::string(2047, ' '), 0, -1, ""});
}

TEST(NthWord, AbortsForStringsOf2048BytesOrMore)
{
    const std::string texts[] = {
        std::string(2048, 'x'),
        std::string(2048, ' '),
        "one " + std::string(2044, 'x'),
        std::string(100000, 'x'),
    };
    for (const std::string &text : texts) {
        const ChildResult result = run_child_function([&] {
            std::vector<char> destination(text.size() + 1);
            nth_word(text.c_str(), 0, destination.data());
            return 0;
        });
        EXPECT_EQ(result.signal, SIGABRT) << text.size() << " bytes";
        EXPECT_EQ(result.exit_status, -1) << text.size() << " bytes";
    }
}

TEST_P(Transforms, WordLengthStopsAtWhiteSpaceOrTheEnd)
{
    const struct {
        const char *text;
        std::size_t length;
    } rows[] = {
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
        // other bytes belong to the word
        {"\xa0\x85\xe4 \xe4", 3},
        {"a\\b_c-d e", 7},
    };
    for (const auto &row : rows)
        EXPECT_EQ(word_length(exact_copy(row.text).data()), row.length)
            << "string \"" << row.text << '"';
}

TEST_P(Transforms, WordLengthStopsAtTheSixWhiteSpaceBytesOnly)
{
    for (const char c : every_byte()) {
        const std::string text = "ab"s + c + "cd";
        EXPECT_EQ(word_length(exact_copy(text).data()), holds(white_space, c) ? 2U : 5U)
            << "byte " << int{static_cast<unsigned char>(c)};
    }
}

constexpr int nowhere = -1;

int found_offset(const std::string &text, const std::string &pattern)
{
    const std::vector<char> block = exact_copy(text);
    const char *found = find_ignoring_case(block.data(), exact_copy(pattern).data());
    return found == nullptr ? nowhere : static_cast<int>(found - block.data());
}

TEST_P(Transforms, FindIgnoringCaseReturnsTheFirstMatchOfTheWholePattern)
{
    const struct {
        const char *text;
        const char *pattern;
        int offset; // or nowhere
    } rows[] = {
        {"Hello World", "hello", 0},
        {"Hello World", "Hello World", 0},
        {"Hello World", "Hello Worlds", nowhere},
        {"Hello World", "o", 4},
        {"Hello World", "O W", 4},
        {"Hello World", "d", 10},
        {"Hello World", "worlx", nowhere},
        // after a partial match
        {"aab", "AB", 1},
        {"aaab", "aab", 1},
        {"ababac", "ABAC", 2},
        {"abab", "abac", nowhere},
        {"ab", "abc", nowhere},
        // bytes that are not ASCII letters
        {"v5.1", "5.", 1},
        {"a[b", "a{b", nowhere},
        {"[", "{", nowhere},
        {"@", "`", nowhere},
        {"`x", "@x", nowhere},
        {"\xe4", "\xe4", 0},
        {"x\xc4", "X\xe4", nowhere},
        // an empty pattern or string
        {"abc", "", nowhere},
        {"", "", nowhere},
        {"", "a", nowhere},
    };
    for (const auto &row : rows)
        EXPECT_EQ(found_offset(row.text, row.pattern), row.offset)
            << '"' << row.pattern << "\" in \"" << row.text << '"';
}

TEST_P(Transforms, FindIgnoringCaseFoldsAsciiLettersOnly)
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

TEST_P(Transforms, CompareWordsSubtractsTheFirstWordFromTheSecond)
{
    const struct {
        const char *first;
        const char *second;
        std::int32_t expected;
    } rows[] = {
        {"abc", "abc", 0},
        {"abc", "abc def", 0},
        {"abc\tx", "abc\ny", 0},
        {"abc\v", "abc\f\r", 0},
        // the first difference
        {"abd", "abc", -1},
        {"xbc", "abc", -23},
        {"abc", "axx", 22},
        {"Abc", "abc", 32},
        {"abc", "Abc", -32},
        // one is a prefix of the other
        {"abc", "ab c", -1},
        {"ab c", "abc", 1},
        {"a", "abcdef", 1},
        {"abcdef", "a", -1},
        // empty words
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
        {"\xe4", "a", 125},
        {"\xff", "a", 98},
        {"\xa0", "", -1},
    };
    for (const auto &row : rows)
        EXPECT_EQ(compare_words(exact_copy(row.first).data(), exact_copy(row.second).data()),
                  row.expected)
            << '"' << row.first << "\" and \"" << row.second << '"';
}

int signed_byte(int byte)
{
    return byte < 128 ? byte : byte - 256;
}

// For two words that are equal up to these bytes. 0 is the end of the string.
int expected_comparison(int first, int second)
{
    const std::string ends = white_space + '\0';
    const bool first_ends = holds(ends, byte_char(first));
    const bool second_ends = holds(ends, byte_char(second));
    if (first_ends)
        return second_ends ? 0 : 1;
    return second_ends ? -1 : signed_byte(second) - signed_byte(first);
}

TEST_P(Transforms, CompareWordsIsRightForEveryPairOfBytes)
{
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            const char first_text[] = {'x', byte_char(first), '\0'};
            const char second_text[] = {'x', byte_char(second), '\0'};
            ASSERT_EQ(compare_words(first_text, second_text), expected_comparison(first, second))
                << "bytes " << first << " and " << second;
        }
    }
}

TEST_P(Transforms, LooksLikeEmailNeedsSixBytesAnAtSignAndAPeriod)
{
    const struct {
        const char *text;
        int expected;
    } rows[] = {
        // an empty field
        {"", 1},
        {" ", 1},
        {" \t\n\v\f\r", 1},
        // at least 6 bytes
        {"a@b.cd", 1},
        {"     a@b.c", 0},
        {"  a@b.cd", 1},
        {"\t\r\na@b.cd", 1},
        {"a", 0},
        {"@", 0},
        {"@....", 0},
        // an at sign
        {"abc.de", 0},
        {"john.smith.example", 0},
        // a period, anywhere
        {"abc@de", 0},
        {"a.b@cd", 1},
        {".abcd@", 1},
        {"@abcd.", 1},
        {"@....@", 1},
        {"john@example", 0},
        {"\xe4@b.cd", 1},
        {"\xa0@b.c", 0},
    };
    for (const auto &row : rows)
        EXPECT_EQ(looks_like_email(exact_copy(row.text).data()), row.expected)
            << "string \"" << row.text << '"';
}

TEST_P(Transforms, LooksLikeEmailSkipsTheSixWhiteSpaceBytesOnly)
{
    for (const char c : every_byte()) {
        const std::string byte(1, c);
        const bool space = holds(white_space, c);
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

} // namespace
} // namespace quintral
