#include "web/base64.h"

#include <cstdint>

namespace quintral {

namespace {

// Four characters for three bytes, the first byte in the highest bits.
char *append_group(char *out, unsigned first, unsigned second, unsigned third)
{
    static const char alphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const unsigned bits = first << 16 | second << 8 | third;
    *out++ = alphabet[bits >> 18];
    *out++ = alphabet[bits >> 12 & 63];
    *out++ = alphabet[bits >> 6 & 63];
    *out++ = alphabet[bits & 63];
    return out;
}

unsigned byte_of(char c)
{
    return static_cast<unsigned char>(c);
}

} // namespace

int base64_encoded_length(int n)
{
    return static_cast<int>((std::int64_t{n} + 2) / 3 * 4);
}

void base64_encode(const char *source, int n, char *destination)
{
    char *out = destination;
    for (; n >= 3; n -= 3, source += 3)
        out = append_group(out, byte_of(source[0]), byte_of(source[1]), byte_of(source[2]));
    if (n == 2) {
        out = append_group(out, byte_of(source[0]), byte_of(source[1]), 0);
        out[-1] = '=';
    }
    if (n == 1) {
        out = append_group(out, byte_of(source[0]), 0, 0);
        out[-1] = out[-2] = '=';
    }
    *out = '\0';
}

} // namespace quintral
