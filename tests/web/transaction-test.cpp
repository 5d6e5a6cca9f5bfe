// Whole transactions over real sockets: the bytes on the wire and what is delivered of each kind of
// reply. The cases that wait out the time limit are tests of their own, so that they run side by
// side.
#include "tests/harness/child-process.h"
#include "tests/harness/loopback-peer.h"
#include "tests/harness/text.h"
#include "tests/web/transaction-calls.h"
#include "web/transaction.h"

#include <csignal>
#include <cstdint>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace quintral {
namespace {

using tests::repeated;

using namespace tests;

const char *const good_header = "HTTP/1.0 200 OK\r\nA: b\r\n\r";
const char *const timeout_error = "Timeout waiting for web site";
const char *const cancel_error = "User canceled web transaction";

const std::string good_reply = std::string(good_header) + "\nbody";

const std::string error_at_start = web_last_error();
const int cancel_at_start = web_cancel_requested;

PeerScript answering(const std::string &reply)
{
    return {{PeerAct::ReadRequest}, {PeerAct::Send, reply}};
}

// The bytes of a whole request; `lines` stands between the fixed lines and the empty one.
std::string request_text(const std::string &request_line, const std::string &lines,
                         const std::string &body = "")
{
    return request_line +
           " HTTP/1.0\r\n"
           "Accept: image/gif, image/x-xbitmap, image/jpeg, image/pjpeg, */*\r\n"
           "Accept-Language: en-us\r\n"
           "User-Agent: Velmora_Auto1\r\n"
           "Referer: " QUINTRAL_WEB_DOMAIN "\r\n" +
           lines + "\r\n" + body;
}

std::string form_lines(std::size_t body_length)
{
    return "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
           std::to_string(body_length) + "\r\n";
}

// Requests

struct RequestRow {
    const char *name;
    std::string url; // "PEER" stands for the peer's address
    const char *method;
    std::vector<WebField> fields;
    bool through_proxy;
    const char *user;
    const char *password;
    std::string expected; // "PEER" as above
};

std::string with_peer(std::string text, const LoopbackPeer &peer)
{
    for (std::size_t at = text.find("PEER"); at != std::string::npos; at = text.find("PEER"))
        text.replace(at, 4, peer.address());
    return text;
}

void check_request(const RequestRow &row)
{
    SCOPED_TRACE(row.name);
    LoopbackPeer peer({answering(good_reply)});
    WebCall call = {with_peer(row.url, peer), row.method, row.fields};
    call.proxy_host = row.through_proxy ? "127.0.0.1" : nullptr;
    call.proxy_port = row.through_proxy ? peer.port() : 0;
    call.proxy_user = row.user;
    call.proxy_password = row.password;
    EXPECT_EQ(call_web(call), outcome(WebOk, good_header, "body", ""));
    EXPECT_EQ(peer.received(0), with_peer(row.expected, peer));
    EXPECT_EQ(peer.connection_count(), 1);
}

const char *const peer_host = "Host: 127.0.0.1\r\n";

TEST_F(WebTransaction, ARequestIsTheseBytesOnTheWire)
{
    const std::vector<WebField> fields = {{"a b", "1.5"}, {"c", ""}};
    const std::string body = "a%20b=1%2e5&c=";
    const RequestRow rows[] = {
        {"POST", "http://PEER/Path?q=1", "POST", fields, false, nullptr, nullptr,
         request_text("POST http://PEER/Path?q=1", form_lines(body.size()) + peer_host, body)},
        {"a GET announces its fields and does not send them", "http://PEER/", "GET", fields, false,
         nullptr, nullptr, request_text("GET http://PEER/", form_lines(body.size()) + peer_host)},
        {"POST without fields",
         "http://PEER",
         "POST",
         {},
         false,
         nullptr,
         nullptr,
         request_text("POST http://PEER", form_lines(0) + peer_host)},
        {"GET without fields",
         "http://PEER",
         "GET",
         {},
         false,
         nullptr,
         nullptr,
         request_text("GET http://PEER", form_lines(0) + peer_host)},
        {"any other method is a GET", "http://PEER/", "Post", fields, false, nullptr, nullptr,
         request_text("GET http://PEER/", form_lines(body.size()) + peer_host)},
        {"the URL goes out in its own letter case, fragment and all",
         "hTTp://PEER/A b#\xe4",
         "GET",
         {},
         false,
         nullptr,
         nullptr,
         request_text("GET hTTp://PEER/A b#\xe4", form_lines(0) + peer_host)},
        {"a proxy is asked for the whole URL", "http://WebHost:8080/p?q=1", "POST", fields, true,
         nullptr, nullptr,
         request_text("POST http://WebHost:8080/p?q=1",
                      form_lines(body.size()) + "Host: WEBHOST\r\n", body)},
        {"a URL without scheme",
         "webhost/p",
         "GET",
         {},
         true,
         nullptr,
         nullptr,
         request_text("GET webhost/p", form_lines(0) + "Host: WEBHOST\r\n")},
        {"an empty host behind a proxy",
         "http:/x",
         "GET",
         {},
         true,
         nullptr,
         nullptr,
         request_text("GET http:/x", form_lines(0) + "Host: \r\n")},
        {"credentials for the proxy",
         "http://web/",
         "GET",
         {},
         true,
         "user",
         "pass",
         request_text("GET http://web/",
                      form_lines(0) + "Host: WEB\r\n" + "Authorization: Basic dXNlcjpwYXNz\r\n")},
        {"credentials without a proxy go to the server", "http://PEER/", "POST", fields, false,
         "user", "pass",
         request_text("POST http://PEER/",
                      form_lines(body.size()) + peer_host + "Authorization: Basic dXNlcjpwYXNz\r\n",
                      body)},
        {"empty credentials are credentials",
         "http://web/",
         "GET",
         {},
         true,
         "",
         "",
         request_text("GET http://web/",
                      form_lines(0) + "Host: WEB\r\nAuthorization: Basic Og==\r\n")},
        {"a user alone is none",
         "http://web/",
         "GET",
         {},
         true,
         "user",
         nullptr,
         request_text("GET http://web/", form_lines(0) + "Host: WEB\r\n")},
        {"a password alone is none",
         "http://web/",
         "GET",
         {},
         true,
         nullptr,
         "pass",
         request_text("GET http://web/", form_lines(0) + "Host: WEB\r\n")},
    };
    for (const RequestRow &row : rows)
        check_request(row);
}

TEST_F(WebTransaction, AnUpperCaseHostNameIsLookedUpAndSent)
{
    LoopbackPeer peer({answering(good_reply)});
    const std::string url = "http://LocalHost:" + std::to_string(peer.port()) + "/Path";
    EXPECT_EQ(call_web({url}), outcome(WebOk, good_header, "body", ""));
    EXPECT_EQ(peer.received(0), request_text("GET " + url, form_lines(0) + "Host: LOCALHOST\r\n"));
}

TEST_F(WebTransaction, AnEmptyProxyHostIsADirectConnection)
{
    LoopbackPeer peer({answering(good_reply)});
    WebCall call = {url_of(peer)};
    call.proxy_host = "";
    call.proxy_port = refused_port();
    EXPECT_EQ(call_web(call), outcome(WebOk, good_header, "body", ""));
}

TEST_F(WebTransaction, PortsAreCutToTheirLow16Bits)
{
    LoopbackPeer peer({answering(good_reply)});
    for (int offset : {65536, 10 * 65536, -65536}) {
        SCOPED_TRACE(offset);
        const int port = peer.port() + offset;
        EXPECT_EQ(call_web({"http://127.0.0.1:" + std::to_string(port) + "/"}),
                  outcome(WebOk, good_header, "body", ""));
        WebCall through_proxy = {"http://web/"};
        through_proxy.proxy_host = "127.0.0.1";
        through_proxy.proxy_port = port;
        EXPECT_EQ(call_web(through_proxy), outcome(WebOk, good_header, "body", ""));
    }
    EXPECT_EQ(peer.connection_count(), 6);
}

TEST_F(WebTransaction, UrlsAndHostsOfAnyLengthGoOutWhole)
{
    for (std::size_t length : {64u, 256u, 100000u}) {
        SCOPED_TRACE(length);
        LoopbackPeer peer({answering(good_reply)});
        WebCall call = {"http://" + std::string(length, 'h') + "/" + std::string(length, 'p')};
        call.proxy_host = "127.0.0.1";
        call.proxy_port = peer.port();
        EXPECT_EQ(call_web(call), outcome(WebOk, good_header, "body", ""));
        EXPECT_EQ(peer.received(0),
                  request_text("GET " + call.url,
                               form_lines(0) + "Host: " + std::string(length, 'H') + "\r\n"));
    }
}

TEST_F(WebTransaction, CredentialsOfAnyLengthGoOutWhole)
{
    LoopbackPeer peer({answering(good_reply)});
    const std::string user(99999, 'u');
    const std::string password(99998, 'p');
    WebCall call = {url_of(peer)};
    call.proxy_user = user.c_str();
    call.proxy_password = password.c_str();
    EXPECT_EQ(call_web(call), outcome(WebOk, good_header, "body", ""));
    EXPECT_EQ(peer.received(0),
              request_text("GET " + call.url, form_lines(0) + peer_host + "Authorization: Basic " +
                                                  repeated(33333, "dXV1") + "OnBw" +
                                                  repeated(33332, "cHBw") + "\r\n"));
}

// The exchange below web_request.
std::string exchange(const LoopbackPeer &peer, const char *method, const std::string &extra_header,
                     const std::string &body)
{
    char *header = nullptr;
    char *body_out = nullptr;
    const int result =
        web_exchange("HTTP", "127.0.0.1", "/the path", peer.port(), method, extra_header, body,
                     &header, &body_out, nullptr, 0, nullptr, nullptr);
    const Text header_text = taken(header);
    return outcome(result, header_text, taken(body_out), web_last_error());
}

TEST_F(WebTransaction, AnExchangeSendsItsExtraHeaderUnlessEmptyAndItsBodyWithFullLength)
{
    const std::string bytes("a\0b\r\n\0", 6);
    const std::string length = "Content-Length: " + std::to_string(bytes.size());
    const struct {
        const char *method;
        std::string extra_header;
        std::string body;
        std::string expected;
    } rows[] = {
        {"GET", "", "", request_text("GET /the path", peer_host)},
        {"GET", "A: b", "unsent",
         request_text("GET /the path", std::string("A: b\r\n") + peer_host)},
        {"POST", length, bytes, request_text("POST /the path", length + "\r\n" + peer_host, bytes)},
        {"POST", "", "", request_text("POST /the path", peer_host)},
        {"GET", bytes, "", request_text("GET /the path", bytes + "\r\n" + peer_host)},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.expected));
        LoopbackPeer peer({answering(good_reply)});
        web_set_error("%s", "");
        EXPECT_EQ(exchange(peer, row.method, row.extra_header, row.body),
                  outcome(WebOk, good_header, "body", ""));
        EXPECT_EQ(peer.received(0), row.expected);
    }
}

