// The idle hook, cancelling and the time limit, over real sockets. Each wait for the time limit is
// a separate test, so that ctest -j runs them in parallel.
#include "tests/harness/loopback-peer.h"
#include "tests/web/transaction-calls.h"
#include "web/transaction.h"

#include <csignal>
#include <string>

#include <gtest/gtest.h>
#include <sys/time.h>

namespace quintral {
namespace {

using namespace tests;

const int cancel_at_start = web_cancel_requested;

// The idle hook and the cancel flag

TEST_F(WebTransaction, TheIdleHookIsCalledAboutTenTimesASecondInTheHeaderPhase)
{
    int calls = 0;
    web_set_idle_hook(count_call, &calls);
    const auto start = Clock::now();
    check_reply_row({"after a second", answering_after(1000), good_outcome()});
    // Each call follows a wait of 100 ms; a busy machine makes fewer, but never more.
    EXPECT_GE(calls, 3);
    EXPECT_LE(calls, milliseconds_since(start) / 100);
}

TEST_F(WebTransaction, TheIdleHookIsNotCalledInAShortSilenceOfTheBodyPhase)
{
    int calls = 0;
    web_set_idle_hook(count_call, &calls);
    LoopbackPeer peer({{sending(good_reply), // before the request, so that nothing waits
                        reading, pausing(1500), sending(" more")}});
    EXPECT_EQ(call_web({url_of(peer)}), delivered(good_header, "body more"));
    // One or two calls may come before the first byte of the header. Ten a second would be 15.
    EXPECT_LT(calls, 8);
}

TEST_F(WebTransaction, TheIdleHookStaysUntilItIsReplaced)
{
    int first = 0;
    int second = 0;
    web_set_idle_hook(count_call, &first);
    LoopbackPeer peer({answering_after(500)});
    call_web({url_of(peer)});
    const int after_one = first;
    call_web({url_of(peer)});
    const int after_two = first;
    EXPECT_GT(after_one, 0);
    EXPECT_GT(after_two, after_one);
    web_set_idle_hook(count_call, &second);
    call_web({url_of(peer)});
    EXPECT_GT(second, 0);
    const int second_calls = second;
    web_set_idle_hook(nullptr, &second);
    EXPECT_EQ(call_web({url_of(peer)}), good_outcome());
    EXPECT_EQ(first, after_two);
    EXPECT_EQ(second, second_calls);
}

TEST_F(WebTransaction, CancellingFromTheIdleHookEndsTheHeaderPhaseSoon)
{
    const ReplyRow rows[] = {
        {"before any byte", {holding}, cancelled()},
        {"within the header", holding_after("HTTP/1.0 200 OK\r\n"), cancelled()},
    };
    for (const ReplyRow &row : rows) {
        web_set_idle_hook(request_cancel, nullptr);
        const auto start = Clock::now();
        check_reply_row(row);
        EXPECT_LT(milliseconds_since(start), 5000) << row.name;
        EXPECT_EQ(web_cancel_requested, 0) << row.name;
    }
}

TEST_F(WebTransaction, AFlagSetBeforehandCancelsAtTheFirstSilentWaitBeforeTheHook)
{
    int calls = 0;
    web_set_idle_hook(count_call, &calls);
    web_cancel_requested = 7;
    check_reply_row({"silent", {holding}, cancelled()});
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(web_cancel_requested, 0);
    check_reply_row({"the next one", answering(good_reply), good_outcome()});
}

TEST_F(WebTransaction, AFailureBeforeTheReplyLeavesTheFlagSet)
{
    web_cancel_requested = 1;
    call_web({"https://127.0.0.1/"});
    call_web({"http://127.0.0.1:" + std::to_string(refused_port()) + "/"});
    EXPECT_EQ(web_cancel_requested, 1);
}

// The signal interrupts the long wait of the body phase, and then the flag is read.
TEST_F(WebTransaction, AFlagSetByASignalCancelsTheBodyPhase)
{
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = cancel_on_signal;
    action.sa_flags = SA_RESTART;
    ASSERT_EQ(sigaction(SIGALRM, &action, &before), 0);
    const itimerval in_a_second = {{0, 0}, {1, 0}};
    const itimerval off = {};
    ASSERT_EQ(setitimer(ITIMER_REAL, &in_a_second, nullptr), 0);
    const auto start = Clock::now();
    check_reply_row({"silent in the body", holding_after(good_reply), cancelled(good_header)});
    EXPECT_LT(milliseconds_since(start), 9000);
    EXPECT_EQ(web_cancel_requested, 0);
    setitimer(ITIMER_REAL, &off, nullptr);
    sigaction(SIGALRM, &before, nullptr);
}

TEST_F(WebTransaction, TheCancelFlagIs0AtProcessStart)
{
    EXPECT_EQ(cancel_at_start, 0);
}

// The time limit: each of these tests takes at least ten seconds.

void check_timeout(const PeerScript &script, const std::string &expected)
{
    const auto start = Clock::now();
    check_reply_row({"silence", script, expected});
    EXPECT_GE(milliseconds_since(start), 9990);
    EXPECT_LT(milliseconds_since(start), 20000);
}

TEST_F(WebTransaction, SlowTimeoutBeforeTheFirstByteCallsTheHookThroughout)
{
    int calls = 0;
    web_set_idle_hook(count_call, &calls);
    check_timeout({holding}, timed_out());
    EXPECT_GE(calls, 30);
    EXPECT_LE(calls, 101);
}

TEST_F(WebTransaction, SlowTimeoutWithinTheHeaderDeliversNothing)
{
    check_timeout(holding_after("HTTP/1.0 200 OK\r\nA"), timed_out());
}

Clock::time_point body_test_start;
int late_calls = 0;

// Ignores the short waits of the header phase.
void cancel_late(void * /*user_data*/)
{
    if (milliseconds_since(body_test_start) < 5000)
        return;
    ++late_calls;
    web_cancel_requested = 1;
}

// In the body phase one wait lasts the whole time limit. The hook is called once, too late to
// cancel this transaction, so the next one is cancelled.
TEST_F(WebTransaction, SlowTimeoutInTheBodyDeliversTheHeaderAndCallsTheHookOnce)
{
    body_test_start = Clock::now();
    late_calls = 0;
    web_set_idle_hook(cancel_late, nullptr);
    check_timeout(holding_after(good_reply), timed_out(good_header));
    EXPECT_EQ(late_calls, 1);
    EXPECT_NE(web_cancel_requested, 0);
    check_reply_row({"the next one", {holding}, cancelled()});
}

TEST_F(WebTransaction, SlowTimeoutAfterAHeaderWithoutABody)
{
    check_timeout(holding_after("A: b\r\n\r\n"), timed_out("A: b\r\n\r"));
}

TEST_F(WebTransaction, SlowEachByteOfTheHeaderRestartsTheTimeLimit)
{
    check_reply_row({"4 s a byte", {reading, trickling("A\n\n", 4000)}, delivered("A\n", "")});
}

TEST_F(WebTransaction, SlowEachChunkOfTheBodyRestartsTheTimeLimit)
{
    const PeerScript script = {reading,      sending("A\n\n"), pausing(6000),
                               sending("x"), pausing(6000),    sending("y")};
    check_reply_row({"6 s a chunk", script, delivered("A\n", "xy")});
}

} // namespace
} // namespace quintral
