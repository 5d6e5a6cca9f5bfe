// Formatting and growable strings beside fmt.
#include "bench/cases.h"

#include "support/c-utils/memory.h"
#include "tests/support/reference-memory.h"

#include <iterator>
#include <memory>
#include <string>

#include <fmt/format.h>
#include <fmt/printf.h>

namespace quintral {

namespace {

constexpr std::size_t sizes[] = {8, 64, 1024, 16384, 1048576};

// One string of the given size.
void add_strings(BenchCases *cases)
{
    for (const std::size_t size : sizes) {
        const std::string text(size, 'x');
        const auto release = [](char *block) {
            bench_keep(*block);
            checked_free(block);
        };
        add_repeated(cases, "alloc_printf/string", "ours", size,
                     [=] { release(alloc_printf("%s", text.c_str())); });
        add_repeated(cases, "alloc_printf/string", "reference", size,
                     [=] { release(reference::alloc_printf("%s", text.c_str())); });
        add_repeated(cases, "alloc_printf/string", "fmt", size,
                     [=] { bench_keep(*fmt::format("{}", text.c_str()).c_str()); });
        add_repeated(cases, "alloc_printf/string", "fmt-sprintf", size,
                     [=] { bench_keep(*fmt::sprintf("%s", text.c_str()).c_str()); });
    }
}

// A message as programs write it; the size is that of the string in it.
void add_messages(BenchCases *cases)
{
    for (const std::size_t size : {8, 64, 1024}) {
        const std::string text(size, 'x');
        add_repeated(cases, "alloc_printf/message", "ours", size, [=] {
            char *block = alloc_printf("Bad HTTP status %d from %s: %s", 404, "site", text.c_str());
            bench_keep(*block);
            checked_free(block);
        });
        add_repeated(cases, "alloc_printf/message", "reference", size, [=] {
            char *block = reference::alloc_printf("Bad HTTP status %d from %s: %s", 404, "site",
                                                  text.c_str());
            bench_keep(*block);
            checked_free(block);
        });
        add_repeated(cases, "alloc_printf/message", "fmt", size, [=] {
            bench_keep(
                *fmt::format("Bad HTTP status {} from {}: {}", 404, "site", text.c_str()).c_str());
        });
    }
}

// Lines appended to one buffer, until it holds the given size.
void add_appends(BenchCases *cases)
{
    for (const std::size_t size : sizes) {
        const auto ours = [size](auto append) {
            return [=] {
                StringBuffer buffer = {};
                for (int i = 0; static_cast<std::size_t>(buffer.length) < size; ++i)
                    append(&buffer, "%d: %s\n", i, "circle");
                bench_keep(*buffer.data);
                string_buffer_free(&buffer);
            };
        };
        add_repeated(cases, "string_buffer_printf", "ours", size, ours(string_buffer_printf));
        add_repeated(cases, "string_buffer_printf", "reference", size,
                     ours(reference::string_buffer_printf));
        add_repeated(cases, "string_buffer_printf", "fmt", size, [=] {
            fmt::memory_buffer buffer;
            for (int i = 0; buffer.size() < size; ++i)
                fmt::format_to(std::back_inserter(buffer), "{}: {}\n", i, "circle");
            bench_keep(*buffer.data());
        });
        add_repeated(cases, "string_buffer_printf", "fmt-sprintf", size, [=] {
            fmt::memory_buffer buffer;
            for (int i = 0; buffer.size() < size; ++i)
                buffer.append(fmt::sprintf("%d: %s\n", i, "circle"));
            bench_keep(*buffer.data());
        });
    }
}

} // namespace

void add_memory_cases(BenchCases *cases)
{
    add_strings(cases);
    add_messages(cases);
    add_appends(cases);
}

} // namespace quintral
