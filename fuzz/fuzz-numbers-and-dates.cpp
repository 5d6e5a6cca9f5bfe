// Numbers and dates. Each reader is compared with the C library's, in the range in which that is
// defined; each writer with the reader of what it writes; the calendar with the lengths of its
// months.
//
// An input: cases, each a byte that chooses a kind from the table at the end, then strings, or
// numbers of four bytes, low byte first.
#include "fuzz/fuzz.h"
#include "support/ascii.h"
#include "support/c-utils/transforms.h"
#include "support/dates.h"
#include "tests/support/reference-dates.h"
#include "tests/support/reference-transforms.h"
#include "web/update-check.h"
#include "web/version-update.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <limits>
#include <string>

namespace {

using namespace quintral;
using namespace quintral::fuzz;

// The first day number that gives a date of the calendar: 1-mar in the year -4900.
constexpr std::int32_t first_day = -68569;

// The first day number whose date gives the same day number again: 1-mar in the year -4800.
constexpr std::int32_t first_inverse_day = -32044;

void fuzz_integer(Input *input)
{
    const std::string text = take_text(input);
    const ExactBlock block(text);
    std::int32_t value = -1;
    const char *end = ascii_scan_int(block.data, &value);

    char *library_end = nullptr;
    const long long number = std::strtoll(block.data, &library_end, 10);
    constexpr long long lowest = std::numeric_limits<std::int32_t>::min();
    constexpr long long highest = std::numeric_limits<std::int32_t>::max();
    FUZZ_CHECK(end == (library_end == block.data ? nullptr : library_end));
    FUZZ_CHECK(value == std::clamp(number, lowest, highest));
    FUZZ_CHECK(ascii_to_int(block.data) == value);
}

// The length of the number at the start of a text if it is an ordinary one: up to 7 digits, and an
// exponent of up to 2. Otherwise 0.
std::size_t plain_number_length(const std::string &text)
{
    const auto digits_from = [&text](std::size_t at) {
        const std::size_t end = text.find_first_not_of("0123456789", at);
        return (end == std::string::npos ? text.size() : end) - at;
    };
    const std::size_t sign = !text.empty() && (text[0] == '-' || text[0] == '+') ? 1 : 0;
    const std::size_t whole = digits_from(sign);
    std::size_t end = sign + whole;
    std::size_t fraction = 0;
    if (end < text.size() && text[end] == '.') {
        fraction = digits_from(end + 1);
        end += 1 + fraction;
    }
    if (whole + fraction == 0 || whole + fraction > 7)
        return 0;
    if (end < text.size() && (text[end] == 'e' || text[end] == 'E')) {
        const std::size_t signs = text.find_first_of("+-", end) == end + 1 ? 1 : 0;
        const std::size_t exponent = digits_from(end + 1 + signs);
        if (exponent == 0 || exponent > 2)
            return 0;
        end += 1 + signs + exponent;
    }
    return end;
}

// True if the simple loop gives the same result and, unless it is NaN, the same bits.
bool is_as_the_simple_loop(const char *text, int result, float value)
{
    float expected = value;
    return reference::parse_float(text, &expected) == result &&
           (std::isnan(expected)
                ? std::isnan(value)
                : expected == value && std::signbit(expected) == std::signbit(value));
}

void fuzz_float(Input *input)
{
    const std::string text = take_text(input);
    const ExactBlock block(text);
    const float before = 4711.0F;
    float value = before;
    const int result = parse_float(block.data, &value);
    FUZZ_CHECK(result == 0 || result == 1);
    FUZZ_CHECK(is_as_the_simple_loop(block.data, result, value));

    const std::size_t start = std::min(text.find_first_not_of(white_space), text.size());
    const std::size_t sign = text.find_first_not_of("+-", start) == start ? 0 : 1;
    const std::string number = text.substr(std::min(start + sign, text.size()));
    const bool has_digit =
        std::isdigit(static_cast<unsigned char>(number[0])) != 0 ||
        (number[0] == '.' && std::isdigit(static_cast<unsigned char>(number[1])) != 0);
    FUZZ_CHECK((result == 1) == has_digit);
    if (result == 0) {
        FUZZ_CHECK(value == before);
        return;
    }
    if (!std::isnan(value))
        FUZZ_CHECK(std::signbit(value) == (text[start] == '-'));
    else
        FUZZ_CHECK(number.find_first_of("eE") != std::string::npos); // only an exponent gives NaN
    const std::size_t length = plain_number_length(text.substr(start));
    if (length == 0)
        return;
    const double exact = std::strtod(text.substr(start, length).c_str(), nullptr);
    const double size = std::fabs(exact);
    if (size > 0 && (size < 2e-38 || size > 3e38)) // outside this, a float has fewer digits or none
        return;
    FUZZ_CHECK(std::fabs(static_cast<double>(value) - exact) <= 4e-6 * std::fabs(exact));
}

bool is_leap_year(std::int32_t year)
{
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

std::int32_t month_length(std::int32_t year, std::int32_t month)
{
    static const std::int32_t lengths[] = {0, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && is_leap_year(year) ? 29 : lengths[month];
}

struct Date {
    std::int32_t year;
    std::int32_t month;
    std::int32_t day;
};

Date date_of(std::int32_t day_number)
{
    Date date = {};
    day_number_to_date(day_number, &date.year, &date.month, &date.day);
    return date;
}

void check_calendar(std::int32_t day_number, const Date &date)
{
    FUZZ_CHECK(date.month >= 1 && date.month <= 12);
    FUZZ_CHECK(date.day >= 1 && date.day <= month_length(date.year, date.month));
    if (day_number >= first_inverse_day)
        FUZZ_CHECK(date_to_day_number(date.year, date.month, date.day) == day_number);
    if (day_number == std::numeric_limits<std::int32_t>::max())
        return;
    Date next = date;
    if (++next.day > month_length(date.year, date.month)) {
        next.day = 1;
        next.month = date.month % 12 + 1;
        next.year += date.month == 12 ? 1 : 0;
    }
    const Date found = date_of(day_number + 1);
    FUZZ_CHECK(found.year == next.year && found.month == next.month && found.day == next.day);
}

std::string month_text(std::int32_t month)
{
    return month_names[month >= 1 && month <= 12 ? month : 0];
}

// At least two digits, plus a sign if the year is negative.
std::string year_text(std::int32_t year)
{
    const std::string digits = std::to_string(std::abs(year));
    return (year < 0 ? "-" : "") + std::string(digits.size() < 2 ? 1 : 0, '0') + digits;
}

// The buffer sizes that the header asks for.
std::size_t long_date_size(std::int32_t year)
{
    return year >= 0 && year <= 9999 ? 12 : date_text_size;
}

std::size_t compact_date_size(std::int32_t year)
{
    if (year < 2000 || year > 9999)
        return date_text_size;
    return year <= 2099 ? 8 : 10;
}

void check_texts(std::int32_t day_number, const Date &date)
{
    const ExactBlock long_form(long_date_size(date.year));
    FUZZ_CHECK(format_date_long(day_number, long_form.data) == long_form.data);
    FUZZ_CHECK(holds_text(long_form, std::to_string(date.day) + "-" + month_text(date.month) + "-" +
                                         year_text(date.year)));

    const std::string compact = std::to_string(date.day) + month_text(date.month) +
                                year_text(date.year <= 2099 ? date.year - 2000 : date.year);
    const ExactBlock compact_form(compact_date_size(date.year));
    FUZZ_CHECK(format_date_compact(day_number, compact_form.data) == compact_form.data);
    FUZZ_CHECK(holds_text(compact_form, compact));
    if (day_number < first_inverse_day)
        return;
    std::int32_t read = 0;
    FUZZ_CHECK(parse_date_compact(compact_form.data, &read) == static_cast<int>(compact.size()));
    FUZZ_CHECK(read == day_number);
}

void fuzz_day_number(Input *input)
{
    const std::int32_t day_number = take_int32(input);
    const Date date = date_of(day_number);
    Date expected = {};
    reference::day_number_to_date(day_number, &expected.year, &expected.month, &expected.day);
    FUZZ_CHECK(date.year == expected.year && date.month == expected.month &&
               date.day == expected.day);
    if (day_number >= first_day)
        check_calendar(day_number, date);
    check_texts(day_number, date);
}

// Any three numbers give a day number. In a moderate range, adding days adds that many to it.
void fuzz_date(Input *input)
{
    const std::int32_t year = take_int32(input);
    const std::int32_t month = take_int32(input);
    const std::int32_t day = take_int32(input);
    const std::int32_t day_number = date_to_day_number(year, month, day);
    FUZZ_CHECK(day_number == reference::date_to_day_number(year, month, day));
    const std::int32_t small_year = year % 100000;
    const std::int32_t small_day = day % 1000000;
    FUZZ_CHECK(date_to_day_number(small_year, month % 100, small_day) -
                   date_to_day_number(small_year, month % 100, 1) ==
               small_day - 1);
    if (year > -4800 && year < 5000000 && month >= 1 && month <= 12 && day >= 1 &&
        day <= month_length(year, month)) {
        const Date date = date_of(day_number);
        FUZZ_CHECK(date.year == year && date.month == month && date.day == day);
    }
}

// The month that three letters name, or 0.
int month_of(const std::string &letters)
{
    static const std::string names = "jan feb mar apr may jun jul aug sep oct nov dec";
    if (letters.size() != 3 || letters.find(' ') != std::string::npos)
        return 0;
    const std::size_t at = names.find(lower_case(letters));
    return at == std::string::npos ? 0 : static_cast<int>(at / 4) + 1;
}

void fuzz_date_text(Input *input)
{
    const std::string text = take_text(input);
    const ExactBlock block(text);
    const std::int32_t before = 4711;
    std::int32_t day_number = before;
    const int result = parse_date_compact(block.data, &day_number);
    FUZZ_CHECK(result == -1 || (result >= 5 && result <= static_cast<int>(text.size())));
    if (result == -1)
        FUZZ_CHECK(day_number == before);
    if (longest_digit_run(text) > 6)
        return;

    int day = 0;
    char letters[4] = "";
    int year = 0;
    int length = 0;
    const int items = std::sscanf(text.c_str(), "%d%3c%d%n", &day, letters, &year, &length);
    const int month = month_of(letters);
    if (items != 3 || day < 1 || day > 31 || month == 0) {
        FUZZ_CHECK(result == -1);
        return;
    }
    FUZZ_CHECK(result == length);
    FUZZ_CHECK(day_number == date_to_day_number(year <= 1999 ? year + 2000 : year, month, day));
}

void fuzz_month_name(Input *input)
{
    const std::string text = take_text(input);
    const ExactBlock block(text);
    const std::string letters = text.substr(0, 3);
    FUZZ_CHECK(month_from_name(block.data) == month_of(letters));
    FUZZ_CHECK(holds_text(block, lower_case(letters) + text.substr(letters.size())));
}

// Digits, with single points between digits.
bool looks_like_version(const std::string &text)
{
    return !text.empty() && text.find_first_not_of("0123456789.") == std::string::npos &&
           text.front() != '.' && text.back() != '.' && text.find("..") == std::string::npos;
}

// The order of two strings that web_compare_versions accepts.
int order_of(const char *first, const char *second)
{
    int order = 2;
    FUZZ_CHECK(web_compare_versions(first, second, &order) == 0);
    FUZZ_CHECK(order >= -1 && order <= 1);
    return order;
}

void check_product_version(const std::string &text)
{
    const float before = 4711.5F;
    float version = before;
    const int result = web_read_product_version(text.c_str(), &version);
    FUZZ_CHECK(result == 0 || result == -1);
    if (result != 0) {
        FUZZ_CHECK(version == before);
        return;
    }
    const std::size_t dot = text.find('.');
    FUZZ_CHECK(looks_like_version(text) && text.find('.', dot + 1) == std::string::npos);
    FUZZ_CHECK(dot == std::string::npos || text.size() - dot <= 4);
    FUZZ_CHECK(version == std::strtof(text.c_str(), nullptr));
    char sent[64];
    FUZZ_CHECK(order_of(text.c_str(), web_format_version(version, sent, sizeof sent)) == 0);
}

void fuzz_versions(Input *input)
{
    const std::string texts[] = {take_text(input), take_text(input), take_text(input)};
    const ExactBlock blocks[] = {ExactBlock(texts[0]), ExactBlock(texts[1]), ExactBlock(texts[2])};
    bool comparable = true;
    for (int i = 0; i < 3; ++i) {
        int order = 2;
        const bool is_version = web_compare_versions(blocks[i].data, blocks[i].data, &order) == 0;
        FUZZ_CHECK(is_version == looks_like_version(texts[i]));
        FUZZ_CHECK(order == (is_version ? 0 : 2));
        comparable = comparable && is_version;
        check_product_version(texts[i]);
    }
    if (!comparable)
        return;
    const int order = order_of(blocks[0].data, blocks[1].data);
    FUZZ_CHECK(order == -order_of(blocks[1].data, blocks[0].data));
    if (order == order_of(blocks[1].data, blocks[2].data))
        FUZZ_CHECK(order == order_of(blocks[0].data, blocks[2].data));
    const std::string longer = texts[0] + ".1";
    if (std::count(longer.begin(), longer.end(), '.') > 1)
        FUZZ_CHECK(order_of(longer.c_str(), blocks[0].data) > 0);
}

void fuzz_version_text(Input *input)
{
    const float version = take_float(input);
    const ExactBlock buffer(1 + take_byte(input) % 64);
    FUZZ_CHECK(web_format_version(version, buffer.data, buffer.size) == buffer.data);
    char whole[64];
    const int length = std::snprintf(whole, sizeof whole, "%.3f", static_cast<double>(version));
    FUZZ_CHECK(length > 0 && length < 64);
    FUZZ_CHECK(holds_text(buffer, std::string(whole).substr(0, buffer.size - 1)));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    static constexpr Case kinds[] = {
        fuzz_integer,      // '0'
        fuzz_float,        // '1'
        fuzz_day_number,   // '2'
        fuzz_date,         // '3'
        fuzz_date_text,    // '4'
        fuzz_month_name,   // '5'
        fuzz_versions,     // '6'
        fuzz_version_text, // '7'
    };
    Input input = {bytes, size};
    run_cases(&input, kinds, '0');
    return 0;
}
