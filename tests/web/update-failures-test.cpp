// An update check that fails, on real sockets: each kind of failure with its message and with what
// was received before it, and the limits of a program that has set none. No test here calls
// web_set_reply_limits, which would end those for the whole program.
#include "web/update-check.h"

#include "tests/harness/text.h"
#include "tests/web/update-check-calls.h"
#include "web/version-update.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>
#include <netdb.h>

namespace quintral {
namespace {

using tests::accepted;
using tests::expect_reply;
using tests::expect_values;
using tests::ExpectedReply;
using tests::LoopbackPeer;
using tests::not_an_update;
using tests::OwnedReply;
using tests::PeerAct;
using tests::PeerScript;
using tests::replying;
using tests::sample_query;
using tests::system_error;

constexpr const char *none = nullptr;
constexpr std::size_t header_limit = std::size_t{256} * 1024;
constexpr std::size_t body_limit = std::size_t{8} * 1024 * 1024;

const char not_http[] = "Invalid non-HTTP header string returned from web site";
const char malformed_200[] = "Invalid HTTP return status (can't parse header HTTP/1.0 200\n)";
const char rejected_302[] = "Bad HTTP status 302 from web site: No";
const std::string header_too_long = "Reply header from web site is longer than 262144 bytes";
const std::string body_too_long = "Reply body from web site is longer than 8388608 bytes";

// Leaves the client as it was at the start of the process.
class UpdateFailure : public testing::Test {
protected:
    void TearDown() override
    {
        web_set_idle_hook(nullptr, nullptr);
        web_cancel_requested = 0;
    }
};

int check(const std::string &service, WebUpdateReply *reply)
{
    const WebUpdateQuery query = sample_query(service.c_str());
    return web_check_for_update(&query, reply);
}

// A check that fails, into a record that holds an earlier reply. Everything is expected but the
// values, which are none.
void expect_failure(const std::string &service, int result, const ExpectedReply &expected)
{
    const std::string earlier = accepted + "Version: 9\nURL: u\nButton: b\nMessage: m";
    OwnedReply reply;
    EXPECT_EQ(web_read_update_reply(earlier.data(), earlier.size(), "5.1", &reply), 0);
    EXPECT_EQ(check(service, &reply), result);
    expect_reply(reply, expected);
    expect_values(reply, none, none, none, none);
    EXPECT_EQ(reply.newer, WebNewerUnknown);
    EXPECT_EQ(web_last_error(), expected.error);
}

// A header of a size with its empty line's carriage return, then the empty line's end.
std::string header_of(std::size_t size)
{
    const std::string start = "HTTP/1.0 200 OK\r\nX: ";
    const std::string end = "\r\n\r";
    return start + std::string(size - start.size() - end.size(), 'x') + end + "\n";
}

std::string body_of(std::size_t size)
{
    const std::string start = "Message: ";
    return start + std::string(size - start.size(), 'm');
}

TEST_F(UpdateFailure, OfTheLookupNamesTheServer)
{
    gethostbyname("a..b");
    const std::string reason = hstrerror(h_errno);
    expect_failure(
        "a..b", WebFailed,
        {WebLookupFailed, "Can't find web server 'A..B': " + reason, 0, none, none, none});
}

TEST_F(UpdateFailure, OfTheProxysLookupNamesTheServer)
{
    gethostbyname("a..b");
    const std::string reason = hstrerror(h_errno);
    const ProxySettings proxy = {"a..b", "", "", 3128};
    WebUpdateQuery query = sample_query("update.quintral.example");
    query.proxy = &proxy;
    OwnedReply reply;
    EXPECT_EQ(web_check_for_update(&query, &reply), WebFailed);
    expect_reply(reply,
                 {WebLookupFailed, "Can't find web server 'UPDATE.QUINTRAL.EXAMPLE': " + reason, 0,
                  none, none, none});
    EXPECT_STREQ(web_last_error(), reply.error);
}

TEST_F(UpdateFailure, OfTheConnectHasTheSystemsReason)
{
    const std::string service = "127.0.0.1:" + std::to_string(tests::refused_port());
    const std::string error =
        system_error("Can't connect to web server '127.0.0.1': ", ECONNREFUSED);
    expect_failure(service, WebFailed, {WebConnectFailed, error, 0, none, none, none});
}

// A peer that sends some bytes and then resets the connection.
PeerScript resetting(const std::string &bytes)
{
    return {{PeerAct::ReadRequest},
            {PeerAct::Send, bytes},
            {PeerAct::Pause, "", 200}, // until the client has received the bytes
            {PeerAct::Reset}};
}

// The exchange survives a reset in the header and succeeds with an empty body. Whatever is wrong
// with such a reply is called a receive failure, with the message that it has always had.
TEST_F(UpdateFailure, OfReceivingInTheHeaderKeepsWhatWasReceived)
{
    const std::string reset = system_error("Error receiving data from web site: ", ECONNRESET);
    const std::string malformed = "Invalid HTTP return status (can't parse header HTTP/1.0 2)";
    const std::string rejected = "Bad HTTP status 404 from web site: No";
    const struct {
        const char *header;
        std::string error;
        int status;
        const char *reason;
    } rows[] = {
        {"HTTP/1.0 200 OK\r\nServer: s", reset, 200, "OK"},
        {"HTTP/1.0 200 OK\r\n", reset, 200, "OK"},
        {"HTTP/1.0 200 O", reset, 200, "O"},
        {"HTTP/1.0 2", malformed, 2, none},
        {"HTTP/1.0 404 No\r\nServer: s", rejected, 404, "No"},
        {"HTT", not_http, 0, none},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.header);
        const LoopbackPeer peer({resetting(row.header)});
        expect_failure(peer.address(), WebFailed,
                       {WebReceiveFailed, row.error, row.status, row.reason, row.header, ""});
    }
}

TEST_F(UpdateFailure, OfReceivingInTheBodyKeepsTheHeader)
{
    const std::string error = system_error("Error receiving data from web site: ", ECONNRESET);
    const LoopbackPeer peer({resetting(accepted + "Message: m")});
    expect_failure(peer.address(), WebFailed,
                   {WebReceiveFailed, error, 200, "OK", "HTTP/1.0 200 OK\r\n\r", none});
}

// The status of a reply that failed for another reason is still known.
TEST_F(UpdateFailure, OfReceivingInTheBodyKeepsAStatusThatIsNotAccepted)
{
    const std::string error = system_error("Error receiving data from web site: ", ECONNRESET);
    const LoopbackPeer peer(
        {resetting("HTTP/1.0 503 Busy\r\n\r\nWait"), resetting("ICY\r\n\r\nx")});
    expect_failure(peer.address(), WebFailed,
                   {WebReceiveFailed, error, 503, "Busy", "HTTP/1.0 503 Busy\r\n\r", none});
    expect_failure(peer.address(), WebFailed,
                   {WebReceiveFailed, error, 0, none, "ICY\r\n\r", none});
}

TEST_F(UpdateFailure, IsATimeoutAfterTenSecondsWithoutData)
{
    const LoopbackPeer peer(
        {{{PeerAct::ReadRequest}, {PeerAct::Send, "HTTP/1.0"}, {PeerAct::Hold}}});
    const auto start = std::chrono::steady_clock::now();
    expect_failure(peer.address(), WebTimedOut,
                   {WebCheckTimedOut, "Timeout waiting for web site", 0, none, none, none});
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(9));
}

