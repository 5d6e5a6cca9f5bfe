// The bytes that a transaction sends, over real sockets.
#include "tests/harness/loopback-peer.h"
#include "tests/harness/text.h"
#include "tests/web/transaction-calls.h"
#include "web/transaction.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using namespace tests;

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
        EXPECT_EQ(call_exchange(peer, row.method, row.extra_header, row.body),
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
    EXPECT_EQ(call_exchange(peer, "POST", length, body), outcome(WebOk, good_header, "body", ""));
    EXPECT_TRUE(peer.received(0) ==
                request_text("POST /the path", length + "\r\n" + peer_host, body));
}

} // namespace
} // namespace quintral
