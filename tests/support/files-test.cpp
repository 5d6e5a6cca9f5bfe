// Files and directories on the real things: files, links, sockets, FIFOs and devices, permissions
// and masks, full disks, and the bytes that a child process leaves on standard error.
//
// Compiled twice: with the library's own remove_tree, and with the one for old systems.
#include "support/c-utils/files.h"

#include "support/error.h"
#include "tests/harness/child-process.h"
#include "tests/harness/descriptors.h"
#include "tests/harness/message-handler-guard.h"
#include "tests/harness/temp-folder.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quintral {
namespace {

using tests::ChildOptions;
using tests::ChildResult;
using tests::ChildStream;
using tests::entries_below;
using tests::make_directory;
using tests::make_file;
using tests::make_link;
using tests::names_in_system_order;
using tests::open_descriptors;
using tests::permissions_of;
using tests::run_child_function;
using tests::TempFolder;

using Names = std::vector<std::string>;

// Longest path that the walks form, its terminator not counted.
constexpr std::size_t longest_path = 1023;

// What a child answers that cannot set up its own case.
constexpr int set_up_failed = 99;

// Reports

struct Report {
    MessageLevel level;
    std::string text;
};

bool operator==(const Report &one, const Report &other)
{
    return one.level == other.level && one.text == other.text;
}

std::ostream &operator<<(std::ostream &out, const Report &report)
{
    return out << "{" << report.level << ", \"" << report.text << "\"}";
}

std::vector<Report> reports;

// A handler may do anything to errno.
void record_report(MessageLevel level, const char *text)
{
    reports.push_back({level, text});
    errno = ERANGE;
}

// While one lives, reports are recorded and not shown.
struct RecordedReports {
    RecordedReports()
    {
        reports.clear();
    }

    tests::MessageHandlerGuard guard{record_report};
};

// Surroundings

// While one lives, the process has another file-creation mask.
class CreationMask {
public:
    explicit CreationMask(mode_t mask) : previous_(umask(mask))
    {
    }

    ~CreationMask()
    {
        umask(previous_);
    }

