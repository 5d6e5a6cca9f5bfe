// Transactions that run out of memory, and whether transactions release everything they allocate.
#include "tests/harness/descriptors.h"
#include "tests/web/counted-memory.h"
#include "tests/web/scripted-calls.h"
#include "web/transaction.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <new>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using namespace tests;

// What arrives, for each way an exchange can end.
std::vector<std::deque<Arrival>> arrivals_for_each_end()
{
    return {
        {{"HTTP/1.0 200 OK\r\nA long enough header: value\r\n\r\nA body of some length"}},
        {{"A\n\n" + std::string(5000, 'x')}},
        {{"HTTP/1.0 200 OK, which is to be repeated\r\n"}, {"", EIO}, {"body"}},
        {{"A\n\n"}, {"", EIO}},
        {{"A", 0, forever}},
        {{"A\n\n"}, {"b", 0, forever}},
    };
}

// Runs one transaction whose allocation with this number fails. True if there was such an
// allocation; the transaction must then have thrown, and leaked nothing.
bool fails_cleanly(const std::deque<Arrival> &arrivals, std::int64_t fail_at)
{
    char *header = nullptr;
    char *body = nullptr;
    bool thrown = false;
    stage.arrivals = arrivals;
    stage.calls.clear();
    stage.sent.clear();
    web_set_error("an earlier error");
    const std::size_t descriptors = open_descriptors();
    const WebField fields[] = {{"a name", "a value"}, {"another name", "another value"}};
    start_counting(fail_at);
    try {
        web_request("http://a-web-host-with-a-long-name:81/a-path", "POST", 2, fields, &header,
                    &body, nullptr, 0, "a user of the proxy", "a password of the proxy");
    } catch (const std::bad_alloc &) {
        thrown = true;
    }
    memory_count.fail_at = 0;
    std::free(header);
    std::free(body);
    web_set_error("a later error");
    memory_count.on = false;
    EXPECT_EQ(thrown, memory_count.failed);
    // The request released the earlier error; the later one balances the count.
    EXPECT_EQ(memory_count.live, 0);
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(count_of_calls("close"), count_of_calls("socket"));
    EXPECT_TRUE(!thrown || body == nullptr);
    return memory_count.failed;
}

TEST_F(WebTransactionUnderFaults, EachFailedAllocationThrowsAndLeaksNothing)
{
    for (const auto &arrivals : arrivals_for_each_end()) {
        std::int64_t fail_at = 1;
        while (fails_cleanly(arrivals, fail_at) && !HasFailure())
            ++fail_at;
        // At least the blocks of the reply. More is not certain: valgrind replaces operator new.
        EXPECT_GT(fail_at, 1) << "allocations are not counted";
        EXPECT_FALSE(HasFailure()) << "with allocation " << fail_at << " failing";
    }
}

TEST_F(WebTransactionUnderFaults, AFailureToGrowABlockThrowsAndClosesTheSocket)
{
    const std::string short_header = std::string(1000, 'h') + "\n";
    const std::string long_header = std::string(4320, 'h') + "\n";
    const struct {
        const char *name;
        std::string header;
        std::size_t failing_size;
        bool header_delivered;
        long body_receives;
    } rows[] = {
        {"the first block", short_header, 2048, false, 0},
        {"the header's second", long_header, 4096, false, 0},
        {"the header's third", long_header, 8192, false, 0},
        {"the body's second", short_header, 4096, true, 2},
        {"the body's third", short_header, 8192, true, 4},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        char *header = nullptr;
        char *body = nullptr;
        stage.calls.clear();
        stage.arrivals = {{row.header + "\n" + std::string(5432, 'b')}};
        start_counting_with_failing_size(row.failing_size);
        EXPECT_THROW(
            web_request(web_url, "GET", 0, nullptr, &header, &body, nullptr, 0, nullptr, nullptr),
            std::bad_alloc);
        memory_count.on = false;
        EXPECT_TRUE(memory_count.failed);
        EXPECT_EQ(taken(header), row.header_delivered ? OptionalString(row.header) : none);
        EXPECT_EQ(taken(body), none);
        EXPECT_EQ(count_of_calls("recv 1023"), row.body_receives);
        EXPECT_EQ(count_of_calls("close"), 1);
        EXPECT_STREQ(web_last_error(), "");
    }
}

// Delivers a body of this size and returns the number of allocations that took.
std::int64_t allocations_for_body(std::size_t size)
{
    const std::string expected(size, 'b');
    stage.arrivals = {{"A\n\n"}, {expected}};
    stage.calls.clear();
    char *header = nullptr;
    char *body = nullptr;
    start_counting();
    web_request(web_url, "GET", 0, nullptr, &header, &body, nullptr, 0, nullptr, nullptr);
    memory_count.on = false;
    EXPECT_TRUE(taken(header) == "A\n");
    EXPECT_TRUE(taken(body) == expected);
    return memory_count.allocations;
}

