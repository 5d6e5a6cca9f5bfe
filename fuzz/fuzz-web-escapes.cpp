// The form escapes. What web_escape writes can be decoded to the original, web_escape_bounded stops
// at its limit, and web_form_body joins fields escaped in this way. Destinations have exactly the
// size that the header asks for.
//
// An input: a 16-bit limit, low byte first, then strings, all of which are fields of the form.
#include "fuzz/fuzz.h"
#include "web/form-body.h"

#include <algorithm>
#include <string>
#include <vector>

namespace {

using namespace quintral;
using namespace quintral::fuzz;

constexpr int field_limit = 1023;

bool occurs_in_escaped_text(char c)
{
    return c == '%' || is_letter_or_digit(c);
}

std::string escape(const std::string &text)
{
    const ExactBlock source(text);
    const ExactBlock destination(3 * text.size() + 1);
    FUZZ_CHECK(web_escape(destination.data, source.data) == destination.data);
    FUZZ_CHECK(std::memchr(destination.data, '\0', destination.size) != nullptr);
    std::string escaped = destination.data;
    FUZZ_CHECK(std::all_of(escaped.begin(), escaped.end(), occurs_in_escaped_text));
    FUZZ_CHECK(without_escapes(escaped, "%", "0123456789abcdef") == text);
    FUZZ_CHECK(escaped.size() >= text.size());
    return escaped;
}

// How much of a text a bounded escape takes, and whether it then skips one byte of its output.
struct Extent {
    std::size_t taken;
    bool skips_byte;
};

Extent bounded_extent(const std::string &text, int limit)
{
    int count = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (count >= limit)
            return {i, false};
        if (!is_letter_or_digit(text[i]) && limit - count < 3)
            return {i, true};
        count += is_letter_or_digit(text[i]) || text[i] == ' ' ? 1 : 3;
    }
    return {text.size(), false};
}

void fuzz_bounded(const std::string &text, int limit)
{
    const ExactBlock source(text);
    const ExactBlock destination(limit > 0 ? 3 * static_cast<std::size_t>(limit) + 1 : 1);
    FUZZ_CHECK(web_escape_bounded(destination.data, source.data, limit) == destination.data);

    const Extent extent = bounded_extent(text, limit);
    std::string expected = escape(text.substr(0, extent.taken));
    if (extent.skips_byte)
        expected += ExactBlock::fill_byte; // the destination's old byte
    FUZZ_CHECK(holds_text(destination, expected));
}

std::string escaped_field(const std::string &text)
{
    return escape(text.substr(0, bounded_extent(text, field_limit).taken));
}

void fuzz_form(const std::vector<std::string> &texts)
{
    std::vector<WebField> fields;
    std::string expected;
    for (std::size_t i = 0; i + 1 < texts.size(); i += 2) {
        fields.push_back({texts[i].c_str(), texts[i + 1].c_str()});
        expected +=
            (i == 0 ? "" : "&") + escaped_field(texts[i]) + "=" + escaped_field(texts[i + 1]);
    }
    std::string header = "left from before";
    std::string body = "left from before";
    web_form_body(static_cast<int>(fields.size()), fields.data(), header, body);
    FUZZ_CHECK(body == expected);
    FUZZ_CHECK(header == "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
                             std::to_string(expected.size()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    Input input = {bytes, size};
    const int limit = take_int16(&input) % 2048;
    std::vector<std::string> texts;
    do {
        texts.push_back(take_text(&input));
    } while (input.left > 0);
    for (const std::string &text : texts) {
        escape(text);
        fuzz_bounded(text, limit);
    }
    fuzz_form(texts);
    return 0;
}
