// Reading a saved reply, without a network: where the header ends, the status, the four values, and
// the comparison with the program's own version.
#include "web/update-check.h"

#include "tests/harness/each-locale.h"
#include "tests/harness/text.h"
#include "tests/web/update-check-calls.h"

#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using tests::accepted;
using tests::expect_empty;
using tests::expect_reply;
using tests::expect_values;
using tests::not_an_update;
using tests::OwnedReply;

constexpr const char *none = nullptr;

// Reads from a block of exactly the size of the bytes, so that a memory checker sees a read past
// their end.
int read(const std::string &bytes, const char *own_version, WebUpdateReply *reply)
{
    const std::unique_ptr<char[]> block(new char[bytes.size()]);
    std::memcpy(block.get(), bytes.data(), bytes.size());
    const int result = web_read_update_reply(block.get(), bytes.size(), own_version, reply);
    EXPECT_EQ(result, reply->failure == WebNoFailure ? 0 : -1);
    return result;
}

// A string of a literal with NULs.
template <std::size_t size> std::string bytes_of(const char (&literal)[size])
{
    return {literal, size - 1};
}

class SavedReply : public tests::InEachLocale {};

INSTANTIATE_TEST_SUITE_P(Locales, SavedReply, tests::each_locale(), tests::locale_label);

TEST_P(SavedReply, HasAHeaderUpToTheFirstEmptyLineAndABodyAfterIt)
{
    const struct {
        std::string bytes;
        const char *header;
        const char *body;
    } rows[] = {
        {"HTTP/1.0 200 OK\r\nA: b\r\n\r\nbody", "HTTP/1.0 200 OK\r\nA: b\r\n\r", "body"},
        {"HTTP/1.0 200 OK\nA: b\n\nbody", "HTTP/1.0 200 OK\nA: b\n", "body"},
        {"HTTP/1.0 200 OK\r\n\r\n", "HTTP/1.0 200 OK\r\n\r", ""},
        {"H\n\r\n\nbody\n\n", "H\n\r", "\nbody\n\n"},
        {"H\r\n\r\r\r\nbody", "H\r\n\r\r\r", "body"},
        {"H\r\r\n\nbody", "H\r\r\n", "body"},
        {"H\n \n\nbody", "H\n \n", "body"},
        {"H\n\n\r\nbody\r\n\r\n", "H\n", "\r\nbody\r\n\r\n"},
        // an empty first line
        {"\nbody", "", "body"},
        {"\r\nbody", "\r", "body"},
        {"\n", "", ""},
        // no empty line: all of it is header
        {"", "", ""},
        {"H", "H", ""},
        {"H\r\nA: b\r\n", "H\r\nA: b\r\n", ""},
        {"H\nMessage: m\n", "H\nMessage: m\n", ""},
        {"\r\r\r", "\r\r\r", ""},
        {"H\n\r", "H\n\r", ""},
        // header and body end at a NUL, which is content of its line
        {bytes_of("H\0x\n\nbody"), "H", "body"},
        {bytes_of("H\n\0\n\nbody"), "H\n", "body"},
        {bytes_of("\0\n\nbody"), "", "body"},
        {bytes_of("H\n\nbody\0more\n"), "H\n", "body"},
        {bytes_of("H\n\n\0body"), "H\n", ""},
        {bytes_of("H\0\0"), "H", ""},
    };
    for (const auto &row : rows) {
        OwnedReply reply;
        read(row.bytes, "5.1", &reply);
        EXPECT_STREQ(reply.header, row.header) << testing::PrintToString(row.bytes);
        EXPECT_STREQ(reply.body, row.body) << testing::PrintToString(row.bytes);
    }
}

TEST_P(SavedReply, OfNoBytesMayBeNull)
{
    OwnedReply reply;
    EXPECT_EQ(web_read_update_reply(nullptr, 0, "5.1", &reply), -1);
    expect_reply(reply, {WebNotHttp, "Invalid non-HTTP header string returned from web site", 0,
                         none, "", ""});
}

const char not_http[] = "Invalid non-HTTP header string returned from web site";

std::string malformed(const std::string &rest)
{
    return "Invalid HTTP return status (can't parse header HTTP/" + rest + ")";
}

std::string rejected(const std::string &status)
{
    return "Bad HTTP status " + status;
}

