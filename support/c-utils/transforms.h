// String transforms: copies with a change, escaping for web addresses, insertion, replacement,
// words, searches without regard to case, plausibility tests, number parsing, colours and ranges.
//
// Texts are NUL-terminated strings of 8-bit bytes. Letters, digits, white space and case are those
// of ASCII whatever locale the host program has set: a byte with the top bit set is in no class and
// never mapped. Nothing here allocates: the caller supplies every destination and guarantees its
// room, which each function states for a source of n bytes. Null pointers are the caller's fault.
// docs/strings-dates-clocks.md shows each routine with examples and its surprises.
//
//     char word[64]; // text is at most 63 bytes long
//     for (int n = 0; nth_word(text, n, word) >= 0; ++n)
//         print_text(word, "word");
#ifndef QUINTRAL_SUPPORT_C_UTILS_TRANSFORMS_H
#define QUINTRAL_SUPPORT_C_UTILS_TRANSFORMS_H

#include <cstddef>
#include <cstdint>

namespace quintral {

// Copies
//
// Each walks its source, writes the destination, terminates it and returns it; what differs from
// that is said. The destination may be the source itself unless that is said otherwise; else the
// two do not overlap.

// Copies a string whose first byte is its length, 0 to 255: that byte and as many as it says. No
// terminator is written. Returns the destination. (The destination comes first here.)
// Requires: source holds 1 + length bytes, destination has room for them.
char *copy_length_prefixed(char *destination, const char *source);

// Escapes a text for a web address: letters, digits and "$-_.+!*()," are copied, each other byte
// becomes '%' and two characters. The second of them is the byte's low four bits as an upper-case
// hexadecimal digit, the first its high four bits; but from 0x80 on, where no web address should
// hold a byte, the first is '.', '+', '!', '*', '(', ')' or ',' for the high bits 0x8 to 0xE, and a
// NUL for 0xF, which ends the result for any reader. That is deliberate: programs of the suite
// compare addresses by exactly these bytes.
// Requires: destination has room for 3n + 1 bytes and is not the source.
char *url_escape(const char *source, char *destination);

// Copies with every letter in lower case. Always returns 0.
// Requires: destination has room for n + 1 bytes; so it is for all copies below but one.
int copy_lower_case(const char *source, char *destination);

// Copies with every letter in upper case.
char *copy_upper_case(const char *source, char *destination);

// Copies without ' ' and '_'.
char *copy_without_spaces_and_underscores(const char *source, char *destination);

// Copies without '.'.
char *copy_without_full_stops(const char *source, char *destination);

// Copies without ' '.
char *copy_without_spaces(const char *source, char *destination);

// Copies with a ' ' in place of each line feed and each carriage return.
char *line_breaks_to_spaces(const char *source, char *destination);

// Copies without leading ' 's and with one ' ' for each run of them; one at the end stays. Other
// white space is copied as it is.
char *collapse_spaces(const char *source, char *destination);

// Copies with a ' ' in place of each '_'.
char *underscores_to_spaces(const char *source, char *destination);

// Copies with a '_' in place of each ' '.
char *spaces_to_underscores(const char *source, char *destination);

// Copies with every '%' written twice, so that the result prints as the source when it is used as a
// printf format.
// Requires: destination has room for 2n + 1 bytes and is not the source.
char *double_percents(const char *source, char *destination);

// Copies without '_', the first byte and the first behind each run of '_' in upper case, the others
// unchanged: "foo__bar_" gives "FooBar".
char *snake_to_camel(const char *source, char *destination);

// Copies letters, digits and '_' only.
char *copy_identifier_chars(const char *source, char *destination);

// Copies up to, and without, the first byte from the second on that is '_', ' ' or an upper-case
// letter: "fooBar" gives "foo", "ABC" gives "A".
char *cut_at_word_break(const char *source, char *destination);

// Changes in place and by parts

// Makes the white space of a text regular, in place: each white-space byte becomes a ' '; leading
// ones go; of a run one stays, two behind a '.'. One at the end of the text stays too.
void normalise_spaces(char *text);

// Inserts a text into another at an offset in bytes, and says so on standard output:
// "insert_string_into_string: %s \n" with the whole new text. An offset below 0 or behind the end
// changes nothing and prints
// "insert_string_into_string: bad location %d, into_string length %d \n". Both lines go past the
// diagnostics, since harnesses of the suite look for them on standard output.
// Returns what that print returned: the bytes printed, or a negative value.
// Requires: into has room for strlen(into) + strlen(insert) + 1 bytes; insert is not part of it.
std::int32_t insert_string_into_string(const char *insert, char *into, std::int32_t location);

// Copies a text with each occurrence of another replaced, from left to right and without looking at
// what was put in. An empty find occurs nowhere.
// Requires: destination has room for the result with its terminator, and does not overlap
// replacement or find. It may be the source where replacement is no longer than find.
void replace_all(const char *find, const char *replacement, const char *source, char *destination);

// Words

// Copies word n of a text, counted from 0 (a negative n counts as 0). Words stand apart by runs of
// blanks, tabs, line feeds and backslashes. Returns the word's offset in the text in bytes; or -1
// with an empty destination where there are not so many words.
//
// A text of 2048 bytes or more is a fault of the program and ends it (abort).
// Requires: destination has room for the word and a terminator. It may be the text itself.
std::int32_t nth_word(const char *text, std::int32_t n, char *destination);

// Counts the bytes before the first white-space byte, or all of them where there is none.
std::size_t word_length(const char *text);

// Finds the first occurrence of a pattern, letters being the same in both cases. Returns a pointer
// into the text; null where there is none, and for an empty pattern or an empty text (unlike
// strstr).
const char *find_ignoring_case(const char *text, const char *pattern);

// Compares the words that two texts begin with, each up to white space or its end. The sign is that
// of the second against the first, the reverse of strcmp, and callers sort by it.
//
// Returns 0 for equal words; -1 where the second is the beginning of the first, 1 where the first
// is that of the second; otherwise the second's byte minus the first's at the first difference,
// both as signed 8-bit values.
std::int32_t compare_words(const char *first, const char *second);

// Plausibility and numbers

// Says whether a text may be an e-mail address: 1 for one that holds, behind leading white space,
// at least 6 bytes, an '@' and a '.' (anywhere); and for one with nothing there, since an empty
// field is no wrong address. Otherwise 0.
int looks_like_email(const char *text);

// Reads a number in single precision: white space, a sign, digits with one '.' among them, then
// perhaps 'e' or 'E' and an exponent as atoi reads it (so that a blank may stand before it). Text
// behind the number is ignored.
//
// Returns 1 with the number in *result; or 0 with *result untouched where there is no digit before
// the exponent. Every step rounds to single precision, as the suite's files expect: a digit before
// the point makes value * 10 + digit; one behind it makes the scale 0.1 times smaller and adds
// digit * scale; only the exponent multiplies in double precision by a power of ten. The result is
// therefore not always the nearest float, but it has the same bits in every build. "-0" gives the
// negative zero; what is too large gives infinity, and an infinite power of ten times 0 ("0e999"),
// or an infinite number times a vanished one, NaN.
// Requires: result is not null.
int parse_float(const char *text, float *result);

// Colours and ranges

// Packs a colour into 0x00RRGGBB. Each channel on its own: 0 below 0 and for NaN, 255 above 1,
// otherwise the integer part of channel * 255 + 0.5, worked out without rounding.
std::uint32_t pack_rgb(float red, float green, float blue);

// Takes a colour 0x00RRGGBB apart: each channel's 8 bits times 1/255 in single precision. The high
// byte is ignored. pack_rgb gives the same colour back.
// Requires: none of the pointers is null.
void unpack_rgb(std::uint32_t value, float *red, float *green, float *blue);

// Maps x from one range to another in proportion, in single precision, and keeps it within the
// second: below to_low gives to_low, above to_high gives to_high. Where from_low equals from_high
// the result is the smaller of to_low and to_high. A NaN, and infinities that meet in the
// computation, give NaN or one of the bounds.
// Requires: to_low <= to_high, or the result is not within the range.
float map_clamped(float x, float from_low, float from_high, float to_low, float to_high);

} // namespace quintral

#endif
