// Opening in the desktop on Linux: first what xdg-open is given and what becomes of it, with a
// recorder in its place; then the real one, with the recorder as the application that it finds.
//
// Each call is made in a process of its own, the host, since much depends on the host's signals,
// descriptors and children, which the call must leave alone.
#include "platform/platform.h"

#include "tests/harness/child-process.h"
#include "tests/harness/fake-desktop.h"
#include "tests/harness/temp-folder.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// What the calls of fork do, which are counted in this process and those that it comes from.
int forks = 0;
int failing_fork = 0;         // counted from 1; 0 for none
bool signals_copy = false;    // a signal meets the first copy before anything else happens there
bool forks_bystander = false; // somebody else forks just before the first one
pid_t bystander = -1;

constexpr int bystander_milliseconds = 5000;

using Fork = pid_t (*)();

void start_bystander(Fork system_fork)
{
    bystander = system_fork();
    if (bystander != 0)
        return;
    poll(nullptr, 0, bystander_milliseconds);
    _exit(0);
}

} // namespace

// Stands before the C library's.
extern "C" pid_t fork() noexcept
{
    static const auto system_fork = reinterpret_cast<Fork>(dlsym(RTLD_NEXT, "fork"));
    ++forks;
    if (forks == failing_fork) {
        errno = EAGAIN;
        return -1;
    }
    if (forks == 1 && forks_bystander)
        start_bystander(system_fork);
    const pid_t copy = system_fork();
    if (forks == 1 && copy == 0 && signals_copy)
        raise(SIGUSR1);
    return copy;
}

namespace quintral {
namespace {

using tests::ChildOptions;
using tests::ChildResult;
using tests::end_recorder;
using tests::FakeDesktop;
using tests::make_directory;
using tests::make_file;
using tests::make_link;
using tests::record_argument;
using tests::record_value;
using tests::run_child_function;
using tests::TempFolder;
using tests::wait_for_record;

using Clock = std::chrono::steady_clock;
using Open = std::function<std::int32_t()>;
using Settings = std::vector<std::pair<std::string, std::string>>;

// Hosts

// What a host and whatever it becomes tell the test, in memory that they share.
struct Findings {
    std::int32_t status;
    int milliseconds;
    std::chrono::nanoseconds asked;        // for a call that is only a part of what the host does
    bool childless;                        // no child of the host is left, ended or not
    bool descriptors_kept;                 // as many are open as before
    bool signals_kept;                     // the actions and the blocked signals are as before
    std::atomic<int> handled_by_strangers; // signals that a copy of the host took
};

class SharedFindings {
public:
    SharedFindings()
    {
        void *memory = mmap(nullptr, sizeof(Findings), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED)
            std::abort();
        findings_ = new (memory) Findings();
        findings_->status = -999; // none of the outcomes
    }

