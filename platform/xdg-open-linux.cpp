// Two processes stand between the caller and what it opens. The watcher, a child of the caller,
// starts the opener, which becomes xdg-open; it reports through a pipe how the opener ended and
// ends itself after a second at the latest. So the caller can always wait for its own child, an
// opener that works on is nobody's zombie, and a host that has SIGCHLD ignored or waits for every
// child itself takes no status away: the pipe has it. A watcher that does not come to its end, as
// one that somebody has stopped, is ended by the caller.
#include "platform/xdg-open-linux.h"

#include "platform/path-linux.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <paths.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace quintral {
namespace {

constexpr unsigned patience_seconds = 1;
constexpr std::int64_t watcher_milliseconds = 1250; // for the second and for what starts the opener
constexpr std::int32_t not_opened = -1;
constexpr std::int32_t still_at_work = 0;

// Everything that the opener needs, found before the fork.
struct Launch {
    const char *program;
    char *const *arguments;
    char *const *environment;
};

// What the watcher tells the caller.
struct Report {
    std::int32_t status;
    std::int32_t is_last;
};

// From here to run_watcher: what runs in copies of a host that may have many threads, any of which
// may have held a lock. Async-signal-safe calls only, and fork, whose handlers are the host's own.

constexpr int report_descriptor = 3; // where the watcher keeps its end of the pipe

// A pipe takes a record of this size whole, and an empty one always has room for the three.
void send_report(const Report &report)
{
    static_cast<void>(!write(report_descriptor, &report, sizeof report));
}

void end_watcher(int)
{
    send_report({still_at_work, true});
    _exit(0);
}

// Every signal is blocked at this time and stays so, save SIGALRM while the watcher waits.
void settle_signals()
{
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number)
        sigaction(number, &action, nullptr); // fails for SIGKILL and SIGSTOP, which is well
    action.sa_handler = end_watcher;
    sigaction(SIGALRM, &action, nullptr);
}

void set_blocked_signals(const sigset_t *signals)
{
    sigprocmask(SIG_SETMASK, signals, nullptr);
}

// The names are numbers, "." and ".." apart.
void close_listed(const char *name, int first, int list)
{
    int number = 0;
    for (; *name >= '0' && *name <= '9'; ++name)
        number = number * 10 + (*name - '0');
    if (number >= first && number != list)
        close(number);
}

bool close_by_list(int first)
{
    const int list = open("/proc/self/fd", O_RDONLY | O_DIRECTORY);
    if (list < 0)
        return false;
    alignas(dirent64) char entries[2048];
    ssize_t size = getdents64(list, entries, sizeof entries);
    for (; size > 0; size = getdents64(list, entries, sizeof entries)) {
        for (ssize_t at = 0; at < size;) {
            const auto *entry = reinterpret_cast<const dirent64 *>(entries + at);
            close_listed(entry->d_name, first, list);
            at += entry->d_reclen;
        }
    }
    close(list);
    return size == 0;
}

// Kernels before 5.9 and some sandboxes have no close_range.
bool close_descriptors_from(int first)
{
    return syscall(SYS_close_range, first, ~0U, 0) == 0 || close_by_list(first);
}

bool take_report_end(int report)
{
    if (report == report_descriptor)
        return true;
    if (dup2(report, report_descriptor) < 0)
        return false;
    close(report);
    return true;
}

bool detach_streams()
{
    const int null_device = open("/dev/null", O_RDWR);
    if (null_device < 0)
        return false;
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        if (dup2(null_device, stream) < 0)
            return false;
    }
    if (null_device > STDERR_FILENO)
        close(null_device);
    return true;
}

// The host's other descriptors go before the new ones come: it may have used up its limit. It also
// waits for the end of files that a watcher would hold open.
bool settle_descriptors(int report)
{
    return take_report_end(report) && close_descriptors_from(report_descriptor + 1) &&
           detach_streams();
}

// Becomes xdg-open. Where that fails the opener ends by a signal, which no exit status looks like.
[[noreturn]] void run_opener(const Launch &launch)
{
    close(report_descriptor);
    sigset_t none;
    sigemptyset(&none);
    set_blocked_signals(&none);
    execve(launch.program, launch.arguments, launch.environment);
    kill(getpid(), SIGKILL);
    _exit(127);
}