TEST_F(WebTransaction, ABodyOfMegabytesIsSentWhole)
{
    LoopbackPeer peer({answering(good_reply)});
    const std::string body = repeated(1 << 20, "12345678");
    const std::string length = "Content-Length: " + std::to_string(body.size());
    web_set_error("%s", "");
    EXPECT_EQ(exchange(peer, "POST", length, body), outcome(WebOk, good_header, "body", ""));
    EXPECT_TRUE(peer.received(0) ==
                request_text("POST /the path", length + "\r\n" + peer_host, body));
}

// Replies

struct ReplyRow {
    const char *name;
    PeerScript script;
    std::string expected;
};

void check_reply_row(const ReplyRow &row)
{
    SCOPED_TRACE(row.name);
    LoopbackPeer peer({row.script});
    EXPECT_EQ(call_web({url_of(peer)}), row.expected);
}

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

// Receive errors

const std::string reset_error = "Error receiving data from web site: " + detail_of(ECONNRESET);

PeerScript resetting_behind(const std::string &reply)
{
    return {{PeerAct::ReadRequest},
            {PeerAct::Send, reply},
            {PeerAct::Pause, "", 300}, // what was sent is read before the reset comes
            {PeerAct::Reset}};
}

// The body phase decides about the result: the socket has told its error and now reads as closed.
TEST_F(WebTransaction, AReceiveErrorInTheHeaderEndsTheHeaderAndIsRecorded)
{
    const ReplyRow rows[] = {
        {"before any byte", resetting_behind(""), outcome(WebOk, "", "", reset_error)},
        {"in mid-line", resetting_behind("HTTP/1.0 2"),
         outcome(WebOk, "HTTP/1.0 2", "", reset_error)},
        {"behind a line", resetting_behind("HTTP/1.0 200 OK\r\n"),
         outcome(WebOk, "HTTP/1.0 200 OK\r\n", "", reset_error)},
    };
    for (const ReplyRow &row : rows)
        check_reply_row(row);
}