    CreationMask(const CreationMask &) = delete;
    CreationMask &operator=(const CreationMask &) = delete;

private:
    mode_t previous_;
};

bool exists(const std::string &path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

// Runs body in a child whose working folder is `folder` and that has no rights beyond those of
// everybody.
ChildResult run_without_rights(const TempFolder &folder, const std::function<int()> &body)
{
    chmod(folder.path().c_str(), 0777);
    return run_child_function([&] {
        if (chdir(folder.path().c_str()) != 0)
            return set_up_failed;
        if (geteuid() == 0 &&
            (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0))
            return set_up_failed;
        return body();
    });
}

// Binds a socket to the name in the folder. The path of a socket is short, hence the way through
// the working folder.
void make_socket(const TempFolder &folder, const std::string &name)
{
    const int working_folder = open(".", O_RDONLY | O_DIRECTORY);
    ASSERT_EQ(chdir(folder.path().c_str()), 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_LT(name.size(), sizeof address.sun_path);
    std::memcpy(address.sun_path, name.c_str(), name.size());
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    EXPECT_EQ(bind(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address), 0) << name;
    close(descriptor);
    EXPECT_EQ(fchdir(working_folder), 0);
    close(working_folder);
}

bool make_device(const std::string &path, mode_t type)
{
    constexpr dev_t some_device = 0x103; // nobody opens it
    return mknod(path.c_str(), type | 0600, some_device) == 0;
}

// Opening

struct FailedOpen {
    const char *mode;
    const char *name;
    int error;
    const char *report; // with %s for the path
};

std::string with_path(const std::string &text, const std::string &path)
{
    std::string result = text;
    const std::size_t place = result.find("%s");
    return place == std::string::npos ? result : result.replace(place, 2, path);
}

const FailedOpen failed_opens[] = {
    {"r", "missing", ENOENT, "Open of %s failed: No such file or directory\n"},
    {"r+", "missing", ENOENT, "Open of %s failed: No such file or directory\n"},
    {"rb", "missing", ENOENT, "Open of %s failed: No such file or directory\n"},
    {"r", "no-folder/file", ENOENT, "Open of %s failed: No such file or directory\n"},
    {"a", "no-folder/file", ENOENT, "Open of %s failed: No such file or directory\n"},
    {"a+", "no-folder/file", ENOENT, "Open of %s failed: No such file or directory\n"},
    {"w", "no-folder/file", ENOENT, "Write of %s failed at open: No such file or directory\n"},
    {"w+", "no-folder/file", ENOENT, "Write of %s failed at open: No such file or directory\n"},
    {"wb", "no-folder/file", ENOENT, "Write of %s failed at open: No such file or directory\n"},
    {"w", "folder", EISDIR, "Write of %s failed at open: Is a directory\n"},
    {"r+", "folder", EISDIR, "Open of %s failed: Is a directory\n"},
    {"a", "folder", EISDIR, "Open of %s failed: Is a directory\n"},
    {"r", "file/file", ENOTDIR, "Open of %s failed: Not a directory\n"},
    {"w", "file/file", ENOTDIR, "Write of %s failed at open: Not a directory\n"},
    {"r", "circle", ELOOP, "Open of %s failed: Too many levels of symbolic links\n"},
    {"w", "", ENOENT, "Write of %s failed at open: No such file or directory\n"},
};

void fill_for_failed_opens(const TempFolder &folder)
{
    make_directory(folder.path("folder"));
    make_file(folder.path("file"));
    make_link("circle", folder.path("circle"));
}

TEST(OpenFile, SaysNothingAboutAFailureWithoutFlags)
{
    const TempFolder folder;
    fill_for_failed_opens(folder);
    const RecordedReports recorded;
    for (const FailedOpen &row : failed_opens) {
        const std::string path = row.name[0] == '\0' ? "" : folder.path(row.name);
        for (const unsigned flags : {0U, 4U, 0x80000000U}) {
            errno = 0;
            EXPECT_EQ(open_file(path.c_str(), row.mode, flags), nullptr) << path << " " << row.mode;
            EXPECT_EQ(errno, row.error) << path << " " << row.mode;
        }
    }
    EXPECT_EQ(reports, std::vector<Report>());
}

TEST(OpenFile, ReportsAFailureOnceAtLevelErrorWithTheReportBit)
{
    const TempFolder folder;
    fill_for_failed_opens(folder);
    for (const FailedOpen &row : failed_opens) {
        const std::string path = row.name[0] == '\0' ? "" : folder.path(row.name);
        const RecordedReports recorded;
        EXPECT_EQ(open_file(path.c_str(), row.mode, OpenReport), nullptr) << row.mode;
        const std::vector<Report> expected = {{Error, with_path(row.report, path)}};
        EXPECT_EQ(reports, expected) << path << " " << row.mode;
    }
}

TEST(OpenFile, ReportsAFailureAndThrowsTheAbortExceptionWithTheFatalBit)
{
    const TempFolder folder;
    fill_for_failed_opens(folder);
    for (const FailedOpen &row : failed_opens) {
        const std::string path = row.name[0] == '\0' ? "" : folder.path(row.name);
        for (const unsigned flags : {1U, 3U}) {
            const RecordedReports recorded;
            bool thrown = false;
            try {
                open_file(path.c_str(), row.mode, flags);
            } catch (const QuintralAbortException &exception) {
                thrown = true;
                EXPECT_STREQ(exception.file, "support/c-utils");
                EXPECT_EQ(exception.line, 369);
                EXPECT_EQ(exception.code, 1);
                EXPECT_EQ(exception.reserved, 0);
            }
            EXPECT_TRUE(thrown) << path << " " << row.mode << " " << flags;
            const std::vector<Report> expected = {{Error, with_path(row.report, path)}};
            EXPECT_EQ(reports, expected) << path << " " << row.mode << " " << flags;
        }
    }
}

TEST(OpenFile, LeavesThePermissionsOfWhatItCannotOpenAlone)
{
    const TempFolder folder;
    make_directory(folder.path("folder"));
    EXPECT_EQ(open_file(folder.path("folder").c_str(), "w", 0), nullptr);
    EXPECT_EQ(permissions_of(folder.path("folder")), mode_t{0755});
}

TEST(OpenFile, WritesItsReportToStandardError)
{
    struct Row {
        const char *mode;
        unsigned flags;
        const char *error;
    };
    const Row rows[] = {
        {"r", 0, ""},
        {"r", OpenReport, "Error: Open of no/file failed: No such file or directory\a\n"},
        {"a", OpenReport, "Error: Open of no/file failed: No such file or directory\a\n"},
        {"w", OpenReport, "Error: Write of no/file failed at open: No such file or directory\a\n"},
    };
    const TempFolder folder;
    for (const Row &row : rows) {
        const ChildResult result = run_without_rights(
            folder, [&] { return open_file("no/file", row.mode, row.flags) == nullptr ? 7 : 0; });
        EXPECT_EQ(result.exit_status, 7) << row.mode;
        EXPECT_EQ(result.error, row.error) << row.mode;
        EXPECT_EQ(result.output, "") << row.mode;
    }
}

TEST(OpenFile, EndsTheProcessByTheAbortExceptionThatNobodyCatches)
{
    const TempFolder folder;
    const ChildResult result = run_without_rights(folder, [] {
        open_file("no/file", "r", OpenFatal);
        return 0;
    });
    EXPECT_EQ(result.signal, SIGABRT);
    const std::string report = "Error: Open of no/file failed: No such file or directory\a\n";
    EXPECT_EQ(result.error.substr(0, report.size()), report);
}

TEST(OpenFile, ReportsAMissingPermission)
{
    const TempFolder folder;
    const ChildResult result = run_without_rights(folder, [] {
        std::fclose(std::fopen("file", "w"));
        chmod("file", 0);
        for (const char *mode : {"r", "w", "a"}) {
            if (open_file("file", mode, OpenReport) != nullptr)
                return 1;
        }
        struct stat status;
        return stat("file", &status) == 0 && (status.st_mode & 0777) == 0 ? 0 : 2;
    });
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.error, "Error: Open of file failed: Permission denied\a\n"
                            "Error: Write of file failed at open: Permission denied\a\n"
                            "Error: Open of file failed: Permission denied\a\n");
}

TEST(OpenFile, SaysNothingWhenItOpens)
{
    const TempFolder folder;
    const RecordedReports recorded;
    for (const char *mode : {"w", "a", "r", "r+"}) {
        std::FILE *stream = open_file(folder.path("file").c_str(), mode, OpenFatal | OpenReport);
        ASSERT_NE(stream, nullptr) << mode;
        EXPECT_EQ(close_file(stream), 0) << mode;
    }
    EXPECT_EQ(reports, std::vector<Report>());
}

TEST(OpenFile, GivesAStreamOfTheModeAskedFor)
{
    const TempFolder folder;
    const std::string path = folder.path("file");
    const struct {
        const char *mode;
        const char *content; // of the file after 'x' has been written
    } rows[] = {{"w", "x"}, {"a", "xx"}, {"a+", "xxx"}, {"r+", "xxx"}, {"w+", "x"}};
    for (const auto &row : rows) {
        std::FILE *stream = open_file(path.c_str(), row.mode, 0);
        ASSERT_NE(stream, nullptr) << row.mode;
        std::fputc('x', stream);
        EXPECT_EQ(close_file(stream), 0);
        std::FILE *reader = open_file(path.c_str(), "r", 0);
        ASSERT_NE(reader, nullptr);
        char content[16] = {};
        EXPECT_EQ(std::fread(content, 1, sizeof content - 1, reader), std::strlen(row.content));
        EXPECT_STREQ(content, row.content) << row.mode;
        EXPECT_EQ(close_file(reader), 0);
    }
}

TEST(OpenFile, SetsPermissionsTo0666OnWriteAndAppendAndOnlyThen)
{
    constexpr mode_t none = 0;
    struct Row {
        const char *mode;
        mode_t before; // none: the file is new
        mode_t mask;
        mode_t after;
    };
    const Row rows[] = {
        {"w", none, 022, 0666},  {"w", none, 077, 0666},  {"w", none, 0777, 0666},
        {"w", 0600, 022, 0666},  {"w", 0644, 077, 0666},  {"w", 0777, 0, 0666},
        {"wb", 0600, 022, 0666}, {"w+", 0600, 022, 0666}, {"w+", none, 077, 0666},
        {"a", none, 077, 0666},  {"a", 0640, 022, 0666},  {"a+", none, 022, 0666},
        {"ab", 0700, 022, 0666}, {"r", 0640, 022, 0640},  {"r", 0600, 0, 0600},
        {"r+", 0640, 022, 0640}, {"r+", 0755, 0, 0755},   {"rb+", 0600, 077, 0600},
        {"wx", none, 077, 0666},
    };
    const TempFolder folder;
    const std::string path = folder.path("file");
    for (const Row &row : rows) {
        unlink(path.c_str());
        if (row.before != none) {
            make_file(path);
            ASSERT_EQ(chmod(path.c_str(), row.before), 0);
        }
        const CreationMask mask(row.mask);
        std::FILE *stream = open_file(path.c_str(), row.mode, 0);
        ASSERT_NE(stream, nullptr) << row.mode << " " << std::oct << row.before;
        EXPECT_EQ(permissions_of(path), row.after)
            << row.mode << std::oct << " before " << row.before << " mask " << row.mask;
        std::fclose(stream);
    }
}

TEST(OpenFile, SetsThePermissionsOfTheFileBehindALink)
{
    const TempFolder folder;
    make_file(folder.path("file"));
    chmod(folder.path("file").c_str(), 0600);
    make_link("file", folder.path("link"));
    std::FILE *stream = open_file(folder.path("link").c_str(), "a", 0);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(permissions_of(folder.path("file")), mode_t{0666});
    EXPECT_EQ(close_file(stream), 0);
}

TEST(OpenFile, DoesNotMindThatPermissionsCannotBeSet)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs a file of another user";
    const TempFolder folder;
    make_file(folder.path("file"));
    chmod(folder.path("file").c_str(), 0622);
    const ChildResult result = run_without_rights(folder, [] {
        std::FILE *stream = open_file("file", "w", OpenFatal);
        return stream != nullptr && close_file(stream) == 0 ? 7 : 1;
    });
    EXPECT_EQ(result.exit_status, 7);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(permissions_of(folder.path("file")), mode_t{0622});
}

TEST(OpenFileEither, OpensTheFirstThatOpensAndHandlesEachFailureByTheFlags)
{
    const std::string first_report = "Error: Open of first failed: No such file or directory\a\n";
    const std::string second_report = "Error: Open of second failed: No such file or directory\a\n";
    struct Row {
        const char *existing;
        unsigned flags;
        char opened; // first letter of the content read, '-' for null, '!' for the exception
        std::string error;
    };
    const Row rows[] = {
        {"both", 0, 'f', ""},
        {"both", OpenReport, 'f', ""},
        {"first", OpenReport, 'f', ""},
        {"first", OpenFatal, 'f', ""},
        {"second", 0, 's', ""},
        {"second", OpenReport, 's', first_report},
        {"second", OpenFatal, '!', first_report},
        {"second", OpenFatal | OpenReport, '!', first_report},
        {"none", 0, '-', ""},
        {"none", OpenReport, '-', first_report + second_report},
        {"none", OpenFatal, '!', first_report},
    };
    for (const Row &row : rows) {
        const TempFolder folder;
        const std::string existing = row.existing;
        if (existing == "both" || existing == "first")
            make_file(folder.path("first"), "f");
        if (existing == "both" || existing == "second")
            make_file(folder.path("second"), "s");
        const ChildResult result = run_without_rights(folder, [&]() -> int {
            try {
                std::FILE *stream = open_file_either("first", "second", "r", row.flags);
                return stream == nullptr ? '-' : std::fgetc(stream);
            } catch (const QuintralAbortException &) {
                return '!';
            }
        });
        EXPECT_EQ(result.exit_status, row.opened) << existing << " " << row.flags;
        EXPECT_EQ(result.error, row.error) << existing << " " << row.flags;
    }
}

TEST(OpenFileEither, PassesTheModeOnAndNeverTouchesTheSecondPathWhereTheFirstOpens)
{
    const TempFolder folder;
    const CreationMask mask(077);
    std::FILE *stream = open_file_either(folder.path("first").c_str(),
                                         folder.path("second").c_str(), "w", OpenReport);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(close_file(stream), 0);
    EXPECT_EQ(entries_below(folder.path()), Names{"first"});

    stream =
        open_file_either(folder.path("no/first").c_str(), folder.path("second").c_str(), "w", 0);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(close_file(stream), 0);
    EXPECT_EQ(permissions_of(folder.path("second")), mode_t{0666});
}

// Closing

TEST(CloseFile, DoesNothingForNull)
{
    const RecordedReports recorded;
    EXPECT_EQ(close_file(nullptr), 0);
    EXPECT_EQ(reports, std::vector<Report>());
}

TEST(CloseFile, WritesWhatIsLeftAndReturns0)
{
    const TempFolder folder;
    std::FILE *stream = open_file(folder.path("file").c_str(), "w", 0);
    ASSERT_NE(stream, nullptr);
    std::fputs("twelve bytes", stream);
    EXPECT_EQ(close_file(stream), 0);
    EXPECT_EQ(std::filesystem::file_size(folder.path("file")), 12U);
}

int fail_to_close()
{
    std::FILE *stream = std::fopen("/dev/full", "w");
    if (stream == nullptr)
        return set_up_failed;
    std::fputs("text that does not fit", stream);
    const std::size_t before = open_descriptors();
    const int result = close_file(stream);
    return result == -1 && open_descriptors() == before - 1 ? 7 : 1;
}

TEST(CloseFile, ReportsAFullDiskAndPrintsTheReason)
{
    const ChildResult result = run_child_function(fail_to_close);
    EXPECT_EQ(result.exit_status, 7);
    EXPECT_EQ(result.error, "Error: Close file failed.\a\nReason: No space left on device\n");
    EXPECT_EQ(result.output, "");
}

TEST(CloseFile, PrintsTheReasonOfTheCloseWhateverTheHandlerDoesToErrno)
{
    const ChildResult result = run_child_function([] {
        set_message_handler([](MessageLevel level, const char *text) {
            std::fprintf(stdout, "%d %s|", level, text);
            errno = EPERM;
        });
        return fail_to_close();
    });
    EXPECT_EQ(result.exit_status, 7);
    EXPECT_EQ(result.output, "9 Close file failed.|");
    EXPECT_EQ(result.error, "Reason: No space left on device\n");
}

TEST(CloseFile, PrintsTheReasonOfTheCloseWhereStandardErrorIsFullToo)
{
    ChildOptions options;
    options.error = ChildStream::FullDisk;
    EXPECT_EQ(run_child_function(fail_to_close, options).exit_status, 7);
    options.error = ChildStream::Closed;
    EXPECT_EQ(run_child_function(fail_to_close, options).exit_status, 7);
}

// Paths

TEST(FileExists, Is1WhereThePathLeadsToSomething)
{
    const TempFolder folder;
    make_file(folder.path("file"));
    make_file(folder.path("empty"), "");
    make_directory(folder.path("folder"));
    make_link("file", folder.path("link"));
    make_link("folder", folder.path("folder-link"));
    make_link("nowhere", folder.path("dangling"));
    make_link("circle", folder.path("circle"));
    ASSERT_EQ(mkfifo(folder.path("fifo").c_str(), 0600), 0);
    make_socket(folder, "socket");
    const struct {
        const char *name;
        int expected;
    } rows[] = {
        {"file", 1},   {"empty", 1},       {"folder", 1},       {"folder/", 1},
        {"link", 1},   {"folder-link", 1}, {"dangling", 0},     {"circle", 0},
        {"fifo", 1},   {"socket", 1},      {"missing", 0},      {"file/", 0},
        {"file/x", 0}, {"folder/x", 0},    {"folder-link/", 1}, {"no/such/path", 0},
    };
    for (const auto &row : rows)
        EXPECT_EQ(file_exists(folder.path(row.name).c_str()), row.expected) << row.name;
    EXPECT_EQ(file_exists(""), 0);
    EXPECT_EQ(file_exists(nullptr), 0);
}

// One entry of every kind, and a folder `outside` that links lead to.
void make_one_of_each(const TempFolder &folder)
{
    make_directory(folder.path("outside"));
    make_file(folder.path("outside/kept"));
    make_file(folder.path("file"));
    make_directory(folder.path("empty"));
    make_directory(folder.path("full"));
    make_file(folder.path("full/file"));
    make_link("outside/kept", folder.path("file-link"));
    make_link("outside", folder.path("folder-link"));
    make_link("nowhere", folder.path("dangling"));
    make_link("circle", folder.path("circle"));
    ASSERT_EQ(mkfifo(folder.path("fifo").c_str(), 0600), 0);
    make_socket(folder, "socket");
}

TEST(RemovePath, RemovesAFileAnEmptyDirectoryOrALinkItself)
{
    const TempFolder folder;
    make_one_of_each(folder);
    const struct {
        const char *name;
        int result;
        int error;
        bool left;
    } rows[] =
        {
            {"missing", -1, ENOENT, false}, {"file/x", -1, ENOTDIR, false},
            {"file", 0, 0, false},          {"empty", 0, 0, false},
            {"full", -1, ENOTEMPTY, true},  {"file-link", 0, 0, false},
            {"folder-link", 0, 0, false},   {"dangling", 0, 0, false},
            {"circle", 0, 0, false},        {"fifo", 0, 0, false},
            {"socket", -1, ENOTDIR, true}, // rmdir's answer: sockets count as directories
        };
    for (const auto &row : rows) {
        const std::string path = folder.path(row.name);
        errno = 0;
        EXPECT_EQ(remove_path(path.c_str()), row.result) << row.name;
        EXPECT_EQ(errno, row.error) << row.name;
        EXPECT_EQ(exists(path), row.left) << row.name;
    }
    EXPECT_EQ(entries_below(folder.path()),
              (Names{"full", "full/file", "outside", "outside/kept", "socket"}));
}

TEST(RemovePath, DoesNothingForANullOrEmptyPath)
{
    EXPECT_EQ(remove_path(nullptr), 0);
    EXPECT_EQ(remove_path(""), 0);
}

TEST(RemovePath, RemovesCharacterDevicesAndNeverBlockDevices)
{
    const TempFolder folder;
    if (!make_device(folder.path("character"), S_IFCHR) ||
        !make_device(folder.path("block"), S_IFBLK))
        GTEST_SKIP() << "this user may not make devices";
    EXPECT_EQ(remove_path(folder.path("character").c_str()), 0);
    EXPECT_EQ(remove_path(folder.path("block").c_str()), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(entries_below(folder.path()), Names{"block"});
}

TEST(RemovePath, FailsSilentlyWithoutPermission)
{
    const TempFolder folder;
    const ChildResult result = run_without_rights(folder, [] {
        mkdir("folder", 0755);
        std::fclose(std::fopen("folder/file", "w"));
        chmod("folder", 0555);
        const int removed = remove_path("folder/file");
        const bool refused = removed == -1 && errno == EACCES && exists("folder/file");
        chmod("folder", 0);
        const bool unseen = remove_path("folder/file") == -1 && errno == EACCES;
        chmod("folder", 0755);
        return refused && unseen && exists("folder/file") ? 7 : 1;
    });
    EXPECT_EQ(result.exit_status, 7);
    EXPECT_EQ(result.error, "");
}

// Trees

TEST(RemoveTree, RemovesEverythingBelowAndTheTop)
{
    const TempFolder folder;
    make_directory(folder.path("outside"));
    make_file(folder.path("outside/kept"));
    make_directory(folder.path("tree"));
    const std::string names[] = {"plain",
                                 "with blank",
                                 ".hidden",
                                 "..two",
                                 "...",
                                 "new\nline",
                                 "\xe4\xff",
                                 "*",
                                 "-rf",
                                 "percent%s%n",
                                 std::string(255, 'x')};
    for (const std::string &name : names) {
        const std::string sub = folder.path("tree/" + name);
        make_directory(sub);
        make_directory(sub + "/empty");
        make_file(sub + "/file");
        make_file(sub + "/read-only");
        chmod((sub + "/read-only").c_str(), 0444);
        make_link(folder.path("outside"), sub + "/folder-link");
        make_link(folder.path("outside/kept"), sub + "/file-link");
        make_link("nowhere", sub + "/dangling");
        make_link("..", sub + "/up");
        ASSERT_EQ(mkfifo((sub + "/fifo").c_str(), 0600), 0);
        for (const std::string &inner : names)
            make_file(sub + "/empty/" + inner, "");
    }
    const std::size_t before = open_descriptors();
    EXPECT_EQ(remove_tree(folder.path("tree").c_str()), 0);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(entries_below(folder.path()), (Names{"outside", "outside/kept"}));
}

TEST(RemoveTree, RemovesADirectoryWithManyEntries)
{
    const TempFolder folder;
    make_directory(folder.path("tree"));
    for (int i = 0; i < 3000; ++i)
        make_file(folder.path("tree/file-" + std::to_string(i)), "");
    for (int i = 0; i < 300; ++i)
        make_directory(folder.path("tree/folder-" + std::to_string(i)));
    EXPECT_EQ(remove_tree(folder.path("tree").c_str()), 0);
    EXPECT_EQ(entries_below(folder.path()), Names());
}

TEST(RemoveTree, TakesATopOfEveryKind)
{
    const TempFolder folder;
    make_one_of_each(folder);
    const struct {
        const char *name;
        int result;
        bool left;
    } rows[] = {
        {"missing", -1, false}, {"no/such/path", -1, false}, {"file/x", -1, false},
        {"file/", -1, false},   {"file", 0, false},          {"empty", 0, false},
        {"full", 0, false},     {"file-link", 0, false},     {"folder-link", 0, false},
        {"dangling", 0, false}, {"circle", 0, false},        {"fifo", 0, false},
        {"socket", 0, true}, // sockets count as directories, which rmdir refuses
    };
    for (const auto &row : rows) {
        const std::string path = folder.path(row.name);
        EXPECT_EQ(remove_tree(path.c_str()), row.result) << row.name;
        EXPECT_EQ(exists(path), row.left) << row.name;
    }
    EXPECT_EQ(entries_below(folder.path()), (Names{"outside", "outside/kept", "socket"}));
}

TEST(RemoveTree, FailsForANullOrEmptyPath)
{
    EXPECT_EQ(remove_tree(nullptr), -1);
    EXPECT_EQ(remove_tree(""), -1);
}

TEST(RemoveTree, TakesTheTopInEverySpelling)
{
    struct Row {
        const char *path; // from the folder, with tree/file in it
        bool top_left;    // rmdir refuses a path that ends in a dot
    };
    const Row rows[] = {
        {"tree", false},   {"tree/", false},         {"tree///", false},
        {"./tree", false}, {".//tree//", false},     {"tree/../tree", false},
        {"tree/.", true},  {"other/../tree", false}, {"tree/sub/..", true},
    };
    const TempFolder folder;
    make_directory(folder.path("other"));
    for (const Row &row : rows) {
        make_directory(folder.path("tree"));
        make_directory(folder.path("tree/sub"));
        make_file(folder.path("tree/sub/file"));
        const ChildResult relative = run_child_function([&] {
            return chdir(folder.path().c_str()) == 0 ? remove_tree(row.path) : set_up_failed;
        });
        EXPECT_EQ(relative.exit_status, 0) << row.path;
        EXPECT_EQ(entries_below(folder.path()),
                  row.top_left ? (Names{"other", "tree"}) : Names{"other"})
            << row.path;
        rmdir(folder.path("tree").c_str());

        make_directory(folder.path("tree"));
        make_directory(folder.path("tree/sub"));
        make_file(folder.path("tree/sub/file"));
        EXPECT_EQ(remove_tree(folder.path(row.path).c_str()), 0) << row.path;
        EXPECT_EQ(entries_below(folder.path()),
                  row.top_left ? (Names{"other", "tree"}) : Names{"other"})
            << row.path;
        rmdir(folder.path("tree").c_str());
    }
}

TEST(RemoveTree, EmptiesTheDirectoryBehindALinkThatIsGivenWithASlash)
{
    const TempFolder folder;
    make_directory(folder.path("target"));
    make_file(folder.path("target/file"));
    make_link("target", folder.path("link"));
    EXPECT_EQ(remove_tree(folder.path("link/").c_str()), 0);
    EXPECT_EQ(entries_below(folder.path()), (Names{"link", "target"}));
}

TEST(RemoveTree, FollowsLinksAboveTheTop)
{
    const TempFolder folder;
    make_directory(folder.path("above"));
    make_directory(folder.path("above/tree"));
    make_file(folder.path("above/tree/file"));
    make_link("above", folder.path("link"));
    EXPECT_EQ(remove_tree(folder.path("link/tree").c_str()), 0);
    EXPECT_EQ(entries_below(folder.path()), (Names{"above", "link"}));
}

TEST(RemoveTree, LeavesSocketsWithTheDirectoriesAboveThemAndReturns0)
{
    const TempFolder folder;
    make_directory(folder.path("tree"));
    make_directory(folder.path("tree/a"));
    make_directory(folder.path("tree/b"));
    make_directory(folder.path("tree/b/c"));
    make_file(folder.path("tree/a/file"));
    make_file(folder.path("tree/b/file"));
    make_file(folder.path("tree/b/c/file"));
    make_socket(folder, "tree/b/socket");
    EXPECT_EQ(remove_tree(folder.path("tree").c_str()), 0);
    EXPECT_EQ(entries_below(folder.path()), (Names{"tree", "tree/b", "tree/b/socket"}));
}

TEST(RemoveTree, RemovesCharacterDevicesAndNeverBlockDevices)
{
    const TempFolder folder;
    make_directory(folder.path("tree"));
    if (!make_device(folder.path("tree/character"), S_IFCHR) ||
        !make_device(folder.path("tree/block"), S_IFBLK))
        GTEST_SKIP() << "this user may not make devices";
    EXPECT_EQ(remove_tree(folder.path("tree").c_str()), 0);
    EXPECT_EQ(entries_below(folder.path()), (Names{"tree", "tree/block"}));
}

// The chain tree/d1/d2/... of `depth` directories below the working folder's `tree`, a file beside
// each and one at its end. The child's side: no assertions.
bool make_chain(int depth)
{
    std::string path = "tree";
    for (int level = 1; level <= depth; ++level) {
        if (mkdir(path.c_str(), 0755) != 0)
            return false;
        std::FILE *stream = std::fopen((path + "/file").c_str(), "w");
        if (stream == nullptr)
            return false;
        std::fclose(stream);
        path += "/d" + std::to_string(level);
    }
    return mkdir(path.c_str(), 0755) == 0;
}

std::string chain_path(int depth)
{
    std::string path = "tree";
    for (int level = 1; level <= depth; ++level)
        path += "/d" + std::to_string(level);
    return path;
}

TEST(RemoveTree, GoesOnBesideDirectoriesThatItMayNotEnter)
{
    struct Row {
        int depth;
        mode_t permissions;
        bool empty;
        bool left;
    };
    // Without the right to read, and to read but not to search: no way up leads through the latter.
    const Row rows[] = {
        {1, 0, false, true},     {1, 0, true, false},     {1, 0400, false, true},
        {1, 0400, true, false},  {1, 0500, false, true},  {1, 0300, false, true},
        {12, 0, false, true},    {12, 0, true, false},    {12, 0400, false, true},
        {12, 0400, true, false}, {12, 0500, false, true}, {40, 0400, false, true},
    };
    for (const Row &row : rows) {
        const TempFolder folder;
        const std::string locked = chain_path(row.depth);
        const ChildResult result = run_without_rights(folder, [&] {
            if (!make_chain(row.depth))
                return set_up_failed;
            if (!row.empty)
                std::fclose(std::fopen((locked + "/inner").c_str(), "w"));
            chmod(locked.c_str(), row.permissions);
            const int removed = remove_tree("tree");
            chmod(locked.c_str(), 0700);
            return removed == 0 ? 7 : 1;
        });
        EXPECT_EQ(result.exit_status, 7) << row.depth << std::oct << " " << row.permissions;
        EXPECT_EQ(result.error, "");
        Names expected;
        for (int level = 0; row.left && level <= row.depth; ++level)
            expected.push_back(chain_path(level));
        if (row.left)
            expected.push_back(locked + "/inner");
        EXPECT_EQ(entries_below(folder.path()), expected)
            << row.depth << std::oct << " " << row.permissions << " " << row.empty;
    }
}

TEST(RemoveTree, NeedsNoRightToReadTheDirectoryThatTheTreeIsIn)
{
    for (const mode_t permissions : {mode_t{0300}, mode_t{0100}}) {
        const TempFolder folder;
        const ChildResult result = run_without_rights(folder, [&] {
            mkdir("above", 0755);
            if (chdir("above") != 0 || !make_chain(12) || chdir("..") != 0)
                return set_up_failed;
            chmod("above", permissions);
            const int removed = remove_tree("above/tree");
            chmod("above", 0755);
            return removed == 0 ? 7 : 1;
        });
        EXPECT_EQ(result.exit_status, 7);
        const bool may_write = (permissions & 0200) != 0;
        EXPECT_EQ(entries_below(folder.path()),
                  may_write ? Names{"above"} : (Names{"above", "above/tree"}));
    }
}

TEST(RemoveTree, FailsWhereTheTopIsOutOfReach)
{
    const TempFolder folder;
    const ChildResult result = run_without_rights(folder, [] {
        mkdir("above", 0755);
        if (chdir("above") != 0 || !make_chain(1) || chdir("..") != 0)
            return set_up_failed;
        chmod("above", 0);
        const int removed = remove_tree("above/tree");
        chmod("above", 0755);
        return removed == -1 && exists("above/tree/file") ? 7 : 1;
    });
    EXPECT_EQ(result.exit_status, 7);
}

// Lets the process have descriptors below that number only.
bool allow_descriptors(rlim_t count)
{
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return false;
    limit.rlim_cur = count;
    return setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

TEST(RemoveTree, Returns0WhereNoDescriptorIsLeft)
{
    const TempFolder folder;
    const ChildResult result = run_without_rights(folder, [] {
        if (!make_chain(3))
            return set_up_failed;
        if (!allow_descriptors(0))
            return set_up_failed;
        return remove_tree("tree") == 0 && exists("tree/d1/d2/d3") ? 7 : 1;
    });
    EXPECT_EQ(result.exit_status, 7);
}

// The removal of "tree" in a thread that has little stack.
void *remove_in_thread(void *result)
{
    *static_cast<int *>(result) = remove_tree("tree");
    return nullptr;
}

int remove_with_little_stack()
{
    int result = -2;
    pthread_attr_t attributes;
    pthread_t thread;
    if (pthread_attr_init(&attributes) != 0 ||
        pthread_attr_setstacksize(&attributes, std::size_t{256} << 10) != 0 ||
        pthread_create(&thread, &attributes, remove_in_thread, &result) != 0)
        return set_up_failed;
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    return result;
}

// A tree `depth` levels deep, names of one letter, below the working folder.
bool make_deep_tree(int depth)
{
    int folder = open(".", O_RDONLY | O_DIRECTORY);
    for (int level = 0; level < depth && folder >= 0; ++level) {
        const char *name = level == 0 ? "tree" : "d";
        mkdirat(folder, name, 0755);
        const int next = openat(folder, name, O_RDONLY | O_DIRECTORY);
        close(folder);
        folder = next;
        close(openat(folder, "f", O_CREAT | O_WRONLY, 0644));
        close(openat(folder, "z", O_CREAT | O_WRONLY, 0644));
    }
    return folder >= 0 && close(folder) == 0;
}

TEST(RemoveTree, Removes400LevelsWith32DescriptorsAnd256KiBOfStack)
{
    for (const int depth : {400, 505}) {
        const TempFolder folder;
        const ChildResult result = run_without_rights(folder, [&] {
            if (!make_deep_tree(depth) || !allow_descriptors(32))
                return set_up_failed;
            return remove_with_little_stack();
        });
        EXPECT_EQ(result.exit_status, 0) << depth << " signal " << result.signal;
        EXPECT_EQ(entries_below(folder.path()), Names()) << depth;
    }
}

// A directory name of `length` characters.
std::string long_name(std::size_t length)
{
    return std::string(length, 'n');
}

// Makes tree/nnn.../nnn... in the folder and returns the path from the folder, `length` characters.
std::string make_long_path(const TempFolder &folder, std::size_t length)
{
    std::string path = "tree";
    make_directory(folder.path(path));
    while (path.size() < length) {
        const std::size_t left = length - path.size() - 1;
        path += "/" + long_name(left > 250 ? 200 : left);
        make_directory(folder.path(path));
    }
    return path;
}

ChildResult remove_tree_in(const TempFolder &folder, const char *path)
{
    return run_child_function(
        [&] { return chdir(folder.path().c_str()) == 0 ? remove_tree(path) : set_up_failed; });
}

TEST(RemoveTree, TakesPathsOf1023CharactersAndAbortsAtALongerOne)
{
    for (const char *kind : {"file", "directory", "link"}) {
        for (const std::size_t length : {longest_path, longest_path + 1}) {
            const TempFolder folder;
            const std::string path = make_long_path(folder, 1000);
            const std::string entry = folder.path(path + "/" + long_name(length - 1001));
            if (kind[0] == 'f')
                make_file(entry);
            else if (kind[0] == 'd')
                make_directory(entry);
            else
                make_link("nowhere", entry);
            const ChildResult result = remove_tree_in(folder, "tree");
            EXPECT_EQ(result.signal, length > longest_path ? SIGABRT : 0) << kind << length;
            EXPECT_EQ(exists(entry), length > longest_path) << kind << length;
            EXPECT_EQ(exists(folder.path("tree")), length > longest_path) << kind << length;
        }
    }
}

TEST(RemoveTree, LeavesAnEntryThatIsTooLongAndAllThatFollowsIt)
{
    const TempFolder folder;
    const std::string path = make_long_path(folder, 1000);
    for (int i = 0; i < 40; ++i)
        make_file(folder.path(path + "/" + std::to_string(i)));
    const std::string too_long = long_name(40);
    make_file(folder.path(path + "/" + too_long));
    Names expected = names_in_system_order(folder.path(path));
    expected.erase(expected.begin(), std::find(expected.begin(), expected.end(), too_long));
    ASSERT_FALSE(expected.empty());

    const ChildResult result = remove_tree_in(folder, "tree");
    EXPECT_EQ(result.signal, SIGABRT);
    Names left = names_in_system_order(folder.path(path));
    std::sort(left.begin(), left.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(left, expected);
}

TEST(RemoveTree, CountsTheLengthOfThePathAsItIsGiven)
{
    const std::string dots = [] {
        std::string text;
        while (text.size() < 1020)
            text += "./";
        return text;
    }();
    struct Row {
        std::string top;
        std::string entry; // in the top, which is a directory; empty for none
        bool aborts;
    };
    const Row rows[] = {
        {dots.substr(0, 1014) + "tree", "four", false}, // 1018 + 1 + 4
        {dots.substr(0, 1014) + "tree", "fifth", true},
        {dots.substr(0, 1012) + "tree//", "four", false}, // the slashes count
        {dots.substr(0, 1014) + "tree/", "four", true},
        {dots + dots + "tree", "", false}, // nothing is formed for the top itself
        {dots + dots + "tree", "x", true},
    };
    for (const Row &row : rows) {
        const TempFolder folder;
        make_directory(folder.path("tree"));
        if (!row.entry.empty())
            make_file(folder.path("tree/" + row.entry));
        const ChildResult result = remove_tree_in(folder, row.top.c_str());
        EXPECT_EQ(result.signal, row.aborts ? SIGABRT : 0) << row.top.size() << row.entry;
        EXPECT_EQ(exists(folder.path("tree")), row.aborts) << row.top.size() << row.entry;
    }
}

// The walk over files

struct Visits {
    Names paths;
    int result = 0;
};

int record_visit(const char *path, void *user_value)
{
    auto *visits = static_cast<Visits *>(user_value);
    visits->paths.push_back(path);
    return visits->result;
}

TEST(ForEachFile, CallsForRegularFilesOfTheDirectoryInItsOrder)
{
    const TempFolder folder;
    make_directory(folder.path("dir"));
    make_directory(folder.path("dir/c"));
    make_file(folder.path("dir/c/inner"));
    make_directory(folder.path("elsewhere"));
    const Names files = {"a", "b", ".hidden", "..two", "blank name", "\xe4", "%s%n", "z"};
    for (const std::string &name : files)
        make_file(folder.path("dir/" + name), name == "z" ? "" : "content");
    make_link("a", folder.path("dir/file-link"));
    make_link("../elsewhere", folder.path("dir/folder-link"));
    make_link("nowhere", folder.path("dir/dangling"));
    make_link("circle", folder.path("dir/circle"));
    ASSERT_EQ(mkfifo(folder.path("dir/fifo").c_str(), 0600), 0);
    make_socket(folder, "dir/socket");

    for (const char *given : {"dir", "dir/", "./dir"}) {
        Names expected;
        for (const std::string &name : names_in_system_order(folder.path("dir"))) {
            if (name == "file-link" || std::find(files.begin(), files.end(), name) != files.end())
                expected.push_back(folder.path(given) + "/" + name);
        }
        ASSERT_EQ(expected.size(), files.size() + 1);
        const RecordedReports recorded;
        Visits visits;
        const std::size_t before = open_descriptors();
        for_each_file(folder.path(given).c_str(), record_visit, &visits);
        EXPECT_EQ(visits.paths, expected) << given;
        EXPECT_EQ(open_descriptors(), before);
        EXPECT_EQ(reports, std::vector<Report>());
    }
}

TEST(ForEachFile, FormsThePathsFromTheDirectoryAsGiven)
{
    const TempFolder folder;
    make_directory(folder.path("dir"));
    make_directory(folder.path("dir/c"));
    make_file(folder.path("dir/a"));
    make_file(folder.path("dir/b"));
    const ChildResult result = run_without_rights(folder, [] {
        for_each_file(
            "dir", [](const char *path, void *) { return std::puts(path); }, nullptr);
        return 0;
    });
    std::string expected;
    for (const std::string &name : names_in_system_order(folder.path("dir")))
        expected += name == "c" ? "" : "dir/" + name + "\n";
    EXPECT_EQ(result.output, expected);
}

TEST(ForEachFile, IgnoresWhatTheCallbackReturns)
{
    const TempFolder folder;
    for (const char *name : {"a", "b", "c"})
        make_file(folder.path(name));
    for (const int value : {-1, 0, 1}) {
        Visits visits;
        visits.result = value;
        for_each_file(folder.path().c_str(), record_visit, &visits);
        EXPECT_EQ(visits.paths.size(), 3U) << value;
    }
}

TEST(ForEachFile, CallsNothingForAnEmptyDirectory)
{
    const TempFolder folder;
    const RecordedReports recorded;
    Visits visits;
    for_each_file(folder.path().c_str(), record_visit, &visits);
    EXPECT_EQ(visits.paths, Names());
    EXPECT_EQ(reports, std::vector<Report>());
}

TEST(ForEachFile, ReportsADirectoryThatCannotBeOpenedAtLevelWarning)
{
    const TempFolder folder;
    make_file(folder.path("file"));
    make_link("circle", folder.path("circle"));
    const struct {
        const char *name;
        const char *reason;
    } rows[] = {
        {"missing", "No such file or directory"},
        {"file", "Not a directory"},
        {"circle", "Too many levels of symbolic links"},
    };
    for (const auto &row : rows) {
        const std::string path = folder.path(row.name);
        const RecordedReports recorded;
        Visits visits;
        for_each_file(path.c_str(), record_visit, &visits);
        const std::vector<Report> expected = {
            {Warning, "Can't open directory " + path + ": error " + row.reason + "\n"}};
        EXPECT_EQ(reports, expected) << row.name;
        EXPECT_EQ(visits.paths, Names());
    }
}

TEST(ForEachFile, WritesItsReportToStandardError)
{
    const TempFolder folder;
    const ChildResult result = run_without_rights(folder, [] {
        mkdir("locked", 0);
        for_each_file("locked", record_visit, nullptr);
        return 7;
    });
    EXPECT_EQ(result.exit_status, 7);
    EXPECT_EQ(result.error, "Warning: Can't open directory locked: error Permission denied\a\n");
}

TEST(ForEachFile, LeavesOutWhatItMayNotExamine)
{
    const TempFolder folder;
    const ChildResult result = run_without_rights(folder, [] {
        mkdir("dir", 0755);
        std::fclose(std::fopen("dir/a", "w"));
        chmod("dir", 0400);
        Visits visits;
        for_each_file("dir", record_visit, &visits);
        chmod("dir", 0700);
        return visits.paths.empty() ? 7 : 1;
    });
    EXPECT_EQ(result.exit_status, 7);
    EXPECT_EQ(result.error, "");
}

TEST(ForEachFile, LetsTheCallbackRemoveItsFile)
{
    const TempFolder folder;
    for (int i = 0; i < 500; ++i)
        make_file(folder.path(std::to_string(i)), "");
    for_each_file(
        folder.path().c_str(), [](const char *path, void *) { return remove_path(path); }, nullptr);
    EXPECT_EQ(entries_below(folder.path()), Names());
}

TEST(ForEachFile, ClosesTheDirectoryWhenTheCallbackThrows)
{
    const TempFolder folder;
    make_file(folder.path("a"));
    make_file(folder.path("b"));
    const std::size_t before = open_descriptors();
    int calls = 0;
    const FileCallback throwing = [](const char *, void *user_value) -> int {
        ++*static_cast<int *>(user_value);
        throw std::runtime_error("from the callback");
    };
    EXPECT_THROW(for_each_file(folder.path().c_str(), throwing, &calls), std::runtime_error);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(open_descriptors(), before);
}

TEST(ForEachFile, TakesPathsOf1023CharactersAndAbortsAtALongerOne)
{
    for (const std::size_t length : {longest_path, longest_path + 1}) {
        const TempFolder folder;
        const std::string path = make_long_path(folder, 1000);
        for (int i = 0; i < 20; ++i)
            make_file(folder.path(path + "/" + std::to_string(i)));
        const std::string longest = long_name(length - 1001);
        make_file(folder.path(path + "/" + longest));
        Names visited = names_in_system_order(folder.path(path));
        if (length > longest_path)
            visited.erase(std::find(visited.begin(), visited.end(), longest), visited.end());
        std::string expected;
        for (const std::string &name : visited)
            expected += path + "/" + name + "\n";

        const ChildResult result = run_child_function([&] {
            if (chdir(folder.path().c_str()) != 0)
                return set_up_failed;
            const FileCallback print = [](const char *visited_path, void *) {
                std::puts(visited_path);
                return std::fflush(stdout);
            };
            for_each_file(path.c_str(), print, nullptr);
            return 0;
        });
        EXPECT_EQ(result.signal, length > longest_path ? SIGABRT : 0) << length;
        EXPECT_EQ(result.output, expected) << length;
    }
}

// Large files

TEST(LargeFiles, AreFilesLikeAnyOther)
{
    const TempFolder folder;
    make_directory(folder.path("tree"));
    const std::string path = folder.path("tree/file");
    make_file(path);
    std::error_code error;
    std::filesystem::resize_file(path, std::uintmax_t{3} << 30, error);
    if (error)
        GTEST_SKIP() << "no room for a file of 3 GiB, holes and all: " << error.message();
    const RecordedReports recorded;
    EXPECT_EQ(file_exists(path.c_str()), 1);
    std::FILE *stream = open_file(path.c_str(), "r", OpenReport);
    EXPECT_NE(stream, nullptr);
    EXPECT_EQ(close_file(stream), 0);
    Visits visits;
    for_each_file(folder.path("tree").c_str(), record_visit, &visits);
    EXPECT_EQ(visits.paths, Names{path});
    EXPECT_EQ(remove_tree(folder.path("tree").c_str()), 0);
    EXPECT_EQ(entries_below(folder.path()), Names());
    EXPECT_EQ(reports, std::vector<Report>());
}

// The last component

TEST(PathBasename, IsWhatStandsBehindTheLastSlash)
{
    const struct {
        const char *path;
        int offset; // of the result in the path
    } rows[] = {
        {"a/b/c", 4}, {"c", 0},    {"/", 0},    {"a/b/", 4}, {"//", 2},        {"/a", 1},
        {"a/", 2},    {"///", 3},  {"a//b", 3}, {".", 0},    {"..", 0},        {"a/..", 2},
        {" ", 0},     {"a\\b", 0}, {"/ ", 1},   {"./", 2},   {"\xe4/\xff", 2},
    };
    for (const auto &row : rows)
        EXPECT_EQ(path_basename(row.path), row.path + row.offset) << row.path;
}

TEST(PathBasename, IsADotForANullOrEmptyPath)
{
    EXPECT_STREQ(path_basename(nullptr), ".");
    EXPECT_STREQ(path_basename(""), ".");
}

// The bell

TEST(RingBell, WritesTheBellToStandardError)
{
    const ChildResult result = run_child_function([] { return ring_bell(); });
    EXPECT_EQ(result.exit_status, 7);
    EXPECT_EQ(result.error, "\a");
    EXPECT_EQ(result.output, "");
}

TEST(RingBell, ReturnsEofWhereStandardErrorTakesNothing)
{
    for (const ChildStream stream : {ChildStream::FullDisk, ChildStream::Closed}) {
        ChildOptions options;
        options.error = stream;
        const ChildResult result =
            run_child_function([] { return ring_bell() == EOF ? 3 : 1; }, options);
        EXPECT_EQ(result.exit_status, 3);
    }
}

// Command lines

// A sleeping child with two arguments, the second one long.
class SleepingChild {
public:
    SleepingChild() : child_(tests::child_start({"sleep", "25", std::string(9000, '0')}))
    {
        // A program that has just been started has no command line for a moment.
        const std::string path = "/proc/" + std::to_string(child_.process_id) + "/cmdline";
        for (int i = 0; i < 1000 && std::ifstream(path).peek() == EOF; ++i)
            usleep(10000);
    }

    ~SleepingChild()
    {
        tests::child_signal(child_, SIGKILL);
        tests::child_wait(child_);
    }

    SleepingChild(const SleepingChild &) = delete;
    SleepingChild &operator=(const SleepingChild &) = delete;

    long process_id() const
    {
        return child_.process_id;
    }

private:
    tests::Child child_;
};

TEST(ProcessCommandLine, ReadsTheArgumentsOneBehindTheOther)
{
    const SleepingChild child;
    std::string expected = std::string("sleep\0"
                                       "25\0",
                                       9) +
                           std::string(9000, '0');
    expected.push_back('\0'); // the last argument's own
    expected.push_back('\0');
    std::string buffer(10000, '#');
    EXPECT_EQ(process_command_line(buffer.data(), buffer.size(), child.process_id()),
              buffer.data());
    expected.append(buffer.size() - expected.size(), '#');
    EXPECT_TRUE(buffer == expected);
    EXPECT_STREQ(buffer.c_str(), "sleep");
}

TEST(ProcessCommandLine, NeverWritesBeyondTheBuffer)
{
    const SleepingChild child;
    const std::string line = std::string("sleep\0"
                                         "25\0",
                                         9) +
                             std::string(9000, '0');
    for (const std::size_t size : {2U, 3U, 5U, 6U, 7U, 10U, 4096U, 4097U, 9009U}) {
        std::string buffer(size + 1, '#');
        EXPECT_EQ(process_command_line(buffer.data(), size, child.process_id()), buffer.data());
        std::string expected = line.substr(0, size - 1);
        expected.push_back('\0');
        expected.push_back('#');
        EXPECT_TRUE(buffer == expected) << size;
    }
}

TEST(ProcessCommandLine, IsNullWithRoomForNothing)
{
    char buffer[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(process_command_line(buffer, 1, 0), nullptr);
    EXPECT_EQ(std::string(buffer, 4), std::string("\0bcd", 4));
}

TEST(ProcessCommandLine, TouchesNothingWithASizeOf0)
{
    char buffer[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(process_command_line(buffer, 0, 0), nullptr);
    EXPECT_EQ(std::string(buffer, 4), "abcd");
    EXPECT_EQ(process_command_line(nullptr, 0, 0), nullptr);
}

TEST(ProcessCommandLine, TakesProcess0ForTheCallingOne)
{
    std::string own(4096, '#');
    std::string same(4096, '#');
    ASSERT_EQ(process_command_line(own.data(), own.size(), 0), own.data());
    ASSERT_EQ(process_command_line(same.data(), same.size(), getpid()), same.data());
    EXPECT_EQ(own, same);
    EXPECT_NE(std::string(own.c_str()).find("files"), std::string::npos) << own.c_str();
}

TEST(ProcessCommandLine, IsNullAndEmptyForAProcessThatIsNotThere)
{
    for (const long process_id : {-1L, 2147483647L}) {
        const RecordedReports recorded;
        char buffer[8] = "before";
        EXPECT_EQ(process_command_line(buffer, sizeof buffer, process_id), nullptr);
        EXPECT_STREQ(buffer, "");
        EXPECT_EQ(reports, std::vector<Report>());
    }
}

TEST(ProcessCommandLine, IsNullForAnEmptyCommandLine)
{
    // A process that has ended and that nobody has waited for has an empty one.
    const pid_t child = fork();
    if (child == 0)
        _exit(0);
    ASSERT_GT(child, 0);
    siginfo_t ended;
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT), 0);
    char buffer[8] = "before";
    EXPECT_EQ(process_command_line(buffer, sizeof buffer, child), nullptr);
    EXPECT_STREQ(buffer, "");
    waitpid(child, nullptr, 0);
}

TEST(ProcessCommandLine, ClosesWhatItOpens)
{
    const std::size_t before = open_descriptors();
    char buffer[64];
    for (const std::size_t size : {1U, 2U, 64U})
        process_command_line(buffer, size, 0);
    EXPECT_EQ(open_descriptors(), before);
}

} // namespace
} // namespace quintral