// The alarm ends the wait, and the watcher with it, by end_watcher.
void watch_opener(pid_t opener)
{
    send_report({still_at_work, false});
    sigset_t all_but_alarm;
    sigfillset(&all_but_alarm);
    sigdelset(&all_but_alarm, SIGALRM);
    set_blocked_signals(&all_but_alarm);
    int status = 0;
    if (waitpid(opener, &status, 0) == opener)
        send_report({WIFEXITED(status) ? WEXITSTATUS(status) : not_opened, true});
}

[[noreturn]] void run_watcher(const Launch &launch, int report)
{
    setsid();
    settle_signals();
    alarm(patience_seconds);
    if (!settle_descriptors(report))
        _exit(0);
    const pid_t opener = fork();
    if (opener == 0)
        run_opener(launch);
    if (opener > 0)
        watch_opener(opener);
    _exit(0);
}

// From here on: the caller.

// Signals are blocked over the fork, so that none of the host's handlers runs in the watcher.
pid_t start_watcher(const Launch &launch, int report)
{
    sigset_t all;
    sigset_t own;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &own);
    const pid_t watcher = fork();
    if (watcher == 0)
        run_watcher(launch, report);
    pthread_sigmask(SIG_SETMASK, &own, nullptr);
    return watcher;
}

std::int64_t milliseconds_now()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// True when there may be something to read, false when the time is over.
bool wait_for_report(int descriptor, std::int64_t deadline)
{
    for (;;) {
        const std::int64_t left = deadline - milliseconds_now();
        if (left <= 0)
            return false;
        pollfd waiting = {descriptor, POLLIN, 0};
        const int ready = poll(&waiting, 1, static_cast<int>(left));
        if (ready >= 0 || errno != EINTR)
            return ready > 0;
    }
}

// The status of the last report that comes. The end of the pipe alone would not do: a process that
// another thread of the host forked at the same time may hold a copy of the writing end.
std::int32_t await_status(int descriptor)
{
    const std::int64_t deadline = milliseconds_now() + watcher_milliseconds;
    Report report = {not_opened, false};
    while (report.is_last == 0 && wait_for_report(descriptor, deadline)) {
        if (read(descriptor, &report, sizeof report) != sizeof report)
            break; // the watcher is gone
    }
    return report.status;
}

// A watcher that is no child of the host any more has been waited for by the host itself, and its
// number may be another process's.
void end_and_reap(pid_t watcher)
{
    siginfo_t state = {};
    if (waitid(P_PID, static_cast<id_t>(watcher), &state, WEXITED | WNOHANG | WNOWAIT) == 0)
        kill(watcher, SIGKILL);
    while (waitpid(watcher, nullptr, 0) < 0 && errno == EINTR) {
    }
}

// True with the program's path where the folder is absolute and holds it.
bool find_in_folder(const char *folder, std::size_t length, char *program, std::size_t capacity)
{
    if (folder[0] != '/' || length >= capacity)
        return false;
    char terminated[PATH_MAX];
    std::memcpy(terminated, folder, length);
    terminated[length] = '\0';
    return join_path(program, capacity, terminated, "xdg-open") && is_program(program);
}

bool find_xdg_open(char *program, std::size_t capacity)
{
    const char *folder = std::getenv("PATH");
    if (folder == nullptr)
        folder = _PATH_DEFPATH;
    for (;;) {
        const std::size_t length = std::strcspn(folder, ":");
        if (find_in_folder(folder, length, program, capacity))
            return true;
        if (folder[length] == '\0')
            return false;
        folder += length + 1;
    }
}

} // namespace

std::int32_t platform_xdg_open(const char *argument)
{
    char program[PATH_MAX];
    if (!find_xdg_open(program, sizeof program))
        return not_opened;
    char *const arguments[] = {program, const_cast<char *>(argument), nullptr};
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        return not_opened;
    const pid_t watcher = start_watcher({program, arguments, environ}, ends[1]);
    close(ends[1]);
    const std::int32_t status = watcher > 0 ? await_status(ends[0]) : not_opened;
    if (watcher > 0)
        end_and_reap(watcher);
    close(ends[0]);
    return status;
}

} // namespace quintral
