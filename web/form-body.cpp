#include "web/form-body.h"

#include "support/ascii.h"

#include <cstdio>

namespace quintral {

namespace {

constexpr int field_limit = 1023;

// Three bytes for each counted unit, the byte that a truncated value skips, and the terminator.
constexpr int scratch_size = 3 * field_limit + 2;

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

// The scratch is zeroed for every value, so that a byte skipped by truncation is a NUL and nothing
// of an earlier field can be sent in its place.
void append_escaped(std::string &body, const char *value)
{
    char scratch[scratch_size] = {};
    if (value != nullptr)
        body += web_escape_bounded(scratch, value, field_limit);
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
    char length[32];
    std::snprintf(length, sizeof length, "%ld", static_cast<long>(new_body.size()));
    std::string new_header = "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: ";
    new_header += length;

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
    char *out = destination;
    int count = 0;
    for (; *source != '\0' && count < limit; ++source) {
        const bool plain = ascii_is_letter_or_digit(*source);
        if (!plain && count > limit - 3) {
            ++out; // deliberate: the byte keeps its old value
            break;
        }
        out = append_escaped_byte(out, *source);
        // Deliberate: a space counts 1 although it takes three bytes. Existing programs depend on
        // where their values are truncated.
        count += plain || *source == ' ' ? 1 : 3;
    }
    *out = '\0';
    return destination;
}

} // namespace quintral
