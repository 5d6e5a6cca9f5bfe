// Versions: comparing two of any length, and reading the one that a query sends.
#include "web/update-check.h"

#include "tests/harness/each-locale.h"
#include "tests/harness/text.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include <gtest/gtest.h>

namespace quintral {
namespace {

class Versions : public tests::InEachLocale {};

INSTANTIATE_TEST_SUITE_P(Locales, Versions, tests::each_locale(), tests::locale_label);

constexpr int unchanged = 99;

// The order of two versions; unchanged if one of the strings is not a version.
int order_of(const char *first, const char *second)
{
    int order = unchanged;
    const int result = web_compare_versions(first, second, &order);
    EXPECT_EQ(result, order == unchanged ? -1 : 0) << first << " and " << second;
    return order;
}

TEST_P(Versions, AreRunsOfDigitsSeparatedByPoints)
{
    const struct {
        std::string text;
        bool is_version;
    } rows[] = {
        {"5", true},
        {"0", true},
        {"5.2", true},
        {"5.2.1", true},
        {"1.2.3.4.5", true},
        {"0005.0002", true},
        {std::string(40, '9'), true},
        {std::string(40, '9') + "." + std::string(40, '0'), true},
        {"", false},
        {".", false},
        {"5.", false},
        {".5", false},
        {"5..2", false},
        {"5.2.", false},
        {"5a", false},
        {"5.2a", false},
        {"5.a", false},
        {"5.2.x", false},
        {"v5", false},
        {" 5", false},
        {"5 ", false},
        {"5\r", false},
        {"5\n", false},
        {"-5", false},
        {"+5", false},
        {"5,2", false},
        {"1e3", false},
        {"0x10", false},
        {"inf", false},
        {"nan", false},
        {"\xD9\xA5", false}, // an Arabic five
        {"5.\xB2", false},   // a superscript two in Latin-1
    };
    for (const auto &row : rows) {
        const char *const text = row.text.c_str();
        EXPECT_EQ(order_of(text, text), row.is_version ? 0 : unchanged) << row.text;
        EXPECT_EQ(order_of(text, "5") != unchanged, row.is_version) << row.text;
        EXPECT_EQ(order_of("5", text) != unchanged, row.is_version) << row.text;
    }
}

TEST_P(Versions, NullIsNotAVersion)
{
    int order = unchanged;
    EXPECT_EQ(web_compare_versions(nullptr, "5", &order), -1);
    EXPECT_EQ(web_compare_versions("5", nullptr, &order), -1);
    EXPECT_EQ(web_compare_versions(nullptr, nullptr, &order), -1);
    EXPECT_EQ(order, unchanged);
}

TEST_P(Versions, AreComparedExactlyAtAnyLength)
{
    const std::string nines(40, '9');
    const std::string zeros(40, '0');
    const struct {
        std::string first;
        std::string second;
        int expected;
    } rows[] = {
        // the first two parts are a decimal number
        {"5.2", "5.2", 0},
        {"5.2", "5.20", 0},
        {"5.2", "5.200", 0},
        {"5.20", "5.200", 0},
        {"5", "5.0", 0},
        {"5", "5.000", 0},
        {"5.10", "5.9", -1},
        {"5.19", "5.2", -1},
        {"5.02", "5.2", -1},
        {"5.1", "5.09", 1},
        {"5.999", "6", -1},
        // integer parts
        {"6", "5.9", 1},
        {"10", "9", 1},
        {"10.0", "9.9", 1},
        {"05", "5", 0},
        {"0005.2", "5.2", 0},
        {"0", "000", 0},
        {"0.1", "0", 1},
        // further parts as integers, a missing one as 0
        {"5.2.1", "5.2", 1},
        {"5.2.0", "5.2", 0},
        {"5.2.0.0", "5.20", 0},
        {"1.0.0", "1", 0},
        {"1.0.1", "1", 1},
        {"5.2.10", "5.2.9", 1},
        {"5.2.01", "5.2.1", 0},
        {"5.2.1", "5.2.1.1", -1},
        {"5.2.0.1", "5.2", 1},
        {"5.2.9", "5.3", -1},
        {"5.20.1", "5.2.1", 0},
        {"5.2.0.0.7", "5.2.0.0.6", 1},
        // any length
        {nines, "1" + zeros, -1},
        {"1" + zeros, nines, 1},
        {zeros + "7", "7", 0},
        {"4294967296", "0", 1},
        {"18446744073709551616", "1", 1},
        {"9007199254740993", "9007199254740992", 1},
        {"5.2" + zeros + "1", "5.2", 1},
        {"5.2" + zeros, "5.2", 0},
        {"5." + nines, "6", -1},
        {"5." + nines + "1", "5." + nines + "2", -1},
        {"5.2." + nines, "5.2." + nines, 0},
        {"5.2.1" + zeros, "5.2." + nines, 1},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(order_of(row.first.c_str(), row.second.c_str()), row.expected)
            << row.first << " and " << row.second;
        EXPECT_EQ(order_of(row.second.c_str(), row.first.c_str()), -row.expected)
            << row.second << " and " << row.first;
    }
}

TEST_P(Versions, OfManyPartsAndDigitsAreCompared)
{
    const std::string parts = "1" + tests::repeated(100000, ".1");
    EXPECT_EQ(order_of(parts.c_str(), parts.c_str()), 0);
    EXPECT_EQ(order_of((parts + ".1").c_str(), parts.c_str()), 1);
    const std::string digits(1000000, '1');
    EXPECT_EQ(order_of((digits + "." + digits).c_str(), (digits + "." + digits + "1").c_str()), -1);
}

class ProductVersion : public tests::InEachLocale {};

INSTANTIATE_TEST_SUITE_P(Locales, ProductVersion, tests::each_locale(), tests::locale_label);

TEST_P(ProductVersion, IsANumberThatAFloatRepresentsToThreeDecimalPlaces)
{
    const struct {
        std::string text;
        float version;
    } rows[] = {
        {"0", 0.0F},
        {"5", 5.0F},
        {"5.2", 5.2F},
        {"5.20", 5.2F},
        {"5.200", 5.2F},
        {"1.001", 1.001F},
        {"0.999", 0.999F},
        {"0005.2", 5.2F},
        {std::string(40, '0') + "5.2", 5.2F},
        {"8192.001", 8192.001F},
        {"16384.002", 16384.002F},
        {"123456.789", 123456.7890625F},
        {"16777216", 16777216.0F},
        {"16777216.000", 16777216.0F},
        {"16777218", 16777218.0F},
        {"33554436", 33554436.0F},
        {"340282346638528859811704183484516925440", 340282346638528859811704183484516925440.0F},
        {"0.001", 0.001F},
        {"0.000", 0.0F},
        {"16777215", 16777215.0F},
        {"000.1", 0.1F},
    };
    for (const auto &row : rows) {
        float version = -1.0F;
        EXPECT_EQ(web_read_product_version(row.text.c_str(), &version), 0) << row.text;
        EXPECT_EQ(version, row.version) << row.text;
    }
}

TEST_P(ProductVersion, AnyOtherStringIsRejectedAndTheNumberUnchanged)
{
    const std::string rows[] = {
        // another form
        "",
        ".",
        "5.",
        ".5",
        "5.1234",
        "5.0000",
        "5.2.1",
        "5..2",
        "-5",
        "+5",
        " 5",
        "5 ",
        "5\n",
        "5,2",
        "1e3",
        "0x10",
        "nan",
        "inf",
        "infinity",
        "5f",
        "5.2f",
        "five",
        "5.2.",
        "5.\xD9\xA5",
        "\xD9\xA5",
        // not exact in a float
        "16777217",
        "16777219",
        "33554434",
        "16384.001",
        "16777216.001",
        "123456.785",
        "340282346638528859811704183484516925441",
        "340282366920938463463374607431768211456",
        std::string(39, '9'),
        std::string(40, '9'),
        "1" + std::string(4000, '0'),
    };
    for (const std::string &text : rows) {
        float version = -1.0F;
        EXPECT_EQ(web_read_product_version(text.c_str(), &version), -1) << text;
        EXPECT_EQ(version, -1.0F) << text;
    }
}

TEST_P(ProductVersion, NullIsRejectedAndTheNumberUnchanged)
{
    float version = -1.0F;
    EXPECT_EQ(web_read_product_version(nullptr, &version), -1);
    EXPECT_EQ(version, -1.0F);
}

// The simple form of the reader, by the C library: the version is read to the nearest float, and
// accepted if that is written as the same number. Returns -1 if it is not.
float read_by_strtod(const std::string &text)
{
    const auto number = static_cast<float>(std::strtod(text.c_str(), nullptr));
    char written[64];
    std::snprintf(written, sizeof written, "%.3f", static_cast<double>(number));
    const bool same = order_of(written, text.c_str()) == 0;
    return same ? number : -1.0F;
}

float read_version(const std::string &text)
{
    float version = -1.0F;
    const int result = web_read_product_version(text.c_str(), &version);
    EXPECT_EQ(result, version == -1.0F ? -1 : 0) << text;
    return version;
}

TEST(ProductVersionLikeStrtod, ForRandomNumbersOfEveryLength)
{
    std::mt19937 random(19970101);
    for (int i = 0; i < 60000; ++i) {
        std::string text(1 + random() % (i % 3 == 0 ? 40 : 9), '0');
        for (char &c : text)
            c = static_cast<char>('0' + random() % 10);
        const std::size_t places = random() % 4;
        if (places > 0)
            text += "." + std::to_string(1000 + random() % 1000).substr(1, places);
        ASSERT_EQ(read_version(text), read_by_strtod(text)) << text;
    }
}

// From 2^24 on every float is a whole number. It is accepted, its neighbours in the last digit
// mostly are not.
TEST(ProductVersionLikeStrtod, ForTheWholeFloatsOfEveryExponent)
{
    std::mt19937 random(20030410);
    for (int exponent = 24; exponent < 128; ++exponent) {
        for (int i = 0; i < 100; ++i) {
            const auto mantissa = static_cast<float>(0x800000 + random() % 0x800000);
            const float number = std::ldexp(mantissa, exponent - 23);
            char text[64];
            const int length =
                std::snprintf(text, sizeof text, "%.0f", static_cast<double>(number));
            ASSERT_EQ(read_version(text), number) << text;
            char *last = text + length - 1;
            *last = *last == '9' ? '8' : static_cast<char>(*last + 1);
            ASSERT_EQ(read_version(text), read_by_strtod(text)) << text;
        }
    }
}

// The spacing of floats is below a thousandth up to 8192, so each such number can be sent.
TEST_P(ProductVersion, EveryNumberBelow8192WithThreeDecimalPlacesCanBeSent)
{
    for (int whole = 0; whole < 8192; whole += 31) {
        for (int thousandths = 0; thousandths < 1000; thousandths += 7) {
            const std::string fraction = std::to_string(1000 + thousandths).substr(1);
            const std::string text = std::to_string(whole) + "." + fraction;
            const double expected = (whole * 1000.0 + thousandths) / 1000.0;
            float version = -1.0F;
            ASSERT_EQ(web_read_product_version(text.c_str(), &version), 0) << text;
            ASSERT_EQ(version, static_cast<float>(expected)) << text;
        }
    }
}

} // namespace
} // namespace quintral
