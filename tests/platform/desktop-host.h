// A host program for the tests of opening in the desktop on Linux. Each call is made in a child
// process, the host, because much depends on the host's signals, descriptors and children, which
// the call must leave as they are.
//
//     const FakeDesktop desktop;
//     EXPECT_EQ(status_in_host(desktop, address_opener("exit:3")), 3);
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
using Open = std::function<std::int32_t()>; // a call that opens something; returns its status
using Settings = std::vector<std::pair<std::string, std::string>>; // environment variables

// What a host and its copies report to the test, in memory that they share.
struct Findings {
    std::int32_t status;
    int milliseconds;
    std::chrono::nanoseconds asked;        // for a call that is only a part of what the host does
    bool childless;                        // no child of the host is left, ended or not
    bool descriptors_kept;                 // as many are open as before
    bool signals_kept;                     // the actions and the blocked signals are as before
    std::atomic<int> handled_by_strangers; // signals whose handler ran in a copy of the host
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

// Does nothing in the host before the call.
void prepare_nothing();

// Calls `open` in a host that first calls `prepare`. Whatever is opened, the host must not keep
// anything of it.
void ask_in_host(const Settings &environment, const std::function<void()> &prepare,
                 const Open &open, Findings *findings);

// The same on a fake desktop. Returns the status; what the recorder saw is in the desktop's record.
std::int32_t status_in_host(const FakeDesktop &desktop, const Open &open,
                            const std::function<void()> &prepare = prepare_nothing);

std::int32_t open_address(const std::string &address);

// Calls `open`, and calls it again if a busy machine took more than the second that is waited for a
// program that exits at once.
std::int32_t status_without_delay(const Open &open);

// A call that opens an address whose recorder exits within the second.
Open address_opener(const std::string &address);

// In a host: ends it with the status unless the condition holds.
void need(bool condition, int exit_status);

// In a host: sets the action of a signal.
void ignore_signal(int number);
void set_handler(int number, void (*handler)(int), int flags);

// The shortest of up to ten waits, since a busy machine may delay any of them. Stops at the first
// one below short_enough milliseconds.
int shortest_wait(const std::function<int()> &wait, int short_enough);

// What the program's calls of fork do. The C library's fork is replaced; a host has a copy of the
// record, and so has each process forked from it.
struct ForkScript {
    int calls = 0;
    int failing_call = 0;         // counted from 1; 0 for none
    bool signals_copy = false;    // SIGUSR1 is raised in the first copy before it does anything
    bool forks_bystander = false; // the host forks another process just before the first copy
    pid_t bystander = -1;
};

extern ForkScript fork_script;

} // namespace quintral::tests

#endif
