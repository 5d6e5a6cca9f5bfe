// Whole version-update queries for the tests. All bytes of the caller's buffers are compared; each
// buffer is filled with '#' before the call.
#ifndef QUINTRAL_TESTS_WEB_VERSION_UPDATE_CALLS_H
#define QUINTRAL_TESTS_WEB_VERSION_UPDATE_CALLS_H

#include "tests/harness/loopback-peer.h"
#include "tests/web/transaction-calls.h"
#include "web/transaction.h"
#include "web/version-update.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace quintral::tests {

constexpr unsigned buffer_size = 64; // whatever capacity the query is given

// One of the caller's buffers.
struct Buffer {
    char bytes[buffer_size];
    Buffer()
    {
        std::memset(bytes, '#', sizeof bytes);
    }
};

inline std::string all_bytes(const Buffer &buffer)
{
    return std::string(buffer.bytes, buffer_size);
}

const char *const untouched = nullptr; // the value of a buffer that must keep its '#'s

// All bytes of a buffer after the value was stored: the value is cut to the capacity, terminated
// and padded with NULs to the capacity. The rest is unchanged.
inline std::string stored_bytes(const char *value, unsigned capacity)
{
    std::string all(buffer_size, '#');
    if (value == untouched || capacity == 0)
        return all;
    std::string stored = std::string(value).substr(0, capacity - 1);
    stored.resize(capacity, '\0');
    return all.replace(0, capacity, stored);
}

inline const std::string accepted_header = "HTTP/1.0 200 OK\r\n\r\n";

inline PeerScript accepting(const std::string &body)
{
    return answering(accepted_header + body);
}

// The arguments of a query, except its buffers.
struct Query {
    std::string service;
    float version = 5.0F;
    unsigned capacity = buffer_size;
    const char *proxy_host = nullptr;
    int proxy_port = 0;
    const char *proxy_user = nullptr;
    const char *proxy_password = nullptr;
};

struct Answer {
    int result = 99;
    Buffer message;
    Buffer version;
    Buffer url;
    Buffer button;
    std::string error;
};

inline int send_query(const Query &query, Answer *answer)
{
    return web_version_update(
        "Sample", "Samples", query.version, "5.0", "Linux", "6.1", "", "x86_64", query.capacity,
        answer->message.bytes, answer->version.bytes, answer->url.bytes, answer->button.bytes,
        query.proxy_host, query.proxy_port, query.proxy_user, query.proxy_password);
}

inline Answer ask(const Query &query)
{
    const char *const service_before = web_service_host;
    web_service_host = query.service.c_str();
    Answer answer;
    answer.result = send_query(query, &answer);
    answer.error = web_last_error();
    web_service_host = service_before;
    return answer;
}

inline Answer ask(const LoopbackPeer &peer)
{
    Query query;
    query.service = peer.address();
    return ask(query);
}

inline void expect_values(const Answer &answer, const char *message, const char *version,
                          const char *url, const char *button)
{
    EXPECT_EQ(all_bytes(answer.message), stored_bytes(message, buffer_size)) << "message";
    EXPECT_EQ(all_bytes(answer.version), stored_bytes(version, buffer_size)) << "version";
    EXPECT_EQ(all_bytes(answer.url), stored_bytes(url, buffer_size)) << "URL";
    EXPECT_EQ(all_bytes(answer.button), stored_bytes(button, buffer_size)) << "button";
}

inline void expect_failure(const Answer &answer, int result, const std::string &error)
{
    EXPECT_EQ(answer.result, result);
    EXPECT_EQ(answer.error, error);
    expect_values(answer, untouched, untouched, untouched, untouched);
}

// The bytes of a query; `credentials` is its Authorization line or empty.
inline std::string request(const std::string &service, const std::string &host,
                           const std::string &body, const std::string &credentials = "")
{
    return request_text("POST http://" + service + "/version-update.php",
                        form_lines(body.size()) + "Host: " + host + "\r\n" + credentials, body);
}

inline const char sample_body[] =
    "product=Sample&productline=Samples&version=5%2e000&version%5fname=5%2e0"
    "&os=Linux&os%5fversion=6%2e1&machine%5fid=&processor%5farch=x86%5f64";

} // namespace quintral::tests

#endif