TEST_F(UpdateFailure, IsATimeoutInTheBodyThatKeepsTheHeader)
{
    const LoopbackPeer peer(
        {{{PeerAct::ReadRequest}, {PeerAct::Send, accepted + "Message: m"}, {PeerAct::Hold}}});
    expect_failure(peer.address(), WebTimedOut,
                   {WebCheckTimedOut, "Timeout waiting for web site", 200, "OK",
                    "HTTP/1.0 200 OK\r\n\r", none});
}

TEST_F(UpdateFailure, IsACancellationByTheIdleHook)
{
    const LoopbackPeer peer({{{PeerAct::ReadRequest}, {PeerAct::Hold}}});
    web_set_idle_hook([](void *) { web_cancel_requested = 1; }, nullptr);
    expect_failure(peer.address(), WebCancelled,
                   {WebCheckCancelled, "User canceled web transaction", 0, none, none, none});
    EXPECT_EQ(web_cancel_requested, 0);
}

TEST_F(UpdateFailure, IsNotAnErrorThatTheIdleHookSets)
{
    const LoopbackPeer peer(
        {{{PeerAct::ReadRequest}, {PeerAct::Pause, "", 300}, {PeerAct::Send, accepted}}});
    web_set_idle_hook([](void *) { web_set_error("An error of the hook"); }, nullptr);
    expect_failure(peer.address(), WebFailed,
                   {WebNotAnUpdate, not_an_update, 200, "OK", "HTTP/1.0 200 OK\r\n\r", ""});
}

