// -parse: a record gives what the recorded run gave, and a saved reply what a run would have given.
#include <csignal>
#include <ostream>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/tool/interrupts.h"
#include "tests/tool/recorded-run.h"

namespace quintral::tests::tool {
namespace {

// The exit status as a shell reports it.
int status_of(const ChildResult &result)
{
    return result.signal != 0 ? 128 + result.signal : result.exit_status;
}

void expect_same(const ChildResult &parsed, const ChildResult &run, const std::string &what)
{
    expect_ended(parsed, status_of(run), run.output, run.error, what);
}

// Parses from a file, and from standard input what its pipe can hold.
void expect_parsed(const std::string &bytes, const Strings &arguments, const ChildResult &run,
                   const std::string &what)
{
    const TempFolder folder;
    make_file(folder.path("file"), bytes);
    ChildOptions options;
    expect_same(run_tool(joined({"-parse", folder.path("file")}, arguments), options), run, what);
    if (bytes.size() > 65536)
        return;
    options.input = ChildInput::Text;
    options.input_text = bytes;
    expect_same(run_tool(joined({"-parse", "-"}, arguments), options), run, what + " from -");
}

// The runs whose records are parsed: each is the utility with these arguments and a script.
struct RunRow {
    const char *name;
    Strings arguments; // PEER stands for the address of the peer
    PeerScript script = {};
    int interrupt = 0; // the signal that is sent once the request has arrived
};

const Strings direct = {"-service", "PEER"};
const Strings proxied = {"-service", "a.example", "-proxy", "PEER"};

std::string html(const std::string &status)
{
    return "HTTP/1.0 " + status + "\r\nContent-Type: text/html\r\n\r\n<html>Log in</html>\n";
}

const std::string authenticate = "Proxy-Authenticate: Digest realm=\"x\"\r\n";

const RunRow run_rows[] = {
    {"Newer", direct, sending(reply_of("Version: 9\nURL: http://a/\nButton: b\nMessage: Hi\n"))},
    {"NotNewer", direct, sending(reply_of("Version: 0.5\nMessage: Hi\nthere"))},
    {"NoVersion", direct, sending(reply_of("Message: Hi\n"))},
    {"OddVersion", direct, sending(reply_of("Version: soon\nMessage: Hi\n"))},
    {"EmptyMessage", direct, sending(reply_of("Version: 9\nMessage: "))},
    {"Hostile", direct, sending(reply_of("Version: 9\x1B\nURL: \xFF\nMessage: \xE2\x80\xAE\x07"))},
    {"CarriageReturns", direct, sending(reply_of("Version: 9\r\nMessage: Hi\r\nthere\r\n"))},
    {"LineFeedsOnly", direct, sending("HTTP/1.0 200 OK\n\nVersion: 9\nMessage: Hi\n")},
    {"NulInHeader", direct,
     sending(std::string("HTTP/1.0 200 OK\r\nA: \0b\r\n\r\nVersion: 9\nMessage: Hi\n", 50))},
    {"NulInBody", direct, sending(reply_of(std::string("Version: 9\nMessage: H\0i\n", 24)))},
    {"Cut", direct, sending(reply_of("Version: 9\nMessage: " + std::string(70000, 'm')))},
    {"Proxied", proxied, sending(reply_of("Version: 9\nMessage: Hi\n"))},
    {"Ignored", joined(direct, {"-proxy-user", "me"}), sending(reply_of("Message: Hi\n"))},
    {"Redirect", direct, sending("HTTP/1.0 302 Moved\r\nLocation: http://b/\r\n\r\n")},
    {"NotFound", direct, sending("HTTP/1.0 404 Not\x1B\x01 Found\r\n\r\nMessage: Hi\n")},
    {"LargeStatus", direct, sending("HTTP/1.0 2147483647 x\r\n\r\n")},
    {"NegativeStatus", direct, sending("HTTP/1.0 -5 x\r\n\r\n")},
    {"NulInBadHeader", direct, sending(std::string("HTTP/1.0 500 a\0b\r\n\r\n<html>", 25))},
    {"LongError", direct, sending("HTTP/x" + std::string(3000, '\x1B') + "\r\n\r\n")},
    {"Unauthorised", proxied, sending("HTTP/1.0 407 No\r\n" + authenticate + "\r\n")},
    {"ProxyPage", proxied, sending(html("503 Later"))},
    {"Portal", direct, sending(html("200 OK"))},
    {"Closed", direct, {{PeerAct::ReadRequest}, {PeerAct::Close}}},
    {"ClosedProxy", proxied, {{PeerAct::ReadRequest}, {PeerAct::Close}}},
    {"NotHttp", direct, sending("\x15\x03\x01\r\n\r\n")},
    {"EndlessHeader", direct, sending("HTTP/1.0 200 OK")},
    {"Refused", {"-service", "127.0.0.1:" + std::to_string(refused_port())}},
    {"RefusedProxy", {"-service", "a", "-proxy", "127.0.0.1:" + std::to_string(refused_port())}},
    {"Unknown", {"-service", "a..b"}},
    {"UnknownProxy", {"-service", "a..b", "-proxy", "c.\x1B.d:80"}},
    {"TimeLimit", joined(proxied, {"-max-time", "1"}), holding(html("200 OK"))},
    {"Interrupt", proxied, holding(), SIGINT},
    {"Termination", direct, holding(), SIGTERM},
};

void PrintTo(const RunRow &row, std::ostream *stream)
{
    *stream << row.name;
}

std::string label(const testing::TestParamInfo<RunRow> &row)
{
    return row.param.name;
}

class ToolParseOf : public testing::TestWithParam<RunRow> {};

INSTANTIATE_TEST_SUITE_P(Runs, ToolParseOf, testing::ValuesIn(run_rows), label);

// Runs a row with -record, and parses the record with the same arguments.
void expect_run_parsed(const RunRow &row, const Strings &arguments)
{
    const TempFolder folder;
    const LoopbackPeer peer({row.script});
    Strings all = recording(folder, arguments);
    for (const std::string &argument : row.arguments)
        all.push_back(argument == "PEER" ? peer.address() : argument);
    Child child = start_tool(all);
    if (row.interrupt != 0) {
        EXPECT_TRUE(peer.wait_for_text(0, request_end(), patience));
        child_signal(child, row.interrupt);
    }
    const ChildResult run = child_wait(child);
    expect_parsed(file_content(folder.path("record")), arguments, run, row.name);
}

TEST_P(ToolParseOf, PrintsWhatTheRunPrinted)
{
    expect_run_parsed(GetParam(), {});
    expect_run_parsed(GetParam(), {"-json", "-exit-code"});
    expect_run_parsed(GetParam(), {"-quiet", "-exit-code"});
}

// A bare reply has no proxy and was received whole.
bool is_whole_reply(const RunRow &row)
{
    return row.arguments == direct && row.script.size() == 2 &&
           row.script[1].act == PeerAct::Send && std::string(row.name) != "EndlessHeader";
}

TEST(ToolParse, OfASavedReplyPrintsWhatARunWouldHavePrinted)
{
    int count = 0;
    for (const RunRow &row : run_rows) {
        if (!is_whole_reply(row))
            continue;
        ++count;
        for (const Strings &arguments : {Strings{}, Strings{"-json"}, Strings{"-exit-code"}}) {
            const LoopbackPeer peer({row.script});
            const Strings all = joined({"-service", peer.address()}, arguments);
            const ChildResult run = run_tool(all);
            expect_parsed(row.script[1].bytes, all, run, row.name);
        }
    }
    EXPECT_EQ(count, 19);
}

TEST(ToolParse, OfAnEmptyFileIsAReplyWithoutAnAnswer)
{
    expect_ended(run_tool({"-parse", "-"}), 1, "",
                 error_line("Invalid non-HTTP header string returned from web site") +
                     "Note: The service closed the connection without answering\n");
}

// Which version the reply's is compared with

int exit_code_of(const std::string &bytes, const Strings &arguments)
{
    ChildOptions options;
    options.input = ChildInput::Text;
    options.input_text = bytes;
    const ChildResult result = run_tool(joined({"-parse", "-"}, arguments), options);
    EXPECT_EQ(result.error, "");
    return result.exit_status;
}

std::string record_of_version(const std::string &version, const std::string &reply)
{
    return "Quintral record 1\nversion: " + version +
           "\nservice: a\nstatus: answered\nexit-status: 0\nhttp-status: 200\n" +
           reply_blocks(reply);
}

TEST(ToolParse, ComparesWithTheOptionThenTheRecordThenItsOwnVersion)
{
    const std::string reply = reply_of("Version: 5.2\nMessage: Hi\n");
    const std::string older = record_of_version("5.1", reply);
    const std::string newer = record_of_version("5.3", reply);
    EXPECT_EQ(exit_code_of(older, {"-exit-code"}), 10);
    EXPECT_EQ(exit_code_of(newer, {"-exit-code"}), 0);
    EXPECT_EQ(exit_code_of(older, {"-exit-code", "-product-version", "5.3"}), 0);
    EXPECT_EQ(exit_code_of(newer, {"-exit-code", "-product-version", "5.1"}), 10);
    EXPECT_EQ(exit_code_of(reply, {"-exit-code", "-product-version", "5.3"}), 0);
    EXPECT_EQ(exit_code_of(reply, {"-exit-code", "-product-version", "5.1"}), 10);
    EXPECT_EQ(exit_code_of(reply, {"-exit-code"}), 10);
    EXPECT_EQ(
        exit_code_of(reply_of("Version: " QUINTRAL_VERSION "\nMessage: Hi\n"), {"-exit-code"}), 0);
    EXPECT_EQ(exit_code_of(older, {}), 0);
}

// The run had -exit-code; who parses its record need not repeat that.
TEST(ToolParse, KeepsTheStatusOfARunWithExitCode)
{
    for (const char *body : {"Version: 9\nMessage: Hi\n", "Message: Hi\n"}) {
        const TempFolder folder;
        const RecordedRun run = record_run(folder, sending(reply_of(body)), {"-exit-code"});
        EXPECT_GE(run.exchange.result.exit_status, 10);
        expect_parsed(run.record, {}, run.exchange.result, body);
    }
}

// The notes for a user at a terminal

TEST(ToolParse, SaysOnATerminalWhetherTheVersionIsNewer)
{
    const ChildOptions options = with_error(ChildStream::Terminal);
    const TempFolder folder;
    make_file(folder.path("r"), reply_of("Version: 5.2\nMessage: Hi\n"));
    expect_ended(run_tool({"-parse", folder.path("r"), "-product-version", "5.1"}, options), 0,
                 "Version: 5.2\nHi\n", "Note: Version 5.2 is newer than 5.1\n");
    expect_ended(run_tool({"-parse", folder.path("r"), "-product-version", "5.2"}, options), 0,
                 "Version: 5.2\nHi\n", "Note: There is no newer version than 5.2\n");
    expect_ended(run_tool({"-parse", folder.path("r"), "-quiet"}, options), 0, "Version: 5.2\nHi\n",
                 "");
}

// Opening

const std::string dangerous = "Version: 9\nURL: file:///etc/passwd\nMessage: Hi\n";
const char refused_url[] = "Not opening the web address: not an http or https URL";

TEST(ToolParse, RepeatsTheErrorOfAnOpenThatWasRefused)
{
    const TempFolder folder;
    const RecordedRun run = record_run(folder, sending(reply_of(dangerous)), {"-open"});
    expect_ended(run.exchange.result, 1, "Version: 9\nURL: file:///etc/passwd\nHi\n",
                 error_line(refused_url));
    expect_parsed(run.record, {}, run.exchange.result, "open");
    const TempFolder second;
    const RecordedRun json = record_run(second, sending(reply_of(dangerous)), {"-open", "-json"});
    EXPECT_NE(json.exchange.result.output.find("\"reason\":\"open\""), std::string::npos);
    expect_parsed(json.record, {"-json"}, json.exchange.result, "open");
}

TEST(ToolParse, OpensNothing)
{
    const TempFolder folder;
    make_file(folder.path("xdg-open"), "#!/bin/sh\n: > \"$OPENED\"\n");
    ASSERT_EQ(chmod(folder.path("xdg-open").c_str(), 0755), 0);
    make_file(folder.path("reply"), reply_of("Version: 9\nURL: http://a/\nMessage: Hi\n"));
    ChildOptions options;
    options.environment = {{"PATH", folder.path()}, {"OPENED", folder.path("opened")}};
    expect_ended(run_tool({"-open", "-parse", folder.path("reply")}, options), 0,
                 "Version: 9\nURL: http://a/\nHi\n", "");
    EXPECT_EQ(file_content(folder.path("opened")), "");
    EXPECT_EQ(entries_below(folder.path()), (Strings{"reply", "xdg-open"}));
    // the same with a run shows that the file would be there
    expect_ended(
        ask(sending(reply_of("Version: 9\nURL: http://a/\nMessage: Hi\n")), {"-open"}, options)
            .result,
        0, "Version: 9\nURL: http://a/\nHi\n", "");
    EXPECT_EQ(entries_below(folder.path()), (Strings{"opened", "reply", "xdg-open"}));
}

// Files that cannot be read

TEST(ToolParse, OfAFileThatCannotBeReadIsAnError)
{
    const TempFolder folder;
    make_file(folder.path("damaged"), "Quintral record 1\n");
    const struct {
        std::string path;
        std::string error;
    } rows[] = {
        {folder.path("none"),
         "Can't read '" + folder.path("none") + "', code 2: No such file or directory"},
        {folder.path(), "Can't read '" + folder.path() + "', code 21: Is a directory"},
        {folder.path("damaged"), "The record '" + folder.path("damaged") + "' is damaged"},
    };
    for (const auto &row : rows) {
        expect_ended(run_tool({"-parse", row.path}), 1, "", error_line(row.error));
        expect_ended(run_tool({"-parse", row.path, "-json", "-service", "a"}), 1,
                     "{\"status\":\"failed\",\"exit_status\":1,\"newer\":null,\"version\":null,"
                     "\"url\":null,\"button\":null,\"message\":null,\"error\":\"" +
                         row.error +
                         "\",\"reason\":\"file\",\"http_status\":null,\"service\":\"a\","
                         "\"proxy\":null}\n",
                     error_line(row.error));
    }
}

TEST(ToolParse, OfAFileOfMoreThan64MiBIsAnError)
{
    const TempFolder folder;
    make_file(folder.path("r"), "");
    ASSERT_EQ(truncate(folder.path("r").c_str(), 64 * 1024 * 1024 + 1), 0);
    expect_ended(run_tool({"-parse", folder.path("r")}), 1, "",
                 error_line("Can't read '" + folder.path("r") + "', code 27: File too large"));
}

} // namespace
} // namespace quintral::tests::tool
