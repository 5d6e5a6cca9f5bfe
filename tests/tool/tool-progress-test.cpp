// The progress indicator on a terminal.
#include "tool/options.h"

#include <algorithm>
#include <csignal>
#include <string>

#include <gtest/gtest.h>

#include "tests/tool/interrupts.h"
#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {
namespace {

const PeerScript slow_answer = sending_late(reply_of("Version: 5\nMessage: Hello\n"), 700);
const char answer[] = "Version: 5\nHello\n";
const Strings same_version = {"-product-version", "5"};

// The lines that a terminal shows after these bytes, without trailing spaces.
Strings screen_of(const std::string &bytes)
{
    Strings lines = {""};
    std::size_t column = 0;
    for (char c : bytes) {
        if (c == '\n')
            lines.emplace_back();
        if (c == '\n' || c == '\r')
            column = 0;
        if (static_cast<unsigned char>(c) < 0x20)
            continue;
        lines.back().resize(std::max(lines.back().size(), column + 1), ' ');
        lines.back()[column++] = c;
    }
    for (std::string &line : lines)
        line.erase(line.find_last_not_of(' ') + 1);
    return lines;
}

const ChildOptions on_terminal = with_error(ChildStream::Terminal);

TEST(ToolProgressIndicator, IsShownOnATerminalDuringTheWaitAndErasedForTheAnswer)
{
    const ChildResult result = ask(slow_answer, same_version, on_terminal).result;
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.output, answer);
    EXPECT_NE(screen_of(result.error.substr(0, result.error.find('\r', 1))), Strings{""});
    EXPECT_EQ(screen_of(result.error), (Strings{"Note: There is no newer version than 5", ""}));
    const std::string json = ask(slow_answer, {"-json"}, on_terminal).result.error;
    EXPECT_EQ(screen_of(json), Strings{""});
    EXPECT_EQ(json.back(), '\r') << "the cursor is back at the start";
}

TEST(ToolProgressIndicator, MovesDuringTheWait)
{
    const std::string error = ask(slow_answer, {"-json"}, on_terminal).result.error;
    Strings shown;
    for (std::size_t at = error.find('\r'); at != std::string::npos;) {
        const std::size_t next = error.find('\r', at + 1);
        shown.push_back(error.substr(at, next - at));
        at = next;
    }
    ASSERT_GE(shown.size(), 4U); // the last two erase it
    for (std::size_t i = 0; i + 2 < shown.size(); ++i)
        EXPECT_EQ(shown[i], std::string("\rWaiting for the web site... ") + "|/-\\"[i % 4]);
}

TEST(ToolProgressIndicator, IsErasedForAFailureAnInterruptAndTheTimeLimit)
{
    const PeerScript failing = sending_late("HTTP/1.0 404 No\r\n\r\n", 700);
    const ChildResult failed = ask(failing, {}, on_terminal).result;
    EXPECT_EQ(screen_of(failed.error),
              (Strings{"Error: Bad HTTP status 404 from web site: No", ""}));
    const ChildResult interrupted =
        interrupt_exchange(holding(), SIGINT, {}, on_terminal, 500).result;
    EXPECT_EQ(interrupted.signal, SIGINT);
    EXPECT_EQ(screen_of(interrupted.error), (Strings{std::string("Error: ") + cancelled_text, ""}));
    const ChildResult limited = ask(holding(), {"-max-time", "1"}, on_terminal).result;
    EXPECT_EQ(limited.exit_status, 3);
    EXPECT_EQ(screen_of(limited.error), (Strings{"Error: " + limit_text(1), ""}));
}

TEST(ToolProgressIndicator, IsNotShownWithQuietOrOnAPipe)
{
    expect_ended(ask(slow_answer, {"-quiet"}, on_terminal).result, 0, answer, "");
    const ChildOptions options = with_output(ChildStream::Terminal);
    expect_ended(ask(slow_answer, {}, options).result, 0, answer, "");
    expect_ended(ask(slow_answer).result, 0, answer, "");
}

TEST(ToolProgressIndicator, IsNotShownWithoutAnExchange)
{
    expect_ended(run_tool({"-version"}, on_terminal), 0, "quintral " QUINTRAL_VERSION_NAME "\n",
                 "");
    expect_ended(run_tool({"-nonsense"}, on_terminal), 2, "",
                 error_line("Unknown option -nonsense") + usage_text() +
                     error_line("Unknown option -nonsense"));
}

} // namespace
} // namespace quintral::tests::tool
