// The text of a record, and reading it back.
#include <cstdint>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/c-utils.h"
#include "tests/harness/temp-folder.h"
#include "tool/record.h"

namespace quintral::tests::tool {
namespace {

// The lines of a run that was answered; `lines` come after the version and the service.
std::string record_with(const std::string &lines)
{
    return "Quintral record 1\nversion: 5.1\nservice: a.example\n" + lines;
}

const std::string answered = "status: answered\nexit-status: 0\nhttp-status: 200\n";
const std::string failed = "status: failed\nexit-status: 1\nreason: lookup\nerror: Can't find it\n";
const std::string blocks = "request: 3\nabc\nheader: 15\nHTTP/1.0 200 O\n\nbody: 11\nMessage: Hi\n";

int read_text(const std::string &text, Record *record, std::string *error)
{
    const TempFolder folder;
    const std::string path = folder.path("record");
    make_file(path, text);
    const int result = read_record(path.c_str(), record, error);
    if (result != 0) {
        EXPECT_EQ(*error, "The record '" + path + "' is damaged");
    }
    return result;
}

void expect_damaged(const std::string &text)
{
    Record record;
    std::string error;
    EXPECT_EQ(read_text(text, &record, &error), -1) << text;
}

Record read_back(const std::string &text)
{
    Record record;
    std::string error;
    EXPECT_EQ(read_text(text, &record, &error), 0) << text << error;
    return record;
}

struct Reply {
    WebUpdateReply reply;
    explicit Reply(const char *header, const char *body = nullptr)
    {
        web_update_reply_init(&reply);
        if (header != nullptr)
            reply.header = copy_string_with_room(header, 0);
        if (body != nullptr)
            reply.body = copy_string_with_room(body, 0);
    }
    ~Reply()
    {
        web_update_reply_free(&reply);
    }
    Reply(const Reply &) = delete;
    Reply &operator=(const Reply &) = delete;
};

TEST(RecordText, OfAnAnsweredRunHasALineOrABlockForEachValue)
{
    const Reply reply("HTTP/1.0 200 OK\r\n\r", "Message: Hi\n");
    const RunTarget target = {"a.example:81", "cache:3128", "http_proxy"};
    const RunOutcome outcome = {"answered", 10, &reply.reply, nullptr, nullptr, 200};
    EXPECT_EQ(record_text({outcome, target, "5.1", {"N 1", "N 2"}, false, "POST\r\n", reply.reply}),
              "Quintral record 1\n"
              "version: 5.1\n"
              "service: a.example:81\n"
              "proxy: cache:3128\n"
              "proxy-origin: http_proxy\n"
              "note: N 1\n"
              "note: N 2\n"
              "status: answered\n"
              "exit-status: 10\n"
              "http-status: 200\n"
              "request: 6\nPOST\r\n\n"
              "header: 18\nHTTP/1.0 200 OK\r\n\r\n"
              "body: 12\nMessage: Hi\n\n");
}

TEST(RecordText, OfAnInterruptedRunHasNoReply)
{
    const Reply reply(nullptr);
    const RunOutcome outcome = {"timeout", 3, nullptr, "The limit", "timeout", 0};
    EXPECT_EQ(record_text({outcome, {"a", "", "http_proxy"}, "1", {}, true, "", reply.reply}),
              "Quintral record 1\n"
              "version: 1\n"
              "service: a\n"
              "status: timeout\n"
              "exit-status: 3\n"
              "interrupted: yes\n"
              "reason: timeout\n"
              "error: The limit\n"
              "request: 0\n\n");
}

TEST(RecordText, EscapesBytesThatCouldBreakALine)
{
    const Reply reply(nullptr);
    const RunOutcome outcome = {"failed", 1, nullptr, "a\n\\\x1B\x7F\xE2~ ", "lookup", 0};
    EXPECT_EQ(record_text({outcome, {"a", "", ""}, "1", {}, false, "", reply.reply}),
              "Quintral record 1\nversion: 1\nservice: a\nstatus: failed\nexit-status: 1\n"
              "reason: lookup\nerror: a\\x0A\\x5C\\x1B\\x7F\\xE2~ \nrequest: 0\n\n");
}

std::string every_byte()
{
    std::string text;
    for (int byte = 1; byte < 256; ++byte)
        text += static_cast<char>(byte);
    return text;
}

TEST(Record, IsReadBackWhole)
{
    const std::string bytes = every_byte() + "\nheader: 3\n" + every_byte();
    const std::string value = bytes + std::string(5000, 'e');
    const Reply reply(bytes.c_str(), value.c_str());
    for (const int http_status : {0, 200, -7, INT32_MAX, INT32_MIN}) {
        const RunOutcome outcome = {"failed", 1, nullptr, value.c_str(), "not-http", http_status};
        const RunTarget target = {"a.example", bytes, "-proxy"};
        const Record record = read_back(
            record_text({outcome, target, "5.125", {bytes, "b"}, false, bytes, reply.reply}));
        EXPECT_FALSE(record.is_bare_reply);
        EXPECT_EQ(record.version, "5.125");
        EXPECT_EQ(record.service, "a.example");
        EXPECT_EQ(record.proxy, bytes);
        EXPECT_EQ(record.proxy_origin, "-proxy");
        EXPECT_EQ(record.notes, (std::vector<std::string>{bytes, "b"}));
        EXPECT_EQ(record.status, "failed");
        EXPECT_EQ(record.exit_status, 1);
        EXPECT_FALSE(record.interrupted);
        EXPECT_EQ(record.http_status, http_status);
        EXPECT_EQ(record.reason, "not-http");
        EXPECT_EQ(record.error, value);
        EXPECT_TRUE(record.has_header);
        EXPECT_TRUE(record.has_body);
        EXPECT_EQ(record.header, bytes);
        EXPECT_EQ(record.body, value);
    }
}

TEST(Record, SaysWhetherItHasAHeaderAndABody)
{
    const Record without = read_back(record_with(failed));
    EXPECT_FALSE(without.has_header || without.has_body);
    const Record empty = read_back(record_with(failed + "header: 0\n\nbody: 0\n\n"));
    EXPECT_TRUE(empty.has_header && empty.has_body);
    EXPECT_EQ(empty.header + empty.body, "");
    EXPECT_TRUE(read_back(record_with(failed + "interrupted: yes\n")).interrupted);
}

TEST(Record, SkipsUnknownKeys)
{
    EXPECT_EQ(read_back(record_with("colour: red\n" + answered + blocks)).status, "answered");
}

TEST(Record, ThatIsDamagedIsRefused)
{
    const std::string rows[] = {
        "Quintral record",
        "Quintral record 1",
        "Quintral record 1\n",
        "Quintral record 1\r\n" + answered + blocks,
        "Quintral record 2\nversion: 5.1\nservice: a\n" + answered + blocks,
        "Quintral record 1\nservice: a\n" + answered + blocks,
        "Quintral record 1\nversion: 5.1\n" + answered + blocks,
        "Quintral record 1\nversion: abc\nservice: a\n" + answered + blocks,
        "Quintral record 1\nversion: 5.1.1\nservice: a\n" + answered + blocks,
        record_with(""),
        record_with(blocks),
        record_with(answered),
        record_with(answered + "header: 1\na\n"),
        record_with(answered + "body: 1\na\n"),
        record_with("status: odd\nexit-status: 0\n" + blocks),
        record_with("status: answered\n" + blocks),
        record_with("status: answered\nexit-status: \n" + blocks),
        record_with("status: answered\nexit-status: -1\n" + blocks),
        record_with("status: answered\nexit-status: 256\n" + blocks),
        record_with("status: answered\nexit-status: 0x1\n" + blocks),
        record_with("status: answered\nexit-status: 99999999999\n" + blocks),
        record_with("status: answered\nexit-status: 0\nreason: open\nerror: e\n" + blocks),
        record_with("status: answered\nexit-status: 1\nreason: open\n" + blocks),
        record_with(answered + "http-status: two\n" + blocks),
        record_with(answered + "http-status: -\n" + blocks),
        record_with("status: answered\nexit-status: 200\n" + blocks),
        record_with("status: answered\nexit-status: 1\n" + blocks),
        record_with("status: answered\nexit-status: 0\nreason: lookup\nerror: e\n" + blocks),
        record_with("status: failed\nexit-status: 77\nreason: lookup\nerror: e\n"),
        record_with("status: failed\nexit-status: 1\nreason: timeout\nerror: e\n"),
        record_with("status: failed\nexit-status: 1\nreason: open\nerror: e\n"),
        record_with("status: timeout\nexit-status: 1\nreason: timeout\nerror: e\n"),
        record_with("status: timeout\nexit-status: 3\nreason: lookup\nerror: e\n"),
        record_with("status: cancelled\nexit-status: 130\nreason: open\nerror: e\n"),
        record_with("status: cancelled\nexit-status: 1\nreason: cancelled\nerror: e\n"),
        record_with("status: failed\nexit-status: 0\nreason: lookup\nerror: e\n"),
        record_with("status: failed\nexit-status: 1\nreason: lookup\n"),
        record_with("status: failed\nexit-status: 1\nerror: e\n"),
        record_with("status: failed\nexit-status: 1\nreason: none\nerror: e\n"),
        record_with("status: failed\nexit-status: 1\nreason: weather\nerror: e\n"),
        record_with("proxy: a:1\n" + failed),
        record_with("proxy-origin: -proxy\n" + failed),
        record_with(failed + "a line\n"),
        record_with(failed + "a:b\n"),
        record_with(failed + "a: b"),
        record_with(failed + "\n"),
        record_with("note: \\\n" + failed),
        record_with("note: \\x1\n" + failed),
        record_with("note: \\y10\n" + failed),
        record_with("note: \\x1g\n" + failed),
        record_with("note: \\x1b\n" + failed),
        record_with("note: \\x00\n" + failed),
        record_with(std::string("note: \0\n", 8) + failed),
    };
    for (const std::string &row : rows)
        expect_damaged(row);
}

TEST(Record, WithASizeThatLiesIsRefused)
{
    for (const char *key : {"request", "header", "body"}) {
        for (const char *size : {"", "2", "4", "5", "-1", "+3", " 3", "3 ", "0x3", "2147483647",
                                 "2147483648", "18446744073709551615", "18446744073709551619"})
            expect_damaged(record_with(failed + key + ": " + size + "\nabc\n"));
        expect_damaged(record_with(failed + key + ": 3\nabcd"));
        expect_damaged(record_with(failed + key + ": 3\nabc"));
        read_back(record_with(failed + key + ": 3\nabc\n"));
    }
}

TEST(Record, ThatIsCutAnywhereIsRefused)
{
    const std::string whole = record_with(answered + blocks);
    for (std::size_t size = sizeof "Quintral record" - 1; size < whole.size(); ++size)
        expect_damaged(whole.substr(0, size));
    read_back(whole);
}

TEST(Record, AnyOtherFileIsABareReply)
{
    for (const std::string &text :
         {std::string("HTTP/1.0 200 OK\r\n\r\nMessage: Hi\n"), std::string(),
          std::string("Quintral recor"), std::string("\0\xFF", 2)}) {
        const Record record = read_back(text);
        EXPECT_TRUE(record.is_bare_reply);
        EXPECT_EQ(record.header, text);
        EXPECT_EQ(record.version + record.service + record.status, "");
    }
}

TEST(Record, ThatCannotBeReadIsAnError)
{
    Record record;
    std::string error;
    const TempFolder folder;
    EXPECT_EQ(read_record(folder.path("none").c_str(), &record, &error), -1);
    EXPECT_EQ(error, "Can't read '" + folder.path("none") + "', code 2: No such file or directory");
    error.clear();
    EXPECT_EQ(read_record(folder.path().c_str(), &record, &error), -1);
    EXPECT_EQ(error, "Can't read '" + folder.path() + "', code 21: Is a directory");
}

TEST(RecordCredentials, AreMasked)
{
    const std::string start = "POST / HTTP/1.0\r\nHost: A\r\n";
    EXPECT_EQ(mask_credentials(start + "Authorization: Basic bWU6c2VjcmV0\r\n\r\nbody"),
              start + "Authorization: Basic ***\r\n\r\nbody");
    EXPECT_EQ(mask_credentials(start + "\r\nbody"), start + "\r\nbody");
    EXPECT_EQ(mask_credentials(""), "");
}

TEST(RecordFile, IsRemovedUnlessFinished)
{
    const TempFolder folder;
    RecordFile file;
    std::string error;
    ASSERT_EQ(create_record(folder.path("r").c_str(), &file, &error), 0) << error;
    EXPECT_EQ(entries_below(folder.path()).size(), 1U);
    EXPECT_EQ(permissions_of(file.temporary_path), 0600U);
    EXPECT_EQ(fcntl(file.descriptor, F_GETFD), FD_CLOEXEC);
    discard_record();
    EXPECT_TRUE(entries_below(folder.path()).empty());
    discard_record();
    close(file.descriptor);
}

TEST(RecordFile, HasNoDescriptorIfItCannotBeCreatedOrIsFinished)
{
    const TempFolder folder;
    RecordFile file;
    std::string error;
    for (const std::string &path : {folder.path("none/r"), folder.path()}) {
        file.descriptor = 1000;
        EXPECT_EQ(create_record(path.c_str(), &file, &error), -1);
        EXPECT_EQ(file.descriptor, -1) << path;
    }
    ASSERT_EQ(create_record(folder.path("r").c_str(), &file, &error), 0) << error;
    EXPECT_EQ(finish_record(&file, "text", &error), 0) << error;
    EXPECT_EQ(file.descriptor, -1);
}

} // namespace
} // namespace quintral::tests::tool
