// -open: which addresses of an answer the utility passes to the desktop. The desktop is a fake one,
// whose record shows what has been started.
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

const std::string address = "http://www.quintral.example/get?v=5.2&os=Linux#new";
const std::string address_text = "Version: 5.2\nURL: " + address + "\nHello\n";

std::string answer_with(const std::string &version, const std::string &web_address)
{
    std::string body = version.empty() ? "" : "Version: " + version + "\n";
    body += web_address.empty() ? "" : "URL: " + web_address + "\n";
    return body + "Message: Hello\n";
}

// The object of an answer; error and reason are empty for null.
std::string object_with(const std::string &web_address, int exit_status, const std::string &service,
                        const std::string &error = "", const std::string &reason = "")
{
    return json_line("answered", exit_status, "true",
                     {"\"5.2\"", "\"" + web_address + "\"", "null", "\"Hello\\n\""},
                     string_or_null(error), {reason, 200, service});
}

using Settings = std::vector<std::pair<std::string, std::string>>;

ChildOptions options_with(Settings environment, const Settings &more = {})
{
    environment.insert(environment.end(), more.begin(), more.end());
    ChildOptions options;
    options.environment = environment;
    return options;
}

// Runs version 5.1 against a service that sends the answer.
Exchange run_with(const FakeDesktop &desktop, const std::string &answer, const Strings &arguments,
                  const Settings &more = {})
{
    return ask(sending(reply_of(answer)), joined({"-product-version", "5.1"}, arguments),
               options_with(desktop.environment(), more));
}

void expect_opened(const FakeDesktop &desktop, const std::string &web_address)
{
    EXPECT_EQ(record_argument(wait_for_record(desktop.path("record"))), web_address);
}

TEST(ToolOpen, OpensTheAddressOfANewerVersion)
{
    const FakeDesktop desktop;
    expect_ended(run_with(desktop, answer_with("5.2", address), {"-open"}).result, 0, address_text,
                 "");
    expect_opened(desktop, address);
}

TEST(ToolOpen, DoesNotChangeTheObject)
{
    const FakeDesktop desktop;
    const Exchange exchange = run_with(desktop, answer_with("5.2", address), {"-open", "-json"});
    expect_ended(exchange.result, 0, object_with(address, 0, exchange.address), "");
    expect_opened(desktop, address);
}

TEST(ToolOpen, EndsWithStatus10WithExitCode)
{
    const FakeDesktop desktop;
    expect_ended(run_with(desktop, answer_with("5.2", address), {"-open", "-exit-code"}).result, 10,
                 address_text, "");
    expect_opened(desktop, address);
}

TEST(ToolOpen, OpensNothingWithoutANewerVersionAndAnAddress)
{
    const struct {
        const char *what;
        std::string version;
        std::string web_address;
        Strings arguments;
        std::string notes = {};
    } rows[] = {
        {"without -open", "5.2", address, {}},
        {"the same version", "5.1", address, {"-open"}},
        {"an older version", "5.0", address, {"-open"}},
        {"no version",
         "",
         address,
         {"-open"},
         "Note: It is unknown whether a newer version exists: the reply has no Version line\n"},
        {"not a version number",
         "new",
         address,
         {"-open"},
         "Note: It is unknown whether a newer version exists: the version in the reply is not a "
         "number\n"},
        {"no address", "5.2", "", {"-open"}},
        {"the same version, an address to reject", "5.1", "file:///", {"-open"}},
    };
    for (const auto &row : rows) {
        const FakeDesktop desktop;
        const ChildResult result =
            run_with(desktop, answer_with(row.version, row.web_address), row.arguments).result;
        EXPECT_EQ(result.exit_status, 0) << row.what;
        EXPECT_EQ(result.error, row.notes) << row.what;
        EXPECT_EQ(desktop.record(), "") << row.what;
    }
}

TEST(ToolOpen, OpensNothingAfterAFailure)
{
    const FakeDesktop desktop;
    const ChildResult result =
        ask(sending("HTTP/1.0 500 Broken\r\n\r\n" + answer_with("5.2", address)),
            {"-product-version", "5.1", "-open"}, options_with(desktop.environment()))
            .result;
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(desktop.record(), "");
}

