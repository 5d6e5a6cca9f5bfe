// open_file, open_file_either and close_file: reports, permissions and masks, full disks, and the
// bytes that a child process writes to standard error.
#include "support/c-utils/files.h"

#include "tests/harness/descriptors.h"
#include "tests/support/files-checks.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>
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
using tests::Names;
using tests::open_descriptors;
using tests::permissions_of;
using tests::RecordedReports;
using tests::Report;
using tests::reports;
using tests::run_child_function;
using tests::run_without_rights;
using tests::set_up_failed;
using tests::TempFolder;

// Another file-creation mask for the length of a scope.
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

// Opening

struct FailedOpen {
    const char *mode;
    const char *name; // in the folder; an empty one makes an empty path
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

std::string path_of(const FailedOpen &row, const TempFolder &folder)
{
    return row.name[0] == '\0' ? "" : folder.path(row.name);
}

void fill_for_failed_opens(const TempFolder &folder)
{
    make_directory(folder.path("folder"));
    make_file(folder.path("file"));
    make_link("circle", folder.path("circle"));
}

TEST(OpenFile, FailsSilentlyWithoutFlags)
{
    const TempFolder folder;
    fill_for_failed_opens(folder);
    const RecordedReports recorded;
    for (const FailedOpen &row : failed_opens) {
        const std::string path = path_of(row, folder);
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
        const std::string path = path_of(row, folder);
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
        const std::string path = path_of(row, folder);
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

TEST(OpenFile, DoesNotChangeThePermissionsOfWhatItCannotOpen)
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

TEST(OpenFile, EndsTheProcessIfNobodyCatchesTheAbortException)
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

TEST(OpenFile, ReportsNothingOnSuccess)
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

TEST(OpenFile, ReturnsAStreamOfTheGivenMode)
{
    const TempFolder folder;
    const std::string path = folder.path("file");
    const struct {
        const char *mode;
        const char *content; // of the file, after an x has been written
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
        mode_t before; // none if the file is new
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

TEST(OpenFile, SetsThePermissionsOfTheTargetOfALink)
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

TEST(OpenFile, SucceedsIfPermissionsCannotBeSet)
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

TEST(OpenFileEither, OpensTheFirstPathThatItCanAndTreatsEachFailureByTheFlags)
{
    const std::string first_report = "Error: Open of first failed: No such file or directory\a\n";
    const std::string second_report = "Error: Open of second failed: No such file or directory\a\n";
    struct Row {
        const char *existing;
        unsigned flags;
        char opened; // the first letter of the file, '-' for null, '!' for the exception
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

TEST(OpenFileEither, PassesTheModeOnAndIgnoresTheSecondPathIfTheFirstOpens)
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

TEST(CloseFile, FlushesTheStreamAndReturns0)
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

TEST(CloseFile, ReturnsMinus1IfStandardErrorFailsToo)
{
    ChildOptions options;
    options.error = ChildStream::FullDisk;
    EXPECT_EQ(run_child_function(fail_to_close, options).exit_status, 7);
    options.error = ChildStream::Closed;
    EXPECT_EQ(run_child_function(fail_to_close, options).exit_status, 7);
}

} // namespace
} // namespace quintral