// A body is received in the block that the caller gets: 2048 bytes, then twice as many. Each
// receive needs 1024 bytes of it.
TEST_F(WebTransactionUnderFaults, ABodyIsReceivedInOneBlockThatDoubles)
{
    const struct {
        std::size_t size;
        std::int64_t growths;
    } rows[] = {
        {1, 0}, {1024, 0}, {1025, 1}, {3072, 1}, {3073, 2}, {1000000, 9}, {1048576 - 1024, 9},
    };
    const std::int64_t without_growth = allocations_for_body(0);
    for (const auto &row : rows)
        EXPECT_EQ(allocations_for_body(row.size) - without_growth, row.growths) << row.size;
}

TEST_F(WebTransactionUnderFaults, AFailureToStoreAnErrorThrowsAndKeepsTheLastOne)
{
    const std::string text(6543, 'x');
    web_set_error("the last");
    start_counting_with_failing_size(text.size() + 1);
    EXPECT_THROW(web_set_error("%s", text.c_str()), std::bad_alloc);
    memory_count.on = false;
    EXPECT_STREQ(web_last_error(), "the last");
}

// Hundreds of exchanges over real sockets

struct MixedExchange {
    const char *name;
    PeerScript script; // empty if the exchange makes no connection
    std::string host;  // "PEER" stands for the peer's address
    bool through_proxy;
    bool cancelled;
    std::size_t limit; // of header and body
};

std::vector<MixedExchange> mixed_exchanges()
{
    const PeerStep header = sending("HTTP/1.0 200 OK\r\nServer: of some name\r\n\r\n");
    const PeerStep body = sending(std::string(3000, 'x'));
    const std::string refused = "127.0.0.1:" + std::to_string(refused_port());
    return {
        {"answered", {reading, header, body}, "PEER", false, false, 9999},
        {"through a proxy", {reading, header, body}, "web", true, false, 9999},
        {"closed at once", {reading}, "PEER", false, false, 9999},
        {"reset at once", {resetting}, "PEER", false, false, 9999},
        {"reset in the body", {reading, header, body, resetting}, "PEER", false, false, 9999},
        {"closed within a line", {reading, sending("HTTP")}, "PEER", false, false, 500},
        {"too long a body", {reading, header, body}, "PEER", false, false, 1000},
        {"cancelled", {holding}, "PEER", false, true, 9999},
        {"refused", {}, refused, false, false, 9999},
        {"not found", {}, "a..b", false, false, 9999},
    };
}

void run_mixed_exchange(const MixedExchange &exchange, const LoopbackPeer &peer)
{
    const WebField fields[] = {{"a name", "a value"}};
    const std::string host = exchange.host == "PEER" ? peer.address() : exchange.host;
    char *header = nullptr;
    char *body = nullptr;
    web_set_reply_limits(exchange.limit, exchange.limit);
    web_cancel_requested = exchange.cancelled ? 1 : 0;
    web_request(("http://" + host + "/path").c_str(), "POST", 1, fields, &header, &body,
                exchange.through_proxy ? "127.0.0.1" : nullptr, peer.port(), "a user",
                "a password");
    std::free(header);
    std::free(body);
}

TEST_F(WebTransactionUnderFaults, HundredsOfMixedExchangesLeakNoDescriptorAndNoMemory)
{
    constexpr int rounds = 40;
    stage.scripted = false;
    const std::vector<MixedExchange> exchanges = mixed_exchanges();
    std::vector<PeerScript> scripts;
    for (int round = 0; round < rounds; ++round) {
        for (const MixedExchange &exchange : exchanges) {
            if (!exchange.script.empty())
                scripts.push_back(exchange.script);
        }
    }
    const std::size_t descriptors = open_descriptors();
    {
        LoopbackPeer peer(scripts);
        web_set_error("an earlier error");
        start_counting();
        for (int round = 0; round < rounds; ++round) {
            for (const MixedExchange &exchange : exchanges)
                run_mixed_exchange(exchange, peer);
        }
        web_set_error("a later error");
        memory_count.on = false;
        peer.received(static_cast<int>(scripts.size()) - 1);
        EXPECT_EQ(peer.connection_count(), static_cast<int>(scripts.size()));
    }
    EXPECT_GT(memory_count.allocations, 3 * rounds) << "allocations are not counted";
    EXPECT_EQ(memory_count.live, 0);
    EXPECT_EQ(open_descriptors(), descriptors);
}

} // namespace
} // namespace quintral
