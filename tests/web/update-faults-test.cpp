// Update checks under faults: every allocation of a call fails once, formatting fails, and
// receiving fails within a header that continues. The link wraps this program's malloc, realloc,
// free, recv and vsnprintf (--wrap), and operator new uses that malloc. The replacements act on the
// test's own thread only; the peer has others.
#include "web/update-check.h"

#include "tests/harness/allocation.h"
#include "tests/web/update-check-calls.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>

#include <gtest/gtest.h>
#include <sys/socket.h>

namespace {

thread_local long live_blocks = 0;
thread_local int allocations_until_failure = 0; // 1: the next one fails; 0: none does
thread_local int receives_until_failure = 0;    // the same for recv
thread_local bool formatting_fails = false;

bool allocation_fails()
{
    if (allocations_until_failure == 0 || --allocations_until_failure > 0)
        return false;
    errno = ENOMEM;
    return true;
}

} // namespace

extern "C" {

void *__real_malloc(std::size_t size);
void *__real_realloc(void *block, std::size_t size);
void __real_free(void *block);
int __real_vsnprintf(char *text, std::size_t size, const char *format, std::va_list arguments);
ssize_t __real_recv(int descriptor, void *bytes, std::size_t size, int flags);
void *__wrap_malloc(std::size_t size);
void *__wrap_realloc(void *block, std::size_t size);
void __wrap_free(void *block);
int __wrap_vsnprintf(char *text, std::size_t size, const char *format, std::va_list arguments);
ssize_t __wrap_recv(int descriptor, void *bytes, std::size_t size, int flags);

void *__wrap_malloc(std::size_t size)
{
    if (allocation_fails())
        return nullptr;
    void *const block = __real_malloc(size);
    live_blocks += block != nullptr ? 1 : 0;
    return block;
}

void *__wrap_realloc(void *block, std::size_t size)
{
    if (allocation_fails())
        return nullptr;
    live_blocks += block == nullptr ? 1 : 0;
    return __real_realloc(block, size);
}

void __wrap_free(void *block)
{
    live_blocks -= block != nullptr ? 1 : 0;
    __real_free(block);
}

int __wrap_vsnprintf(char *text, std::size_t size, const char *format, std::va_list arguments)
{
    return formatting_fails ? -1 : __real_vsnprintf(text, size, format, arguments);
}

ssize_t __wrap_recv(int descriptor, void *bytes, std::size_t size, int flags)
{
    if (receives_until_failure > 0 && --receives_until_failure == 0) {
        errno = EIO;
        return -1;
    }
    return __real_recv(descriptor, bytes, size, flags);
}

} // extern "C"

