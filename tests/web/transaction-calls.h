// Calls of the web client as values: a test says what it asks for, gets everything that was
// delivered and compares it as one text, so that a failure shows all of it.
//
//     LoopbackPeer peer({{{PeerAct::ReadRequest}, {PeerAct::Send, "HTTP/1.0 200 OK\r\n\r\nx"}}});
//     EXPECT_EQ(call_web({url_of(peer)}), outcome(0, "HTTP/1.0 200 OK\r\n\r", "x", ""));
#ifndef QUINTRAL_TESTS_WEB_TRANSACTION_CALLS_H
#define QUINTRAL_TESTS_WEB_TRANSACTION_CALLS_H

#include "tests/harness/descriptors.h"
#include "tests/harness/loopback-peer.h"
#include "web/transaction.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace quintral::tests {

using Clock = std::chrono::steady_clock;
using Text = std::optional<std::string>; // none for a null pointer

inline const Text none;

struct WebCall {
    std::string url;
    const char *method = "GET";
    std::vector<WebField> fields = {};
    const char *proxy_host = nullptr;
    int proxy_port = 0;
    const char *proxy_user = nullptr;
    const char *proxy_password = nullptr;
};

inline std::string shown(const Text &text)
{
    return text.has_value() ? testing::PrintToString(*text) : "none";
}

// What a call leaves behind, as one text.
inline std::string outcome(int result, const Text &header, const Text &body,
                           const std::string &error)
{
    return "result " + std::to_string(result) + "\nheader " + shown(header) + "\nbody " +
           shown(body) + "\nerror " + testing::PrintToString(error);
}

// A text that the client allocated: copied and released.
inline Text taken(char *text)
{
    Text copy = text == nullptr ? none : Text(text);
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
    const Text header_text = taken(header);
    return outcome(result, header_text, taken(body), web_last_error());
}

inline std::string url_of(const LoopbackPeer &peer, const std::string &path = "/")
{
    return "http://" + peer.address() + path;
}

// The detail of a failed system call.
inline std::string detail_of(int error)
{
    return "code " + std::to_string(error) + ": " + std::strerror(error);
}

inline long long milliseconds_since(Clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// Leaves the client as it was at the start of the process.
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

inline void request_cancel(void * /*user_data*/)
{
    web_cancel_requested = 1;
}

} // namespace quintral::tests

#endif
