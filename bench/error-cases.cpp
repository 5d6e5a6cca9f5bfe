// Messages, printed text and the log beside printf, fmt and spdlog. The output of all sides goes to
// /dev/null or to a handler that drops it.
#include "bench/cases.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

#include <fmt/core.h>
#include <fmt/format.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/null_sink.h>

#include "support/error.h"

namespace quintral {

namespace {

using Sink = std::shared_ptr<spdlog::sinks::sink>;

std::FILE *null_stream()
{
    static std::FILE *const stream = std::fopen("/dev/null", "w");
    return stream;
}

void add_format_cases(BenchCases *cases, std::size_t size)
{
    const std::string text(size, 'x');
    const auto out = std::make_shared<std::string>(size + 64, '\0');
    add_repeated(cases, "format_message", "ours", size, [text, out] {
        bench_keep(format_message(Warning, text.c_str(), out->data(), int(out->size())));
        bench_keep(out->data());
    });
    add_repeated(cases, "format_message", "reference", size, [text, out] {
        bench_keep(
            std::snprintf(out->data(), out->size(), "%s: %s%s", "Warning", text.c_str(), "\a"));
        bench_keep(out->data());
    });
    add_repeated(cases, "format_message", "fmt", size, [text, out] {
        bench_keep(
            fmt::format_to_n(out->data(), out->size(), "{}: {}{}", "Warning", text.c_str(), "\a")
                .size);
        bench_keep(out->data());
    });
}

void drop_message(MessageLevel /*level*/, const char *text)
{
    bench_keep(text);
}

void write_message(MessageLevel level, const char *text)
{
    char line[1024];
    int length = format_message(level, text, line, sizeof line - 1);
    line[length++] = '\n';
    std::fwrite(line, 1, static_cast<std::size_t>(length), null_stream());
    std::fflush(null_stream());
}

void add_report_cases(BenchCases *cases, const char *routine, MessageHandler handler,
                      const Sink &sink, std::size_t size)
{
    const std::string text(size, 'x');
    add_repeated(cases, routine, "ours", size, [text, handler] {
        const MessageHandler previous = set_message_handler(handler);
        report_message(Warning, "%s: %d of %d", text.c_str(), 12, 345);
        set_message_handler(previous);
    });
    const auto logger = std::make_shared<spdlog::logger>("bench", sink);
    logger->set_pattern("%l: %v\a");
    logger->flush_on(spdlog::level::trace);
    add_repeated(cases, routine, "spdlog", size,
                 [text, logger] { logger->warn("{}: {} of {}", text.c_str(), 12, 345); });
}

void print_to_null(const char *text, const char * /*tag*/)
{
    std::fputs(text, null_stream());
    std::fflush(null_stream());
}

void add_print_cases(BenchCases *cases, std::size_t size)
{
    const std::string text(size, 'x');
    add_repeated(cases, "print_text", "ours", size, [text] {
        const PrintHandler previous = set_print_handler(print_to_null);
        print_text(text.c_str(), "tag");
        set_print_handler(previous);
    });
    add_repeated(cases, "print_text", "fputs", size, [text] {
        std::fputs(text.c_str(), null_stream());
        std::fflush(null_stream());
    });
    add_repeated(cases, "print_text", "fmt", size, [text] {
        fmt::print(null_stream(), "{}", text.c_str());
        std::fflush(null_stream());
    });
}

void drop_line(const char *line)
{
    bench_keep(line);
}

// The line as printf composes it.
int print_log_line(const char *text)
{
    const std::time_t now = std::time(nullptr);
    std::tm parts = {};
    localtime_r(&now, &parts);
    char date[64];
    std::strftime(date, sizeof date, "%a %b %e %H:%M:%S %Y", &parts);
    char line[4096];
    std::size_t used = std::strlen(text);
    while (used > 0 && std::strchr("\r\n", text[used - 1]) != nullptr)
        --used;
    const int shown = static_cast<int>(std::min<std::size_t>(used, 4056));
    const int length = std::snprintf(line, sizeof line, "%s: %.*s\n", date, shown, text);
    bench_keep(line);
    return length - 1;
}

void add_log_cases(BenchCases *cases, std::size_t size)
{
    const std::string text(size, 'x');
    add_repeated(cases, "log_message/unread", "ours", size,
                 [text] { bench_keep(log_message(text.c_str())); });
    add_repeated(cases, "log_message/unread", "reference", size,
                 [text] { bench_keep(print_log_line(text.c_str())); });
    add_repeated(cases, "log_message/handler", "ours", size, [text] {
        set_log_handler(drop_line);
        bench_keep(log_message(text.c_str()));
        set_log_handler(nullptr);
    });
    add_repeated(cases, "log_message/handler", "reference", size,
                 [text] { bench_keep(print_log_line(text.c_str())); });
}

} // namespace

void add_error_cases(BenchCases *cases)
{
    for (const std::size_t size : {8U, 64U, 1024U, 16384U, 1048576U}) {
        add_format_cases(cases, size);
        add_print_cases(cases, size);
        add_log_cases(cases, size);
    }
    const Sink null_sink = std::make_shared<spdlog::sinks::null_sink_mt>();
    const Sink file_sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>("/dev/null");
    for (const std::size_t size : {8U, 64U, 900U}) { // the text of a message has 1023 characters
        add_report_cases(cases, "report_message/dropped", drop_message, null_sink, size);
        add_report_cases(cases, "report_message/file", write_message, file_sink, size);
    }
}

} // namespace quintral
