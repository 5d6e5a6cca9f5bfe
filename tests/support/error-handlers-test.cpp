// The message and print handlers: the bytes that a child process writes to both of its streams.
#include "support/error.h"

#include "tests/harness/test-main.h"
#include "tests/support/error-checks.h"

#include <clocale>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

namespace quintral {
namespace {

using tests::assertion_line;
using tests::ChildOptions;
using tests::ChildResult;
using tests::ChildStream;
using tests::expect_child;
using tests::level_rows;
using tests::LevelRow;
using tests::rule_of;
using tests::run_in_child;
using tests::shown;

using namespace std::string_literals;

const std::int32_t count_at_start = message_count();

// Message handlers

struct HandlerRow {
    std::string rule;
    std::string text;
    std::string body;
};

const HandlerRow handler_rows[] = {
    {"a plain text", "low disk", "low disk"},
    {"an empty text", "", ""},
    {"line feeds at the end", "low disk\n\n", "low disk"},
    {"line feeds inside", "a\n\nb\n", "a\n\nb"},
    {"a carriage return", "a\r\n", "a\r"},
    {"a format", "%s %n", "%s %n"},
    {"bytes above 0x7F", "\x80\xe4\xff", "\x80\xe4\xff"},
    {"1002 characters", std::string(1002, 'x'), std::string(1002, 'x')},
    {"1003 characters", std::string(1003, 'x'), std::string(1003, 'x')},
    {"1004 characters", std::string(1004, 'x'), std::string(1003, 'x')},
    {"100000 characters", std::string(100000, 'x'), std::string(1003, 'x')},
    {"1003 characters and line feeds", std::string(1003, 'x') + "\n\n", std::string(1003, 'x')},
    {"a line feed at the cut", std::string(1002, 'x') + "\nyyy", std::string(1002, 'x') + "\n"},
};

TEST(DefaultMessageHandler, WritesTheLineAndALineFeedToStandardError)
{
    for (const HandlerRow &row : handler_rows) {
        const ChildResult result =
            run_in_child([&] { default_message_handler(Error, row.text.c_str()); });
        expect_child(result, "", "Error: " + row.body + "\a\n", 0, row.rule);
    }
}

TEST(DefaultMessageHandler, ShowsEachLevelAndEndsTheProcessOnlyAtFatalError)
{
    for (const LevelRow &row : level_rows) {
        const ChildResult result = run_in_child([&] {
            default_message_handler(row.level, "text");
            std::fputs("went on", stdout);
        });
        const bool fatal = row.level == FatalError;
        expect_child(result, fatal ? "" : "went on", row.before + "text" + row.after + "\n",
                     fatal ? 1 : 0, rule_of(row));
    }
}

TEST(DefaultMessageHandler, EndsTheProcessByExit)
{
    const ChildResult result = run_in_child([] {
        std::atexit([] { std::fputs("at exit", stdout); });
        report_message(FatalError, "cannot continue");
        std::fputs("went on", stdout);
    });
    expect_child(result, "at exit", "Fatal Error: cannot continue\a\n", 1, "FatalError");
}

// Ends the process without a flush: what a handler left in the stream's buffer is lost.
void end_without_flush()
{
    std::raise(SIGKILL);
}

TEST(DefaultMessageHandler, FlushesStandardError)
{
    const ChildResult result = run_in_child([] {
        static char buffer[4096];
        std::setvbuf(stderr, buffer, _IOFBF, sizeof buffer);
        default_message_handler(Note, "text");
        end_without_flush();
    });
    EXPECT_EQ(result.error, "Note: text\n");
    EXPECT_EQ(result.signal, SIGKILL);
}

// Each write to this socket is received on its own.
TEST(DefaultMessageHandler, WritesTheLineAtOnce)
{
    int sockets[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, sockets), 0);
    const ChildResult result = run_in_child([&] {
        dup2(sockets[1], STDERR_FILENO);
        default_message_handler(Warning, "low disk\n");
    });
    expect_child(result, "", "", 0, "the child");
    char line[100];
    const ssize_t length = recv(sockets[0], line, sizeof line, MSG_DONTWAIT);
    ASSERT_GT(length, 0);
    EXPECT_EQ(std::string(line, static_cast<std::size_t>(length)), "Warning: low disk\a\n");
    close(sockets[0]);
    close(sockets[1]);
}

TEST(DefaultMessageHandler, IgnoresAStandardErrorThatCannotBeWritten)
{
    for (const ChildStream stream : {ChildStream::FullDisk, ChildStream::Closed}) {
        ChildOptions options;
        options.error = stream;
        const auto body = [] {
            report_message(Error, "text");
            print_text("text", "tag");
            std::fputs("went on", stdout);
            report_message(FatalError, "text");
        };
        expect_child(run_in_child(body, options), "went on", "", 1, "no standard error");
    }
}

std::string captured(const std::string &content)
{
    return "QUINTRALTEST" + content + "\nENDQUINTRALTEST\n";
}

TEST(TestMessageHandler, WritesTheLineBetweenTheMarkersToStandardOutput)
{
    for (const HandlerRow &row : handler_rows) {
        const ChildResult result =
            run_in_child([&] { test_message_handler(Error, row.text.c_str()); });
        expect_child(result, captured("Error: " + row.body + "\a"), "", 0, row.rule);
    }
}

TEST(TestMessageHandler, ShowsEachLevelAndContinuesAfterFatalErrorToo)
{
    for (const LevelRow &row : level_rows) {
        const ChildResult result = run_in_child([&] {
            test_message_handler(row.level, "text");
            std::fputs("went on", stdout);
        });
        expect_child(result, captured(row.before + "text" + row.after) + "went on", "", 0,
                     rule_of(row));
    }
}

TEST(TestMessageHandler, FlushesStandardOutput)
{
    const ChildResult result = run_in_child([] {
        test_message_handler(Note, "text");
        end_without_flush();
    });
    EXPECT_EQ(result.output, "QUINTRALTESTNote: text\nENDQUINTRALTEST\n");
    EXPECT_EQ(result.signal, SIGKILL);
}

// Print handlers

TEST(DefaultPrintHandler, WritesTheTextUnchangedToStandardErrorWithoutItsTag)
{
    for (const std::string &text :
         {"hello"s, "a\n\n"s, "%s"s, "\x80\xff"s, std::string(100000, 'x'), ""s}) {
        const auto body = [&] { default_print_handler(text.c_str(), "status"); };
        expect_child(run_in_child(body), "", text, 0, shown(text));
    }
}

TEST(TestPrintHandler, WritesTagAndTextBetweenTheMarkersToStandardOutput)
{
    for (const std::string &text :
         {"hello"s, "a\n\n"s, "%s"s, "\x80\xff"s, std::string(100000, 'x'), ""s}) {
        const auto body = [&] { test_print_handler(text.c_str(), "status"); };
        expect_child(run_in_child(body), captured("status: " + text), "", 0, shown(text));
    }
}

TEST(TestPrintHandler, FlushesStandardOutput)
{
    const ChildResult result = run_in_child([] {
        test_print_handler("hello", "status");
        end_without_flush();
    });
    EXPECT_EQ(result.output, "QUINTRALTESTstatus: hello\nENDQUINTRALTEST\n");
    EXPECT_EQ(result.signal, SIGKILL);
}

// Messages from report_message and print_text to the streams

TEST(Reports, StartWithTheDefaultHandlersAndNoMessageCounted)
{
    EXPECT_EQ(count_at_start, 0);
    const ChildResult result = run_in_child([] {
        report_message(Error, "Close file failed.");
        print_text("text", "tag");
    });
    expect_child(result, "", "Error: Close file failed.\a\ntext", 0, "the defaults");
}

TEST(Reports, PrintNothingAtLevelLogAndAWarningAtUnknownLevels)
{
    const std::int32_t before = message_count();
    const ChildResult result = run_in_child([before] {
        report_message(Log, "log");
        report_message(11, "eleven\n\n");
        report_message(-1, "minus %s", "one");
        report_message(Plain, "plain");
        report_message(PlainBell, "plain bell");
        report_message(Note, "note");
        std::printf("%d messages\n", message_count() - before);
    });
    expect_child(result, "6 messages\n",
                 "Warning: eleven\a\nWarning: minus one\a\nplain\n\aplain bell\nNote: note\n", 0,
                 "the defaults");
}

TEST(Reports, AreCutTo1023CharactersAndTo1003InTheHandler)
{
    for (const std::size_t length : {1003u, 1004u, 1023u, 1024u, 5000u}) {
        const std::string line = "Note: " + std::string(1003, 'x');
        const std::string rule = "length " + std::to_string(length);
        const auto body = [&] { report_message(Note, "%s", std::string(length, 'x').c_str()); };
        expect_child(run_in_child(body), "", line + "\n", 0, rule);
        const auto capture = [&] {
            set_message_handler(test_message_handler);
            body();
        };
        expect_child(run_in_child(capture), captured(line), "", 0, rule);
    }
}

TEST(Reports, AreCapturedOnStandardOutputWithTheTestHandlers)
{
    const ChildResult result = run_in_child([] {
        set_message_handler(test_message_handler);
        set_print_handler(test_print_handler);
        report_message(Warning, "low disk");
        print_text("hello", "status");
        report_message(FatalError, "cannot continue");
        std::fputs("went on", stdout);
    });
    expect_child(result,
                 "QUINTRALTESTWarning: low disk\x07\nENDQUINTRALTEST\n"
                 "QUINTRALTESTstatus: hello\nENDQUINTRALTEST\n"
                 "QUINTRALTESTFatal Error: cannot continue\x07\nENDQUINTRALTEST\nwent on",
                 "", 0, "capture");
}

TEST(Reports, GoToTheDefaultsAgainAfterNull)
{
    const ChildResult result = run_in_child([] {
        set_message_handler(test_message_handler);
        set_print_handler(test_print_handler);
        set_message_handler(nullptr);
        set_print_handler(nullptr);
        report_message(Note, "note");
        print_text("text", "tag");
    });
    expect_child(result, "", "Note: note\ntext", 0, "null");
}

TEST(Reports, TreatStringsAsBytesUnderALatin1Locale)
{
    const ChildResult result = run_in_child([] {
        if (std::setlocale(LC_ALL, tests::comma_locale) == nullptr)
            std::puts("no test locale");
        report_message(Error, "%s", "\xc4\xe4\xff");
        set_message_handler(test_message_handler);
        set_print_handler(test_print_handler);
        report_message(Error, "%s", "\xc4\xe4\xff");
        print_text("\xc4\xe4\xff", "\xfc");
    });
    expect_child(result, captured("Error: \xc4\xe4\xff\a") + captured("\xfc: \xc4\xe4\xff"),
                 "Error: \xc4\xe4\xff\a\n", 0, "Latin-1");
}

// The example

#ifdef QUINTRAL_DIAGNOSTICS_EXAMPLE // if the examples are built

TEST(DiagnosticsExample, PrintsWhatItsPageShows)
{
    const ChildResult result = tests::run_child({QUINTRAL_DIAGNOSTICS_EXAMPLE});
    expect_child(result,
                 "[host] Note: The layer is now 640 pixels wide.\n"
                 "[host] " +
                     assertion_line +
                     "[host] abort 5 at support/error:419\n"
                     "Layers:\n"
                     "..background\n"
                     "..title\n"
                     "QUINTRALTESTWarning: low disk\a\n"
                     "ENDQUINTRALTEST\n"
                     "QUINTRALTESTstatus: hello\n"
                     "ENDQUINTRALTEST\n"
                     "4 messages\n",
                 "Error: Close file failed.\a\nSaved.\n", 0, "the example");
}

#endif

} // namespace
} // namespace quintral