TEST_P(SavedReply, IsAcceptedIfItsStatusIs200To299)
{
    const std::string long_reason(128, 'r');
    const std::string whole_reason = long_reason.substr(1);
    const struct {
        std::string header;
        WebUpdateFailure failure;
        std::string error;
        int status;
        const char *reason;
    } rows[] = {
        {"HTTP/1.0 200 OK\r\n", WebNoFailure, "", 200, "OK"},
        {"HTTP/1.1 204 No Content\r\n", WebNoFailure, "", 204, "No Content"},
        {"HTTP/2.7 299 \xe4\xff\r\n", WebNoFailure, "", 299, "\xe4\xff"},
        {"X: HTTP/1.0 200 OK\r\n", WebNoFailure, "", 200, "OK"},
        {"HTTP/1.0 200 OK\nX: HTTP/1.0 404 No\n", WebNoFailure, "", 200, "OK"},
        {"HTTP/1.0 +0200 OK\r\n", WebNoFailure, "", 200, "OK"},
        {"HTTP/1.0 200 " + whole_reason + "\r\n", WebNoFailure, "", 200, whole_reason.c_str()},
        {"HTTP/1.0 200 " + long_reason + "\r\n", WebNoFailure, "", 200, whole_reason.c_str()},
        // without a reason the next line is one
        {"HTTP/1.0 200\r\nServer: s\r\n", WebNoFailure, "", 200, "Server: s"},
        {"HTTP/1.0 404\nServer: s\n", WebBadStatus, rejected("404 from web site: Server: s"), 404,
         "Server: s"},
        {"HTTP/1.0 200\r\n", WebNotHttp, malformed("1.0 200\r\n\r"), 200, none},
        {"HTTP/1.0 404\n", WebNotHttp, malformed("1.0 404\n"), 404, none},
        // other statuses
        {"HTTP/1.0 199 Low\n", WebBadStatus, rejected("199 from web site: Low"), 199, "Low"},
        {"HTTP/1.0 300 High\n", WebBadStatus, rejected("300 from web site: High"), 300, "High"},
        {"HTTP/1.0 302 Found\n", WebBadStatus, rejected("302 from web site: Found"), 302, "Found"},
        {"HTTP/1.0 500 %s%n\n", WebBadStatus, rejected("500 from web site: %s%n"), 500, "%s%n"},
        {"HTTP/1.0 0 Zero\n", WebBadStatus, rejected("0 from web site: Zero"), 0, "Zero"},
        {"HTTP/1.0 -200 Low\n", WebBadStatus, rejected("-200 from web site: Low"), -200, "Low"},
        {"HTTP/1.0 4294967496 x\n", WebBadStatus, rejected("2147483647 from web site: x"),
         2147483647, "x"},
        {"HTTP/1.0 404 " + long_reason + "\n", WebBadStatus,
         rejected("404 from web site: " + whole_reason), 404, whole_reason.c_str()},
        // no status
        {"HTTP/1.0 OK\n", WebNotHttp, malformed("1.0 OK\n"), 0, none},
        {"HTTP/x 200 OK\r\n", WebNotHttp, malformed("x 200 OK\r\n\r"), 0, none},
        {"HTTP/\n", WebNotHttp, malformed("\n"), 0, none},
        {"HTTP 200 OK\n", WebNotHttp, not_http, 0, none},
        {"http/1.0 200 OK\n", WebNotHttp, not_http, 0, none},
        {"ICY 200 OK\r\n", WebNotHttp, not_http, 0, none},
        {"", WebNotHttp, not_http, 0, none},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.header));
        const char *const empty_line = row.header.find('\r') != std::string::npos ? "\r\n" : "\n";
        OwnedReply reply;
        read(row.header + empty_line + "Version: 5.2\nMessage: m", "5.1", &reply);
        const std::string header = row.header + (empty_line[0] == '\r' ? "\r" : "");
        expect_reply(reply, {row.failure, row.error, row.status, row.reason, header.c_str(),
                             "Version: 5.2\nMessage: m"});
        const bool is_read = row.failure == WebNoFailure;
        expect_values(reply, is_read ? "5.2" : none, none, none, is_read ? "m" : none);
        EXPECT_EQ(reply.newer, is_read ? WebNewer : WebNewerUnknown);
    }
}

