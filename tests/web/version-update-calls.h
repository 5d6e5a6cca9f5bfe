// Whole version-update queries as values: a test says what it asks, gets all bytes of the caller's
// buffers and compares them. '#' fills a buffer before the call.
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

constexpr unsigned room = 64; // of each buffer, whatever capacity a row gives

// One of the caller's buffers.
struct Buffer {
    char bytes[room];
    Buffer()
    {
        std::memset(bytes, '#', sizeof bytes);
    }
};

const char *const untouched = nullptr; // the value of a buffer that was not to be written

// All bytes of a buffer that was given the value: cut, terminated, filled with NULs up to the
// capacity, and not written behind it.
inline std::string bytes_given(const char *value, unsigned capacity)
{
    std::string all(room, '#');
    if (value == untouched || capacity == 0)
        return all;
    std::string stored = std::string(value).substr(0, capacity - 1);
    stored.resize(capacity, '\0');
    return all.replace(0, capacity, stored);
}

inline const char accepted[] = "HTTP/1.0 200 OK\r\n\r\n";

// What a caller gives, beside its buffers.
struct Question {
    std::string service;
    float version = 5.0F;
    unsigned capacity = room;
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

inline int send_question(const Question &question, Answer *answer)
{
    return web_version_update("Sample", "Samples", question.version, "5.0", "Linux", "6.1", "",
                              "x86_64", question.capacity, answer->message.bytes,
                              answer->version.bytes, answer->url.bytes, answer->button.bytes,
                              question.proxy_host, question.proxy_port, question.proxy_user,
                              question.proxy_password);
}

inline Answer ask(const Question &question)
{
    const char *const service_before = web_service_host;
    web_service_host = question.service.c_str();
    Answer answer;
    answer.result = send_question(question, &answer);
    answer.error = web_last_error();
    web_service_host = service_before;
    return answer;
}

inline Answer ask(const LoopbackPeer &peer)
{
    Question question;
    question.service = peer.address();
    return ask(question);
}

inline void expect_values(const Answer &answer, const char *message, const char *version,
                          const char *url, const char *button)
{
    EXPECT_EQ(std::string(answer.message.bytes, room), bytes_given(message, room)) << "message";
    EXPECT_EQ(std::string(answer.version.bytes, room), bytes_given(version, room)) << "version";
    EXPECT_EQ(std::string(answer.url.bytes, room), bytes_given(url, room)) << "address";
    EXPECT_EQ(std::string(answer.button.bytes, room), bytes_given(button, room)) << "button";
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