TEST_F(UpdateFailure, IsAReplyThatCannotBeUsed)
{
    const struct {
        const char *header; // without the empty line's line feed
        const char *body;
        WebUpdateFailure failure;
        const char *error;
        int status;
        const char *reason;
    } rows[] = {
        {"", "", WebNotHttp, not_http, 0, none},
        {"SSH-2.0\r\n\r", "Message: m", WebNotHttp, not_http, 0, none},
        {"HTTP/1.0 200\n", "Message: m", WebNotHttp, malformed_200, 200, none},
        {"HTTP/1.0 302 No\n", "Message: m", WebBadStatus, rejected_302, 302, "No"},
        {"HTTP/1.0 204 None\n", "", WebNotAnUpdate, not_an_update, 204, "None"},
        {"HTTP/1.0 200 OK\n", "Hello: m", WebNotAnUpdate, not_an_update, 200, "OK"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.header);
        const LoopbackPeer peer({replying(std::string(row.header) + "\n" + row.body)});
        expect_failure(peer.address(), WebFailed,
                       {row.failure, row.error, row.status, row.reason, row.header, row.body});
    }
}

TEST_F(UpdateFailure, IsAServerThatClosesAtOnce)
{
    const LoopbackPeer peer({{{PeerAct::ReadRequest}}});
    expect_failure(peer.address(), WebFailed, {WebNotHttp, not_http, 0, none, "", ""});
}

TEST_F(UpdateFailure, KeepsTheValuesThatWereReadBeforeIt)
{
    const LoopbackPeer peer({replying(accepted + "Version: 9\nURL: u\nButton: b\n")});
    OwnedReply reply;
    EXPECT_EQ(check(peer.address(), &reply), WebFailed);
    EXPECT_EQ(reply.failure, WebNotAnUpdate);
    expect_values(reply, "9", "u", "b", none);
    EXPECT_EQ(reply.newer, WebNewerUnknown);
}

TEST_F(UpdateFailure, IsGoneAfterTheNextCheck)
{
    const LoopbackPeer peer(
        {replying("HTTP/1.0 404 No\r\n\r\n"), replying(accepted + "Version: 9\nURL: u\nMessage: m"),
         replying(accepted + "Button: b\n"), replying(accepted + "Message: n")});
    OwnedReply reply;
    EXPECT_EQ(check(peer.address(), &reply), WebFailed);
    EXPECT_STREQ(web_last_error(), "Bad HTTP status 404 from web site: No");
    EXPECT_EQ(check(peer.address(), &reply), WebOk);
    expect_reply(reply, {WebNoFailure, "", 200, "OK", "HTTP/1.0 200 OK\r\n\r",
                         "Version: 9\nURL: u\nMessage: m"});
    expect_values(reply, "9", "u", none, "m");
    EXPECT_STREQ(web_last_error(), "");
    EXPECT_EQ(check(peer.address(), &reply), WebFailed);
    expect_values(reply, none, none, "b", none);
    EXPECT_EQ(check(peer.address(), &reply), WebOk);
    expect_values(reply, none, none, none, "n");
    EXPECT_EQ(reply.newer, WebNewerUnknown);
}