TEST_F(WebTransaction, AReceiveErrorInTheBodyDeliversTheHeaderOnly)
{
    const ReplyRow rows[] = {
        {"before any byte", resetting_behind("HTTP/1.0 200 OK\r\n\r\n"),
         outcome(WebFailed, "HTTP/1.0 200 OK\r\n\r", none, reset_error)},
        {"in the body", resetting_behind(good_reply),
         outcome(WebFailed, good_header, none, reset_error)},
    };
    for (const ReplyRow &row : rows)
        check_reply_row(row);
}

// Failures before the reply

TEST_F(WebTransaction, ASchemeOtherThanHttpIsRefusedBeforeAnySocket)
{
    const std::string long_scheme(100000, 'S');
    const struct {
        std::string url;
        std::string scheme;
    } rows[] = {
        {"https://127.0.0.1/", "HTTPS"},
        {"ftp://127.0.0.1/", "FTP"},
        {"web:81/p", "WEB"},
        {"://127.0.0.1/", ""},
        {"httpx://h/", "HTTPX"},
        {"htt://h/", "HTT"},
        {"%s%n://h/", "%S%N"},
        {long_scheme + "://h/", long_scheme},
    };
    for (const auto &row : rows)
        EXPECT_EQ(call_web({row.url}),
                  outcome(WebFailed, none, none, "Protocol should be HTTP, not " + row.scheme));
}

