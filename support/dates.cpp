#include "support/dates.h"

#include <ctime>

#include "support/ascii.h"
#include "support/time-source.h"

namespace quintral {

const char *const month_names[13] = {"???", "jan", "feb", "mar", "apr", "may", "jun",
                                     "jul", "aug", "sep", "oct", "nov", "dec"};

namespace {

constexpr int month_name_length = 3;

// The formula, in 64 bits: its products overflow 32 bits long before its results do.
std::int64_t wide_day_number(std::int64_t year, std::int64_t month, std::int64_t day)
{
    const std::int64_t a = (14 - month) / 12; // 1 in January and February: they end the old year
    const std::int64_t y = year - a;
    return 1461 * (y + 4800) / 4 + 367 * (month + 12 * a - 2) / 12 - 3 * ((y + 4900) / 100) / 4 +
           day - 32075;
}

// Its inverse.
void wide_date(std::int64_t day_number, std::int32_t *year, std::int32_t *month, std::int32_t *day)
{
    std::int64_t l = day_number + 68569;
    const std::int64_t n = 4 * l / 146097; // centuries; 146097 days are 400 years
    l = l - (146097 * n + 3) / 4;
    const std::int64_t i = 4000 * (l + 1) / 1461001; // years; 1461001 / 4000 is just above 365.25
    l = l - 1461 * i / 4 + 31;
    const std::int64_t j = 80 * l / 2447; // months counted from March; 2447 / 80 is their length
    *day = static_cast<std::int32_t>(l - 2447 * j / 80);
    l = j / 11;
    *month = static_cast<std::int32_t>(j + 2 - 12 * l);
    *year = static_cast<std::int32_t>(100 * (n - 49) + i + l);
}

// The same for common dates: nothing is negative, and every product but one fits into 32 bits.
// Their years begin on 1 March, and their year 0 is the year -4800.

constexpr std::int32_t first_common_year = -4800;
constexpr std::int32_t first_common_day = -32044; // 1 March of that year
constexpr std::uint32_t common_years = 1U << 21;
constexpr std::uint32_t common_days = 1U << 28;

// Day numbers of the first of each month in common year 0, which ends with January and February.
constexpr std::int32_t month_starts[12] = {
    first_common_day + 306, first_common_day + 337, first_common_day,       first_common_day + 31,
    first_common_day + 61,  first_common_day + 92,  first_common_day + 122, first_common_day + 153,
    first_common_day + 184, first_common_day + 214, first_common_day + 245, first_common_day + 275};

// Takes a year of the calendar less the first one; month and day are counted from 0.
std::int32_t common_day_number(std::uint32_t year, std::uint32_t month, std::uint32_t day)
{
    const std::uint32_t y = month < 2 ? year - 1 : year;
    const std::uint32_t century = y / 100;
    return static_cast<std::int32_t>(1461 * y / 4 - century + century / 4 + day) +
           month_starts[month];
}

// Takes a day number less the first one. C. Neri and L. Schneider, "Euclidean affine functions and
// their application to calendar algorithms", Software: Practice and Experience 53, 2023: a quotient
// and its remainder come from one product, whose upper bits are the year or month, and whose lower
// bits are the share of it that has passed.
void common_date(std::uint32_t days, std::int32_t *year, std::int32_t *month, std::int32_t *day)
{
    const std::uint32_t quarters = 4 * days + 3; // 146097 of them are a century
    const std::uint32_t century = quarters / 146097;
    // 2939745 is 2^32 / 1461, rounded up; 2141 is 2^16 / 30.6, the length of a month, rounded down.
    // 197913 is 3 * 2^16, for March, plus 1305: with 1049 to 1305 each month has its own days.
    const std::uint64_t years = std::uint64_t{2939745} * (quarters % 146097 | 3);
    const std::uint32_t day_of_year = static_cast<std::uint32_t>(years) / 2939745 / 4;
    const std::uint32_t months = 2141 * day_of_year + 197913; // from March, which is month 3
    *day = static_cast<std::int32_t>((months & 0xFFFF) / 2141 + 1);
    std::int32_t y = static_cast<std::int32_t>(100 * century) + first_common_year +
                     static_cast<std::int32_t>(years >> 32);
    std::int32_t m = static_cast<std::int32_t>(months >> 16);
    if (day_of_year >= 306) { // January or February
        ++y;
        m -= 12;
    }
    *year = y;
    *month = m;
}

} // namespace

std::int32_t date_to_day_number(std::int32_t year, std::int32_t month, std::int32_t day)
{
    const std::uint32_t y =
        static_cast<std::uint32_t>(year) - static_cast<std::uint32_t>(first_common_year);
    const std::uint32_t m = static_cast<std::uint32_t>(month) - 1U;
    const std::uint32_t d = static_cast<std::uint32_t>(day) - 1U;
    // The year is not 0: its January and February belong to the year before.
    if (y - 1 < common_years && m < 12 && d < 31)
        return common_day_number(y, m, d);
    return nearest_int32(wide_day_number(year, month, day));
}

void day_number_to_date(std::int32_t day_number, std::int32_t *year, std::int32_t *month,
                        std::int32_t *day)
{
    const std::uint32_t days =
        static_cast<std::uint32_t>(day_number) - static_cast<std::uint32_t>(first_common_day);
    if (days < common_days)
        common_date(days, year, month, day);
    else
        wide_date(day_number, year, month, day);
}

std::int32_t today_day_number()
{
    const std::time_t now = time_source.time();
    std::tm date = {};
    // Not localtime: its buffer is shared, and the caller may be using its content. localtime_r
    // does not have to call tzset.
    tzset();
    if (localtime_r(&now, &date) == nullptr)
        return 0;
    return nearest_int32(
        wide_day_number(std::int64_t{date.tm_year} + 1900, date.tm_mon + 1, date.tm_mday));
}

namespace {

// Writes a number as printf's "%.*d" does, without a terminator. Returns the end.
char *write_number(char *out, std::int32_t number, int least_digits)
{
    std::uint32_t rest = static_cast<std::uint32_t>(number);
    if (number < 0) {
        *out++ = '-';
        rest = 0 - rest;
    }
    char digits[10];
    int count = 0;
    for (; rest > 0 || count < least_digits; rest /= 10)
        digits[count++] = static_cast<char>('0' + rest % 10);
    while (count > 0)
        *out++ = digits[--count];
    return out;
}

// Writes a string without its terminator. Returns the end.
char *write_text(char *out, const char *text)
{
    while (*text != '\0')
        *out++ = *text++;
    return out;
}

// Writes a date with its terminator. The bytes are written one by one, not by snprintf: a caller's
// buffer may be shorter than date_text_size, and a checking C library aborts if the size that it is
// given is larger than the buffer, even if the text fits.
void write_date(char *out, const char *separator, std::int32_t day, std::int32_t month,
                std::int32_t year)
{
    out = write_number(out, day, 1);
    out = write_text(out, separator);
    out = write_text(out, month_names[month >= 1 && month <= 12 ? month : 0]);
    out = write_text(out, separator);
    out = write_number(out, year, 2);
    *out = '\0';
}

} // namespace

char *format_date_long(std::int32_t day_number, char *buffer)
{
    std::int32_t year = 0, month = 0, day = 0;
    day_number_to_date(day_number, &year, &month, &day);
    write_date(buffer, "-", day, month, year);
    return buffer;
}

char *format_date_compact(std::int32_t day_number, char *buffer)
{
    std::int32_t year = 0, month = 0, day = 0;
    day_number_to_date(day_number, &year, &month, &day);
    // Readers of the short form add 2000 to any year up to 1999, so a year before 2000 is written
    // as a negative number.
    if (year <= 2099)
        year -= 2000;
    write_date(buffer, "", day, month, year);
    return buffer;
}

namespace {

// Returns the month whose name the text begins with, ignoring letter case, or 0 for none.
int leading_month(const char *text)
{
    for (int month = 1; month <= 12; ++month) {
        if (ascii_skip_prefix(text, month_names[month]) != nullptr)
            return month;
    }
    return 0;
}

} // namespace

int parse_date_compact(const char *text, std::int32_t *day_number)
{
    std::int64_t day = 0;
    const char *position = ascii_scan_wide_int(text, &day);
    if (position == nullptr || day < 1 || day > 31)
        return -1;
    const int month = leading_month(position);
    if (month == 0)
        return -1;
    std::int64_t year = 0;
    position = ascii_scan_wide_int(position + month_name_length, &year);
    if (position == nullptr)
        return -1;
    if (year <= 1999)
        year += 2000;
    // This rejects every year outside 32 bits too.
    const std::int64_t number = wide_day_number(year, month, day);
    if (number != nearest_int32(number))
        return -1;
    *day_number = static_cast<std::int32_t>(number);
    return static_cast<int>(position - text);
}

int month_from_name(char *text)
{
    for (int i = 0; i < month_name_length && text[i] != '\0'; ++i)
        text[i] = ascii_to_lower(text[i]);
    return leading_month(text);
}

} // namespace quintral
