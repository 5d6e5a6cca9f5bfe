// The memory that a version-update query keeps: only the last error.
#include "tests/harness/loopback-peer.h"
#include "tests/web/counted-memory.h"
#include "tests/web/version-update-calls.h"
#include "web/transaction.h"
#include "web/version-update.h"

#include <cstdint>
#include <new>
#include <string>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using namespace tests;

// Sends one query after an earlier error. The last error is one block, which the query releases
// first. So the result is 0 for a query that sets an error and -1 for one that does not, if nothing
// leaks.
std::int64_t blocks_kept_by(const LoopbackPeer &peer, Answer *answer)
{
    web_set_error("an earlier error");
    start_counting();
    *answer = ask(peer);
    memory_count.on = false;
    return memory_count.live;
}

// The header has been delivered to the query, and only the query can release it.
TEST(WebVersionUpdateBlocks, ATimeoutAfterTheHeaderReleasesTheHeader)
{
    const LoopbackPeer peer({holding_after(accepted_header + "Version: 6\n")});
    Answer answer;
    EXPECT_EQ(blocks_kept_by(peer, &answer), 0);
    expect_failure(answer, 1, timeout_error);
}

TEST(WebVersionUpdateBlocks, AResetInTheBodyReleasesTheHeader)
{
    const LoopbackPeer peer({resetting_after(accepted_header + "Message: m")});
    Answer answer;
    EXPECT_EQ(blocks_kept_by(peer, &answer), 0);
    expect_failure(answer, -1, reset_error());
}

TEST(WebVersionUpdateBlocks, ABodyPastTheLimitReleasesTheHeader)
{
    const LoopbackPeer peer({accepting("Message: too long")});
    web_set_reply_limits(0, 5);
    Answer answer;
    EXPECT_EQ(blocks_kept_by(peer, &answer), 0);
    web_set_reply_limits(0, 0);
    expect_failure(answer, -1, "Reply body from web site is longer than 5 bytes");
}

// After an error in the header the exchange goes on, and succeeds with an empty body.
TEST(WebVersionUpdateBlocks, AResetInTheHeaderKeepsOnlyItsError)
{
    const LoopbackPeer peer({resetting_after("HTTP/1.0 200 OK\r\nServer: s")});
    Answer answer;
    EXPECT_EQ(blocks_kept_by(peer, &answer), 0);
    expect_failure(answer, -1, reset_error());
}

TEST(WebVersionUpdateBlocks, AReceivedReplyIsReleased)
{
    struct {
        std::string reply;
        std::int64_t kept;
    } const rows[] = {
        {accepted_header + "Message: m", -1},
        {accepted_header + "Version: 6\n", -1},
        {accepted_header, -1},
        {"HTTP/1.0 404 Not Found\r\n\r\nMessage: m", 0},
        {"Something else\r\n\r\nMessage: m", 0},
    };
    for (const auto &row : rows) {
        const LoopbackPeer peer({answering(row.reply)});
        Answer answer;
        EXPECT_EQ(blocks_kept_by(peer, &answer), row.kept) << row.reply;
    }
}

// Sends a query whose allocation with this number fails. True if there was such an allocation; the
// query must then have thrown, and leaked nothing.
bool fails_in_allocation(int number, const LoopbackPeer &peer)
{
    web_set_error("an earlier error");
    const std::string address = peer.address();
    const char *const service_before = web_service_host;
    web_service_host = address.c_str();
    Query query;
    Answer answer;
    bool has_thrown = false;
    start_counting(number);
    try {
        answer.result = send_query(query, &answer);
    } catch (const std::bad_alloc &) {
        has_thrown = true;
    }
    memory_count.on = false;
    web_service_host = service_before;
    EXPECT_EQ(memory_count.live, -1) << "allocation " << number;
    if (has_thrown)
        expect_values(answer, untouched, untouched, untouched, untouched);
    else
        EXPECT_EQ(answer.result, 0);
    return has_thrown;
}

TEST(WebVersionUpdateBlocks, EachFailedAllocationThrowsAndLeaksNothing)
{
    const LoopbackPeer peer({accepting("Version: 6\nMessage: m")});
    int number = 1;
    while (number < 20 && fails_in_allocation(number, peer))
        ++number;
    EXPECT_EQ(number, 3) << "a query allocates two blocks: the header and the body";
    for (int i = 0; i < peer.connection_count(); ++i) // the query has closed each one
        EXPECT_EQ(peer.received(i), request(peer.address(), "127.0.0.1", sample_body));
}

} // namespace
} // namespace quintral
