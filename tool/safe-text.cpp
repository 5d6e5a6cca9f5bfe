#include "tool/safe-text.h"

#include <cstdint>
#include <cstdio>
#include <limits>

namespace quintral {

namespace {

// One character of a text, or one byte that is not part of a character.
struct Unit {
    std::size_t length; // in bytes
    std::uint32_t code_point;
    bool well_formed;
};

bool is_continuation(unsigned char byte)
{
    return (byte & 0xC0) == 0x80;
}

// The length of the sequence that a lead byte begins, with its bits of the code point; 0 for any
// other byte. 0xC0 and 0xC1 could begin only overlong sequences.
std::size_t announced_length(unsigned char lead, std::uint32_t *bits)
{
    if (lead >= 0xC2 && lead <= 0xDF) {
        *bits = lead & 0x1FU;
        return 2;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        *bits = lead & 0x0FU;
        return 3;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        *bits = lead & 0x07U;
        return 4;
    }
    return 0;
}

// False for overlong sequences, surrogates and code points above U+10FFFF.
bool is_encoded_shortest(std::uint32_t code_point, std::size_t length)
{
    if (length == 3)
        return code_point >= 0x800 && (code_point < 0xD800 || code_point > 0xDFFF);
    if (length == 4)
        return code_point >= 0x10000 && code_point <= 0x10FFFF;
    return true;
}

// The first unit of a terminated, non-empty text. The terminator is not a continuation byte, so
// nothing after it is read.
Unit first_unit(const char *text)
{
    const unsigned char lead = static_cast<unsigned char>(text[0]);
    if (lead < 0x80)
        return {1, lead, true};
    std::uint32_t code_point = 0;
    const std::size_t length = announced_length(lead, &code_point);
    for (std::size_t i = 1; i < length; ++i) {
        const unsigned char byte = static_cast<unsigned char>(text[i]);
        if (!is_continuation(byte))
            return {1, lead, false};
        code_point = code_point << 6 | (byte & 0x3FU);
    }
    if (length == 0 || !is_encoded_shortest(code_point, length))
        return {1, lead, false};
    return {length, code_point, true};
}

bool is_bidirectional_control(std::uint32_t c)
{
    return c == 0x061C || c == 0x200E || c == 0x200F || (c >= 0x202A && c <= 0x202E) ||
           (c >= 0x2066 && c <= 0x2069);
}

bool is_safe(const Unit &unit)
{
    const std::uint32_t c = unit.code_point;
    if (!unit.well_formed || (c < 0x20 && c != '\n' && c != '\t') || (c >= 0x7F && c <= 0x9F))
        return false;
    return !is_bidirectional_control(c);
}

std::string hex_escapes(const char *bytes, std::size_t count)
{
    std::string result;
    for (std::size_t i = 0; i < count; ++i) {
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\x%02X",
                      static_cast<unsigned>(static_cast<unsigned char>(bytes[i])));
        result += escape;
    }
    return result;
}

std::string make_safe(const char *text, bool keep_line_feeds, std::size_t limit)
{
    std::string result;
    while (*text != '\0') {
        const Unit unit = first_unit(text);
        const bool shown = is_safe(unit) && (keep_line_feeds || unit.code_point != '\n');
        const std::string piece =
            shown ? std::string(text, unit.length) : hex_escapes(text, unit.length);
        if (piece.size() > limit - result.size())
            break;
        result += piece;
        text += unit.length;
    }
    return result;
}

std::string json_escape(const Unit &unit)
{
    switch (unit.code_point) {
    case '\n':
        return "\\n";
    case '\t':
        return "\\t";
    case '"':
        return "\\\"";
    case '\\':
        return "\\\\";
    default:
        break;
    }
    char escape[8];
    std::snprintf(escape, sizeof escape, "\\u%04x",
                  static_cast<unsigned>(unit.well_formed ? unit.code_point & 0xFFFFU : 0xFFFDU));
    return escape;
}

bool needs_json_escape(const Unit &unit)
{
    const std::uint32_t c = unit.code_point;
    return !is_safe(unit) || c == '"' || c == '\\' || c == '\n' || c == '\t';
}

} // namespace

std::string safe_text(const char *text)
{
    return make_safe(text, true, std::numeric_limits<std::size_t>::max());
}

std::string safe_line(const char *text)
{
    return make_safe(text, false, safe_line_limit);
}

std::string json_string(const char *text)
{
    std::string result = "\"";
    while (*text != '\0') {
        const Unit unit = first_unit(text);
        if (needs_json_escape(unit))
            result += json_escape(unit);
        else
            result.append(text, unit.length);
        text += unit.length;
    }
    return result + "\"";
}

} // namespace quintral
