// Calls of the web client for the tests. A call returns everything that the client delivered as one
// string, its outcome, so that a failed comparison shows all of it.
//
//     LoopbackPeer peer({answering("HTTP/1.0 200 OK\r\n\r\nx")});
//     EXPECT_EQ(call_web({url_of(peer)}), delivered("HTTP/1.0 200 OK\r\n\r", "x"));
#ifndef QUINTRAL_TESTS_WEB_TRANSACTION_CALLS_H
#define QUINTRAL_TESTS_WEB_TRANSACTION_CALLS_H

#include "tests/harness/loopback-peer.h"
#include "web/transaction.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral::tests {

using Clock = std::chrono::steady_clock;
using OptionalString = std::optional<std::string>;

inline const OptionalString none; // for a null pointer

// A reply, and its header as it is delivered

inline const char *const good_header = "HTTP/1.0 200 OK\r\nA: b\r\n\r";
inline const std::string good_reply = std::string(good_header) + "\nbody";

// Errors

inline const char *const timeout_error = "Timeout waiting for web site";
inline const char *const cancel_error = "User canceled web transaction";
inline const char *const no_http_error = "Invalid non-HTTP header string returned from web site";

// What the client writes about an errno.
inline std::string detail_of(int error)
{
    return "code " + std::to_string(error) + ": " + std::strerror(error);
}

inline std::string receive_error(int error)
{
    return "Error receiving data from web site: " + detail_of(error);
}

inline std::string reset_error()
{
    return receive_error(ECONNRESET);
}

inline std::string bad_status(int status, const std::string &reason)
{
    return "Bad HTTP status " + std::to_string(status) + " from web site: " + reason;
}

inline std::string unreadable_status(const std::string &rest)
{
    return "Invalid HTTP return status (can't parse header HTTP/" + rest + ")";
}

// Outcomes

inline std::string shown(const OptionalString &text)
{
    return text.has_value() ? testing::PrintToString(*text) : "none";
}

inline std::string outcome(int result, const OptionalString &header, const OptionalString &body,
                           const std::string &error)
{
    return "result " + std::to_string(result) + "\nheader " + shown(header) + "\nbody " +
           shown(body) + "\nerror " + testing::PrintToString(error);
}

inline std::string delivered(const OptionalString &header, const OptionalString &body)
{
    return outcome(WebOk, header, body, "");
}

inline std::string good_outcome()
{
    return delivered(good_header, "body");
}

inline std::string failed(const std::string &error, const OptionalString &header = none)
{
    return outcome(WebFailed, header, none, error);
}

inline std::string timed_out(const OptionalString &header = none)
{
    return outcome(WebTimedOut, header, none, timeout_error);
}

inline std::string cancelled(const OptionalString &header = none)
{
    return outcome(WebCancelled, header, none, cancel_error);
}

inline std::string header_too_long(std::size_t limit)
{
    return failed("Reply header from web site is longer than " + std::to_string(limit) + " bytes");
}

inline std::string body_too_long(const OptionalString &header, std::size_t limit)
{
    return failed("Reply body from web site is longer than " + std::to_string(limit) + " bytes",
                  header);
}

// Calls

struct WebCall {
    std::string url;
    const char *method = "GET";
    std::vector<WebField> fields = {};
    const char *proxy_host = nullptr;
    int proxy_port = 0;
    const char *proxy_user = nullptr;
    const char *proxy_password = nullptr;
};

// Copies and releases a string that the client allocated.
inline OptionalString taken(char *text)
{
    OptionalString copy = text == nullptr ? none : OptionalString(text);
    std::free(text);
    return copy;
}

inline std::string call_web(const WebCall &call)
{
    char *header = nullptr;
    char *body = nullptr;
    const int result = web_request(
        call.url.c_str(), call.method, static_cast<int>(call.fields.size()), call.fields.data(),
        &header, &body, call.proxy_host, call.proxy_port, call.proxy_user, call.proxy_password);
    const OptionalString header_text = taken(header);
    return outcome(result, header_text, taken(body), web_last_error());
}

// Calls web_exchange directly, without a URL.
inline std::string call_exchange(const LoopbackPeer &peer, const char *method,
                                 const std::string &extra_header, const std::string &body)
{
    char *header = nullptr;
    char *body_out = nullptr;
    const int result =
        web_exchange("HTTP", "127.0.0.1", "/the path", peer.port(), method, extra_header, body,
                     &header, &body_out, nullptr, 0, nullptr, nullptr);
    const OptionalString header_text = taken(header);
    return outcome(result, header_text, taken(body_out), web_last_error());
}

inline std::string url_of(const LoopbackPeer &peer)
{
    return "http://" + peer.address() + "/";
}

// Requests

// The bytes of a whole request, with `lines` between the fixed header lines and the empty line.
inline std::string request_text(const std::string &request_line, const std::string &lines,
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

inline std::string form_lines(std::size_t body_length)
{
    return "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
           std::to_string(body_length) + "\r\n";
}

// Peers

inline const PeerStep reading = {PeerAct::ReadRequest};
inline const PeerStep resetting = {PeerAct::Reset};
inline const PeerStep holding = {PeerAct::Hold};

inline PeerStep sending(const std::string &bytes)
{
    return {PeerAct::Send, bytes};
}

inline PeerStep pausing(int milliseconds)
{
    return {PeerAct::Pause, "", milliseconds};
}

inline PeerStep trickling(const std::string &bytes, int milliseconds)
{
    return {PeerAct::Trickle, bytes, milliseconds};
}

inline PeerScript answering(const std::string &reply)
{
    return {reading, sending(reply)};
}

inline PeerScript answering_after(int milliseconds)
{
    return {reading, pausing(milliseconds), sending(good_reply)};
}

// Sends the reply and leaves the connection open.
inline PeerScript holding_after(const std::string &reply)
{
    return {reading, sending(reply), holding};
}

// Sends the reply, waits until it has been read and resets the connection.
inline PeerScript resetting_after(const std::string &reply)
{
    return {reading, sending(reply), pausing(300), resetting};
}

// One exchange with a peer

struct ReplyRow {
    const char *name;
    PeerScript script;
    std::string expected;
};

inline void check_reply_row(const ReplyRow &row)
{
    SCOPED_TRACE(row.name);
    LoopbackPeer peer({row.script});
    EXPECT_EQ(call_web({url_of(peer)}), row.expected);
}

// The test fixture, and hooks for its tests

// Leaves the client as it was at process start.
class WebTransaction : public testing::Test {
protected:
    void TearDown() override
    {
        web_set_idle_hook(nullptr, nullptr);
        web_set_reply_limits(0, 0);
        web_cancel_requested = 0;
    }
};

inline void count_call(void *counter)
{
    ++*static_cast<int *>(counter);
}

inline volatile std::sig_atomic_t signal_count = 0;

inline void count_signal(int /*signal*/)
{
    signal_count = signal_count + 1;
}

inline void request_cancel(void * /*user_data*/)
{
    web_cancel_requested = 1;
}

inline void cancel_on_signal(int /*signal*/)
{
    web_cancel_requested = 1;
}

inline long long milliseconds_since(Clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

} // namespace quintral::tests

#endif
