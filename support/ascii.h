// ASCII-only character classes, case mapping, prefixes and number reading, independent of the
// locale. Strings here are bytes, and a plug-in does not control its process's locale: in a Latin-1
// locale, the C library's isalpha accepts byte 0xE4, so a request built with it would differ from
// host to host. Here a byte with the top bit set is never in a class and never mapped.
#ifndef QUINTRAL_SUPPORT_ASCII_H
#define QUINTRAL_SUPPORT_ASCII_H

#include <cstddef>
#include <cstdint>
#include <limits>

namespace quintral {

// True for '0' to '9'.
constexpr bool ascii_is_digit(char c)
{
    return c >= '0' && c <= '9';
}

// True for 'A' to 'Z'.
constexpr bool ascii_is_upper(char c)
{
    return c >= 'A' && c <= 'Z';
}

// True for 'a' to 'z'.
constexpr bool ascii_is_lower(char c)
{
    return c >= 'a' && c <= 'z';
}

// True for a letter of either case.
constexpr bool ascii_is_letter(char c)
{
    return ascii_is_upper(c) || ascii_is_lower(c);
}

// True for a letter or a digit.
constexpr bool ascii_is_letter_or_digit(char c)
{
    return ascii_is_letter(c) || ascii_is_digit(c);
}

// True for the six white-space bytes of the POSIX locale: space, tab, line feed, vertical tab, form
// feed and carriage return.
constexpr bool ascii_is_space(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// Returns the upper-case form of a lower-case letter; any other byte unchanged.
constexpr char ascii_to_upper(char c)
{
    return ascii_is_lower(c) ? static_cast<char>(c - 'a' + 'A') : c;
}

// Returns the lower-case form of an upper-case letter; any other byte unchanged.
constexpr char ascii_to_lower(char c)
{
    return ascii_is_upper(c) ? static_cast<char>(c - 'A' + 'a') : c;
}

// Returns the position after the prefix if text begins with it, ignoring letter case; or null.
// Requires: both are terminated.
constexpr const char *ascii_skip_prefix(const char *text, const char *prefix)
{
    for (; *prefix != '\0'; ++prefix, ++text) {
        if (ascii_to_lower(*text) != ascii_to_lower(*prefix))
            return nullptr;
    }
    return text;
}

// True if the byte is in the terminated string `set`. The terminator is not.
constexpr bool ascii_is_one_of(char c, const char *set)
{
    while (*set != '\0' && *set != c)
        ++set;
    return c != '\0' && *set == c;
}

// Returns the length of the text before its first byte that is in `stops`, or of all of it. Not
// strcspn: that and strspn lie in a part of the C library that a check for an update would touch
// for nothing else.
// Requires: both are terminated.
constexpr std::size_t ascii_length_before(const char *text, const char *stops)
{
    std::size_t length = 0;
    while (text[length] != '\0' && !ascii_is_one_of(text[length], stops))
        ++length;
    return length;
}

// Returns the length of what the text begins with that has only bytes of `set`.
// Requires: both are terminated.
constexpr std::size_t ascii_length_of(const char *text, const char *set)
{
    std::size_t length = 0;
    while (ascii_is_one_of(text[length], set))
        ++length;
    return length;
}

// Reads a whole string of digits as a number from 0 to highest. Leading zeros are allowed; a sign
// or a space is not.
//
// Returns the number, or -1 for an empty string, any other byte, and a larger number.
// Requires: text is terminated; highest is not negative.
constexpr std::int32_t ascii_read_digits(const char *text, std::int32_t highest)
{
    if (*text == '\0')
        return -1;
    std::int64_t number = 0;
    for (; *text != '\0'; ++text) {
        if (!ascii_is_digit(*text))
            return -1;
        number = number * 10 + (*text - '0');
        if (number > highest)
            return -1;
    }
    return static_cast<std::int32_t>(number);
}

// Reads a decimal number as scanf's "%d" does: white space, an optional sign, digits.
//
// Returns the position after the last digit, with the number in *value; or null, with 0 in *value,
// if there is no digit. For a number outside the 32-bit range, *value is some out-of-range number
// of the same sign, so the caller can reject it.
// Requires: text is terminated; value is not null.
constexpr const char *ascii_scan_wide_int(const char *text, std::int64_t *value)
{
    *value = 0;
    while (ascii_is_space(*text))
        ++text;
    const bool negative = *text == '-';
    if (*text == '-' || *text == '+')
        ++text;
    if (!ascii_is_digit(*text))
        return nullptr;
    constexpr std::int64_t far_enough = std::int64_t{1} << 32;
    for (; ascii_is_digit(*text); ++text) {
        if (*value < far_enough)
            *value = *value * 10 + (*text - '0');
    }
    if (negative)
        *value = -*value;
    return text;
}

// Returns the 32-bit number nearest to a wider one.
constexpr std::int32_t nearest_int32(std::int64_t number)
{
    constexpr std::int64_t lowest = std::numeric_limits<std::int32_t>::min();
    constexpr std::int64_t highest = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(number < lowest    ? lowest
                                     : number > highest ? highest
                                                        : number);
}

// Reads a decimal number as ascii_scan_wide_int does, and as atoi would. A number outside the
// 32-bit range becomes the nearest end of that range on every system; the C library leaves that
// case undefined.
// Returns and requires: see ascii_scan_wide_int.
constexpr const char *ascii_scan_int(const char *text, std::int32_t *value)
{
    std::int64_t number = 0;
    const char *end = ascii_scan_wide_int(text, &number);
    *value = nearest_int32(number);
    return end;
}

// Returns the number that text begins with, as atoi reads it, or 0 if it begins with none.
constexpr std::int32_t ascii_to_int(const char *text)
{
    std::int32_t value = 0;
    ascii_scan_int(text, &value);
    return value;
}

} // namespace quintral

#endif
