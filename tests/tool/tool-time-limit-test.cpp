// The time limits: 10 seconds without data, and -max-time.
#include <csignal>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "tests/tool/hanging-server.h"
#include "tests/tool/json-line.h"
#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {
namespace {

const char silence_text[] = "Timeout waiting for web site";

TEST(ToolSilence, TenSecondsWithoutAByteOfTheHeaderEndWithStatus3)
{
    expect_ended(ask(holding(), {"-json"}).result, 3, unanswered_json("timeout", 3, silence_text),
                 error_line(silence_text));
}

TEST(ToolSilence, TenSecondsWithoutAByteOfTheBodyEndWithStatus3)
{
    expect_ended(ask(holding(reply_of("Version: 5.3\nMessage: ")), {}).result, 3, "",
                 error_line(silence_text));
}

struct LimitRow {
    const char *name;
    PeerScript script;
};

const std::string body_start = reply_of("Message: ");

const LimitRow limit_rows[] = {
    {"SilentPeer", holding()},
    {"SilentBody", holding(body_start)},
    {"SlowHeader", trickling("", trickled_header, 300)},
    {"SlowBody", trickling(body_start, trickled_body, 300)},
    {"EndlessHeader", trickling("", trickled_header, 1)},
    {"EndlessBody", trickling(body_start, trickled_body, 1)},
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
    expect_ended(ask(GetParam().script, {"-max-time", "1", "-json"}).result, 3,
                 unanswered_json("timeout", 3, limit_text(1)), error_line(limit_text(1)));
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
                 unanswered_json("timeout", 3, limit_text(1)), error_line(limit_text(1)));
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
    expect_ended(ask(script, {"-max-time", "60"}).result, 0, "Hello\n", "");
}

TEST(ToolTimeLimit, AppliesToAnOutputThatNobodyReads)
{
    const ChildOptions options = with_output(ChildStream::StalledPipe);
    expect_ended(ask(sending(reply_of("Message: Hello\n")), {"-max-time", "2"}, options).result, 3,
                 "", error_line(limit_text(2)));
}

TEST(ToolTimeLimit, AppliesToAStandardErrorThatNobodyReads)
{
    const PeerScript script = sending("HTTP/1.0 404 Not Found\r\n\r\n");
    const ChildOptions options = with_error(ChildStream::StalledPipe);
    expect_ended(ask(script, {"-max-time", "2", "-json"}, options).result, 3,
                 unanswered_json("timeout", 3, limit_text(2)), "");
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
    EXPECT_EQ(result.output, unanswered_json("timeout", 3, limit_text(3)));
}

} // namespace
} // namespace quintral::tests::tool
