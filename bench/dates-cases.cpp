// Dates beside the calendar of the C++ library (C++20, which only this file is compiled as) and
// fmt. The sizes count the dates that one call converts.
#include "bench/cases.h"

#include "support/dates.h"
#include "tests/support/reference-dates.h"

#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>

#include <fmt/format.h>

namespace quintral {

namespace {

constexpr std::size_t sizes[] = {100, 10000};
constexpr std::int32_t first = 2440588 - 20000; // 1915

// The peer's conversions as functions like ours. They are calls as ours are: inlined into the loop
// of the benchmark, several dates would be converted at once.

constexpr std::int32_t epoch = 2440588; // 1970-01-01

[[gnu::noinline]] std::int32_t chrono_to_day_number(std::int32_t year, std::int32_t month,
                                                    std::int32_t day)
{
    const std::chrono::year_month_day date{std::chrono::year{year},
                                           std::chrono::month{static_cast<unsigned>(month)},
                                           std::chrono::day{static_cast<unsigned>(day)}};
    return static_cast<std::int32_t>(std::chrono::sys_days{date}.time_since_epoch().count()) +
           epoch;
}

[[gnu::noinline]] void chrono_to_date(std::int32_t day_number, std::int32_t *year,
                                      std::int32_t *month, std::int32_t *day)
{
    const std::chrono::year_month_day date{
        std::chrono::sys_days{std::chrono::days{day_number - epoch}}};
    *year = static_cast<int>(date.year());
    *month = static_cast<std::int32_t>(static_cast<unsigned>(date.month()));
    *day = static_cast<std::int32_t>(static_cast<unsigned>(date.day()));
}

// fmt converts no day numbers, so the conversion is chrono's.
char *fmt_date_long(std::int32_t day_number, char *buffer)
{
    std::int32_t year = 0, month = 0, day = 0;
    chrono_to_date(day_number, &year, &month, &day);
    *fmt::format_to(buffer, "{}-{}-{:02}", day, month_names[month], year) = '\0';
    return buffer;
}

char *fmt_date_compact(std::int32_t day_number, char *buffer)
{
    std::int32_t year = 0, month = 0, day = 0;
    chrono_to_date(day_number, &year, &month, &day);
    *fmt::format_to(buffer, "{}{}{:02}", day, month_names[month],
                    year <= 2099 ? year - 2000 : year) = '\0';
    return buffer;
}

char *reference_date_long(std::int32_t day_number, char *buffer)
{
    char text[date_text_size];
    return std::strcpy(buffer, reference::format_date_long(day_number, text));
}

char *reference_date_compact(std::int32_t day_number, char *buffer)
{
    char text[date_text_size];
    return std::strcpy(buffer, reference::format_date_compact(day_number, text));
}

using ToDayNumber = std::int32_t (*)(std::int32_t, std::int32_t, std::int32_t);

std::int32_t reference_to_day_number(std::int32_t year, std::int32_t month, std::int32_t day)
{
    return reference::date_to_day_number(year, month, day);
}

void add_to_day_number(BenchCases *cases, const char *side, ToDayNumber convert)
{
    for (const std::size_t size : sizes) {
        cases->push_back({"date_to_day_number", side, size, [=] {
                              for (std::size_t i = 0; i < size; ++i) {
                                  const auto n = static_cast<std::int32_t>(i);
                                  bench_keep(convert(1900 + n % 256, 1 + n % 8, 1 + n % 16));
                              }
                          }});
    }
}

using ToDate = void (*)(std::int32_t, std::int32_t *, std::int32_t *, std::int32_t *);

void reference_to_date(std::int32_t day_number, std::int32_t *year, std::int32_t *month,
                       std::int32_t *day)
{
    reference::day_number_to_date(day_number, year, month, day);
}

void add_to_date(BenchCases *cases, const char *side, ToDate convert)
{
    for (const std::size_t size : sizes) {
        cases->push_back({"day_number_to_date", side, size, [=] {
                              std::int32_t year = 0, month = 0, day = 0;
                              for (std::size_t i = 0; i < size; ++i) {
                                  convert(first + static_cast<std::int32_t>(i), &year, &month,
                                          &day);
                                  bench_keep(day);
                              }
                          }});
    }
}

using Format = char *(*)(std::int32_t, char *);

void add_format(BenchCases *cases, const char *routine, const char *side, Format format)
{
    for (const std::size_t size : sizes) {
        cases->push_back({routine, side, size, [=] {
                              char buffer[date_text_size];
                              for (std::size_t i = 0; i < size; ++i) {
                                  format(first + static_cast<std::int32_t>(i), buffer);
                                  bench_keep(*buffer);
                              }
                          }});
    }
}

} // namespace

void add_dates_cases(BenchCases *cases)
{
    add_to_day_number(cases, "ours", date_to_day_number);
    add_to_day_number(cases, "reference", reference_to_day_number);
    add_to_day_number(cases, "chrono", chrono_to_day_number);
    add_to_date(cases, "ours", day_number_to_date);
    add_to_date(cases, "reference", reference_to_date);
    add_to_date(cases, "chrono", chrono_to_date);
    add_format(cases, "format_date_long", "ours", format_date_long);
    add_format(cases, "format_date_long", "reference", reference_date_long);
    add_format(cases, "format_date_long", "fmt", fmt_date_long);
    add_format(cases, "format_date_compact", "ours", format_date_compact);
    add_format(cases, "format_date_compact", "reference", reference_date_compact);
    add_format(cases, "format_date_compact", "fmt", fmt_date_compact);
}

} // namespace quintral
