// Texts that came over an unencrypted connection, made safe to show. A terminal acts on control
// bytes, and bidirectional controls make a text read other than it is; whoever sits on the line
// could use either.
//
// Not safe are: the control bytes but line feed and tab, DEL, the C1 controls U+0080 to U+009F, the
// bidirectional controls U+061C, U+200E, U+200F, U+202A to U+202E and U+2066 to U+2069, and every
// byte that does not belong to well-formed UTF-8 (Unicode 15, table 3-7).
#ifndef QUINTRAL_TOOL_SAFE_TEXT_H
#define QUINTRAL_TOOL_SAFE_TEXT_H

#include <cstddef>
#include <string>

namespace quintral {

// The bytes of a line on standard error that are the text, at most: what the message handlers of
// the suite show of a body.
constexpr std::size_t safe_line_limit = 1003;

// The text with each byte of what is not safe as "\xHH", HH in upper case. Line feeds and tabs
// stay.
std::string safe_text(const char *text);

// The same for text that must stay on one line: line feeds appear as "\x0A", and the result is cut
// to safe_line_limit bytes, never inside a character or an escape.
std::string safe_line(const char *text);

// The text as a JSON string (RFC 8259) with its quotation marks. What is not safe appears as
// "\u00xx" or "\uxxxx" in lower case, each ill-formed byte as "\ufffd"; line feed and tab are "\n"
// and "\t".
std::string json_string(const char *text);

} // namespace quintral

#endif