TEST_F(WebTransaction, AnExchangeTakesTheSchemeHttpInUpperCaseOnly)
{
    for (const char *scheme : {"http", "Http", "HTTP ", "HTTPS", ""}) {
        char *header = nullptr;
        char *body = nullptr;
        EXPECT_EQ(web_exchange(scheme, "127.0.0.1", "/", refused_port(), "GET", "", "", &header,
                               &body, nullptr, 0, nullptr, nullptr),
                  WebFailed);
        EXPECT_EQ(web_last_error(), std::string("Protocol should be HTTP, not ") + scheme);
        EXPECT_EQ(header, nullptr);
        EXPECT_EQ(body, nullptr);
    }
}

// The resolver refuses two full stops in a row without asking anybody.
TEST_F(WebTransaction, ANameThatIsNotFoundIsReportedWithTheResolversText)
{
    h_errno = 0;
    ASSERT_EQ(gethostbyname("A..B"), nullptr);
    const std::string reason = hstrerror(h_errno);
    ASSERT_NE(h_errno, 0);
    EXPECT_EQ(call_web({"http://a..b/"}),
              outcome(WebFailed, none, none, "Can't find web server 'A..B': " + reason));

    WebCall through_proxy = {"http://the-server:81/"};
    through_proxy.proxy_host = "a..b";
    through_proxy.proxy_port = refused_port();
    EXPECT_EQ(call_web(through_proxy),
              outcome(WebFailed, none, none, "Can't find web server 'THE-SERVER': " + reason));
}

