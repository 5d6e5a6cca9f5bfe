// Files and directories when the system refuses: each system call of the helpers fails in turn, as
// does each allocation, and somebody else exchanges directories for links while a tree is removed.
//
// This program stands between the helpers and the C library: it defines the calls itself, counts
// them while a helper runs, and fails the one that a test names. On systems with two sizes of file
// offset the names for both are defined, so that it does not matter how the helpers were compiled.
//
// Compiled twice: with the library's own remove_tree, and with the one for old systems, which
// promises nothing about exchanged directories.
#include "support/c-utils/files.h"

#include "support/error.h"
#include "tests/harness/child-process.h"
#include "tests/harness/descriptors.h"
#include "tests/harness/message-handler-guard.h"
#include "tests/harness/temp-folder.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quintral {
namespace {

using Names = std::vector<std::string>;

// One system call of a helper.
struct Call {
    std::string function;
    std::string name; // of the file, empty where the call takes none
};

// What this program does about the calls. Counting starts with watch_calls and ends with
// stop_watching; a hook runs unwatched.
bool watching = false;
std::vector<Call> calls;
std::size_t failing_call = 0; // counted from 1; 0 for none
int failing_error = 0;
bool type_bits_hidden = false;
std::string forged_name; // what a broken file system calls the entry "forged"; empty for none
std::function<void(const Call &call)> before_call;

bool counting_allocations = false;
std::size_t allocations = 0;
std::size_t failing_allocation = 0;

void stop_watching()
{
    watching = false;
    failing_call = 0;
    type_bits_hidden = false;
    before_call = nullptr;
    forged_name.clear();
}

void watch_calls(std::size_t call_to_fail, int error)
{
    calls.clear();
    failing_call = call_to_fail;
    failing_error = error;
    watching = true;
}

// True where this call is the one to fail; errno is set then.
bool call_fails(const char *function, const char *name)
{
    if (!watching)
        return false;
    watching = false;
    calls.push_back({function, name == nullptr ? "" : name});
    const std::size_t number = calls.size();
    if (before_call)
        before_call(calls.back());
    watching = true;
    if (number == failing_call)
        errno = failing_error;
    return number == failing_call;
}

template <typename Function> Function system_call(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

template <typename Record> Record *forge_name(Record *entry)
{
    if (entry != nullptr && watching && !forged_name.empty() &&
        std::strcmp(entry->d_name, "forged") == 0)
        std::snprintf(entry->d_name, sizeof entry->d_name, "%s", forged_name.c_str());
    return entry;
}

template <typename Status> int hide_type(int result, Status *status)
{
    if (result == 0 && watching && type_bits_hidden)
        status->st_mode &= static_cast<mode_t>(~S_IFMT);
    return result;
}

// For calls that release what they were given even when they fail.
int released(int result, bool fails)
{
    if (fails)
        errno = failing_error;
    return fails ? -1 : result;
}

} // namespace
} // namespace quintral

using quintral::call_fails;
using quintral::failing_error;
using quintral::forge_name;
using quintral::hide_type;
using quintral::released;
using quintral::system_call;

