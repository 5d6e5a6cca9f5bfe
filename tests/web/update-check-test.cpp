// An update check that succeeds: the bytes of the request, which are composed alone, received by a
// peer, and compared with those of web_version_update; the proxy; the life of the records.
#include "web/update-check.h"

#include "tests/harness/each-locale.h"
#include "tests/harness/text.h"
#include "tests/web/update-check-calls.h"
#include "web/version-update.h"

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using tests::accepted;
using tests::expect_empty;
using tests::expect_reply;
using tests::expect_values;
using tests::LoopbackPeer;
using tests::OwnedReply;
using tests::PeerScript;
using tests::replying;
using tests::sample_query;

const PeerScript answer = replying(accepted + "Message: m");

ProxySettings proxy_of(const char *host, int port, const char *user, const char *password)
{
    ProxySettings proxy = {};
    std::strcpy(proxy.host, host);
    std::strcpy(proxy.user, user);
    std::strcpy(proxy.password, password);
    proxy.port = port;
    return proxy;
}

// The request for a service, the Host line's name, a body, and a credentials line or nothing.
std::string request(const std::string &service, const std::string &host, const std::string &body,
                    const std::string &credentials = "")
{
    return "POST http://" + service +
           "/version-update.php HTTP/1.0\r\n"
           "Accept: image/gif, image/x-xbitmap, image/jpeg, image/pjpeg, */*\r\n"
           "Accept-Language: en-us\r\n"
           "User-Agent: Velmora_Auto1\r\n"
           "Referer: " QUINTRAL_WEB_DOMAIN "\r\n"
           "Content-Type: application/x-www-form-urlencoded\r\n"
           "Content-Length: " +
           std::to_string(body.size()) + "\r\nHost: " + host + "\r\n" + credentials + "\r\n" + body;
}

const char sample_body[] =
    "product=Sample&productline=Samples&version=5%2e100&version%5fname=5%2e1%2e0"
    "&os=Linux&os%5fversion=6%2e1&machine%5fid=&processor%5farch=x86%5f64";

// The body of a query that has a version and one more value.
std::string body_with(const std::string &field, const std::string &sent)
{
    std::string body;
    for (const char *name : {"product", "productline", "version", "version%5fname", "os",
                             "os%5fversion", "machine%5fid", "processor%5farch"}) {
        body += (body.empty() ? "" : "&") + std::string(name) + "=";
        if (name == field)
            body += sent;
        else if (std::string(name) == "version")
            body += "5%2e100";
    }
    return body;
}

std::string composed(const WebUpdateQuery &query)
{
    std::string bytes = "left over";
    web_compose_update_request(&query, bytes);
    return bytes;
}

class UpdateRequest : public tests::InEachLocale {};

INSTANTIATE_TEST_SUITE_P(Locales, UpdateRequest, tests::each_locale(), tests::locale_label);

TEST_P(UpdateRequest, HasEachValueInItsFieldAndNullIsEmpty)
{
    using Query = WebUpdateQuery;
    const std::string letters(1100, 'x');
    const std::string spaces(1100, ' ');
    const struct {
        const char *Query::*member;
        const char *field;
        const char *value;
        std::string sent;
    } rows[] = {
        {&Query::product, "product", "A&B = C?", "A%26B%20%3d%20C%3f"},
        {&Query::product, "product", "", ""},
        {&Query::product, "product", nullptr, ""},
        {&Query::product_line, "productline", "50%+1", "50%25%2b1"},
        {&Query::product_line, "productline", nullptr, ""},
        {&Query::version, "version", "5.1", "5%2e100"},
        {&Query::version, "version", "5", "5%2e000"},
        {&Query::version, "version", "0005.25", "5%2e250"},
        {&Query::version, "version", "16777216.000", "16777216%2e000"},
        {&Query::version_name, "version%5fname", "\xc4\xe4 1/2", "%c4%e4%201%2f2"},
        {&Query::version_name, "version%5fname", nullptr, ""},
        {&Query::os, "os", "#;:\"'\r\n", "%23%3b%3a%22%27%0d%0a"},
        {&Query::os, "os", nullptr, ""},
        {&Query::os_version, "os%5fversion", "6.1,2", "6%2e1%2c2"},
        {&Query::os_version, "os%5fversion", nullptr, ""},
        {&Query::machine_id, "machine%5fid", "-._~*", "%2d%2e%5f%7e%2a"},
        {&Query::machine_id, "machine%5fid", nullptr, ""},
        {&Query::processor_arch, "processor%5farch", "x86_64", "x86%5f64"},
        {&Query::processor_arch, "processor%5farch", nullptr, ""},
        {&Query::product, "product", letters.c_str(), std::string(1023, 'x')},
        {&Query::processor_arch, "processor%5farch", spaces.c_str(), tests::repeated(1021, "%20")},
    };
    for (const auto &row : rows) {
        WebUpdateQuery query;
        web_update_query_init(&query);
        query.version = "5.1";
        query.service = "web";
        query.*row.member = row.value;
        EXPECT_EQ(composed(query), request("web", "WEB", body_with(row.field, row.sent)))
            << row.field;
    }
}