TEST_F(WebTransaction, ARefusedConnectionIsReportedWithTheSystemsText)
{
    const std::string port = std::to_string(refused_port());
    const std::string refused = detail_of(ECONNREFUSED);
    EXPECT_EQ(
        call_web({"http://127.0.0.1:" + port + "/"}),
        outcome(WebFailed, none, none, "Can't connect to web server '127.0.0.1': " + refused));

    WebCall through_proxy = {"http://the-server:81/"};
    through_proxy.proxy_host = "127.0.0.1";
    through_proxy.proxy_port = refused_port();
    EXPECT_EQ(
        call_web(through_proxy),
        outcome(WebFailed, none, none, "Can't connect to web server 'THE-SERVER': " + refused));
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

// The idle hook and the cancel flag

PeerScript answering_after(int milliseconds)
{
    return {
        {PeerAct::ReadRequest}, {PeerAct::Pause, "", milliseconds}, {PeerAct::Send, good_reply}};
}

TEST_F(WebTransaction, TheIdleHookIsCalledAboutTenTimesASecondInTheHeaderPhase)
{
    int calls = 0;
    web_set_idle_hook(count_call, &calls);
    const auto start = Clock::now();
    check_reply_row(
        {"a second's thought", answering_after(1000), outcome(WebOk, good_header, "body", "")});
    // Each call stands behind a wait of 100 ms; a machine under load makes fewer, never more.
    EXPECT_GE(calls, 3);
    EXPECT_LE(calls, milliseconds_since(start) / 100);
}

TEST_F(WebTransaction, TheIdleHookIsNotCalledInAShortSilenceOfTheBodyPhase)
{
    int calls = 0;
    web_set_idle_hook(count_call, &calls);
    LoopbackPeer peer({{{PeerAct::Send, good_reply}, // before the request, so that nothing waits
                        {PeerAct::ReadRequest},
                        {PeerAct::Pause, "", 1500},
                        {PeerAct::Send, " more"}}});
    EXPECT_EQ(call_web({url_of(peer)}), outcome(WebOk, good_header, "body more", ""));
    // A call or two may stand before the header's first byte; ten a second would make 15.
    EXPECT_LT(calls, 8);
}

TEST_F(WebTransaction, TheIdleHookStaysForTheNextTransactionUntilReplaced)
{
    int first = 0;
    int second = 0;
    web_set_idle_hook(count_call, &first);
    LoopbackPeer peer({answering_after(500)});
    call_web({url_of(peer)});
    const int after_one = first;
    call_web({url_of(peer)});
    const int after_two = first;
    EXPECT_GT(after_one, 0);
    EXPECT_GT(after_two, after_one);
    web_set_idle_hook(count_call, &second);
    call_web({url_of(peer)});
    EXPECT_GT(second, 0);
    const int second_calls = second;
    web_set_idle_hook(nullptr, &second);
    EXPECT_EQ(call_web({url_of(peer)}), outcome(WebOk, good_header, "body", ""));
    EXPECT_EQ(first, after_two);
    EXPECT_EQ(second, second_calls);
}

TEST_F(WebTransaction, CancelFromTheIdleHookEndsTheHeaderPhaseSoon)
{
    const ReplyRow rows[] = {
        {"before any byte", {{PeerAct::Hold}}, outcome(WebCancelled, none, none, cancel_error)},
        {"within the header",
         {{PeerAct::ReadRequest}, {PeerAct::Send, "HTTP/1.0 200 OK\r\n"}, {PeerAct::Hold}},
         outcome(WebCancelled, none, none, cancel_error)},
    };
    for (const ReplyRow &row : rows) {
        web_set_idle_hook(request_cancel, nullptr);
        const auto start = Clock::now();
        check_reply_row(row);
        EXPECT_LT(milliseconds_since(start), 5000) << row.name;
        EXPECT_EQ(web_cancel_requested, 0) << row.name;
    }
}

TEST_F(WebTransaction, AFlagSetBeforehandCancelsAtTheFirstSilentWaitWithoutAskingTheHook)
{
    int calls = 0;
    web_set_idle_hook(count_call, &calls);
    web_cancel_requested = 7;
    check_reply_row({"silent", {{PeerAct::Hold}}, outcome(WebCancelled, none, none, cancel_error)});
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(web_cancel_requested, 0);
    check_reply_row(
        {"the next one", answering(good_reply), outcome(WebOk, good_header, "body", "")});
}

TEST_F(WebTransaction, AFailureBeforeTheReplyLeavesTheFlagSet)
{
    web_cancel_requested = 1;
    call_web({"https://127.0.0.1/"});
    call_web({"http://127.0.0.1:" + std::to_string(refused_port()) + "/"});
    EXPECT_EQ(web_cancel_requested, 1);
}

void cancel_on_signal(int /*signal*/)
{
    web_cancel_requested = 1;
}

// A signal interrupts the long wait of the body phase, and the flag is seen then.
TEST_F(WebTransaction, AFlagSetByASignalCancelsTheBodyPhase)
{
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = cancel_on_signal;
    action.sa_flags = SA_RESTART;
    ASSERT_EQ(sigaction(SIGALRM, &action, &before), 0);
    const itimerval in_a_second = {{0, 0}, {1, 0}};
    const itimerval off = {};
    ASSERT_EQ(setitimer(ITIMER_REAL, &in_a_second, nullptr), 0);
    const auto start = Clock::now();
    check_reply_row({"silent in the body",
                     {{PeerAct::ReadRequest}, {PeerAct::Send, good_reply}, {PeerAct::Hold}},
                     outcome(WebCancelled, good_header, none, cancel_error)});
    EXPECT_LT(milliseconds_since(start), 9000);
    EXPECT_EQ(web_cancel_requested, 0);
    setitimer(ITIMER_REAL, &off, nullptr);
    sigaction(SIGALRM, &before, nullptr);
}

TEST_F(WebTransaction, TheCancelFlagIs0AtTheStartOfTheProcess)
{
    EXPECT_EQ(cancel_at_start, 0);
}

// The time limit: each of these tests takes ten seconds and more.

void check_timeout(const PeerScript &script, const std::string &expected)
{
    const auto start = Clock::now();
    check_reply_row({"silence", script, expected});
    EXPECT_GE(milliseconds_since(start), 9990);
    EXPECT_LT(milliseconds_since(start), 20000);
}

TEST_F(WebTransaction, SlowTimeoutBeforeTheFirstByteCallsTheHookAllTheWhile)
{
    int calls = 0;
    web_set_idle_hook(count_call, &calls);
    check_timeout({{PeerAct::Hold}}, outcome(WebTimedOut, none, none, timeout_error));
    EXPECT_GE(calls, 30);
    EXPECT_LE(calls, 101);
}

TEST_F(WebTransaction, SlowTimeoutWithinTheHeaderDeliversNothing)
{
    check_timeout(
        {{PeerAct::ReadRequest}, {PeerAct::Send, "HTTP/1.0 200 OK\r\nA"}, {PeerAct::Hold}},
        outcome(WebTimedOut, none, none, timeout_error));
}

Clock::time_point body_test_start;
int late_calls = 0;

// Leaves the short waits of the header phase alone.
void cancel_late(void * /*user_data*/)
{
    if (milliseconds_since(body_test_start) < 5000)
        return;
    ++late_calls;
    web_cancel_requested = 1;
}

// The wait of the body phase is as long as the limit: the hook is called once, and what it asks for
// comes too late for this transaction and stops the next one.
TEST_F(WebTransaction, SlowTimeoutInTheBodyDeliversTheHeaderAndCallsTheHookOnce)
{
    body_test_start = Clock::now();
    late_calls = 0;
    web_set_idle_hook(cancel_late, nullptr);
    check_timeout({{PeerAct::ReadRequest}, {PeerAct::Send, good_reply}, {PeerAct::Hold}},
                  outcome(WebTimedOut, good_header, none, timeout_error));
    EXPECT_EQ(late_calls, 1);
    EXPECT_NE(web_cancel_requested, 0);
    check_reply_row(
        {"the next one", {{PeerAct::Hold}}, outcome(WebCancelled, none, none, cancel_error)});
}

TEST_F(WebTransaction, SlowTimeoutBehindAHeaderWithoutBody)
{
    check_timeout({{PeerAct::ReadRequest}, {PeerAct::Send, "A: b\r\n\r\n"}, {PeerAct::Hold}},
                  outcome(WebTimedOut, "A: b\r\n\r", none, timeout_error));
}

TEST_F(WebTransaction, SlowEachByteOfTheHeaderStartsTheLimitAnew)
{
    check_reply_row({"four seconds a byte",
                     {{PeerAct::ReadRequest}, {PeerAct::Trickle, "A\n\n", 4000}},
                     outcome(WebOk, "A\n", "", "")});
}

TEST_F(WebTransaction, SlowEachChunkOfTheBodyStartsTheLimitAnew)
{
    check_reply_row({"six seconds a chunk",
                     {{PeerAct::ReadRequest},
                      {PeerAct::Send, "A\n\n"},
                      {PeerAct::Pause, "", 6000},
                      {PeerAct::Send, "x"},
                      {PeerAct::Pause, "", 6000},
                      {PeerAct::Send, "y"}},
                     outcome(WebOk, "A\n", "xy", "")});
}

// Signals and descriptors of the host program

volatile std::sig_atomic_t pipe_signals = 0;

void count_pipe_signal(int /*signal*/)
{
    pipe_signals = pipe_signals + 1;
}

// In a child: an exchange that goes on sending after the peer's reset, under the given handling of
// SIGPIPE. Returns 0, or a number that says what has been disturbed.
int send_into_broken_connection(const LoopbackPeer &peer, void (*handler)(int))
{
    struct sigaction set = {};
    struct sigaction seen = {};
    set.sa_handler = handler;
    set.sa_flags = SA_NODEFER;
    sigaction(SIGPIPE, &set, nullptr);
    // More than the sockets hold: the reset comes while it is sent, and nine pieces follow.
    const std::string path(30000000, 'p');
    const std::string body(30000000, 'b');
    char *header = nullptr;
    char *body_out = nullptr;
    web_exchange("HTTP", "127.0.0.1", path.c_str(), peer.port(), "POST", "A: b", body, &header,
                 &body_out, nullptr, 0, nullptr, nullptr);
    std::free(header);
    std::free(body_out);
    sigset_t pending;
    sigset_t blocked;
    sigpending(&pending);
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    sigaction(SIGPIPE, nullptr, &seen);
    if (seen.sa_handler != handler || (seen.sa_flags & SA_NODEFER) == 0)
        return 1;
    if (sigismember(&pending, SIGPIPE) == 1 || sigismember(&blocked, SIGPIPE) == 1)
        return 2;
    return pipe_signals == 0 ? 0 : 3;
}

TEST_F(WebTransaction, ABrokenConnectionRaisesNoSignalAndLeavesItsHandlingAlone)
{
    const struct {
        const char *name;
        void (*handler)(int);
    } rows[] = {{"default", SIG_DFL}, {"ignored", SIG_IGN}, {"handled", count_pipe_signal}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        LoopbackPeer peer({{{PeerAct::Reset}}});
        const ChildResult result =
            run_child_function([&] { return send_into_broken_connection(peer, row.handler); });
        EXPECT_EQ(result.signal, 0);
        EXPECT_EQ(result.exit_status, 0);
    }
}

struct DescriptorSighting {
    std::uint16_t peer_port;
    int connections;           // of this process to the peer
    std::string listed_before; // what a started program finds open
    std::string listed;
};

std::string descriptors_of_a_program()
{
    return run_child({"ls", "/dev/fd"}).output;
}

int connections_to(std::uint16_t port)
{
    int count = 0;
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        sockaddr_in address = {};
        socklen_t size = sizeof address;
        if (getpeername(descriptor, reinterpret_cast<sockaddr *>(&address), &size) == 0 &&
            address.sin_family == AF_INET && ntohs(address.sin_port) == port)
            ++count;
    }
    return count;
}

