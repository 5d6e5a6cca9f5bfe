// Opening in the desktop on Linux: what the host program keeps and may do meanwhile. A recorder
// takes the place of xdg-open.
#include "tests/harness/fake-desktop.h"
#include "tests/platform/desktop-host.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quintral {
namespace {

using namespace tests;

// The host

Findings *shared_findings = nullptr; // for the handlers
pid_t host = -1;

void count_strangers(int)
{
    if (getpid() != host)
        ++shared_findings->handled_by_strangers;
}

void wait_for_every_child(int signal_number)
{
    count_strangers(signal_number);
    const int error = errno;
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    errno = error;
}

void watch_for_strangers(Findings *findings)
{
    shared_findings = findings;
    host = getpid();
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction action = {};
        action.sa_handler = count_strangers;
        sigaction(number, &action, nullptr);
    }
}

TEST(XdgOpenHost, MayReapAllChildrenItself)
{
    const FakeDesktop desktop;
    for (int i = 0; i < 10; ++i) {
        const SharedFindings findings;
        ask_in_host(
            desktop.environment(),
            [&] {
                watch_for_strangers(&*findings);
                set_handler(SIGCHLD, wait_for_every_child, i % 2 == 0 ? 0 : SA_RESTART);
            },
            address_opener("exit:3"), &*findings);
        EXPECT_EQ(findings->status, 3);
    }
}

TEST(XdgOpenHost, MayIgnoreSigchld)
{
    const FakeDesktop desktop;
    const std::function<void()> rows[] = {
        [] { ignore_signal(SIGCHLD); },
        [] { set_handler(SIGCHLD, SIG_DFL, SA_NOCLDWAIT); },
    };
    for (const auto &prepare : rows) {
        EXPECT_EQ(status_in_host(desktop, address_opener("exit:3"), prepare), 3);
        EXPECT_EQ(status_in_host(desktop, address_opener("signal:9"), prepare), -1);
    }
    const SharedFindings findings;
    ask_in_host(
        desktop.environment(), rows[0], [] { return open_address("sleep:"); }, &*findings);
    EXPECT_EQ(findings->status, 0);
    EXPECT_LT(findings->milliseconds, 4000);
    EXPECT_TRUE(end_recorder(desktop));
}

TEST(XdgOpenHost, KeepsItsOtherChildren)
{
    const FakeDesktop desktop;
    EXPECT_EQ(status_in_host(desktop,
                             [] {
                                 const pid_t other = fork();
                                 if (other == 0)
                                     _exit(5);
                                 need(address_opener("exit:3")() == 3, 80);
                                 int status = 0;
                                 need(waitpid(other, &status, 0) == other, 81);
                                 return WEXITSTATUS(status);
                             }),
              5);
}

TEST(XdgOpenHost, MayBeInterruptedBySignalsThroughout)
{
    const FakeDesktop desktop;
    const SharedFindings findings;
    const auto start_interrupts = [&findings] {
        watch_for_strangers(&*findings);
        itimerval timer = {{0, 1000}, {0, 1000}};
        need(setitimer(ITIMER_REAL, &timer, nullptr) == 0, 82);
    };
    ask_in_host(
        desktop.environment(), start_interrupts, [] { return open_address("sleep:"); }, &*findings);
    EXPECT_EQ(findings->status, 0);
    EXPECT_GE(findings->milliseconds, 900);
    EXPECT_LT(findings->milliseconds, 4000);
    EXPECT_TRUE(end_recorder(desktop));
    ask_in_host(desktop.environment(), start_interrupts, address_opener("exit:3"), &*findings);
    EXPECT_EQ(findings->status, 3);
}

// Every thread's status is its own; the highest wrong one, or 0.
std::int32_t ask_from_threads()
{
    std::atomic<std::int32_t> wrong = 0;
    std::vector<std::thread> threads;
    for (int i = 1; i <= 4; ++i) {
        threads.emplace_back([i, &wrong] {
            for (int round = 0; round < 5; ++round) {
                const int expected = i * 10 + round;
                if (address_opener("exit:" + std::to_string(expected))() != expected)
                    wrong = expected;
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    return wrong;
}

TEST(XdgOpenHost, MayCallFromSeveralThreads)
{
    const FakeDesktop desktop;
    EXPECT_EQ(status_in_host(desktop, ask_from_threads), 0);
}

// The host waits for the end of what its other threads read, not for that of the second.
bool ends_while_asking()
{
    int ends[2] = {-1, -1};
    need(pipe(ends) == 0, 86);
    std::atomic<bool> asking = true;
    std::thread asker([&asking] {
        open_address("sleep:");
        asking = false;
    });
    poll(nullptr, 0, 300);
    close(ends[1]);
    char byte = 0;
    need(read(ends[0], &byte, 1) == 0, 87);
    const bool early = asking;
    asker.join();
    close(ends[0]);
    return early;
}

TEST(XdgOpenHost, HasNoDescriptorHeldOpenDuringTheCall)
{
    const FakeDesktop desktop;
    EXPECT_EQ(status_in_host(desktop, [] { return ends_while_asking() ? 1 : 0; }), 1);
    EXPECT_TRUE(end_recorder(desktop));
}

TEST(XdgOpenHost, RunsNoSignalHandlerInAForkedCopy)
{
    const FakeDesktop desktop;
    const SharedFindings findings;
    ask_in_host(
        desktop.environment(),
        [&] {
            watch_for_strangers(&*findings);
            fork_script.signals_copy = true;
            fork_script.calls = 0;
        },
        address_opener("exit:3"), &*findings);
    EXPECT_EQ(findings->status, 3);
}

// What another thread forks while the pipe is there holds both its ends, for as long as it likes.
// How long the host waits all the same.
int milliseconds_with_a_bystander(const std::string &address, std::int32_t expected_status)
{
    const FakeDesktop desktop;
    const SharedFindings findings;
    ask_in_host(
        desktop.environment(),
        [] {
            fork_script.forks_bystander = true;
            fork_script.calls = 0;
        },
        [&] {
            const auto start = Clock::now();
            const std::int32_t status = open_address(address);
            findings->asked = Clock::now() - start;
            need(kill(fork_script.bystander, SIGKILL) == 0, 84);
            need(waitpid(fork_script.bystander, nullptr, 0) == fork_script.bystander, 85);
            return status;
        },
        &*findings);
    const int taken = static_cast<int>(findings->asked.count() / 1000000);
    // Later it is taken for one at work, on a busy machine also where it has ended.
    EXPECT_EQ(findings->status, taken < 900 ? expected_status : 0);
    EXPECT_TRUE(address != "sleep:" || end_recorder(desktop));
    return taken;
}

TEST(XdgOpenHost, MayForkDuringTheCall)
{
    const auto ended = [] { return milliseconds_with_a_bystander("exit:3", 3); };
    EXPECT_LT(shortest_wait(ended, 900), 900) << "it ends at once";
    const auto at_work = [] { return milliseconds_with_a_bystander("sleep:", 0); };
    EXPECT_LT(shortest_wait(at_work, 1200), 1200);
}

} // namespace
} // namespace quintral