TEST_F(UpdateFailure, IsNotAHeaderOf256KiB)
{
    const LoopbackPeer peer({replying(header_of(header_limit) + "Message: m")});
    OwnedReply reply;
    ASSERT_EQ(check(peer.address(), &reply), WebOk);
    EXPECT_EQ(std::strlen(reply.header), header_limit);
    expect_values(reply, none, none, none, "m");
}

TEST_F(UpdateFailure, IsAHeaderOfMoreThan256KiB)
{
    const LoopbackPeer peer({replying(header_of(header_limit + 1) + "Message: m")});
    expect_failure(peer.address(), WebFailed,
                   {WebReplyTooLong, header_too_long, 0, none, none, none});
}

TEST_F(UpdateFailure, IsABodyOfMoreThan8MiB)
{
    const LoopbackPeer peer(
        {replying(accepted + body_of(body_limit)), replying(accepted + body_of(body_limit + 1))});
    OwnedReply reply;
    ASSERT_EQ(check(peer.address(), &reply), WebOk);
    EXPECT_EQ(std::strlen(reply.message), body_limit - std::strlen("Message: "));
    expect_failure(peer.address(), WebFailed,
                   {WebReplyTooLong, body_too_long, 200, "OK", "HTTP/1.0 200 OK\r\n\r", none});
}

// The last byte of such a header counts again and again.
TEST_F(UpdateFailure, IsAServerThatClosesWithinAHeaderLine)
{
    const LoopbackPeer peer({replying("HTTP/1.0 200 OK")});
    expect_failure(peer.address(), WebFailed,
                   {WebReplyTooLong, header_too_long, 0, none, none, none});
}

TEST_F(UpdateFailure, IsAServerThatSendsABodyForever)
{
    const LoopbackPeer peer({{{PeerAct::ReadRequest},
                              {PeerAct::Send, accepted + "Message: "},
                              {PeerAct::SendForever, std::string(10000, 'm')}}});
    expect_failure(peer.address(), WebFailed,
                   {WebReplyTooLong, body_too_long, 200, "OK", "HTTP/1.0 200 OK\r\n\r", none});
}

// That the other calls of the web client receive a header and a body beyond the limits of a check.
void expect_no_limits()
{
    const LoopbackPeer peer({replying(header_of(header_limit + 1) + "Message: m"),
                             replying(accepted + body_of(body_limit + 1))});
    const std::string service = peer.address();
    const char *const service_before = web_service_host;
    web_service_host = service.c_str();
    char message[4] = "";
    EXPECT_EQ(web_version_update("", "", 5.1F, "", "", "", "", "", sizeof message, message, nullptr,
                                 nullptr, nullptr, nullptr, 0, nullptr, nullptr),
              0)
        << web_last_error();
    EXPECT_STREQ(message, "m");
    web_service_host = service_before;

    char *header = nullptr;
    char *body = nullptr;
    EXPECT_EQ(web_request(("http://" + service + "/").c_str(), "GET", 0, nullptr, &header, &body,
                          nullptr, 0, nullptr, nullptr),
              WebOk)
        << web_last_error();
    std::free(header);
    std::free(body);
}

TEST_F(UpdateFailure, ByALimitDoesNotConcernOtherCallsAfterASuccess)
{
    const LoopbackPeer peer({replying(accepted + "Message: m")});
    OwnedReply reply;
    EXPECT_EQ(check(peer.address(), &reply), WebOk);
    expect_no_limits();
}

TEST_F(UpdateFailure, ByALimitDoesNotConcernOtherCallsAfterAFailure)
{
    OwnedReply reply;
    EXPECT_EQ(check("a..b", &reply), WebFailed);
    expect_no_limits();
}

TEST_F(UpdateFailure, ByALimitDoesNotConcernOtherCallsAfterTheIdleHookThrew)
{
    const LoopbackPeer peer({{{PeerAct::ReadRequest}, {PeerAct::Hold}}});
    web_set_idle_hook([](void *) { throw std::runtime_error("by the hook"); }, nullptr);
    OwnedReply reply;
    EXPECT_THROW(check(peer.address(), &reply), std::runtime_error);
    web_set_idle_hook(nullptr, nullptr);
    expect_no_limits();
}

} // namespace
} // namespace quintral