void look_at_descriptors(void *user_data)
{
    DescriptorSighting &sighting = *static_cast<DescriptorSighting *>(user_data);
    sighting.connections = connections_to(sighting.peer_port);
    sighting.listed = descriptors_of_a_program();
    web_cancel_requested = 1;
}

TEST_F(WebTransaction, AProgramStartedMeanwhileDoesNotInheritTheSocket)
{
    LoopbackPeer peer({{{PeerAct::Hold}}});
    DescriptorSighting sighting = {peer.port(), 0, descriptors_of_a_program(), ""};
    web_set_idle_hook(look_at_descriptors, &sighting);
    EXPECT_EQ(call_web({url_of(peer)}), outcome(WebCancelled, none, none, cancel_error));
    EXPECT_EQ(sighting.connections, 1);
    EXPECT_NE(sighting.listed, "");
    EXPECT_EQ(sighting.listed, sighting.listed_before);
}

struct HookFault {};

void throw_fault(void *)
{
    throw HookFault();
}

// A failed assertion of a plug-in throws out of its hook.
TEST_F(WebTransaction, AHookThatThrowsLeavesNoSocketBehind)
{
    LoopbackPeer peer({{{PeerAct::Hold}}});
    web_set_idle_hook(throw_fault, nullptr);
    EXPECT_THROW(call_web({url_of(peer)}), HookFault);
    EXPECT_EQ(connections_to(peer.port()), 0);
}

