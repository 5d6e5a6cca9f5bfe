// Whole version-update queries over real sockets.
#include "tests/harness/each-locale.h"
#include "tests/harness/loopback-peer.h"
#include "tests/harness/text.h"
#include "tests/web/version-update-calls.h"
#include "web/transaction.h"
#include "web/version-update.h"

#include <cerrno>
#include <cfloat>
#include <cstring>
#include <limits>
#include <string>

#include <gtest/gtest.h>
#include <netdb.h>

namespace quintral {
namespace {

using namespace tests;

class WebVersionUpdate : public InEachLocale {};

INSTANTIATE_TEST_SUITE_P(Locales, WebVersionUpdate, each_locale(), locale_label);

TEST_P(WebVersionUpdate, SendsEightFieldsInOrderAndReadsTheAnswer)
{
    const LoopbackPeer peer({answering("HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n\r\n"
                                       "Version: 5.100\nURL: http://a/\nButton: Get it\n"
                                       "Message: A newer version\nis there.\n")});
    const Answer answer = ask(peer);
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.error, "");
    expect_values(answer, "A newer version\nis there.\n", "5.100", "http://a/", "Get it");
    EXPECT_EQ(peer.received(0), request(peer.address(), "127.0.0.1", sample_body));
    EXPECT_EQ(peer.connection_count(), 1);
}

TEST_P(WebVersionUpdate, EscapesEachValueAndCutsItAt1023)
{
    const LoopbackPeer peer({accepting("Message: m")});
    const std::string address = peer.address();
    const char *const service_before = web_service_host;
    web_service_host = address.c_str();
    const std::string letters(1100, 'x');
    const std::string spaces(1100, ' ');
    Buffer message;
    EXPECT_EQ(web_version_update("A&B = C?", "50%+1", 1.1F, "\xc4\xe4 1/2", letters.c_str(),
                                 "#;:\"'\r\n", "-._~*", spaces.c_str(), buffer_size, message.bytes,
                                 nullptr, nullptr, nullptr, "", 0, nullptr, nullptr),
              0);
    web_service_host = service_before;
    const std::string body = "product=A%26B%20%3d%20C%3f&productline=50%25%2b1&version=1%2e100"
                             "&version%5fname=%c4%e4%201%2f2&os=" +
                             std::string(1023, 'x') +
                             "&os%5fversion=%23%3b%3a%22%27%0d%0a&machine%5fid=%2d%2e%5f%7e%2a"
                             "&processor%5farch=" +
                             repeated(1021, "%20");
    EXPECT_EQ(peer.received(0), request(address, "127.0.0.1", body));
}

TEST_P(WebVersionUpdate, SendsTheVersionWithThreeDigitsAfterThePoint)
{
    struct {
        float version;
        const char *sent;
    } const rows[] = {
        {1.1F, "&version=1%2e100&"},
        {-2.5F, "&version=%2d2%2e500&"},
        {FLT_MAX, "&version=340282346638528859811704183484516925440%2e000&"},
        {std::numeric_limits<float>::infinity(), "&version=inf&"},
    };
    for (const auto &row : rows) {
        const LoopbackPeer peer({accepting("Message: m")});
        Query query;
        query.service = peer.address();
        query.version = row.version;
        EXPECT_EQ(ask(query).result, 0);
        const std::string sent = peer.received(0);
        EXPECT_NE(sent.find(row.sent), std::string::npos) << row.sent << " is not in\n" << sent;
    }
}

TEST(WebServiceHost, StartsAsTheBuildSetting)
{
    EXPECT_STREQ(web_service_host, QUINTRAL_SERVICE_HOST);
}

// No server has these names; the request goes to the proxy.
TEST(WebVersionUpdateProxy, GetsTheWholeUrlOnItsOwnPort)
{
    struct {
        const char *service;
        const char *host_line;
    } const rows[] = {
        {"update.quintral.example", "UPDATE.QUINTRAL.EXAMPLE"},
        {"Update.quintral.example:8080", "UPDATE.QUINTRAL.EXAMPLE"},
    };
    for (const auto &row : rows) {
        for (const int excess : {0, 65536}) {
            const LoopbackPeer proxy({accepting("Message: m")});
            Query query;
            query.service = row.service;
            query.proxy_host = "127.0.0.1";
            query.proxy_port = proxy.port() + excess;
            const Answer answer = ask(query);
            EXPECT_EQ(answer.result, 0) << answer.error;
            expect_values(answer, "m", untouched, untouched, untouched);
            EXPECT_EQ(proxy.received(0), request(row.service, row.host_line, sample_body));
        }
    }
}

TEST(WebVersionUpdateProxy, GetsTheCredentialsIfBothAreGiven)
{
    struct {
        const char *user;
        const char *password;
        const char *line;
    } const rows[] = {
        {"user1", "pw1", "Authorization: Basic dXNlcjE6cHcx\r\n"},
        {"", "", "Authorization: Basic Og==\r\n"},
        {"user1", nullptr, ""},
        {nullptr, "pw1", ""},
        {nullptr, nullptr, ""},
    };
    for (const auto &row : rows) {
        const LoopbackPeer proxy({accepting("Message: m")});
        Query query;
        query.service = "update.quintral.example";
        query.proxy_host = "127.0.0.1";
        query.proxy_port = proxy.port();
        query.proxy_user = row.user;
        query.proxy_password = row.password;
        EXPECT_EQ(ask(query).result, 0);
        EXPECT_EQ(proxy.received(0), request("update.quintral.example", "UPDATE.QUINTRAL.EXAMPLE",
                                             sample_body, row.line));
    }
}

// The credentials are sent to whichever peer the connection is made to.
TEST(WebVersionUpdateProxy, IsNotUsedWithoutAHost)
{
    for (const char *host : {static_cast<const char *>(nullptr), ""}) {
        const LoopbackPeer peer({accepting("Message: m")});
        Query query;
        query.service = peer.address();
        query.proxy_host = host;
        query.proxy_port = refused_port();
        query.proxy_user = "user1";
        query.proxy_password = "pw1";
        EXPECT_EQ(ask(query).result, 0);
        EXPECT_EQ(peer.received(0), request(peer.address(), "127.0.0.1", sample_body,
                                            "Authorization: Basic dXNlcjE6cHcx\r\n"));
    }
}

struct StatusRow {
    const char *header; // without the empty line
    std::string error;  // empty if the reply is accepted
};

TEST(WebVersionUpdateReply, IsReadIfItsStatusIs200To299)
{
    const StatusRow rows[] = {
        {"HTTP/1.0 200 OK\r\n", ""},
        {"HTTP/1.1 201 Created\r\nServer: s\r\n", ""},
        {"HTTP/1.1 204 No Content\r\n", ""},
        {"HTTP/1.0 299 Last\r\n", ""},
        {"HTTP/1.0 200 OK\n", ""},
        {"HTTP/1.0 200\r\nServer: s\r\n", ""}, // the next line is taken for the reason
        {"HTTP/1.0 0200 OK\r\n", ""},
        {"X-Before: 1\r\nHTTP/1.0 200 OK\r\n", ""},
        {"HTTP/1.0 200 OK\r\nX-Again: HTTP/1.0 404 Gone\r\n", ""},
        {"HTTP/1.0 199 Early\r\n", bad_status(199, "Early")},
        {"HTTP/1.0 300 Choices\r\n", bad_status(300, "Choices")},
        {"HTTP/1.0 302 Found\r\nLocation: http://a/\r\n", bad_status(302, "Found")},
        {"HTTP/1.0 302\r\nLocation: http://a/\r\n", bad_status(302, "Location: http://a/")},
        {"HTTP/1.1 404 Not Found\r\n", bad_status(404, "Not Found")},
        {"HTTP/1.1 500 %s%n%d\r\n", bad_status(500, "%s%n%d")},
        {"HTTP/1.0 -200 OK\r\n", bad_status(-200, "OK")},
        {"HTTP/1.0 4294967496 OK\r\n", bad_status(2147483647, "OK")},
        {"X: HTTP/1.0 404 First\r\nHTTP/1.0 200 OK\r\n", bad_status(404, "First")},
        {"HTTP/1.0 200\r\n", unreadable_status("1.0 200\r\n\r")},
        {"HTTP/x 200 OK\r\n", unreadable_status("x 200 OK\r\n\r")},
        {"ICY 200 OK\r\n", no_http_error},
        {"http/1.0 200 OK\r\n", no_http_error},
        {"HTTP 200 OK\r\n", no_http_error},
        {"", no_http_error},
    };
    for (const StatusRow &row : rows) {
        const bool is_accepted = row.error.empty();
        const char *const empty_line = std::strchr(row.header, '\r') != nullptr ? "\r\n" : "\n";
        const LoopbackPeer peer(
            {answering(std::string(row.header) + empty_line + "Version: 6\nMessage: m")});
        const Answer answer = ask(peer);
        SCOPED_TRACE(std::string("header ") + row.header);
        EXPECT_EQ(answer.result, is_accepted ? 0 : -1);
        EXPECT_EQ(answer.error, row.error);
        expect_values(answer, is_accepted ? "m" : untouched, is_accepted ? "6" : untouched,
                      untouched, untouched);
    }
}

TEST(WebVersionUpdateReply, ShowsAtMost127BytesOfAReason)
{
    const LoopbackPeer peer({answering("HTTP/1.0 404 " + std::string(5000, 'x') + "\r\n\r\n")});
    expect_failure(ask(peer), -1, bad_status(404, std::string(127, 'x')));
}

TEST(WebVersionUpdateReply, ThatIsEmptyIsNotHttp)
{
    const LoopbackPeer peer({{reading}});
    expect_failure(ask(peer), -1, no_http_error);
}

TEST(WebVersionUpdateReply, WithoutAMessageFailsWithoutAnErrorButStoresTheOtherValues)
{
    const LoopbackPeer rejecting({answering("HTTP/1.0 404 Not Found\r\n\r\n")});
    EXPECT_NE(ask(rejecting).error, "");
    const LoopbackPeer peer({accepting("Version: 6\nURL: u\nButton: b\n"), accepting(""),
                             accepting("Version: 6\nURL: u")});
    Answer answer = ask(peer);
    EXPECT_EQ(answer.result, -1);
    EXPECT_EQ(answer.error, "");
    expect_values(answer, untouched, "6", "u", "b");
    expect_failure(ask(peer), -1, "");
    answer = ask(peer);
    EXPECT_EQ(answer.result, -1);
    EXPECT_EQ(answer.error, "");
    expect_values(answer, untouched, "6", untouched, untouched);
}

TEST(WebVersionUpdateReply, IsCutToTheCapacity)
{
    const char *const body = "Version: 12345\nURL: abcde\nButton: fghij\nMessage: klmno";
    const LoopbackPeer peer({accepting(body)});
    for (const unsigned capacity : {0u, 1u, 3u}) {
        Query query;
        query.service = peer.address();
        query.capacity = capacity;
        const Answer answer = ask(query);
        EXPECT_EQ(answer.result, 0) << "capacity " << capacity;
        EXPECT_EQ(all_bytes(answer.message), stored_bytes("klmno", capacity));
        EXPECT_EQ(all_bytes(answer.version), stored_bytes("12345", capacity));
        EXPECT_EQ(all_bytes(answer.url), stored_bytes("abcde", capacity));
        EXPECT_EQ(all_bytes(answer.button), stored_bytes("fghij", capacity));
    }
}

TEST(WebVersionUpdateReply, OfSeveralMegabytesIsReadInFull)
{
    std::string body;
    while (body.size() < 2000000)
        body += "Other: some value\nURL: u\n";
    const LoopbackPeer peer({accepting(body + "Message: " + std::string(2000000, 'x'))});
    const Answer answer = ask(peer);
    EXPECT_EQ(answer.result, 0) << answer.error;
    expect_values(answer, std::string(buffer_size, 'x').c_str(), untouched, "u", untouched);
}

// A failed exchange

TEST(WebVersionUpdateFailure, PassesOnARefusedConnection)
{
    Query query;
    query.service = "127.0.0.1:" + std::to_string(refused_port());
    expect_failure(ask(query), -1,
                   "Can't connect to web server '127.0.0.1': " + detail_of(ECONNREFUSED));
}

TEST(WebVersionUpdateFailure, PassesOnAFailedLookup)
{
    Query query;
    query.service = "a..b";
    const Answer answer = ask(query);
    expect_failure(answer, -1, std::string("Can't find web server 'A..B': ") + hstrerror(h_errno));
}

TEST(WebVersionUpdateFailure, PassesOnACancellation)
{
    const LoopbackPeer peer({{reading, holding}});
    web_set_idle_hook([](void *) { web_cancel_requested = 1; }, nullptr);
    const Answer answer = ask(peer);
    web_set_idle_hook(nullptr, nullptr);
    expect_failure(answer, 2, cancel_error);
}

TEST(WebVersionUpdateFailure, PassesOnATimeout)
{
    const LoopbackPeer peer({{reading, holding}});
    expect_failure(ask(peer), 1, timeout_error);
}

} // namespace
} // namespace quintral
