#include "support/dates.h"

#include <cstdio>
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

} // namespace

std::int32_t date_to_day_number(std::int32_t year, std::int32_t month, std::int32_t day)
{
    return nearest_int32(wide_day_number(year, month, day));
}

void day_number_to_date(std::int32_t day_number, std::int32_t *year, std::int32_t *month,
                        std::int32_t *day)
{
    std::int64_t l = std::int64_t{day_number} + 68569;
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

const char *month_text(std::int32_t month)
{
    return month_names[month >= 1 && month <= 12 ? month : 0];
}

} // namespace

char *format_date_long(std::int32_t day_number, char *buffer)
{
    std::int32_t year = 0, month = 0, day = 0;
    day_number_to_date(day_number, &year, &month, &day);
    std::snprintf(buffer, date_text_size, "%d-%s-%.2d", day, month_text(month), year);
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
    std::snprintf(buffer, date_text_size, "%d%s%.2d", day, month_text(month), year);
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
