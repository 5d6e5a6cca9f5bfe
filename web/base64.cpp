#include "web/base64.h"

#include <cstdint>

namespace quintral {

namespace {

std::uint32_t byte_of(char c)
{
    return static_cast<unsigned char>(c);
}

// Four bytes as a number, the first in the highest bits. Compilers load them all at once.
std::uint32_t four_bytes(const char *source)
{
    return byte_of(source[0]) << 24 | byte_of(source[1]) << 16 | byte_of(source[2]) << 8 |
           byte_of(source[3]);
}

// Four characters for the first three of four bytes, the first byte in the highest bits.
char *append_group(char *out, std::uint32_t bits)
{
    static const char alphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    out[0] = alphabet[bits >> 26];
    out[1] = alphabet[bits >> 20 & 63];
    out[2] = alphabet[bits >> 14 & 63];
    out[3] = alphabet[bits >> 8 & 63];
    return out + 4;
}

} // namespace

int base64_encoded_length(int n)
{
    return static_cast<int>((std::int64_t{n} + 2) / 3 * 4);
}

void base64_encode(const char *source, int n, char *destination)
{
    char *out = destination;
    // Two groups at a time, as long as a fourth byte can be loaded with the second.
    for (; n >= 7; n -= 6, source += 6) {
        out = append_group(out, four_bytes(source));
        out = append_group(out, four_bytes(source + 3));
    }
    if (n > 3) {
        out = append_group(out, four_bytes(source));
        n -= 3;
        source += 3;
    }
    if (n > 0) {
        const std::uint32_t second = n > 1 ? byte_of(source[1]) : 0;
        const std::uint32_t third = n > 2 ? byte_of(source[2]) : 0;
        out = append_group(out, byte_of(source[0]) << 24 | second << 16 | third << 8);
        if (n < 3)
            out[-1] = '=';
        if (n < 2)
            out[-2] = '=';
    }
    *out = '\0';
}

} // namespace quintral
