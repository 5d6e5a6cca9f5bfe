// Many exchanges in one process, which must use no more memory and descriptors at the end than at
// the start. They run in a child process, because the peer keeps a record of each connection.
//
// The long test runs with --gtest_also_run_disabled_tests only.
#include "tests/harness/child-process.h"
#include "tests/harness/descriptors.h"
#include "tests/harness/loopback-peer.h"
#include "tests/web/transaction-calls.h"
#include "web/transaction.h"

#include <cstddef>
#include <cstdio>
#include <string>

#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

namespace quintral {
namespace {

using namespace tests;

constexpr int warm_up = 20;
constexpr long resident_tolerance = 1024; // KiB; the allocator may keep some free pages

struct Usage {
    std::size_t allocated; // bytes in use; 0 where a memory checker replaces the allocator
    std::size_t descriptors;
    long resident; // KiB
};

long resident_kibibytes()
{
    long total = 0;
    long resident = 0;
    std::FILE *const stream = std::fopen("/proc/self/statm", "r");
    const int found = stream == nullptr ? 0 : std::fscanf(stream, "%ld %ld", &total, &resident);
    if (stream != nullptr)
        std::fclose(stream);
    return found == 2 ? resident * (sysconf(_SC_PAGESIZE) / 1024) : -1;
}

Usage usage_now()
{
    const long resident = resident_kibibytes();
    return {mallinfo2().uordblks, open_descriptors(), resident};
}

bool run_exchanges(const std::string &url, int count)
{
    const std::string expected = good_outcome();
    for (int i = 0; i < count; ++i) {
        if (call_web({url, "POST", {{"product", "Sample"}}}) != expected)
            return false;
    }
    return true;
}

// Runs in the child. Prints what is used before and after, and returns 0 if that is flat.
int run_and_compare(const std::string &url, int count, bool compares_resident)
{
    if (!run_exchanges(url, warm_up))
        return 1;
    const Usage before = usage_now();
    if (!run_exchanges(url, count))
        return 2;
    const Usage after = usage_now();
    std::printf("allocated %zu to %zu bytes, resident %ld to %ld KiB, descriptors %zu to %zu\n",
                before.allocated, after.allocated, before.resident, after.resident,
                before.descriptors, after.descriptors);
    std::fflush(stdout);
    if (after.descriptors != before.descriptors)
        return 3;
    if (after.allocated != before.allocated)
        return 4;
    return compares_resident && after.resident > before.resident + resident_tolerance ? 5 : 0;
}

void check_endurance(int count, bool compares_resident)
{
    LoopbackPeer peer({answering(good_reply)});
    ChildOptions options;
    options.limit_seconds = 280;
    const ChildResult result = run_child_function(
        [&] { return run_and_compare(url_of(peer), count, compares_resident); }, options);
    EXPECT_EQ(result.exit_status, 0) << result.output << result.error;
    EXPECT_EQ(peer.connection_count(), warm_up + count);
    std::fputs(result.output.c_str(), stdout);
}

TEST_F(WebTransaction, FiveHundredExchangesUseNoMoreThanTwenty)
{
    check_endurance(500, false);
}

TEST_F(WebTransaction, DISABLED_TwentyThousandExchangesUseNoMoreThanTwenty)
{
    check_endurance(20000, true);
}

} // namespace
} // namespace quintral
