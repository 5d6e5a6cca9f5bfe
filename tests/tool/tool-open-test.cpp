// -open: what of an answer the utility hands to the desktop, and that nothing else is ever started.
// The desktop's opener is the recorder of the platform's tests.
#include <chrono>
#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <poll.h>

#include "tests/harness/fake-desktop.h"
#include "tests/harness/temp-folder.h"
#include "tests/tool/address-rows.h"
#include "tests/tool/json-line.h"
#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {
namespace {

const char address[] = "http://www.quintral.example/get?v=5.2&os=Linux#new";

std::string answer_with(const std::string &version, const std::string &web_address)
{
    std::string body = version.empty() ? "" : "Version: " + version + "\n";
    body += web_address.empty() ? "" : "URL: " + web_address + "\n";
    return body + "Message: Hello\n";
}

using Settings = std::vector<std::pair<std::string, std::string>>;

ChildOptions options_with(Settings environment, const Settings &more = {})
{
    environment.insert(environment.end(), more.begin(), more.end());
    ChildOptions options;
    options.environment = environment;
    return options;
}

ChildResult run_with(const FakeDesktop &desktop, const std::string &answer,
                     const Strings &arguments, const Settings &more = {})
{
    const Strings product = {"-product-version", "5.1"};
    return ask(sending(reply_of(answer)), joined(product, arguments),
               options_with(desktop.environment(), more))
        .result;
}

void expect_opened(const FakeDesktop &desktop, const std::string &web_address)
{
    EXPECT_EQ(record_argument(wait_for_record(desktop.path("record"))), web_address);
}

TEST(ToolOpen, OpensTheAddressOfANewerVersion)
{
    const FakeDesktop desktop;
    expect_ended(run_with(desktop, answer_with("5.2", address), {"-open"}), 0,
                 "Version: 5.2\nURL: " + std::string(address) + "\nHello\n", "");
    expect_opened(desktop, address);
}

TEST(ToolOpen, ChangesNothingInTheObject)
{
    const FakeDesktop desktop;
    const std::string object =
        json_line("answered", 0, "true",
                  {"\"5.2\"", "\"" + std::string(address) + "\"", "null", "\"Hello\\n\""}, "null");
    expect_ended(run_with(desktop, answer_with("5.2", address), {"-open", "-json"}), 0, object, "");
    expect_opened(desktop, address);
}

TEST(ToolOpen, EndsInStatus10WithExitCode)
{
    const FakeDesktop desktop;
    EXPECT_EQ(run_with(desktop, answer_with("5.2", address), {"-open", "-exit-code"}).exit_status,
              10);
    expect_opened(desktop, address);
}

TEST(ToolOpen, DoesNothingUnlessAskedForANewerVersionWithAnAddress)
{
    const struct {
        const char *what;
        const char *version;
        const char *web_address;
        Strings arguments;
    } rows[] = {
        {"without -open", "5.2", address, {}},
        {"the same version", "5.1", address, {"-open"}},
        {"an older version", "5.0", address, {"-open"}},
        {"no version", "", address, {"-open"}},
        {"no version number", "new", address, {"-open"}},
        {"no address", "5.2", "", {"-open"}},
        {"an address that would be refused, and the same version", "5.1", "file:///", {"-open"}},
    };
    for (const auto &row : rows) {
        const FakeDesktop desktop;
        const ChildResult result =
            run_with(desktop, answer_with(row.version, row.web_address), row.arguments);
        EXPECT_EQ(result.exit_status, 0) << row.what;
        EXPECT_EQ(result.error, "") << row.what;
        EXPECT_EQ(desktop.record(), "") << row.what;
    }
}

TEST(ToolOpen, DoesNothingForAnAnswerThatIsNone)
{
    const FakeDesktop desktop;
    const ChildResult result =
        ask(sending("HTTP/1.0 500 Broken\r\n\r\n" + answer_with("5.2", address)),
            {"-product-version", "5.1", "-open"}, options_with(desktop.environment()))
            .result;
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(desktop.record(), "");
}

const char refusal[] = "Not opening the web address: not an http or https URL";

// Blanks before a value, and a line feed, are the reply's own.
bool reaches_the_check(const std::string &text)
{
    return !text.empty() && text[0] != ' ' && text.find('\n') == std::string::npos;
}

TEST(ToolOpen, RefusesWhatIsNoWebAddressBeforeAnythingIsStarted)
{
    for (const AddressRow &row : address_rows) {
        if (row.accepted || !reaches_the_check(row.address))
            continue;
        const FakeDesktop desktop;
        const ChildResult result =
            run_with(desktop, answer_with("5.2", row.address), {"-open", "-exit-code"});
        EXPECT_EQ(result.exit_status, 1) << row.address;
        EXPECT_EQ(result.error, error_line(refusal)) << row.address;
        EXPECT_EQ(result.output.find("Version: 5.2\nURL: "), 0U) << result.output;
        EXPECT_EQ(desktop.record(), "") << row.address;
    }
}

std::string failed_object(const std::string &web_address, const std::string &error)
{
    return json_line("answered", 1, "true",
                     {"\"5.2\"", "\"" + web_address + "\"", "null", "\"Hello\\n\""},
                     "\"" + error + "\"");
}

TEST(ToolOpen, TellsOfARefusalInTheObjectToo)
{
    const FakeDesktop desktop;
    expect_ended(run_with(desktop, answer_with("5.2", "file:///x"), {"-open", "-json"}), 1,
                 failed_object("file:///x", refusal), error_line(refusal));
    EXPECT_EQ(desktop.record(), "");
}

TEST(ToolOpen, TellsOfADesktopThatFails)
{
    const FakeDesktop desktop;
    const Settings failing = {{"FAKE_STATUS", "3"}};
    const std::string error = "The desktop did not open the web address: code 3";
    const std::string answer = answer_with("5.2", address);
    expect_ended(run_with(desktop, answer, {"-open"}, failing), 1,
                 "Version: 5.2\nURL: " + std::string(address) + "\nHello\n", error_line(error));
    expect_ended(run_with(desktop, answer, {"-open", "-json", "-exit-code"}, failing), 1,
                 failed_object(address, error), error_line(error));
}

TEST(ToolOpen, TellsOfADesktopThatIsMissing)
{
    const TempFolder empty;
    ChildOptions options;
    options.environment = {{"PATH", empty.path()}};
    const std::string error = "The desktop did not open the web address: code -1";
    const ChildResult result = ask(sending(reply_of(answer_with("5.2", address))),
                                   {"-product-version", "5.1", "-open", "-json"}, options)
                                   .result;
    expect_ended(result, 1, failed_object(address, error), error_line(error));
}

TEST(ToolOpen, TellsOfAnAddressThatTheSystemDoesNotTake)
{
    const FakeDesktop desktop;
    const std::string error = "The desktop did not open the web address: code -30773";
    for (const std::string odd : {"http://host/\"", "http://host/`id`", "http://host/{}"}) {
        const ChildResult result = run_with(desktop, answer_with("5.2", odd), {"-open"});
        EXPECT_EQ(result.exit_status, 1) << odd;
        EXPECT_EQ(result.error, error_line(error)) << odd;
    }
    EXPECT_EQ(desktop.record(), "");
}

TEST(ToolOpen, RefusesAnAddressThatMayHaveBeenCut)
{
    const std::string error = "Not opening the web address: it may be truncated";
    for (const std::string ending : {"", "\r"}) {
        const FakeDesktop desktop;
        const std::string start = "http://host/";
        const std::string fitting = start + std::string(65535 - start.size() - ending.size(), 'x');
        const ChildResult result =
            run_with(desktop, answer_with("5.2", fitting + ending), {"-open", "-quiet"});
        EXPECT_EQ(result.exit_status, 1);
        EXPECT_EQ(result.error, error_line(error));
        EXPECT_EQ(result.output, "Version: 5.2\nURL: " + fitting + "\nHello\n");
        EXPECT_EQ(desktop.record(), "");
    }
    const FakeDesktop desktop;
    const std::string whole = "http://host/" + std::string(65533 - 12, 'x');
    EXPECT_EQ(run_with(desktop, answer_with("5.2", whole), {"-open", "-quiet"}).exit_status, 0);
    expect_opened(desktop, whole);
}

// An opener that becomes a program which goes on for long, as a browser does.
const Settings busy = {{"FAKE_SLEEP", "yes"}};

TEST(ToolOpen, TakesADesktopThatIsStillAtWorkForOneThatAccepted)
{
    const FakeDesktop desktop;
    const auto start = std::chrono::steady_clock::now();
    const ChildResult result =
        run_with(desktop, answer_with("5.2", address), {"-open", "-exit-code"}, busy);
    EXPECT_EQ(result.exit_status, 10);
    EXPECT_EQ(result.error, "");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(6));
    EXPECT_TRUE(end_recorder(desktop)) << "it was to go on behind the utility's end";
}

