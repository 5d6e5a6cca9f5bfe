// find_ignoring_case: compares eight positions at a time by the first and the last byte of the
// pattern. If that leaves too many positions to compare in full, as for "aaab" in "aaaaaa", the
// two-way search takes over, so that the time never grows faster than the lengths.
#include "support/c-utils/transforms.h"

#include <algorithm>
#include <cstring>

#include "support/ascii.h"
#include "support/c-utils/ascii-words.h"

namespace quintral {

namespace {

// Bytes examined before the first growth of a window.
constexpr std::size_t first_window = 256;

// The two-way search takes over when the bytes compared in vain exceed half the bytes passed by
// more than this. Ordinary text stays far below.
constexpr std::size_t patience = 64;

constexpr std::size_t nowhere = static_cast<std::size_t>(-1);

struct Bytes {
    const char *data;
    std::size_t length;
};

bool same_letter(char a, char b)
{
    return a == b || ((a ^ b) == case_bit && ascii_is_letter(a));
}

// The two-way search: M. Crochemore and D. Perrin, "Two-way string-matching", Journal of the ACM
// 38, 1991. Here the order of bytes is that of their lower-case forms.

// Where the pattern is split, and how far it moves after its right half has matched and its left
// half has not.
struct Split {
    std::size_t start; // of the right half
    std::size_t step;
};

// Returns the start of the pattern's largest suffix, in descending order of bytes if `descending`,
// with the period of that suffix in *period.
std::size_t largest_suffix(Bytes pattern, bool descending, std::size_t *period)
{
    std::size_t start = 0;
    *period = 1;
    std::size_t other = 1; // start of a suffix whose first `same` bytes equal those at `start`
    std::size_t same = 0;
    while (other + same < pattern.length) {
        const char a = pattern.data[other + same];
        const char b = pattern.data[start + same];
        if (same_letter(a, b)) {
            ++same;
            if (same == *period) {
                other += *period;
                same = 0;
            }
        } else if (descending == (ascii_to_lower(a) > ascii_to_lower(b))) {
            other += same + 1;
            same = 0;
            *period = other - start;
        } else {
            start = other++;
            same = 0;
            *period = 1;
        }
    }
    return start;
}

Split split_pattern(Bytes pattern)
{
    std::size_t period = 0, descending_period = 0;
    std::size_t start = largest_suffix(pattern, false, &period);
    const std::size_t descending_start = largest_suffix(pattern, true, &descending_period);
    if (descending_start > start) {
        start = descending_start;
        period = descending_period;
    }
    if (std::equal(pattern.data, pattern.data + start, pattern.data + period, same_letter))
        return {start, period};
    return {start, std::max(start, pattern.length - start) + 1};
}

// Returns the offset of the first match that begins at `start` or later, or `nowhere`. Because it
// is the first that counts, nothing has to be remembered about the last step: after a step by the
// period, the left half lies where the right half has matched, so it does not fail a second time.
std::size_t find_two_way(Bytes text, std::size_t start, Bytes pattern)
{
    const Split split = split_pattern(pattern);
    for (std::size_t at = start; at + pattern.length <= text.length;) {
        const char *candidate = text.data + at;
        std::size_t i = split.start;
        while (i < pattern.length && same_letter(pattern.data[i], candidate[i]))
            ++i;
        if (i < pattern.length) {
            at += i - split.start + 1;
            continue;
        }
        if (std::equal(pattern.data, pattern.data + split.start, candidate, same_letter))
            return at;
        at += split.step;
    }
    return nowhere;
}

// Returns the length of the longest common start.
std::size_t matching_bytes(const char *text, Bytes pattern)
{
    std::size_t i = 0;
    while (i < pattern.length && same_letter(text[i], pattern.data[i]))
        ++i;
    return i;
}

// Compares the bytes at the same offset of eight candidates with one byte of the pattern. A byte of
// the result is 0 if it is equal, whatever its case bit.
Word differences(const char *text, Word wanted)
{
    return (load_word(text) | repeated_byte(case_bit)) ^ wanted;
}

Word wanted_word(char c)
{
    return repeated_byte(static_cast<unsigned char>(c | case_bit));
}

// Compares `count` positions one by one. Returns the offset of the first match, or `nowhere`. Adds
// to *compared the bytes compared in vain, and gives up when they exceed the limit.
std::size_t find_among(const char *text, std::size_t count, Bytes pattern, std::size_t limit,
                       std::size_t *compared)
{
    for (std::size_t i = 0; i < count && *compared <= limit; ++i) {
        const std::size_t same = matching_bytes(text + i, pattern);
        if (same == pattern.length)
            return i;
        *compared += same;
    }
    return nowhere;
}

// Returns the offset of the first match, or `nowhere`.
// Requires: the pattern is not empty and not longer than the text.
std::size_t find_in(Bytes text, Bytes pattern)
{
    const Word first = wanted_word(pattern.data[0]);
    const Word last = wanted_word(pattern.data[pattern.length - 1]);
    const char *ends = text.data + pattern.length - 1;
    const std::size_t positions = text.length - pattern.length + 1;
    std::size_t compared = 0;
    if (positions < word_size) {
        constexpr std::size_t no_limit = nowhere;
        return find_among(text.data, positions, pattern, no_limit, &compared);
    }
    for (std::size_t i = 0; i < positions; i += word_size) {
        i = std::min(i, positions - word_size); // the last words may overlap
        if (!has_zero_byte(differences(text.data + i, first) | differences(ends + i, last)))
            continue;
        const std::size_t limit = i / 2 + patience;
        const std::size_t found = find_among(text.data + i, word_size, pattern, limit, &compared);
        if (found != nowhere)
            return i + found;
        if (compared > limit)
            return find_two_way(text, i, pattern);
    }
    return nowhere;
}

// Returns the length of a string, at most `limit`. Reads nothing after its terminator.
std::size_t bounded_length(const char *text, std::size_t limit)
{
    const void *end = std::memchr(text, '\0', limit);
    return end == nullptr ? limit : static_cast<std::size_t>(static_cast<const char *>(end) - text);
}

} // namespace

// Searches a window of the text at a time, so that a match near its start does not cost a pass
// through all of it: programs call this again after each match.
const char *find_ignoring_case(const char *text, const char *pattern)
{
    const Bytes wanted = {pattern, std::strlen(pattern)};
    if (wanted.length == 0)
        return nullptr;
    // At least as long as the pattern, whose last bytes the next window contains again.
    std::size_t window = std::max(first_window, wanted.length);
    for (;;) {
        const std::size_t limit = window + wanted.length - 1;
        const Bytes examined = {text, bounded_length(text, limit)};
        const std::size_t found =
            examined.length < wanted.length ? nowhere : find_in(examined, wanted);
        if (found != nowhere)
            return text + found;
        if (examined.length < limit)
            return nullptr;
        text += window;
        window *= 2;
    }
}

} // namespace quintral
