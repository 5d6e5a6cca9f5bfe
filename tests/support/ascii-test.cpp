// ASCII character classes, case mapping, prefixes and number reading: for all 256 bytes, and under
// locales with letters above 0x7F and a decimal comma.
#include "support/ascii.h"

#include "tests/harness/each-locale.h"

#include <cctype>
#include <clocale>
#include <cstdint>
#include <limits>
#include <string>

#include <gtest/gtest.h>

namespace quintral {
namespace {

const char digits[] = "0123456789";
const char uppers[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
const char lowers[] = "abcdefghijklmnopqrstuvwxyz";
const char spaces[] = " \t\n\v\f\r";

constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();

class Ascii : public tests::InEachLocale {};

INSTANTIATE_TEST_SUITE_P(Locales, Ascii, tests::each_locale(), tests::locale_label);

struct ClassRow {
    const char *name;
    bool (*in_class)(char);
    std::string members;
};

TEST_P(Ascii, EachClassHoldsItsOwnBytesAndNoOthersOfAll256)
{
    const ClassRow rows[] = {
        {"digit", ascii_is_digit, digits},
        {"upper", ascii_is_upper, uppers},
        {"lower", ascii_is_lower, lowers},
        {"letter", ascii_is_letter, std::string(uppers) + lowers},
        {"letter or digit", ascii_is_letter_or_digit, std::string(uppers) + lowers + digits},
        {"space", ascii_is_space, spaces},
    };
    for (const ClassRow &row : rows) {
        for (int byte = 0; byte < 256; ++byte) {
            const char c = static_cast<char>(byte);
            const bool expected = row.members.find(c) != std::string::npos;
            EXPECT_EQ(row.in_class(c), expected) << row.name << ", byte " << byte;
        }
    }
}

TEST_P(Ascii, CaseMappingChangesOnlyLettersOfTheOtherCaseOfAll256Bytes)
{
    const std::string upper_letters = uppers;
    const std::string lower_letters = lowers;
    for (int byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        const std::size_t as_upper = upper_letters.find(c);
        const std::size_t as_lower = lower_letters.find(c);
        const char to_lower = as_upper == std::string::npos ? c : lower_letters[as_upper];
        const char to_upper = as_lower == std::string::npos ? c : upper_letters[as_lower];
        EXPECT_EQ(ascii_to_lower(c), to_lower) << "byte " << byte;
        EXPECT_EQ(ascii_to_upper(c), to_upper) << "byte " << byte;
    }
}

struct NumberRow {
    const char *text;
    bool found;
    std::int32_t value;
    std::size_t read; // bytes up to and including the last digit
};

const NumberRow number_rows[] = {
    // digits
    {"0", true, 0, 1},
    {"7", true, 7, 1},
    {"8080", true, 8080, 4},
    {"007", true, 7, 3},
    {"12ab", true, 12, 2},
    {"12 34", true, 12, 2},
    {"1.5", true, 1, 1},
    {"1,5", true, 1, 1},
    {"0x10", true, 0, 1},
    {"1e3", true, 1, 1},
    // signs
    {"+5", true, 5, 2},
    {"-5", true, -5, 2},
    {"-0", true, 0, 2},
    {"5-", true, 5, 1},
    // white space
    {" 5", true, 5, 2},
    {" \t\n\v\f\r5", true, 5, 7},
    {" -5 ", true, -5, 3},
    // not a number
    {"", false, 0, 0},
    {" ", false, 0, 0},
    {"-", false, 0, 0},
    {"+", false, 0, 0},
    {"+-5", false, 0, 0},
    {"--5", false, 0, 0},
    {"- 5", false, 0, 0},
    {"x5", false, 0, 0},
    {".5", false, 0, 0},
    {"\2405", false, 0, 0}, // a no-break space in Latin-1
    {"\262", false, 0, 0},  // a superscript two
    // the limits of the range
    {"2147483646", true, highest - 1, 10},
    {"2147483647", true, highest, 10},
    {"2147483648", true, highest, 10},
    {"4294967297", true, highest, 10},
    {"-2147483647", true, -highest, 11},
    {"-2147483648", true, lowest, 11},
    {"-2147483649", true, lowest, 11},
    {"00000000000000000000000000000012", true, 12, 32},
    {"99999999999999999999999999999999", true, highest, 32},
    {"-99999999999999999999999999999999", true, lowest, 33},
};

TEST_P(Ascii, NumberScanReadsLikePercentDAndSaturates)
{
    for (const NumberRow &row : number_rows) {
        std::int32_t value = 12345;
        const char *after = ascii_scan_int(row.text, &value);
        const char *expected = row.found ? row.text + row.read : nullptr;
        EXPECT_EQ(static_cast<const void *>(after), static_cast<const void *>(expected))
            << "text \"" << row.text << '"';
        EXPECT_EQ(value, row.value) << "text \"" << row.text << '"';
    }
}

TEST_P(Ascii, NumberOfAStringIsItsLeadingNumberOrZero)
{
    for (const NumberRow &row : number_rows)
        EXPECT_EQ(ascii_to_int(row.text), row.value) << "text \"" << row.text << '"';
}

TEST_P(Ascii, OnlyTheSixSpacesOfAll256BytesMayPrecedeANumber)
{
    for (int byte = 0; byte < 256; ++byte) {
        const char text[] = {static_cast<char>(byte), '5', '\0'};
        const bool space = byte != 0 && std::string(spaces).find(text[0]) != std::string::npos;
        std::int32_t expected = space || text[0] == '+' || text[0] == '0' ? 5 : 0;
        if (text[0] == '-')
            expected = -5;
        if (text[0] >= '1' && text[0] <= '9')
            expected = 10 * (text[0] - '0') + 5;
        EXPECT_EQ(ascii_to_int(text), expected) << "byte " << byte;
    }
}

struct PrefixRow {
    const char *text;
    const char *prefix;
    int skipped; // bytes, or -1 if text does not begin with the prefix
};

const PrefixRow prefix_rows[] = {
    {"http://host", "http://", 7},
    {"HTTP://host", "http://", 7},
    {"hTtP://host", "http://", 7},
    {"http://host", "HTTP://", 7},
    {"http://", "http://", 7},
    {"http:/", "http://", -1},
    {"ftp://host", "http://", -1},
    {" http://host", "http://", -1},
    {"", "http://", -1},
    {"host", "", 0},
    {"", "", 0},
    // the bytes next to the letters, and their neighbours in the other case
    {"@[`{", "@[`{", 4},
    {"@", "`", -1},
    {"[", "{", -1},
    // not a letter in ASCII
    {"\xe4", "\xe4", 1},
    {"\xc4", "\xe4", -1},
    {"\xc3\x84", "\xc3\xa4", -1},
};

TEST_P(Ascii, PrefixIsSkippedInAnyLetterCase)
{
    for (const PrefixRow &row : prefix_rows) {
        const char *rest = ascii_skip_prefix(row.text, row.prefix);
        EXPECT_EQ(rest == nullptr ? -1 : rest - row.text, row.skipped)
            << "text \"" << row.text << "\", prefix \"" << row.prefix << '"';
    }
}

TEST_P(Ascii, PrefixMatchesEachByteInBothCasesAndNoOther)
{
    for (int in_prefix = 1; in_prefix < 256; ++in_prefix) {
        const char prefix[] = {static_cast<char>(in_prefix), '\0'};
        char other_case = prefix[0];
        for (std::size_t i = 0; i < sizeof uppers - 1; ++i) {
            if (prefix[0] == uppers[i])
                other_case = lowers[i];
            else if (prefix[0] == lowers[i])
                other_case = uppers[i];
        }
        for (int byte = 0; byte < 256; ++byte) {
            const char text[] = {static_cast<char>(byte), '\0'};
            const bool matches = text[0] == prefix[0] || text[0] == other_case;
            EXPECT_EQ(ascii_skip_prefix(text, prefix) != nullptr, matches)
                << "byte " << byte << ", prefix " << in_prefix;
        }
    }
}

struct SpanRow {
    const char *text;
    const char *set;
    std::size_t before; // the length before the first byte of the set
    std::size_t of;     // the length of bytes of the set at the start
};

const SpanRow span_rows[] = {
    {"", "", 0, 0},
    {"", "ab", 0, 0},
    {"abc", "", 3, 0},
    {"abc", "c", 2, 0},
    {"abc", "b", 1, 0},
    {"abc", "cb", 1, 0},
    {"abc", "a", 0, 1},
    {"abc", "ba", 0, 2},
    {"abc", "cab", 0, 3},
    {"aab", "a", 0, 2},
    {"xyz", "ab", 3, 0},
    {"\xe4\xff=", "=", 2, 0},
    {"\xff\xff=", "\xff", 0, 2},
};

TEST_P(Ascii, LengthsEndAtTheFirstByteInASetAndTheFirstOutsideIt)
{
    for (const SpanRow &row : span_rows) {
        EXPECT_EQ(ascii_length_before(row.text, row.set), row.before) << row.text << ' ' << row.set;
        EXPECT_EQ(ascii_length_of(row.text, row.set), row.of) << row.text << ' ' << row.set;
    }
}

TEST_P(Ascii, EachByteButTheTerminatorIsInASetThatHasIt)
{
    for (int byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        const char with[] = {'x', c, 'y', '\0'};
        EXPECT_EQ(ascii_is_one_of(c, with), byte != 0) << "byte " << byte;
        EXPECT_EQ(ascii_is_one_of(c, "xy"), c == 'x' || c == 'y') << "byte " << byte;
        EXPECT_FALSE(ascii_is_one_of(c, "")) << "byte " << byte;
    }
}

struct DigitsRow {
    const char *text;
    std::int32_t highest;
    std::int32_t value;
};

const DigitsRow digits_rows[] = {
    {"0", 9, 0},
    {"9", 9, 9},
    {"10", 9, -1},
    {"0", 0, 0},
    {"1", 0, -1},
    {"65535", 65535, 65535},
    {"65536", 65535, -1},
    {"0080", 65535, 80},
    {"00000000000000000000000000000012", 65535, 12},
    {"2147483647", highest, highest},
    {"2147483648", highest, -1},
    {"4294967297", highest, -1},
    {"18446744073709551617", highest, -1},
    {"99999999999999999999999999999999", highest, -1},
    // not a string of digits
    {"", 9, -1},
    {"+1", 9, -1},
    {"-1", 9, -1},
    {"-0", 9, -1},
    {" 1", 9, -1},
    {"1 ", 9, -1},
    {"1\n", 9, -1},
    {"1.0", 9, -1},
    {"0x1", 9, -1},
    {"1a", 9, -1},
    {"99a", 9, -1},
    {"\xb2", 9, -1},
};

TEST_P(Ascii, DigitsAreReadWholeAndUpToTheHighestNumber)
{
    for (const DigitsRow &row : digits_rows) {
        EXPECT_EQ(ascii_read_digits(row.text, row.highest), row.value)
            << "text \"" << row.text << "\", highest " << row.highest;
    }
}

TEST_P(Ascii, DigitsAreTheTenOfAll256BytesOnly)
{
    for (int byte = 1; byte < 256; ++byte) {
        const char text[] = {'1', static_cast<char>(byte), '\0'};
        const std::size_t digit = std::string(digits).find(text[1]);
        const int expected = digit == std::string::npos ? -1 : 10 + static_cast<int>(digit);
        EXPECT_EQ(ascii_read_digits(text, 99), expected) << "byte " << byte;
    }
}

TEST(AsciiLocale, TheTestLocaleWouldChangeTheCLibrarysAnswers)
{
    ASSERT_NE(std::setlocale(LC_ALL, tests::comma_locale), nullptr);
    // Volatile, because optimisers assume the C locale.
    const volatile int small_umlaut = 0xe4;
    EXPECT_NE(std::isalpha(small_umlaut), 0);
    EXPECT_EQ(std::toupper(small_umlaut), 0xc4);
    EXPECT_STREQ(std::localeconv()->decimal_point, ",");
    std::setlocale(LC_ALL, "C");
}

// The functions can be used in constant expressions.
static_assert(ascii_to_upper('q') == 'Q');
static_assert(ascii_to_int(" -42x") == -42);
static_assert(*ascii_skip_prefix("HTTP:x", "http:") == 'x');
static_assert(ascii_read_digits("8080", 65535) == 8080);

} // namespace
} // namespace quintral
