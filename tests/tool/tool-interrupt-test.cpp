// How the utility reacts to SIGINT, SIGTERM and SIGHUP.
#include <csignal>
#include <string>

#include <gtest/gtest.h>
#include <poll.h>

#include "tests/tool/hanging-server.h"
#include "tests/tool/interrupts.h"
#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {
namespace {

const int all_signals[] = {SIGINT, SIGTERM, SIGHUP};

std::string line()
{
    return error_line(cancelled_text);
}

// Interrupts the utility and expects the object of -json.
void expect_object(const PeerScript &script, int signal_number, int http_status, int milliseconds)
{
    const Exchange exchange =
        interrupt_exchange(script, signal_number, {"-json"}, {}, milliseconds);
    expect_ended_by(exchange.result, signal_number,
                    cancelled_json(signal_number, exchange.address, http_status), line(),
                    "signal " + std::to_string(signal_number));
}

TEST(ToolInterrupt, EndsAWaitForTheHeaderByThatSignal)
{
    for (const int number : all_signals) {
        const std::string what = "signal " + std::to_string(number);
        expect_ended_by(interrupt_exchange(holding(), number, {}).result, number, "", line(), what);
        expect_object(holding(), number, 0, 0);
        const PeerScript script = holding("HTTP/1.0 200 OK\r\n");
        expect_ended_by(interrupt_exchange(script, number, {"-quiet"}).result, number, "", line(),
                        what);
    }
}

TEST(ToolInterrupt, EndsAWaitForTheBodyByThatSignal)
{
    for (const int number : all_signals)
        expect_object(holding(reply_of("Message: ")), number, 200, 200);
}

// Only the wait for the next byte ends at once, so the status may be that of either way to end.
TEST(ToolInterrupt, EndsAnEndlessBodyByThatSignal)
{
    const PeerScript script = trickling(reply_of("Message: "), trickled_body, 1);
    const Exchange exchange = interrupt_exchange(script, SIGINT, {"-json"}, {}, 300);
    const bool has_status = exchange.result.output.find("\"http_status\":200") != std::string::npos;
    expect_ended_by(exchange.result, SIGINT,
                    cancelled_json(SIGINT, exchange.address, has_status ? 200 : 0), line());
    expect_ended_by(interrupt_exchange(script, SIGTERM, {}, {}, 300).result, SIGTERM, "", line());
}

TEST(ToolInterrupt, EndsAnEndlessHeaderByThatSignal)
{
    expect_object(trickling("", trickled_header, 1), SIGTERM, 0, 300);
}

TEST(ToolInterrupt, ShowsNoNotesAboutTheReply)
{
    const PeerScript script = holding("HTTP/1.0 302 Moved\r\nLocation: a\r\n\r\n<html>");
    const Exchange exchange = interrupt_exchange(script, SIGINT, {"-json"}, {}, 200);
    expect_ended_by(exchange.result, SIGINT, cancelled_json(SIGINT, exchange.address, 302), line());
}

TEST(ToolInterrupt, EndsAConnectThatHangsAfterASecond)
{
    for (const int number : all_signals) {
        const HangingServer server;
        Child child = start_tool({"-service", server.address(), "-json"});
        ASSERT_TRUE(wait_for_handlers(child));
        poll(nullptr, 0, 100);
        child_signal(child, number);
        expect_ended_by(child_wait(child), number, cancelled_json(number, server.address()),
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
    expect_ended_by(child_wait(child), SIGTERM, cancelled_json(SIGTERM, server.address()),
                    error_line(cancelled_text));
}

TEST(ToolInterrupt, ASignalIgnoredAtStartStaysIgnored)
{
    const PeerScript script = sending_late(reply_of("Version: 1\nMessage: Hello\n"), 500);
    for (const int number : all_signals) {
        ChildOptions options;
        options.ignored_signals = {number};
        expect_ended(interrupt_exchange(script, number, {}, options).result, 0,
                     "Version: 1\nHello\n", "");
        const int other = number == SIGINT ? SIGTERM : SIGINT;
        expect_ended_by(interrupt_exchange(holding(), other, {}, options).result, other, "",
                        line());
    }
}

TEST(ToolInterrupt, EndsAnOutputThatNobodyReads)
{
    const LoopbackPeer peer({sending(reply_of("Message: Hello\n"))});
    Child child =
        start_tool({"-service", peer.address(), "-quiet"}, with_output(ChildStream::StalledPipe));
    peer.received(0);
    poll(nullptr, 0, 200);
    child_signal(child, SIGTERM);
    expect_ended_by(child_wait(child), SIGTERM, "", error_line(cancelled_text));
}

TEST(ToolInterrupt, EndsAnOutputAtOnceEvenIfAReaderComesThen)
{
    const LoopbackPeer peer({sending("HTTP/1.0 404 No\r\n\r\n")});
    expect_interrupted_output({"-service", peer.address(), "-quiet", "-json"},
                              error_line("Bad HTTP status 404 from web site: No"));
}

TEST(ToolInterrupt, IsReportedOnceEvenIfTheOutputHangsToo)
{
    const ChildOptions options = with_output(ChildStream::StalledPipe);
    expect_ended_by(interrupt_exchange(holding(), SIGINT, {"-json"}, options).result, SIGINT, "",
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
    EXPECT_EQ(result.output, cancelled_json(SIGINT, peer.address()));
}

// After the output

// Reads the whole output, then interrupts at once. Most interrupts find the utility at its end;
// none may change the status that the output states.
TEST(ToolInterrupt, DoesNotChangeTheStatusOfAnOutputThatHasBeenWritten)
{
    const LoopbackPeer peer({sending(reply_of("Version: 9\nMessage: Hello\n"))});
    for (int run = 0; run < 40; ++run) {
        const bool json = run % 2 == 1;
        const int number = all_signals[run % 3];
        Child child = start_tool(joined({"-service", peer.address(), "-exit-code"},
                                        json ? Strings{"-json"} : Strings{}));
        ASSERT_TRUE(child_wait_for_text(child, json ? "}\n" : "Hello\n", patience));
        child_signal(child, number);
        const ChildResult result = child_wait(child);
        EXPECT_EQ(result.exit_status, 10) << "signal " << number;
        EXPECT_EQ(result.signal, 0) << "signal " << number;
        EXPECT_EQ(result.error, "");
    }
}

// The same for an object that states a failure.
TEST(ToolInterrupt, DoesNotChangeTheStatusOfAFailureThatHasBeenWritten)
{
    const LoopbackPeer peer({sending("HTTP/1.0 404 No\r\n\r\n")});
    for (int run = 0; run < 20; ++run) {
        Child child = start_tool({"-service", peer.address(), "-json"});
        ASSERT_TRUE(child_wait_for_text(child, "}\n", patience));
        child_signal(child, SIGINT);
        const ChildResult result = child_wait(child);
        EXPECT_EQ(result.exit_status, 1);
        EXPECT_EQ(result.signal, 0);
    }
}

// Starts a run that prints its answer and then waits for a stopped terminal to accept the note.
Child start_and_print(const LoopbackPeer &peer, const Strings &arguments)
{
    Child child = start_tool(joined({"-service", peer.address(), "-exit-code"}, arguments),
                             with_error(ChildStream::Terminal));
    EXPECT_TRUE(child_wait_for_text(child, "\r", patience));
    stop_terminal(child);
    EXPECT_TRUE(child_wait_for_text(child, "Hello\n", patience));
    return child;
}

const PeerScript late_answer = sending_late(reply_of("Version: 9\nMessage: Hello\n"), 700);

TEST(ToolInterrupt, EndsARunThatHasPrintedItsAnswerWithTheStatusOfTheAnswer)
{
    for (const int number : all_signals) {
        const LoopbackPeer peer({late_answer});
        Child child = start_and_print(peer, {});
        poll(nullptr, 0, 200);
        EXPECT_EQ(process_status(child, "State:").find('Z'), std::string::npos) << "it has ended";
        child_signal(child, number);
        const ChildResult result = child_wait(child);
        EXPECT_EQ(result.exit_status, 10) << "signal " << number;
        EXPECT_EQ(result.output, "Version: 9\nHello\n");
    }
}

TEST(ToolInterrupt, TheTimeLimitEndsSuchARunWithTheStatusOfTheAnswerToo)
{
    const LoopbackPeer peer({late_answer});
    Child child = start_and_print(peer, {"-max-time", "2"});
    const ChildResult result = child_wait(child);
    EXPECT_EQ(result.exit_status, 10);
    EXPECT_EQ(result.output, "Version: 9\nHello\n");
}

} // namespace
} // namespace quintral::tests::tool
