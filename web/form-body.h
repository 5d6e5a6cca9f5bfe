// Form bodies: the application/x-www-form-urlencoded body that every request of the web client
// carries, the header lines that announce it, and the escaping that both use.
//
//     const WebField fields[] = {{"a b", "1.5-x"}, {"c", "d"}};
//     std::string header, body;
//     web_form_body(2, fields, header, body);
//     // body is    a%20b=1%2e5%2dx&c=d
//     // header is  Content-Type: application/x-www-form-urlencoded CR LF Content-Length: 19
//
// Escaping: ASCII letters and digits are kept, every other byte becomes '%' and two lower-case
// hexadecimal digits. So a space is %20 and never '+', and '-', '.', '_' and '~', which other
// encoders keep, are escaped too. That is deliberate: existing programs depend on these exact
// bytes. Bytes 0x80 to 0xFF become %xx under every locale.
#ifndef QUINTRAL_WEB_FORM_BODY_H
#define QUINTRAL_WEB_FORM_BODY_H

#include <string>

#pragma GCC visibility push(default) // exported from a shared library
namespace quintral {

// One name and value of a form. Both strings are the caller's; null counts as empty. A request
// sends its fields in array order.
struct WebField {
    const char *name;
    const char *value;
};

// Builds a form body and the header lines that announce it. Both strings are replaced: body holds
// name=value for each field, joined by '&'; header holds the Content-Type line and the
// Content-Length line with the body's length in bytes, the latter without a line ending. A
// field_count of 0 or less gives an empty body.
//
// Names and values are truncated as by web_escape_bounded with limit 1023. When memory runs out,
// std::bad_alloc is thrown and both strings are unchanged. fields may point into them.
// Requires: fields holds field_count entries.
void web_form_body(int field_count, const WebField *fields, std::string &header, std::string &body);

// Escapes a string of any length into the destination. Returns the destination.
// Requires: destination is at least 3 * strlen(source) + 1 bytes long; the two do not overlap.
char *web_escape(char *destination, const char *source);

// Escapes a string up to a limit into the destination. Returns the destination.
//
// The limit is on a count, not on the bytes written: a letter, a digit and a space (three bytes)
// count 1, any other byte counts 3. The result ends when the count has reached the limit. It also
// ends before a byte that needs an escape when the count is above limit - 3; in that case one
// output byte before the terminator is skipped and left unmodified. A caller that wants the result
// to end at its last escape clears the destination first. A limit of 0 or less gives an empty
// string.
// Requires: destination is at least 3 * limit + 1 bytes long, and at least 1; the two do not
// overlap.
char *web_escape_bounded(char *destination, const char *source, int limit);

} // namespace quintral
#pragma GCC visibility pop

#endif
