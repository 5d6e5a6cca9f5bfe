// Transactions in a process with very many open files that the socket's descriptor does not fit
// into an fd_set. They must behave like any other transaction.
#include "tests/harness/descriptors.h"
#include "tests/harness/loopback-peer.h"
#include "tests/web/transaction-calls.h"
#include "web/transaction.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>

namespace quintral {
namespace {

using namespace tests;

constexpr int descriptors_in_use = 2000;
constexpr rlim_t descriptors_needed = descriptors_in_use + 100; // for the peer and the client

class WebTransactionWithManyFiles : public WebTransaction {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(allow_descriptors(descriptors_needed)) << too_few_descriptors;
        while (fillers.empty() || fillers.back() < descriptors_in_use) {
            const int filler = open("/dev/null", O_RDONLY | O_CLOEXEC);
            ASSERT_GE(filler, 0) << std::strerror(errno);
            fillers.push_back(filler); // ascending: open returns the lowest free descriptor
        }
    }

    void TearDown() override
    {
        for (int filler : fillers)
            close(filler);
        WebTransaction::TearDown();
    }

    std::vector<int> fillers;
};

// Checks the outcome of an exchange, that its socket does not fit into an fd_set, and that no
// descriptor is left.
void check(const PeerScript &script, const std::string &expected)
{
    const int next_descriptor = dup(0);
    close(next_descriptor);
    ASSERT_GE(next_descriptor, static_cast<int>(FD_SETSIZE));
    const std::size_t descriptors = open_descriptors();
    {
        LoopbackPeer peer({script});
        EXPECT_EQ(call_web({url_of(peer)}), expected);
    }
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_GE(descriptors, static_cast<std::size_t>(descriptors_in_use));
}

TEST_F(WebTransactionWithManyFiles, AReplyIsDelivered)
{
    check(answering(good_reply), good_outcome());
    check({reading, trickling(good_reply, 20)}, good_outcome());
    const std::string body(300000, 'x');
    check(answering("A\n\n" + body), delivered("A\n", body));
}

TEST_F(WebTransactionWithManyFiles, AReceiveErrorIsReported)
{
    check({reading, pausing(300), resetting}, outcome(WebOk, "", "", reset_error()));
    check(resetting_after(good_reply), failed(reset_error(), good_header));
}

TEST_F(WebTransactionWithManyFiles, TheIdleHookIsCalledAboutTenTimesASecond)
{
    int calls = 0;
    web_set_idle_hook(count_call, &calls);
    const auto start = Clock::now();
    check(answering_after(1000), good_outcome());
    EXPECT_GE(calls, 3);
    EXPECT_LE(calls, milliseconds_since(start) / 100);
}

TEST_F(WebTransactionWithManyFiles, CancellingFromTheIdleHookEndsTheHeaderPhaseSoon)
{
    web_set_idle_hook(request_cancel, nullptr);
    const auto start = Clock::now();
    check({holding}, cancelled());
    EXPECT_LT(milliseconds_since(start), 5000);
    EXPECT_EQ(web_cancel_requested, 0);
}

TEST_F(WebTransactionWithManyFiles, AFlagSetByASignalCancelsTheBodyPhase)
{
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = cancel_on_signal;
    ASSERT_EQ(sigaction(SIGALRM, &action, &before), 0);
    const itimerval in_a_second = {{0, 0}, {1, 0}};
    ASSERT_EQ(setitimer(ITIMER_REAL, &in_a_second, nullptr), 0);
    const auto start = Clock::now();
    check(holding_after(good_reply), cancelled(good_header));
    EXPECT_LT(milliseconds_since(start), 9000);
    sigaction(SIGALRM, &before, nullptr);
}

TEST_F(WebTransactionWithManyFiles, ALimitEndsTheExchange)
{
    web_set_reply_limits(0, 3);
    check(holding_after(good_reply), body_too_long(good_header, 3));
}

// The time limit: each of these tests takes ten seconds.

void check_timeout(const PeerScript &script, const std::string &expected)
{
    const auto start = Clock::now();
    check(script, expected);
    EXPECT_GE(milliseconds_since(start), 9990);
    EXPECT_LT(milliseconds_since(start), 20000);
}

TEST_F(WebTransactionWithManyFiles, SlowTimeoutInTheHeader)
{
    int calls = 0;
    web_set_idle_hook(count_call, &calls);
    check_timeout(holding_after("HTTP/1.0"), timed_out());
    EXPECT_GE(calls, 30);
    EXPECT_LE(calls, 101);
}

TEST_F(WebTransactionWithManyFiles, SlowTimeoutInTheBody)
{
    check_timeout(holding_after(good_reply), timed_out(good_header));
}

} // namespace
} // namespace quintral
