// The string for a Mac OS X version number, checked with every byte of the buffer.
#include "platform/platform.h"

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

namespace quintral {
namespace {

constexpr std::size_t buffer_size = 24;

// The buffer is filled with '#' before the call. `text` is already cut to the capacity; it and the
// last byte of the capacity are terminated.
void expect_version(std::uint32_t number, std::size_t capacity, const std::string &text)
{
    std::string buffer(buffer_size, '#');
    EXPECT_EQ(platform_format_system_version(number, buffer.data(), capacity), buffer.data());
    std::string expected(buffer_size, '#');
    expected.replace(0, text.size() + 1, text + '\0');
    expected[capacity - 1] = '\0';
    EXPECT_EQ(buffer, expected) << "number 0x" << std::hex << number << std::dec << ", capacity "
                                << capacity;
}

struct VersionRow {
    std::uint32_t number;
    const char *text;
};

TEST(PlatformFormatSystemVersion, WritesTheLowFourHexDigitsWithPeriods)
{
    const VersionRow rows[] = {
        {0x1049, "10.4.9"}, {0x1058, "10.5.8"}, {0x1000, "10.0.0"},
        {0x0922, "09.2.2"}, {0x0000, "00.0.0"}, {0x9999, "99.9.9"},
        {0x0001, "00.0.1"}, {0x0010, "00.1.0"}, {0x0100, "01.0.0"},
    };
    for (const VersionRow &row : rows)
        expect_version(row.number, buffer_size, row.text);
}

TEST(PlatformFormatSystemVersion, WritesHexDigitsAbove9AsNumbers)
{
    const VersionRow rows[] = {
        {0x104a, "10.4.10"},    {0x10f0, "10.15.0"},    {0x1b00, "111.0.0"},
        {0xabcd, "1011.12.13"}, {0xffff, "1515.15.15"},
    };
    for (const VersionRow &row : rows)
        expect_version(row.number, buffer_size, row.text);
}

TEST(PlatformFormatSystemVersion, IgnoresTheHighBits)
{
    const VersionRow rows[] = {
        {0x00011049, "10.4.9"},
        {0xffff1049, "10.4.9"},
        {0x80000000, "00.0.0"},
    };
    for (const VersionRow &row : rows)
        expect_version(row.number, buffer_size, row.text);
}

TEST(PlatformFormatSystemVersion, IsCutToTheCapacityAndTerminatesTheLastByte)
{
    const struct {
        std::size_t capacity;
        const char *text;
    } rows[] = {
        {1, ""},      {2, "1"},      {3, "10"},     {4, "10."},     {5, "10.4"},
        {6, "10.4."}, {7, "10.4.9"}, {8, "10.4.9"}, {15, "10.4.9"}, {buffer_size, "10.4.9"},
    };
    for (const auto &row : rows)
        expect_version(0x1049, row.capacity, row.text);
    expect_version(0xffff, 11, "1515.15.15");
    expect_version(0xffff, 10, "1515.15.1");
}

} // namespace
} // namespace quintral