    ~SharedFindings()
    {
        munmap(findings_, sizeof *findings_);
    }

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

int count_descriptors()
{
    int count = 0;
    for (int number = 0; number < 2000; ++number)
        count += fcntl(number, F_GETFD) >= 0 ? 1 : 0;
    return count;
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

// The status, asked for again where a busy machine needed more than the second that is waited for
// an exit that should come at once.
std::int32_t settled_status(const Open &open)
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

void run_host(const Open &open, Findings *findings)
{
    const int descriptors = count_descriptors();
    const std::string signals = describe_signals();
    const auto start = Clock::now();
    findings->status = open();
    const auto taken = Clock::now() - start;
    findings->milliseconds =
        static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(taken).count());
    findings->childless = has_no_child();
    findings->descriptors_kept = count_descriptors() == descriptors;
    findings->signals_kept = describe_signals() == signals;
}

// Runs `open` in a host that first does what `prepare` says. Whatever is opened, nothing of it may
// stay behind in the host.
void ask_in_host(const Settings &environment, const std::function<void()> &prepare,
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
    EXPECT_EQ(findings->handled_by_strangers, 0);
}

void need(bool condition, int exit_status)
{
    if (!condition)
        _exit(exit_status);
}

void prepare_nothing()
{
}

// Asking it

std::int32_t open_address(const std::string &address)
{
    return platform_open_url(address.data(), address.size());
}

Open settled_address(const std::string &address)
{
    return [address] { return settled_status([&address] { return open_address(address); }); };
}

// The status that a host gets; what the recorder saw is in the desktop's record.
std::int32_t status_in_host(const FakeDesktop &desktop, const Open &open,
                            const std::function<void()> &prepare = prepare_nothing)
{
    const SharedFindings findings;
    ask_in_host(desktop.environment(), prepare, open, &*findings);
    return findings->status;
}

TEST(XdgOpenStatus, IsTheExitStatus)
{
    const FakeDesktop desktop;
    for (const int status : {0, 1, 2, 3, 4, 9, 126, 127, 128, 137, 255}) {
        const std::string address = "exit:" + std::to_string(status);
        EXPECT_EQ(status_in_host(desktop, settled_address(address)), status);
    }
}

TEST(XdgOpenStatus, IsMinus1WhereASignalEndedIt)
{
    const FakeDesktop desktop;
    for (const int number : {SIGHUP, SIGKILL, SIGPIPE, SIGALRM, SIGTERM, SIGRTMAX}) {
        const std::string address = "signal:" + std::to_string(number);
        EXPECT_EQ(status_in_host(desktop, settled_address(address)), -1) << number;
    }
}

TEST(XdgOpenStatus, IsThatOfAnExitWithinTheSecond)
{
    const FakeDesktop desktop;
    EXPECT_EQ(status_in_host(desktop, settled_address("late:3")), 3);
}

// Opens an address whose recorder stays at work; how long that took the host.
int milliseconds_of_a_wait(const std::string &address)
{
    const FakeDesktop desktop;
    const SharedFindings findings;
    ask_in_host(
        desktop.environment(), prepare_nothing, [&] { return open_address(address); }, &*findings);
    EXPECT_EQ(findings->status, 0);
    EXPECT_GE(findings->milliseconds, 900);
    EXPECT_TRUE(end_recorder(desktop)) << "it was to stay at work";
    return findings->milliseconds;
}

// The best of a few, since a busy machine may keep any of them waiting.
int shortest_wait(const std::function<int()> &wait, int short_enough)
{
    int shortest = wait();
    for (int i = 0; i < 9 && shortest >= short_enough; ++i)
        shortest = std::min(shortest, wait());
    return shortest;
}

TEST(XdgOpenStatus, Is0AfterASecondWhereItIsStillAtWork)
{
    const auto wait = [] { return milliseconds_of_a_wait("sleep:"); }; // for 8 seconds
    EXPECT_LT(shortest_wait(wait, 1200), 1200);
}

TEST(XdgOpenStatus, ComesAllTheSameWhereXdgOpenStopsWhoWatchesIt)
{
    const auto wait = [] { return milliseconds_of_a_wait("stop:"); };
    EXPECT_LT(shortest_wait(wait, 1700), 1700);
}

// Starting it

const char *const nothing_inherited = "descriptors: 0 1 2\n"
                                      "stream: /dev/null\nstream: /dev/null\nstream: /dev/null\n"
                                      "blocked: 0000000000000000\nignored: 0000000000000000\n";

void expect_clean_start(const std::function<void()> &prepare)
{
    const FakeDesktop desktop;
    const auto prepare_in_folder = [&] {
        need(chdir(desktop.path("bin").c_str()) == 0, 70);
        prepare();
    };
    EXPECT_EQ(status_in_host(desktop, settled_address("exit:7"), prepare_in_folder), 7);
    const std::string record = desktop.record();
    const std::string settings = "folder: " + desktop.path("bin") + "\nmark: own mark\n";
    const std::string expected = nothing_inherited + settings;
    EXPECT_EQ(record.substr(0, expected.size()), expected);
    EXPECT_NE(record_value(record, "session"), std::to_string(getsid(0))); // the host's too
    EXPECT_NE(record_value(record, "group"), std::to_string(getpgrp()));
}

void open_many_descriptors()
{
    for (int i = 0; i < 500; ++i)
        need(dup(STDERR_FILENO) >= 0, 71); // not close-on-exec
}

// Has the system refuse a call, as some sandboxes do, to this process and all that come from it.
void refuse_call(unsigned number)
{
    sock_filter instructions[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program = {sizeof instructions / sizeof instructions[0], instructions};
    need(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, 72);
    need(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0, 73);
}

void refuse_close_range()
{
    refuse_call(SYS_close_range);
    need(syscall(SYS_close_range, 2000, 2000, 0) != 0, 74);
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
    need(sigaction(number, &action, nullptr) == 0, 75);
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

TEST(XdgOpenStart, InheritsNoDescriptorWhereTheSystemCannotCloseThemAtOnce)
{
    expect_clean_start(refuse_close_range);
    expect_clean_start([] {
        refuse_close_range();
        open_many_descriptors();
    });
}

TEST(XdgOpenStart, HasTheNullDeviceForStreamsThatTheHostHasClosed)
{
    for (const int stream : {0, 1, 2})
        expect_clean_start([stream] { close(stream); });
    expect_clean_start([] {
        for (const int stream : {0, 1, 2})
            close(stream);
    });
    expect_clean_start([] {
        for (int number = 0; number < 100; ++number)
            close(number);
    });
}

TEST(XdgOpenStart, InheritsNoBlockedAndNoIgnoredSignal)
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

TEST(XdgOpenStart, IsMinus1WhereDescriptorsCannotBeClosed)
{
    const FakeDesktop desktop;
    EXPECT_EQ(status_in_host(desktop, settled_address("exit:7"),
                             [] {
                                 refuse_close_range();
                                 refuse_call(SYS_getdents64);
                             }),
              -1);
    EXPECT_EQ(desktop.record(), "");
}

TEST(XdgOpenStart, IsMinus1WhereAForkFails)
{
    for (const int number : {1, 2}) {
        const FakeDesktop desktop;
        EXPECT_EQ(status_in_host(desktop, settled_address("exit:7"),
                                 [number] {
                                     forks = 0;
                                     failing_fork = number;
                                 }),
                  -1)
            << number;
        EXPECT_EQ(desktop.record(), "");
    }
}

// A host's own handler of forks may wait for what there is only in the host.
TEST(XdgOpenStart, IsMinus1WhereAForkHandlerOfTheHostHoldsItUp)
{
    const FakeDesktop desktop;
    const SharedFindings findings;
    static pid_t host;
    ask_in_host(
        desktop.environment(),
        [] {
            host = getpid();
            const auto wait_in_copies = [] {
                while (getpid() != host)
                    poll(nullptr, 0, 10000);
            };
            need(pthread_atfork(wait_in_copies, nullptr, nullptr) == 0, 84);
        },
        [] { return open_address("exit:7"); }, &*findings);
    EXPECT_EQ(findings->status, -1);
    EXPECT_LT(findings->milliseconds, 4000);
    EXPECT_EQ(desktop.record(), "");
}

// Leaves room for so many descriptors before the limit is reached.
void leave_room(int room)
{
    constexpr rlim_t limit = 64;
    rlimit descriptors = {};
    getrlimit(RLIMIT_NOFILE, &descriptors);
    descriptors.rlim_cur = limit;
    need(setrlimit(RLIMIT_NOFILE, &descriptors) == 0, 76);
    int last = 0;
    for (int number = 0; number >= 0; number = dup(STDERR_FILENO))
        last = std::max(last, number);
    for (int i = 0; i < room; ++i)
        close(last - i);
}

TEST(XdgOpenStart, IsMinus1WhereTheHostHasNoRoomForItsPipe)
{
    for (const int room : {0, 1}) {
        const FakeDesktop desktop;
        EXPECT_EQ(status_in_host(desktop, settled_address("exit:7"), [room] { leave_room(room); }),
                  -1);
        EXPECT_EQ(desktop.record(), "");
    }
}

TEST(XdgOpenStart, NeedsNoMoreDescriptorsThanThoseOfThePipe)
{
    expect_clean_start([] { leave_room(2); });
    expect_clean_start([] {
        refuse_close_range();
        leave_room(2);
    });
}

TEST(XdgOpenStart, IsMinus1WhereTheAddressIsLongerThanAnArgumentMayBe)
{
    const FakeDesktop desktop;
    EXPECT_EQ(status_in_host(desktop, settled_address("exit:" + std::string(200000, '0'))), -1);
    EXPECT_EQ(desktop.record(), "");
}

// Finding it

std::string replace_first(std::string text, const std::string &what, const std::string &with)
{
    const std::size_t start = text.find(what);
    return start == std::string::npos ? text : text.replace(start, what.size(), with);
}

void make_program(const std::string &folder, const std::string &content, mode_t permissions)
{
    make_directory(folder);
    make_file(folder + "/xdg-open", content);
    EXPECT_EQ(chmod((folder + "/xdg-open").c_str(), permissions), 0);
}

// The hosts' working folder is bin, with the fake in it.
std::int32_t status_with_path(const FakeDesktop &desktop, const std::string &path)
{
    return status_in_host(desktop, settled_address("exit:7"), [&] {
        need(chdir(desktop.path("bin").c_str()) == 0, 77);
        setenv("PATH", replace_first(path, "ROOT", desktop.path("")).c_str(), 1);
    });
}

TEST(XdgOpenSearch, TakesTheFirstProgramInTheFoldersOfPath)
{
    const FakeDesktop desktop;
    make_program(desktop.path("plain"), "exit 1\n", 0644);
    make_directory(desktop.path("folder"));
    make_directory(desktop.path("folder/xdg-open"));
    make_program(desktop.path("other"), "#!/bin/sh\nexit 11\n", 0755);
    const std::string bin = desktop.path("bin");
    const struct {
        std::string path;
        int status;
    } rows[] = {
        {bin, 7},
        {bin + "/", 7},
        {"/missing:" + bin, 7},
        {":" + bin, 7},
        {bin + ":", 7},
        {".:" + bin, 7},
        {bin + ":" + desktop.path("other"), 7},
        {desktop.path("other") + ":" + bin, 11},
        {desktop.path("plain") + ":" + bin, 7},
        {desktop.path("folder") + ":" + bin, 7},
        {"/" + std::string(5000, 'n') + ":" + bin, 7},
        {"/" + std::string(4094, 'n') + ":" + bin, 7},
        {"/" + std::string(4085, 'n') + ":" + bin, 7},
    };
    for (const auto &row : rows)
        EXPECT_EQ(status_with_path(desktop, row.path), row.status) << row.path.substr(0, 200);
}

TEST(XdgOpenSearch, NeverTakesItFromTheCurrentFolder)
{
    const FakeDesktop desktop;
    for (const char *path :
         {"", ":", "::", ".", "./", "../bin", "missing:.", ":/missing", "/missing:"})
        EXPECT_EQ(status_with_path(desktop, path), -1) << path;
    EXPECT_EQ(desktop.record(), "");
}

TEST(XdgOpenSearch, IsMinus1WhereThereIsNoneOrItCannotBeStarted)
{
    const FakeDesktop desktop;
    make_directory(desktop.path("empty"));
    make_program(desktop.path("no-interpreter"), "#!/missing/interpreter\n", 0755);
    make_program(desktop.path("for-no-shell"), "exit 0\n", 0755);
    for (const char *name : {"missing", "empty", "no-interpreter", "for-no-shell"})
        EXPECT_EQ(status_with_path(desktop, desktop.path(name)), -1) << name;
}

// What it is given

TEST(XdgOpenArgument, IsTheAddressAsItIs)
{
    for (const char *address :
         {"http://www.quintral.example/a?b=c&d=%20;e#f", "x:-h", "x:", "http://a/$(exit)*'!~[]",
          "mailto:a@b.example,c@d.example?subject=100%25"}) {
        const FakeDesktop desktop;
        EXPECT_EQ(status_in_host(desktop, settled_address(address)), 0);
        EXPECT_EQ(record_argument(desktop.record()), address);
    }
}

TEST(XdgOpenArgument, IsNoMoreOfTheAddressThanItsCount)
{
    const FakeDesktop desktop;
    EXPECT_EQ(status_in_host(desktop, [] { return platform_open_url("http://a/bcd", 10); }), 0);
    EXPECT_EQ(record_argument(desktop.record()), "http://a/b");
}

const char *const trap_names[] = {
    "file",      "with  two blanks", "#1 100%25 ?a=b&c", "-option", "--help", "$(exit 3) `exit 3`",
    "'quoted\"", "http:a",           "\xC3\xBC \xFF",    "*",
};

TEST(XdgOpenArgument, IsTheAbsolutePathAsItIs)
{
    for (const char *name : trap_names) {
        const FakeDesktop desktop;
        const std::string path = desktop.path(name);
        make_file(path);
        EXPECT_EQ(status_in_host(desktop, [&] { return platform_open_path(path.c_str()); }), 0);
        EXPECT_EQ(record_argument(desktop.record()), path);
    }
}

TEST(XdgOpenArgument, IsARelativePathMadeAbsolute)
{
    for (const char *name : trap_names) {
        const FakeDesktop desktop;
        make_file(desktop.path(name));
        EXPECT_EQ(status_in_host(
                      desktop, [name] { return platform_open_path(name); },
                      [&] { need(chdir(desktop.path("").c_str()) == 0, 78); }),
                  0);
        EXPECT_EQ(record_argument(desktop.record()), desktop.path(name));
    }
}

// The shell that runs xdg-open would make another path of these, or an address.
TEST(XdgOpenArgument, IsNoPathThatXdgOpenTakesForAnother)
{
    for (const char *name :
         {"back\\slash", "f\\c.txt", "a\\nhttp:b", "line\nfeed", "end\n", "\\"}) {
        const FakeDesktop desktop;
        const std::string path = desktop.path(name);
        make_file(path);
        EXPECT_EQ(status_in_host(desktop, [&] { return platform_open_path(path.c_str()); }), -1)
            << name;
        EXPECT_EQ(status_in_host(desktop, [&] { return platform_open_document(path.c_str()); }), -1)
            << name;
        EXPECT_EQ(desktop.record(), "") << name;
    }
}

TEST(XdgOpenArgument, IsThePathOfAReference)
{
    const FakeDesktop desktop;
    PlatformFileRef ref;
    ASSERT_EQ(platform_make_ref(desktop.path("bin").c_str(), &ref), 0);
    EXPECT_EQ(status_in_host(desktop, [&ref] { return platform_open_ref(ref); }), 0);
    EXPECT_EQ(record_argument(desktop.record()), desktop.path("bin"));
}

PlatformFileRef ref_of(const std::string &path)
{
    PlatformFileRef ref = {};
    path.copy(ref.path, sizeof ref.path);
    return ref;
}

TEST(XdgOpenArgument, IsNeverWhatRefersToNothing)
{
    const FakeDesktop desktop;
    const std::string missing = desktop.path("missing");
    const struct {
        const char *what;
        Open open;
        std::int32_t status;
    } rows[] = {
        {"missing path", [&] { return platform_open_path(missing.c_str()); }, -43},
        {"empty path", [] { return platform_open_path(""); }, -43},
        {"relative path", [] { return platform_open_path("missing"); }, -43},
        {"long path", [] { return platform_open_path(std::string(5000, '/').c_str()); }, -1},
        {"empty reference", [] { return platform_open_ref(PlatformFileRef()); }, -1},
        {"no path", [] { return platform_open_ref(ref_of("--help")); }, -1},
        {"no end", [] { return platform_open_ref(ref_of(std::string(4096, '/'))); }, -1},
        {"no address", [] { return open_address("--help"); }, PlatformNoAddress},
        {"no bytes", [] { return platform_open_url(nullptr, 0); }, PlatformNoAddress},
    };
    for (const auto &row : rows)
        EXPECT_EQ(status_in_host(desktop, row.open), row.status) << row.what;
    EXPECT_EQ(desktop.record(), "");
}

TEST(XdgOpenDocument, IsAPathWhereItBeginsWithASlashOtherwiseAnAddress)
{
    const FakeDesktop folder;
    make_file(folder.path("file"));
    make_file(folder.path("exit:0"));
    const std::string file = folder.path("file");
    const struct {
        std::string text;
        int result;
        std::string argument; // none where empty
    } rows[] = {
        {file, 0, file},
        {folder.path("exit:0"), 0, folder.path("exit:0")},
        {"exit:0", 0, "exit:0"},
        {"exit:1", -1, "exit:1"},
        {"exit:255", -1, "exit:255"},
        {"signal:9", -1, "signal:9"},
        {"http://www.quintral.example/", 0, "http://www.quintral.example/"},
        {folder.path("missing"), -1, ""},
        {"file", -1, ""},
        {"./file", -1, ""},
        {"", -1, ""},
        {"http://with blank/", -1, ""},
    };
    for (const auto &row : rows) {
        const FakeDesktop desktop;
        const Open open = [&row] { return platform_open_document(row.text.c_str()); };
        EXPECT_EQ(status_in_host(
                      desktop, [&open] { return settled_status(open); },
                      [&] { need(chdir(folder.path("").c_str()) == 0, 79); }),
                  row.result)
            << row.text;
        const std::string record = desktop.record();
        EXPECT_EQ(record.empty() ? "" : record_argument(record), row.argument);
    }
}

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

TEST(XdgOpenHost, MayWaitForEveryChildItself)
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
            settled_address("exit:3"), &*findings);
        EXPECT_EQ(findings->status, 3);
    }
}

TEST(XdgOpenHost, MayWaitForNoChildAtAll)
{
    const FakeDesktop desktop;
    const std::function<void()> rows[] = {
        [] { ignore_signal(SIGCHLD); },
        [] { set_handler(SIGCHLD, SIG_DFL, SA_NOCLDWAIT); },
    };
    for (const auto &prepare : rows) {
        EXPECT_EQ(status_in_host(desktop, settled_address("exit:3"), prepare), 3);
        EXPECT_EQ(status_in_host(desktop, settled_address("signal:9"), prepare), -1);
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
                                 need(settled_address("exit:3")() == 3, 80);
                                 int status = 0;
                                 need(waitpid(other, &status, 0) == other, 81);
                                 return WEXITSTATUS(status);
                             }),
              5);
}

