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

// Ten seconds of silence: the exchange's own limit

const char silence_text[] = "Timeout waiting for web site";

TEST(ToolSilence, TenSecondsWithoutAByteOfTheHeaderEndInStatus3)
{
    expect_ended(ask(holding(), {"-json"}).result, 3, unanswered_json("timeout", 3, silence_text),
                 error_line(silence_text));
}

TEST(ToolSilence, TenSecondsWithoutAByteOfTheBodyEndInStatus3)
{
    expect_ended(ask(holding(reply_of("Version: 5.3\nMessage: ")), {}).result, 3, "",
                 error_line(silence_text));
}

struct LimitRow {
    const char *name;
    PeerScript script;
};

// A failure, and the test's listed name, show the row by its name.
void PrintTo(const LimitRow &row, std::ostream *stream)
{
    *stream << row.name;
}

class ToolTimeLimitWith : public testing::TestWithParam<LimitRow> {};

INSTANTIATE_TEST_SUITE_P(
    Peers, ToolTimeLimitWith,
    testing::Values(LimitRow{"SilentPeer", holding()},
                    LimitRow{"SilentBody", holding(reply_of("Message: "))},
                    LimitRow{"HeaderByteNowAndThen", trickling("", trickled_header, 300)},
                    LimitRow{"BodyByteNowAndThen",
                             trickling(reply_of("Message: "), trickled_body, 300)},
                    LimitRow{"HeaderFlowing", trickling("", trickled_header, 1)},
                    LimitRow{"BodyFlowing", trickling(reply_of("Message: "), trickled_body, 1)}),
    [](const testing::TestParamInfo<LimitRow> &row) { return row.param.name; });

TEST_P(ToolTimeLimitWith, EndsTheRunInStatus3)
{
    expect_ended(ask(GetParam().script, {"-max-time", "1", "-json"}).result, 3,
                 unanswered_json("timeout", 3, limit_text(1)), error_line(limit_text(1)));
}

TEST(ToolTimeLimit, EndsAConnectThatHangs)
{
    const HangingServer server;
    expect_ended(run_tool({"-service", server.service(), "-max-time", "1"}), 3, "",
                 error_line(limit_text(1)));
}

TEST(ToolTimeLimit, EndsAConnectThatHangsWithAnObject)
{
    const HangingServer server;
    expect_ended(run_tool({"-service", server.service(), "-max-time", "1", "-json"}), 3,
                 unanswered_json("timeout", 3, limit_text(1)), error_line(limit_text(1)));
}

TEST(ToolTimeLimit, HoldsWhereTheAlarmWasBlockedAndIgnoredAtStart)
{
    ChildOptions options;
    options.blocked_signals = {SIGALRM};
    options.ignored_signals = {SIGALRM};
    expect_ended(ask(holding(), {"-max-time", "2"}, options).result, 3, "",
                 error_line(limit_text(2)));
}

TEST(ToolTimeLimit, IsOfNoAccountToAnAnswerInTime)
{
    const PeerScript script = {{PeerAct::ReadRequest},
                               {PeerAct::Pause, "", 1500},
                               {PeerAct::Send, reply_of("Message: Hello\n")}};
    expect_ended(ask(script, {"-max-time", "60"}).result, 0, "Hello\n", "");
}

TEST(ToolTimeLimit, HoldsForAnOutputThatNobodyReads)
{
    ChildOptions options;
    options.output = ChildStream::StalledPipe;
    expect_ended(ask(sending(reply_of("Message: Hello\n")), {"-max-time", "2"}, options).result, 3,
                 "", error_line(limit_text(2)));
}

TEST(ToolTimeLimit, HoldsForAStandardErrorThatNobodyReads)
{
    ChildOptions options;
    options.error = ChildStream::StalledPipe;
    expect_ended(
        ask(sending("HTTP/1.0 404 Not Found\r\n\r\n"), {"-max-time", "2", "-json"}, options).result,
        3, unanswered_json("timeout", 3, limit_text(2)), "");
}

// The exchange ends by the limit, the output of its object by the limit's second.
TEST(ToolTimeLimit, IsToldOfOnceThoughTheOutputHangsToo)
{
    ChildOptions options;
    options.output = ChildStream::StalledPipe;
    expect_ended(ask(holding(), {"-max-time", "1", "-json"}, options).result, 3, "",
                 error_line(limit_text(1)));
}

TEST(ToolTimeLimit, HoldsForATerminalThatIsStopped)
{
    const LoopbackPeer peer({holding()});
    ChildOptions options;
    options.error = ChildStream::Terminal;
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
