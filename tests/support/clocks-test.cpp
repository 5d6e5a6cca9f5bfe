// Clocks and waits: exact values at a frozen time, the exact argument of nanosleep, real sleeps and
// signals.
#include "support/clocks.h"

#include "support/time-source.h"

#include <cerrno>
#include <cfloat>
#include <csignal>
#include <cstdint>
#include <limits>
#include <vector>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/time.h>

namespace quintral {
namespace {

timeval frozen_time;
std::vector<std::time_t> coming_times; // what time() returns, the last one again and again
std::size_t next_time;
int times_read;
timeval time_step; // added to the frozen time after each reading
std::vector<timespec> sleep_requests;
int sleep_result;

// Replaces the system's time and sleep by the values above.
class Clocks : public testing::Test {
protected:
    void SetUp() override
    {
        frozen_time = {};
        coming_times = {0};
        next_time = 0;
        time_step = {};
        sleep_requests.clear();
        sleep_result = 0;
        clock_last_stamp = -1;
        time_source.time_of_day = [] {
            // Not const, or g++ 12 puts frozen_time into read-only memory under AddressSanitizer.
            timeval now = frozen_time;
            timeradd(&now, &time_step, &frozen_time);
            return now;
        };
        time_source.time = [] {
            const std::time_t now = coming_times[next_time];
            ++times_read;
            if (next_time + 1 < coming_times.size())
                ++next_time;
            return now;
        };
        time_source.sleep = [](const timespec *request) {
            sleep_requests.push_back(*request);
            errno = EINTR;
            return sleep_result;
        };
    }

