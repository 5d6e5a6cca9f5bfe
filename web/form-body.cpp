#include "web/form-body.h"

#include "support/ascii.h"

namespace quintral {

namespace {

constexpr int field_limit = 1023;

char *append_escaped_byte(char *out, char c)
{
    static const char digits[] = "0123456789abcdef";
    if (ascii_is_letter_or_digit(c)) {
        *out++ = c;
        return out;
    }
    const unsigned byte = static_cast<unsigned char>(c);
    *out++ = '%';
    *out++ = digits[byte >> 4];
    *out++ = digits[byte & 15];
    return out;
}

// Escapes up to a limit, without a terminator. Returns the end of the output; *skips_byte says
// whether it is followed by the byte that a truncated value skips.
char *escape_up_to(char *out, const char *source, int limit, bool *skips_byte)
{
    *skips_byte = false;
    int count = 0;
    for (; *source != '\0' && count < limit; ++source) {
        const bool plain = ascii_is_letter_or_digit(*source);
        if (!plain && count > limit - 3) {
            *skips_byte = true;
            break;
        }
        out = append_escaped_byte(out, *source);
        // Deliberate: a space counts 1 although it takes three bytes. Existing programs depend on
        // where their values are truncated.
        count += plain || *source == ' ' ? 1 : 3;
    }
    return out;
}

// A skipped byte is left out: nothing of an earlier field can be sent in its place.
void append_escaped(std::string &body, const char *value)
{
    char escaped[3 * field_limit]; // three bytes for each counted unit
    bool skips_byte = false;
    if (value != nullptr)
        body.append(escaped, escape_up_to(escaped, value, field_limit, &skips_byte));
}

} // namespace

void web_form_body(int field_count, const WebField *fields, std::string &header, std::string &body)
{
    std::string new_body;
    for (int i = 0; i < field_count; ++i) {
        if (i > 0)
            new_body += '&';
        append_escaped(new_body, fields[i].name);
        new_body += '=';
        append_escaped(new_body, fields[i].value);
    }
    std::string new_header = "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: ";
    new_header += std::to_string(new_body.size());

    header.swap(new_header);
    body.swap(new_body);
}

char *web_escape(char *destination, const char *source)
{
    char *out = destination;
    for (; *source != '\0'; ++source)
        out = append_escaped_byte(out, *source);
    *out = '\0';
    return destination;
}

char *web_escape_bounded(char *destination, const char *source, int limit)
{
    bool skips_byte = false;
    char *out = escape_up_to(destination, source, limit, &skips_byte);
    if (skips_byte)
        ++out; // deliberate: the byte keeps its old value
    *out = '\0';
    return destination;
}

} // namespace quintral
