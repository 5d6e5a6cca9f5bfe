// Day numbers, their two written forms and the parser: exact strings, a walk through every day from
// 1600 to 2400, and the limits of the formulas. The examples of docs/strings-dates-clocks.md are in
// docs-test.
#include "support/dates.h"

#include "support/time-source.h"
#include "tests/harness/each-locale.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral {
namespace {

constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();

struct CalendarDate {
    std::int32_t year, month, day;
};

bool operator==(const CalendarDate &a, const CalendarDate &b)
{
    return a.year == b.year && a.month == b.month && a.day == b.day;
}

std::ostream &operator<<(std::ostream &stream, const CalendarDate &date)
{
    return stream << date.year << '-' << date.month << '-' << date.day;
}

CalendarDate date_of(std::int32_t day_number)
{
    CalendarDate date = {-1, -1, -1};
    day_number_to_date(day_number, &date.year, &date.month, &date.day);
    return date;
}

// Checks that nothing is written after the terminator.
template <typename Formatter> std::string formatted(Formatter format, std::int32_t day_number)
{
    char buffer[date_text_size + 8];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(format(day_number, buffer), buffer);
    const std::string text = buffer;
    EXPECT_LT(text.size(), date_text_size);
    for (std::size_t i = text.size() + 1; i < sizeof buffer; ++i)
        EXPECT_EQ(buffer[i], '#') << "byte " << i << " after " << text;
    return text;
}

TEST(MonthNames, AreLowerCaseAbbreviationsFromIndex1)
{
    const char *const names[] = {"???", "jan", "feb", "mar", "apr", "may", "jun",
                                 "jul", "aug", "sep", "oct", "nov", "dec"};
    ASSERT_EQ(std::size(month_names), std::size(names));
    for (std::size_t i = 0; i < std::size(names); ++i)
        EXPECT_STREQ(month_names[i], names[i]);
}

struct DayRow {
    CalendarDate date;
    std::int32_t day_number;
};

const DayRow known_days[] = {
    {{2007, 1, 5}, 2454106},
    {{1999, 12, 31}, 2451544},
    {{1970, 1, 1}, 2440588},
    {{1858, 11, 17}, 2400001},
    {{1582, 10, 15}, 2299161},
    // turns of centuries
    {{1900, 2, 28}, 2415079},
    {{1900, 3, 1}, 2415080},
    {{2000, 2, 29}, 2451604},
    {{2000, 3, 1}, 2451605},
    {{2100, 1, 1}, 2488070},
    // early years
    {{1, 1, 1}, 1721426},
    {{0, 3, 1}, 1721120},
    {{-4713, 11, 24}, 0},
    {{-4713, 11, 23}, -1},
    {{-4800, 3, 1}, -32044},
};

TEST(DayNumbers, AreJulianDayNumbersOfKnownDates)
{
    for (const DayRow &row : known_days) {
        EXPECT_EQ(date_to_day_number(row.date.year, row.date.month, row.date.day), row.day_number)
            << row.date;
        EXPECT_EQ(date_of(row.day_number), row.date) << row.day_number;
    }
}

TEST(DayNumbers, FollowLeapYears)
{
    EXPECT_EQ(date_to_day_number(2000, 2, 29) + 1, date_to_day_number(2000, 3, 1));
    EXPECT_EQ(date_to_day_number(1900, 3, 1) - date_to_day_number(1900, 2, 28), 1);
    EXPECT_EQ(date_to_day_number(2004, 3, 1) - date_to_day_number(2004, 2, 28), 2);
    EXPECT_EQ(date_to_day_number(2003, 3, 1) - date_to_day_number(2003, 2, 28), 1);
}

bool is_leap_year(int year)
{
    return year % 400 == 0 || (year % 4 == 0 && year % 100 != 0);
}

int days_in_month(int year, int month)
{
    static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && is_leap_year(year) ? 29 : days[month - 1];
}

// Calls visit(date, day number) for each day in order. 1600-01-01 is 400 years, or 146097 days,
// before 2000-01-01.
template <typename Visitor> void walk_1600_to_2400(Visitor visit)
{
    std::int32_t day_number = 2451545 - 146097;
    for (int year = 1600; year <= 2400; ++year) {
        for (int month = 1; month <= 12; ++month) {
            for (int day = 1; day <= days_in_month(year, month); ++day)
                visit(CalendarDate{year, month, day}, day_number++);
        }
    }
}

TEST(DayNumbers, AgreeWithAWalkThroughTheCalendarFrom1600To2400)
{
    int days = 0;
    walk_1600_to_2400([&](const CalendarDate &date, std::int32_t day_number) {
        ASSERT_EQ(date_to_day_number(date.year, date.month, date.day), day_number) << date;
        ASSERT_EQ(date_of(day_number), date) << day_number;
        ++days;
    });
    EXPECT_EQ(days, 2 * 146097 + 366);
}

TEST(DayNumbers, ConvertBackFrom1MarchOfMinus4800On)
{
    EXPECT_EQ(date_to_day_number(-4800, 2, 29), -32044); // the same number as 1 March
    for (std::int64_t day_number = -32044; day_number <= highest; day_number += 997) {
        const auto number = static_cast<std::int32_t>(day_number);
        const CalendarDate date = date_of(number);
        ASSERT_EQ(date_to_day_number(date.year, date.month, date.day), number) << date;
        ASSERT_TRUE(date.month >= 1 && date.month <= 12) << number;
        ASSERT_TRUE(date.day >= 1 && date.day <= 31) << number;
    }
    EXPECT_EQ(date_of(highest), (CalendarDate{5874898, 6, 3}));
    EXPECT_EQ(date_to_day_number(5874898, 6, 3), highest);
}

TEST(DayNumbers, CarryOverOutOfRangeDaysAndMonths)
{
    EXPECT_EQ(date_to_day_number(2007, 2, 31), date_to_day_number(2007, 3, 3));
    EXPECT_EQ(date_to_day_number(2007, 1, 0), date_to_day_number(2006, 12, 31));
    EXPECT_EQ(date_to_day_number(2007, 1, 1000), date_to_day_number(2007, 1, 1) + 999);
    EXPECT_EQ(date_to_day_number(2007, 13, 1), date_to_day_number(2008, 1, 1));
    EXPECT_EQ(date_to_day_number(2007, 14, 1), date_to_day_number(2008, 2, 1));
}

// Existing files contain such numbers, so they must never change.
TEST(DayNumbers, FollowTheTruncatingFormulaOutsideTheCalendar)
{
    EXPECT_EQ(date_to_day_number(2007, 15, 1), 2454528);
    EXPECT_EQ(date_to_day_number(2007, 25, 1), 2454834);
    EXPECT_EQ(date_to_day_number(-4801, 1, 1), -32468);
    EXPECT_EQ(date_to_day_number(-9999, 12, 31), -1930636);
    EXPECT_EQ(date_to_day_number(-20000, 7, 4), -5583606);
    EXPECT_EQ(date_to_day_number(2007, -30, 1), 2453158);
    EXPECT_EQ(date_of(-100000), (CalendarDate{-4986, 2, 11}));
    EXPECT_EQ(date_of(-1000000), (CalendarDate{-7450, 1, -3}));
}

// The expected values are those of the formula in 128 bits, clamped to 32 bits.
TEST(DayNumbers, AreClampedForAnyArguments)
{
    EXPECT_EQ(date_to_day_number(highest, 12, 31), highest);
    EXPECT_EQ(date_to_day_number(lowest, 1, 1), lowest);
    EXPECT_EQ(date_to_day_number(highest, highest, highest), highest);
    EXPECT_EQ(date_to_day_number(lowest, lowest, lowest), lowest);
    EXPECT_EQ(date_to_day_number(2000, 1, highest), highest);
    EXPECT_EQ(date_to_day_number(-4800, 3, lowest), lowest);
    EXPECT_EQ(date_to_day_number(5874898, 6, 4), highest);
    EXPECT_EQ(date_to_day_number(5874898, 6, 2), highest - 1);
}

struct TextRow {
    std::int32_t day_number;
    const char *long_form;
    const char *compact_form;
};

const TextRow text_rows[] = {
    {2451545, "1-jan-2000", "1jan00"},
    {2454106, "5-jan-2007", "5jan07"},
    {2451544, "31-dec-1999", "31dec-01"}, // before 2000 the year is a negative offset
    {2415080, "1-mar-1900", "1mar-100"},
    {2450450, "1-jan-1997", "1jan-03"},
    {2488069, "31-dec-2099", "31dec99"},
    {2488070, "1-jan-2100", "1jan2100"}, // from 2100 on the year is in full
    {2524593, "31-dec-2199", "31dec2199"},
    {1721426, "1-jan-01", "1jan-1999"}, // at least two digits
    {1721119, "29-feb-00", "29feb-2000"},
    {1720694, "31-dec--02", "31dec-2002"},
    {5373484, "31-dec-9999", "31dec9999"},
    {5373485, "1-jan-10000", "1jan10000"},
    {highest, "3-jun-5874898", "3jun5874898"},
    // before the range of the formulas
    {-68600, "0-feb--4900", "0feb-6900"},
    {lowest, "-16-\?\?\?--5884322", "-16\?\?\?-5886322"},
};

class Dates : public tests::InEachLocale {};

INSTANTIATE_TEST_SUITE_P(Locales, Dates, tests::each_locale(), tests::locale_label);

TEST_P(Dates, AreWrittenInBothForms)
{
    for (const TextRow &row : text_rows) {
        EXPECT_EQ(formatted(format_date_long, row.day_number), row.long_form) << row.day_number;
        EXPECT_EQ(formatted(format_date_compact, row.day_number), row.compact_form)
            << row.day_number;
    }
}

TEST(DateTexts, NameEveryMonth)
{
    for (int month = 1; month <= 12; ++month) {
        const std::string name = month_names[month];
        const std::int32_t day_number = date_to_day_number(2012, month, 20);
        EXPECT_EQ(formatted(format_date_long, day_number), "20-" + name + "-2012");
        EXPECT_EQ(formatted(format_date_compact, day_number), "20" + name + "12");
    }
}

TEST(DateTexts, ShowQuestionMarksForMonthsOutOfRange)
{
    int unknown_low = 0, unknown_high = 0;
    for (std::int32_t day_number = -800000; day_number < -32044; ++day_number) {
        const std::int32_t month = date_of(day_number).month;
        const std::string text = formatted(format_date_long, day_number);
        const bool known = month >= 1 && month <= 12;
        const char *shown = known ? month_names[month] : "\?\?\?";
        ASSERT_NE(text.find(shown), std::string::npos) << text;
        unknown_low += month < 1;
        unknown_high += month > 12;
    }
    EXPECT_GT(unknown_low, 0);
    EXPECT_EQ(unknown_high, 0); // the formulas never give one
}

TEST(DateTexts, FitTheStatedSizeForAnyDayNumber)
{
    for (std::int64_t day_number = lowest; day_number <= highest; day_number += 70001) {
        const auto number = static_cast<std::int32_t>(day_number);
        formatted(format_date_long, number);
        formatted(format_date_compact, number);
    }
}

TEST(DateTexts, NeedTheStatedSizeInCommonYears)
{
    std::size_t longest_long = 0, longest_short = 0, longest_later = 0;
    for (std::int32_t day_number = 2451545; day_number < 2524594; ++day_number) { // 2000 to 2199
        const std::size_t size = formatted(format_date_compact, day_number).size() + 1;
        std::size_t &longest = day_number < 2488070 ? longest_short : longest_later;
        longest = std::max(longest, size);
        longest_long = std::max(longest_long, formatted(format_date_long, day_number).size() + 1);
    }
    EXPECT_EQ(longest_long, 12U);
    EXPECT_EQ(longest_short, 8U);
    EXPECT_EQ(longest_later, 10U);
}

struct ParseRow {
    const char *text;
    int read; // in bytes, or -1 for an error
    CalendarDate date;
};

const ParseRow parse_rows[] = {
    {"5JAN2007", 8, {2007, 1, 5}},
    {"5Jan07", 6, {2007, 1, 5}},
    {"05jan07", 7, {2007, 1, 5}},
    {"31dec99", 7, {2099, 12, 31}},
    {"1jan0", 5, {2000, 1, 1}},
    {"29feb07", 7, {2007, 3, 1}}, // the day is not checked against the month
    // text after the year
    {"5jan07 and more", 6, {2007, 1, 5}},
    {"5jan07x", 6, {2007, 1, 5}},
    {"5jan07-", 6, {2007, 1, 5}},
    {"5jan07.5", 6, {2007, 1, 5}},
    // white space may come before the numbers, but not before the month
    {" 5jan07", 7, {2007, 1, 5}},
    {"\t\n\v\f\r 5jan07", 12, {2007, 1, 5}},
    {"5jan 07", 7, {2007, 1, 5}},
    {"5jan \n\t07", 9, {2007, 1, 5}},
    {"5  jan07", -1, {}},
    {"5ja n07", -1, {}},
    // signs
    {"+5jan07", 7, {2007, 1, 5}},
    {"5jan+07", 7, {2007, 1, 5}},
    {"1mar-100", 8, {1900, 3, 1}},
    {"-5jan07", -1, {}},
    {"+-5jan07", -1, {}},
    {"5jan+-07", -1, {}},
    {"5jan- 7", -1, {}},
    // 2000 is added to years up to 1999
    {"5jan1999", 8, {3999, 1, 5}},
    {"5jan2000", 8, {2000, 1, 5}},
    {"5jan100", 7, {2100, 1, 5}},
    {"5jan-2000", 9, {0, 1, 5}},
    {"1jan2100", 8, {2100, 1, 1}},
    // days
    {"1jan07", 6, {2007, 1, 1}},
    {"31jan07", 7, {2007, 1, 31}},
    {"0jan07", -1, {}},
    {"00jan07", -1, {}},
    // months
    {"5xyz07", -1, {}},
    {"5\?\?\?07", -1, {}},
    {"5janu07", -1, {}},
    {"5j\xc1n07", -1, {}},
    {"5\344\366\37407", -1, {}},
    // too short
    {"", -1, {}},
    {"   ", -1, {}},
    {"jan07", -1, {}},
    {"5", -1, {}},
    {"5j", -1, {}},
    {"5ja", -1, {}},
    {"5jan", -1, {}},
    {"5jan ", -1, {}},
    {"5jan+", -1, {}},
    {"5janx7", -1, {}},
    {"+", -1, {}},
    // numbers too large for 32 bits do not wrap
    {"4294967297jan07", -1, {}},
    {"-4294967291jan07", -1, {}},
    {"18446744073709551617jan07", -1, {}},
    {"5jan2147483648", -1, {}},
    {"5jan-2147483649", -1, {}},
    {"4294967297jan-11757221", -1, {}}, // wrapped, this would be a valid date
    {"5jan4294967303", -1, {}},
    {"5jan18446744073709551623", -1, {}},
    {"5jan99999999999999999999999999999999999999", -1, {}},
    // day numbers too large for 32 bits
    {"3jun5874898", 11, {5874898, 6, 3}},
    {"4jun5874898", -1, {}},
    {"5jan2147483647", -1, {}},
    {"5jan-2147483648", -1, {}},
    // leading zeros do not make a number too large
    {"0000000000000000000005jan0000000000000000000007", 47, {2007, 1, 5}},
};

TEST_P(Dates, AreReadFromTheCompactForm)
{
    for (const ParseRow &row : parse_rows) {
        std::int32_t day_number = 4711;
        EXPECT_EQ(parse_date_compact(row.text, &day_number), row.read) << row.text;
        const std::int32_t expected =
            row.read < 0 ? 4711 : date_to_day_number(row.date.year, row.date.month, row.date.day);
        EXPECT_EQ(day_number, expected) << row.text;
    }
}

TEST(DateTexts, AreReadBackFromTheCompactFormForEveryDayFrom1600To2400)
{
    walk_1600_to_2400([](const CalendarDate &date, std::int32_t day_number) {
        const std::string text = formatted(format_date_compact, day_number);
        std::int32_t read_back = 0;
        ASSERT_EQ(parse_date_compact(text.c_str(), &read_back), static_cast<int>(text.size()))
            << date << " " << text;
        ASSERT_EQ(read_back, day_number) << text;
    });
}

TEST_P(Dates, MonthsAreReadByThreeLettersWhichBecomeLowerCase)
{
    const struct {
        const char *text;
        int month;
        const char *left;
    } rows[] = {
        {"jan", 1, "jan"},
        {"FEBRUARY", 2, "febRUARY"},
        {"mArCh", 3, "marCh"},
        {"apr1", 4, "apr1"},
        {"MAY", 5, "may"},
        {"Jun", 6, "jun"},
        {"JuL ", 7, "jul "},
        {"aug", 8, "aug"},
        {"SEPT", 9, "sepT"},
        {"Oct", 10, "oct"},
        {"nOV", 11, "nov"},
        // not months
        {"", 0, ""},
        {"D", 0, "d"},
        {"ABCDEF", 0, "abcDEF"},
        {" JAN", 0, " jaN"},
        {"\?\?\?", 0, "\?\?\?"},
        {"J\xc4N", 0, "j\xc4n"},
        {"\xc4\xd6\xdc", 0, "\xc4\xd6\xdc"},
    };
    for (const auto &row : rows) {
        std::string text = row.text;
        EXPECT_EQ(month_from_name(text.data()), row.month) << row.text;
        EXPECT_EQ(text, row.left) << row.text;
    }
}

TEST(MonthFromName, KnowsTwelveOfAllThreeLetterStrings)
{
    int found[13] = {};
    for (int first = 'a'; first <= 'z'; ++first) {
        for (int second = 'a'; second <= 'z'; ++second) {
            for (int third = 'a'; third <= 'z'; ++third) {
                char text[] = {static_cast<char>(first), static_cast<char>(second),
                               static_cast<char>(third), '\0'};
                const int month = month_from_name(text);
                ASSERT_TRUE(month >= 0 && month <= 12);
                ASSERT_EQ(month > 0, std::strcmp(text, month_names[month]) == 0) << text;
                ++found[month];
            }
        }
    }
    for (int month = 1; month <= 12; ++month)
        EXPECT_EQ(found[month], 1) << month_names[month];
}

// Freezes the time and sets the time zone until the end of the test.
class Today : public testing::Test {
protected:
    void TearDown() override
    {
        time_source = saved_;
        unsetenv("TZ");
        tzset();
    }