    void TearDown() override
    {
        time_source = saved_;
    }

private:
    TimeSource saved_ = time_source;
};

timeval time_at(std::int64_t seconds, int microseconds)
{
    timeval time = {};
    time.tv_sec = static_cast<std::time_t>(seconds);
    time.tv_usec = microseconds;
    return time;
}

TEST_F(Clocks, SecondsCountFrom1997WithMicroseconds)
{
    const struct {
        timeval now;
        double seconds;
    } rows[] = {
        {time_at(852076800, 0), 0}, // 1997-01-01 00:00:00 UTC
        {time_at(852076801, 500000), 1.5},
        {time_at(852076799, 0), -1},
        {time_at(852076799, 750000), -0.25},
        {time_at(0, 0), -852076800},
        {time_at(1795276800, 250000), 943200000.25},
        {time_at(852076800, 1), 1 * 0.000001},
        {time_at(852076800, 999999), 999999 * 0.000001},
    };
    for (const auto &row : rows) {
        frozen_time = row.now;
        EXPECT_EQ(clock_seconds(), row.seconds) << row.now.tv_sec << " s " << row.now.tv_usec;
        EXPECT_EQ(clock_last_stamp, -1) << "only clock_stamp writes it";
    }
}

TEST_F(Clocks, StampReturnsWholeSecondsAndKeepsTheFraction)
{
    const struct {
        timeval now;
        std::int32_t stamp;
        double kept;
    } rows[] = {
        {time_at(852076800, 0), 0, 0},
        {time_at(852076801, 500000), 1, 1.5},
        {time_at(852076801, 999999), 1, 1 + 999999 * 0.000001},
        {time_at(852076799, 750000), -1, -0.25},
        {time_at(1795276800, 250000), 943200000, 943200000.25},
        {time_at(0, 0), -852076800, -852076800},
    };
    for (const auto &row : rows) {
        frozen_time = row.now;
        EXPECT_EQ(clock_stamp(), row.stamp) << row.now.tv_sec << " s " << row.now.tv_usec;
        EXPECT_EQ(clock_last_stamp, row.kept) << row.now.tv_sec << " s " << row.now.tv_usec;
    }
}

TEST_F(Clocks, StampReadsTheTimeOnce)
{
    frozen_time = time_at(852076800 + 61, 900000);
    time_step = time_at(1, 300000);
    EXPECT_EQ(clock_stamp(), 61);
    EXPECT_EQ(clock_last_stamp, 61 + 900000 * 0.000001);
}

TEST_F(Clocks, StampWrapsAndTheKeptValueDoesNot)
{
    if (sizeof(std::time_t) < 8)
        GTEST_SKIP() << "a 32-bit time_t ends earlier";
    frozen_time = time_at(std::int64_t{852076800} + 2147483647, 0); // in 2065
    EXPECT_EQ(clock_stamp(), 2147483647);
    frozen_time = time_at(std::int64_t{852076800} + 2147483648, 500000);
    EXPECT_EQ(clock_stamp(), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(clock_last_stamp, 2147483648.5);
}

TEST_F(Clocks, MillisecondsCountFrom2003AndWrap)
{
    const struct {
        timeval now;
        std::uint32_t milliseconds;
    } rows[] = {
        {time_at(1050000000, 0), 0}, // 2003-04-10 18:40:00 UTC
        {time_at(1050000000, 999), 0},
        {time_at(1050000000, 1000), 1},
        {time_at(1050000000, 999999), 999},
        {time_at(1050000001, 500000), 1500},
        {time_at(1050000000 + 4294967, 295000), 4294967295U},
        {time_at(1050000000 + 4294967, 295999), 4294967295U},
        {time_at(1050000000 + 4294967, 296000), 0},
        {time_at(1049999999, 999000), 4294967295U},
        {time_at(1795276800, 250000), 2247458042U}, // 745276800250 modulo 2^32
        {time_at(0, 0), 2266987520U},               // -1050000000000 modulo 2^32
    };
    for (const auto &row : rows) {
        frozen_time = row.now;
        EXPECT_EQ(clock_milliseconds(), row.milliseconds)
            << row.now.tv_sec << " s " << row.now.tv_usec;
        EXPECT_EQ(clock_last_stamp, -1) << "only clock_stamp writes it";
    }
}

TEST_F(Clocks, MillisecondsCompareByUnsignedSubtractionAcrossTheWrap)
{
    frozen_time = time_at(1050000000 + 4294967, 0);
    const std::uint32_t start = clock_milliseconds();
    frozen_time = time_at(1050000000 + 4294968, 0);
    EXPECT_EQ(clock_milliseconds() - start, 1000U);
}

struct SleepRow {
    float seconds;
    std::int64_t whole;
    long nanoseconds;
};

TEST_F(Clocks, SleepIsRoundedToTheNearestMillisecond)
{
    const SleepRow rows[] = {
        {0.0F, 0, 0},
        {0.0004F, 0, 0},
        {0.0005F, 0, 1000000},
        {0.0006F, 0, 1000000},
        {0.001F, 0, 1000000},
        {0.0014F, 0, 1000000},
        {0.0016F, 0, 2000000},
        {0.9994F, 0, 999000000},
        {0.9996F, 1, 0},
        {1.0F, 1, 0},
        {1.5F, 1, 500000000},
        {2.25F, 2, 250000000},
        {3600.0F, 3600, 0},
        // a float of this size cannot hold all milliseconds
        {20000.001F, 20000, 2000000},
        {100000.5F, 100000, 496000000},
        // 2^24 + 1 milliseconds are not a float
        {16777.217F, 16777, 216000000},
        // the half is added to the product as a double
        {8388.609F, 8388, 609000000},
        {0.000499999966F, 0, 0},
        // values above -1.5 milliseconds round to 0
        {-0.0F, 0, 0},
        {-0.0001F, 0, 0},
        {-0.0005F, 0, 0},
        {-0.001F, 0, 0},
        {-0.0014F, 0, 0},
        {2147483.0F, 2147483, 8000000},
        {1000000000.0F, 999999995, 904000000},
    };
    for (const SleepRow &row : rows) {
        sleep_requests.clear();
        EXPECT_EQ(sleep_seconds(row.seconds), 0) << row.seconds;
        ASSERT_EQ(sleep_requests.size(), 1U) << row.seconds;
        EXPECT_EQ(sleep_requests[0].tv_sec, row.whole) << row.seconds;
        EXPECT_EQ(sleep_requests[0].tv_nsec, row.nanoseconds) << row.seconds;
    }
}

TEST_F(Clocks, SleepRejectsInvalidTimes)
{
    const float infinity = std::numeric_limits<float>::infinity();
    const float not_a_number = std::numeric_limits<float>::quiet_NaN();
    const float rows[] = {-0.0015F,      -0.0016F, -1,
                          -1.5F,         -1e30F,   -FLT_MAX,
                          -infinity,     infinity, not_a_number,
                          -not_a_number, FLT_MAX,  1e36F,
                          1e30F,         1e16F,    0x1.0624dep+53F}; // 2^63 milliseconds
    for (const float seconds : rows) {
        errno = 0;
        EXPECT_EQ(sleep_seconds(seconds), -1) << seconds;
        EXPECT_EQ(errno, EINVAL) << seconds;
        EXPECT_TRUE(sleep_requests.empty()) << seconds;
    }
}

TEST_F(Clocks, SleepRejectsTimesThatTheSystemCannotRepresent)
{
    const bool wide = sizeof(std::time_t) >= 8;
    EXPECT_EQ(sleep_seconds(2147483520.0F), 0); // 2147483510784 ms as a float
    EXPECT_EQ(sleep_seconds(2147483648.0F), wide ? 0 : -1);
    EXPECT_EQ(sleep_seconds(9e15F), wide ? 0 : -1);
    EXPECT_EQ(sleep_requests.size(), wide ? 3U : 1U);
}

TEST_F(Clocks, SleepReturnsTheSystemsResult)
{
    sleep_result = -1;
    EXPECT_EQ(sleep_seconds(1), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(sleep_requests.size(), 1U) << "an interrupted sleep is not resumed";
}

TEST_F(Clocks, WaitReadsTheTimeUntilItIsReached)
{
    const struct {
        std::vector<std::time_t> times;
        std::uint32_t seconds;
        std::time_t result;
        int read; // number of readings
    } rows[] = {
        {{100}, 0, 100, 2},
        {{100, 100}, 0, 100, 2},
        {{100, 101}, 0, 101, 2},
        {{100, 100, 101, 102, 103}, 2, 102, 4},
        {{100, 105, 106}, 2, 105, 2},         // a jump ends the wait
        {{100, 90, 95, 102, 103}, 2, 102, 4}, // setting the clock back extends it
        {{-5, -4, -3, -2}, 2, -3, 3},
    };
    for (const auto &row : rows) {
        coming_times = row.times;
        next_time = 0;
        times_read = 0;
        EXPECT_EQ(wait_seconds(row.seconds), row.result);
        EXPECT_EQ(times_read, row.read);
    }
}

long voluntary_switches()
{
    rusage usage = {};
    EXPECT_EQ(getrusage(RUSAGE_SELF, &usage), 0);
    return usage.ru_nvcsw;
}

// Each sleep would yield the processor once.
TEST_F(Clocks, WaitNeverSleeps)
{
    constexpr std::size_t readings = 2000;
    coming_times.assign(readings, 100);
    coming_times.push_back(101);
    const long before = voluntary_switches();
    EXPECT_EQ(wait_seconds(1), 101);
    EXPECT_LT(voluntary_switches() - before, static_cast<long>(readings / 10));
    EXPECT_TRUE(sleep_requests.empty());
}

TEST_F(Clocks, WaitComparesIn64Bits)
{
    if (sizeof(std::time_t) < 8)
        GTEST_SKIP() << "a 32-bit time_t ends earlier";
    const std::int64_t start = 2000000000;
    coming_times = {static_cast<std::time_t>(start), static_cast<std::time_t>(start + 1),
                    static_cast<std::time_t>(start + 4294967294),
                    static_cast<std::time_t>(start + 4294967295)};
    EXPECT_EQ(wait_seconds(4294967295U), start + 4294967295);
}

double system_now()
{
    timeval now = {};
    gettimeofday(&now, nullptr);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_usec) * 0.000001;
}

TEST(ClocksOfTheSystem, FollowTheTimeOfDay)
{
    const double before = system_now();
    const double seconds = clock_seconds();
    const std::int32_t stamp = clock_stamp();
    const double kept = clock_last_stamp;
    const std::uint32_t milliseconds = clock_milliseconds();
    const double after = system_now();
    EXPECT_LE(before - 852076800, seconds + 1e-6);
    EXPECT_LE(seconds, kept);
    EXPECT_LE(kept, after - 852076800 + 1e-6);
    EXPECT_EQ(stamp, static_cast<std::int32_t>(kept));
    const auto first = static_cast<std::uint64_t>((before - 1050000000) * 1000);
    const auto passed = milliseconds - static_cast<std::uint32_t>(first);
    EXPECT_LE(passed, static_cast<std::uint32_t>((after - before) * 1000 + 2));
}

// Several sleeps, so that the fraction of the second differs.
TEST(ClocksOfTheSystem, MillisecondsKeepPaceWithTheTimeOfDay)
{
    for (int i = 0; i < 5; ++i) {
        // A busy machine may delay any of the calls.
        const double before = system_now();
        const std::uint32_t start = clock_milliseconds();
        const double after_start = system_now();
        EXPECT_EQ(sleep_seconds(0.23F), 0);
        const double before_end = system_now();
        const std::uint32_t passed = clock_milliseconds() - start;
        EXPECT_GE(passed, (before_end - after_start) * 1000 - 50);
        EXPECT_LE(passed, (system_now() - before) * 1000 + 50);
        EXPECT_GE(passed, 200U); // less than the sleep, which another clock measures
    }
}

TEST(ClocksOfTheSystem, SleepForTheTimeGiven)
{
    const double before = system_now();
    EXPECT_EQ(sleep_seconds(0.05F), 0);
    EXPECT_GE(system_now() - before, 0.049);
}

TEST(ClocksOfTheSystem, SleepIsCutShortByASignal)
{
    struct sigaction action = {};
    struct sigaction old = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGALRM, &action, &old), 0);
    itimerval timer = {};
    timer.it_value.tv_usec = 50000;
    ASSERT_EQ(setitimer(ITIMER_REAL, &timer, nullptr), 0);
    const double before = system_now();
    errno = 0;
    EXPECT_EQ(sleep_seconds(20), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_LT(system_now() - before, 10);
    sigaction(SIGALRM, &old, nullptr);
}

TEST(ClocksOfTheSystem, WaitReturnsTheTime)
{
    const std::time_t before = std::time(nullptr);
    const std::time_t now = wait_seconds(0);
    EXPECT_LE(before, now);
    EXPECT_LE(now, std::time(nullptr));
    EXPECT_GE(wait_seconds(1), before + 1);
}

} // namespace
} // namespace quintral