TEST(XdgOpenHost, MayBeInterruptedAllTheTime)
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
    ask_in_host(desktop.environment(), start_interrupts, settled_address("exit:3"), &*findings);
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
                if (settled_address("exit:" + std::to_string(expected))() != expected)
                    wrong = expected;
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    return wrong;
}

TEST(XdgOpenHost, MayAskFromSeveralThreads)
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

TEST(XdgOpenHost, HasNoDescriptorHeldOpenMeanwhile)
{
    const FakeDesktop desktop;
    EXPECT_EQ(status_in_host(desktop, [] { return ends_while_asking() ? 1 : 0; }), 1);
    EXPECT_TRUE(end_recorder(desktop));
}

TEST(XdgOpenHost, HasNoHandlerRunInACopyOfItself)
{
    const FakeDesktop desktop;
    const SharedFindings findings;
    ask_in_host(
        desktop.environment(),
        [&] {
            watch_for_strangers(&*findings);
            signals_copy = true;
            forks = 0;
        },
        settled_address("exit:3"), &*findings);
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
            forks_bystander = true;
            forks = 0;
        },
        [&] {
            const auto start = Clock::now();
            const std::int32_t status = open_address(address);
            findings->asked = Clock::now() - start;
            need(kill(bystander, SIGKILL) == 0, 84);
            need(waitpid(bystander, nullptr, 0) == bystander, 85);
            return status;
        },
        &*findings);
    const int taken = static_cast<int>(findings->asked.count() / 1000000);
    // Later it is taken for one at work, on a busy machine also where it has ended.
    EXPECT_EQ(findings->status, taken < 900 ? expected_status : 0);
    EXPECT_TRUE(address != "sleep:" || end_recorder(desktop));
    return taken;
}