TEST_P(UpdateRequest, IsForTheServiceOfTheQueryOrForWebServiceHost)
{
    const struct {
        const char *service;
        const char *sent;
        const char *host_line;
    } rows[] = {
        {"update.quintral.example", "update.quintral.example", "UPDATE.QUINTRAL.EXAMPLE"},
        {"Update.Quintral.example:8080", "Update.Quintral.example:8080", "UPDATE.QUINTRAL.EXAMPLE"},
        {"127.0.0.1:1", "127.0.0.1:1", "127.0.0.1"},
        {"", "", ""},
        {nullptr, "Own.example:81", "OWN.EXAMPLE"},
    };
    const char *const service_before = web_service_host;
    web_service_host = "Own.example:81";
    for (const auto &row : rows) {
        WebUpdateQuery query = sample_query("");
        query.service = row.service;
        EXPECT_EQ(composed(query), request(row.sent, row.host_line, sample_body)) << row.sent;
    }
    web_service_host = service_before;
}

TEST_P(UpdateRequest, HasCredentialsIfNeitherUserNorPasswordIsEmpty)
{
    const struct {
        ProxySettings proxy;
        const char *line;
    } rows[] = {
        {proxy_of("proxy", 3128, "user1", "pw1"), "Authorization: Basic dXNlcjE6cHcx\r\n"},
        {proxy_of("proxy", 3128, "a:b%s", "\xff\n"), "Authorization: Basic YTpiJXM6/wo=\r\n"},
        {proxy_of("", 0, "user1", "pw1"), "Authorization: Basic dXNlcjE6cHcx\r\n"},
        {proxy_of("proxy", 3128, "user1", ""), ""},
        {proxy_of("proxy", 3128, "", "pw1"), ""},
        {proxy_of("proxy", 3128, "", ""), ""},
    };
    for (const auto &row : rows) {
        WebUpdateQuery query = sample_query("web");
        query.proxy = &row.proxy;
        EXPECT_EQ(composed(query), request("web", "WEB", sample_body, row.line)) << row.line;
    }
}

TEST_P(UpdateRequest, IsNotSentForAVersionThatIsNotANumberOfAFloat)
{
    for (const char *version : {static_cast<const char *>(nullptr), "", "5.", "5.1234", "5.2.1",
                                "v5", "5,1", " 5", "-5", "1e3", "nan", "16777217"}) {
        SCOPED_TRACE(version != nullptr ? version : "null");
        const LoopbackPeer peer({answer});
        const std::string service = peer.address();
        WebUpdateQuery query = sample_query(service.c_str());
        query.version = version;
        EXPECT_EQ(composed(query), "");

        OwnedReply reply;
        EXPECT_EQ(web_check_for_update(&query, &reply), WebFailed);
        expect_reply(reply, {WebBadQuery,
                             "The product version cannot be sent: it must be a number with at most "
                             "three decimal places that a float represents exactly",
                             0, nullptr, nullptr, nullptr});
        expect_values(reply, nullptr, nullptr, nullptr, nullptr);
        EXPECT_EQ(reply.newer, WebNewerUnknown);
        EXPECT_STREQ(web_last_error(), reply.error);
        EXPECT_EQ(peer.connection_count(), 0);
    }
}

