// Linked into every program of the coverage preset: writes the counters before a process ends in a
// way that skips the exit handlers. Without it, what a child runs before it calls _exit, or ends
// itself by a signal, would not count.
#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" void __gcov_dump();

namespace {

// A handler of a signal that interrupts the dump itself must not start it again: it holds locks.
volatile std::sig_atomic_t dumped = 0;

// Tests limit the size of the utility's files; the counters must still be written. A process that
// has given up its rights cannot write them, and must not say so on a stream that the test reads.
// Destructors run before the exit handler that writes the counters.
__attribute__((destructor)) void prepare_dump()
{
    const rlimit none = {RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &none);
    dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
}

void dump()
{
    if (dumped != 0)
        return;
    dumped = 1;
    prepare_dump();
    __gcov_dump();
}

int send_signal(pid_t process, int signal_number)
{
    return static_cast<int>(syscall(SYS_kill, process, signal_number));
}

} // namespace

extern "C" {

[[noreturn]] void _exit(int status)
{
    dump();
    for (;;)
        syscall(SYS_exit_group, status);
}

int raise(int signal_number) noexcept
{
    const int error_stream = dup(STDERR_FILENO);
    dump();
    dumped = 0; // the signal may be ignored or handled
    dup2(error_stream, STDERR_FILENO);
    close(error_stream);
    return static_cast<int>(syscall(SYS_tgkill, getpid(), gettid(), signal_number));
}

int kill(pid_t process, int signal_number) noexcept
{
    if (process == getpid())
        dump();
    return send_signal(process, signal_number);
}

[[noreturn]] void abort() noexcept
{
    dump();
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGABRT);
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
    raise(SIGABRT);
    std::signal(SIGABRT, SIG_DFL);
    raise(SIGABRT);
    _exit(127);
}

} // extern "C"