TEST(XdgOpenHost, MayForkInTheMeantime)
{
    const auto ended = [] { return milliseconds_with_a_bystander("exit:3", 3); };
    EXPECT_LT(shortest_wait(ended, 900), 900) << "it ends at once";
    const auto at_work = [] { return milliseconds_with_a_bystander("sleep:", 0); };
    EXPECT_LT(shortest_wait(at_work, 1200), 1200);
}

// The real xdg-open

// A desktop without a desktop environment, of which a folder holds all the settings: texts, folders
// and web addresses are opened by the recorder.
class RealDesktop {
public:
    RealDesktop() : root_(std::filesystem::canonical(folder_.path()).string())
    {
        for (const char *name : {"data", "data/applications", "config", "documents", "empty"})
            make_directory(path(name));
        make_link(QUINTRAL_RECORDER, path("recorder"));
        make_file(path("data/applications/recorder.desktop"),
                  "[Desktop Entry]\nType=Application\nName=Recorder\nExec=" + path("recorder") +
                      " %u\nMimeType=text/plain;inode/directory;x-scheme-handler/http;\n");
        make_file(path("config/mimeapps.list"), "[Default Applications]\n"
                                                "text/plain=recorder.desktop\n"
                                                "inode/directory=recorder.desktop\n"
                                                "x-scheme-handler/http=recorder.desktop\n");
    }

