// -record: the file that a run leaves.
#include <climits>
#include <csignal>
#include <string>

#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "tests/tool/hanging-server.h"
#include "tests/tool/interrupts.h"
#include "tests/tool/recorded-run.h"

namespace quintral::tests::tool {
namespace {

const std::string hello = reply_of("Message: Hello\n");
const Strings only_record = {"record"};

void expect_record(const RecordedRun &run, const std::string &record)
{
    EXPECT_EQ(run.record, record);
    EXPECT_EQ(run.entries, only_record);
    EXPECT_EQ(run.mode, 0600U);
}

std::string failed_lines(const std::string &http_status, const std::string &reason,
                         const std::string &error)
{
    return "status: failed\nexit-status: 1\n" + record_line("http-status", http_status) +
           record_line("reason", reason) + record_line("error", error);
}

TEST(ToolRecord, KeepsAnAnsweredRun)
{
    const TempFolder folder;
    const std::string reply = reply_of("Version: 9.5\r\nURL: http://a/\r\nMessage: Hello\x1B\n\n");
    const RecordedRun run = record_run(folder, sending(reply), {"-exit-code"});
    expect_ended(run.exchange.result, 10, "Version: 9.5\nURL: http://a/\nHello\\x1B\n\n", "");
    expect_record(run, record_start(run.exchange.address) +
                           "status: answered\nexit-status: 10\nhttp-status: 200\n" +
                           request_block(run.exchange.address) + reply_blocks(reply));
    EXPECT_NE(run.record.find(record_block("request", run.exchange.request)), std::string::npos);
}

TEST(ToolRecord, MasksTheCredentials)
{
    const TempFolder folder;
    const LoopbackPeer proxy({sending(hello)});
    expect_ended(run_tool(recording(folder, {"-service", "a.example", "-proxy", proxy.address(),
                                             "-proxy-user", "me", "-proxy-pass", "secret"})),
                 0, "Hello\n",
                 "Note: It is unknown whether a newer version exists: the reply has no Version "
                 "line\n");
    EXPECT_EQ(proxy.received(0), request_of({"a.example", default_values(), "bWU6c2VjcmV0"}));
    EXPECT_EQ(file_content(folder.path("record")),
              record_start("a.example") + "proxy: " + proxy.address() +
                  "\nproxy-origin: -proxy\n"
                  "status: answered\nexit-status: 0\nhttp-status: 200\n" +
                  record_block("request", request_of({"a.example", default_values(), "***"})) +
                  reply_blocks(hello));
}

TEST(ToolRecord, KeepsTheNotesAboutIgnoredSettings)
{
    const TempFolder folder;
    const RecordedRun run = record_run(folder, sending(hello), {"-proxy-user", "me", "-quiet"});
    expect_record(run, record_start(run.exchange.address) +
                           "note: -proxy-user is ignored: it needs -proxy\n"
                           "status: answered\nexit-status: 0\nhttp-status: 200\n" +
                           request_block(run.exchange.address) + reply_blocks(hello));
}

TEST(ToolRecord, KeepsABadReply)
{
    const struct {
        std::string reply;
        std::string http_status;
        std::string reason;
        std::string error; // as in the record
        std::string blocks;
    } rows[] = {
        {"HTTP/1.0 404 Not \x1B\\\r\n\r\nGone", "404", "http-status",
         "Bad HTTP status 404 from web site: Not \\x1B\\x5C",
         reply_blocks("HTTP/1.0 404 Not \x1B\\\r\n\r\nGone")},
        {"garbage\r\n\r\nrest", "", "not-http",
         "Invalid non-HTTP header string returned from web site",
         reply_blocks("garbage\r\n\r\nrest")},
        {reply_of("Hello"), "200", "not-an-update", "The web site's answer is not an update reply",
         reply_blocks(reply_of("Hello"))},
    };
    for (const auto &row : rows) {
        const TempFolder folder;
        const RecordedRun run = record_run(folder, sending(row.reply));
        EXPECT_EQ(run.exchange.result.exit_status, 1);
        expect_record(run, record_start(run.exchange.address) +
                               failed_lines(row.http_status, row.reason, row.error) +
                               request_block(run.exchange.address) + row.blocks);
    }
}

TEST(ToolRecord, KeepsARunThatReachedNobody)
{
    const std::string refused = "127.0.0.1:" + std::to_string(refused_port());
    ASSERT_EQ(gethostbyname("A..B"), nullptr);
    const std::string not_found =
        std::string("Can't find web server 'A..B': ") + hstrerror(h_errno);
    const struct {
        std::string service;
        std::string reason;
        std::string error;
    } rows[] = {{refused, "connect", refused_text()}, {"a..b", "lookup", not_found}};
    for (const auto &row : rows) {
        const TempFolder folder;
        RecordedRun run;
        expect_ended(run_tool(recording(folder, {"-service", row.service})), 1, "",
                     error_line(row.error));
        collect_record(folder, &run);
        expect_record(run, record_start(row.service) + failed_lines("", row.reason, row.error) +
                               request_block(row.service));
    }
}

// The client gives up the body of a reply that it does not receive to its end.
TEST(ToolRecord, KeepsARunThatTheTimeLimitEnds)
{
    const TempFolder folder;
    const std::string header = "HTTP/1.0 200 OK\r\nA: b\r\n\r";
    const RecordedRun run =
        record_run(folder, holding(header + "\nVersion: 9\n"), {"-max-time", "1"});
    expect_ended(run.exchange.result, 3, "", error_line(limit_text(1)));
    const std::string address = run.exchange.address;
    const std::string lines = "status: timeout\nexit-status: 3\ninterrupted: yes\n"
                              "http-status: 200\nreason: timeout\nerror: " +
                              limit_text(1) + "\n";
    expect_record(run, record_start(address) + lines + request_block(address) +
                           record_block("header", header));
}

TEST(ToolRecord, KeepsAnInterruptedRun)
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        const TempFolder folder;
        const LoopbackPeer peer({holding()});
        Child child = start_tool(recording(folder, {"-service", peer.address()}));
        ASSERT_TRUE(peer.wait_for_text(0, request_end(), patience));
        child_signal(child, number);
        RecordedRun run;
        expect_ended_by(child_wait(child), number, "", error_line(cancelled_text));
        collect_record(folder, &run);
        expect_record(run, record_start(peer.address()) +
                               "status: cancelled\nexit-status: " + std::to_string(128 + number) +
                               "\ninterrupted: yes\nreason: cancelled\nerror: " + cancelled_text +
                               "\n" + request_block(peer.address()));
    }
}

