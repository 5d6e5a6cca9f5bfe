// What a transaction delivers for each kind of reply, over real sockets, and which headers the
// reply check accepts.
#include "tests/harness/child-process.h"
#include "tests/harness/loopback-peer.h"
#include "tests/harness/text.h"
#include "tests/web/transaction-calls.h"
#include "web/transaction.h"

#include <csignal>
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

namespace quintral {
namespace {

using namespace tests;

const std::string ok_header = "HTTP/1.0 200 OK\r\n";

// A reply, after which the server closes the connection, and what is delivered.
struct DeliveryRow {
    const char *rule;
    std::string reply;
    std::string header;
    std::string body;
};

void check_delivery(const DeliveryRow &row)
{
    check_reply_row({row.rule, answering(row.reply), delivered(row.header, row.body)});
}

TEST_F(WebTransaction, AReplyIsReadUpToTheEmptyLineAndThenToTheClose)
{
    const std::string with_length = ok_header + "Content-Length: 2\r\n\r";
    const std::string no_content = "HTTP/1.0 204 No Content\r\n\r";
    const DeliveryRow rows[] = {
        {"header and body", good_reply, good_header, "body"},
        {"no body", no_content + "\n", no_content, ""},
        {"bare line feeds", "A: b\nC: d\n\nbody\n\n", "A: b\nC: d\n", "body\n\n"},
        {"carriage returns do not fill a line", "A\n\r\r\nbody", "A\n\r\r", "body"},
        {"a space does", "A\n \r\n\r\nbody", "A\n \r\n\r", "body"},
        {"a line feed first", "\nbody", "", "body"},
        {"an empty line first", "\r\nbody", "\r", "body"},
        {"bytes above 0x7F", "\xff\xe4\n\n\x80\xff", "\xff\xe4\n", "\x80\xff"},
        {"Content-Length is ignored", with_length + "\nbody", with_length, "body"},
    };
    for (const DeliveryRow &row : rows)
        check_delivery(row);
    const std::string header = ok_header + "\r";
    check_reply_row(
        {"byte by byte", {reading, trickling(header + "\nab", 15)}, delivered(header, "ab")});
    check_reply_row({"before the request", {sending(good_reply), reading}, good_outcome()});
}

TEST_F(WebTransaction, ANulCutsTheHeaderAndTheRestOfABodyChunk)
{
    const std::string nul(1, '\0');
    const std::string xs(1000, 'x');
    const std::string ys(22, 'y');
    const DeliveryRow rows[] = {
        {"in the header", "A: b" + nul + "c\r\nD: e\r\n\r\nbody", "A: b", "body"},
        {"a line with only a NUL", "A\n" + nul + "\n\nbody", "A\n", "body"},
        {"first in the header", nul + "A\n\nbody", "", "body"},
        {"a chunk is 1023 bytes", "A\n\n" + xs + nul + ys + "second", "A\n", xs + "second"},
    };
    for (const DeliveryRow &row : rows)
        check_delivery(row);
    const PeerStep first = sending("A\n\nab");
    const PeerStep with_nul = sending("A\n\nab" + nul + "cd");
    const PeerStep nul_first = sending(nul + "cd");
    const PeerStep last = sending("ef");
    const PeerStep pause = pausing(500); // so that the next bytes arrive as a separate chunk
    const std::string expected = delivered("A\n", "abef");
    check_reply_row({"in the body", {reading, with_nul, pause, last}, expected});
    check_reply_row(
        {"first in a chunk", {reading, first, pause, nul_first, pause, last}, expected});
}

TEST_F(WebTransaction, BodiesOfAnyLengthAreDelivered)
{
    for (std::size_t length : {0u, 1u, 1022u, 1023u, 1024u, 1025u, 2046u, 2047u, 3000000u}) {
        std::string body;
        for (std::size_t i = 0; i < length; ++i)
            body += static_cast<char>('a' + i % 23);
        LoopbackPeer peer({answering("A: b\r\n\r\n" + body)});
        EXPECT_TRUE(call_web({url_of(peer)}) == delivered("A: b\r\n\r", body))
            << length << " bytes";
    }
}

TEST_F(WebTransaction, HeadersOfAnyLengthAreDelivered)
{
    const std::string header = repeated(30000, "A: b\r\n") + std::string(100000, 'x');
    LoopbackPeer peer({answering(header + "\r\n\r\nbody")});
    EXPECT_TRUE(call_web({url_of(peer)}) == delivered(header + "\r\n\r", "body"));
}

// At the close the last byte is processed again. If it is a line feed, that makes an empty line.
TEST_F(WebTransaction, ACloseAfterALineFeedOrBeforeAnyByteEndsTheHeader)
{
    const std::string two_lines = "HTTP/1.0 200 OK\nA: b\n";
    check_delivery({"before any byte", "", "", ""});
    check_delivery({"after a line", ok_header, ok_header, ""});
    check_delivery({"after two lines", two_lines, two_lines, ""});
    check_reply_row(
        {"later", {reading, sending(ok_header), pausing(300)}, delivered(ok_header, "")});
}

TEST_F(WebTransaction, TheReplyCheckRejectsAnEmptyReply)
{
    LoopbackPeer peer({answering("")});
    EXPECT_EQ(call_web({url_of(peer)}), delivered("", ""));
    EXPECT_EQ(web_check_reply(""), -1);
    EXPECT_STREQ(web_last_error(), no_http_error);
}

TEST_F(WebTransaction, ACloseWithinALineRepeatsTheLastByteUpToTheHeaderLimit)
{
    const char *const replies[] = {"HTTP/1.0 200 OK\r\nA: b", "HTTP/1.0 200 OK\r\n\r", "x"};
    for (const char *reply : replies) {
        web_set_reply_limits(5000, 0);
        check_reply_row({reply, answering(reply), header_too_long(5000)});
    }
}

// The exchange runs until the alarm ends the child process.
TEST_F(WebTransaction, ACloseWithinALineNeverEndsWithoutALimit)
{
    LoopbackPeer peer({answering("HTTP/1.0 200 OK\r\nA")});
    const ChildResult result = run_child_function([&peer] {
        alarm(2);
        call_web({url_of(peer)});
        return 0;
    });
    EXPECT_EQ(result.signal, SIGALRM);
}

// The socket reports its error once and then reads as closed, so the body phase succeeds.
TEST_F(WebTransaction, AReceiveErrorInTheHeaderEndsTheHeaderAndIsRecorded)
{
    for (const std::string &header : {std::string(), std::string("HTTP/1.0 2"), ok_header})
        check_reply_row(
            {header.c_str(), resetting_after(header), outcome(WebOk, header, "", reset_error())});
}

TEST_F(WebTransaction, AReceiveErrorInTheBodyDeliversOnlyTheHeader)
{
    const ReplyRow rows[] = {
        {"before any byte", resetting_after("A: b\r\n\r\n"), failed(reset_error(), "A: b\r\n\r")},
        {"in the body", resetting_after(good_reply), failed(reset_error(), good_header)},
    };
    for (const ReplyRow &row : rows)
        check_reply_row(row);
}

// Limits

TEST_F(WebTransaction, AReplyMayReachItsLimitButNotExceedIt)
{
    const std::size_t size = std::strlen(good_header);
    const std::string nuls(3, '\0');
    const std::string with_nul = "A\n\na" + std::string("\0bcd", 4);
    const std::string xs(4000, 'x');
    const struct {
        const char *name;
        std::size_t header_limit;
        std::size_t body_limit;
        std::string reply;
        std::string expected;
    } rows[] = {
        {"header at its limit", size, 0, good_reply, good_outcome()},
        {"header past its limit", size - 1, 0, good_reply, header_too_long(size - 1)},
        {"header past a limit of one", 1, 0, good_reply, header_too_long(1)},
        {"the final line feed does not count", 1, 0, "\r\nbody", delivered("\r", "body")},
        {"NULs of the header count", 3, 0, nuls + "\n\nbody", header_too_long(3)},
        {"the body does not count", size, 0, good_reply + xs, delivered(good_header, "body" + xs)},
        {"body at its limit", 0, 4, good_reply, good_outcome()},
        {"body past its limit", 0, 3, good_reply, body_too_long(good_header, 3)},
        {"the header does not count", 0, 4, good_reply, good_outcome()},
        {"bytes lost after a NUL count", 0, 4, with_nul, body_too_long("A\n", 4)},
        {"bytes lost after a NUL at the limit", 0, 5, with_nul, delivered("A\n", "a")},
        {"several chunks at the limit", 0, 4000, "A\n\n" + xs, delivered("A\n", xs)},
        {"several chunks past the limit", 0, 4000, "A\n\n" + xs + "x", body_too_long("A\n", 4000)},
        {"an empty body", 0, 1, "A\n\n", delivered("A\n", "")},
        {"both at their limits", size, 4, good_reply, good_outcome()},
    };
    for (const auto &row : rows) {
        web_set_reply_limits(row.header_limit, row.body_limit);
        check_reply_row({row.name, answering(row.reply), row.expected});
    }
}

TEST_F(WebTransaction, LimitsStayUntilTheyAreReplacedAnd0MeansNone)
{
    web_set_reply_limits(0, 3);
    LoopbackPeer peer({answering(good_reply)});
    EXPECT_EQ(call_web({url_of(peer)}), body_too_long(good_header, 3));
    EXPECT_EQ(call_web({url_of(peer)}), body_too_long(good_header, 3));
    web_set_reply_limits(0, 0);
    EXPECT_EQ(call_web({url_of(peer)}), good_outcome());
}

TEST_F(WebTransaction, ALimitEndsAReplyThatNeverEnds)
{
    const PeerStep header_forever = {PeerAct::SendForever, "A: b\r\n"};
    const PeerStep body_forever = {PeerAct::SendForever, std::string(10000, 'x')};
    web_set_reply_limits(100000, 200000);
    check_reply_row({"header", {reading, header_forever}, header_too_long(100000)});
    check_reply_row(
        {"body", {reading, sending("A\n\n"), body_forever}, body_too_long("A\n", 200000)});
}

// The exchange ends at once, not only when the server closes or falls silent.
TEST_F(WebTransaction, ALimitEndsAnExchangeAtTheFirstExcessByte)
{
    web_set_reply_limits(0, 3);
    const auto start = Clock::now();
    check_reply_row({"held open", holding_after(good_reply), body_too_long(good_header, 3)});
    EXPECT_LT(milliseconds_since(start), 9000);
}

// The reply check

TEST_F(WebTransaction, TheReplyCheckAcceptsAStatusFrom200To299)
{
    const std::string ys(100000, 'y');
    const std::string longest_reason(127, 'r');
    const struct {
        std::string header;
        std::string error; // empty if the reply may be used
    } rows[] = {
        {"HTTP/1.0 200 OK\r\nA: b\r\n\r", ""},
        {"HTTP/1.1 204 No Content\r\n\r", ""},
        {"HTTP/1.0 299 x", ""},
        {"HTTP/9.9 250 x", ""},
        {"junk before HTTP/1.0 200 OK", ""},
        {"A: b\r\nHTTP/1.0 200 OK\r\n\r", ""},
        {"HTTP/1.0 199 Early\r\n\r", bad_status(199, "Early")},
        {"HTTP/1.0 300 Multiple Choices\r\n\r", bad_status(300, "Multiple Choices")},
        {"HTTP/1.0 404 Not Found\r\nA: b\r\n\r", bad_status(404, "Not Found")},
        {"HTTP/1.0 -200 x", bad_status(-200, "x")},
        {"HTTP/1.0 0 x", bad_status(0, "x")},
        {"HTTP/1.0 500 %s%n\r\n\r", bad_status(500, "%s%n")},
        // only the first one counts
        {"HTTP/1.0 404 No\r\nHTTP/1.0 200 OK\r\n\r", bad_status(404, "No")},
        {"HTTP/ HTTP/1.0 200 OK", unreadable_status(" HTTP/1.0 200 OK")},
        // without a reason the next line is taken for it
        {"HTTP/1.0 200", unreadable_status("1.0 200")},
        {"HTTP/1.0 200\r\n\r", unreadable_status("1.0 200\r\n\r")},
        {"HTTP/1.0 200\r\nServer: x\r\n\r", ""},
        {"HTTP/1.0 404\r\nServer: x\r\n\r", bad_status(404, "Server: x")},
        // no status line
        {"", no_http_error},
        {"\r", no_http_error},
        {"http/1.0 200 OK", no_http_error},
        {"HTTP 1.0 200 OK", no_http_error},
        {"HTTP", no_http_error},
        {"HTTP/", unreadable_status("")},
        {"HTTP/1 200 OK\r\nA: b", unreadable_status("1 200 OK\r\nA: b")},
        {"HTTP/1.0 OK", unreadable_status("1.0 OK")},
        {"HTTP/x" + ys, unreadable_status("x" + ys)},
        // the reason keeps 127 bytes
        {"HTTP/1.0 200 " + ys, ""},
        {"HTTP/1.0 404 " + longest_reason, bad_status(404, longest_reason)},
        {"HTTP/1.0 404 " + longest_reason + "r", bad_status(404, longest_reason)},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.header.substr(0, 100)));
        web_set_error("%s", "");
        EXPECT_EQ(web_check_reply(row.header.c_str()), row.error.empty() ? 0 : -1);
        EXPECT_EQ(web_last_error(), row.error);
    }
}

TEST_F(WebTransaction, AReplyThatPassesTheCheckKeepsTheLastError)
{
    web_set_error("old");
    EXPECT_EQ(web_check_reply("HTTP/1.0 200 OK"), 0);
    EXPECT_STREQ(web_last_error(), "old");
}

} // namespace
} // namespace quintral