std::string opened_object(int exit_status)
{
    return json_line("answered", exit_status, "true",
                     {"\"5.2\"", "\"" + std::string(address) + "\"", "null", "\"Hello\\n\""},
                     "null");
}

// The answer came in time; what the desktop takes is not the exchange's.
TEST(ToolOpen, PrintsTheAnswerThoughTheTimeLimitPassesMeanwhile)
{
    const FakeDesktop desktop;
    const PeerScript late = {{PeerAct::ReadRequest},
                             {PeerAct::Pause, "", 300},
                             {PeerAct::Send, reply_of(answer_with("5.2", address))}};
    const ChildResult result =
        ask(late, {"-product-version", "5.1", "-open", "-json", "-max-time", "1"},
            options_with(desktop.environment(), busy))
            .result;
    expect_ended(result, 0, opened_object(0), "");
    EXPECT_TRUE(end_recorder(desktop));
}

// Interrupts the utility while it waits for the desktop, so many times.
ChildResult interrupt_the_opening(int interrupts, ChildStream output = ChildStream::Pipe)
{
    const FakeDesktop desktop;
    ChildOptions options = options_with(desktop.environment(), busy);
    options.output = output;
    const LoopbackPeer peer({sending(reply_of(answer_with("5.2", address)))});
    Child child = start_tool(
        {"-service", peer.address(), "-product-version", "5.1", "-open", "-json"}, options);
    EXPECT_NE(wait_for_record(desktop.path("record")), "");
    for (int i = 0; i < interrupts; ++i) {
        child_signal(child, SIGINT);
        poll(nullptr, 0, 100);
    }
    const ChildResult result = child_wait(child);
    EXPECT_TRUE(end_recorder(desktop));
    return result;
}

