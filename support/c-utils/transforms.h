// String transforms: copying transforms, URL escaping, insertion, replacement, words,
// case-insensitive search, plausibility tests, number parsing, colours and ranges.
//
// Strings are NUL-terminated and made of 8-bit bytes. Letters, digits, white space and case are
// ASCII-only, independent of the locale: a byte with the top bit set is never in a class and never
// mapped. Nothing here allocates memory: the caller supplies every destination, of the size that
// each function requires for a source of n bytes. No argument may be null.
// docs/strings-dates-clocks.md has examples and pitfalls for each routine.
//
//     char word[64]; // text is at most 63 bytes long
//     for (int n = 0; nth_word(text, n, word) >= 0; ++n)
//         print_text(word, "word");
#ifndef QUINTRAL_SUPPORT_C_UTILS_TRANSFORMS_H
#define QUINTRAL_SUPPORT_C_UTILS_TRANSFORMS_H

#include <cstddef>
#include <cstdint>

#pragma GCC visibility push(default) // exported from a shared library
namespace quintral {

// Copies
//
// Unless noted otherwise, each function reads its source, writes the destination, terminates it and
// returns it, and source and destination may be the same buffer. They must not partially overlap.

// Copies a string whose first byte is its length, 0 to 255: that byte and the given number of
// bytes. No terminator is written. Returns the destination, which is the first argument here.
// Requires: source and destination are at least 1 + length bytes long.
char *copy_length_prefixed(char *destination, const char *source);

// Escapes a string for a URL. Letters, digits and "$-_.+!*()," are copied; each other byte becomes
// '%' followed by its high and low hex digits (upper case). Deliberate quirk: for bytes 0x80-0xEF
// the high digit is replaced by one of . + ! * ( ) , (for the high digits 8 to E, in this order),
// and for 0xF0-0xFF by a NUL, which truncates the result. Existing programs compare URLs by exactly
// these bytes.
// Requires: destination is at least 3n + 1 bytes long and is not the source.
char *url_escape(const char *source, char *destination);

// Copies with every letter in lower case. Always returns 0.
// Requires: destination is at least n + 1 bytes long (this applies to all copies below except
// double_percents).
int copy_lower_case(const char *source, char *destination);

// Copies with every letter in upper case.
char *copy_upper_case(const char *source, char *destination);

// Copies without ' ' and '_'.
char *copy_without_spaces_and_underscores(const char *source, char *destination);

// Copies without '.'.
char *copy_without_full_stops(const char *source, char *destination);

// Copies without ' '.
char *copy_without_spaces(const char *source, char *destination);

// Copies with each line feed and each carriage return replaced by a ' '.
char *line_breaks_to_spaces(const char *source, char *destination);

// Copies without leading spaces and with each run of spaces reduced to one, at the end of the
// string too. Other white space is copied unchanged.
char *collapse_spaces(const char *source, char *destination);

// Copies with each '_' replaced by a ' '.
char *underscores_to_spaces(const char *source, char *destination);

// Copies with each ' ' replaced by a '_'.
char *spaces_to_underscores(const char *source, char *destination);

// Copies with every '%' doubled, so that the result used as a printf format prints the source.
// Requires: destination is at least 2n + 1 bytes long and is not the source.
char *double_percents(const char *source, char *destination);

// Copies without '_', with the first byte and the first byte after each run of '_' in upper case
// and all others unchanged: "foo__bar_" gives "FooBar".
char *snake_to_camel(const char *source, char *destination);

// Copies only letters, digits and '_'.
char *copy_identifier_chars(const char *source, char *destination);

// Copies up to, but not including, the first '_', ' ' or upper-case letter after the first byte:
// "fooBar" gives "foo", "ABC" gives "A".
char *cut_at_word_break(const char *source, char *destination);

// Changes in place, insertion and replacement

// Normalises the white space of a string in place. Each white-space byte becomes a space; leading
// spaces are removed; a run of spaces collapses to one, or to at most two after a '.'. A run at the
// end is collapsed too, not removed.
void normalise_spaces(char *text);

// Inserts a string into another at an offset in bytes, and prints
// "insert_string_into_string: %s \n" with the whole new string on standard output. An offset below
// 0 or after the end changes nothing and prints
// "insert_string_into_string: bad location %d, into_string length %d \n". Both lines bypass the
// diagnostics, because existing test harnesses look for them on standard output.
// Returns the result of that print: the number of bytes printed, or a negative value.
// Requires: into is at least strlen(into) + strlen(insert) + 1 bytes long; insert does not overlap
// it.
std::int32_t insert_string_into_string(const char *insert, char *into, std::int32_t location);

// Copies a string with each occurrence of find replaced, from left to right; the replacements are
// not searched. An empty find never matches.
// Requires: destination is large enough for the result and its terminator, and does not overlap
// replacement or find. It may be the source if replacement is not longer than find.
void replace_all(const char *find, const char *replacement, const char *source, char *destination);

// Words

// Copies word n of a string, counted from 0 (a negative n counts as 0). Words are separated by runs
// of spaces, tabs, line feeds and backslashes. Returns the word's offset in the string in bytes; or
// -1, with an empty destination, if there are fewer words.
//
// A string of 2048 bytes or more is a programming error and calls abort.
// Requires: destination is large enough for the word and a terminator. It may be the string itself.
std::int32_t nth_word(const char *text, std::int32_t n, char *destination);

// Returns the number of bytes before the first white-space byte, or the length if there is none.
std::size_t word_length(const char *text);

// Finds the first occurrence of a pattern, ignoring letter case. Returns a pointer into the text;
// or null if there is none, and for an empty pattern or an empty text (unlike strstr). The time
// grows with the sum of the two lengths, not with their product. A match near the start is found
// early, however long the text is.
const char *find_ignoring_case(const char *text, const char *pattern);

// Compares the first words of two strings, each up to white space or the end. The sign is
// deliberately the reverse of strcmp: callers sort by it.
//
// Returns 0 for equal words; -1 if the second is a proper prefix of the first, 1 if the first is a
// proper prefix of the second; otherwise, at the first difference, the second's byte minus the
// first's, both as signed 8-bit values.
std::int32_t compare_words(const char *first, const char *second);

// Plausibility and numbers

// Returns 1 if a string may be an e-mail address: if, after leading white space, it is at least 6
// bytes long and contains an '@' and a '.' (anywhere). Also returns 1 if nothing follows the white
// space, since an empty field counts as valid. Otherwise returns 0.
int looks_like_email(const char *text);

// Parses a number in single precision: optional white space, an optional sign, digits with at most
// one '.', then optionally 'e' or 'E' and an exponent as atoi reads it (which may start with white
// space). Text after the number is ignored.
//
// Returns 1, with the number in *result; or 0, with *result unchanged, if there is no digit before
// the exponent.
//
// Every step rounds to single precision, as existing files require: a digit before the point gives
// value * 10 + digit; a digit after it multiplies the scale, initially 1, by 0.1 and adds digit *
// scale. Only the exponent is applied in double precision, as a power of ten. The result is
// therefore not always the nearest float, but it has the same bits in every build. "-0" gives
// negative zero. A number that is too large gives infinity. An infinite power of ten times 0
// ("0e999"), or an infinite number times a power of ten that underflows to 0, gives NaN.
// Requires: result is not null.
int parse_float(const char *text, float *result);

// Colours and ranges

// Packs a colour into 0x00RRGGBB. Each channel gives 0 if it is below 0 or NaN, 255 if it is above
// 1, otherwise the integer part of channel * 255 + 0.5, computed without rounding.
std::uint32_t pack_rgb(float red, float green, float blue);

// Unpacks a colour 0x00RRGGBB: each channel is its 8 bits multiplied by 1/255 in single precision.
// The high byte is ignored. pack_rgb of the result gives the same colour.
// Requires: none of the pointers is null.
void unpack_rgb(std::uint32_t value, float *red, float *green, float *blue);

// Maps x linearly from one range to another, in single precision, and clamps the result to the
// second: a result below to_low gives to_low, one above to_high gives to_high. If from_low equals
// from_high, the result is the smaller of to_low and to_high. A NaN argument, or an operation on
// infinities that gives NaN, results in NaN or one of the bounds.
// Requires: to_low <= to_high; otherwise the result is not within the range.
float map_clamped(float x, float from_low, float from_high, float to_low, float to_high);

} // namespace quintral
#pragma GCC visibility pop

#endif
