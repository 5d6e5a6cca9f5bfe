// The check of the JSON object that the utility prints.
#ifndef QUINTRAL_TESTS_TOOL_IS_JSON_LINE_H
#define QUINTRAL_TESTS_TOOL_IS_JSON_LINE_H

#include <algorithm>
#include <cstddef>
#include <string>

namespace quintral::tests::tool {

inline bool take(const std::string &text, std::size_t *at, const std::string &expected)
{
    if (text.compare(*at, expected.size(), expected) != 0)
        return false;
    *at += expected.size();
    return true;
}

inline bool take_some_of(const std::string &text, std::size_t *at, const char *characters,
                         std::size_t most)
{
    const std::size_t end = std::min(text.find_first_not_of(characters, *at), *at + most);
    const bool taken = end > *at;
    *at = end;
    return taken;
}

inline bool take_json_escape(const std::string &text, std::size_t *at)
{
    if (!take(text, at, "u"))
        return take_some_of(text, at, "\"\\/bfnrt", 1);
    const std::size_t start = *at;
    return take_some_of(text, at, "0123456789abcdefABCDEF", 4) && *at == start + 4;
}

inline bool take_json_string(const std::string &text, std::size_t *at)
{
    if (!take(text, at, "\""))
        return false;
    while (*at < text.size()) {
        const char c = text[(*at)++];
        if (c == '"')
            return true;
        if (static_cast<unsigned char>(c) < 0x20)
            return false;
        if (c == '\\' && !take_json_escape(text, at))
            return false;
    }
    return false;
}

inline bool take_json_value(const std::string &text, std::size_t *at)
{
    return take(text, at, "null") || take(text, at, "true") || take(text, at, "false") ||
           take_some_of(text, at, "0123456789", 3) || take_json_string(text, at);
}

// The number of bytes of the well-formed character that a text goes on with, or 0.
inline std::size_t character_length(const std::string &text, std::size_t at)
{
    const auto byte = [&](std::size_t i) {
        return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0U;
    };
    const unsigned lead = byte(0);
    const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    }
    const bool too_short = (lead >= 0x80 && lead < 0xC2) || (lead == 0xE0 && byte(1) < 0xA0) ||
                           (lead == 0xF0 && byte(1) < 0x90);
    const bool too_far = lead > 0xF4 || (lead == 0xF4 && byte(1) > 0x8F);
    const bool surrogate = lead == 0xED && byte(1) > 0x9F;
    return too_short || too_far || surrogate ? 0 : length;
}

inline bool is_utf8(const std::string &text)
{
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t length = character_length(text, at);
        if (length == 0)
            return false;
        at += length;
    }
    return true;
}

// True for exactly one object (RFC 8259) with the eight keys, on one line.
inline bool is_json_line(const std::string &text)
{
    static const char *const keys[] = {"status", "exit_status", "newer",   "version",
                                       "url",    "button",      "message", "error"};
    std::size_t at = 0;
    const char *before = "{";
    for (const char *key : keys) {
        if (!take(text, &at, std::string(before) + "\"" + key + "\":") ||
            !take_json_value(text, &at))
            return false;
        before = ",";
    }
    return is_utf8(text) && take(text, &at, "}\n") && at == text.size();
}

} // namespace quintral::tests::tool

#endif