TEST_P(SavedReply, HasItsValuesFromTheLinesOfItsBody)
{
    const struct {
        const char *body;
        const char *version;
        const char *url;
        const char *button;
        const char *message;
    } rows[] = {
        {"Version: 5.2\nURL: u\nButton: b\nMessage: m\n", "5.2", "u", "b", "m\n"},
        {"Version: 5.2\r\nURL: u\r\nButton: b\r\nMessage: m\r\n", "5.2", "u", "b", "m\n"},
        {"Button: b\nURL: u\nVersion: 5.2\nMessage: m", "5.2", "u", "b", "m"},
        {"X: 1\nurl: 2\nMessages: 3\nMessage: m", none, none, none, "m"},
        {"Hello\nVersion: 5.2\nMessage: m", none, none, none, "m"},
        // spaces and tabs are dropped around the version only
        {"Version:  \t5.2 \t \r\nURL:  u \nButton:  b\t\nMessage:  m \n", "5.2", " u ", " b\t",
         " m \n"},
        {"Version:5.2\nURL:u\nMessage:m", ".2", none, none, ""},
        // an empty value counts as not given, an empty message does not
        {"Version: \nURL: \nButton: \nMessage: ", none, none, none, ""},
        {"Version: \r\nURL: \r\nButton: \r\nMessage:", none, none, none, ""},
        // the later of two values counts, the message extends to the end
        {"Version: 1\nURL: a\nVersion: 2\nURL: b\nMessage: m", "2", "b", none, "m"},
        {"Button: b\nButton: \nMessage: m", none, none, none, "m"},
        {"Message: m\nVersion: 5.2\nMessage: n\n", none, none, none,
         "m\nVersion: 5.2\nMessage: n\n"},
        {"URL: a:b\nMessage: \xe4\xff\x01\x1b[", none, "a:b", none, "\xe4\xff\x01\x1b["},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.body));
        OwnedReply reply;
        EXPECT_EQ(read(accepted + row.body, "5.1", &reply), 0);
        expect_reply(reply, {WebNoFailure, "", 200, "OK", "HTTP/1.0 200 OK\r\n\r", row.body});
        expect_values(reply, row.version, row.url, row.button, row.message);
    }
}

// Empty means null.
TEST_P(SavedReply, HasShortValuesWithoutOneCarriageReturnAndAVersionWithoutSpaces)
{
    const struct {
        std::string value;
        std::string version;
        std::string other; // URL and button keep their spaces
    } rows[] = {
        {"", "", ""},
        {"5.2", "5.2", "5.2"},
        {"5.2\r", "5.2", "5.2"},
        {"5.2\r\r", "5.2\r", "5.2\r"},
        {"\r", "", ""},
        {" 5.2 ", "5.2", " 5.2 "},
        {"\t 5.2 \t\r", "5.2", "\t 5.2 \t"},
        {"  \t ", "", "  \t "},
        {" \r", "", " "},
        {"5 .2", "5 .2", "5 .2"},
        {"5\r.2", "5\r.2", "5\r.2"},
        {"5.2\r ", "5.2\r", "5.2\r "},
        {"\v5.2\f", "\v5.2\f", "\v5.2\f"},
        {std::string(65535, ' '), "", std::string(65535, ' ')},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.value));
        OwnedReply reply;
        EXPECT_EQ(read(accepted + "Version: " + row.value + "\nURL: " + row.value +
                           "\nButton: " + row.value + "\nMessage: m",
                       "5.1", &reply),
                  0);
        const char *const version = row.version.empty() ? none : row.version.c_str();
        const char *const other = row.other.empty() ? none : row.other.c_str();
        expect_values(reply, version, other, other, "m");
    }
}

TEST_P(SavedReply, HasAMessageWithoutOneCarriageReturnBeforeEachLineFeedAndAtTheEnd)
{
    const struct {
        std::string message;
        std::string expected;
    } rows[] = {
        {"", ""},
        {"one", "one"},
        {"one\n", "one\n"},
        {"one\r\n", "one\n"},
        {"one\r\ntwo\r\n", "one\ntwo\n"},
        {"one\r\ntwo\nthree", "one\ntwo\nthree"},
        {"one\r", "one"},
        {"\r", ""},
        {"\r\n", "\n"},
        {"\r\n\r\n", "\n\n"},
        {"one\r\r\n", "one\r\n"},
        {"one\r\r", "one\r"},
        {"\r\r\r", "\r\r"},
        {"on\re\r\n", "on\re\n"},
        {"\rone", "\rone"},
        {"one\n\r", "one\n"},
        {" one \r\n", " one \n"},
        {tests::repeated(30000, "a\r\n"), tests::repeated(30000, "a\n")},
    };
    for (const auto &row : rows) {
        OwnedReply reply;
        EXPECT_EQ(read(accepted + "Message: " + row.message, "5.1", &reply), 0);
        EXPECT_STREQ(reply.message, row.expected.c_str()) << testing::PrintToString(row.message);
    }
}

