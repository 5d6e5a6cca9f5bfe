// A host program for the tests of opening in the desktop on Linux. Each call is made in a child
// process, the host, because much depends on the host's signals, descriptors and children, which
// the call must leave as they are.
//
//     const FakeDesktop desktop;
//     EXPECT_EQ(status_in_host(desktop, url_opener("exit:3")), 3);
#ifndef QUINTRAL_TESTS_PLATFORM_DESKTOP_HOST_H
#define QUINTRAL_TESTS_PLATFORM_DESKTOP_HOST_H

#include "tests/harness/fake-desktop.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

namespace quintral::tests {

using Clock = std::chrono::steady_clock;
using Open = std::function<std::int32_t()>; // opens something and returns the status
using Settings = std::vector<std::pair<std::string, std::string>>; // environment variables

// What a host and its copies report to the test, in shared memory.
struct Findings {
    std::int32_t status;
    int milliseconds;
    std::chrono::nanoseconds call_time; // measured by a host that does more than the call
    bool childless;                     // no child of the host is left, ended or not
    bool descriptors_kept;              // the same number is open as before
    bool signals_kept;                  // the actions and the blocked signals are the same
    std::atomic<int> handled_in_copies; // signals whose handler ran in a forked copy
};

class SharedFindings {
public:
    SharedFindings();
    ~SharedFindings();
    SharedFindings(const SharedFindings &) = delete;
    SharedFindings &operator=(const SharedFindings &) = delete;

    Findings *operator->() const
    {
        return findings_;
    }

    Findings &operator*() const
    {
        return *findings_;
    }

private:
    Findings *findings_;
};

void prepare_nothing();

// Calls `open` in a host that first calls `prepare`. Checks that the call leaves the host without a
// child, and with the same descriptors and signal settings as before.
void call_in_host(const Settings &environment, const std::function<void()> &prepare,
                  const Open &open, Findings *findings);

// The same on a fake desktop. Returns the status; what the recorder saw is in the desktop's record.
std::int32_t status_in_host(const FakeDesktop &desktop, const Open &open,
                            const std::function<void()> &prepare = prepare_nothing);

std::int32_t open_url(const std::string &url);

// Calls `open`, which waits at most one second for its program. On a busy machine a program that
// exits at once may take longer; then `open` is called again.
std::int32_t status_without_delay(const Open &open);

// Opens a URL whose recorder exits within one second.
Open url_opener(const std::string &url);

// In a host: exits with the status unless the condition is true.
void exit_unless(bool condition, int exit_status);

// In a host: sets the action of a signal.
void ignore_signal(int number);
void set_handler(int number, void (*handler)(int), int flags);

// The shortest of up to ten waits, since a busy machine may delay any of them. Stops at the first
// one below short_enough milliseconds.
int shortest_wait(const std::function<int()> &wait, int short_enough);

// What the program's calls of fork do, since this replaces the C library's. A host has its own copy
// of the record, as has each process forked from it.
struct ForkScript {
    int calls = 0;
    int failing_call = 0;         // counted from 1; 0 for none
    bool signals_copy = false;    // the first copy starts by raising SIGUSR1
    bool forks_bystander = false; // another process is forked just before the first copy
    pid_t bystander = -1;
};

extern ForkScript fork_script;

} // namespace quintral::tests

#endif
