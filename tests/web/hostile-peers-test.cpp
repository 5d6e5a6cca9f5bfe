// Update checks against peers that are not an update service, or that send what no service would
// send: other protocols, status lines of every kind, encoded and binary bodies, control characters,
// NULs, very long lines and replies without an end. Every row has the whole expected result. Resets
// within a reply and silences are in update-failures-test.cpp, replies that end early in
// reply-splits-test.cpp.
#include "tests/harness/text.h"
#include "tests/web/update-check-calls.h"
#include "web/update-check.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using namespace tests;

constexpr const char *none = nullptr;
constexpr std::size_t mebibyte = std::size_t{1024} * 1024;
const char not_http[] = "Invalid non-HTTP header string returned from web site";
const char header_too_long[] = "Reply header from web site is longer than 262144 bytes";
const char body_too_long[] = "Reply body from web site is longer than 8388608 bytes";
const char accepted_header[] = "HTTP/1.0 200 OK\r\n\r";
const std::string nul(1, '\0');

std::string up_to_nul(const std::string &bytes)
{
    return bytes.substr(0, bytes.find('\0'));
}

std::string malformed(const std::string &rest)
{
    return "Invalid HTTP return status (can't parse header HTTP/" + rest + ")";
}

int check(const PeerScript &script, WebUpdateReply *reply)
{
    const LoopbackPeer peer({script});
    const std::string service = peer.address();
    const WebUpdateQuery query = sample_query(service.c_str());
    const int result = web_check_for_update(&query, reply);
    EXPECT_EQ(result, reply->failure == WebNoFailure ? WebOk : WebFailed);
    EXPECT_STREQ(web_last_error(), reply->error == nullptr ? "" : reply->error);
    return result;
}

void expect_failure(const PeerScript &script, const ExpectedReply &expected)
{
    OwnedReply reply;
    check(script, &reply);
    expect_reply(reply, expected);
    expect_values(reply, none, none, none, none);
    EXPECT_EQ(reply.newer, WebNewerUnknown);
}

// An answer in the place of the status line. The row holds what is sent before an empty line and
// the line "Message: m".
struct HeaderRow {
    std::string header;
    WebUpdateFailure failure;
    std::string error;
    int status;
    const char *reason;
};

void expect_header_failure(const HeaderRow &row)
{
    SCOPED_TRACE(testing::PrintToString(row.header));
    const std::string header = up_to_nul(row.header + "\n");
    expect_failure(replying(row.header + "\n\nMessage: m"),
                   {row.failure, row.error, row.status, row.reason, header.c_str(), "Message: m"});
}

TEST(HostilePeer, ThatSpeaksAnotherProtocolIsNotHttp)
{
    for (const std::string &header : {
             std::string("SSH-2.0-OpenSSH_9.2"),
             std::string("220 mail.quintral.example ESMTP ready"),
             std::string("+OK ready"),
             std::string("* OK IMAP4rev1 ready"),
             std::string("RTSP/1.0 200 OK"),
             std::string("<!DOCTYPE html><html><body>Log in</body></html>"),
             std::string("{\"version\":\"6\"}"),
             std::string("Version: 6"),
             std::string("\x15\x03\x01\x00\x02\x02\x28", 7), // a TLS alert, handshake failure
             std::string("\x15\x03\x03\x00\x02\x01", 6),     // a TLS warning
             std::string("\x00\x00\x06\x04\x00\x00\x00\x00\x00\x00\x03", 11), // HTTP/2 settings
             std::string("\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\x03", 10),     // all of it gzip
             std::string("\x1b[2J\x1b]0;HTTP\x07\xE2\x80\xAE"),
             nul + "HTTP/1.0 200 OK",
             "HTT" + nul + "P/1.0 200 OK",
             std::string("HTTP 200 OK"),
             std::string("http/1.0 200 OK"),
             std::string("HTTP\\1.0 200 OK"),
         })
        expect_header_failure({header, WebNotHttp, not_http, 0, none});
}

