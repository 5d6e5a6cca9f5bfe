// Dates as Julian Day Numbers: signed counts of days, so that differences are subtractions. Text
// only at the edges, in the suite's two written forms.
//
// Calendar: Gregorian, also before its introduction. 2000-01-01 is day number 2451545. The formulas
// (Fliegel and Van Flandern, Communications of the ACM 11, 1968, page 657) are each other's inverse
// from day number -32044 on, 1 March of the year -4800. Before, date_to_day_number is off by a day
// or more; before -68569, 1 March of the year -4900, so is day_number_to_date, whose months and
// days leave their ranges farther back, so that texts show "???" for a month. Nothing overflows for
// any argument.
//
//     char text[date_text_size];
//     print_text(format_date_long(today_day_number() + 30, text), "due");
#ifndef QUINTRAL_SUPPORT_DATES_H
#define QUINTRAL_SUPPORT_DATES_H

#include <cstddef>
#include <cstdint>

namespace quintral {

// The month abbreviations at 1 to 12, "jan" to "dec", lower case everywhere; "???" at 0.
extern const char *const month_names[13];

// A buffer of this size in bytes has room for either form of any day number.
constexpr std::size_t date_text_size = 24;

// The day number of a calendar date (year in full). Days out of their range carry over, so 31
// February is 2 or 3 March; so do months 13 and 14, and later ones are off by a day or more, as the
// formula has it. A day number outside the 32-bit range is
// its nearest end.
std::int32_t date_to_day_number(std::int32_t year, std::int32_t month, std::int32_t day);

// The calendar date of a day number, in full in *year, *month and *day.
// Requires: none of the pointers is null.
void day_number_to_date(std::int32_t day_number, std::int32_t *year, std::int32_t *month,
                        std::int32_t *day);

// The day number of the current date in the local time zone; 0 where the system cannot break its
// time down.
std::int32_t today_day_number();

// Writes day, month and year as "1-jan-2000". Returns the buffer.
// Requires: buffer has room for 12 bytes for years 0 to 9999, date_text_size for any day number.
char *format_date_long(std::int32_t day_number, char *buffer);

// Writes day, month and short year as "1jan00". From 2100 on the year is written in full
// ("1jan2100"); one before 2000 is written as what it lacks to 2000, with its sign ("31dec-01" for
// 1999). Returns the buffer.
// Requires: buffer has room for 8 bytes for years 2000 to 2099, 10 up to 9999, date_text_size for
// any day number.
char *format_date_compact(std::int32_t day_number, char *buffer);

// Reads the compact form: a day from 1 to 31, three letters of a month in either case directly
// behind it, a year. Day and year are numbers as scanf's "%d" reads them: white space may stand
// before them, and a sign. A year up to 1999 has 2000 added, one of four digits too: "5jan1999" is
// in 3999. The day is not checked against the month: "31feb07" is 3 March. Text behind is ignored.
//
// Returns the number of bytes read with the day number in *day_number; or -1 with *day_number
// untouched for any other text, for a number too large for 32 bits, and for a date whose day number
// is.
// Requires: day_number is not null.
int parse_date_compact(const char *text, std::int32_t *day_number);

// Reads a month's name by its first three letters, which are put in lower case in the text itself
// (of a shorter text, those there are). Returns 1 to 12, or 0 for no month.
int month_from_name(char *text);

} // namespace quintral

#endif
