// The reply limits of an update check in a program that sets its own: 0 too replaces the default
// limits. Those of a program that sets none are in update-failures-test.cpp.
#include "web/update-check.h"

#include "tests/web/update-check-calls.h"

#include <string>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using tests::LoopbackPeer;
using tests::OwnedReply;
using tests::PeerAct;
using tests::replying;
using tests::sample_query;

// The failure's name and error of a check.
std::string outcome_of(const LoopbackPeer &peer)
{
    const std::string service = peer.address();
    const WebUpdateQuery query = sample_query(service.c_str());
    OwnedReply reply;
    const int result = web_check_for_update(&query, &reply);
    EXPECT_EQ(result, reply.failure == WebNoFailure ? WebOk : WebFailed);
    const std::string error = reply.error != nullptr ? reply.error : "";
    return web_update_failure_name(reply.failure) + (error.empty() ? "" : ": " + error);
}

// A reply with a header and a body of these sizes.
std::string reply_of(std::size_t header_size, std::size_t body_size)
{
    const std::string start = "HTTP/1.0 200 OK\r\nX: ";
    const std::string end = "\r\n\r";
    const std::string message = "Message: ";
    return start + std::string(header_size - start.size() - end.size(), 'x') + end + "\n" +
           message + std::string(body_size - message.size(), 'm');
}

// The first test, so that the program has set no limits before.
TEST(UpdateLimits, MayBeSetWhileACheckWaits)
{
    const LoopbackPeer peer(
        {{{PeerAct::ReadRequest}, {PeerAct::Pause, "", 300}, {PeerAct::Send, reply_of(100, 21)}}});
    const std::string too_long = "too-long: Reply body from web site is longer than 20 bytes";
    web_set_idle_hook([](void *) { web_set_reply_limits(0, 20); }, nullptr);
    EXPECT_EQ(outcome_of(peer), too_long);
    web_set_idle_hook(nullptr, nullptr);
    EXPECT_EQ(outcome_of(peer), too_long);
}

TEST(UpdateLimits, OfTheProgramAreExactAndStay)
{
    const std::string header_error = "too-long: Reply header from web site is longer than ";
    const std::string body_error = "too-long: Reply body from web site is longer than ";
    const struct {
        std::size_t header_limit;
        std::size_t body_limit;
        std::size_t header_size;
        std::size_t body_size;
        std::string outcome;
    } rows[] = {
        {100, 0, 100, 9000, "none"},
        {100, 0, 101, 20, header_error + "100 bytes"},
        {0, 100, 9000, 100, "none"},
        {0, 100, 9000, 101, body_error + "100 bytes"},
        {50, 20, 50, 20, "none"},
        {50, 20, 51, 20, header_error + "50 bytes"},
        {50, 20, 50, 21, body_error + "20 bytes"},
    };
    for (const auto &row : rows) {
        const LoopbackPeer peer({replying(reply_of(row.header_size, row.body_size))});
        web_set_reply_limits(row.header_limit, row.body_limit);
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(outcome_of(peer), row.outcome)
                << "limits " << row.header_limit << " and " << row.body_limit << ", reply "
                << row.header_size << " and " << row.body_size;
    }
}

// Both sizes are one byte over a default limit.
TEST(UpdateLimits, OfZeroReplaceTheDefaultsToo)
{
    const LoopbackPeer peer({replying(reply_of(256 * 1024 + 1, 8 * 1024 * 1024 + 1))});
    web_set_reply_limits(0, 0);
    EXPECT_EQ(outcome_of(peer), "none");
}

TEST(UpdateLimits, MayBeLargerThanTheDefaults)
{
    const LoopbackPeer peer({replying(reply_of(256 * 1024 + 1, 8 * 1024 * 1024 + 1))});
    web_set_reply_limits(512 * 1024, 16 * 1024 * 1024);
    EXPECT_EQ(outcome_of(peer), "none");
}

} // namespace
} // namespace quintral