TEST_P(UpdateRequest, MayBeComposedFromTheStringThatItReplaces)
{
    std::string bytes = "Sample";
    WebUpdateQuery query = sample_query("web");
    query.product = bytes.c_str();
    web_compose_update_request(&query, bytes);
    EXPECT_EQ(bytes, request("web", "WEB", sample_body));
}

// Sends the query's values by the call with 17 arguments.
int ask_with_arguments(const WebUpdateQuery &query)
{
    float version = 0;
    EXPECT_EQ(web_read_product_version(query.version, &version), 0);
    const ProxySettings none = {};
    const ProxySettings &proxy = query.proxy != nullptr ? *query.proxy : none;
    const char *const service_before = web_service_host;
    web_service_host = query.service;
    char message[16] = "";
    const int result = web_version_update(
        query.product, query.product_line, version, query.version_name, query.os, query.os_version,
        query.machine_id, query.processor_arch, sizeof message, message, nullptr, nullptr, nullptr,
        proxy.host, proxy.port, proxy.user[0] != '\0' ? proxy.user : nullptr,
        proxy.password[0] != '\0' ? proxy.password : nullptr);
    web_service_host = service_before;
    return result;
}

// The bytes composed for a query, after comparing them with those that the peer receives from
// web_check_for_update and from web_version_update.
std::string bytes_of_both_calls(const WebUpdateQuery &query, const LoopbackPeer &peer)
{
    OwnedReply reply;
    EXPECT_EQ(web_check_for_update(&query, &reply), WebOk) << reply.error;
    EXPECT_EQ(ask_with_arguments(query), 0) << web_last_error();
    const std::string bytes = composed(query);
    EXPECT_EQ(peer.received(0), bytes);
    EXPECT_EQ(peer.received(1), bytes);
    return bytes;
}

TEST_P(UpdateRequest, IsTheSameFromBothCallsAndComposed)
{
    const std::string spaces(1100, ' ');
    const char *const longest = spaces.c_str();
    const std::vector<WebUpdateQuery> queries = {
        sample_query(""),
        {"", "", "0", "", "", "", "", "", nullptr, nullptr},
        {"A&B", "\xe4\xff", "0.125", "%", "#", "\r\n", "~", "/", nullptr, nullptr},
        {longest, longest, "8191.999", longest, "x", "x", "x", longest, nullptr, nullptr},
    };
    for (WebUpdateQuery query : queries) {
        const LoopbackPeer direct({answer});
        const std::string service = direct.address();
        query.service = service.c_str();
        const std::string bytes = bytes_of_both_calls(query, direct);
        EXPECT_EQ(bytes.find("POST http://" + service + "/version-update.php HTTP/1.0\r\n"), 0u);

        const LoopbackPeer proxy({answer});
        const ProxySettings settings = proxy_of("127.0.0.1", proxy.port(), "user1", "pw1");
        query.service = "Update.quintral.example:8080";
        query.proxy = &settings;
        EXPECT_NE(
            bytes_of_both_calls(query, proxy).find("\r\nAuthorization: Basic dXNlcjE6cHcx\r\n"),
            std::string::npos);
    }
}

class UpdateCheck : public tests::InEachLocale {};

INSTANTIATE_TEST_SUITE_P(Locales, UpdateCheck, tests::each_locale(), tests::locale_label);