TEST(HostilePeer, WithAMalformedStatusLineIsNotHttp)
{
    const std::string xs(1000, 'x');
    const HeaderRow rows[] = {
        {"HTTP/", WebNotHttp, malformed("\n"), 0, none},
        {"HTTP/1", WebNotHttp, malformed("1\n"), 0, none},
        {"HTTP/1.", WebNotHttp, malformed("1.\n"), 0, none},
        {"HTTP/1.0", WebNotHttp, malformed("1.0\n"), 0, none},
        {"HTTP/1.0 ", WebNotHttp, malformed("1.0 \n"), 0, none},
        {"HTTP/1.0 OK", WebNotHttp, malformed("1.0 OK\n"), 0, none},
        {"HTTP/1.0 -", WebNotHttp, malformed("1.0 -\n"), 0, none},
        {"HTTP/1.0 200", WebNotHttp, malformed("1.0 200\n"), 200, none},
        {"HTTP/1.0 200 \t", WebNotHttp, malformed("1.0 200 \t\n"), 200, none},
        {"HTTP/1.0 200" + nul + " OK", WebNotHttp, malformed("1.0 200"), 200, none},
        {"HTTP/1.0 " + nul + "200 OK", WebNotHttp, malformed("1.0 "), 0, none},
        {"HTTP/1,0 200 OK", WebNotHttp, malformed("1,0 200 OK\n"), 0, none},
        {"HTTP/1 200 OK", WebNotHttp, malformed("1 200 OK\n"), 0, none},
        {"HTTP/.0 200 OK", WebNotHttp, malformed(".0 200 OK\n"), 0, none},
        {"HTTP/one.0 200 OK", WebNotHttp, malformed("one.0 200 OK\n"), 0, none},
        {"HTTP/1.x 200 OK", WebNotHttp, malformed("1.x 200 OK\n"), 0, none},
        {"HTTP//1.0 200 OK", WebNotHttp, malformed("/1.0 200 OK\n"), 0, none},
        {"HTTP/%s%n 200 OK", WebNotHttp, malformed("%s%n 200 OK\n"), 0, none},
        {"HTTP/\x1b[2J\xE2\x80\xAE", WebNotHttp, malformed("\x1b[2J\xE2\x80\xAE\n"), 0, none},
        {"HTTP/" + xs, WebNotHttp, malformed(xs + "\n"), 0, none},
    };
    for (const HeaderRow &row : rows)
        expect_header_failure(row);
}

TEST(HostilePeer, WithAnotherStatusIsRejected)
{
    const std::string bad = "Bad HTTP status ";
    const struct {
        const char *line;
        int status;
        const char *reason;
    } rows[] = {
        {"HTTP/1.1 100 Continue", 100, "Continue"},
        {"HTTP/1.1 101 Switching Protocols", 101, "Switching Protocols"},
        {"HTTP/1.0 199 Low", 199, "Low"},
        {"HTTP/1.0 300 High", 300, "High"},
        {"HTTP/1.0 304 Not Modified", 304, "Not Modified"},
        {"HTTP/1.1 426 Upgrade Required", 426, "Upgrade Required"},
        {"HTTP/1.0 999 x", 999, "x"},
        {"HTTP/1.0 2000 x", 2000, "x"},
        {"HTTP/1.0 20 0", 20, "0"},
        {"HTTP/1.0 0x200 OK", 0, "x200 OK"},
        {"HTTP/1.0 -200 OK", -200, "OK"},
        {"HTTP/1.0 2147483647 x", 2147483647, "x"},
        {"HTTP/1.0 99999999999999999999 x", 2147483647, "x"},
        {"HTTP/1.0 -99999999999999999999 x", -2147483647 - 1, "x"},
        {"HTTP/1.0 500 \x1b[2J\x07\xE2\x80\xAE%s%n", 500, "\x1b[2J\x07\xE2\x80\xAE%s%n"},
    };
    for (const auto &row : rows)
        expect_header_failure({row.line, WebBadStatus,
                               bad + std::to_string(row.status) + " from web site: " + row.reason,
                               row.status, row.reason});
}