// The last error

TEST_F(WebTransaction, TheLastErrorIsEmptyAtTheStartOfTheProcess)
{
    EXPECT_EQ(error_at_start, "");
}

TEST_F(WebTransaction, AnErrorIsFormattedStoredAndReturned)
{
    const std::string long_text(1000000, 'x');
    const char *set = web_set_error("%s and %d%%", "text", -7);
    EXPECT_STREQ(set, "text and -7%");
    EXPECT_EQ(web_last_error(), set);
    set = web_set_error("%s", long_text.c_str());
    EXPECT_TRUE(set == long_text);
    EXPECT_EQ(web_last_error(), set);
    web_set_error("short");
    EXPECT_STREQ(web_set_error("%s, %s", web_last_error(), "longer"), "short, longer");
    EXPECT_STREQ(web_set_error("%s", ""), "");
}

void copy_last_error(void *user_data)
{
    *static_cast<std::string *>(user_data) = web_last_error();
}

TEST_F(WebTransaction, ARequestDiscardsTheLastErrorAtItsStart)
{
    std::string meanwhile = "not looked at";
    web_set_error("old");
    web_set_idle_hook(copy_last_error, &meanwhile);
    check_reply_row({"discarded", answering_after(500), outcome(WebOk, good_header, "body", "")});
    EXPECT_EQ(meanwhile, "");
}

