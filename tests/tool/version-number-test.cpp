// Version numbers: which strings are valid, and how they compare.
#include "tool/version-number.h"

#include <string>

#include <gtest/gtest.h>

namespace quintral {
namespace {

TEST(VersionNumber, ConsistsOfRunsOfDigitsSeparatedByPoints)
{
    const struct {
        std::string text;
        bool is_number;
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
    };
    for (const auto &row : rows)
        EXPECT_EQ(is_version_number(row.text.c_str()), row.is_number) << "string " << row.text;
}

int sign(int n)
{
    return (n > 0) - (n < 0);
}

TEST(VersionNumber, IsComparedExactlyAtAnyLength)
{
    const std::string nines(40, '9');
    const std::string zeros(40, '0');
    const struct {
        std::string first;
        std::string second;
        int expected;
    } rows[] = {
        // decimal fractions, not integers
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
        EXPECT_EQ(sign(compare_versions(row.first.c_str(), row.second.c_str())), row.expected)
            << row.first << " against " << row.second;
        EXPECT_EQ(sign(compare_versions(row.second.c_str(), row.first.c_str())), -row.expected)
            << row.second << " against " << row.first;
    }
}

TEST(ProductVersion, AcceptsNumbersThatAFloatRepresentsExactly)
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
    };
    for (const auto &row : rows) {
        float version = -1.0F;
        EXPECT_EQ(read_product_version(row.text.c_str(), &version), 0) << "string " << row.text;
        EXPECT_EQ(version, row.version) << "string " << row.text;
    }
}

TEST(ProductVersion, RejectsEverythingElseAndDoesNotChangeTheNumber)
{
    const std::string rows[] = {
        // not of the right form
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
        // not exact to three decimal places
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
        EXPECT_EQ(read_product_version(text.c_str(), &version), -1) << "string " << text;
        EXPECT_EQ(version, -1.0F) << "string " << text;
    }
}

} // namespace
} // namespace quintral
