// parse_float bit by bit. The expected bits were computed with exact fractions, following the steps
// in the header and rounding each to 24 bits, ties to even. They are the same for every build,
// since existing files must read the same everywhere. The examples of docs/strings-dates-clocks.md
// are in docs-test.
#include "support/c-utils/transforms.h"

#include "tests/harness/each-locale.h"
#include "tests/harness/exact-buffer.h"
#include "tests/support/reference-transforms.h"
#include "tests/support/transform-calls.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using namespace std::string_literals;
using namespace tests;

class ParseFloat : public tests::InEachLocale {};

INSTANTIATE_TEST_SUITE_P(Locales, ParseFloat, tests::each_locale(), tests::locale_label);

struct FloatRow {
    std::string text;
    std::uint32_t bits;
};

std::string hexadecimal(std::uint32_t bits)
{
    char text[12];
    std::snprintf(text, sizeof text, "%#010x", static_cast<unsigned>(bits));
    return text;
}

// A string of thousands of bytes is shortened.
std::string shown(const std::string &text)
{
    return testing::PrintToString(text.substr(0, 60)) + ", " + std::to_string(text.size()) +
           " bytes";
}

void expect_bits(const FloatRow &row)
{
    float number = -77.25F;
    EXPECT_EQ(parse_float(exact_copy(row.text).data(), &number), 1) << shown(row.text);
    EXPECT_EQ(hexadecimal(float_bits(number)), hexadecimal(row.bits))
        << shown(row.text) << " gave " << number;
}

void expect_no_number(const std::string &text)
{
    float number = -77.25F;
    EXPECT_EQ(parse_float(exact_copy(text).data(), &number), 0) << shown(text);
    EXPECT_EQ(number, -77.25F) << "the number must not change, " << shown(text);
}