    std::string path(const std::string &name) const
    {
        return root_ + "/" + name;
    }

    std::string record() const
    {
        return wait_for_record(path("record"));
    }

    // With a display, whether or not anything answers there, and more settings, the later ones
    // before the earlier.
    Settings environment(const Settings &more = {}) const
    {
        Settings settings = {
            {"PATH", "/usr/local/bin:/usr/bin:/bin"},
            {"HOME", root_},
            {"XDG_CURRENT_DESKTOP", "X-Generic"},
            {"XDG_DATA_HOME", path("data")},
            {"XDG_CONFIG_HOME", path("config")},
            {"XDG_DATA_DIRS", path("empty")},
            {"XDG_CONFIG_DIRS", path("empty")},
            {"XDG_RUNTIME_DIR", path("empty")},
            {"XDG_UTILS_DEBUG_LEVEL", ""},
            {"XDG_MENU_PREFIX", ""},
            {"DISPLAY", ":99"},
            {"WAYLAND_DISPLAY", ""},
            {"BROWSER", ""},
            {"FAKE_RECORD", path("record")},
        };
        settings.insert(settings.end(), more.begin(), more.end());
        return settings;
    }

private:
    TempFolder folder_;
    std::string root_;
};

void expect_opened(const RealDesktop &desktop, const Settings &more, const Open &open,
                   const std::string &argument)
{
    const SharedFindings findings;
    ask_in_host(desktop.environment(more), prepare_nothing, open, &*findings);
    EXPECT_EQ(findings->status, 0);
    EXPECT_EQ(record_argument(desktop.record()), argument);
}