TEST(ToolOpen, PrintsTheAnswerThoughAnInterruptComesMeanwhileAndEndsByItThen)
{
    expect_ended_by(interrupt_the_opening(1), SIGINT, opened_object(128 + SIGINT), "");
}

// What waits for the desktop must not wait for a reader of the answer for ever.
TEST(ToolOpen, HoldsToTheTimeLimitForAnOutputThatNobodyReads)
{
    const FakeDesktop desktop;
    ChildOptions options = options_with(desktop.environment(), busy);
    options.output = ChildStream::StalledPipe;
    const ChildResult result =
        ask(sending(reply_of(answer_with("5.2", address))),
            {"-product-version", "5.1", "-open", "-json", "-max-time", "1"}, options)
            .result;
    EXPECT_EQ(result.exit_status, 3);
    EXPECT_EQ(result.error, error_line("The time limit of 1 s has passed"));
    EXPECT_TRUE(end_recorder(desktop));
}

const char cancelled[] = "User canceled web transaction";

TEST(ToolOpen, EndsByAnInterruptThatCameMeanwhileWhereNobodyReadsTheAnswer)
{
    expect_ended_by(interrupt_the_opening(1, ChildStream::StalledPipe), SIGINT, "",
                    error_line(cancelled));
}

TEST(ToolOpen, EndsAtASecondInterrupt)
{
    const std::string error = cancelled;
    expect_ended_by(interrupt_the_opening(2), SIGINT,
                    unanswered_json("cancelled", 128 + SIGINT, error), error_line(error));
}

} // namespace
} // namespace quintral::tests::tool