    static void freeze(std::time_t now, const char *zone)
    {
        frozen_ = now;
        time_source.time = [] { return frozen_; };
        setenv("TZ", zone, 1);
    }

private:
    TimeSource saved_ = time_source;
    static std::time_t frozen_;
};

std::time_t Today::frozen_;

TEST_F(Today, IsTheLocalDate)
{
    const struct {
        std::time_t now;
        const char *zone;
        CalendarDate date;
    } rows[] = {
        {1167955199, "UTC0", {2007, 1, 4}},
        {1167955200, "UTC0", {2007, 1, 5}}, // 2007-01-05 00:00:00 UTC
        {1168041599, "UTC0", {2007, 1, 5}},
        // five hours west
        {1167955200, "XXX5", {2007, 1, 4}},
        {1167973199, "XXX5", {2007, 1, 4}},
        {1167973200, "XXX5", {2007, 1, 5}},
        // one hour east
        {1167951599, "XXX-1", {2007, 1, 4}},
        {1167951600, "XXX-1", {2007, 1, 5}},
        // other years
        {951782400, "UTC0", {2000, 2, 29}},
        {0, "UTC0", {1970, 1, 1}},
        {0, "XXX1", {1969, 12, 31}},
        {2147483647, "UTC0", {2038, 1, 19}},
    };
    for (const auto &row : rows) {
        freeze(row.now, row.zone);
        EXPECT_EQ(today_day_number(),
                  date_to_day_number(row.date.year, row.date.month, row.date.day))
            << row.now << " in " << row.zone;
    }
}

TEST_F(Today, Is0IfTheDateIsNotAvailable)
{
    if (sizeof(std::time_t) < 8)
        GTEST_SKIP() << "a 32-bit time always has a date";
    freeze(std::numeric_limits<std::time_t>::max(), "UTC0");
    EXPECT_EQ(today_day_number(), 0);
}

TEST_F(Today, DoesNotChangeTheBufferOfLocaltime)
{
    freeze(1167955200, "UTC0");
    const std::time_t other = 0;
    const std::tm *date = std::localtime(&other);
    today_day_number();
    EXPECT_EQ(date->tm_year, 70);
}

TEST(TodayOfTheSystem, IsBetweenTwoReadingsOfTheLocalDate)
{
    const auto local_day = [] {
        const std::time_t now = std::time(nullptr);
        const std::tm *date = std::localtime(&now);
        return date_to_day_number(date->tm_year + 1900, date->tm_mon + 1, date->tm_mday);
    };
    const std::int32_t before = local_day();
    const std::int32_t today = today_day_number();
    EXPECT_LE(before, today);
    EXPECT_LE(today, local_day());
}

} // namespace
} // namespace quintral
