// file_exists, remove_path and path_basename.
#include "support/c-utils/files.h"

#include "tests/support/files-checks.h"

#include <cerrno>
#include <cstdio>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace quintral {
namespace {

using tests::ChildResult;
using tests::entries_below;
using tests::exists;
using tests::make_device;
using tests::make_directory;
using tests::make_file;
using tests::make_link;
using tests::make_one_of_each;
using tests::make_socket;
using tests::Names;
using tests::run_without_rights;
using tests::TempFolder;

TEST(FileExists, Returns1IfThePathLeadsToSomething)
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

TEST(RemovePath, RemovesAFileAnEmptyDirectoryOrALinkItself)
{
    const TempFolder folder;
    make_one_of_each(folder);
    const struct {
        const char *name;
        int result;
        int error;
        bool left;
    } rows[] = {
        {"missing", -1, ENOENT, false},
        {"file/x", -1, ENOTDIR, false},
        {"file", 0, 0, false},
        {"empty", 0, 0, false},
        {"full", -1, ENOTEMPTY, true},
        {"file-link", 0, 0, false},
        {"folder-link", 0, 0, false},
        {"dangling", 0, 0, false},
        {"circle", 0, 0, false},
        {"fifo", 0, 0, false},
        // rmdir's answer, since sockets count as directories
        {"socket", -1, ENOTDIR, true},
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

TEST(PathBasename, IsTheTextAfterTheLastSlash)
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

} // namespace
} // namespace quintral