TEST_P(SavedReply, WithoutAMessageIsNotAnUpdateAndKeepsTheValuesBeforeThat)
{
    const struct {
        const char *body;
        const char *version;
        const char *url;
        const char *button;
    } rows[] = {
        {"", none, none, none},
        {"\n", none, none, none},
        {"Message", none, none, none},
        {"message: m\n", none, none, none},
        {"Hello\nMessage: m\n", none, none, none},
        {"Version: 5.2", none, none, none},
        {"Version: 5.2\n", "5.2", none, none},
        {"Version: 5.2\r\nURL: u\r\nButton: b\r\n", "5.2", "u", "b"},
        {"Version: 5.2\nURL: u\nButton: b", "5.2", "u", none},
        {"Version:\nMessage: m\n", "Message: m", none, none},
        {"<html>\n<body>It works!</body>\n</html>\n", none, none, none},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.body));
        OwnedReply reply;
        EXPECT_EQ(read(accepted + row.body, "5.1", &reply), -1);
        expect_reply(reply,
                     {WebNotAnUpdate, not_an_update, 200, "OK", "HTTP/1.0 200 OK\r\n\r", row.body});
        expect_values(reply, row.version, row.url, row.button, none);
        EXPECT_EQ(reply.newer, WebNewerUnknown);
    }
}

TEST_P(SavedReply, MayHaveValuesOfAnyLength)
{
    for (const std::size_t length : {1023u, 65534u, 65535u, 65536u, 100000u, 1048577u}) {
        const std::string version(length, '7');
        const std::string url(length, 'u');
        const std::string button(length, 'b');
        const std::string message(length, 'm');
        OwnedReply reply;
        ASSERT_EQ(read(accepted + "Version:  " + version + " \r\nURL: " + url +
                           "\r\nButton: " + button + "\r\nMessage: " + message + "\r\n",
                       "5.1", &reply),
                  0);
        EXPECT_TRUE(version == reply.version) << length;
        EXPECT_TRUE(url == reply.url) << length;
        EXPECT_TRUE(button == reply.button) << length;
        EXPECT_TRUE(message + "\n" == reply.message) << length;
        EXPECT_EQ(reply.newer, WebNewer) << length;
    }
}

// An exchange has limits, these bytes are already in memory.
TEST_P(SavedReply, MayHaveAHeaderAndABodyOfAnyLength)
{
    const std::string header = "HTTP/1.0 200 OK\r\nX: " + std::string(300000, 'x') + "\r\n";
    const std::string body = "X: " + std::string(9000000, 'x') + "\nMessage: m";
    OwnedReply reply;
    ASSERT_EQ(read(header + "\r\n" + body, "5.1", &reply), 0);
    EXPECT_TRUE(header + "\r" == reply.header);
    EXPECT_TRUE(body == reply.body);
    expect_values(reply, none, none, none, "m");
}

