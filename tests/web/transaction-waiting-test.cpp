// How a transaction waits for data, with scripted calls: select, poll and the deadline.
#include "tests/harness/descriptors.h"
#include "tests/web/scripted-calls.h"
#include "web/transaction.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/select.h>

namespace quintral {
namespace {

using namespace tests;

// Waiting

TEST_F(WebTransactionUnderFaults, AWaitThatReportsAnotherDescriptorIsATimeout)
{
    stage.wait_lies = true;
    stage.arrivals = {{"A\n\nb"}};
    EXPECT_EQ(call_scripted(), timed_out());
    EXPECT_EQ(count_of_calls("recv 1"), 0);
    EXPECT_EQ(count_of_calls("close"), 1);
}

TEST_F(WebTransactionUnderFaults, AWaitThatFailsCallsTheHookAndWaitsAgain)
{
    int calls = 0;
    web_set_idle_hook(count_call, &calls);
    stage.wait_failures = 3;
    stage.arrivals = {{"A\n\nb"}};
    EXPECT_EQ(call_scripted(), delivered("A\n", "b"));
    EXPECT_EQ(calls, 3);

    stage.wait_failures = 3;
    stage.arrivals = {{"A\n\nb"}};
    web_cancel_requested = 1;
    EXPECT_EQ(call_scripted(), cancelled());
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(count_of_calls(header_wait), 1);
    EXPECT_EQ(web_cancel_requested, 0);
}

TEST_F(WebTransactionUnderFaults, TheFlagIsNotReadWhileDataArrives)
{
    stage.arrivals = {{"A\n\nb"}};
    web_cancel_requested = 1;
    EXPECT_EQ(call_scripted(), delivered("A\n", "b"));
    EXPECT_EQ(web_cancel_requested, 1);
    stage.arrivals = {{"A\n\nb", 0, 100 * millisecond + 1}};
    EXPECT_EQ(call_scripted(), cancelled());
    EXPECT_EQ(web_cancel_requested, 0);
}

TEST_F(WebTransactionUnderFaults, CancellingFromTheHookIsSeenAfterTheNextSilentWait)
{
    web_set_idle_hook(request_cancel, nullptr);
    stage.arrivals = {{"A\n\nb", 0, forever}};
    EXPECT_EQ(call_scripted(), cancelled());
    EXPECT_EQ(count_of_calls(header_wait), 2);
    EXPECT_EQ(stage.now - usual_time, 200 * millisecond);
    EXPECT_EQ(web_cancel_requested, 0);
}

// A descriptor that does not fit into an fd_set is polled, with the same waits.
TEST_F(WebTransactionUnderFaults, ADescriptorTooLargeForSelectIsPolled)
{
    constexpr int first_too_large = static_cast<int>(FD_SETSIZE);
    ASSERT_TRUE(allow_descriptors(FD_SETSIZE + 1)) << too_few_descriptors;
    const struct {
        int descriptor;
        std::string header_wait;
        std::string body_wait;
    } rows[] = {
        {first_too_large - 1, header_wait, body_wait},
        {first_too_large, "poll 100", "poll 10000"},
    };
    for (const auto &row : rows) {
        int hook_calls = 0;
        web_set_idle_hook(count_call, &hook_calls);
        stage.descriptor_at_least = row.descriptor;
        stage.wait_failures = 1;
        stage.arrivals = {
            {"A\n\n", 0, 150 * millisecond}, {"b", 0, 9999 * millisecond}, {"c", 0, forever}};
        EXPECT_EQ(call_scripted(), timed_out("A\n"));
        EXPECT_EQ(hook_calls, 3);
        const auto first = std::find(stage.calls.begin(), stage.calls.end(), row.header_wait);
        EXPECT_EQ(CallList(first, stage.calls.end()),
                  joined({times(2, {row.header_wait}),
                          times(3, {row.header_wait, "recv 1"}),
                          {row.body_wait, "recv 1023", row.body_wait, "close"}}))
            << "descriptor " << row.descriptor;
    }
}

// The clock counts milliseconds since 1050000000 in 32 bits, which wrap every 49.7 days.

struct ClockRow {
    const char *name;
    std::int64_t start; // microseconds since 1970
};

std::vector<ClockRow> clock_rows()
{
    const std::int64_t epoch = 1050000000 * second;
    const std::int64_t half = (std::int64_t{1} << 31) * millisecond;
    const std::int64_t whole = 2 * half;
    return {
        {"an ordinary time", usual_time},
        {"the clock is zero", epoch},
        {"three seconds before zero", epoch - 3 * second},
        {"1970", 0},
        {"three seconds before the sign changes", epoch + half - 3 * second},
        {"the sign changes at the deadline", epoch + half - 10 * second},
        {"the sign has changed", epoch + half},
        {"one microsecond before that", epoch + half - 1},
        {"three seconds before the first wrap", epoch + whole - 3 * second},
        {"the first wrap is the deadline", epoch + whole - 10 * second},
        {"the first wrap", epoch + whole},
        {"three seconds before a late change of sign", epoch + 150 * whole + half - 3 * second},
        {"three seconds before a late wrap", epoch + 166 * whole - 3 * second},
        {"the end of 32-bit time", (std::int64_t{1} << 31) * second - 60 * second},
    };
}

TEST_F(WebTransactionUnderFaults, TheTimeLimitIsTenSecondsAtAnyClockTime)
{
    for (const ClockRow &row : clock_rows()) {
        SCOPED_TRACE(row.name);
        int calls = 0;
        web_set_idle_hook(count_call, &calls);
        stage.now = row.start;
        stage.arrivals = {{"A", 0, forever}};
        EXPECT_EQ(call_scripted(), timed_out());
        EXPECT_EQ(stage.now - row.start, 10 * second);
        EXPECT_EQ(count_of_calls(header_wait), 100);
        EXPECT_EQ(calls, 100);

        stage.now = row.start;
        stage.arrivals = {{"A\n\nb"}, {"c", 0, forever}};
        EXPECT_EQ(call_scripted(), timed_out("A\n"));
        EXPECT_EQ(stage.now - row.start, 10 * second);
        EXPECT_EQ(count_of_calls(body_wait), 2);
        EXPECT_EQ(calls, 101);
    }
}

TEST_F(WebTransactionUnderFaults, ASilenceShorterThanTheLimitIsAllowedAtAnyClockTime)
{
    for (const ClockRow &row : clock_rows()) {
        SCOPED_TRACE(row.name);
        stage.now = row.start;
        stage.arrivals = {{"A", 0, 9999 * millisecond},
                          {"\n\n", 0, 9999 * millisecond},
                          {"b", 0, 9999 * millisecond},
                          {"c", 0, 9999 * millisecond}};
        EXPECT_EQ(call_scripted(), delivered("A\n", "bc"));
    }
}

// Only a limit of the program ends such a reply, whose total time is not limited.
TEST_F(WebTransactionUnderFaults, AByteEveryNineSecondsContinuesUpToTheReplyLimits)
{
    constexpr long limit = 1000;
    const struct {
        std::string start;
        std::string expected;
    } rows[] = {
        {"", header_too_long(limit)},
        {"A\n\n", body_too_long("A\n", limit)},
    };
    for (const auto &row : rows) {
        web_set_reply_limits(limit, limit);
        stage.now = usual_time;
        stage.arrivals.clear();
        if (!row.start.empty())
            stage.arrivals.push_back({row.start});
        for (long i = 0; i < limit + 10; ++i)
            stage.arrivals.push_back({"x", 0, 9 * second});
        EXPECT_EQ(call_scripted(), row.expected);
        EXPECT_EQ(stage.now - usual_time, (limit + 1) * 9 * second);
    }
}

TEST_F(WebTransactionUnderFaults, SettingTheClockMovesOnlyTheDeadline)
{
    const struct {
        std::int64_t jump;
        long waits; // in the header phase, until the timeout
    } rows[] = {
        {-5 * second, 150}, {-1 * millisecond, 101}, {-3600 * second, 36100},
        {5 * second, 50},   {10 * second, 1},        {3600 * second, 1},
    };
    for (const auto &row : rows) {
        stage.clock_jump = row.jump;
        stage.arrivals = {{"A", 0, forever}};
        EXPECT_EQ(call_scripted(), timed_out());
        EXPECT_EQ(count_of_calls(header_wait), row.waits) << row.jump;

        stage.clock_jump = row.jump;
        stage.arrivals = {{"A\n\n"}, {"b", 0, 2 * second}};
        EXPECT_EQ(call_scripted(), delivered("A\n", "b")) << row.jump;
    }
}

} // namespace
} // namespace quintral
