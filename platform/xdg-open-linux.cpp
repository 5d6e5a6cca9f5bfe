// Two processes are used. The watcher, a child of the caller, starts the opener, which becomes
// xdg-open. The watcher reports through a pipe how the opener ended, and exits after one second at
// the latest. So the caller can always wait for its own child, a long-running opener never becomes
// a zombie, and the exit status is not lost if the host ignores SIGCHLD or reaps all children,
// because it is sent through the pipe. A watcher that does not exit in time, for example because it
// was stopped, is killed by the caller.
#include "platform/xdg-open-linux.h"

#include "platform/path-linux.h"
#include "support/ascii.h"

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

constexpr unsigned opener_seconds = 1;
constexpr std::int64_t watcher_milliseconds = 1250; // the second, and the time to start the opener
constexpr std::int32_t not_opened = -1;
constexpr std::int32_t still_running = 0;

// Everything that the opener needs, prepared before the fork.
struct Launch {
    const char *program;
    char *const *arguments;
    char *const *environment;
};

// What the watcher sends to the caller.
struct Report {
    std::int32_t status;
    std::int32_t is_last;
};

// The code from here to run_watcher runs in forked copies of a host that may have many threads, any
// of which may have held a lock. It makes only async-signal-safe calls, and fork, whose handlers
// are the host's responsibility.

constexpr int report_descriptor = 3; // the watcher's end of the pipe

// Writing a record of this size to a pipe is atomic, and an empty pipe can always hold all three.
void send_report(const Report &report)
{
    static_cast<void>(!write(report_descriptor, &report, sizeof report));
}

void end_watcher(int)
{
    send_report({still_running, true});
    _exit(0);
}

// All signals are blocked here and stay blocked, except SIGALRM while the watcher waits.
void reset_signals()
{
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number)
        sigaction(number, &action, nullptr); // fails for SIGKILL and SIGSTOP, which is fine
    action.sa_handler = end_watcher;
    sigaction(SIGALRM, &action, nullptr);
}

void set_blocked_signals(const sigset_t *signals)
{
    pthread_sigmask(SIG_SETMASK, signals, nullptr);
}

// Closes the descriptor that an entry of /proc/self/fd names, if it is at least `first` and not the
// list itself. "." and ".." read as 0.
void close_listed(const char *name, int first, int list)
{
    const int number = ascii_to_int(name);
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
        for (ssize_t offset = 0; offset < size;) {
            const auto *entry = reinterpret_cast<const dirent64 *>(entries + offset);
            close_listed(entry->d_name, first, list);
            offset += entry->d_reclen;
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

bool move_report_end(int report)
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

// Closes the host's other descriptors before it opens new ones, because the host may have reached
// its limit. The host may also be waiting for the end of a file that the watcher would keep open.
bool reset_descriptors(int report)
{
    return move_report_end(report) && close_descriptors_from(report_descriptor + 1) &&
           detach_streams();
}

// Becomes xdg-open. If that fails, the opener kills itself, since any exit status could be that of
// xdg-open.
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

// The alarm ends the wait, and with it the watcher, in end_watcher.
void watch_opener(pid_t opener)
{
    send_report({still_running, false});
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
    reset_signals();
    alarm(opener_seconds);
    if (!reset_descriptors(report))
        _exit(0);
    const pid_t opener = fork();
    if (opener == 0)
        run_opener(launch);
    if (opener > 0)
        watch_opener(opener);
    _exit(0);
}

// The code from here on runs in the caller.

// Signals are blocked during the fork, so that none of the host's handlers runs in the watcher.
pid_t start_watcher(const Launch &launch, int report)
{
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    const pid_t watcher = fork();
    if (watcher == 0)
        run_watcher(launch, report);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    return watcher;
}

std::int64_t milliseconds_now()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// Returns true if there may be something to read, false when the deadline has passed.
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

// Returns the status of the last report. Waiting for the end of the pipe is not enough: a process
// forked at the same time by another thread of the host may have a copy of the write end.
std::int32_t await_status(int descriptor)
{
    const std::int64_t deadline = milliseconds_now() + watcher_milliseconds;
    Report report = {not_opened, false};
    while (report.is_last == 0 && wait_for_report(descriptor, deadline)) {
        if (read(descriptor, &report, sizeof report) != sizeof report)
            break; // the watcher has exited
    }
    return report.status;
}

// Kills the watcher only if it is still a child: otherwise the host itself has reaped it, and its
// process id may belong to another process.
void end_and_reap(pid_t watcher)
{
    siginfo_t state = {};
    if (waitid(P_PID, static_cast<id_t>(watcher), &state, WEXITED | WNOHANG | WNOWAIT) == 0)
        kill(watcher, SIGKILL);
    while (waitpid(watcher, nullptr, 0) < 0 && errno == EINTR) {
    }
}

// Returns true, with the program's path, if the folder is absolute and contains the program.
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
        const std::size_t length = ascii_length_before(folder, ":");
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
