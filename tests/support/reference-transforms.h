// The transforms that the library speeds up, as simple loops: what the results must be. Tests, the
// fuzz targets and the benchmarks compare the library with them.
#ifndef QUINTRAL_TESTS_SUPPORT_REFERENCE_TRANSFORMS_H
#define QUINTRAL_TESTS_SUPPORT_REFERENCE_TRANSFORMS_H

#include "support/ascii.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace quintral::reference {

inline char *copy_lower_case(const char *source, char *destination)
{
    char *out = destination;
    for (; *source != '\0'; ++source)
        *out++ = ascii_to_lower(*source);
    *out = '\0';
    return destination;
}

inline char *copy_upper_case(const char *source, char *destination)
{
    char *out = destination;
    for (; *source != '\0'; ++source)
        *out++ = ascii_to_upper(*source);
    *out = '\0';
    return destination;
}

inline const char *find_ignoring_case(const char *text, const char *pattern)
{
    if (*pattern == '\0')
        return nullptr;
    for (; *text != '\0'; ++text) {
        if (ascii_skip_prefix(text, pattern) != nullptr)
            return text;
    }
    return nullptr;
}

// strtod is correctly rounded, and without a decimal point its result does not depend on the
// locale.
inline double power_of_ten(std::int32_t n)
{
    constexpr std::int32_t out_of_range = 400; // 1e400 is infinite, 1e-400 is 0
    char text[8];
    std::snprintf(text, sizeof text, "1e%d",
                  static_cast<int>(std::clamp(n, -out_of_range, out_of_range)));
    return std::strtod(text, nullptr);
}

// Reads the number after the sign. Returns false if it has no digit.
inline bool read_unsigned_float(const char *text, float *result)
{
    float value = 0;
    float scale = 1;
    bool in_fraction = false;
    bool has_digit = false;
    for (;; ++text) {
        if (ascii_is_digit(*text)) {
            const float digit = static_cast<float>(*text - '0');
            has_digit = true;
            if (in_fraction) {
                scale = scale * 0.1F;
                value = value + digit * scale;
            } else {
                value = value * 10 + digit;
            }
        } else if (*text == '.' && !in_fraction) {
            in_fraction = true;
        } else {
            break;
        }
    }
    if (*text == 'e' || *text == 'E')
        value =
            static_cast<float>(static_cast<double>(value) * power_of_ten(ascii_to_int(text + 1)));
    *result = value;
    return has_digit;
}

inline int parse_float(const char *text, float *result)
{
    while (ascii_is_space(*text))
        ++text;
    const bool negative = *text == '-';
    if (*text == '-' || *text == '+')
        ++text;
    float value = 0;
    if (!read_unsigned_float(text, &value))
        return 0;
    *result = negative ? -value : value;
    return 1;
}

} // namespace quintral::reference

#endif
