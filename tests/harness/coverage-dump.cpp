// Linked into the utility and the test programs of the preset coverage: writes the counters before
// a process ends in a way that skips the exit handlers. Without it, what a child runs before it
// calls _exit, or ends itself by a signal, would not count. The examples and the recorder of the
// desktop do not end so and do without it.
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

constexpr int limited_count = 3;
const int limited[limited_count] = {RLIMIT_FSIZE, RLIMIT_AS, RLIMIT_NOFILE};

// Tests limit the size of files, memory and descriptors (by soft limits); the counters must still
// be written. A process that has given up its rights cannot write them, and must not say so on a
// stream that the test reads. Destructors run before the exit handler that writes the counters.
__attribute__((destructor)) void prepare_dump()
{
    for (const int resource : limited) {
        rlimit limit = {};
        getrlimit(resource, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(resource, &limit);
    }
    const int null_device = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(null_device, STDERR_FILENO);
    if (null_device > STDERR_FILENO)
        close(null_device);
}

void dump()
{
    if (dumped != 0)
        return;
    dumped = 1;
    prepare_dump();
    __gcov_dump();
}

// For a process that sends itself a signal: it goes on as before if the signal is ignored or
// handled.
void dump_and_restore()
{
    rlimit limits[limited_count] = {};
    for (int i = 0; i < limited_count; ++i)
        getrlimit(limited[i], &limits[i]);
    const int error_stream = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    dump();
    dumped = 0;
    dup2(error_stream, STDERR_FILENO);
    close(error_stream >= 0 ? error_stream : STDERR_FILENO);
    for (int i = 0; i < limited_count; ++i)
        setrlimit(limited[i], &limits[i]);
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
    dump_and_restore();
    return static_cast<int>(syscall(SYS_tgkill, getpid(), gettid(), signal_number));
}

int kill(pid_t process, int signal_number) noexcept
{
    if (process == getpid())
        dump_and_restore();
    return static_cast<int>(syscall(SYS_kill, process, signal_number));
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