const char rejection[] = "Not opening the web address: not an http or https URL";

// A reply cannot hold an empty value, spaces before a value, or a line feed in it.
bool fits_into_a_reply(const std::string &text)
{
    return !text.empty() && text[0] != ' ' && text.find('\n') == std::string::npos;
}

TEST(ToolOpen, RejectsEverythingButWebAddressesBeforeStartingAProcess)
{
    for (const AddressRow &row : address_rows) {
        if (row.accepted || !fits_into_a_reply(row.address))
            continue;
        const FakeDesktop desktop;
        const ChildResult result =
            run_with(desktop, answer_with("5.2", row.address), {"-open", "-exit-code"}).result;
        EXPECT_EQ(result.exit_status, 1) << row.address;
        EXPECT_EQ(result.error, error_line(rejection)) << row.address;
        EXPECT_EQ(result.output.find("Version: 5.2\nURL: "), 0U) << result.output;
        EXPECT_EQ(desktop.record(), "") << row.address;
    }
}

std::string failed_object(const std::string &web_address, const std::string &service,
                          const std::string &error)
{
    return object_with(web_address, 1, service, error, "open");
}

TEST(ToolOpen, ReportsARejectionInTheObjectToo)
{
    const FakeDesktop desktop;
    const Exchange exchange =
        run_with(desktop, answer_with("5.2", "file:///x"), {"-open", "-json"});
    expect_ended(exchange.result, 1, failed_object("file:///x", exchange.address, rejection),
                 error_line(rejection));
    EXPECT_EQ(desktop.record(), "");
}

TEST(ToolOpen, ReportsADesktopThatFails)
{
    const FakeDesktop desktop;
    const Settings failing = {{"FAKE_STATUS", "3"}};
    const std::string error = "The desktop did not open the web address: code 3";
    const std::string answer = answer_with("5.2", address);
    expect_ended(run_with(desktop, answer, {"-open"}, failing).result, 1, address_text,
                 error_line(error));
    const Exchange json = run_with(desktop, answer, {"-open", "-json", "-exit-code"}, failing);
    expect_ended(json.result, 1, failed_object(address, json.address, error), error_line(error));
}

TEST(ToolOpen, ReportsAMissingDesktop)
{
    const TempFolder empty;
    ChildOptions options;
    options.environment = {{"PATH", empty.path()}};
    const std::string error = "The desktop did not open the web address: code -1";
    const Exchange exchange = ask(sending(reply_of(answer_with("5.2", address))),
                                  {"-product-version", "5.1", "-open", "-json"}, options);
    expect_ended(exchange.result, 1, failed_object(address, exchange.address, error),
                 error_line(error));
}

TEST(ToolOpen, ReportsAnAddressThatTheSystemRejects)
{
    const FakeDesktop desktop;
    const std::string error = "The desktop did not open the web address: code -30773";
    for (const std::string odd : {"http://host/\"", "http://host/`id`", "http://host/{}"}) {
        const ChildResult result = run_with(desktop, answer_with("5.2", odd), {"-open"}).result;
        EXPECT_EQ(result.exit_status, 1) << odd;
        EXPECT_EQ(result.error, error_line(error)) << odd;
    }
    EXPECT_EQ(desktop.record(), "");
}

TEST(ToolOpen, RejectsAnAddressThatMayBeTruncated)
{
    const std::string error = "Not opening the web address: it may be truncated";
    for (const std::string ending : {"", "\r"}) {
        const FakeDesktop desktop;
        const std::string start = "http://host/";
        const std::string fitting = start + std::string(65535 - start.size() - ending.size(), 'x');
        const ChildResult result =
            run_with(desktop, answer_with("5.2", fitting + ending), {"-open", "-quiet"}).result;
        expect_ended(result, 1, "Version: 5.2\nURL: " + fitting + "\nHello\n", error_line(error));
        EXPECT_EQ(desktop.record(), "");
    }
    const FakeDesktop desktop;
    const std::string whole = "http://host/" + std::string(65533 - 12, 'x');
    EXPECT_EQ(run_with(desktop, answer_with("5.2", whole), {"-open", "-quiet"}).result.exit_status,
              0);
    expect_opened(desktop, whole);
}

