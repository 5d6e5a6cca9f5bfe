// Form bodies: the application/x-www-form-urlencoded text that every request of the web client
// carries, the header text that announces it, and the escaping that both rest on.
//
//     const WebField fields[] = {{"a b", "1.5-x"}, {"c", "d"}};
//     std::string header, body;
//     web_form_body(2, fields, header, body);
//     // body is    a%20b=1%2e5%2dx&c=d
//     // header is  Content-Type: application/x-www-form-urlencoded CR LF Content-Length: 19
//
// Escaping: ASCII's letters and digits stay, every other byte becomes '%' and two lower-case
// hexadecimal digits. So a space is %20 and never '+', and '-', '.', '_' and '~', which other
// encoders leave alone, are escaped too; programs of the suite count on these very bytes. Bytes
// 0x80 to 0xFF are ordinary %xx under every locale.
#ifndef QUINTRAL_WEB_FORM_BODY_H
#define QUINTRAL_WEB_FORM_BODY_H

#include <string>

namespace quintral {

// One name and value of a form; both texts are the caller's and terminated. A null one counts as
// empty. A request sends its fields in the order of its array.
struct WebField {
    const char *name;
    const char *value;
};

// Builds a form body and the header text that announces it. Both strings are replaced: body holds
// name=value for each field, joined by '&'; header holds the Content-Type line and, without a line
// ending of its own, the Content-Length line with the body's length in bytes. A field_count of 0 or
// less gives an empty body.
//
// A name or value is cut as web_escape_bounded with limit 1023 cuts it. When memory runs out,
// std::bad_alloc is thrown and both strings are as they were; fields may point into them.
// Requires: fields holds field_count entries.
void web_form_body(int field_count, const WebField *fields, std::string &header, std::string &body);

// Escapes a text of any length. Returns the destination, which holds the result, terminated.
// Requires: source is terminated; destination holds 3 * strlen(source) + 1 bytes; the two do not
// overlap.
char *web_escape(char *destination, const char *source);

// Escapes a text up to a limit. Returns the destination, which holds the result, terminated.
//
// The limit is on a count, not on the bytes written: a letter, a digit and a space (three bytes)
// count 1, any other byte counts 3. The text ends when the count has reached the limit. It also
// ends before a byte that needs an escape when the count is above limit - 3; in that one case the
// output moves on by one byte before the terminator, and that byte keeps what the destination held
// there. A caller that wants the text to end at its last escape clears the destination first. A
// limit of 0 or less gives an empty text.
// Requires: source is terminated; destination holds 3 * limit + 1 bytes, at least 1; the two do
// not overlap.
char *web_escape_bounded(char *destination, const char *source, int limit);

} // namespace quintral

#endif