TEST_P(UpdateCheck, SendsTheQueryAndFillsTheReply)
{
    const LoopbackPeer peer({replying("HTTP/1.1 201 All right\r\nContent-Type: text/plain\r\n\r\n"
                                      "Version:  5.2 \r\nURL: http://a/ \r\nButton: Get it\r\n"
                                      "Message: New:\r\ndraws faster.\r\n")});
    const std::string service = peer.address();
    const WebUpdateQuery query = sample_query(service.c_str());
    web_set_error("An earlier error");
    OwnedReply reply;
    EXPECT_EQ(web_check_for_update(&query, &reply), WebOk);
    expect_reply(reply, {WebNoFailure, "", 201, "All right",
                         "HTTP/1.1 201 All right\r\nContent-Type: text/plain\r\n\r",
                         "Version:  5.2 \r\nURL: http://a/ \r\nButton: Get it\r\n"
                         "Message: New:\r\ndraws faster.\r\n"});
    expect_values(reply, "5.2", "http://a/ ", "Get it", "New:\ndraws faster.\n");
    EXPECT_EQ(reply.newer, WebNewer);
    EXPECT_STREQ(web_last_error(), "");
    EXPECT_EQ(peer.received(0), request(service, "127.0.0.1", sample_body));
    EXPECT_EQ(peer.connection_count(), 1);
}

TEST_P(UpdateCheck, ComparesTheReplysVersionWithTheQuerys)
{
    const struct {
        const char *own;
        const char *body;
        WebUpdateNewer newer;
    } rows[] = {
        {"5.1", "Version: 5.2\nMessage: m", WebNewer},
        {"5.1", "Version: 5.100\nMessage: m", WebNotNewer},
        {"5.9", "Version: 5.10\nMessage: m", WebNotNewer},
        {"5.1", "Version: new\nMessage: m", WebNewerUnknown},
        {"5.1", "Message: m", WebNewerUnknown},
    };
    for (const auto &row : rows) {
        const LoopbackPeer peer({replying(accepted + row.body)});
        const std::string service = peer.address();
        WebUpdateQuery query = sample_query(service.c_str());
        query.version = row.own;
        OwnedReply reply;
        EXPECT_EQ(web_check_for_update(&query, &reply), WebOk);
        EXPECT_EQ(reply.newer, row.newer) << row.own << " and " << row.body;
    }
}

TEST(UpdateCheckService, IsWebServiceHostIfTheQueryHasNone)
{
    const LoopbackPeer peer({answer});
    const std::string service = peer.address();
    const char *const service_before = web_service_host;
    web_service_host = service.c_str();
    WebUpdateQuery query = sample_query("");
    query.service = nullptr;
    OwnedReply reply;
    EXPECT_EQ(web_check_for_update(&query, &reply), WebOk);
    web_service_host = service_before;
    EXPECT_EQ(peer.received(0), request(service, "127.0.0.1", sample_body));
}

TEST(UpdateCheckProxy, WithAnEmptyHostIsADirectConnection)
{
    const LoopbackPeer peer({answer});
    const std::string service = peer.address();
    WebUpdateQuery query = sample_query(service.c_str());
    const ProxySettings proxy = proxy_of("", tests::refused_port(), "", "");
    query.proxy = &proxy;
    OwnedReply reply;
    EXPECT_EQ(web_check_for_update(&query, &reply), WebOk);
    EXPECT_EQ(peer.received(0), request(service, "127.0.0.1", sample_body));
}

TEST(UpdateQuery, StartsWithAllNull)
{
    WebUpdateQuery query = sample_query("web");
    const ProxySettings proxy = {};
    query.proxy = &proxy;
    web_update_query_init(&query);
    for (const char *value :
         {query.product, query.product_line, query.version, query.version_name, query.os,
          query.os_version, query.machine_id, query.processor_arch, query.service})
        EXPECT_EQ(value, nullptr);
    EXPECT_EQ(query.proxy, nullptr);
}

TEST(UpdateReply, StartsEmptyAndIsEmptyAgainAfterFree)
{
    WebUpdateReply reply;
    std::memset(static_cast<void *>(&reply), '#', sizeof reply);
    web_update_reply_init(&reply);
    expect_empty(reply);
    const std::string bytes = accepted + "Version: 5.2\nURL: u\nButton: b\nMessage: m";
    EXPECT_EQ(web_read_update_reply(bytes.data(), bytes.size(), "5.1", &reply), 0);
    EXPECT_EQ(reply.newer, WebNewer);
    web_update_reply_free(&reply);
    expect_empty(reply);
    web_update_reply_free(&reply);
    expect_empty(reply);
}

} // namespace
} // namespace quintral