TEST_F(WebTransaction, TheErrorOfTheNextFailureReplacesTheLast)
{
    EXPECT_EQ(call_web({"one://h/"}),
              outcome(WebFailed, none, none, "Protocol should be HTTP, not ONE"));
    EXPECT_EQ(call_web({"two://h/"}),
              outcome(WebFailed, none, none, "Protocol should be HTTP, not TWO"));
    check_reply_row({"recorded", resetting_behind("A\n"), outcome(WebOk, "A\n", "", reset_error)});
    check_reply_row({"none", answering("A\n\n"), outcome(WebOk, "A\n", "", "")});
}

TEST_F(WebTransaction, AnExchangeOfItsOwnDoesNotDiscardTheLastError)
{
    LoopbackPeer peer({answering(good_reply)});
    web_set_error("old");
    EXPECT_EQ(exchange(peer, "GET", "", ""), outcome(WebOk, good_header, "body", "old"));
}

TEST_F(WebTransaction, TheSystemErrorTextIsCodeAndText)
{
    for (int error : {0, 1, EAGAIN, ECONNREFUSED, ETIMEDOUT, 99999, -5}) {
        const std::string expected = detail_of(error);
        errno = error;
        EXPECT_EQ(web_errno_text(), expected);
    }
    errno = EPERM;
    EXPECT_STREQ(web_errno_text(), "code 1: Operation not permitted");
}

TEST_F(WebTransaction, TheSystemErrorTextIsOneBufferThatTheNextOverwrites)
{
    errno = EPERM;
    const char *first = web_errno_text();
    errno = ENOENT;
    const char *second = web_errno_text();
    EXPECT_EQ(first, second);
    EXPECT_EQ(first, detail_of(ENOENT));
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
