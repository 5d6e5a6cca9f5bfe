// The conversions of dates that the library speeds up, as their formulas state them: what the
// results must be. Tests, the fuzz targets and the benchmarks compare the library with them.
#ifndef QUINTRAL_TESTS_SUPPORT_REFERENCE_DATES_H
#define QUINTRAL_TESTS_SUPPORT_REFERENCE_DATES_H

#include "support/ascii.h"
#include "support/dates.h"

#include <cstdint>
#include <cstdio>

namespace quintral::reference {

inline std::int32_t date_to_day_number(std::int64_t year, std::int64_t month, std::int64_t day)
{
    const std::int64_t a = (14 - month) / 12;
    const std::int64_t y = year - a;
    return nearest_int32(1461 * (y + 4800) / 4 + 367 * (month + 12 * a - 2) / 12 -
                         3 * ((y + 4900) / 100) / 4 + day - 32075);
}

inline void day_number_to_date(std::int64_t day_number, std::int32_t *year, std::int32_t *month,
                               std::int32_t *day)
{
    std::int64_t l = day_number + 68569;
    const std::int64_t n = 4 * l / 146097;
    l = l - (146097 * n + 3) / 4;
    const std::int64_t i = 4000 * (l + 1) / 1461001;
    l = l - 1461 * i / 4 + 31;
    const std::int64_t j = 80 * l / 2447;
    *day = static_cast<std::int32_t>(l - 2447 * j / 80);
    l = j / 11;
    *month = static_cast<std::int32_t>(j + 2 - 12 * l);
    *year = static_cast<std::int32_t>(100 * (n - 49) + i + l);
}

inline const char *month_text(std::int32_t month)
{
    return month_names[month >= 1 && month <= 12 ? month : 0];
}

inline char *format_date_long(std::int32_t day_number, char (&buffer)[date_text_size])
{
    std::int32_t year = 0, month = 0, day = 0;
    reference::day_number_to_date(day_number, &year, &month, &day);
    std::snprintf(buffer, sizeof buffer, "%d-%s-%.2d", day, month_text(month), year);
    return buffer;
}

inline char *format_date_compact(std::int32_t day_number, char (&buffer)[date_text_size])
{
    std::int32_t year = 0, month = 0, day = 0;
    reference::day_number_to_date(day_number, &year, &month, &day);
    if (year <= 2099)
        year -= 2000;
    std::snprintf(buffer, sizeof buffer, "%d%s%.2d", day, month_text(month), year);
    return buffer;
}

} // namespace quintral::reference

#endif
