// Transactions in a host program with an interval timer, over real sockets. The timer's signals
// interrupt calls, but they lose no byte of a request and move no deadline, unless their handler
// cancels the transaction. Each wait for the time limit is a separate test, so that ctest -j runs
// them in parallel.
#include "tests/harness/loopback-peer.h"
#include "tests/web/transaction-calls.h"
#include "web/transaction.h"

#include <algorithm>
#include <csignal>
#include <string>

#include <gtest/gtest.h>
#include <sys/time.h>

namespace quintral {
namespace {

using namespace tests;

// A SIGALRM every `microseconds`, for the life of the record. Calls are not restarted after it.
class IntervalTimer {
public:
    explicit IntervalTimer(suseconds_t microseconds, void (*handler)(int) = count_signal)
    {
        signal_count = 0;
        struct sigaction action = {};
        action.sa_handler = handler;
        EXPECT_EQ(sigaction(SIGALRM, &action, &before_), 0);
        const itimerval interval = {{0, microseconds}, {0, microseconds}};
        EXPECT_EQ(setitimer(ITIMER_REAL, &interval, nullptr), 0);
    }

    ~IntervalTimer()
    {
        const itimerval off = {};
        setitimer(ITIMER_REAL, &off, nullptr);
        sigaction(SIGALRM, &before_, nullptr);
    }

    IntervalTimer(const IntervalTimer &) = delete;
    IntervalTimer &operator=(const IntervalTimer &) = delete;

private:
    struct sigaction before_ = {};
};

// A body of 8 MiB in which no two places look the same.
std::string numbered_body()
{
    std::string body;
    for (unsigned number = 0; body.size() < std::size_t{8} * 1024 * 1024; ++number)
        body += std::to_string(number) + ' ';
    return body;
}

TEST_F(WebTransaction, SignalsLoseNoByteOfALargeBody)
{
    const PeerStep reading_slowly = {PeerAct::ReadRequest, "", 1};
    const std::string body = numbered_body();
    LoopbackPeer peer({{reading_slowly, sending(good_reply)}});
    const std::string lines = "Content-Length: " + std::to_string(body.size());
    {
        const IntervalTimer timer(5000);
        EXPECT_EQ(call_exchange(peer, "POST", lines, body), good_outcome());
    }
    EXPECT_GT(signal_count, 10);
    const std::string received = peer.received(0);
    const std::size_t start = received.find("\r\n\r\n") + 4;
    EXPECT_EQ(received.size() - start, body.size());
    EXPECT_TRUE(received.compare(start, std::string::npos, body) == 0);
}

// The peer reads nothing for twice as long as the test allows, so a client that sends the whole
// body fails the test.
TEST_F(WebTransaction, AFlagSetByASignalEndsASendToAPeerThatDoesNotRead)
{
    LoopbackPeer peer({{{PeerAct::Ignore, "", 8000}}});
    const std::string body = numbered_body();
    const auto start = Clock::now();
    const IntervalTimer timer(50000, cancel_on_signal);
    EXPECT_EQ(call_exchange(peer, "POST", "", body), cancelled());
    EXPECT_LT(milliseconds_since(start), 4000);
}

constexpr long long time_limit = 10000; // milliseconds
constexpr long long tolerance = 250;

struct HookRhythm {
    Clock::time_point last;
    long long longest; // milliseconds between two calls
};

void measure_rhythm(void *record)
{
    HookRhythm &rhythm = *static_cast<HookRhythm *>(record);
    rhythm.longest = std::max(rhythm.longest, milliseconds_since(rhythm.last));
    rhythm.last = Clock::now();
}

// The hook also follows each wait that a signal has ended, so it is called more often than ten
// times a second, but never less often. Returns the longest time without a call.
long long longest_time_without_hook()
{
    LoopbackPeer peer({answering_after(1500)});
    HookRhythm rhythm = {Clock::now(), 0};
    web_set_idle_hook(measure_rhythm, &rhythm);
    const IntervalTimer timer(1000);
    EXPECT_EQ(call_web({url_of(peer)}), good_outcome());
    measure_rhythm(&rhythm);
    return rhythm.longest;
}

// Returns the milliseconds until the time limit ends the exchange. They are never too few.
long long time_to_timeout(const PeerScript &script, const std::string &expected)
{
    LoopbackPeer peer({script});
    const IntervalTimer timer(1000);
    const auto start = Clock::now();
    EXPECT_EQ(call_web({url_of(peer)}), expected);
    const long long taken = milliseconds_since(start);
    EXPECT_GE(taken, time_limit - tolerance);
    EXPECT_GT(signal_count, 1000);
    return taken;
}

// A busy machine may delay any attempt, but not each of three.
template <typename Attempt> void expect_at_most(long long limit, const Attempt &attempt)
{
    long long shortest = attempt();
    for (int i = 0; i < 2 && shortest > limit; ++i)
        shortest = std::min(shortest, attempt());
    EXPECT_LE(shortest, limit);
}

void check_timeout(const PeerScript &script, const std::string &expected)
{
    expect_at_most(time_limit + tolerance, [&] { return time_to_timeout(script, expected); });
}

TEST_F(WebTransaction, SignalsDoNotDelayTheIdleHook)
{
    expect_at_most(100 + tolerance, longest_time_without_hook);
}

TEST_F(WebTransaction, SlowSignalsMoveNoDeadlineOfTheFirstByte)
{
    check_timeout({holding}, timed_out());
}

TEST_F(WebTransaction, SlowSignalsMoveNoDeadlineWithinTheHeader)
{
    check_timeout(holding_after("HTTP/1.0 200 OK\r\nA"), timed_out());
}

TEST_F(WebTransaction, SlowSignalsMoveNoDeadlineOfTheBody)
{
    check_timeout(holding_after(good_reply), timed_out(good_header));
}

} // namespace
} // namespace quintral
