// The file helpers under failing system calls: each call of a helper fails in turn. remove_tree has
// files-remove-tree-faults-test.cpp.
#include "support/c-utils/files.h"

#include "tests/harness/descriptors.h"
#include "tests/support/failing-calls.h"
#include "tests/support/files-checks.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quintral {
namespace {

using tests::before_call;
using tests::Call;
using tests::call_errors;
using tests::calls;
using tests::ChildResult;
using tests::exists;
using tests::failing_call;
using tests::forged_name;
using tests::holds;
using tests::last_component;
using tests::make_directory;
using tests::make_file;
using tests::Names;
using tests::open_descriptors;
using tests::permissions_of;
using tests::record_report;
using tests::RecordedReports;
using tests::reports;
using tests::run_child_function;
using tests::TempFolder;
using tests::with_failing_call;

// Opening and closing

TEST(OpenFileFaults, ReportTheReasonOfTheOpenItself)
{
    const TempFolder folder;
    make_file(folder.path("file"));
    const std::string path = folder.path("file");
    for (const char *mode : {"r", "w", "a", "r+", "w+", "a+"}) {
        for (const int error : call_errors) {
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
            EXPECT_EQ(calls.size(), 1U) << "no permissions are set if the file does not open";
        }
    }
}

TEST(OpenFileFaults, ReturnTheStreamIfPermissionsCannotBeSet)
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
        EXPECT_EQ(calls[1].function, "fchmod");
        EXPECT_EQ(reports.size(), 0U);
        EXPECT_EQ(permissions_of(path), mode_t{0600});
        EXPECT_EQ(close_file(stream), 0);
    }
}

TEST(OpenFileFaults, NeverSetThePermissionsOfAnotherFileThatGetsTheName)
{
    for (const char *mode : {"w", "a", "w+", "a+"}) {
        const TempFolder folder;
        const std::string path = folder.path("file");
        make_file(folder.path("private"));
        chmod(folder.path("private").c_str(), 0600);
        bool exchanged = false;
        before_call = [&](const Call &call) {
            if (exchanged || call.function == "fopen")
                return;
            exchanged = true;
            std::rename(path.c_str(), folder.path("opened").c_str());
            std::rename(folder.path("private").c_str(), path.c_str());
        };
        std::FILE *stream =
            with_failing_call(0, 0, [&] { return open_file(path.c_str(), mode, 0); });
        ASSERT_NE(stream, nullptr);
        EXPECT_TRUE(exchanged);
        EXPECT_EQ(permissions_of(path), mode_t{0600}) << mode;
        EXPECT_EQ(permissions_of(folder.path("opened")), mode_t{0666}) << mode;
        close_file(stream);
    }
}

TEST(OpenFileFaults, LeaveThePermissionsOfAFileOpenedForReading)
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
    for (const int error : call_errors) {
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

TEST(FileExistsFaults, Return0)
{
    const TempFolder folder;
    for (const int error : call_errors) {
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
            for (const int error : call_errors) {
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

// The walk over files

int record_name(const char *path, void *user_value)
{
    static_cast<Names *>(user_value)->push_back(last_component(path));
    return 0;
}

// Visits the files of make_files. The result is for with_failing_call only.
int visit_files(const TempFolder &folder, Names *visited)
{
    for_each_file(folder.path("dir").c_str(), record_name, visited);
    return 0;
}

void make_files(const TempFolder &folder)
{
    make_directory(folder.path("dir"));
    make_directory(folder.path("dir/folder"));
    for (int i = 0; i < 5; ++i)
        make_file(folder.path("dir/" + std::to_string(i)));
}

TEST(ForEachFileFaults, SkipTheFileOfTheCallAndNothingElse)
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
        for (const int error : call_errors) {
            const std::string function = made[number - 1].function;
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

TEST(ForEachFileFaults, IgnoreANameWithASlash)
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
    for (const int error : call_errors) {
        const RecordedReports recorded;
        Names visited;
        with_failing_call(1, error, [&] { return visit_files(folder, &visited); });
        ASSERT_EQ(reports.size(), 1U);
        EXPECT_EQ(reports[0].level, MessageLevel{Warning});
        EXPECT_EQ(reports[0].text, "Can't open directory " + folder.path("dir") + ": error " +
                                       std::strerror(error) + "\n");
    }
}

TEST(ForEachFileFaults, DoNotReuseTheResultOfThePreviousExamination)
{
    // The walk must not take the directory for the regular file that it examined before.
    const TempFolder folder;
    make_files(folder);
    const std::string directory_itself = folder.path("dir/folder");
    before_call = [&](const Call &call) {
        if (call.name == directory_itself)
            failing_call = calls.size();
    };
    Names visited;
    with_failing_call(0, EIO, [&] { return visit_files(folder, &visited); });
    EXPECT_FALSE(holds(visited, "folder"));
    EXPECT_EQ(visited.size(), 5U);
}

// Command lines

TEST(ProcessCommandLineFaults, ReturnNullWithoutAReportAndCloseTheFile)
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
        EXPECT_EQ(calls[row.number - 1].function, row.function);
        EXPECT_EQ(calls[0].name, "/proc/" + std::to_string(getpid()) + "/cmdline");
        EXPECT_EQ(result, row.null ? nullptr : buffer) << row.function;
        EXPECT_EQ(buffer[0] == '\0', row.null) << row.function;
        EXPECT_EQ(open_descriptors(), before);
        EXPECT_EQ(reports.size(), 0U);
    }
}

} // namespace
} // namespace quintral