// The body of a reply with an accepted status, and the values that are found in it. A line without
// a colon hides the key of the next line.
TEST(HostilePeer, WithABodyOfAnotherKindGivesWhatLooksLikeValues)
{
    const std::string gzip = std::string("\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\x03", 10) + "xyz";
    const struct {
        const char *rule;
        std::string body;
        const char *version;
        const char *url;
        const char *message; // null for a reply that is not an update
    } rows[] = {
        {"HTML", "<html>\n<body>Version: 6</body>\n</html>\n", none, none, none},
        {"HTML with a value", "<html>\nVersion: 6\nMessage: m</html>", none, none, "m</html>"},
        {"gzip", gzip, none, none, none},
        {"gzip with a line", gzip + "\nMessage: m", none, none, none}, // a NUL ends it
        {"chunks", "1a\r\nVersion: 6\r\nMessage: m\r\n\r\n0\r\n\r\n", none, none, "m\n\n0\n\n"},
        {"a chunk within a name", "3\r\nMes\r\n7\r\nsage: m\r\n0\r\n\r\n", none, none, none},
        {"values of one line each", "Version: 6\nURL: <u>\nMessage: <m>", "6", "<u>", "<m>"},
        {"JSON", "{\"Version\": \"6\", \"Message\": \"m\"}", none, none, none},
        {"another reply", "HTTP/1.0 200 OK\r\n\r\nVersion: 6\r\nMessage: m", none, none, "m"},
        {"line feeds", "\n\n\n\n", none, none, none},
        {"colons", ":\n: :\n::::\n", none, none, none},
        {"another case", "VERSION: 6\nmessage: m", none, none, none},
        {"spaces before the name", " Message: m", none, none, none},
        {"controls",
         "Version: \x1b[31m6\x07\nURL: \xE2\x80\xAEmoc\xE2\x81\xA9\nMessage: \x9b\x1b]0;t\x07\xFF",
         "\x1b[31m6\x07", "\xE2\x80\xAEmoc\xE2\x81\xA9", "\x9b\x1b]0;t\x07\xFF"},
        {"formats", "Version: %s%n\nURL: %n\nMessage: %s%s%s", "%s%n", "%n", "%s%s%s"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.rule);
        OwnedReply reply;
        check(replying(accepted + row.body), &reply);
        const bool is_update = row.message != nullptr;
        expect_reply(reply,
                     {is_update ? WebNoFailure : WebNotAnUpdate, is_update ? "" : not_an_update,
                      200, "OK", accepted_header, up_to_nul(row.body).c_str()});
        expect_values(reply, row.version, row.url, none, row.message);
        const bool is_comparable = is_update && row.version != nullptr && row.version[0] == '6';
        EXPECT_EQ(reply.newer, is_comparable ? WebNewer : WebNewerUnknown);
    }
}

// A reply with a NUL at each offset is read as the same bytes in a file are.
TEST(HostilePeer, WithANulAnywhereIsReadAsASavedReply)
{
    const std::string whole = accepted + "Version: 6\nURL: u\nButton: b\nMessage: m\n";
    for (std::size_t offset = 0; offset < whole.size(); ++offset) {
        SCOPED_TRACE(offset);
        std::string bytes = whole;
        bytes[offset] = '\0';
        OwnedReply saved;
        web_read_update_reply(bytes.data(), bytes.size(), "5.1", &saved);
        OwnedReply reply;
        check(replying(bytes), &reply);
        const std::string error = saved.error == nullptr ? "" : saved.error;
        expect_reply(reply, {saved.failure, error, saved.http_status, saved.reason, saved.header,
                             saved.body});
        expect_values(reply, saved.version, saved.url, saved.button, saved.message);
        EXPECT_EQ(reply.newer, saved.newer);
    }
}