TEST(ToolRecord, HasMode0600WhateverTheMask)
{
    for (const mode_t mask : {0000U, 0077U, 0777U}) {
        const TempFolder folder;
        ChildOptions options;
        options.prepare = [mask] { umask(mask); };
        const RecordedRun run = record_run(folder, sending(hello), {}, options);
        EXPECT_EQ(run.exchange.result.exit_status, 0);
        EXPECT_EQ(run.mode, 0600U) << mask;
    }
}

TEST(ToolRecord, IsUnderItsTemporaryNameWithMode0600WhileTheRunLasts)
{
    const TempFolder folder;
    make_file(folder.path("record"), "old\n");
    const LoopbackPeer peer({holding()});
    ChildOptions options;
    options.prepare = [] { umask(0); };
    Child child = start_tool(recording(folder, {"-service", peer.address()}), options);
    ASSERT_TRUE(peer.wait_for_text(0, request_end(), patience));
    const Strings names = entries_below(folder.path());
    ASSERT_EQ(names.size(), 2U);
    EXPECT_EQ(names[0], "record");
    EXPECT_EQ(names[1].substr(0, 7), "record.");
    EXPECT_EQ(permissions_of(folder.path(names[1])), 0600U);
    EXPECT_EQ(file_content(folder.path("record")), "old\n");
    child_signal(child, SIGTERM);
    child_wait(child);
    RecordedRun run;
    collect_record(folder, &run);
    EXPECT_EQ(run.entries, only_record);
    EXPECT_EQ(run.record.substr(0, 18), "Quintral record 1\n");
    EXPECT_EQ(run.mode, 0600U);
}

// Files that cannot be created

// Runs the utility, which must fail before it connects.
void expect_refused(const std::string &path, const std::string &reason,
                    const ChildOptions &options = {})
{
    const LoopbackPeer peer({sending(hello)});
    const std::string error = "Can't create '" + path + "', " + reason;
    expect_ended(run_tool({"-service", peer.address(), "-record", path}, options), 1, "",
                 error_line(error));
    expect_ended(run_tool({"-service", peer.address(), "-json", "-record", path}, options), 1,
                 "{\"status\":\"failed\",\"exit_status\":1,\"newer\":null,\"version\":null,"
                 "\"url\":null,\"button\":null,\"message\":null,\"error\":\"" +
                     error + "\",\"reason\":\"file\",\"http_status\":null,\"service\":\"" +
                     peer.address() + "\",\"proxy\":null}\n",
                 error_line(error));
    EXPECT_EQ(peer.connection_count(), 0);
}

TEST(ToolRecord, WhoseFolderIsMissingEndsTheRunBeforeItConnects)
{
    const TempFolder folder;
    expect_refused(folder.path("none/record"), "code 2: No such file or directory");
    expect_refused("", "code 2: No such file or directory");
    EXPECT_TRUE(entries_below(folder.path()).empty());
}

TEST(ToolRecord, WhoseFolderIsReadOnlyEndsTheRunBeforeItConnects)
{
    const TempFolder folder;
    ASSERT_EQ(chmod(folder.path().c_str(), 0555), 0);
    ChildOptions options;
    options.prepare = [] { prctl(PR_CAPBSET_DROP, 1, 0, 0, 0); }; // CAP_DAC_OVERRIDE, for root
    expect_refused(folder.path("record"), "code 13: Permission denied", options);
}