#define DEFINE_STAT(function, record)                                                              \
    extern "C" int function(const char *path, struct record *status) noexcept                      \
    {                                                                                              \
        if (call_fails(#function, path))                                                           \
            return -1;                                                                             \
        static const auto real = system_call<int (*)(const char *, struct record *)>(#function);   \
        return hide_type(real(path, status), status);                                              \
    }

#define DEFINE_FSTAT(function, record)                                                             \
    extern "C" int function(int descriptor, struct record *status) noexcept                        \
    {                                                                                              \
        if (call_fails(#function, nullptr))                                                        \
            return -1;                                                                             \
        static const auto real = system_call<int (*)(int, struct record *)>(#function);            \
        return real(descriptor, status);                                                           \
    }

#define DEFINE_FSTATAT(function, record)                                                           \
    extern "C" int function(int folder, const char *name, struct record *status,                   \
                            int flags) noexcept                                                    \
    {                                                                                              \
        if (call_fails(#function, name))                                                           \
            return -1;                                                                             \
        static const auto real =                                                                   \
            system_call<int (*)(int, const char *, struct record *, int)>(#function);              \
        return hide_type(real(folder, name, status, flags), status);                               \
    }

#define DEFINE_OPENAT(function)                                                                    \
    extern "C" int function(int folder, const char *name, int flags, ...)                          \
    {                                                                                              \
        std::va_list arguments;                                                                    \
        va_start(arguments, flags);                                                                \
        const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;                \
        va_end(arguments);                                                                         \
        if (call_fails(#function, name))                                                           \
            return -1;                                                                             \
        static const auto real = system_call<int (*)(int, const char *, int, ...)>(#function);     \
        return real(folder, name, flags, mode);                                                    \
    }

#define DEFINE_FCNTL(function)                                                                     \
    extern "C" int function(int descriptor, int command, ...)                                      \
    {                                                                                              \
        std::va_list arguments;                                                                    \
        va_start(arguments, command);                                                              \
        void *argument = va_arg(arguments, void *);                                                \
        va_end(arguments);                                                                         \
        if (call_fails(#function, nullptr))                                                        \
            return -1;                                                                             \
        static const auto real = system_call<int (*)(int, int, ...)>(#function);                   \
        return real(descriptor, command, argument);                                                \
    }

#define DEFINE_READDIR(function, record)                                                           \
    extern "C" struct record *function(DIR *stream)                                                \
    {                                                                                              \
        if (call_fails(#function, nullptr))                                                        \
            return nullptr;                                                                        \
        static const auto real = system_call<struct record *(*)(DIR *)>(#function);                \
        return forge_name(real(stream));                                                           \
    }

#define DEFINE_FOPEN(function)                                                                     \
    extern "C" FILE *function(const char *path, const char *mode)                                  \
    {                                                                                              \
        if (call_fails(#function, path))                                                           \
            return nullptr;                                                                        \
        static const auto real = system_call<FILE *(*)(const char *, const char *)>(#function);    \
        return real(path, mode);                                                                   \
    }

DEFINE_STAT(stat, stat)
DEFINE_STAT(stat64, stat64)
DEFINE_STAT(lstat, stat)
DEFINE_STAT(lstat64, stat64)
DEFINE_FSTAT(fstat, stat)
DEFINE_FSTAT(fstat64, stat64)
DEFINE_FSTATAT(fstatat, stat)
DEFINE_FSTATAT(fstatat64, stat64)
DEFINE_OPENAT(openat)
DEFINE_OPENAT(openat64)
DEFINE_FCNTL(fcntl)
DEFINE_FCNTL(fcntl64)
DEFINE_READDIR(readdir, dirent)
DEFINE_READDIR(readdir64, dirent64)
DEFINE_FOPEN(fopen)
DEFINE_FOPEN(fopen64)

extern "C" int unlinkat(int folder, const char *name, int flags) noexcept
{
    if (call_fails("unlinkat", name))
        return -1;
    static const auto real = system_call<int (*)(int, const char *, int)>("unlinkat");
    return real(folder, name, flags);
}

extern "C" int unlink(const char *path) noexcept
{
    if (call_fails("unlink", path))
        return -1;
    static const auto real = system_call<int (*)(const char *)>("unlink");
    return real(path);
}

extern "C" int rmdir(const char *path) noexcept
{
    if (call_fails("rmdir", path))
        return -1;
    static const auto real = system_call<int (*)(const char *)>("rmdir");
    return real(path);
}

extern "C" int chmod(const char *path, mode_t mode) noexcept
{
    if (call_fails("chmod", path))
        return -1;
    static const auto real = system_call<int (*)(const char *, mode_t)>("chmod");
    return real(path, mode);
}

extern "C" DIR *opendir(const char *path)
{
    if (call_fails("opendir", path))
        return nullptr;
    static const auto real = system_call<DIR *(*)(const char *)>("opendir");
    return real(path);
}

extern "C" DIR *fdopendir(int descriptor)
{
    if (call_fails("fdopendir", nullptr))
        return nullptr;
    static const auto real = system_call<DIR *(*)(int)>("fdopendir");
    return real(descriptor);
}

extern "C" int closedir(DIR *stream)
{
    const bool fails = call_fails("closedir", nullptr);
    static const auto real = system_call<int (*)(DIR *)>("closedir");
    return released(real(stream), fails);
}

extern "C" int close(int descriptor)
{
    const bool fails = call_fails("close", nullptr);
    static const auto real = system_call<int (*)(int)>("close");
    return released(real(descriptor), fails);
}

extern "C" int fclose(FILE *stream)
{
    const bool fails = call_fails("fclose", nullptr);
    static const auto real = system_call<int (*)(FILE *)>("fclose");
    return released(real(stream), fails);
}

extern "C" std::size_t fread(void *buffer, std::size_t size, std::size_t count, FILE *stream)
{
    if (call_fails("fread", nullptr))
        return 0;
    static const auto real =
        system_call<std::size_t (*)(void *, std::size_t, std::size_t, FILE *)>("fread");
    return real(buffer, size, count, stream);
}

// Not inlined: g++ would warn about blocks of operator new that it sees released by free.
[[gnu::noinline]] void *operator new(std::size_t size)
{
    if (quintral::counting_allocations && ++quintral::allocations == quintral::failing_allocation)
        throw std::bad_alloc();
    void *block = std::malloc(size);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

[[gnu::noinline]] void operator delete(void *block) noexcept
{
    std::free(block);
}

[[gnu::noinline]] void operator delete(void *block, std::size_t) noexcept
{
    std::free(block);
}

namespace quintral {
namespace {

using tests::ChildResult;
using tests::entries_below;
using tests::make_directory;
using tests::make_file;
using tests::make_link;
using tests::names_in_system_order;
using tests::open_descriptors;
using tests::permissions_of;
using tests::run_child_function;
using tests::TempFolder;

const int errors[] = {EIO, EACCES, ENOMEM, EINTR, EMFILE};

// A call of any helper fails only for tests: none makes this many.
constexpr std::size_t call_limit = 100000;

struct Report {
    MessageLevel level;
    std::string text;
};

std::vector<Report> reports;

void record_report(MessageLevel level, const char *text)
{
    const bool was_watching = watching;
    watching = false;
    reports.push_back({level, text});
    watching = was_watching;
    errno = ERANGE;
}

struct RecordedReports {
    RecordedReports()
    {
        reports.clear();
    }

    tests::MessageHandlerGuard guard{record_report};
};

// Runs a helper with one of its calls failing.
template <typename Helper>
auto with_failing_call(std::size_t number, int error, const Helper &helper)
{
    watch_calls(number, error);
    const auto result = helper();
    const int left_errno = errno;
    stop_watching();
    errno = left_errno;
    return result;
}

// The function's name without the size of its file offsets.
std::string plain_function(const Call &call)
{
    const std::size_t length = call.function.size();
    const bool sized = length > 2 && call.function.compare(length - 2, 2, "64") == 0;
    return sized ? call.function.substr(0, length - 2) : call.function;
}

bool is_one_of(const std::string &text, const Names &choices)
{
    return std::find(choices.begin(), choices.end(), text) != choices.end();
}

bool exists(const std::string &path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

// Opening and closing

TEST(OpenFileFaults, ReportTheReasonOfTheOpenItself)
{
    const TempFolder folder;
    make_file(folder.path("file"));
    const std::string path = folder.path("file");
    for (const char *mode : {"r", "w", "a", "r+", "w+", "a+"}) {
        for (const int error : errors) {
            const RecordedReports recorded;
            std::FILE *stream = with_failing_call(
                1, error, [&] { return open_file(path.c_str(), mode, OpenReport); });
            EXPECT_EQ(stream, nullptr);
            const std::string reason = std::strerror(error);
            ASSERT_EQ(reports.size(), 1U);
            EXPECT_EQ(reports[0].level, MessageLevel{Error});
            EXPECT_EQ(reports[0].text,
                      mode[0] == 'w' ? "Write of " + path + " failed at open: " + reason + "\n"
                                     : "Open of " + path + " failed: " + reason + "\n");
            EXPECT_EQ(calls.size(), 1U) << "permissions of a file that did not open";
        }
    }
}

TEST(OpenFileFaults, GiveTheStreamWherePermissionsCannotBeSet)
{
    for (const char *mode : {"w", "a"}) {
        const TempFolder folder;
        const std::string path = folder.path("file");
        make_file(path);
        chmod(path.c_str(), 0600);
        const RecordedReports recorded;
        std::FILE *stream = with_failing_call(
            2, EPERM, [&] { return open_file(path.c_str(), mode, OpenFatal | OpenReport); });
        ASSERT_NE(stream, nullptr);
        ASSERT_EQ(calls.size(), 2U);
        EXPECT_EQ(calls[1].function, "chmod");
        EXPECT_EQ(calls[1].name, path);
        EXPECT_EQ(reports.size(), 0U);
        EXPECT_EQ(permissions_of(path), mode_t{0600});
        EXPECT_EQ(close_file(stream), 0);
    }
}

TEST(OpenFileFaults, TouchNoPermissionsOfAFileOpenedForReading)
{
    const TempFolder folder;
    make_file(folder.path("file"));
    for (const char *mode : {"r", "r+"}) {
        std::FILE *stream = with_failing_call(
            0, 0, [&] { return open_file(folder.path("file").c_str(), mode, 0); });
        ASSERT_NE(stream, nullptr);
        EXPECT_EQ(calls.size(), 1U) << mode;
        close_file(stream);
    }
}

TEST(CloseFileFaults, PrintTheReasonOfTheCloseItself)
{
    for (const int error : errors) {
        const ChildResult result = run_child_function([&] {
            std::FILE *stream = std::fopen("/dev/null", "r");
            const std::size_t before = open_descriptors();
            const int closed = with_failing_call(1, error, [&] { return close_file(stream); });
            return closed == -1 && open_descriptors() == before - 1 ? 7 : 1;
        });
        EXPECT_EQ(result.exit_status, 7);
        EXPECT_EQ(result.error, std::string("Error: Close file failed.\a\nReason: ") +
                                    std::strerror(error) + "\n");
    }
}

TEST(CloseFileFaults, PrintTheReasonWhateverTheHandlerDoesToErrno)
{
    const ChildResult result = run_child_function([] {
        set_message_handler(record_report);
        std::FILE *stream = std::fopen("/dev/null", "r");
        const int closed = with_failing_call(1, EIO, [&] { return close_file(stream); });
        return closed == -1 && reports.size() == 1 ? 7 : 1;
    });
    EXPECT_EQ(result.exit_status, 7);
    EXPECT_EQ(result.error, "Reason: Input/output error\n");
}

// Paths

TEST(FileExistsFaults, Give0)
{
    const TempFolder folder;
    for (const int error : errors) {
        EXPECT_EQ(with_failing_call(1, error, [&] { return file_exists(folder.path().c_str()); }),
                  0);
        EXPECT_EQ(calls.size(), 1U);
    }
    EXPECT_EQ(with_failing_call(2, EIO, [&] { return file_exists(folder.path().c_str()); }), 1);
}

TEST(RemovePathFaults, FailWithTheErrorOfTheCall)
{
    const TempFolder folder;
    make_file(folder.path("file"));
    make_directory(folder.path("folder"));
    for (const char *name : {"file", "folder"}) {
        const std::string path = folder.path(name);
        for (const std::size_t number : {1U, 2U}) {
            for (const int error : errors) {
                const RecordedReports recorded;
                const int result =
                    with_failing_call(number, error, [&] { return remove_path(path.c_str()); });
                EXPECT_EQ(errno, error);
                EXPECT_EQ(result, -1) << name << number;
                EXPECT_EQ(calls.size(), number) << name;
                EXPECT_TRUE(exists(path));
                EXPECT_EQ(reports.size(), 0U);
            }
        }
        EXPECT_EQ(with_failing_call(3, EIO, [&] { return remove_path(path.c_str()); }), 0);
        EXPECT_EQ(calls.size(), 2U);
    }
}

// Trees. Every name in one is its own, so that a failing call tells its place.

struct Place {
    std::string name;
    std::string path; // from the folder
    bool directory;
};

std::vector<Place> places;

void add_place(const TempFolder &folder, const std::string &parent, const std::string &name,
               bool directory)
{
    const std::string path = parent.empty() ? name : parent + "/" + name;
    if (directory)
        make_directory(folder.path(path));
    else
        make_file(folder.path(path));
    places.push_back({name, path, directory});
}

// A tree of so many levels, more than stay open, with files, links and directories beside the first
// and the last, and a folder outside that the links lead to.
void make_tree(const TempFolder &folder, int depth)
{
    places.clear();
    make_directory(folder.path("outside"));
    make_file(folder.path("outside/kept"));
    make_directory(folder.path("outside/empty"));
    add_place(folder, "", "tree", true);
    std::string parent = "tree";
    for (int level = 1; level <= depth; ++level) {
        const std::string number = std::to_string(level);
        if (level == 1 || level == depth) {
            add_place(folder, parent, "file" + number, false);
            add_place(folder, parent, "side" + number, true);
            add_place(folder, parent + "/side" + number, "inner" + number, false);
            make_link(folder.path("outside"), folder.path(parent + "/link" + number));
            places.push_back({"link" + number, parent + "/link" + number, false});
        }
        add_place(folder, parent, "level" + number, true);
        parent += "/level" + number;
    }
    add_place(folder, parent, "bottom", false);
}

const Names outside_entries = {"outside", "outside/empty", "outside/kept"};

bool is_at_or_below(const std::string &path, const std::string &top)
{
    return path == top || path.compare(0, top.size() + 1, top + "/") == 0;
}

std::string last_component(const std::string &path)
{
    return path.substr(path.rfind('/') + 1);
}

const Place *place_named(const std::string &name)
{
    for (const Place &place : places) {
        if (place.name == name)
            return &place;
    }
    return nullptr;
}

// What is left with the place, the directories above it and, where `below`, all that is in it.
Names expected_left(const Place &kept, bool below)
{
    Names left = outside_entries;
    for (const Place &place : places) {
        if (is_at_or_below(kept.path, place.path) ||
            (below && is_at_or_below(place.path, kept.path)))
            left.push_back(place.path);
    }
    std::sort(left.begin(), left.end());
    return left;
}

// The file that the last of the calls was about: its own or that of an earlier one.
std::string last_name()
{
    for (auto call = calls.rbegin(); call != calls.rend(); ++call) {
        if (!call->name.empty())
            return call->name;
    }
    return "";
}

bool includes(const Names &all, const Names &some)
{
    return std::includes(all.begin(), all.end(), some.begin(), some.end());
}

// Checks what the failure of the call has left of the tree; the calls are those up to it.
void expect_left_after(const TempFolder &folder, const std::string &function)
{
    const Names left = entries_below(folder.path());
    EXPECT_TRUE(includes(left, outside_entries));
    const std::string name = last_name();
    const Place *place = place_named(last_component(name));
    if (is_one_of(function, {"close", "closedir"}) || name == folder.path() + "/") {
        EXPECT_EQ(left, outside_entries);
    } else if (name == "..") {
        EXPECT_NE(left, outside_entries);
    } else if (place == nullptr) {
        ADD_FAILURE() << "a call about " << name;
    } else if (function == "readdir") {
        EXPECT_TRUE(includes(expected_left(*place, true), left));
    } else {
        const bool below = !is_one_of(function, {"unlinkat", "unlink", "rmdir"});
        EXPECT_EQ(left, expected_left(*place, below));
    }
}

TEST(RemoveTreeFaults, LeaveWhatTheyConcernAndNothingElse)
{
    std::size_t number = 1;
    bool all_failed = false;
    for (; !all_failed && number < call_limit; ++number) {
        const TempFolder folder;
        make_tree(folder, 11);
        const std::size_t before = open_descriptors();
        const RecordedReports recorded;
        std::vector<Call> until_failure;
        before_call = [&](const Call &) {
            if (calls.size() == number)
                until_failure = calls;
        };
        const int error = errors[number % std::size(errors)];
        const int result = with_failing_call(
            number, error, [&] { return remove_tree(folder.path("tree").c_str()); });
        all_failed = calls.size() < number;
        if (all_failed)
            break;
        const std::size_t made = calls.size();
        calls = until_failure;
        const std::string function = plain_function(calls.back());
        SCOPED_TRACE("call " + std::to_string(number) + " " + function + " " + last_name());
        const bool top_unseen = is_one_of(function, {"fstatat", "lstat"}) &&
                                last_component(calls.back().name) == "tree";
        EXPECT_EQ(result, top_unseen ? -1 : 0);
        EXPECT_EQ(open_descriptors(), before);
        EXPECT_EQ(reports.size(), 0U);
        EXPECT_LT(made, 2000U);
        expect_left_after(folder, function);

        // What is left is an ordinary tree still.
        remove_tree(folder.path("tree").c_str());
        EXPECT_EQ(entries_below(folder.path()), outside_entries);
    }
    EXPECT_TRUE(all_failed);
    EXPECT_GT(number, 90U);
}

TEST(RemoveTreeFaults, CoverEveryCallThatItMakes)
{
    const TempFolder folder;
    make_tree(folder, 11);
    with_failing_call(0, 0, [&] { return remove_tree(folder.path("tree").c_str()); });
    Names made;
    for (const Call &call : calls)
        made.push_back(plain_function(call));
    std::sort(made.begin(), made.end());
    made.erase(std::unique(made.begin(), made.end()), made.end());
#ifdef QUINTRAL_REMOVES_BY_PATH
    EXPECT_EQ(made, (Names{"closedir", "lstat", "opendir", "readdir", "rmdir", "unlink"}));
#else
    EXPECT_EQ(made, (Names{"close", "closedir", "fcntl", "fdopendir", "fstat", "fstatat", "openat",
                           "readdir", "unlinkat"}));
#endif
}

// False under a memory checker that puts its own allocator in the place of this program's.
bool allocations_are_counted()
{
    allocations = 0;
    failing_allocation = 0;
    counting_allocations = true;
    ::operator delete(::operator new(1));
    counting_allocations = false;
    return allocations == 1;
}

TEST(RemoveTreeFaults, OfMemoryThrowAndLeaveNoDescriptorOpen)
{
    if (!allocations_are_counted())
        GTEST_SKIP() << "another allocator has taken over";
    std::size_t number = 1;
    for (bool thrown = true; thrown && number < call_limit; ++number) {
        const TempFolder folder;
        make_tree(folder, 11);
        // A name and a path too long for a text's own room, hence an allocation each.
        make_file(folder.path("tree/" + std::string(200, 'n')));
        const std::string path = folder.path("tree");
        const std::size_t before = open_descriptors();
        thrown = false;
        allocations = 0;
        failing_allocation = number;
        counting_allocations = true;
        try {
            remove_tree(path.c_str());
        } catch (const std::bad_alloc &) {
            thrown = true;
        }
        counting_allocations = false;
        SCOPED_TRACE("allocation " + std::to_string(number));
        EXPECT_EQ(thrown, allocations >= number);
        EXPECT_EQ(open_descriptors(), before);
        EXPECT_TRUE(includes(entries_below(folder.path()), outside_entries));
        EXPECT_EQ(exists(path), thrown);
        remove_tree(path.c_str());
        EXPECT_EQ(entries_below(folder.path()), outside_entries);
    }
    EXPECT_GT(number, 6U);
}

TEST(RemoveTreeFaults, OfAModeWithoutTypeBitsFailAtTheTopAndLeaveAnEntry)
{
    const TempFolder folder;
    make_tree(folder, 2);
    const Names all = entries_below(folder.path());
    type_bits_hidden = true;
    EXPECT_EQ(with_failing_call(0, 0, [&] { return remove_tree(folder.path("tree").c_str()); }),
              -1);
    EXPECT_EQ(entries_below(folder.path()), all);

    for (const char *name : {"file1", "link2", "side1", "level1"}) {
        const TempFolder other;
        make_tree(other, 2);
        before_call = [&](const Call &call) {
            type_bits_hidden = last_component(call.name) == name;
        };
        EXPECT_EQ(with_failing_call(0, 0, [&] { return remove_tree(other.path("tree").c_str()); }),
                  0);
        EXPECT_EQ(entries_below(other.path()), expected_left(*place_named(name), true)) << name;
    }
}

// Another type than the one just examined

void replace_by_fifo(const std::string &path)
{
    std::rename(path.c_str(), (path + "-aside").c_str());
    EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
}

TEST(RemoveTreeFaults, OfADirectoryThatHasBecomeAFifoNeitherHangNorRemoveIt)
{
    for (const char *function : {"openat", "opendir"}) {
        const TempFolder folder;
        make_tree(folder, 2);
        bool replaced = false;
        before_call = [&](const Call &call) {
            if (replaced || plain_function(call) != function ||
                last_component(call.name) != "side1")
                return;
            replaced = true;
            replace_by_fifo(folder.path("tree/side1"));
        };
        EXPECT_EQ(with_failing_call(0, 0, [&] { return remove_tree(folder.path("tree").c_str()); }),
                  0);
        EXPECT_EQ(exists(folder.path("tree/side1")), replaced);
        EXPECT_EQ(exists(folder.path("tree/side1-aside/inner1")), replaced);
    }
}

TEST(RemoveTreeFaults, OfAFileThatHasBecomeADirectoryLeaveTheDirectory)
{
    for (const char *function : {"unlinkat", "unlink"}) {
        const TempFolder folder;
        make_tree(folder, 2);
        bool replaced = false;
        before_call = [&](const Call &call) {
            if (replaced || plain_function(call) != function ||
                last_component(call.name) != "file1")
                return;
            replaced = true;
            std::remove(folder.path("tree/file1").c_str());
            make_directory(folder.path("tree/file1"));
        };
        EXPECT_EQ(with_failing_call(0, 0, [&] { return remove_tree(folder.path("tree").c_str()); }),
                  0);
        EXPECT_EQ(exists(folder.path("tree/file1")), replaced);
        EXPECT_EQ(exists(folder.path("tree/level1")), false);
    }
}

TEST(RemoveTreeFaults, OfANameWithASlashLeadNowhere)
{
    const TempFolder folder;
    make_directory(folder.path("tree"));
    make_file(folder.path("tree/forged"));
    make_file(folder.path("tree/other"));
    make_file(folder.path("outside"));
    forged_name = "../outside";
    EXPECT_EQ(with_failing_call(0, 0, [&] { return remove_tree(folder.path("tree").c_str()); }), 0);
    EXPECT_EQ(entries_below(folder.path()), (Names{"outside", "tree", "tree/forged"}));
}

#ifndef QUINTRAL_REMOVES_BY_PATH

// Exchanged directories. Outside the tree stands a copy of its inside, names and all: a removal
// that is led there finds what it looks for.

void make_copy(const std::string &top, int depth)
{
    std::string path = top;
    make_directory(path);
    for (int level = 1; level <= depth; ++level) {
        if (level == 1) {
            make_file(path + "/file");
            make_directory(path + "/empty");
        }
        path += "/level";
        make_directory(path);
    }
    make_file(path + "/bottom");
}

// How many of the calls so far named a file: only before these can an exchange matter.
std::size_t named_calls()
{
    return static_cast<std::size_t>(std::count_if(
        calls.begin(), calls.end(), [](const Call &call) { return !call.name.empty(); }));
}

struct Exchange {
    const char *given;     // the path to remove, from the folder
    const char *exchanged; // the directory that becomes a link
    const char *target;    // where the link leads, in `outside`
    std::size_t first; // named call from which on the exchange must not lead out; before it, the
                       // path given simply means something else
    mode_t permissions = 0755; // of the directory above the tree
};

const Exchange exchanges[] = {
    {"above/tree", "above/tree", "tree", 1},
    {"above/tree", "above/tree/level", "tree/level", 1},
    {"above/tree", "above/tree/empty", "tree", 1},
    {"above/tree", "above/tree/level/level/level", "tree", 1},
    {"above/tree", "above", "", 2},
    {"above/tree", "above", "bare", 2}, // whose tree is empty, so that one rmdir would remove it
    {"above/tree/", "above/tree", "tree", 3},
};

// Exchanges before the named call of that number. False where the removal made fewer.
bool exchange_before(const Exchange &row, std::size_t number, const TempFolder &outside)
{
    const TempFolder folder;
    make_directory(folder.path("above"));
    make_copy(folder.path("above/tree"), 9);
    const std::string exchanged = folder.path(row.exchanged);
    chmod(folder.path("above").c_str(), row.permissions);
    const std::size_t before = open_descriptors();
    bool reached = false;
    before_call = [&](const Call &call) {
        if (reached || call.name.empty() || named_calls() != number)
            return;
        reached = true;
        if (std::rename(exchanged.c_str(), folder.path("aside").c_str()) == 0)
            make_link(outside.path(row.target), exchanged);
    };
    EXPECT_EQ(with_failing_call(0, 0, [&] { return remove_tree(folder.path(row.given).c_str()); }),
              0);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_LT(calls.size(), 2000U);
    chmod(folder.path(exists(folder.path("aside")) ? "aside" : "above").c_str(), 0755);
    return reached;
}

TEST(RemoveTreeExchange, OfADirectoryForALinkNeverLeadsOut)
{
    const TempFolder outside;
    make_copy(outside.path("tree"), 9);
    make_directory(outside.path("bare"));
    make_directory(outside.path("bare/tree"));
    const Names whole = entries_below(outside.path());
    for (const Exchange &row : exchanges) {
        std::size_t number = row.first;
        while (number < call_limit && exchange_before(row, number, outside)) {
            ASSERT_EQ(entries_below(outside.path()), whole)
                << row.given << ": " << row.exchanged << " before call " << number << " of a file";
            ++number;
        }
        EXPECT_GT(number, 30U) << row.given << ": " << row.exchanged;
    }
}

// Gives up root's rights for a while.
struct RightsOfEverybody {
    const bool was_root = geteuid() == 0;

    RightsOfEverybody()
    {
        if (was_root) {
            EXPECT_EQ(seteuid(65534), 0) << std::strerror(errno);
        }
    }

    ~RightsOfEverybody()
    {
        if (was_root) {
            EXPECT_EQ(seteuid(0), 0) << std::strerror(errno);
        }
    }

    RightsOfEverybody(const RightsOfEverybody &) = delete;
    RightsOfEverybody &operator=(const RightsOfEverybody &) = delete;
};

TEST(RemoveTreeExchange, OfTheDirectoryAboveThatMayOnlyBeSearchedNeverLeadsOut)
{
    const RightsOfEverybody rights;
    const TempFolder outside;
    make_directory(outside.path("bare"));
    make_directory(outside.path("bare/tree"));
    const Exchange row = {"above/tree", "above", "bare", 2, 0311};
    std::size_t number = row.first;
    while (number < call_limit && exchange_before(row, number, outside)) {
        ASSERT_TRUE(exists(outside.path("bare/tree"))) << "before call " << number << " of a file";
        ++number;
    }
    EXPECT_GT(number, 30U);
}

TEST(RemoveTreeExchange, OfADirectoryForALinkJustBeforeItIsOpenedLeavesTheLink)
{
    // To another directory, and to the very one that was examined.
    for (const char *target : {"outside", "aside"}) {
        const TempFolder folder;
        make_tree(folder, 2);
        bool exchanged = false;
        before_call = [&](const Call &call) {
            if (exchanged || plain_function(call) != "openat" || call.name != "level1")
                return;
            exchanged = true;
            std::rename(folder.path("tree/level1").c_str(), folder.path("aside").c_str());
            make_link(folder.path(target), folder.path("tree/level1"));
        };
        EXPECT_EQ(with_failing_call(0, 0, [&] { return remove_tree(folder.path("tree").c_str()); }),
                  0);
        EXPECT_TRUE(exchanged);
        EXPECT_TRUE(exists(folder.path("outside/kept"))) << target;
        EXPECT_TRUE(exists(folder.path("aside/level2/bottom"))) << target;
        EXPECT_EQ(names_in_system_order(folder.path("tree")), Names{"level1"}) << target;
    }
}

TEST(RemoveTreeExchange, OfADirectoryAboveTheWalkEndsItWhereTheWayUpLeadsElsewhere)
{
    constexpr int depth = 14;
    std::string moved = "above/tree";
    for (int level = 1; level <= depth; ++level) {
        moved += "/level";
        const TempFolder folder;
        make_directory(folder.path("above"));
        make_directory(folder.path("outside"));
        make_copy(folder.path("above/tree"), depth);
        make_copy(folder.path("outside/tree"), depth);
        const Names outside = entries_below(folder.path("outside"));
        // At the bottom, one of the directories on the way down goes into the folder outside, whose
        // entries have the names of those that the walk would go on with.
        const std::string elsewhere = folder.path("outside/tree/level/moved");
        bool done = false;
        before_call = [&](const Call &call) {
            if (!done && call.name == "bottom")
                done = std::rename(folder.path(moved).c_str(), elsewhere.c_str()) == 0;
        };
        const std::size_t before = open_descriptors();
        EXPECT_EQ(
            with_failing_call(0, 0, [&] { return remove_tree(folder.path("above/tree").c_str()); }),
            0);
        EXPECT_TRUE(done);
        EXPECT_EQ(open_descriptors(), before) << level;
        std::filesystem::remove_all(elsewhere);
        EXPECT_EQ(entries_below(folder.path("outside")), outside) << level;
        // The directory above the last one is still open, that above the first one is not.
        if (level == 1 || level == depth) {
            EXPECT_EQ(exists(folder.path("above/tree")), level == 1);
        }
    }
}

#endif

// The walk over files

int count_visit(const char *path, void *user_value)
{
    static_cast<Names *>(user_value)->push_back(last_component(path));
    return 0;
}

int visit_files(const TempFolder &folder, Names *visited)
{
    for_each_file(folder.path("dir").c_str(), count_visit, visited);
    return 0;
}

void make_files(const TempFolder &folder)
{
    make_directory(folder.path("dir"));
    make_directory(folder.path("dir/folder"));
    for (int i = 0; i < 5; ++i)
        make_file(folder.path("dir/" + std::to_string(i)));
}

TEST(ForEachFileFaults, LeaveOutWhatTheyConcernAndNothingElse)
{
    const TempFolder folder;
    make_files(folder);
    Names all;
    with_failing_call(0, 0, [&] { return visit_files(folder, &all); });
    ASSERT_EQ(all.size(), 5U);
    const std::vector<Call> made = calls;
    ASSERT_GT(made.size(), 14U);
    const std::size_t before = open_descriptors();

    for (std::size_t number = 1; number <= made.size(); ++number) {
        for (const int error : errors) {
            const std::string function = plain_function(made[number - 1]);
            Names expected;
            for (const std::string &name : all) {
                if (function != "stat" || last_component(made[number - 1].name) != name)
                    expected.push_back(name);
            }
            SCOPED_TRACE("call " + std::to_string(number) + " " + function);
            const RecordedReports recorded;
            Names visited;
            with_failing_call(number, error, [&] { return visit_files(folder, &visited); });
            EXPECT_EQ(open_descriptors(), before);
            EXPECT_EQ(reports.size(), function == "opendir" ? 1U : 0U);
            if (function == "readdir") {
                ASSERT_LE(visited.size(), all.size());
                EXPECT_TRUE(std::equal(visited.begin(), visited.end(), all.begin()));
            } else {
                EXPECT_EQ(visited, function == "opendir" ? Names() : expected);
            }
        }
    }
}

TEST(ForEachFileFaults, OfANameWithASlashLeadNowhere)
{
    const TempFolder folder;
    make_files(folder);
    make_file(folder.path("outside"));
    make_file(folder.path("dir/forged"));
    forged_name = "../outside";
    Names visited;
    with_failing_call(0, 0, [&] { return visit_files(folder, &visited); });
    EXPECT_EQ(visited.size(), 5U);
}

TEST(ForEachFileFaults, ReportTheReasonOfTheOpenItself)
{
    const TempFolder folder;
    make_files(folder);
    for (const int error : errors) {
        const RecordedReports recorded;
        Names visited;
        with_failing_call(1, error, [&] { return visit_files(folder, &visited); });
        ASSERT_EQ(reports.size(), 1U);
        EXPECT_EQ(reports[0].level, MessageLevel{Warning});
        EXPECT_EQ(reports[0].text, "Can't open directory " + folder.path("dir") + ": error " +
                                       std::strerror(error) + "\n");
    }
}

TEST(ForEachFileFaults, DoNotMistakeAFailedExaminationForTheOneBefore)
{
    // The entry behind a regular file is a directory that cannot be examined.
    const TempFolder folder;
    make_files(folder);
    const std::string directory_itself = folder.path("dir/folder");
    before_call = [&](const Call &call) {
        if (call.name == directory_itself)
            failing_call = calls.size();
    };
    Names visited;
    with_failing_call(0, EIO, [&] { return visit_files(folder, &visited); });
    EXPECT_FALSE(is_one_of("folder", visited));
    EXPECT_EQ(visited.size(), 5U);
}

// Command lines

TEST(ProcessCommandLineFaults, GiveNullWithoutAReportAndCloseTheFile)
{
    const struct {
        std::size_t number;
        const char *function;
        bool null;
    } rows[] = {{1, "fopen", true}, {2, "fread", true}, {3, "fread", false}, {4, "fclose", false}};
    for (const auto &row : rows) {
        const RecordedReports recorded;
        char buffer[4096] = "before";
        const std::size_t before = open_descriptors();
        char *result = with_failing_call(
            row.number, EIO, [&] { return process_command_line(buffer, sizeof buffer, 0); });
        EXPECT_EQ(plain_function(calls[row.number - 1]), row.function);
        EXPECT_EQ(calls[0].name, "/proc/" + std::to_string(getpid()) + "/cmdline");
        EXPECT_EQ(result, row.null ? nullptr : buffer) << row.function;
        EXPECT_EQ(buffer[0] == '\0', row.null) << row.function;
        EXPECT_EQ(open_descriptors(), before);
        EXPECT_EQ(reports.size(), 0U);
    }
}

} // namespace
} // namespace quintral