const FloatRow float_rows[] = {
    // integers
    {"0", 0x00000000},
    {"7", 0x40e00000},
    {"10", 0x41200000},
    {"000123", 0x42f60000},
    {"255", 0x437f0000},
    {"65535", 0x477fff00},
    {"1048575", 0x497ffff0},
    {"16777215", 0x4b7fffff},
    // integers of more than 24 bits: each digit rounds
    {"16777217", 0x4b800000},
    {"16777219", 0x4b800002},
    {"33554435", 0x4c000001},
    {"123456789", 0x4ceb79a3},
    {"4294967295", 0x4f7fffff},
    {"15320337000", 0x50644a74},
    {"98004610871", 0x51b68c3c},
    {"34216457332", 0x50feeeb4},
    {"12345678901234567890", 0x5f2b54ab},
    {"99999999999999999999", 0x60ad78ec},
    // fractions
    {"0.5", 0x3f000000},
    {"0.25", 0x3e800000},
    {"0.1", 0x3dcccccd},
    {"1.5", 0x3fc00000},
    {"1.2", 0x3f99999a},
    {"3.14159", 0x40490fce},
    {"100.125", 0x42c83fff},
    {"2.718281828459045", 0x402df854},
    {"0.0000001", 0x33d6bf97},
    // fractions that are not the nearest float
    {"0.12", 0x3df5c290},
    {"0.17", 0x3e2e147c},
    {"0.24", 0x3e75c290},
    {"0.47", 0x3ef0a3d8},
    {"0.48", 0x3ef5c290},
    {"57.63", 0x4266851e},
    {"121.059", 0x42f21e36},
    {"163.17", 0x43232b86},
    {"317.0039", 0x439e807f},
    {"893.037", 0x445f425f},
    {"914.000032", 0x44648000},
    {"603.0037", 0x4416c03c},
    // a second point ends the number
    {"+.5", 0x3f000000},
    {"-.5", 0xbf000000},
    {".5", 0x3f000000},
    {"1..5", 0x3f800000},
    {"1.e2", 0x42c80000},
    {"0.5.", 0x3f000000},
    // signs
    {"+1", 0x3f800000},
    {"-1", 0xbf800000},
    {"-150", 0xc3160000},
    {"+0", 0x00000000},
    {"-0.0", 0x80000000},
    {"-.0e5", 0x80000000},
    // white space
    {" 5", 0x40a00000},
    {" \t\n\v\f\r5", 0x40a00000},
    {"\r\n-2.5\r\n", 0xc0200000},
    // text after the number
    {"1 2", 0x3f800000},
    {"5x", 0x40a00000},
    {"5-", 0x40a00000},
    {"5+5", 0x40a00000},
    {"0b1", 0x00000000},
    {"1f", 0x3f800000},
    {"1d5", 0x3f800000},
    {"1.5%", 0x3fc00000},
    {"1.5e2x", 0x43160000},
    {"12 e3", 0x41400000},
    // exponents
    {"1e0", 0x3f800000},
    {"1e1", 0x41200000},
    {"1e2", 0x42c80000},
    {"1E2", 0x42c80000},
    {"1e+2", 0x42c80000},
    {"1e-2", 0x3c23d70a},
    {"1.5e3", 0x44bb8000},
    {"1e10", 0x501502f9},
    {"1e22", 0x64078678},
    {"1e23", 0x65a96816},
    {"1e-10", 0x2edbe6ff},
    {"1e38", 0x7e967699},
    {"1e-37", 0x02081cea},
    {"3.4e38", 0x7f7fc99f},
    {"2e007", 0x4b989680},
    {"1e-007", 0x33d6bf95},
    {"1e2.5", 0x42c80000},
    {"1e2e3", 0x42c80000},
    {"0e5", 0x00000000},
    {"0e-5", 0x00000000},
    // exponents are read like atoi
    {"1e", 0x3f800000},
    {"1e+", 0x3f800000},
    {"1e-", 0x3f800000},
    {"1e+-5", 0x3f800000},
    {"1e--5", 0x3f800000},
    {"1e\t\n\v\f\r5", 0x47c35000},
    {"1e - 5", 0x3f800000},
    {"1e -5", 0x3727c5ac},
    {"1e+ 5", 0x3f800000},
    {"1E 2 3", 0x42c80000},
    // the exponent multiplies in double precision
    {"146.092e-33", 0x0c3da364},
    {"670.756e-18", 0x2641550e},
    {"532.239e-1", 0x4254e546},
    {"411.110e-1", 0x422471aa},
    {"868.701e-38", 0x0538c095},
    {"699.572e-14", 0x2cf623d9},
    {"430.659e11", 0x561cac3f},
    {"453.264e-37", 0x0670ff1a},
    // overflow
    {"340282346638528859811704183484516925440", 0x7f7fffff},
    {"340282366920938463463374607431768211456", 0x7f7fffff},
    {"3.4028235e38", 0x7f800000},
    {"3.4028236e38", 0x7f800000},
    {"3.5e38", 0x7f800000},
    {"-1e39", 0xff800000},
    {"1e308", 0x7f800000},
    {"1e309", 0x7f800000},
    {"1e310", 0x7f800000},
    {"1e400", 0x7f800000},
    {"-1e999", 0xff800000},
    {"0.00001e43", 0x7e96769a},
    {"0.00001e44", 0x7f800000},
    // subnormals and underflow
    {"1.17549435e-38", 0x00800001},
    {"1.1754943e-38", 0x00800001},
    {"1e-38", 0x006ce3ee},
    {"1e-40", 0x000116c2},
    {"1.4e-45", 0x00000001},
    {"1e-45", 0x00000001},
    {"8e-46", 0x00000001},
    {"7.1e-46", 0x00000001},
    {"7e-46", 0x00000000},
    {"1e-46", 0x00000000},
    {"-1e-46", 0x80000000},
    {"1e-308", 0x00000000},
    {"1e-323", 0x00000000},
    {"1e-324", 0x00000000},
    {"1e-400", 0x00000000},
    {"-1e-999", 0x80000000},
    {"123456789e-50", 0x00000371},
};

TEST_P(ParseFloat, RoundsEveryStepToSinglePrecision)
{
    for (const FloatRow &row : float_rows)
        expect_bits(row);
}

TEST_P(ParseFloat, ScaleOfALongFractionUnderflowsThroughSubnormalsToZero)
{
    const FloatRow rows[] = {
        {"0." + std::string(36, '0') + "9", 0x03992091},
        {"0." + std::string(37, '0') + "9", 0x01f500ea},
        {"0." + std::string(37, '0') + "12345", 0x00866ce3},
        {"0." + std::string(38, '0') + "9", 0x00620061},
        {"0." + std::string(39, '0') + "9", 0x0009ccdb},
        {"0." + std::string(40, '0') + "9", 0x0000fae0},
        {"0." + std::string(42, '0') + "9", 0x0000027f},
        {"0." + std::string(43, '0') + "1", 0x00000007},
        {"0." + std::string(44, '0') + "1", 0x00000001},
        {"-0." + std::string(44, '0') + "9", 0x80000009},
        {"0." + std::string(45, '0') + "9", 0x00000000},
        {"-0." + std::string(45, '0') + "9", 0x80000000},
        // the exponent does not restore the precision that the scale has lost
        {"0." + std::string(30, '0') + "1e31", 0x3f800007},
        {"0." + std::string(44, '0') + "1e45", 0x3fb35dc0},
        {"0." + std::string(60, '0') + "1e61", 0x00000000},
    };
    for (const FloatRow &row : rows)
        expect_bits(row);
}

