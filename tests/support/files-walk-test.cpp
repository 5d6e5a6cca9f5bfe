// for_each_file: what it visits, in which order, and what it reports.
#include "support/c-utils/files.h"

#include "tests/harness/descriptors.h"
#include "tests/support/files-checks.h"

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quintral {
namespace {

using tests::ChildResult;
using tests::entries_below;
using tests::holds;
using tests::long_name;
using tests::longest_path;
using tests::make_directory;
using tests::make_file;
using tests::make_link;
using tests::make_long_path;
using tests::make_socket;
using tests::Names;
using tests::names_in_system_order;
using tests::open_descriptors;
using tests::record_visit;
using tests::RecordedReports;
using tests::Report;
using tests::reports;
using tests::run_child_function;
using tests::run_without_rights;
using tests::set_up_failed;
using tests::TempFolder;
using tests::Visits;

TEST(ForEachFile, VisitsRegularFilesInTheOrderOfTheDirectory)
{
    const TempFolder folder;
    make_directory(folder.path("dir"));
    make_directory(folder.path("dir/c"));
    make_file(folder.path("dir/c/inner"));
    make_directory(folder.path("elsewhere"));
    const Names files = {"a", "b", ".hidden", "..two", "space name", "\xe4", "%s%n", "z"};
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
            if (name == "file-link" || holds(files, name))
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

TEST(ForEachFile, FormsPathsFromTheDirectoryAsGiven)
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

TEST(ForEachFile, DoesNotCallTheCallbackForAnEmptyDirectory)
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

TEST(ForEachFile, SkipsFilesThatItMayNotExamine)
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

TEST(ForEachFile, AcceptsPathsOf1023CharactersAndAbortsAtALongerOne)
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

} // namespace
} // namespace quintral
