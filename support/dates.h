// Dates as Julian Day Numbers: signed counts of days, so that the distance between two dates is a
// subtraction; and their conversion from and to two text forms.
//
// Calendar: Gregorian, extended to dates before its introduction. 2000-01-01 is day number 2451545.
// The formulas (Fliegel and Van Flandern, Communications of the ACM 11, 1968, page 657) are
// inverses of each other from day number -32044 (1 March of the year -4800) on. Before that,
// date_to_day_number is off by a day or more. Before -68569 (1 March of the year -4900),
// day_number_to_date is too; for still earlier dates its months and days leave their ranges, and
// formatted dates show "???" for the month. No argument causes an overflow.
//
//     char text[date_text_size];
//     print_text(format_date_long(today_day_number() + 30, text), "due");
#ifndef QUINTRAL_SUPPORT_DATES_H
#define QUINTRAL_SUPPORT_DATES_H

#include <cstddef>
#include <cstdint>

#pragma GCC visibility push(default) // exported from a shared library
namespace quintral {

// Month abbreviations in lower case: "jan" to "dec" at 1 to 12, "???" at 0.
extern const char *const month_names[13];

// Size in bytes of a buffer that can hold either form of any day number.
constexpr std::size_t date_text_size = 24;

// Returns the day number of a calendar date, with the year in full. Out-of-range days carry over
// (31 February is 2 or 3 March), as do months 13 and 14; later months are off by a day or more. A
// day number outside the 32-bit range becomes the nearest end of that range.
std::int32_t date_to_day_number(std::int32_t year, std::int32_t month, std::int32_t day);

// Stores the calendar date of a day number in *year (in full), *month and *day.
// Requires: none of the pointers is null.
void day_number_to_date(std::int32_t day_number, std::int32_t *year, std::int32_t *month,
                        std::int32_t *day);

// Returns the day number of the current date in the local time zone, or 0 if the system cannot
// convert the current time to a date.
std::int32_t today_day_number();

// Writes day, month and year as "1-jan-2000". Returns the buffer.
// Requires: buffer is at least 12 bytes long for years 0 to 9999, date_text_size for any day
// number.
char *format_date_long(std::int32_t day_number, char *buffer);

// Writes day, month and short year as "1jan00". From 2100 on the year is written in full
// ("1jan2100"); a year before 2000 is written as its (negative) offset from 2000 ("31dec-01" for
// 1999). Returns the buffer.
// Requires: buffer is at least 8 bytes long for years 2000 to 2099, 10 up to 9999, date_text_size
// for any day number.
char *format_date_compact(std::int32_t day_number, char *buffer);

// Parses the compact form: a day from 1 to 31, immediately followed by a three-letter month name in
// any case, then a year. Day and year are read as by scanf's "%d": each may start with white space
// and a sign. A year up to 1999 has 2000 added, even if it has four digits: "5jan1999" is in 3999.
// The day is not checked against the month: "31feb07" is 3 March. Anything after the year is
// ignored.
//
// Returns the number of bytes read, with the day number in *day_number; or -1, with *day_number
// unchanged, for any other text, or if a number or the resulting day number does not fit into 32
// bits.
// Requires: text is terminated; day_number is not null.
int parse_date_compact(const char *text, std::int32_t *day_number);

// Recognises a month by its first three letters. Changes up to three letters of the text itself to
// lower case. Returns 1 to 12, or 0 if they do not name a month.
int month_from_name(char *text);

} // namespace quintral
#pragma GCC visibility pop

#endif
