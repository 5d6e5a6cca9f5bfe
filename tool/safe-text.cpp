#include "tool/safe-text.h"

#include <array>
#include <cstdint>
#include <limits>

namespace quintral {

namespace {

constexpr std::size_t no_limit = std::numeric_limits<std::size_t>::max();

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

// For units that do not begin with an ASCII byte; shown_forms has those.
bool is_safe(const Unit &unit)
{
    return unit.well_formed && unit.code_point > 0x9F && !is_bidirectional_control(unit.code_point);
}

// The forms that a text can get, as bits.
enum Form : unsigned char { TextForm = 1, LineForm = 2, JsonForm = 4 };

// For each ASCII character, the forms that show it unchanged. The terminator has none.
constexpr std::array<unsigned char, 0x80> make_shown_forms()
{
    std::array<unsigned char, 0x80> forms = {};
    for (std::size_t c = 0x20; c < 0x7F; ++c)
        forms[c] = TextForm | LineForm | JsonForm;
    forms['\n'] = TextForm;
    forms['\t'] = TextForm | LineForm;
    forms['"'] = TextForm | LineForm;
    forms['\\'] = TextForm | LineForm;
    return forms;
}

constexpr std::array<unsigned char, 0x80> shown_forms = make_shown_forms();

// Returns the length of the characters at the start of a text that the form shows unchanged, at
// most limit. Runs of them are copied whole: nearly all texts are one run.
std::size_t shown_length(const char *text, Form form, std::size_t limit)
{
    std::size_t length = 0;
    while (length < limit) {
        const unsigned char byte = static_cast<unsigned char>(text[length]);
        if (byte < 0x80) {
            if ((shown_forms[byte] & form) == 0)
                break;
            ++length;
            continue;
        }
        const Unit unit = first_unit(text + length);
        if (!is_safe(unit) || unit.length > limit - length)
            break;
        length += unit.length;
    }
    return length;
}

void append_hex_escapes(std::string *result, const char *bytes, std::size_t count)
{
    static const char digits[] = "0123456789ABCDEF";
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned char byte = static_cast<unsigned char>(bytes[i]);
        const char escape[] = {'\\', 'x', digits[byte >> 4], digits[byte & 0xFU]};
        result->append(escape, sizeof escape);
    }
}

std::string make_safe(const char *text, Form form, std::size_t limit)
{
    constexpr std::size_t escape_length = 4;
    std::string result;
    for (;;) {
        const std::size_t shown = shown_length(text, form, limit - result.size());
        result.append(text, shown);
        text += shown;
        if (*text == '\0')
            return result;
        const Unit unit = first_unit(text);
        const std::size_t capacity = limit - result.size();
        if (shown_length(text, form, unit.length) > 0 || unit.length * escape_length > capacity)
            return result; // the character does not fit, unchanged or escaped
        append_hex_escapes(&result, text, unit.length);
        text += unit.length;
    }
}

void append_json_escape(std::string *result, const Unit &unit)
{
    switch (unit.code_point) {
    case '\n':
        *result += "\\n";
        return;
    case '\t':
        *result += "\\t";
        return;
    case '"':
        *result += "\\\"";
        return;
    case '\\':
        *result += "\\\\";
        return;
    default:
        break;
    }
    static const char digits[] = "0123456789abcdef";
    const std::uint32_t c = unit.well_formed ? unit.code_point : 0xFFFDU;
    const char escape[] = {'\\',
                           'u',
                           digits[c >> 12 & 0xFU],
                           digits[c >> 8 & 0xFU],
                           digits[c >> 4 & 0xFU],
                           digits[c & 0xFU]};
    result->append(escape, sizeof escape);
}

} // namespace

std::string safe_text(const char *text)
{
    return make_safe(text, TextForm, no_limit);
}

std::string safe_line(const char *text)
{
    return make_safe(text, LineForm, safe_line_limit);
}

std::string json_string(const char *text)
{
    std::string result = "\"";
    for (;;) {
        const std::size_t shown = shown_length(text, JsonForm, no_limit);
        result.append(text, shown);
        text += shown;
        if (*text == '\0')
            return result += '"';
        const Unit unit = first_unit(text);
        append_json_escape(&result, unit);
        text += unit.length;
    }
}

} // namespace quintral
