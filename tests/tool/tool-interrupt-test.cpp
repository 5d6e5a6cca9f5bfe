// How the utility reacts to SIGINT and SIGTERM.
#include <csignal>
#include <string>

#include <gtest/gtest.h>
#include <poll.h>

#include "tests/tool/hanging-server.h"
#include "tests/tool/interrupts.h"
#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {
namespace {

TEST(ToolInterrupt, EndsAWaitForTheHeaderByThatSignal)
{
    for (const int number : {SIGINT, SIGTERM}) {
        const std::string what = "signal " + std::to_string(number);
        expect_ended_by(interrupt_exchange(holding(), number, {}), number, "",
                        error_line(cancelled_text), what);
        expect_ended_by(interrupt_exchange(holding(), number, {"-json", "-exit-code"}), number,
                        cancelled_json(number), error_line(cancelled_text), what);
        expect_ended_by(interrupt_exchange(holding("HTTP/1.0 200 OK\r\n"), number, {"-quiet"}),
                        number, "", error_line(cancelled_text), what);
    }
}

TEST(ToolInterrupt, EndsAWaitForTheBodyByThatSignal)
{
    const PeerScript script = holding(reply_of("Message: "));
    for (const int number : {SIGINT, SIGTERM})
        expect_ended_by(interrupt_exchange(script, number, {"-json"}, {}, 200), number,
                        cancelled_json(number), error_line(cancelled_text));
}

TEST(ToolInterrupt, EndsAnEndlessBodyByThatSignal)
{
    const PeerScript script = trickling(reply_of("Message: "), trickled_body, 1);
    expect_ended_by(interrupt_exchange(script, SIGINT, {"-json"}, {}, 300), SIGINT,
                    cancelled_json(SIGINT), error_line(cancelled_text));
    expect_ended_by(interrupt_exchange(script, SIGTERM, {}, {}, 300), SIGTERM, "",
                    error_line(cancelled_text));
}

TEST(ToolInterrupt, EndsAnEndlessHeaderByThatSignal)
{
    const PeerScript script = trickling("", trickled_header, 1);
    expect_ended_by(interrupt_exchange(script, SIGTERM, {"-json"}, {}, 300), SIGTERM,
                    cancelled_json(SIGTERM), error_line(cancelled_text));
}

TEST(ToolInterrupt, EndsAConnectThatHangsAfterASecond)
{
    for (const int number : {SIGINT, SIGTERM}) {
        const HangingServer server;
        Child child = start_tool({"-service", server.address(), "-json"});
        ASSERT_TRUE(wait_for_handlers(child));
        poll(nullptr, 0, 100);
        child_signal(child, number);
        expect_ended_by(child_wait(child), number, cancelled_json(number),
                        error_line(cancelled_text));
    }
}

// SIGTERM is sent again and again. If each one restarted the second of grace, the utility would
// never end.
TEST(ToolInterrupt, ASecondOneEndsTheProcessAtOnceByItself)
{
    const HangingServer server;
    Child child = start_tool({"-service", server.address(), "-json"});
    ASSERT_TRUE(wait_for_handlers(child));
    poll(nullptr, 0, 100);
    child_signal(child, SIGINT); // if both are pending, the lower number is delivered first
    int sent = 0;
    while (sent < 25 && process_status(child, "State:").find('Z') == std::string::npos) {
        child_signal(child, SIGTERM);
        poll(nullptr, 0, 200);
        ++sent;
    }
    EXPECT_LT(sent, 25);
    expect_ended_by(child_wait(child), SIGTERM, cancelled_json(SIGTERM),
                    error_line(cancelled_text));
}

TEST(ToolInterrupt, ASignalIgnoredAtStartStaysIgnored)
{
    const PeerScript script = sending_late(reply_of("Message: Hello\n"), 500);
    for (const int number : {SIGINT, SIGTERM}) {
        ChildOptions options;
        options.ignored_signals = {number};
        expect_ended(interrupt_exchange(script, number, {}, options), 0, "Hello\n", "");
        const int other = number == SIGINT ? SIGTERM : SIGINT;
        expect_ended_by(interrupt_exchange(holding(), other, {}, options), other, "",
                        error_line(cancelled_text));
    }
}

TEST(ToolInterrupt, EndsAnOutputThatNobodyReads)
{
    const LoopbackPeer peer({sending(reply_of("Message: Hello\n"))});
    Child child = start_tool({"-service", peer.address()}, with_output(ChildStream::StalledPipe));
    peer.received(0);
    poll(nullptr, 0, 200);
    child_signal(child, SIGTERM);
    expect_ended_by(child_wait(child), SIGTERM, "", error_line(cancelled_text));
}

TEST(ToolInterrupt, IsReportedOnceEvenIfTheOutputHangsToo)
{
    const ChildOptions options = with_output(ChildStream::StalledPipe);
    expect_ended_by(interrupt_exchange(holding(), SIGINT, {"-json"}, options), SIGINT, "",
                    error_line(cancelled_text));
}

TEST(ToolInterrupt, EndsTheProcessEvenIfTheTerminalIsStopped)
{
    const LoopbackPeer peer({holding()});
    ChildOptions options = with_error(ChildStream::Terminal);
    options.limit_seconds = 15;
    Child child = start_tool({"-service", peer.address(), "-json"}, options);
    ASSERT_TRUE(child_wait_for_text(child, "\r", patience));
    stop_terminal(child);
    poll(nullptr, 0, 300); // time to show progress on the stopped terminal
    child_signal(child, SIGINT);
    const ChildResult result = child_wait(child);
    EXPECT_EQ(result.signal, SIGINT);
    EXPECT_EQ(result.output, cancelled_json(SIGINT));
}

} // namespace
} // namespace quintral::tests::tool
