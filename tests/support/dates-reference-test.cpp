// The conversions of dates, whose common cases are computed in a faster way, against the formulas:
// at the borders between the two ways, and in steps through all day numbers.
#include "support/dates.h"

#include "tests/support/reference-dates.h"

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>

namespace quintral {
namespace {

constexpr std::int64_t highest = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t lowest = std::numeric_limits<std::int32_t>::min();

void expect_date_of(std::int64_t number)
{
    const auto day_number = static_cast<std::int32_t>(number);
    std::int32_t year = 1, month = 1, day = 1;
    std::int32_t expected_year = 2, expected_month = 2, expected_day = 2;
    day_number_to_date(day_number, &year, &month, &day);
    reference::day_number_to_date(day_number, &expected_year, &expected_month, &expected_day);
    ASSERT_TRUE(year == expected_year && month == expected_month && day == expected_day)
        << day_number << " gave " << year << '-' << month << '-' << day;
}

void expect_texts_of(std::int64_t number)
{
    const auto day_number = static_cast<std::int32_t>(number);
    char text[date_text_size], expected[date_text_size];
    ASSERT_STREQ(format_date_long(day_number, text),
                 reference::format_date_long(day_number, expected));
    ASSERT_STREQ(format_date_compact(day_number, text),
                 reference::format_date_compact(day_number, expected));
}

// Day numbers from which on something changes, and those around them.
constexpr std::int64_t borders[] = {
    lowest,
    -68569,
    -32044,
    0,
    1721060,
    2451545,
    2488070,
    5373485,
    268435456 - 32044, // the first that is not a common one
    1073741824 - 32044,
    highest,
};

TEST(DateReference, DatesAgreeAroundEveryBorder)
{
    for (const std::int64_t border : borders) {
        for (std::int64_t number = border - 5000; number <= border + 5000; ++number) {
            if (number < lowest || number > highest)
                continue;
            expect_date_of(number);
            expect_texts_of(number);
        }
    }
}

TEST(DateReference, DatesAgreeForEveryDayOfFourThousandYears)
{
    for (std::int64_t number = 1721426 - 1461; number < 1721426 + 146097 * 10; ++number)
        expect_date_of(number);
}

TEST(DateReference, DatesAgreeThroughAllDayNumbers)
{
    for (std::int64_t number = lowest; number <= highest; number += 1009)
        expect_date_of(number);
    for (std::int64_t number = lowest; number <= highest; number += 20011)
        expect_texts_of(number);
}

void expect_day_number_of(std::int64_t year, std::int64_t month, std::int64_t day)
{
    ASSERT_EQ(date_to_day_number(static_cast<std::int32_t>(year), static_cast<std::int32_t>(month),
                                 static_cast<std::int32_t>(day)),
              reference::date_to_day_number(year, month, day))
        << year << '-' << month << '-' << day;
}

TEST(DateReference, DayNumbersAgreeAroundEveryBorder)
{
    for (const std::int64_t year :
         {lowest, std::int64_t{-4900}, std::int64_t{-4800}, std::int64_t{0}, std::int64_t{2000},
          std::int64_t{(1 << 21) - 4800}, std::int64_t{5874898}, highest}) {
        for (std::int64_t near = year - 5; near <= year + 5; ++near) {
            if (near < lowest || near > highest)
                continue;
            for (std::int64_t month = -3; month <= 28; ++month) {
                for (std::int64_t day = -3; day <= 35; ++day)
                    expect_day_number_of(near, month, day);
            }
        }
    }
}

TEST(DateReference, DayNumbersAgreeForRandomArguments)
{
    std::mt19937 random(3);
    const auto any = [&random](unsigned bits) {
        return static_cast<std::int32_t>(random()) >> (32 - bits);
    };
    for (int i = 0; i < 1000000; ++i) {
        expect_day_number_of(any(32), any(32), any(32));
        expect_day_number_of(any(24), any(5), any(6));
        expect_day_number_of(any(14), 1 + (any(8) & 7), 1 + (any(8) & 15));
    }
}

} // namespace
} // namespace quintral