namespace quintral {
namespace {

using tests::accepted;
using tests::expect_empty;
using tests::expect_reply;
using tests::expect_values;
using tests::LoopbackPeer;
using tests::not_an_update;
using tests::OwnedReply;
using tests::PeerAct;
using tests::PeerScript;
using tests::replying;
using tests::sample_query;
using tests::system_error;

constexpr const char *none = nullptr;

// Longer than a std::string keeps in itself.
const std::string long_value(100, 'v');
const std::string long_version = "5.2." + std::string(100, '7');
const std::string whole_body = "Version:  " + long_version + " \r\nURL: " + long_value +
                               "\r\nButton: " + long_value + "\r\nMessage: " + long_value + "\r\n";

// Lets the first allocation of the call fail, then the second, until all succeed. Returns how many
// failed. Each failure must throw std::bad_alloc and lose no block. recover uses and releases what
// the call has stored.
int fail_each_allocation(const std::function<void()> &call, const std::function<void()> &recover)
{
    tests::allow_allocation = nullptr; // so that the link takes operator new from the harness
    for (int number = 1; number < 1000; ++number) {
        web_set_error("An earlier error");
        const long before = live_blocks;
        bool has_thrown = false;
        allocations_until_failure = number;
        try {
            call();
        } catch (const std::bad_alloc &) {
            has_thrown = true;
        }
        const bool has_failed = allocations_until_failure == 0;
        allocations_until_failure = 0;
        EXPECT_EQ(has_thrown, has_failed) << "allocation " << number;
        recover();
        web_set_error("An earlier error"); // one block again, whatever the call left
        EXPECT_EQ(live_blocks, before) << "allocation " << number;
        if (!has_failed)
            return number - 1;
    }
    ADD_FAILURE() << "the call allocates without end";
    return 0;
}

struct Exchange {
    const char *rule;
    const char *version;
    PeerScript script;
    WebUpdateFailure failure;
};

TEST(UpdateFaults, ACheckThrowsAtEachAllocationThatFailsAndTheReplyCanBeUsedAgain)
{
    const PeerScript reset = {{PeerAct::ReadRequest},
                              {PeerAct::Send, accepted + long_value},
                              {PeerAct::Pause, "", 50},
                              {PeerAct::Reset}};
    const Exchange exchanges[] = {
        {"success", "5.1", replying(accepted + whole_body), WebNoFailure},
        {"bad query", "5,1", replying(accepted), WebBadQuery},
        {"no message", "5.1", replying(accepted + "URL: " + long_value + "\n"), WebNotAnUpdate},
        {"status", "5.1", replying("HTTP/1.0 404 " + long_value + "\n\n"), WebBadStatus},
        {"malformed", "5.1", replying("HTTP/1.0 " + long_value + "\n\n"), WebNotHttp},
        {"body broken off", "5.1", reset, WebReceiveFailed},
    };
    for (const Exchange &exchange : exchanges) {
        SCOPED_TRACE(exchange.rule);
        const LoopbackPeer peer({exchange.script});
        const LoopbackPeer other({replying(accepted + "Version: 9\nMessage: m")});
        const std::string service = peer.address();
        const std::string other_service = other.address();
        WebUpdateQuery query = sample_query(service.c_str());
        query.version = exchange.version;
        const WebUpdateQuery other_query = sample_query(other_service.c_str());
        OwnedReply reply;
        WebUpdateFailure failure = WebNoFailure;
        const int failed = fail_each_allocation(
            [&] {
                web_check_for_update(&query, &reply);
                failure = reply.failure;
            },
            [&] {
                EXPECT_EQ(web_check_for_update(&other_query, &reply), WebOk);
                expect_reply(reply, {WebNoFailure, "", 200, "OK", "HTTP/1.0 200 OK\r\n\r",
                                     "Version: 9\nMessage: m"});
                expect_values(reply, "9", none, none, "m");
                EXPECT_EQ(reply.newer, WebNewer);
                web_update_reply_free(&reply);
                expect_empty(reply);
            });
        EXPECT_GE(failed, exchange.failure == WebBadQuery ? 2 : 10);
        EXPECT_EQ(failure, exchange.failure);
    }
}

TEST(UpdateFaults, ReadingThrowsAtEachAllocationThatFailsAndTheReplyCanBeUsedAgain)
{
    const std::string replies[] = {
        accepted + whole_body,
        accepted + "Version: " + long_value + "\n",
        "HTTP/1.0 404 " + long_value + "\n\n",
        "HTTP/1.0 " + long_value + "\n\n",
        long_value,
    };
    const std::string other = accepted + "Version: 9\nMessage: m";
    for (const std::string &bytes : replies) {
        SCOPED_TRACE(bytes);
        OwnedReply reply;
        const int failed = fail_each_allocation(
            [&] { web_read_update_reply(bytes.data(), bytes.size(), "5.1", &reply); },
            [&] {
                EXPECT_EQ(web_read_update_reply(other.data(), other.size(), "5.1", &reply), 0);
                expect_values(reply, "9", none, none, "m");
                web_update_reply_free(&reply);
                expect_empty(reply);
            });
        EXPECT_GE(failed, 3);
    }
}

TEST(UpdateFaults, ComposingThrowsAtEachAllocationThatFailsAndKeepsTheBytes)
{
    WebUpdateQuery query = sample_query("update.quintral.example");
    query.product = long_value.c_str();
    const ProxySettings proxy = {"", "user1", "pw1", 0};
    query.proxy = &proxy;
    for (const char *version :
         {"5.1", "340282346638528859811704183484516925440", "1234567890123.5"}) {
        query.version = version; // the last one cannot be sent
        std::string bytes = "left over";
        bool is_whole = false;
        const int failed = fail_each_allocation(
            [&] {
                web_compose_update_request(&query, bytes);
                is_whole = true;
            },
            [&] {
                EXPECT_EQ(bytes == "left over", !is_whole) << version;
                std::string().swap(bytes); // keeps no block
                bytes = "left over";
            });
        EXPECT_GE(failed, 1) << version;
    }
}

TEST(UpdateFaults, ComparingThrowsAtEachAllocationThatFails)
{
    const int failed = fail_each_allocation(
        [] {
            int order = 99;
            EXPECT_EQ(web_compare_versions(long_version.c_str(), "5.2", &order), 0);
            EXPECT_EQ(order, 1);
        },
        [] {});
    EXPECT_GE(failed, 1);
}

// Sends a reply of which the byte at `position` is the first that is received after a failure.
void expect_failed_receive(const std::string &bytes, std::size_t position, int result,
                           const tests::ExpectedReply &expected, const char *message)
{
    const LoopbackPeer peer({replying(bytes)});
    const std::string service = peer.address();
    const WebUpdateQuery query = sample_query(service.c_str());
    OwnedReply reply;
    receives_until_failure = static_cast<int>(position) + 1;
    EXPECT_EQ(web_check_for_update(&query, &reply), result);
    receives_until_failure = 0;
    expect_reply(reply, expected);
    expect_values(reply, none, none, none, message);
    EXPECT_EQ(web_last_error(), expected.error);
}

// What follows the failure is received as the body.
TEST(UpdateFaults, AReceiveErrorInTheHeaderIsForgottenIfTheRestIsAnUpdate)
{
    const std::string header = "HTTP/1.0 200 OK\r\n";
    const std::string error = system_error("Error receiving data from web site: ", EIO);
    expect_failed_receive(header + "Message: m", header.size(), WebOk,
                          {WebNoFailure, "", 200, "OK", "HTTP/1.0 200 OK\r\n", "Message: m"}, "m");
    expect_failed_receive(header + "Hello: m", header.size(), WebFailed,
                          {WebReceiveFailed, error, 200, "OK", "HTTP/1.0 200 OK\r\n", "Hello: m"},
                          none);
}

// As it does for an error of more than INT_MAX bytes.
TEST(UpdateFaults, AnErrorThatCannotBeFormattedIsNotEmpty)
{
    const std::string bytes = "HTTP/1.0 404 No\n\n";
    OwnedReply reply;
    const long before = live_blocks;
    formatting_fails = true;
    EXPECT_EQ(web_read_update_reply(bytes.data(), bytes.size(), "5.1", &reply), -1);
    formatting_fails = false;
    expect_reply(reply, {WebBadStatus, not_an_update, 404, "No", "HTTP/1.0 404 No\n", ""});
    web_update_reply_free(&reply);
    EXPECT_EQ(live_blocks, before);
}

} // namespace
} // namespace quintral
