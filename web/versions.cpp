#include "web/update-check.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "support/ascii.h"
#include "web/version-update.h"

namespace quintral {

namespace {

const char *skip_digits(const char *text)
{
    while (ascii_is_digit(*text))
        ++text;
    return text;
}

// Removes the next part, up to a point or the end, from the text; an empty part at the end.
std::string take_part(const char **text)
{
    const char *end = skip_digits(*text);
    std::string part(*text, end);
    *text = *end == '.' ? end + 1 : end;
    return part;
}

int sign(int n)
{
    return (n > 0) - (n < 0);
}

std::string without_leading_zeros(const std::string &digits)
{
    const std::size_t first = digits.find_first_not_of('0');
    return first == std::string::npos ? "" : digits.substr(first);
}

int compare_whole(const std::string &first, const std::string &second)
{
    const std::string a = without_leading_zeros(first);
    const std::string b = without_leading_zeros(second);
    if (a.size() != b.size())
        return a.size() < b.size() ? -1 : 1;
    return sign(a.compare(b));
}

int compare_fractions(std::string first, std::string second)
{
    const std::size_t length = std::max(first.size(), second.size());
    first.resize(length, '0');
    second.resize(length, '0');
    return sign(first.compare(second));
}

// A product version formatted as the query sends it: no leading zeros, three decimal places.
std::string as_sent(const char *text)
{
    const std::string whole = without_leading_zeros(take_part(&text));
    std::string fraction = take_part(&text);
    fraction.resize(3, '0');
    return (whole.empty() ? "0" : whole) + "." + fraction;
}

bool is_version(const char *text)
{
    for (;;) {
        const char *end = skip_digits(text);
        if (end == text)
            return false;
        if (*end == '\0')
            return true;
        if (*end != '.')
            return false;
        text = end + 1;
    }
}

// True for digits, optionally a point and one to three digits.
bool is_product_version(const char *text)
{
    const char *point = skip_digits(text);
    return is_version(text) && (*point == '\0' || *skip_digits(point + 1) == '\0') &&
           std::strlen(point) <= 4;
}

// The nearest float of a product version, if the version is one that a float represents; otherwise
// some float that is not it. Up to 2^53 thousandths the count is exact. Beyond that its rounding
// errors are far smaller than half a step between floats, so a version that is a float is still
// found. Not strtod, which costs many times as much here and expects the decimal point of the host
// program's locale.
float nearest_float(const char *text)
{
    double thousandths = 0;
    int places_left = 3;
    for (bool in_fraction = false; *text != '\0'; ++text) {
        if (*text == '.') {
            in_fraction = true;
            continue;
        }
        thousandths = thousandths * 10 + (*text - '0');
        places_left -= in_fraction ? 1 : 0;
    }
    for (; places_left > 0; --places_left)
        thousandths *= 10;
    return static_cast<float>(thousandths / 1000);
}

} // namespace

int web_compare_versions(const char *first, const char *second, int *order)
{
    if (first == nullptr || second == nullptr || !is_version(first) || !is_version(second))
        return -1;
    *order = compare_whole(take_part(&first), take_part(&second));
    if (*order == 0)
        *order = compare_fractions(take_part(&first), take_part(&second));
    while (*order == 0 && (*first != '\0' || *second != '\0'))
        *order = compare_whole(take_part(&first), take_part(&second));
    return 0;
}

int web_read_product_version(const char *text, float *version)
{
    if (text == nullptr || !is_product_version(text))
        return -1;
    const float number = nearest_float(text);
    char sent[64];
    if (as_sent(text) != web_format_version(number, sent, sizeof sent))
        return -1;
    *version = number;
    return 0;
}

} // namespace quintral