TEST_P(SavedReply, IsNewerIfItsVersionIs)
{
    const struct {
        const char *own;
        const char *version; // null for no Version line
        WebUpdateNewer newer;
    } rows[] = {
        {"5.2", "5.3", WebNewer},         {"5.2", "5.201", WebNewer},
        {"5.2", "5.2.1", WebNewer},       {"5.2", "10", WebNewer},
        {"5.2", " 5.3\t\r", WebNewer},    {"5.2", "5.2", WebNotNewer},
        {"5.2", "5.20", WebNotNewer},     {"5.2", "005.200", WebNotNewer},
        {"5.2", "5.1", WebNotNewer},      {"5.2", "5.10", WebNotNewer},
        {"5.2", "4.9.9", WebNotNewer},    {"5.2", "0", WebNotNewer},
        {"5.2.2", "5.2.1", WebNotNewer},  {"5.2", none, WebNewerUnknown},
        {"5.2", "", WebNewerUnknown},     {"5.2", "new", WebNewerUnknown},
        {"5.2", "5.3a", WebNewerUnknown}, {"5.2", "v5.3", WebNewerUnknown},
        {"5.2", "5.", WebNewerUnknown},   {"5.2", ".9", WebNewerUnknown},
        {"5.2", "-6", WebNewerUnknown},   {"5.2", "5 3", WebNewerUnknown},
        {"5.2", "5,3", WebNewerUnknown},  {"5.2", "6\r\r", WebNewerUnknown},
        {"5.2", "1e99", WebNewerUnknown}, {"5.2", "nan", WebNewerUnknown},
        {"", "5.3", WebNewerUnknown},     {"5,2", "5.3", WebNewerUnknown},
        {none, "5.3", WebNewerUnknown},   {none, none, WebNewerUnknown},
    };
    for (const auto &row : rows) {
        const std::string line =
            row.version != none ? std::string("Version: ") + row.version + "\n" : "";
        OwnedReply reply;
        EXPECT_EQ(read(accepted + line + "Message: m", row.own, &reply), 0);
        EXPECT_EQ(reply.newer, row.newer) << (row.own != none ? row.own : "null") << ", " << line;
    }
}

TEST_P(SavedReply, ReplacesTheOneBefore)
{
    const std::string all = accepted + "Version: 5.2\nURL: u\nButton: b\nMessage: m";
    const struct {
        std::string bytes;
        WebUpdateFailure failure;
        int status;
        const char *version;
        const char *url;
        const char *button;
        const char *message;
    } rows[] = {
        {all, WebNoFailure, 200, "5.2", "u", "b", "m"},
        {accepted + "Message: n", WebNoFailure, 200, none, none, none, "n"},
        {"HTTP/1.0 404 No\n\n", WebBadStatus, 404, none, none, none, none},
        {"", WebNotHttp, 0, none, none, none, none},
        {accepted + "URL: v\n", WebNotAnUpdate, 200, none, "v", none, none},
    };
    OwnedReply reply;
    for (const auto &first : rows) {
        for (const auto &row : rows) {
            SCOPED_TRACE(first.bytes + "\nthen " + row.bytes);
            read(first.bytes, "5.1", &reply);
            read(row.bytes, "5.1", &reply);
            EXPECT_EQ(reply.failure, row.failure);
            EXPECT_EQ(reply.error != nullptr, row.failure != WebNoFailure);
            EXPECT_EQ(reply.http_status, row.status);
            EXPECT_EQ(reply.reason != nullptr, row.status != 0);
            expect_values(reply, row.version, row.url, row.button, row.message);
            EXPECT_EQ(reply.newer, row.bytes == all ? WebNewer : WebNewerUnknown);
        }
    }
    web_update_reply_free(&reply);
    expect_empty(reply);
}

TEST(SavedReplyError, IsNotTheLastError)
{
    web_set_error("An earlier error");
    const std::string rows[] = {accepted + "Message: m", accepted, "HTTP/1.0 404 No\n\n", "ICY\n"};
    OwnedReply reply;
    for (const std::string &bytes : rows) {
        read(bytes, "5.1", &reply);
        EXPECT_STREQ(web_last_error(), "An earlier error");
    }
}

TEST(UpdateFailureName, IsTheWordOfTheJsonObject)
{
    const struct {
        WebUpdateFailure failure;
        const char *name;
    } rows[] = {
        {WebNoFailure, "none"},
        {WebBadQuery, "bad-query"},
        {WebLookupFailed, "lookup"},
        {WebConnectFailed, "connect"},
        {WebReceiveFailed, "receive"},
        {WebCheckTimedOut, "timeout"},
        {WebCheckCancelled, "cancelled"},
        {WebReplyTooLong, "too-long"},
        {WebNotHttp, "not-http"},
        {WebBadStatus, "http-status"},
        {WebNotAnUpdate, "not-an-update"},
        {static_cast<WebUpdateFailure>(WebNotAnUpdate + 1), "unknown"},
        {static_cast<WebUpdateFailure>(-1), "unknown"},
    };
    for (const auto &row : rows)
        EXPECT_STREQ(web_update_failure_name(row.failure), row.name);
}

} // namespace
} // namespace quintral
