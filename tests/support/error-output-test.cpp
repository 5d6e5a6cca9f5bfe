// output_printf: the indent, the limit on the text, the stream, and the cost in memory and writes.
#include "support/error.h"

#include "tests/support/error-checks.h"

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>

namespace quintral {
namespace {

using tests::ChildOptions;
using tests::ChildResult;
using tests::ChildStream;
using tests::expect_child;
using tests::run_child_function;
using tests::run_in_child;
using tests::unprintable;

struct OutputRow {
    std::string rule;
    int indent;
    std::string text;
    std::string expected;
};

// Runs output_printf in a child that writes to standard output.
ChildResult output_of(int indent, const std::string &text)
{
    return run_child_function([&] {
        set_output_stream(stdout);
        set_output_indent(indent);
        return output_printf("%s", text.c_str());
    });
}

TEST(OutputPrintf, WritesTheIndentFirstAndAfterEachLineFeedExceptAtTheEnd)
{
    const OutputRow rows[] = {
        {"no indent", 0, "a\nb\n", "a\nb\n"},
        {"no indent, no text", 0, "", ""},
        {"no indent, line feeds", 0, "\n\na\n\n", "\n\na\n\n"},
        {"two lines", 2, "a\nb\n", "..a\n..b\n"},
        {"no line feed at the end", 2, "a\nb", "..a\n..b"},
        {"one word", 1, "a", ".a"},
        {"no text", 3, "", "..."},
        {"a line feed alone", 2, "\n", "..\n"},
        {"two line feeds", 2, "\n\n", "..\n..\n"},
        {"an empty line inside", 2, "a\n\nb", "..a\n..\n..b"},
        {"an empty first line", 2, "\na", "..\n..a"},
        {"a carriage return is not a line feed", 2, "a\rb\r\n", "..a\rb\r\n"},
        {"periods in the text", 1, ".\n.\n", "..\n..\n"},
        {"bytes above 0x7F", 1, "\x80\n\xff", ".\x80\n.\xff"},
        {"a negative indent", -1, "a\nb", "a\nb"},
        {"the lowest indent", INT_MIN, "a\nb", "a\nb"},
    };
    for (const OutputRow &row : rows)
        expect_child(output_of(row.indent, row.text), row.expected, "", 0, row.rule);
}

std::string dots(int count)
{
    return std::string(static_cast<std::size_t>(count), '.');
}

TEST(OutputPrintf, Keeps65534CharactersLessTheIndent)
{
    const std::string limit(65534, 'x');
    const std::string below(65533, 'x');
    const std::string two_below(65532, 'x');
    const std::string lines = std::string(10, '\n') + std::string(70000, 'x');
    std::string indented;
    for (int i = 0; i < 10; ++i)
        indented += dots(100) + "\n";
    const OutputRow rows[] = {
        {"one less than the limit", 0, below, below},
        {"at the limit", 0, limit, limit},
        {"one above the limit", 0, limit + "x", limit},
        {"far above the limit", 0, std::string(1000000, 'x'), limit},
        {"indent 2", 2, below, ".." + two_below},
        {"indent 65533", 65533, "abc", dots(65533) + "a"},
        {"indent 65532", 65532, "\n\n\n", dots(65532) + "\n" + dots(65532) + "\n"},
        {"the limit is on the text", 100, lines, indented + dots(100) + std::string(65424, 'x')},
        {"a line feed at the limit", 0, below + "\nyyy", below + "\n"},
        {"a line feed at the limit, indent 1", 1, two_below + "\nyyy", "." + two_below + "\n"},
    };
    for (const OutputRow &row : rows)
        expect_child(output_of(row.indent, row.text), row.expected, "", 0, row.rule);
}

TEST(OutputPrintf, WritesOnlyTheIndentIfItLeavesNoSpace)
{
    for (const int indent : {65534, 65535, 65536, 65537, 131072, 1000000}) {
        const ChildResult result = run_in_child([indent] {
            // An earlier text, which must not appear again.
            std::FILE *nowhere = std::fopen("/dev/null", "w");
            set_output_stream(nowhere);
            output_printf("%s", std::string(65534, 'x').c_str());
            std::fclose(nowhere);
            set_output_stream(stdout);
            set_output_indent(indent);
            output_printf("%s", "a\nb\n");
        });
        expect_child(result, dots(indent), "", 0, "indent " + std::to_string(indent));
    }
}

TEST(OutputPrintf, EndsTheTextAtAFormattedNul)
{
    const ChildResult result = run_in_child([] {
        set_output_stream(stdout);
        output_printf("a\n%cb\n", 0);
        set_output_indent(2);
        output_printf("a\n%cb\n", 0);
        output_printf("%c", 0);
    });
    expect_child(result, "a\n..a\n..", "", 0, "NUL");
}

TEST(OutputPrintf, FormatsLikePrintfAndWritesNoTextIfFormattingFails)
{
    const ChildResult result = run_in_child([] {
        set_output_stream(stdout);
        set_output_indent(1);
        output_printf("%s=%d %5.2f%%\n", "x", -3, 1.5);
        output_printf("before %ls after", unprintable);
    });
    expect_child(result, ".x=-3  1.50%\n.", "", 0, "formats");
}

TEST(OutputPrintf, UsesStandardErrorIfNoStreamIsSetAndRemembersIt)
{
    const ChildResult result = run_in_child([] {
        std::puts(output_stream() == nullptr ? "none" : "one");
        output_printf("to standard error\n");
        std::puts(output_stream() == stderr ? "stderr" : "another");
        set_output_stream(stdout);
        std::puts(output_stream() == stdout ? "stdout" : "another");
        output_printf("to standard output\n");
        set_output_stream(nullptr);
        std::puts(output_stream() == stderr ? "stderr" : "another");
        output_printf("to standard error again\n");
    });
    expect_child(result, "none\nstderr\nstdout\nto standard output\nstderr\n",
                 "to standard error\nto standard error again\n", 0, "streams");
}

TEST(OutputPrintf, ReturnsTheResultOfTheFlush)
{
    const auto body = [] {
        set_output_stream(stdout);
        const int result = output_printf("text");
        if (result == 0)
            return 40;
        return result == EOF ? 41 : 42;
    };
    EXPECT_EQ(run_child_function(body).exit_status, 40);
    ChildOptions options;
    options.output = ChildStream::FullDisk;
    EXPECT_EQ(run_child_function(body, options).exit_status, 41);
}

// The cost of an output. The stream is one end of a socket pair that keeps each write separate, so
// the other end can count them.

struct Counted {
    std::FILE *stream = nullptr;
    int reading_end = -1;
    char buffer[1 << 18];
};

void open_counted(Counted *counted, int buffering)
{
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0) {
        std::printf("no socket pair: %s\n", std::strerror(errno));
        return;
    }
    counted->reading_end = ends[1];
    counted->stream = fdopen(ends[0], "w");
    std::setvbuf(counted->stream, buffering == _IONBF ? nullptr : counted->buffer, buffering,
                 sizeof counted->buffer);
}

struct Received {
    long writes = 0;
    long long bytes = 0;
    long long unexpected = 0; // bytes of reads that are not as expected
};

// Reads what has arrived (with the flag MSG_DONTWAIT) or until the stream is closed (without it).
// Expects lines of `indent` periods.
Received receive(const Counted &counted, std::size_t indent, int flags)
{
    static char chunk[1 << 18];
    std::string pattern;
    while (pattern.size() < sizeof chunk + indent + 1)
        pattern += std::string(indent, '.') + "\n";
    Received received;
    ssize_t count = 0;
    while ((count = recv(counted.reading_end, chunk, sizeof chunk, flags)) > 0) {
        const auto size = static_cast<std::size_t>(count);
        const auto at = static_cast<std::size_t>(received.bytes) % (indent + 1);
        received.unexpected += std::memcmp(chunk, pattern.data() + at, size) == 0 ? 0 : count;
        received.bytes += count;
        ++received.writes;
    }
    return received;
}

// The argument of write_output: the text to write, and the stream to close afterwards.
struct OutputTask {
    Counted *counted;
    std::string text;
};

void *write_output(void *argument)
{
    const auto *task = static_cast<const OutputTask *>(argument);
    output_printf("%s", task->text.c_str());
    std::fclose(task->counted->stream);
    return nullptr;
}

constexpr std::size_t small_stack = 256 * 1024;

bool start_on_small_stack(pthread_t *thread, OutputTask *task)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, small_stack);
    const int failed = pthread_create(thread, &attributes, write_output, task);
    pthread_attr_destroy(&attributes);
    if (failed != 0)
        std::printf("no thread: %s\n", std::strerror(failed));
    return failed == 0;
}

