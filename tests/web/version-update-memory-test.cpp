// What memory a version-update query keeps: only the last error.
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

// Asks once, behind an earlier error: the last error is one block, and a query clears it first. So
// 0 is a query that failed with a text, -1 one that left no text, and neither lost anything.
std::int64_t blocks_kept_by(const LoopbackPeer &peer, Answer *answer)
{
    web_set_error("An error text of an earlier query");
    start_counting();
    *answer = ask(peer);
    memory_count.on = false;
    return memory_count.live;
}

// The header was delivered before, and nobody but the query can release it.
TEST(WebVersionUpdateBlocks, ATimeOutBehindTheHeaderReleasesIt)
{
    const LoopbackPeer peer({holding_after(std::string(accepted) + "Version: 6\n")});
    Answer answer;
    EXPECT_EQ(blocks_kept_by(peer, &answer), 0);
    expect_failure(answer, 1, timeout_error);
}

TEST(WebVersionUpdateBlocks, AResetInTheBodyReleasesTheHeader)
{
    const LoopbackPeer peer({resetting_after(std::string(accepted) + "Message: m")});
    Answer answer;
    EXPECT_EQ(blocks_kept_by(peer, &answer), 0);
    expect_failure(answer, -1, reset_error());
}

TEST(WebVersionUpdateBlocks, ABodyPastTheLimitReleasesTheHeader)
{
    const LoopbackPeer peer({answering(std::string(accepted) + "Message: too long")});
    web_set_reply_limits(0, 5);
    Answer answer;
    EXPECT_EQ(blocks_kept_by(peer, &answer), 0);
    web_set_reply_limits(0, 0);
    expect_failure(answer, -1, "Reply body from web site is longer than 5 bytes");
}

// The exchange goes on behind a header that breaks off, and succeeds with an empty body.
TEST(WebVersionUpdateBlocks, AResetInTheHeaderLeavesItsErrorTextAlone)
{
    const LoopbackPeer peer({resetting_after("HTTP/1.0 200 OK\r\nServer: s")});
    Answer answer;
    EXPECT_EQ(blocks_kept_by(peer, &answer), 0);
    expect_failure(answer, -1, reset_error());
}

TEST(WebVersionUpdateBlocks, AReplyThatWasReceivedIsReleased)
{
    struct {
        const char *reply;
        std::int64_t kept;
    } const rows[] = {
        {"HTTP/1.0 200 OK\r\n\r\nMessage: m", -1}, {"HTTP/1.0 200 OK\r\n\r\nVersion: 6\n", -1},
        {"HTTP/1.0 200 OK\r\n\r\n", -1},           {"HTTP/1.0 404 Not Found\r\n\r\nMessage: m", 0},
        {"Something else\r\n\r\nMessage: m", 0},
    };
    for (const auto &row : rows) {
        const LoopbackPeer peer({answering(row.reply)});
        Answer answer;
        EXPECT_EQ(blocks_kept_by(peer, &answer), row.kept) << row.reply;
    }
}

// The nth allocation of the query fails; what it had taken before is released.
bool fails_in_allocation(int number, const LoopbackPeer &peer)
{
    web_set_error("An error text of an earlier query");
    const std::string address = peer.address();
    const char *const service_before = web_service_host;
    web_service_host = address.c_str();
    Question question;
    Answer answer;
    bool has_thrown = false;
    start_counting(number);
    try {
        answer.result = send_question(question, &answer);
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

TEST(WebVersionUpdateBlocks, MemoryThatRunsOutThrowsAndLosesNothing)
{
    const LoopbackPeer peer({answering(std::string(accepted) + "Version: 6\nMessage: m")});
    int number = 1;
    while (number < 20 && fails_in_allocation(number, peer))
        ++number;
    EXPECT_EQ(number, 3) << "a query takes two blocks, for the header and for the body";
    for (int i = 0; i < peer.connection_count(); ++i) // each was closed by the query
        EXPECT_EQ(peer.received(i), request(peer.address(), "127.0.0.1", sample_body));
}

} // namespace
} // namespace quintral