TEST(RealXdgOpen, IsInstalled)
{
    EXPECT_EQ(access("/usr/bin/xdg-open", X_OK), 0) << "the package xdg-utils";
    EXPECT_EQ(access("/usr/bin/file", X_OK), 0) << "the package file, which tells types of files";
}

TEST(RealXdgOpen, OpensAFileWhateverItsName)
{
    for (const char *name : {"plain.txt", "with two  blanks.txt", "#1.txt", "100% #2.txt",
                             "a%20b%25.txt", "it's \"quoted\" & $(exit 3); `exit 3` *?.txt",
                             "http:a.txt", "\xC3\xBCml\xC3\xA4ut.txt", "-option"}) {
        const RealDesktop desktop;
        const std::string path = desktop.path("documents/" + std::string(name));
        make_file(path);
        expect_opened(
            desktop, {}, [&path] { return platform_open_path(path.c_str()); }, path);
    }
}

TEST(RealXdgOpen, OpensAFolder)
{
    for (const char *name : {"folder", "with blank #1 100%"}) {
        const RealDesktop desktop;
        const std::string path = desktop.path("documents/" + std::string(name));
        make_directory(path);
        expect_opened(
            desktop, {}, [&path] { return platform_open_document(path.c_str()); }, path);
    }
}

TEST(RealXdgOpen, OpensAnAddress)
{
    for (const char *address :
         {"http://www.quintral.example/", "http://a.example/b?c=d&e=%20f;g=$(exit)*#h"}) {
        const RealDesktop desktop;
        expect_opened(
            desktop, {}, [address] { return open_address(address); }, address);
    }
}

