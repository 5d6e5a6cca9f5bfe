// Strings made safe for a terminal and for JSON, beside their simplest form and the escaping of
// another library.
#include "bench/cases.h"

#include <absl/strings/escaping.h>

#include "tests/tool/simple-safe-text.h"
#include "tool/safe-text.h"

namespace quintral {

namespace {

// Whole pieces, so that no character is cut. Plain text fills the rest.
std::string pieces_of(const std::string &piece, std::size_t size)
{
    const std::size_t rest = size % piece.size();
    return repeat_to(piece, size - rest) + std::string(rest, 'x');
}

using Escape = std::string (*)(const std::string &text);

void add_case(BenchCases *cases, const std::string &routine, const char *side,
              const std::string &text, Escape escape)
{
    add_repeated(cases, routine, side, text.size(),
                 [text, escape] { bench_keep(escape(text).data()); });
}

void add_sides(BenchCases *cases, const std::string &kind, const std::string &text)
{
    const auto ours = [](const std::string &t) { return safe_text(t.c_str()); };
    const auto ours_json = [](const std::string &t) { return json_string(t.c_str()); };
    const auto absl = [](const std::string &t) { return absl::Utf8SafeCHexEscape(t); };
    add_case(cases, "safe_text/" + kind, "ours", text, ours);
    add_case(cases, "safe_text/" + kind, "absl", text, absl);
    add_case(cases, "json_string/" + kind, "ours", text, ours_json);
    add_case(cases, "json_string/" + kind, "absl", text, absl);
    if (text.size() > 16384)
        return; // the simplest form copies the rest of the text for each character
    add_case(cases, "safe_text/" + kind, "reference", text,
             [](const std::string &t) { return tests::simple_safe_text(t); });
    add_case(cases, "json_string/" + kind, "reference", text,
             [](const std::string &t) { return tests::simple_json_string(t); });
}

} // namespace

void add_tool_cases(BenchCases *cases)
{
    for (const std::size_t size : {8U, 64U, 1024U, 16384U, 1048576U}) {
        add_sides(cases, "plain", pieces_of("Quintral Shapes 5.2 draws faster. ", size));
        add_sides(cases, "escapes", pieces_of("bell\x07 \x1B[1m", size));
        add_sides(cases, "characters",
                  pieces_of("Gr\xC3\xBC\xC3\x9F"
                            "e \xE2\x82\xAC ",
                            size));
    }
}

} // namespace quintral