TEST(HostilePeer, WithALineOfAMebibyteIsTooLongInTheHeaderOnly)
{
    const std::string xs(mebibyte, 'x');
    for (const std::string &start :
         {xs, "HTTP/1.0 200 " + xs, "HTTP/1.0 200 OK\r\nA: " + xs, std::string(mebibyte, '\0')})
        expect_failure(replying(start + "\r\n\r\nMessage: m"),
                       {WebReplyTooLong, header_too_long, 0, none, none, none});
    const std::string body =
        "Version: " + xs + "\nURL: " + xs + "\nButton: " + xs + "\nMessage: " + xs;
    OwnedReply reply;
    check(replying(accepted + body), &reply);
    expect_reply(reply, {WebNoFailure, "", 200, "OK", accepted_header, body.c_str()});
    expect_values(reply, xs.c_str(), xs.c_str(), xs.c_str(), xs.c_str());
}

TEST(HostilePeer, WithoutAnEndReachesTheLimit)
{
    for (const std::string &bytes :
         {std::string("A: b\r\n"), std::string(100, 'x'), nul, std::string("\r"),
          std::string("\x1f\x8b\x08"), std::string("\x15\x03\x03\x00\x02\x01\x00", 7)})
        expect_failure({{PeerAct::ReadRequest}, {PeerAct::SendForever, repeated(1000, bytes)}},
                       {WebReplyTooLong, header_too_long, 0, none, none, none});
    for (const std::string &bytes :
         {std::string("\n"), std::string("Version: 6\n"), std::string("Message: m"), nul})
        expect_failure({{PeerAct::ReadRequest},
                        {PeerAct::Send, accepted},
                        {PeerAct::SendForever, repeated(10000, bytes)}},
                       {WebReplyTooLong, body_too_long, 200, "OK", accepted_header, none});
}

TEST(HostilePeer, ThatRepliesBeforeItReadsIsUnderstood)
{
    OwnedReply reply;
    check({{PeerAct::Send, accepted + "Version: 6\nMessage: m"}, {PeerAct::ReadRequest}}, &reply);
    expect_reply(reply, {WebNoFailure, "", 200, "OK", accepted_header, "Version: 6\nMessage: m"});
    expect_values(reply, "6", none, none, "m");
}

// Whether the client sees the reset while it connects, sends or receives is a matter of time. If it
// does while it sends, the connection then reads as closed. Only a client that a busy machine stops
// in between sees it while it connects.
TEST(HostilePeer, ThatResetsBeforeItReadsGivesNoReply)
{
    for (int i = 0; i < 20; ++i) {
        OwnedReply reply;
        check({{PeerAct::Reset}}, &reply);
        if (reply.failure == WebConnectFailed) {
            const std::string error = "Can't connect to web server '127.0.0.1': code " +
                                      std::to_string(ECONNRESET) + ": " + std::strerror(ECONNRESET);
            expect_reply(reply, {WebConnectFailed, error, 0, none, none, none});
        } else {
            EXPECT_TRUE(reply.failure == WebNotHttp || reply.failure == WebReceiveFailed);
            expect_reply(reply, {reply.failure, not_http, 0, none, "", ""});
        }
        expect_values(reply, none, none, none, none);
    }
}

// Sizes at and around those of the client's blocks and of its receives.
TEST(HostilePeer, MaySendPartsOfAnySize)
{
    for (const std::size_t size : {1022u, 1023u, 1024u, 1025u, 2045u, 2046u, 2047u, 2048u, 2049u,
                                   3069u, 4095u, 4096u, 4097u, 8191u, 8192u, 8193u}) {
        SCOPED_TRACE(size);
        const std::string start = "HTTP/1.0 200 ";
        const std::string reason(127, 'r');
        const std::string header = start + std::string(size - start.size() - 1, 'r') + "\n";
        const std::string name = "Message: ";
        const std::string message(size - name.size(), 'm');
        const std::string body = name + message;
        OwnedReply reply;
        check(replying(header + "\n" + body), &reply);
        expect_reply(reply, {WebNoFailure, "", 200, reason.c_str(), header.c_str(), body.c_str()});
        expect_values(reply, none, none, none, message.c_str());
    }
}

} // namespace
} // namespace quintral
