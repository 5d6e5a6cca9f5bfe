#include "tests/platform/desktop-host.h"

#include "platform/platform.h"
#include "tests/harness/child-process.h"
#include "tests/harness/descriptors.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <new>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quintral::tests {

ForkScript fork_script;

namespace {

using Fork = pid_t (*)();

constexpr int bystander_milliseconds = 5000;

void start_bystander(Fork system_fork)
{
    fork_script.bystander = system_fork();
    if (fork_script.bystander != 0)
        return;
    poll(nullptr, 0, bystander_milliseconds);
    _exit(0);
}

pid_t scripted_fork(Fork system_fork)
{
    const bool is_first = ++fork_script.calls == 1;
    if (fork_script.calls == fork_script.failing_call) {
        errno = EAGAIN;
        return -1;
    }
    if (is_first && fork_script.forks_bystander)
        start_bystander(system_fork);
    const pid_t copy = system_fork();
    if (is_first && copy == 0 && fork_script.signals_copy)
        raise(SIGUSR1);
    return copy;
}

// A line for each signal: blocked or not, its handler and its flags.
std::string describe_signals()
{
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    std::string text;
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction action = {};
        sigaction(number, nullptr, &action);
        text += std::to_string(sigismember(&blocked, number)) + " " +
                std::to_string(reinterpret_cast<std::uintptr_t>(action.sa_handler)) + " " +
                std::to_string(action.sa_flags) + "\n";
    }
    return text;
}

bool has_no_child()
{
    return waitpid(-1, nullptr, WNOHANG | __WALL) == -1 && errno == ECHILD;
}

void run_host(const Open &open, Findings *findings)
{
    const std::size_t descriptors = open_descriptors();
    const std::string signals = describe_signals();
    const auto start = Clock::now();
    findings->status = open();
    const auto taken = Clock::now() - start;
    findings->milliseconds =
        static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(taken).count());
    findings->childless = has_no_child();
    findings->descriptors_kept = open_descriptors() == descriptors;
    findings->signals_kept = describe_signals() == signals;
}

} // namespace

SharedFindings::SharedFindings()
{
    void *memory =
        mmap(nullptr, sizeof(Findings), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        std::abort();
    findings_ = new (memory) Findings();
    findings_->status = -999; // none of the outcomes
}

SharedFindings::~SharedFindings()
{
    munmap(findings_, sizeof *findings_);
}

void prepare_nothing()
{
}

void call_in_host(const Settings &environment, const std::function<void()> &prepare,
                  const Open &open, Findings *findings)
{
    ChildOptions options;
    options.environment = environment;
    const ChildResult result = run_child_function(
        [&] {
            prepare();
            run_host(open, findings);
            return 0;
        },
        options);
    EXPECT_EQ(result.exit_status, 0) << result.error;
    EXPECT_TRUE(findings->childless);
    EXPECT_TRUE(findings->descriptors_kept);
    EXPECT_TRUE(findings->signals_kept);
    EXPECT_EQ(findings->handled_in_copies, 0);
}

std::int32_t status_in_host(const FakeDesktop &desktop, const Open &open,
                            const std::function<void()> &prepare)
{
    const SharedFindings findings;
    call_in_host(desktop.environment(), prepare, open, &*findings);
    return findings->status;
}

std::int32_t open_url(const std::string &url)
{
    return platform_open_url(url.data(), url.size());
}

std::int32_t status_without_delay(const Open &open)
{
    std::int32_t status = 0;
    for (int i = 0; i < 5; ++i) {
        const auto start = Clock::now();
        status = open();
        if (status != 0 || Clock::now() - start < std::chrono::milliseconds(900))
            break;
    }
    return status;
}

Open url_opener(const std::string &url)
{
    return [url] { return status_without_delay([&url] { return open_url(url); }); };
}

void exit_unless(bool condition, int exit_status)
{
    if (!condition)
        _exit(exit_status);
}

void ignore_signal(int number)
{
    std::signal(number, SIG_IGN);
}

void set_handler(int number, void (*handler)(int), int flags)
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    exit_unless(sigaction(number, &action, nullptr) == 0, 75);
}

int shortest_wait(const std::function<int()> &wait, int short_enough)
{
    int shortest = wait();
    for (int i = 0; i < 9 && shortest >= short_enough; ++i)
        shortest = std::min(shortest, wait());
    return shortest;
}

} // namespace quintral::tests

// Takes precedence over the C library's fork.
extern "C" pid_t fork() noexcept
{
    using quintral::tests::Fork;
    static const auto system_fork = reinterpret_cast<Fork>(dlsym(RTLD_NEXT, "fork"));
    return quintral::tests::scripted_fork(system_fork);
}
