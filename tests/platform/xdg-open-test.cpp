// Opening in the desktop on Linux: how xdg-open is started and which status the caller gets. A
// recorder takes the place of xdg-open.
#include "tests/harness/fake-desktop.h"
#include "tests/harness/refused-call.h"
#include "tests/platform/desktop-host.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <functional>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace quintral {
namespace {

using namespace tests;

TEST(XdgOpenStatus, IsTheExitStatus)
{
    const FakeDesktop desktop;
    for (const int status : {0, 1, 2, 3, 4, 9, 126, 127, 128, 137, 255}) {
        const std::string url = "exit:" + std::to_string(status);
        EXPECT_EQ(status_in_host(desktop, url_opener(url)), status);
    }
}

TEST(XdgOpenStatus, IsMinus1IfASignalEndedXdgOpen)
{
    const FakeDesktop desktop;
    for (const int number : {SIGHUP, SIGKILL, SIGPIPE, SIGALRM, SIGTERM, SIGRTMAX}) {
        const std::string url = "signal:" + std::to_string(number);
        EXPECT_EQ(status_in_host(desktop, url_opener(url)), -1) << number;
    }
}

TEST(XdgOpenStatus, IsTheExitStatusIfItComesWithinOneSecond)
{
    const FakeDesktop desktop;
    EXPECT_EQ(status_in_host(desktop, url_opener("late:3")), 3);
}

// Opens a URL whose recorder keeps running. Returns how long the call took.
int milliseconds_of_a_wait(const std::string &url)
{
    const FakeDesktop desktop;
    const SharedFindings findings;
    call_in_host(
        desktop.environment(), prepare_nothing, [&] { return open_url(url); }, &*findings);
    EXPECT_EQ(findings->status, 0);
    EXPECT_GE(findings->milliseconds, 900);
    EXPECT_TRUE(end_recorder(desktop)) << "the recorder should still be running";
    return findings->milliseconds;
}

TEST(XdgOpenStatus, Is0IfXdgOpenIsStillRunningAfterOneSecond)
{
    const auto wait = [] { return milliseconds_of_a_wait("sleep:"); }; // for 8 seconds
    EXPECT_LT(shortest_wait(wait, 1200), 1200);
}

TEST(XdgOpenStatus, Is0EvenIfXdgOpenStopsItsParent)
{
    const auto wait = [] { return milliseconds_of_a_wait("stop:"); };
    EXPECT_LT(shortest_wait(wait, 1700), 1700);
}

// The start of xdg-open

const char *const nothing_inherited = "descriptors: 0 1 2\n"
                                      "stream: /dev/null\nstream: /dev/null\nstream: /dev/null\n"
                                      "blocked: 0000000000000000\nignored: 0000000000000000\n";

void expect_clean_start(const std::function<void()> &prepare)
{
    const FakeDesktop desktop;
    const auto prepare_in_folder = [&] {
        exit_unless(chdir(desktop.path("bin").c_str()) == 0, 70);
        prepare();
    };
    EXPECT_EQ(status_in_host(desktop, url_opener("exit:7"), prepare_in_folder), 7);
    const std::string record = desktop.record();
    const std::string settings = "folder: " + desktop.path("bin") + "\nmark: own mark\n";
    const std::string expected = nothing_inherited + settings;
    EXPECT_EQ(record.substr(0, expected.size()), expected);
    EXPECT_NE(record_value(record, "session"), std::to_string(getsid(0))); // which the host has too
    EXPECT_NE(record_value(record, "group"), std::to_string(getpgrp()));
}

void open_many_descriptors()
{
    for (int i = 0; i < 500; ++i)
        exit_unless(dup(STDERR_FILENO) >= 0, 71); // not close-on-exec
}

void refuse(const RefusedCall &call)
{
    exit_unless(refuse_call(call), 73);
}

void refuse_close_range()
{
    refuse({SYS_close_range, EPERM});
    exit_unless(syscall(SYS_close_range, 2000, 2000, 0) != 0, 74);
}

void block_all_signals()
{
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
}

TEST(XdgOpenStart, InheritsNoDescriptor)
{
    expect_clean_start(prepare_nothing);
    expect_clean_start(open_many_descriptors);
}

TEST(XdgOpenStart, InheritsNoDescriptorWithoutCloseRange)
{
    expect_clean_start(refuse_close_range);
    expect_clean_start([] {
        refuse_close_range();
        open_many_descriptors();
    });
}

TEST(XdgOpenStart, HasTheNullDeviceForClosedStreams)
{
    for (int closed = 1; closed < 8; ++closed) {
        SCOPED_TRACE(closed); // a bit for each stream
        expect_clean_start([closed] {
            for (const int stream : {0, 1, 2}) {
                if ((closed & 1 << stream) != 0)
                    close(stream);
            }
        });
    }
    expect_clean_start([] {
        for (int number = 0; number < 100; ++number)
            close(number);
    });
}

TEST(XdgOpenStart, InheritsNoDescriptorIfThePipeHasTheNumberOfTheReports)
{
    expect_clean_start([] {
        close(STDIN_FILENO);
        close(3);
    });
}

TEST(XdgOpenStart, InheritsNoBlockedOrIgnoredSignal)
{
    expect_clean_start(block_all_signals);
    expect_clean_start([] {
        for (int number = 1; number < NSIG; ++number)
            ignore_signal(number);
    });
    expect_clean_start([] {
        block_all_signals();
        for (const int number : {SIGCHLD, SIGALRM, SIGPIPE})
            ignore_signal(number);
    });
}

TEST(XdgOpenStart, FailsIfDescriptorsCannotBeClosed)
{
    const FakeDesktop desktop;
    EXPECT_EQ(status_in_host(desktop, url_opener("exit:7"),
                             [] {
                                 refuse_close_range();
                                 refuse({SYS_getdents64, EPERM});
                             }),
              -1);
    EXPECT_EQ(desktop.record(), "");
}

#if defined(SYS_dup2)
constexpr unsigned duplicate_call = SYS_dup2;
#else
constexpr unsigned duplicate_call = SYS_dup3;
#endif

TEST(XdgOpenStart, FailsIfADescriptorCannotBePrepared)
{
    constexpr unsigned how = O_ACCMODE | O_CREAT | O_DIRECTORY;
    const RefusedCall rows[] = {
        {SYS_openat, EACCES, 2, how, O_RDWR},                 // the null device
        {SYS_openat, EACCES, 2, how, O_RDONLY | O_DIRECTORY}, // the list of descriptors
        {duplicate_call, EBUSY, 1, ~0U, 3},                   // the end of the pipe
        {duplicate_call, EBUSY, 1, ~0U, STDOUT_FILENO},
    };
    for (const RefusedCall &row : rows) {
        const FakeDesktop desktop;
        EXPECT_EQ(status_in_host(desktop, url_opener("exit:7"),
                                 [&row] {
                                     refuse_close_range();
                                     refuse(row);
                                 }),
                  -1)
            << row.number << " " << row.value;
        EXPECT_EQ(desktop.record(), "");
    }
}

TEST(XdgOpenStart, FailsIfAForkFails)
{
    for (const int number : {1, 2}) {
        const FakeDesktop desktop;
        EXPECT_EQ(status_in_host(desktop, url_opener("exit:7"),
                                 [number] {
                                     fork_script.calls = 0;
                                     fork_script.failing_call = number;
                                 }),
                  -1)
            << number;
        EXPECT_EQ(desktop.record(), "");
    }
}

// The fork handler may wait for something that exists only in the host.
TEST(XdgOpenStart, FailsIfAForkHandlerOfTheHostBlocks)
{
    const FakeDesktop desktop;
    const SharedFindings findings;
    static pid_t host;
    call_in_host(
        desktop.environment(),
        [] {
            host = getpid();
            const auto wait_in_copies = [] {
                while (getpid() != host)
                    poll(nullptr, 0, 10000);
            };
            exit_unless(pthread_atfork(wait_in_copies, nullptr, nullptr) == 0, 84);
        },
        [] { return open_url("exit:7"); }, &*findings);
    EXPECT_EQ(findings->status, -1);
    EXPECT_LT(findings->milliseconds, 4000);
    EXPECT_EQ(desktop.record(), "");
}

// Opens descriptors until only `count` more are allowed.
void leave_descriptors(int count)
{
    constexpr rlim_t limit = 64;
    rlimit descriptors = {};
    getrlimit(RLIMIT_NOFILE, &descriptors);
    descriptors.rlim_cur = limit;
    exit_unless(setrlimit(RLIMIT_NOFILE, &descriptors) == 0, 76);
    int last = 0;
    for (int number = 0; number >= 0; number = dup(STDERR_FILENO))
        last = std::max(last, number);
    for (int i = 0; i < count; ++i)
        close(last - i);
}

TEST(XdgOpenStart, FailsIfTheHostHasNoDescriptorsLeftForThePipe)
{
    for (const int count : {0, 1}) {
        const FakeDesktop desktop;
        EXPECT_EQ(
            status_in_host(desktop, url_opener("exit:7"), [count] { leave_descriptors(count); }),
            -1);
        EXPECT_EQ(desktop.record(), "");
    }
}

TEST(XdgOpenStart, NeedsOnlyTheTwoDescriptorsOfThePipe)
{
    expect_clean_start([] { leave_descriptors(2); });
    expect_clean_start([] {
        refuse_close_range();
        leave_descriptors(2);
    });
}

TEST(XdgOpenStart, FailsIfTheUrlIsTooLongForAnArgument)
{
    const FakeDesktop desktop;
    EXPECT_EQ(status_in_host(desktop, url_opener("exit:" + std::string(200000, '0'))), -1);
    EXPECT_EQ(desktop.record(), "");
}

} // namespace
} // namespace quintral