TEST_P(ParseFloat, ReadsAnyNumberOfDigits)
{
    const FloatRow rows[] = {
        {"1" + std::string(38, '0'), 0x7e96769a},
        {std::string(38, '9'), 0x7e96769a},
        {std::string(38, '9') + "e-38", 0x3f800001},
        // infinity, whatever the exponent
        {"1" + std::string(39, '0'), 0x7f800000},
        {std::string(39, '9') + "e-39", 0x7f800000},
        {std::string(10000, '9'), 0x7f800000},
        {"-" + std::string(10000, '9') + ".5e-300", 0xff800000},
        {std::string(10000, '0') + "1", 0x3f800000},
        {"1." + std::string(10000, '0'), 0x3f800000},
        {"0." + std::string(10000, '0') + "9", 0x00000000},
        {"0." + std::string(50, '9'), 0x3f800000},
        {"0." + std::string(20, '3'), 0x3eaaaaab},
        {"0." + std::string(10000, '3'), 0x3eaaaaab},
        {"3.14159265358979323846264338327950288", 0x40490fd9},
    };
    for (const FloatRow &row : rows)
        expect_bits(row);
}

TEST_P(ParseFloat, ReadsAnExponentOfAnyLength)
{
    const FloatRow rows[] = {
        {"1e" + std::string(10000, '0') + "5", 0x47c35000},
        {"1e-" + std::string(10000, '0') + "5", 0x3727c5ac},
        {"1e" + std::string(10000, ' ') + "5", 0x47c35000},
        {"1e" + std::string(10000, '9'), 0x7f800000},
        {"1e+" + std::string(10000, '1'), 0x7f800000},
        {"-1e" + std::string(10000, '9'), 0xff800000},
        {"1e-" + std::string(10000, '9'), 0x00000000},
        {"-1e-" + std::string(10000, '1'), 0x80000000},
        {"0e-" + std::string(10000, '9'), 0x00000000},
        // exponents beyond 32 and 64 bits do not wrap
        {"1e2147483647", 0x7f800000},
        {"1e2147483648", 0x7f800000},
        {"1e-2147483648", 0x00000000},
        {"1e-2147483649", 0x00000000},
        {"1e4294967296", 0x7f800000},
        {"1e4294967297", 0x7f800000},
        {"1e-4294967297", 0x00000000},
        {"1e9223372036854775808", 0x7f800000},
        {"1e18446744073709551617", 0x7f800000},
        {"1e-18446744073709551617", 0x00000000},
    };
    for (const FloatRow &row : rows)
        expect_bits(row);
}

TEST_P(ParseFloat, ZeroTimesInfinityIsNotANumber)
{
    const std::string texts[] = {
        "0e309",
        "0e400",
        "-0e999",
        "0.000e9999999999",
        "0." + std::string(60, '0') + "1e999",
        "0e" + std::string(10000, '9'),
        std::string(39, '9') + "e-400",
    };
    for (const std::string &text : texts) {
        float number = 0;
        EXPECT_EQ(parse_float(exact_copy(text).data(), &number), 1) << shown(text);
        EXPECT_TRUE(std::isnan(number)) << shown(text) << " gave " << number;
    }
}

TEST_P(ParseFloat, NeedsADigitBeforeTheExponent)
{
    const std::string texts[] = {
        // no characters but white space
        "",
        " ",
        " \t\n\v\f\r",
        std::string(10000, ' '),
        // only a sign, more than one, or one that is separated
        "+",
        "-",
        " -",
        "--5",
        "++5",
        "+-5",
        "-+5",
        "+ 5",
        "-\n5",
        // only points
        "-.",
        "+.",
        "..",
        "..5",
        ". 5",
        ".-5",
        // only an exponent
        "e",
        "E5",
        "-e5",
        ".e5",
        "-.E5",
        "+.e-5",
        // other characters
        "x",
        "x5",
        ",5",
        "/5",
        ":5",
        "$5",
        "(5)",
        "-inf",
        "INFINITY",
        "nan",
        "NaN(5)",
        "\2405",
        "\2055",
        "\xb2",
        "\3445",
    };
    for (const std::string &text : texts)
        expect_no_number(text);
}

