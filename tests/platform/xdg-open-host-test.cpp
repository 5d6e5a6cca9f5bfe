// Opening in the desktop on Linux: what the host program may do during the call, and what the call
// must not change in it. A recorder takes the place of xdg-open.
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

Findings *shared_findings = nullptr; // for the signal handlers
pid_t host = -1;

void count_if_in_copy(int)
{
    if (getpid() != host)
        ++shared_findings->handled_in_copies;
}

void wait_for_every_child(int signal_number)
{
    count_if_in_copy(signal_number);
    const int error = errno;
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    errno = error;
}

void count_signals_in_copies(Findings *findings)
{
    shared_findings = findings;
    host = getpid();
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction action = {};
        action.sa_handler = count_if_in_copy;
        sigaction(number, &action, nullptr);
    }
}

TEST(XdgOpenHost, MayReapAllChildrenItself)
{
    const FakeDesktop desktop;
    for (int i = 0; i < 10; ++i) {
        const SharedFindings findings;
        call_in_host(
            desktop.environment(),
            [&] {
                count_signals_in_copies(&*findings);
                set_handler(SIGCHLD, wait_for_every_child, i % 2 == 0 ? 0 : SA_RESTART);
            },
            url_opener("exit:3"), &*findings);
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
        EXPECT_EQ(status_in_host(desktop, url_opener("exit:3"), prepare), 3);
        EXPECT_EQ(status_in_host(desktop, url_opener("signal:9"), prepare), -1);
    }
    const SharedFindings findings;
    call_in_host(
        desktop.environment(), rows[0], [] { return open_url("sleep:"); }, &*findings);
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
                                 exit_unless(url_opener("exit:3")() == 3, 80);
                                 int status = 0;
                                 exit_unless(waitpid(other, &status, 0) == other, 81);
                                 return WEXITSTATUS(status);
                             }),
              5);
}

TEST(XdgOpenHost, MayBeInterruptedBySignalsThroughout)
{
    const FakeDesktop desktop;
    const SharedFindings findings;
    const auto start_interrupts = [&findings] {
        count_signals_in_copies(&*findings);
        itimerval timer = {{0, 1000}, {0, 1000}};
        exit_unless(setitimer(ITIMER_REAL, &timer, nullptr) == 0, 82);
    };
    call_in_host(
        desktop.environment(), start_interrupts, [] { return open_url("sleep:"); }, &*findings);
    EXPECT_EQ(findings->status, 0);
    EXPECT_GE(findings->milliseconds, 900);
    EXPECT_LT(findings->milliseconds, 4000);
    EXPECT_TRUE(end_recorder(desktop));
    call_in_host(desktop.environment(), start_interrupts, url_opener("exit:3"), &*findings);
    EXPECT_EQ(findings->status, 3);
}

// Each thread must get its own status. Returns one that a thread did not get, or 0.
std::int32_t call_from_threads()
{
    std::atomic<std::int32_t> wrong = 0;
    std::vector<std::thread> threads;
    for (int i = 1; i <= 4; ++i) {
        threads.emplace_back([i, &wrong] {
            for (int round = 0; round < 5; ++round) {
                const int expected = i * 10 + round;
                if (url_opener("exit:" + std::to_string(expected))() != expected)
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
    EXPECT_EQ(status_in_host(desktop, call_from_threads), 0);
}

// True if a pipe of the host reads as closed while another thread is still opening something.
bool pipe_ends_during_call()
{
    int ends[2] = {-1, -1};
    exit_unless(pipe(ends) == 0, 86);
    std::atomic<bool> is_open_running = true;
    std::thread opener([&is_open_running] {
        open_url("sleep:");
        is_open_running = false;
    });
    poll(nullptr, 0, 300);
    close(ends[1]);
    char byte = 0;
    exit_unless(read(ends[0], &byte, 1) == 0, 87);
    const bool ended_during_call = is_open_running;
    opener.join();
    close(ends[0]);
    return ended_during_call;
}

TEST(XdgOpenHost, HasNoDescriptorHeldOpenDuringTheCall)
{
    const FakeDesktop desktop;
    EXPECT_EQ(status_in_host(desktop, [] { return pipe_ends_during_call() ? 1 : 0; }), 1);
    EXPECT_TRUE(end_recorder(desktop));
}

TEST(XdgOpenHost, RunsNoSignalHandlerInAForkedCopy)
{
    const FakeDesktop desktop;
    const SharedFindings findings;
    call_in_host(
        desktop.environment(),
        [&] {
            count_signals_in_copies(&*findings);
            fork_script.signals_copy = true;
            fork_script.calls = 0;
        },
        url_opener("exit:3"), &*findings);
    EXPECT_EQ(findings->status, 3);
}

// A process that another thread forks during the call keeps both ends of the pipe open. Returns how
// long the call takes.
int milliseconds_with_a_bystander(const std::string &url, std::int32_t expected_status)
{
    const FakeDesktop desktop;
    const SharedFindings findings;
    call_in_host(
        desktop.environment(),
        [] {
            fork_script.forks_bystander = true;
            fork_script.calls = 0;
        },
        [&] {
            const auto start = Clock::now();
            const std::int32_t status = open_url(url);
            findings->call_time = Clock::now() - start;
            exit_unless(kill(fork_script.bystander, SIGKILL) == 0, 84);
            exit_unless(waitpid(fork_script.bystander, nullptr, 0) == fork_script.bystander, 85);
            return status;
        },
        &*findings);
    const int taken = static_cast<int>(findings->call_time.count() / 1000000);
    // After a second it counts as running, even if on a busy machine it has ended.
    EXPECT_EQ(findings->status, taken < 900 ? expected_status : 0);
    EXPECT_TRUE(url != "sleep:" || end_recorder(desktop));
    return taken;
}

TEST(XdgOpenHost, MayForkDuringTheCall)
{
    const auto ended = [] { return milliseconds_with_a_bystander("exit:3", 3); };
    EXPECT_LT(shortest_wait(ended, 900), 900) << "the recorder ends at once";
    const auto running = [] { return milliseconds_with_a_bystander("sleep:", 0); };
    EXPECT_LT(shortest_wait(running, 1200), 1200);
}

} // namespace
} // namespace quintral