TEST(RealXdgOpen, UsesTheBrowserWhereThereIsNoDisplay)
{
    for (const char *address : {"http://www.quintral.example/a?b=c%20d#e", "other:address"}) {
        const RealDesktop desktop;
        const Settings settings = {{"DISPLAY", ""}, {"BROWSER", desktop.path("recorder")}};
        expect_opened(
            desktop, settings, [address] { return open_address(address); }, address);
    }
    const RealDesktop desktop;
    const std::string path = desktop.path("documents/file #1 100%.txt");
    make_file(path);
    // For files the system's mailcap comes before the browser.
    make_directory(desktop.path("bin"));
    make_link("/bin/false", desktop.path("bin/run-mailcap"));
    const Settings settings = {{"DISPLAY", ""},
                               {"BROWSER", desktop.path("recorder")},
                               {"PATH", desktop.path("bin") + ":/usr/local/bin:/usr/bin:/bin"}};
    expect_opened(
        desktop, settings, [&path] { return platform_open_path(path.c_str()); }, path);
}

TEST(RealXdgOpen, IsFoundWithoutPathInTheSystemsFolders)
{
    const RealDesktop desktop;
    const Settings settings = {{"DISPLAY", ""}, {"BROWSER", desktop.path("recorder")}};
    const SharedFindings findings;
    ask_in_host(
        desktop.environment(settings), [] { unsetenv("PATH"); },
        [] { return open_address("http://a.example/"); }, &*findings);
    EXPECT_EQ(findings->status, 0);
    EXPECT_EQ(record_argument(desktop.record()), "http://a.example/");
}