TEST(ToolRecord, IsNotPutInPlaceOfAnythingButAFile)
{
    const TempFolder folder;
    make_directory(folder.path("folder"));
    make_link("/dev/null", folder.path("link"));
    ASSERT_EQ(mkfifo(folder.path("pipe").c_str(), 0600), 0);
    for (const char *name : {"folder", "link", "pipe"})
        expect_refused(folder.path(name), "it exists and is not a regular file");
    expect_refused("/dev/null", "it exists and is not a regular file");
    EXPECT_EQ(entries_below(folder.path()).size(), 3U);
}

TEST(ToolRecord, WhoseNameIsTooLongIsRefused)
{
    expect_refused("/tmp/" + std::string(250, 'n'), "code 36: File name too long");
}

// Longer than any path of the system, and than the message can show.
TEST(ToolRecord, WhosePathIsTooLongIsRefused)
{
    std::string path = "/tmp";
    while (path.size() < PATH_MAX)
        path += "/../tmp";
    const std::string error = "Can't create '" + path;
    expect_ended(run_tool({"-service", "127.0.0.1:1", "-proxy", ":1", "-record", path}), 1, "",
                 error_line(error.substr(0, 1003)));
}

TEST(ToolRecord, AnInterruptEndsTheOutputOfARunThatCannotBeRecorded)
{
    expect_interrupted_output({"-service", "127.0.0.1:1", "-json", "-record", ""},
                              error_line("Can't create '', code 2: No such file or directory"));
}

// Files that cannot be written. A limit on the size of files stands for a full disk.

ChildOptions with_full_disk()
{
    ChildOptions options;
    options.prepare = [] { limit_resource(RLIMIT_FSIZE, 100); };
    return options;
}

TEST(ToolRecord, OnAFullDiskIsAnErrorAndLeavesNoFile)
{
    const TempFolder folder;
    make_file(folder.path("record"), "old\n");
    const RecordedRun run = record_run(folder, sending(reply_of("Version: 9\nMessage: Hello\n")),
                                       {"-exit-code"}, with_full_disk());
    expect_ended(
        run.exchange.result, 1, "Version: 9\nHello\n",
        error_line("Can't write '" + folder.path("record") + "', code 27: File too large"));
    EXPECT_EQ(run.entries, only_record);
    EXPECT_EQ(run.record, "old\n");
}

TEST(ToolRecord, OnAFullDiskIsASecondErrorOfARunThatFailed)
{
    const TempFolder folder;
    const RecordedRun run = record_run(folder, sending("x\r\n\r\n"), {"-quiet"}, with_full_disk());
    expect_ended(
        run.exchange.result, 1, "",
        error_line("Can't write '" + folder.path("record") + "', code 27: File too large") +
            error_line("Invalid non-HTTP header string returned from web site"));
    EXPECT_TRUE(run.entries.empty());
}

TEST(ToolRecord, OnAFullDiskIsASecondErrorOfAnAnswerThatCannotBeOpened)
{
    const TempFolder folder;
    ChildOptions options = with_full_disk();
    options.environment = {{"PATH", folder.path("none")}};
    const std::string answer = "Version: 5.2\nURL: http://a.example/\nMessage: Hello";
    const RecordedRun run = record_run(folder, sending(reply_of(answer)),
                                       {"-product-version", "5.1", "-quiet", "-open"}, options);
    expect_ended(
        run.exchange.result, 1, "Version: 5.2\nURL: http://a.example/\nHello\n",
        error_line("The desktop did not open the web address: code -1") +
            error_line("Can't write '" + folder.path("record") + "', code 27: File too large"));
    EXPECT_TRUE(run.entries.empty());
}

// Runs that end at once

TEST(ToolRecord, LeavesNoFileIfTheTimeLimitEndsAConnectThatHangs)
{
    const TempFolder folder;
    const HangingServer server;
    expect_ended(run_tool(recording(folder, {"-service", server.address(), "-max-time", "1"})), 3,
                 "", error_line(limit_text(1)));
    EXPECT_TRUE(entries_below(folder.path()).empty());
}

TEST(ToolRecord, LeavesNoFileIfASecondInterruptEndsTheRun)
{
    const TempFolder folder;
    const HangingServer server;
    Child child = start_tool(recording(folder, {"-service", server.address()}));
    ASSERT_TRUE(wait_for_handlers(child));
    child_signal(child, SIGINT);
    child_signal(child, SIGTERM);
    const ChildResult result = child_wait(child);
    EXPECT_NE(result.signal, 0);
    EXPECT_EQ(result.error, error_line(cancelled_text));
    EXPECT_TRUE(entries_below(folder.path()).empty());
}

} // namespace
} // namespace quintral::tests::tool
