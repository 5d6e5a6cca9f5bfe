// The time limits: 10 seconds without data, and -max-time.
#include <csignal>
#include <ostream>
#include <string>

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/tool/hanging-server.h"
#include "tests/tool/interrupts.h"
#include "tests/tool/json-line.h"
#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {
namespace {

const char silence_text[] = "Timeout waiting for web site";

std::string timeout_json(const std::string &error, const std::string &service, int http_status = 0)
{
    return unanswered_json("timeout", 3, error, {"timeout", http_status, service});
}

TEST(ToolSilence, TenSecondsWithoutAByteOfTheHeaderEndWithStatus3)
{
    const Exchange exchange = ask(holding(), {"-json"});
    expect_ended(exchange.result, 3, timeout_json(silence_text, exchange.address),
                 error_line(silence_text));
}

TEST(ToolSilence, TenSecondsWithoutAByteOfTheBodyEndWithStatus3)
{
    const Exchange exchange = ask(holding(reply_of("Version: 5.3\nMessage: ")), {"-json"});
    expect_ended(exchange.result, 3, timeout_json(silence_text, exchange.address, 200),
                 error_line(silence_text));
}

TEST(ToolSilence, IsReportedWithTheProxy)
{
    const LoopbackPeer proxy({holding()});
    expect_ended(run_tool({"-service", "a.example", "-proxy", proxy.address()}), 3, "",
                 error_line(silence_text) + "Note: The request went through the proxy " +
                     proxy.address() + ", from -proxy\n");
}

struct LimitRow {
    const char *name;
    PeerScript script;
    int http_status; // that has been read by then
};

const std::string body_start = reply_of("Message: ");

const LimitRow limit_rows[] = {
    {"SilentPeer", holding(), 0},
    {"SilentBody", holding(body_start), 200},
    {"SlowHeader", trickling("", trickled_header, 300), 0},
    {"SlowBody", trickling(body_start, trickled_body, 300), 200},
    {"EndlessHeader", trickling("", trickled_header, 1), 0},
    {"EndlessBody", trickling(body_start, trickled_body, 1), 200},
};

// A failure, and the list of tests, show the row by its name.
void PrintTo(const LimitRow &row, std::ostream *stream)
{
    *stream << row.name;
}

std::string label(const testing::TestParamInfo<LimitRow> &row)
{
    return row.param.name;
}

class ToolTimeLimitWith : public testing::TestWithParam<LimitRow> {};

INSTANTIATE_TEST_SUITE_P(Peers, ToolTimeLimitWith, testing::ValuesIn(limit_rows), label);

TEST_P(ToolTimeLimitWith, EndsTheRunWithStatus3)
{
    const Exchange exchange = ask(GetParam().script, {"-max-time", "1", "-json"});
    // a limit that does not meet a wait ends the run a second later, without the status
    const bool has_status = exchange.result.output.find("\"http_status\":200") != std::string::npos;
    EXPECT_TRUE(GetParam().http_status == 200 || !has_status);
    EXPECT_TRUE(has_status || std::string(GetParam().name) != "SilentBody");
    expect_ended(exchange.result, 3,
                 timeout_json(limit_text(1), exchange.address, has_status ? 200 : 0),
                 error_line(limit_text(1)));
}

TEST(ToolTimeLimit, EndsAConnectThatHangs)
{
    const HangingServer server;
    expect_ended(run_tool({"-service", server.address(), "-max-time", "1"}), 3, "",
                 error_line(limit_text(1)));
}

TEST(ToolTimeLimit, EndsAConnectThatHangsWithAnObject)
{
    const HangingServer server;
    expect_ended(run_tool({"-service", server.address(), "-max-time", "1", "-json"}), 3,
                 timeout_json(limit_text(1), server.address()), error_line(limit_text(1)));
}

TEST(ToolTimeLimit, AppliesEvenIfTheAlarmWasBlockedAndIgnoredAtStart)
{
    ChildOptions options;
    options.blocked_signals = {SIGALRM};
    options.ignored_signals = {SIGALRM};
    expect_ended(ask(holding(), {"-max-time", "2"}, options).result, 3, "",
                 error_line(limit_text(2)));
}

TEST(ToolTimeLimit, DoesNotAffectATimelyAnswer)
{
    const PeerScript script = sending_late(reply_of("Message: Hello\n"), 1500);
    expect_ended(ask(script, {"-max-time", "60", "-quiet"}).result, 0, "Hello\n", "");
}

TEST(ToolTimeLimit, AppliesToAnOutputThatNobodyReads)
{
    const ChildOptions options = with_output(ChildStream::StalledPipe);
    expect_ended(
        ask(sending(reply_of("Message: Hello\n")), {"-max-time", "2", "-quiet"}, options).result, 3,
        "", error_line(limit_text(2)));
}

TEST(ToolTimeLimit, AppliesToAStandardErrorThatNobodyReads)
{
    const PeerScript script = sending("HTTP/1.0 404 Not Found\r\n\r\n");
    const ChildOptions options = with_error(ChildStream::StalledPipe);
    const Exchange exchange = ask(script, {"-max-time", "2", "-json"}, options);
    expect_ended(exchange.result, 3, timeout_json(limit_text(2), exchange.address), "");
}

// The first note is shown before anything is sent.
TEST(ToolTimeLimit, AppliesToANoteAboutASettingThatNobodyReads)
{
    const ChildOptions options = with_error(ChildStream::StalledPipe);
    expect_ended(
        run_tool({"-service", "127.0.0.1:1", "-proxy-user", "u", "-max-time", "1", "-json"},
                 options),
        3, timeout_json(limit_text(1), "127.0.0.1:1"), "");
}

// The limit cancels the exchange, and a second later ends the output of the object.
TEST(ToolTimeLimit, IsReportedOnceEvenIfTheOutputHangsToo)
{
    const ChildOptions options = with_output(ChildStream::StalledPipe);
    expect_ended(ask(holding(), {"-max-time", "1", "-json"}, options).result, 3, "",
                 error_line(limit_text(1)));
}

TEST(ToolTimeLimit, AppliesToAStoppedTerminal)
{
    const LoopbackPeer peer({holding()});
    ChildOptions options = with_error(ChildStream::Terminal);
    options.limit_seconds = 15;
    Child child = start_tool({"-service", peer.address(), "-max-time", "3", "-json"}, options);
    ASSERT_TRUE(child_wait_for_text(child, "\r", patience));
    stop_terminal(child);
    const ChildResult result = child_wait(child);
    EXPECT_EQ(result.exit_status, 3);
    EXPECT_EQ(result.output, timeout_json(limit_text(3), peer.address()));
}

int send_to_process(pid_t process)
{
    return kill(process, SIGALRM);
}

int send_with_value(pid_t process)
{
    return sigqueue(process, SIGALRM, {});
}

int send_to_thread(pid_t process)
{
    return static_cast<int>(syscall(SYS_tgkill, process, process, SIGALRM));
}

// The system says of each way by a code of its own that a process has sent the signal.
TEST(ToolTimeLimit, IsNotASignalThatAnotherProcessSends)
{
    for (const auto &send : {send_to_process, send_with_value, send_to_thread}) {
        const LoopbackPeer peer({sending_late(reply_of("Message: Hello\n"), 500)});
        Child child = start_tool({"-service", peer.address()});
        ASSERT_TRUE(peer.wait_for_text(0, request_end(), patience));
        EXPECT_EQ(send(child.process_id), 0);
        poll(nullptr, 0, 50);
        EXPECT_EQ(send(child.process_id), 0);
        const ChildResult result = child_wait(child);
        EXPECT_EQ(result.exit_status, 0) << result.error;
        EXPECT_EQ(result.output, "Hello\n");
    }
}

} // namespace
} // namespace quintral::tests::tool
