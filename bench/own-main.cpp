// Counts the instructions of the libraries' own routines at doubling sizes; see count.h. bench/run
// takes from them how the costs grow, and compares those of one size with bench/counts.json.
//
// It needs no peers, so that it can be built for every change.
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include "bench/count.h"
#include "cmdline/long-options.h"
#include "support/c-utils/memory.h"
#include "support/c-utils/transforms.h"
#include "tool/safe-text.h"
#include "web/base64.h"
#include "web/form-body.h"
#include "web/update-exchange.h"

namespace quintral {

namespace {

constexpr std::size_t sizes[] = {1024, 2048, 4096, 8192, 16384};

// Adds a routine at every size. make(size) returns the call to measure, which holds its input.
void add(BenchCases *cases, const char *routine,
         const std::function<std::function<void()>(std::size_t)> &make)
{
    for (const std::size_t size : sizes)
        cases->push_back({routine, "ours", size, make(size)});
}

std::string prose(std::size_t size)
{
    return repeat_to("The new release draws faster and opens the files of all earlier ones. ",
                     size);
}

// Text

std::function<void()> search(const std::string &text, const std::string &pattern)
{
    return [=] { bench_keep(find_ignoring_case(text.c_str(), pattern.c_str())); };
}

void add_text(BenchCases *cases)
{
    add(cases, "find_ignoring_case/prose",
        [](std::size_t size) { return search(prose(size), "no such words"); });
    // The pattern almost fits everywhere.
    add(cases, "find_ignoring_case/repeated", [](std::size_t size) {
        return search(std::string(size, 'a'), std::string(size / 2, 'a') + 'b');
    });
    add(cases, "copy_lower_case", [](std::size_t size) {
        return [text = prose(size), copy = std::string(size, ' ')]() mutable {
            bench_keep(copy_lower_case(text.c_str(), &copy[0]));
        };
    });
    add(cases, "safe_text/prose", [](std::size_t size) {
        return [text = prose(size)] { bench_keep(safe_text(text.c_str()).size()); };
    });
    add(cases, "safe_text/controls", [](std::size_t size) {
        return [text = std::string(size, '\x1b')] { bench_keep(safe_text(text.c_str()).size()); };
    });
    add(cases, "string_buffer_printf", [](std::size_t size) {
        return [=] {
            StringBuffer buffer;
            string_buffer_init(&buffer);
            for (std::size_t i = 0; i < size / 16; ++i)
                string_buffer_printf(&buffer, "%s", "sixteen letters.");
            string_buffer_free(&buffer);
        };
    });
}

// The web client

void add_web(BenchCases *cases)
{
    add(cases, "base64_encode", [](std::size_t size) {
        std::string encoded(size * 2, ' ');
        return [bytes = prose(size), encoded]() mutable {
            base64_encode(bytes.data(), static_cast<int>(bytes.size()), &encoded[0]);
            bench_keep(encoded[0]);
        };
    });
    add(cases, "web_form_body/fields", [](std::size_t size) {
        return [fields = std::vector<WebField>(size, {"product", "Quintral Shapes"})] {
            std::string header;
            std::string body;
            web_form_body(static_cast<int>(fields.size()), fields.data(), header, body);
            bench_keep(body.size());
        };
    });
    add(cases, "web_find_update_values/body", [](std::size_t size) {
        const std::string body =
            repeat_to("Other: value\n", size) + "\nVersion: 5.2\nMessage: text\n";
        return [body] {
            std::string copy = body;
            UpdateValues values;
            web_find_update_values(&copy[0], &values);
            bench_keep(values.version);
        };
    });
}

// The option parser

// A table of options and a command line, which parsing puts into another order.
struct CommandLine {
    std::vector<std::string> names;
    std::vector<LongOption> table;
    std::vector<std::string> words;
};

using SharedCommandLine = std::shared_ptr<const CommandLine>;

SharedCommandLine command_line(std::size_t table_size, const std::vector<std::string> &words)
{
    const auto line = std::make_shared<CommandLine>();
    for (std::size_t i = 0; i < table_size; ++i)
        line->names.push_back("option-" + std::to_string(i));
    for (const std::string &name : line->names)
        line->table.push_back({name.c_str(), NoArgument, nullptr, 1});
    line->table.push_back({nullptr, 0, nullptr, 0});
    line->words = words;
    line->words.insert(line->words.begin(), "program");
    return line;
}

void parse(const CommandLine &line)
{
    std::vector<char *> arguments;
    for (const std::string &word : line.words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    option_index = 0;
    option_position = 0;
    int result = 0;
    while (result != -1)
        result = parse_long_only_options(static_cast<int>(line.words.size()), arguments.data(), "v",
                                         line.table.data(), nullptr);
    bench_keep(option_index);
}

std::function<void()> parse_call(const SharedCommandLine &line)
{
    return [line] { parse(*line); };
}

void add_options(BenchCases *cases)
{
    add(cases, "parse_long_only_options/words", [](std::size_t size) {
        return parse_call(command_line(20, std::vector<std::string>(size, "-option-7")));
    });
    add(cases, "parse_long_only_options/table", [](std::size_t size) {
        const std::string last = "-option-" + std::to_string(size - 1);
        return parse_call(command_line(size, std::vector<std::string>(8, last)));
    });
    add(cases, "parse_long_only_options/operands", [](std::size_t size) {
        std::vector<std::string> words;
        for (std::size_t i = 0; i < size; ++i)
            words.push_back(i % 2 != 0 ? "operand" : "-option-7");
        return parse_call(command_line(20, words));
    });
    add(cases, "parse_long_only_options/cluster", [](std::size_t size) {
        return parse_call(command_line(20, {"-" + std::string(size, 'v')}));
    });
}

} // namespace

} // namespace quintral

int main(int argument_count, char **arguments)
{
    quintral::BenchCases cases;
    quintral::add_text(&cases);
    quintral::add_web(&cases);
    quintral::add_options(&cases);
    quintral::count_cases(cases, argument_count > 1 ? arguments[1] : "");
}
