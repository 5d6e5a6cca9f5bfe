// safe_text, safe_line and json_string in their simplest form: character by character, each piece a
// string. The tests and a fuzz target compare the utility's own with these.
#ifndef QUINTRAL_TESTS_TOOL_SIMPLE_SAFE_TEXT_H
#define QUINTRAL_TESTS_TOOL_SIMPLE_SAFE_TEXT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace quintral::tests {

// One character at the start of a text; or one byte, if no well-formed character begins there.
struct SimpleCharacter {
    std::string bytes;
    std::uint32_t code_point = 0xFFFD;
    bool well_formed = false;
};

// The number of bytes that a lead byte announces, 0 for any other byte; no row of the table of
// well-formed UTF-8 has another.
inline std::size_t simple_length(unsigned lead)
{
    if (lead < 0x80)
        return 1;
    if (lead < 0xC2 || lead > 0xF4)
        return 0;
    return lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

inline SimpleCharacter simple_first_character(const std::string &text)
{
    constexpr std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    SimpleCharacter ill_formed = {text.substr(0, 1)};
    const unsigned lead = static_cast<unsigned char>(text[0]);
    const std::size_t length = simple_length(lead);
    if (length == 0 || length > text.size())
        return ill_formed;
    std::uint32_t code_point = length == 1 ? lead : lead & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        const unsigned byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x80 || byte > 0xBF)
            return ill_formed;
        code_point = code_point * 64 + (byte - 0x80);
    }
    const bool surrogate = code_point >= 0xD800 && code_point <= 0xDFFF;
    if (code_point < smallest[length] || surrogate || code_point > 0x10FFFF)
        return ill_formed;
    return {text.substr(0, length), code_point, true};
}

inline bool simple_is_safe(const SimpleCharacter &character)
{
    const std::uint32_t c = character.code_point;
    const bool control = (c < 0x20 && c != '\n' && c != '\t') || (c >= 0x7F && c <= 0x9F);
    const bool bidirectional = c == 0x061C || c == 0x200E || c == 0x200F ||
                               (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
    return character.well_formed && !control && !bidirectional;
}

inline std::string simple_escape(const char *format, std::uint32_t number)
{
    char escape[16];
    std::snprintf(escape, sizeof escape, format, static_cast<unsigned>(number));
    return escape;
}

inline std::string simple_make_safe(std::string text, bool one_line, std::size_t limit)
{
    std::string result;
    while (!text.empty()) {
        const SimpleCharacter character = simple_first_character(text);
        std::string piece = character.bytes;
        if (!simple_is_safe(character) || (one_line && character.code_point == '\n')) {
            piece.clear();
            for (const char c : character.bytes)
                piece += simple_escape("\\x%02X", static_cast<unsigned char>(c));
        }
        if (result.size() + piece.size() > limit)
            break;
        result += piece;
        text.erase(0, character.bytes.size());
    }
    return result;
}

inline std::string simple_safe_text(const std::string &text)
{
    return simple_make_safe(text, false, std::string::npos);
}

inline std::string simple_safe_line(const std::string &text)
{
    return simple_make_safe(text, true, 1003);
}

inline std::string simple_json_piece(const SimpleCharacter &character)
{
    switch (character.code_point) {
    case '\n':
        return "\\n";
    case '\t':
        return "\\t";
    case '"':
    case '\\':
        return "\\" + character.bytes;
    default:
        return simple_is_safe(character) ? character.bytes
                                         : simple_escape("\\u%04x", character.code_point);
    }
}

inline std::string simple_json_string(std::string text)
{
    std::string result = "\"";
    while (!text.empty()) {
        const SimpleCharacter character = simple_first_character(text);
        result += simple_json_piece(character);
        text.erase(0, character.bytes.size());
    }
    return result + "\"";
}

} // namespace quintral::tests

#endif
