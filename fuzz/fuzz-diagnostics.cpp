// The diagnostics: message lines, reported messages, log lines and indented output. Each is
// compared, byte by byte, with the text that the header promises.
//
// An input: cases, each a byte that chooses a kind from the table at the end, then what that kind
// takes.
#include "fuzz/fuzz.h"
#include "support/error.h"

#include <algorithm>
#include <string>

namespace {

using namespace quintral;
using namespace quintral::fuzz;

constexpr std::size_t output_capacity = 65536;

// The arguments of the last call of a handler.
std::string seen_text;
std::string seen_tag;
int seen_level = -1;

void see_message(MessageLevel level, const char *text)
{
    seen_level = level;
    seen_text = text;
}

void see_text(const char *text, const char *tag)
{
    seen_text = text;
    seen_tag = tag;
}

MessageLevel take_level(Input *input)
{
    return static_cast<MessageLevel>(take_byte(input) % 16) - 2;
}

MessageLevel shown_level(MessageLevel level)
{
    return level >= Log && level <= FatalError ? level : Warning;
}

// What the message line of a level has before and after the body.
struct LineFrame {
    const char *before;
    const char *after;
};

constexpr LineFrame line_frames[] = {
    {"Log: ", ""},           // Log
    {"", ""},                // Plain
    {"Info: ", ""},          // Info
    {"Note: ", ""},          // Note
    {"Info: ", "\7"},        // InfoBell
    {"Note: ", "\7"},        // NoteBell
    {"\7", ""},              // PlainBell
    {"Alert: ", "\7"},       // Alert
    {"Warning: ", "\7"},     // Warning
    {"Error: ", "\7"},       // Error
    {"Fatal Error: ", "\7"}, // FatalError
};

std::string line_of(MessageLevel level, const std::string &body)
{
    const LineFrame &frame = line_frames[shown_level(level)];
    return frame.before + body + frame.after;
}

// The text without trailing characters of `removed`, truncated to `limit` bytes.
std::string body_of(const std::string &text, const char *removed, std::size_t limit)
{
    const std::size_t last = text.find_last_not_of(removed);
    return text.substr(0, last == std::string::npos ? 0 : last + 1).substr(0, limit);
}

// Sizes start at -16, so that sizes too small for any text are common.
void fuzz_format(Input *input)
{
    const MessageLevel level = take_level(input);
    const int size = static_cast<int>(take_byte(input)) - 16;
    const std::string text = take_text(input);
    const ExactBlock source(text);
    const ExactBlock out(size > 0 ? static_cast<std::size_t>(size) : 0);
    const int length = format_message(level, source.data, out.data, size);
    if (size <= 0) {
        FUZZ_CHECK(length == 0);
        return;
    }
    const std::size_t limit = size > 20 ? out.size - 20 : 0;
    const std::string line = line_of(level, body_of(text, "\n", limit)).substr(0, out.size - 1);
    FUZZ_CHECK(length == static_cast<int>(line.size()));
    FUZZ_CHECK(holds_text(out, line));
}

void fuzz_report(Input *input)
{
    const MessageLevel level = take_level(input);
    const std::string text = take_text(input);
    const ExactBlock source(text);
    const MessageHandler previous = set_message_handler(see_message);
    const std::int32_t before = message_count();
    seen_level = -1;
    seen_text.clear();
    report_message(level, "%s", source.data);
    FUZZ_CHECK(set_message_handler(previous) == see_message);

    FUZZ_CHECK(message_count() - before == 1);
    FUZZ_CHECK(seen_level == (level == Log ? -1 : shown_level(level)));
    FUZZ_CHECK(seen_text == (level == Log ? "" : text.substr(0, 1023)));
}

// A log line starts with the date, whose length is constant; the rest of its length is the text's.
void fuzz_log(Input *input)
{
    const std::string tag = take_text(input);
    const std::string text = take_text(input);
    const ExactBlock source(text);
    static const int length_without_text = log_message("");
    FUZZ_CHECK(log_message(source.data) ==
               length_without_text + static_cast<int>(body_of(text, "\r\n", 4056).size()));

    const PrintHandler previous = set_print_handler(see_text);
    seen_text.clear();
    seen_tag.clear();
    print_text(source.data, tag.c_str());
    FUZZ_CHECK(set_print_handler(previous) == see_text);
    FUZZ_CHECK(seen_text == text);
    FUZZ_CHECK(seen_tag == (text.empty() ? "" : tag));
}

// Usually the input's string; sometimes many copies of it, to reach the output's limit of 64 KiB.
std::string take_long_text(Input *input)
{
    const bool is_long = take_byte(input) % 16 == 15;
    const std::string text = take_text(input);
    std::string repeated = text;
    while (is_long && !text.empty() && repeated.size() < output_capacity + 64)
        repeated += text;
    return repeated;
}

std::string indented(const std::string &text, std::size_t indent)
{
    std::string output(indent, '.');
    for (std::size_t i = 0; i < text.size(); ++i) {
        output += text[i];
        if (text[i] == '\n' && i + 1 < text.size())
            output.append(indent, '.');
    }
    return output;
}

// Usually small, sometimes negative, and rarely so large that hardly any text fits after it.
int take_indent(Input *input)
{
    const int indent = static_cast<int>(take_byte(input));
    if (indent < 248)
        return indent - 8;
    return static_cast<int>(output_capacity) - 128 + static_cast<int>(take_byte(input));
}

// Many lines with a large indent would take gigabytes.
int bounded_indent(int indent, const std::string &text)
{
    const auto lines = std::count(text.begin(), text.end(), '\n') + 1;
    return std::min(indent, static_cast<int>(300000 / lines));
}

std::string write_output(int indent, const char *text)
{
    char *written = nullptr;
    std::size_t length = 0;
    std::FILE *stream = open_memstream(&written, &length);
    FUZZ_CHECK(stream != nullptr);
    set_output_stream(stream);
    set_output_indent(indent);
    FUZZ_CHECK(output_printf("%s", text) == 0);
    FUZZ_CHECK(output_stream() == stream);
    set_output_indent(0);
    set_output_stream(nullptr);
    std::fclose(stream);
    std::string output(written, length);
    std::free(written);
    return output;
}

void fuzz_output(Input *input)
{
    const int asked = take_indent(input);
    const std::string text = take_long_text(input);
    const int indent = bounded_indent(asked, text);
    const std::size_t depth = indent > 0 ? static_cast<std::size_t>(indent) : 0;
    const std::size_t limit = depth < output_capacity - 2 ? output_capacity - 2 - depth : 0;
    const ExactBlock source(text);
    FUZZ_CHECK(write_output(indent, source.data) == indented(text.substr(0, limit), depth));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    static constexpr Case kinds[] = {
        fuzz_format, // '0'
        fuzz_report, // '1'
        fuzz_log,    // '2'
        fuzz_output, // '3'
    };
    Input input = {bytes, size};
    run_cases(&input, kinds, '0');
    return 0;
}
