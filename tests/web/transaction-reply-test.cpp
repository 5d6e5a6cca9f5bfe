// What a transaction delivers of each kind of reply, over real sockets, and which headers the reply
// check accepts.
#include "tests/harness/child-process.h"
#include "tests/harness/loopback-peer.h"
#include "tests/harness/text.h"
#include "tests/web/transaction-calls.h"
#include "web/transaction.h"

#include <csignal>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

namespace quintral {
namespace {

using namespace tests;

TEST_F(WebTransaction, AReplyIsReadUpToTheEmptyLineAndThenToTheClose)
{
    const ReplyRow rows[] = {
        {"header and body", answering(good_reply), outcome(WebOk, good_header, "body", "")},
        {"no body", answering("HTTP/1.0 204 No Content\r\n\r\n"),
         outcome(WebOk, "HTTP/1.0 204 No Content\r\n\r", "", "")},
        {"bare line feeds", answering("HTTP/1.0 200 OK\nA: b\n\nbody\n\n"),
         outcome(WebOk, "HTTP/1.0 200 OK\nA: b\n", "body\n\n", "")},
        {"carriage returns do not fill a line", answering("A\n\r\r\nbody"),
         outcome(WebOk, "A\n\r\r", "body", "")},
        {"a blank does", answering("A\n \r\n\r\nbody"), outcome(WebOk, "A\n \r\n\r", "body", "")},
        {"a line feed first", answering("\nbody"), outcome(WebOk, "", "body", "")},
        {"an empty line first", answering("\r\nbody"), outcome(WebOk, "\r", "body", "")},
        {"bytes above 0x7F", answering("\xff\xe4\n\n\x80\xff"),
         outcome(WebOk, "\xff\xe4\n", "\x80\xff", "")},
        {"byte by byte",
         {{PeerAct::ReadRequest}, {PeerAct::Trickle, "HTTP/1.0 200 OK\r\n\r\nab", 15}},
         outcome(WebOk, "HTTP/1.0 200 OK\r\n\r", "ab", "")},
        {"Content-Length is not looked at",
         answering("HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\nbody"),
         outcome(WebOk, "HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r", "body", "")},
        {"an answer before the request",
         {{PeerAct::Send, good_reply}, {PeerAct::ReadRequest}},
         outcome(WebOk, good_header, "body", "")},
    };
    for (const ReplyRow &row : rows)
        check_reply_row(row);
}

TEST_F(WebTransaction, ANulEndsTheHeaderTextAndLosesTheRestOfABodyChunk)
{
    const std::string nul(1, '\0');
    const ReplyRow rows[] = {
        {"in the header", answering("A: b" + nul + "c\r\nD: e\r\n\r\nbody"),
         outcome(WebOk, "A: b", "body", "")},
        {"as a line of its own it is a byte like any other", answering("A\n" + nul + "\n\nbody"),
         outcome(WebOk, "A\n", "body", "")},
        {"first in the header", answering(nul + "A\n\nbody"), outcome(WebOk, "", "body", "")},
        {"in the body",
         {{PeerAct::ReadRequest},
          {PeerAct::Send, "A\n\nab" + nul + "cd"},
          {PeerAct::Pause, "", 500},
          {PeerAct::Send, "ef"}},
         outcome(WebOk, "A\n", "abef", "")},
        {"first in a chunk",
         {{PeerAct::ReadRequest},
          {PeerAct::Send, "A\n\nab"},
          {PeerAct::Pause, "", 500},
          {PeerAct::Send, nul + "cd"},
          {PeerAct::Pause, "", 500},
          {PeerAct::Send, "ef"}},
         outcome(WebOk, "A\n", "abef", "")},
        {"a chunk is 1023 bytes",
         answering("A\n\n" + std::string(1000, 'x') + nul + std::string(22, 'y') + "second"),
         outcome(WebOk, "A\n", std::string(1000, 'x') + "second", "")},
    };
    for (const ReplyRow &row : rows)
        check_reply_row(row);
}

TEST_F(WebTransaction, BodiesOfAnyLengthArriveWhole)
{
    for (std::size_t length : {0u, 1u, 1022u, 1023u, 1024u, 1025u, 2046u, 2047u, 3000000u}) {
        std::string body;
        for (std::size_t i = 0; i < length; ++i)
            body += static_cast<char>('a' + i % 23);
        LoopbackPeer peer({answering("A: b\r\n\r\n" + body)});
        EXPECT_TRUE(call_web({url_of(peer)}) == outcome(WebOk, "A: b\r\n\r", body, ""))
            << length << " bytes";
    }
}

TEST_F(WebTransaction, HeadersOfAnyLengthArriveWhole)
{
    const std::string header = repeated(30000, "A: b\r\n") + std::string(100000, 'x');
    LoopbackPeer peer({answering(header + "\r\n\r\nbody")});
    EXPECT_TRUE(call_web({url_of(peer)}) == outcome(WebOk, header + "\r\n\r", "body", ""));
}

// A close takes the last byte once more: behind a line feed that is an empty line.
TEST_F(WebTransaction, ACloseBehindALineFeedOrBeforeAnyByteEndsTheHeader)
{
    const ReplyRow rows[] = {
        {"before any byte", answering(""), outcome(WebOk, "", "", "")},
        {"behind a line", answering("HTTP/1.0 200 OK\r\n"),
         outcome(WebOk, "HTTP/1.0 200 OK\r\n", "", "")},
        {"behind two lines", answering("HTTP/1.0 200 OK\nA: b\n"),
         outcome(WebOk, "HTTP/1.0 200 OK\nA: b\n", "", "")},
        {"behind a line and after a while",
         {{PeerAct::ReadRequest}, {PeerAct::Send, "HTTP/1.0 200 OK\n"}, {PeerAct::Pause, "", 300}},
         outcome(WebOk, "HTTP/1.0 200 OK\n", "", "")},
    };
    for (const ReplyRow &row : rows)
        check_reply_row(row);
}

TEST_F(WebTransaction, TheReplyCheckRefusesTheHeaderOfACloseBeforeAnyByte)
{
    LoopbackPeer peer({answering("")});
    EXPECT_EQ(call_web({url_of(peer)}), outcome(WebOk, "", "", ""));
    EXPECT_EQ(web_check_reply(""), -1);
    EXPECT_STREQ(web_last_error(), "Invalid non-HTTP header string returned from web site");
}

TEST_F(WebTransaction, ACloseInMidLineRepeatsTheLastByteUpToTheHeaderLimit)
{
    const char *const replies[] = {"HTTP/1.0 200 OK\r\nA: b", "HTTP/1.0 200 OK\r\n\r", "x"};
    for (const char *reply : replies) {
        web_set_reply_limits(5000, 0);
        check_reply_row({reply, answering(reply),
                         outcome(WebFailed, none, none,
                                 "Reply header from web site is longer than 5000 bytes")});
    }
}

// Without a limit it goes on for as long as the program lives: the child does not end by itself.
TEST_F(WebTransaction, ACloseInMidLineGoesOnWithoutALimit)
{
    LoopbackPeer peer({answering("HTTP/1.0 200 OK\r\nA")});
    const ChildResult result = run_child_function([&peer] {
        alarm(2);
        call_web({url_of(peer)});
        return 0;
    });
    EXPECT_EQ(result.signal, SIGALRM);
}

// The body phase decides about the result: the socket has told its error and now reads as closed.
TEST_F(WebTransaction, AReceiveErrorInTheHeaderEndsTheHeaderAndIsRecorded)
{
    const ReplyRow rows[] = {
        {"before any byte", resetting_after(""), outcome(WebOk, "", "", reset_error())},
        {"in mid-line", resetting_after("HTTP/1.0 2"),
         outcome(WebOk, "HTTP/1.0 2", "", reset_error())},
        {"behind a line", resetting_after("HTTP/1.0 200 OK\r\n"),
         outcome(WebOk, "HTTP/1.0 200 OK\r\n", "", reset_error())},
    };
    for (const ReplyRow &row : rows)
        check_reply_row(row);
}

TEST_F(WebTransaction, AReceiveErrorInTheBodyDeliversTheHeaderOnly)
{
    const ReplyRow rows[] = {
        {"before any byte", resetting_after("HTTP/1.0 200 OK\r\n\r\n"),
         outcome(WebFailed, "HTTP/1.0 200 OK\r\n\r", none, reset_error())},
        {"in the body", resetting_after(good_reply),
         outcome(WebFailed, good_header, none, reset_error())},
    };
    for (const ReplyRow &row : rows)
        check_reply_row(row);
}

// Limits

TEST_F(WebTransaction, AReplyOfExactlyTheLimitPassesAndOneByteMoreFails)
{
    const std::string header = good_header;
    const std::string too_long_header =
        "Reply header from web site is longer than " + std::to_string(header.size() - 1) + " bytes";
    const struct {
        const char *name;
        std::size_t header_limit;
        std::size_t body_limit;
        std::string reply;
        std::string expected;
    } rows[] = {
        {"header at its limit", header.size(), 0, good_reply,
         outcome(WebOk, good_header, "body", "")},
        {"header past its limit", header.size() - 1, 0, good_reply,
         outcome(WebFailed, none, none, too_long_header)},
        {"header past a limit of one", 1, 0, good_reply,
         outcome(WebFailed, none, none, "Reply header from web site is longer than 1 bytes")},
        {"the line feed of the empty line does not count", 1, 0, "\r\nbody",
         outcome(WebOk, "\r", "body", "")},
        {"NULs of the header count", 3, 0, std::string("\0\0\0\n\nbody", 9),
         outcome(WebFailed, none, none, "Reply header from web site is longer than 3 bytes")},
        {"the body does not count for the header", header.size(), 0,
         good_reply + std::string(5000, 'x'),
         outcome(WebOk, good_header, "body" + std::string(5000, 'x'), "")},
        {"body at its limit", 0, 4, good_reply, outcome(WebOk, good_header, "body", "")},
        {"body past its limit", 0, 3, good_reply,
         outcome(WebFailed, good_header, none, "Reply body from web site is longer than 3 bytes")},
        {"the header does not count for the body", 0, 4, good_reply,
         outcome(WebOk, good_header, "body", "")},
        {"bytes lost behind a NUL count", 0, 4, "A\n\na" + std::string("\0bcd", 4),
         outcome(WebFailed, "A\n", none, "Reply body from web site is longer than 4 bytes")},
        {"bytes lost behind a NUL pass at the limit", 0, 5, "A\n\na" + std::string("\0bcd", 4),
         outcome(WebOk, "A\n", "a", "")},
        {"a body of several chunks at its limit", 0, 4000, "A\n\n" + std::string(4000, 'x'),
         outcome(WebOk, "A\n", std::string(4000, 'x'), "")},
        {"a body of several chunks past its limit", 0, 4000, "A\n\n" + std::string(4001, 'x'),
         outcome(WebFailed, "A\n", none, "Reply body from web site is longer than 4000 bytes")},
        {"an empty body", 0, 1, "A\n\n", outcome(WebOk, "A\n", "", "")},
        {"both at their limits", header.size(), 4, good_reply,
         outcome(WebOk, good_header, "body", "")},
    };
    for (const auto &row : rows) {
        web_set_reply_limits(row.header_limit, row.body_limit);
        check_reply_row({row.name, answering(row.reply), row.expected});
    }
}

TEST_F(WebTransaction, LimitsStayUntilReplacedAnd0IsNone)
{
    web_set_reply_limits(0, 3);
    LoopbackPeer peer({answering(good_reply)});
    const std::string too_long =
        outcome(WebFailed, good_header, none, "Reply body from web site is longer than 3 bytes");
    EXPECT_EQ(call_web({url_of(peer)}), too_long);
    EXPECT_EQ(call_web({url_of(peer)}), too_long);
    web_set_reply_limits(0, 0);
    EXPECT_EQ(call_web({url_of(peer)}), outcome(WebOk, good_header, "body", ""));
}

TEST_F(WebTransaction, ALimitEndsAReplyThatNeverStops)
{
    web_set_reply_limits(100000, 200000);
    check_reply_row(
        {"a header without end",
         {{PeerAct::ReadRequest}, {PeerAct::SendForever, "A: b\r\n"}},
         outcome(WebFailed, none, none, "Reply header from web site is longer than 100000 bytes")});
    check_reply_row(
        {"a body without end",
         {{PeerAct::ReadRequest},
          {PeerAct::Send, "A\n\n"},
          {PeerAct::SendForever, std::string(10000, 'x')}},
         outcome(WebFailed, "A\n", none, "Reply body from web site is longer than 200000 bytes")});
}

// The limit ends the exchange at once, not only when the server has closed or fallen silent.
TEST_F(WebTransaction, ALimitEndsAnExchangeAtItsFirstByteTooMany)
{
    web_set_reply_limits(0, 3);
    const auto start = Clock::now();
    check_reply_row(
        {"the connection stays open",
         {{PeerAct::ReadRequest}, {PeerAct::Send, good_reply}, {PeerAct::Hold}},
         outcome(WebFailed, good_header, none, "Reply body from web site is longer than 3 bytes")});
    EXPECT_LT(milliseconds_since(start), 9000);
}

// The reply check

TEST_F(WebTransaction, TheReplyCheckAcceptsAStatusFrom200To299)
{
    const std::string no_http = "Invalid non-HTTP header string returned from web site";
    const std::string unreadable = "Invalid HTTP return status (can't parse header HTTP/";
    const struct {
        std::string header;
        std::string error; // empty where the reply may be used
    } rows[] = {
        {"HTTP/1.0 200 OK\r\nA: b\r\n\r", ""},
        {"HTTP/1.1 204 No Content\r\n\r", ""},
        {"HTTP/1.0 299 x", ""},
        {"HTTP/9.9 250 x", ""},
        {"junk before HTTP/1.0 200 OK", ""},
        {"A: b\r\nHTTP/1.0 200 OK\r\n\r", ""},
        {"HTTP/1.0 199 Early\r\n\r", "Bad HTTP status 199 from web site: Early"},
        {"HTTP/1.0 300 Multiple Choices\r\n\r",
         "Bad HTTP status 300 from web site: Multiple Choices"},
        {"HTTP/1.0 404 Not Found\r\nA: b\r\n\r", "Bad HTTP status 404 from web site: Not Found"},
        {"HTTP/1.0 -200 x", "Bad HTTP status -200 from web site: x"},
        {"HTTP/1.0 0 x", "Bad HTTP status 0 from web site: x"},
        {"HTTP/1.0 500 %s%n\r\n\r", "Bad HTTP status 500 from web site: %s%n"},
        // only the first one counts
        {"HTTP/1.0 404 No\r\nHTTP/1.0 200 OK\r\n\r", "Bad HTTP status 404 from web site: No"},
        {"HTTP/ HTTP/1.0 200 OK", unreadable + " HTTP/1.0 200 OK)"},
        // a missing reason
        {"HTTP/1.0 200", unreadable + "1.0 200)"},
        {"HTTP/1.0 200\r\n\r", unreadable + "1.0 200\r\n\r)"},
        {"HTTP/1.0 200\r\nServer: x\r\n\r", ""},
        {"HTTP/1.0 404\r\nServer: x\r\n\r", "Bad HTTP status 404 from web site: Server: x"},
        // what is no status line
        {"", no_http},
        {"\r", no_http},
        {"http/1.0 200 OK", no_http},
        {"HTTP 1.0 200 OK", no_http},
        {"HTTP", no_http},
        {"HTTP/", unreadable + ")"},
        {"HTTP/1 200 OK\r\nA: b", unreadable + "1 200 OK\r\nA: b)"},
        {"HTTP/1.0 OK", unreadable + "1.0 OK)"},
        {"HTTP/x" + std::string(100000, 'y'), unreadable + "x" + std::string(100000, 'y') + ")"},
        // the reason keeps 127 bytes
        {"HTTP/1.0 200 " + std::string(100000, 'r'), ""},
        {"HTTP/1.0 404 " + std::string(127, 'r'),
         "Bad HTTP status 404 from web site: " + std::string(127, 'r')},
        {"HTTP/1.0 404 " + std::string(128, 'r'),
         "Bad HTTP status 404 from web site: " + std::string(127, 'r')},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.header.substr(0, 100)));
        web_set_error("%s", "");
        EXPECT_EQ(web_check_reply(row.header.c_str()), row.error.empty() ? 0 : -1);
        EXPECT_EQ(web_last_error(), row.error);
    }
}

TEST_F(WebTransaction, AReplyThatPassesTheCheckLeavesTheLastErrorAlone)
{
    web_set_error("old");
    EXPECT_EQ(web_check_reply("HTTP/1.0 200 OK"), 0);
    EXPECT_STREQ(web_last_error(), "old");
}

} // namespace
} // namespace quintral
