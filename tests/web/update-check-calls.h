// What the tests of the update check share: a query, a peer that answers it, and a reply record
// that releases itself.
#ifndef QUINTRAL_TESTS_WEB_UPDATE_CHECK_CALLS_H
#define QUINTRAL_TESTS_WEB_UPDATE_CHECK_CALLS_H

#include "tests/harness/loopback-peer.h"
#include "web/update-check.h"

#include <cerrno>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace quintral::tests {

inline const std::string accepted = "HTTP/1.0 200 OK\r\n\r\n";
inline const char not_an_update[] = "The web site's answer is not an update reply";

struct OwnedReply : WebUpdateReply {
    OwnedReply()
    {
        web_update_reply_init(this);
    }
    ~OwnedReply()
    {
        web_update_reply_free(this);
    }
    OwnedReply(const OwnedReply &) = delete;
    OwnedReply &operator=(const OwnedReply &) = delete;
};

// A query of version 5.1.
inline WebUpdateQuery sample_query(const char *service)
{
    WebUpdateQuery query;
    web_update_query_init(&query);
    query.product = "Sample";
    query.product_line = "Samples";
    query.version = "5.1";
    query.version_name = "5.1.0";
    query.os = "Linux";
    query.os_version = "6.1";
    query.processor_arch = "x86_64";
    query.service = service;
    return query;
}

inline PeerScript replying(const std::string &reply)
{
    return {{PeerAct::ReadRequest}, {PeerAct::Send, reply}};
}

// The message of a failed system call.
inline std::string system_error(const std::string &what, int error)
{
    return what + "code " + std::to_string(error) + ": " + std::strerror(error);
}

// Everything in a reply but the values.
struct ExpectedReply {
    WebUpdateFailure failure;
    std::string error; // empty for null
    int http_status;
    const char *reason;
    const char *header;
    const char *body;
};

inline void expect_reply(const WebUpdateReply &reply, const ExpectedReply &expected)
{
    EXPECT_STREQ(web_update_failure_name(reply.failure), web_update_failure_name(expected.failure));
    EXPECT_STREQ(reply.error, expected.error.empty() ? nullptr : expected.error.c_str());
    EXPECT_EQ(reply.http_status, expected.http_status);
    EXPECT_STREQ(reply.reason, expected.reason);
    EXPECT_STREQ(reply.header, expected.header);
    EXPECT_STREQ(reply.body, expected.body);
}

inline void expect_values(const WebUpdateReply &reply, const char *version, const char *url,
                          const char *button, const char *message)
{
    EXPECT_STREQ(reply.version, version);
    EXPECT_STREQ(reply.url, url);
    EXPECT_STREQ(reply.button, button);
    EXPECT_STREQ(reply.message, message);
}

inline void expect_empty(const WebUpdateReply &reply)
{
    expect_reply(reply, {WebNoFailure, "", 0, nullptr, nullptr, nullptr});
    expect_values(reply, nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(reply.newer, WebNewerUnknown);
}

} // namespace quintral::tests

#endif
