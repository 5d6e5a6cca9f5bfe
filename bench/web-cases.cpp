#include "bench/cases.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include <curl/curl.h>
#include <openssl/evp.h>

#include "support/ascii.h"
#include "web/base64.h"
#include "web/form-body.h"

namespace quintral {

namespace {

constexpr std::size_t sizes[] = {8, 64, 1024, 16384, 1048576};

// Base64

std::string bytes_of_any_value(std::size_t size)
{
    std::string bytes;
    unsigned state = 1;
    for (std::size_t i = 0; i < size; ++i) {
        state = state * 1664525 + 1013904223;
        bytes += static_cast<char>(state >> 24);
    }
    return bytes;
}

void simple_base64(const std::string &source, char *out)
{
    static const char alphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    unsigned bits = 0;
    int bit_count = 0;
    int written = 0;
    for (const char c : source) {
        bits = bits << 8 | static_cast<unsigned char>(c);
        for (bit_count += 8; bit_count >= 6; ++written)
            out[written] = alphabet[bits >> (bit_count -= 6) & 63];
    }
    if (bit_count > 0)
        out[written++] = alphabet[bits << (6 - bit_count) & 63];
    while (written % 4 != 0)
        out[written++] = '=';
    out[written] = '\0';
}

void add_base64(BenchCases *cases, std::size_t size)
{
    const std::string source = bytes_of_any_value(size);
    const int n = static_cast<int>(size);
    const std::shared_ptr<std::string> text =
        std::make_shared<std::string>(static_cast<std::size_t>(base64_encoded_length(n)), '\0');
    add_repeated(cases, "base64_encode", "ours", size, [source, n, text] {
        base64_encode(source.data(), n, &(*text)[0]);
        bench_keep(text->data());
    });
    add_repeated(cases, "base64_encode", "openssl", size, [source, n, text] {
        EVP_EncodeBlock(reinterpret_cast<unsigned char *>(&(*text)[0]),
                        reinterpret_cast<const unsigned char *>(source.data()), n);
        bench_keep(text->data());
    });
    add_repeated(cases, "base64_encode", "reference", size, [source, text] {
        simple_base64(source, &(*text)[0]);
        bench_keep(text->data());
    });
}

// Escapes. Letters, digits and spaces are escaped alike by libcurl, which returns a new block, so
// the other sides make one too.

std::string words(std::size_t size)
{
    const std::string text = "Quintral Shapes 5 draws 100 shapes faster than before ";
    std::string bytes;
    while (bytes.size() < size)
        bytes += text;
    return bytes.substr(0, size);
}

void simple_escape(const std::string &source, char *out)
{
    static const char digits[] = "0123456789abcdef";
    for (const char c : source) {
        if (ascii_is_letter_or_digit(c)) {
            *out++ = c;
            continue;
        }
        *out++ = '%';
        *out++ = digits[static_cast<unsigned char>(c) >> 4];
        *out++ = digits[static_cast<unsigned char>(c) & 15];
    }
    *out = '\0';
}

void add_escape(BenchCases *cases, std::size_t size)
{
    const std::string source = words(size);
    add_repeated(cases, "web_escape/words", "ours", size, [source] {
        char *text = static_cast<char *>(std::malloc(3 * source.size() + 1));
        web_escape(text, source.c_str());
        bench_keep(text);
        std::free(text);
    });
    add_repeated(cases, "web_escape/words", "libcurl", size, [source] {
        char *text = curl_easy_escape(nullptr, source.data(), static_cast<int>(source.size()));
        bench_keep(text);
        curl_free(text);
    });
    add_repeated(cases, "web_escape/words", "reference", size, [source] {
        char *text = static_cast<char *>(std::malloc(3 * source.size() + 1));
        simple_escape(source, text);
        bench_keep(text);
        std::free(text);
    });
}

// A form of eight fields, as the update check sends it.

constexpr int form_fields = 8;

std::string escaped_by_libcurl(const std::string &text)
{
    char *escaped = curl_easy_escape(nullptr, text.data(), static_cast<int>(text.size()));
    std::string copy = escaped;
    curl_free(escaped);
    return copy;
}

std::string escaped_simply(const std::string &text)
{
    std::string escaped(3 * text.size() + 1, '\0');
    simple_escape(text, &escaped[0]);
    escaped.resize(std::strlen(escaped.data()));
    return escaped;
}

std::string joined_form(const std::string &value, std::string (*escape)(const std::string &))
{
    std::string body;
    for (int i = 0; i < form_fields; ++i)
        body += (i == 0 ? "" : "&") + escape("product") + "=" + escape(value);
    return body;
}

void add_form(BenchCases *cases, std::size_t size)
{
    const std::string value = words(size / form_fields);
    add_repeated(cases, "web_form_body/words", "ours", size, [value] {
        WebField fields[form_fields];
        for (WebField &field : fields)
            field = {"product", value.c_str()};
        std::string header;
        std::string body;
        web_form_body(form_fields, fields, header, body);
        bench_keep(body.data());
    });
    add_repeated(cases, "web_form_body/words", "libcurl", size,
                 [value] { bench_keep(joined_form(value, escaped_by_libcurl).data()); });
    add_repeated(cases, "web_form_body/words", "reference", size,
                 [value] { bench_keep(joined_form(value, escaped_simply).data()); });
}

} // namespace

void add_web_cases(BenchCases *cases)
{
    for (std::size_t size : sizes) {
        add_base64(cases, size);
        add_escape(cases, size);
    }
    // No value of the form is longer than the bounded escape takes.
    for (std::size_t size : {64U, 1024U, 4096U})
        add_form(cases, size);
}

} // namespace quintral
