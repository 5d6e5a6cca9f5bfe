// The bytes that a transaction sends, over real sockets.
#include "tests/harness/loopback-peer.h"
#include "tests/harness/text.h"
#include "tests/web/transaction-calls.h"
#include "web/transaction.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <netdb.h>

namespace quintral {
namespace {

using namespace tests;

const char *const peer_host = "Host: 127.0.0.1\r\n";

const std::vector<WebField> two_fields = {{"a b", "1.5"}, {"c", ""}};
const std::string two_fields_body = "a%20b=1%2e5&c=";

enum : bool { no_fields, with_fields };

// "PEER" in the URL stands for the peer's address. A URL without it is requested through a proxy,
// and the peer is that proxy.
struct RequestRow {
    const char *rule;
    const char *method;
    const char *url;
    bool has_fields;
    const char *sent_method;
    const char *sent_host = "127.0.0.1";
};

WebCall call_to(const LoopbackPeer &peer, const std::string &url)
{
    WebCall call = {url};
    const std::size_t at = url.find("PEER");
    if (at != std::string::npos) {
        call.url.replace(at, 4, peer.address());
    } else {
        call.proxy_host = "127.0.0.1";
        call.proxy_port = peer.port();
    }
    return call;
}

void check_request(const RequestRow &row)
{
    SCOPED_TRACE(row.rule);
    LoopbackPeer peer({answering(good_reply)});
    WebCall call = call_to(peer, row.url);
    call.method = row.method;
    if (row.has_fields)
        call.fields = two_fields;
    const std::string body = row.has_fields ? two_fields_body : "";
    const std::string method = row.sent_method;
    const std::string lines = form_lines(body.size()) + "Host: " + row.sent_host + "\r\n";
    EXPECT_EQ(call_web(call), good_outcome());
    EXPECT_EQ(peer.received(0),
              request_text(method + " " + call.url, lines, method == "POST" ? body : ""));
    EXPECT_EQ(peer.connection_count(), 1);
}

TEST_F(WebTransaction, ARequestIsTheseBytesOnTheWire)
{
    const RequestRow rows[] = {
        {"POST", "POST", "http://PEER/Path?q=1", with_fields, "POST"},
        {"a GET only announces its fields", "GET", "http://PEER/", with_fields, "GET"},
        {"POST without fields", "POST", "http://PEER", no_fields, "POST"},
        {"GET without fields", "GET", "http://PEER", no_fields, "GET"},
        {"any other method is a GET", "Post", "http://PEER/", with_fields, "GET"},
        {"the URL keeps case and fragment", "GET", "hTTp://PEER/A b#\xe4", no_fields, "GET"},
        {"URL to a proxy", "POST", "http://WebHost:8080/p?q=1", with_fields, "POST", "WEBHOST"},
        {"a URL without a scheme", "GET", "webhost/p", no_fields, "GET", "WEBHOST"},
        {"an empty host through a proxy", "GET", "http:/x", no_fields, "GET", ""},
    };
    for (const RequestRow &row : rows)
        check_request(row);
}

TEST_F(WebTransaction, CredentialsAreSentToTheProxyOrTheServerIfBothAreGiven)
{
    const std::string login = "Authorization: Basic dXNlcjpwYXNz\r\n";
    const struct {
        const char *rule;
        const char *url;
        const char *user;
        const char *password;
        std::string lines;
    } rows[] = {
        {"to the proxy", "http://web/", "user", "pass", "Host: WEB\r\n" + login},
        {"to the server", "http://PEER/", "user", "pass", peer_host + login},
        {"empty", "http://web/", "", "", "Host: WEB\r\nAuthorization: Basic Og==\r\n"},
        {"only a user", "http://web/", "user", nullptr, "Host: WEB\r\n"},
        {"only a password", "http://web/", nullptr, "pass", "Host: WEB\r\n"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.rule);
        LoopbackPeer peer({answering(good_reply)});
        WebCall call = call_to(peer, row.url);
        call.proxy_user = row.user;
        call.proxy_password = row.password;
        EXPECT_EQ(call_web(call), good_outcome());
        EXPECT_EQ(peer.received(0), request_text("GET " + call.url, form_lines(0) + row.lines));
        call.method = "POST";
        call.fields = two_fields;
        EXPECT_EQ(call_web(call), good_outcome());
        EXPECT_EQ(peer.received(1),
                  request_text("POST " + call.url, form_lines(two_fields_body.size()) + row.lines,
                               two_fields_body));
    }
}

// The only lookup that finds a name. The tests with scripted calls hold the rule on every machine.
TEST_F(WebTransaction, AnUpperCaseHostNameIsLookedUpAndSent)
{
    if (gethostbyname("LOCALHOST") == nullptr)
        GTEST_SKIP() << "this machine has no /etc/hosts that names localhost";
    LoopbackPeer peer({answering(good_reply)});
    const std::string url = "http://LocalHost:" + std::to_string(peer.port()) + "/Path";
    EXPECT_EQ(call_web({url}), good_outcome());
    EXPECT_EQ(peer.received(0), request_text("GET " + url, form_lines(0) + "Host: LOCALHOST\r\n"));
}

TEST_F(WebTransaction, AnEmptyProxyHostMeansADirectConnection)
{
    LoopbackPeer peer({answering(good_reply)});
    WebCall call = {url_of(peer)};
    call.proxy_host = "";
    call.proxy_port = refused_port();
    EXPECT_EQ(call_web(call), good_outcome());
}

TEST_F(WebTransaction, PortsAreCutToTheirLow16Bits)
{
    LoopbackPeer peer({answering(good_reply)});
    for (int offset : {65536, 10 * 65536, -65536}) {
        SCOPED_TRACE(offset);
        const int port = peer.port() + offset;
        EXPECT_EQ(call_web({"http://127.0.0.1:" + std::to_string(port) + "/"}), good_outcome());
        WebCall through_proxy = {"http://web/"};
        through_proxy.proxy_host = "127.0.0.1";
        through_proxy.proxy_port = port;
        EXPECT_EQ(call_web(through_proxy), good_outcome());
    }
    EXPECT_EQ(peer.connection_count(), 6);
}

TEST_F(WebTransaction, UrlsAndHostsOfAnyLengthAreSentInFull)
{
    for (std::size_t length : {64u, 256u, 100000u}) {
        SCOPED_TRACE(length);
        LoopbackPeer peer({answering(good_reply)});
        WebCall call = {"http://" + std::string(length, 'h') + "/" + std::string(length, 'p')};
        call.proxy_host = "127.0.0.1";
        call.proxy_port = peer.port();
        EXPECT_EQ(call_web(call), good_outcome());
        EXPECT_EQ(peer.received(0),
                  request_text("GET " + call.url,
                               form_lines(0) + "Host: " + std::string(length, 'H') + "\r\n"));
    }
}

TEST_F(WebTransaction, CredentialsOfAnyLengthAreSentInFull)
{
    LoopbackPeer peer({answering(good_reply)});
    const std::string user(99999, 'u');
    const std::string password(99998, 'p');
    WebCall call = {url_of(peer)};
    call.proxy_user = user.c_str();
    call.proxy_password = password.c_str();
    EXPECT_EQ(call_web(call), good_outcome());
    EXPECT_EQ(peer.received(0),
              request_text("GET " + call.url, form_lines(0) + peer_host + "Authorization: Basic " +
                                                  repeated(33333, "dXV1") + "OnBw" +
                                                  repeated(33332, "cHBw") + "\r\n"));
}

TEST_F(WebTransaction, AnExchangeSendsANonEmptyExtraHeaderAndTheFullBody)
{
    const std::string bytes("a\0b\r\n\0", 6);
    const std::string length = "Content-Length: " + std::to_string(bytes.size());
    const struct {
        std::string method;
        std::string extra_header;
        std::string body;
        std::string sent_header;
        std::string sent_body;
    } rows[] = {
        {"GET", "", "", "", ""},
        {"GET", "A: b", "unsent", "A: b\r\n", ""},
        {"POST", length, bytes, length + "\r\n", bytes},
        {"POST", "", "", "", ""},
        {"GET", bytes, "", bytes + "\r\n", ""},
    };
    for (const auto &row : rows) {
        const std::string line = row.method + " /the path";
        SCOPED_TRACE(line + " with " + testing::PrintToString(row.sent_header));
        LoopbackPeer peer({answering(good_reply)});
        web_set_error("%s", "");
        EXPECT_EQ(call_exchange(peer, row.method.c_str(), row.extra_header, row.body),
                  good_outcome());
        EXPECT_EQ(peer.received(0), request_text(line, row.sent_header + peer_host, row.sent_body));
    }
}

TEST_F(WebTransaction, ABodyOfMegabytesIsSentInFull)
{
    LoopbackPeer peer({answering(good_reply)});
    const std::string body = repeated(1 << 20, "12345678");
    const std::string length = "Content-Length: " + std::to_string(body.size());
    web_set_error("%s", "");
    EXPECT_EQ(call_exchange(peer, "POST", length, body), good_outcome());
    EXPECT_TRUE(peer.received(0) ==
                request_text("POST /the path", length + "\r\n" + peer_host, body));
}

} // namespace
} // namespace quintral