long peak_memory_kilobytes()
{
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

void print_received(const Received &received)
{
    std::printf("%ld writes, %lld bytes, %lld unexpected\n", received.writes, received.bytes,
                received.unexpected);
}

TEST(OutputPrintf, LineFeedsAtADeepIndentNeedLittleStackAndMemoryAndFewWrites)
{
    const ChildResult result = run_in_child([] {
        static Counted counted;
        open_counted(&counted, _IONBF);
        set_output_stream(counted.stream);
        set_output_indent(3000);
        static OutputTask task = {&counted, std::string(70000, '\n')};
        const long memory_before = peak_memory_kilobytes();
        pthread_t thread;
        if (!start_on_small_stack(&thread, &task))
            return;
        const Received received = receive(counted, 3000, 0);
        pthread_join(thread, nullptr);
        const long grown = peak_memory_kilobytes() - memory_before;
        if (grown > 16 * 1024)
            std::printf("memory grew by %ld KiB\n", grown);
        if (received.writes > received.bytes / 32768)
            std::printf("%ld writes\n", received.writes);
        std::printf("%lld bytes, %lld unexpected\n", received.bytes, received.unexpected);
    });
    // 65534 - 3000 lines of 3001 bytes
    expect_child(result, "187664534 bytes, 0 unexpected\n", "", 0, "indent 3000");
}

TEST(OutputPrintf, AnOutputOfUpTo64KiBIsOneWriteOnAnUnbufferedStream)
{
    const struct {
        std::string rule;
        int indent;
        std::string text;
        const char *expected;
    } rows[] = {
        {"two short lines", 2, "\n\n", "1 writes, 6 bytes, 0 unexpected\n"},
        {"65534 line feeds", 0, std::string(65534, '\n'), "1 writes, 65534 bytes, 0 unexpected\n"},
        {"64 KiB", 255, std::string(256, '\n'), "1 writes, 65536 bytes, 0 unexpected\n"},
        {"above 64 KiB", 255, std::string(257, '\n'), "2 writes, 65792 bytes, 0 unexpected\n"},
        {"nothing at all", 0, "", "0 writes, 0 bytes, 0 unexpected\n"},
    };
    for (const auto &row : rows) {
        const ChildResult result = run_in_child([&] {
            static Counted counted;
            open_counted(&counted, _IONBF);
            set_output_stream(counted.stream);
            set_output_indent(row.indent);
            output_printf("%s", row.text.c_str());
            print_received(receive(counted, static_cast<std::size_t>(row.indent), MSG_DONTWAIT));
        });
        expect_child(result, row.expected, "", 0, row.rule);
    }
}

TEST(OutputPrintf, ALongOutputIsFlushedOnceAtItsEnd)
{
    const ChildResult result = run_in_child([] {
        static Counted counted;
        open_counted(&counted, _IOFBF);
        set_output_stream(counted.stream);
        set_output_indent(99);
        output_printf("%s", std::string(1500, '\n').c_str());
        print_received(receive(counted, 99, MSG_DONTWAIT));
    });
    expect_child(result, "1 writes, 150000 bytes, 0 unexpected\n", "", 0, "one flush");
}

} // namespace
} // namespace quintral