// The opener becomes a program that keeps running, as a browser does.
const Settings busy = {{"FAKE_SLEEP", "yes"}};

TEST(ToolOpen, SucceedsIfTheDesktopIsStillRunningAfterASecond)
{
    const FakeDesktop desktop;
    const auto start = std::chrono::steady_clock::now();
    const ChildResult result =
        run_with(desktop, answer_with("5.2", address), {"-open", "-exit-code"}, busy).result;
    EXPECT_EQ(result.exit_status, 10);
    EXPECT_EQ(result.error, "");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(6));
    EXPECT_TRUE(end_recorder(desktop)) << "it should have outlived the utility";
}

TEST(ToolOpen, PrintsTheAnswerIfTheTimeLimitPassesMeanwhile)
{
    const FakeDesktop desktop;
    const Exchange exchange = ask(sending_late(reply_of(answer_with("5.2", address)), 300),
                                  {"-product-version", "5.1", "-open", "-json", "-max-time", "1"},
                                  options_with(desktop.environment(), busy));
    expect_ended(exchange.result, 0, object_with(address, 0, exchange.address), "");
    EXPECT_TRUE(end_recorder(desktop));
}

// Interrupts the utility that many times while it waits for the desktop.
Exchange interrupt_the_opening(int interrupts, ChildStream output = ChildStream::Pipe)
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
    Exchange exchange;
    exchange.address = peer.address();
    exchange.result = child_wait(child);
    EXPECT_TRUE(end_recorder(desktop));
    return exchange;
}

TEST(ToolOpen, PrintsTheAnswerAfterAnInterruptAndThenEndsByIt)
{
    const Exchange exchange = interrupt_the_opening(1);
    expect_ended_by(exchange.result, SIGINT, object_with(address, 128 + SIGINT, exchange.address),
                    "");
}

// The answer is out, and the note after it waits for a stopped terminal.
TEST(ToolOpen, EndsByTheFirstInterruptIfAnotherFollowsTheAnswer)
{
    const FakeDesktop desktop;
    ChildOptions options = options_with(desktop.environment(), busy);
    options.error = ChildStream::Terminal;
    const LoopbackPeer peer({sending(reply_of(answer_with("5.2", address)))});
    Child child =
        start_tool({"-service", peer.address(), "-product-version", "5.1", "-open"}, options);
    EXPECT_NE(wait_for_record(desktop.path("record")), "");
    stop_terminal(child);
    child_signal(child, SIGINT);
    EXPECT_TRUE(child_wait_for_text(child, "Hello\n", patience));
    poll(nullptr, 0, 200);
    child_signal(child, SIGTERM);
    const ChildResult result = child_wait(child);
    EXPECT_EQ(result.signal, SIGINT);
    EXPECT_EQ(result.output, "Version: 5.2\nURL: " + address + "\nHello\n");
    EXPECT_TRUE(end_recorder(desktop));
}

// The time limit is deferred for the desktop, but not for ever.
TEST(ToolOpen, KeepsTheTimeLimitForAnOutputThatNobodyReads)
{
    const FakeDesktop desktop;
    ChildOptions options = options_with(desktop.environment(), busy);
    options.output = ChildStream::StalledPipe;
    const ChildResult result =
        ask(sending(reply_of(answer_with("5.2", address))),
            {"-product-version", "5.1", "-open", "-json", "-max-time", "1"}, options)
            .result;
    expect_ended(result, 3, "", error_line(limit_text(1)));
    EXPECT_TRUE(end_recorder(desktop));
}

TEST(ToolOpen, EndsByADeferredInterruptIfNobodyReadsTheOutput)
{
    expect_ended_by(interrupt_the_opening(1, ChildStream::StalledPipe).result, SIGINT, "",
                    error_line(cancelled_text));
}

TEST(ToolOpen, EndsAtASecondInterrupt)
{
    const Exchange exchange = interrupt_the_opening(2);
    expect_ended_by(exchange.result, SIGINT,
                    unanswered_json("cancelled", 128 + SIGINT, cancelled_text,
                                    {"cancelled", 0, exchange.address}),
                    error_line(cancelled_text));
}

} // namespace
} // namespace quintral::tests::tool