std::int32_t real_status(const RealDesktop &desktop, const Settings &more,
                         const std::string &address)
{
    const SharedFindings findings;
    ask_in_host(desktop.environment(more), prepare_nothing, settled_address(address), &*findings);
    return findings->status;
}

TEST(RealXdgOpen, TellsThatTheApplicationFailed)
{
    const RealDesktop desktop;
    EXPECT_EQ(real_status(desktop, {{"FAKE_STATUS", "9"}}, "http://a.example/"), 4);
}

TEST(RealXdgOpen, TellsThatNothingOpensTheAddress)
{
    const RealDesktop desktop;
    EXPECT_EQ(real_status(desktop, {{"DISPLAY", ""}, {"BROWSER", "/bin/false"}}, "other:a"), 3);
}

TEST(RealXdgOpen, IsNotWaitedForWhileTheApplicationRuns)
{
    const RealDesktop desktop;
    const SharedFindings findings;
    ask_in_host(
        desktop.environment({{"FAKE_SLEEP", "yes"}}), prepare_nothing,
        [] { return open_address("http://a.example/"); }, &*findings);
    EXPECT_EQ(findings->status, 0);
    EXPECT_LT(findings->milliseconds, 4000);
    EXPECT_TRUE(end_recorder(desktop));
}

TEST(RealXdgOpen, IsMinus1WhereThereIsNone)
{
    const RealDesktop desktop;
    EXPECT_EQ(real_status(desktop, {{"PATH", desktop.path("empty")}}, "http://a.example/"), -1);
    EXPECT_NE(access(desktop.path("record").c_str(), F_OK), 0);
}

} // namespace
} // namespace quintral
