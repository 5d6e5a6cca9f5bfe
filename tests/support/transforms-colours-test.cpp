// pack_rgb, unpack_rgb and map_clamped, compared bit by bit. The examples of
// docs/strings-dates-clocks.md are in docs-test.
#include "support/c-utils/transforms.h"

#include "tests/harness/each-locale.h"
#include "tests/support/transform-calls.h"

#include <cmath>
#include <cstdint>
#include <limits>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using namespace tests;

class Transforms : public tests::InEachLocale {};

INSTANTIATE_TEST_SUITE_P(Locales, Transforms, tests::each_locale(), tests::locale_label);

constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

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
    // out of range
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
    // The two floats on either side of a half. If a step rounded to single precision, the lower
    // ones of 1, 129, 200, 254 and 255 would give one more.
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

TEST_P(Transforms, PackRgbRoundsEachChannelSeparately)
{
    for (const ChannelRow &row : channel_rows) {
        EXPECT_EQ(pack_rgb(row.channel, 0, 0), row.expected << 16) << row.channel;
        EXPECT_EQ(pack_rgb(0, row.channel, 0), row.expected << 8) << row.channel;
        EXPECT_EQ(pack_rgb(0, 0, row.channel), row.expected) << row.channel;
        EXPECT_EQ(pack_rgb(1, row.channel, not_a_number), 0xff0000 | row.expected << 8)
            << row.channel;
    }
    EXPECT_EQ(pack_rgb(0.2F, 0.4F, 0.6F), 0x336699U);
}

// The bits of k / 255 in single precision, from integer arithmetic: the nearest float to 1/255 is
// 8421505 / 2^31, and k times that is rounded to 24 bits, ties to even.
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
    // The value is product * 2^(shift - 31) with 2^23 <= product <= 2^24. The top bit of product
    // adds one to the exponent.
    const std::uint32_t exponent = 127 + 23 + shift - 31;
    return static_cast<std::uint32_t>(product) + ((exponent - 1) << 23);
}

TEST_P(Transforms, UnpackRgbMultipliesEachChannelByOneOver255)
{
    // Known values check the helper.
    ASSERT_EQ(channel_value_bits(1), 0x3b808081U);
    ASSERT_EQ(channel_value_bits(3), 0x3c40c0c2U);
    ASSERT_EQ(channel_value_bits(100), 0x3ec8c8caU);
    ASSERT_EQ(channel_value_bits(128), 0x3f008081U);
    ASSERT_EQ(channel_value_bits(255), 0x3f800000U);
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
    unpack_rgb(0xff030164, &red, &green, &blue);
    EXPECT_EQ(float_bits(red), channel_value_bits(3));
    EXPECT_EQ(float_bits(green), channel_value_bits(1));
    EXPECT_EQ(float_bits(blue), channel_value_bits(100));
}

TEST_P(Transforms, PackRgbRestoresEveryUnpackedChannel)
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

// Where steps round, the expected bits were computed with exact fractions, each step rounded to 24
// bits.
const MapRow map_rows[] = {
    // in proportion
    {0, 0, 10, 20, 100, 0x41a00000},
    {10, 0, 10, 20, 100, 0x42c80000},
    {-1, -2, 2, -8, 8, 0xc0800000},
    {5, 10, 0, 0, 100, 0x42480000},
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
    // an empty source range gives the smaller target bound, whatever x is
    {5, 3, 3, 20, 100, 0x41a00000},
    {3, 3, 3, 100, 20, 0x41a00000},
    {infinity, 3, 3, 20, 100, 0x41a00000},
    {not_a_number, 3, 3, 20, 100, 0x41a00000},
    {5, 0.0F, -0.0F, 20, 100, 0x41a00000},
    {5, infinity, infinity, 20, 100, 0x41a00000},
    // an empty target range
    {5, 0, 10, 7, 7, 0x40e00000},
    {-5, 0, 10, 7, 7, 0x40e00000},
    // a reversed target range: below its first bound gives that, otherwise at most the second
    {5, 0, 10, 10, 0, 0x41200000},
    {-2, 0, 10, 10, 0, 0x00000000},
};

TEST_P(Transforms, MapClampedStaysWithinTheTargetRange)
{
    for (const MapRow &row : map_rows) {
        const float y = map_clamped(row.x, row.from_low, row.from_high, row.to_low, row.to_high);
        EXPECT_EQ(float_bits(y), row.expected)
            << y << " for " << row.x << " of " << row.from_low << " to " << row.from_high << " in "
            << row.to_low << " to " << row.to_high;
    }
}

TEST_P(Transforms, MapClampedOfANanIsNanOrABound)
{
    const float bounds[] = {20, 100};
    for (int i = 0; i < 5; ++i) {
        float n[] = {5, 0, 10, bounds[0], bounds[1]};
        n[i] = not_a_number;
        const float y = map_clamped(n[0], n[1], n[2], n[3], n[4]);
        EXPECT_TRUE(std::isnan(y) || y == bounds[0] || y == bounds[1])
            << y << " for a NaN as argument " << i;
    }
    const float y = map_clamped(infinity, 0, infinity, bounds[0], bounds[1]);
    EXPECT_TRUE(std::isnan(y) || y == bounds[0] || y == bounds[1]) << y;
}

} // namespace
} // namespace quintral
