// Making strings from an unencrypted connection safe to show. A terminal interprets control bytes,
// and bidirectional controls change the order in which text appears; an attacker on the network
// could exploit either.
//
// Unsafe are: control bytes other than line feed and tab, DEL, the C1 controls U+0080 to U+009F,
// the bidirectional controls U+061C, U+200E, U+200F, U+202A to U+202E and U+2066 to U+2069, and
// every byte that is not part of well-formed UTF-8 (Unicode 15, table 3-7).
#ifndef QUINTRAL_TOOL_SAFE_TEXT_H
#define QUINTRAL_TOOL_SAFE_TEXT_H

#include <cstddef>
#include <string>

namespace quintral {

// The longest text of a line on standard error, in bytes: as much of a message as the suite's
// message handlers show.
constexpr std::size_t safe_line_limit = 1003;

// Returns the text with each byte of unsafe characters as "\xHH", HH in upper case. Line feeds and
// tabs are kept.
std::string safe_text(const char *text);

// The same for text that must stay on one line: line feeds become "\x0A", and the result is
// truncated to safe_line_limit bytes, never within a character or an escape.
std::string safe_line(const char *text);

// Returns the text as a JSON string (RFC 8259) with its quotation marks. Unsafe characters become
// "\u00xx" or "\uxxxx" in lower case, each ill-formed byte "\ufffd", line feed and tab "\n" and
// "\t".
std::string json_string(const char *text);

} // namespace quintral

#endif