constexpr std::uint32_t five = 0x40a00000;
constexpr std::uint32_t minus_five = 0xc0a00000;
constexpr std::uint32_t one_half = 0x3f000000;

TEST_P(ParseFloat, OnlyWhiteSpaceASignAPointOrADigitMayComeBeforeADigit)
{
    // 05, 15 to 95
    const std::uint32_t with_a_digit[] = {five,       0x41700000, 0x41c80000, 0x420c0000,
                                          0x42340000, 0x425c0000, 0x42820000, 0x42960000,
                                          0x42aa0000, 0x42be0000};
    for (const char c : every_byte()) {
        const std::string text = {c, '5'};
        if (holds(white_space + '+', c))
            expect_bits({text, five});
        else if (c == '-')
            expect_bits({text, minus_five});
        else if (c == '.')
            expect_bits({text, one_half});
        else if (c >= '0' && c <= '9')
            expect_bits({text, with_a_digit[c - '0']});
        else
            expect_no_number(text);
    }
}

TEST_P(ParseFloat, EveryByteExceptDigitsThePointAndAnExponentEndsTheNumber)
{
    for (const char c : every_byte()) {
        if (!holds("0123456789.eE", c)) {
            expect_bits({"5"s + c + "5", five});
            expect_bits({"0.5"s + c + "5", one_half});
            expect_bits({"5e0"s + c + "5", five});
        }
    }
}

// Against the simple loop, whose powers of ten come from the C library's strtod.

void expect_as_the_simple_loop(const std::string &text)
{
    float number = -77.25F, expected = -77.25F;
    ASSERT_EQ(parse_float(text.c_str(), &number), reference::parse_float(text.c_str(), &expected))
        << shown(text);
    if (std::isnan(expected))
        ASSERT_TRUE(std::isnan(number)) << shown(text);
    else
        ASSERT_EQ(hexadecimal(float_bits(number)), hexadecimal(float_bits(expected)))
            << shown(text);
}

// Zero, the smallest and the largest numbers, infinity, and some between, with every exponent at
// which a power of ten is finite, and some beyond.
TEST_P(ParseFloat, AgreesWithTheSimpleLoopForEveryExponent)
{
    const std::string numbers[] = {"0",
                                   "-0",
                                   "1",
                                   "9.999999",
                                   "16777215",
                                   "1.1754945",
                                   "0.1",
                                   "7",
                                   "3.40282346",
                                   "-1234.5678901",
                                   std::string(39, '9'),
                                   std::string(37, '9'),
                                   "0." + std::string(37, '0') + "9",
                                   "0." + std::string(44, '0') + "1",
                                   "0." + std::string(44, '0') + "9",
                                   "340282346638528859811704183484516925440"};
    for (const std::string &number : numbers) {
        for (int exponent = -420; exponent <= 420; ++exponent)
            expect_as_the_simple_loop(number + "e" + std::to_string(exponent));
    }
}

TEST(ParseFloatReference, AgreesWithTheSimpleLoopForRandomNumbers)
{
    std::mt19937 random(4);
    const auto digits = [&random](std::size_t longest) {
        std::string text(random() % (longest + 1), '0');
        for (char &c : text)
            c = static_cast<char>('0' + random() % 10);
        return text;
    };
    for (int i = 0; i < 200000; ++i) {
        const int exponent = static_cast<int>(random() % 170) - 85;
        expect_as_the_simple_loop(digits(12) + "." + digits(12) + "E" + std::to_string(exponent));
    }
}

// Any order of the characters that mean something.
TEST(ParseFloatReference, AgreesWithTheSimpleLoopForRandomCharacters)
{
    std::mt19937 random(5);
    const std::string characters = " +-..00159eEx\t";
    for (int i = 0; i < 200000; ++i) {
        std::string text(random() % 14, ' ');
        for (char &c : text)
            c = characters[random() % characters.size()];
        expect_as_the_simple_loop(text);
    }
}

} // namespace
} // namespace quintral
