// Files whose size or date does not fit 32 bits are files like any other, on 32-bit Linux too.
//
// Compiled twice: with the library's own remove_tree, and with the one for old systems.
#include "support/c-utils/files.h"

#include "tests/support/files-checks.h"

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace quintral {
namespace {

using tests::entries_below;
using tests::exists;
using tests::make_directory;
using tests::make_file;
using tests::make_link;
using tests::Names;
using tests::record_visit;
using tests::RecordedReports;
using tests::Report;
using tests::reports;
using tests::TempFolder;
using tests::Visits;

constexpr std::time_t year_2050 = 2524608000; // 2050-01-01 00:00:00 UTC

// Dates a file, a directory or a link itself. False if its file system does not keep the date.
bool date_2050(const std::string &path)
{
    const timespec times[2] = {{year_2050, 0}, {year_2050, 0}};
    struct stat status = {};
    return utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) == 0 &&
           lstat(path.c_str(), &status) == 0 && status.st_mtime == year_2050;
}

TEST(FilesOf2050, Exist)
{
    const TempFolder folder;
    make_file(folder.path("file"));
    make_directory(folder.path("folder"));
    make_link("file", folder.path("link"));
    for (const char *name : {"file", "folder", "link"}) {
        const std::string path = folder.path(name);
        if (!date_2050(path))
            GTEST_SKIP() << "the file system does not keep such a date";
        EXPECT_EQ(file_exists(path.c_str()), 1) << name;
    }
}

TEST(FilesOf2050, AreVisited)
{
    const TempFolder folder;
    const std::string path = folder.path("file");
    make_file(path);
    if (!date_2050(path) || !date_2050(folder.path()))
        GTEST_SKIP() << "the file system does not keep such a date";
    const RecordedReports recorded;
    Visits visits;
    for_each_file(folder.path().c_str(), record_visit, &visits);
    EXPECT_EQ(visits.paths, Names{path});
    EXPECT_EQ(reports, std::vector<Report>());
}

TEST(FilesOf2050, AreRemoved)
{
    const TempFolder folder;
    make_file(folder.path("file"));
    make_directory(folder.path("folder"));
    make_link("nowhere", folder.path("link"));
    for (const char *name : {"file", "folder", "link"}) {
        const std::string path = folder.path(name);
        if (!date_2050(path))
            GTEST_SKIP() << "the file system does not keep such a date";
        EXPECT_EQ(remove_path(path.c_str()), 0) << name;
        EXPECT_FALSE(exists(path)) << name;
    }
}

TEST(RemoveTreeOf2050, RemovesEverything)
{
    const TempFolder folder;
    make_directory(folder.path("tree"));
    make_directory(folder.path("tree/folder"));
    make_file(folder.path("tree/folder/file"));
    make_link("nowhere", folder.path("tree/folder/link"));
    for (const char *name : {"tree/folder/file", "tree/folder/link", "tree/folder", "tree"}) {
        if (!date_2050(folder.path(name)))
            GTEST_SKIP() << "the file system does not keep such a date";
    }
    EXPECT_EQ(remove_tree(folder.path("tree").c_str()), 0);
    EXPECT_EQ(entries_below(folder.path()), Names());
}

TEST(LargeFiles, AreFilesLikeAnyOther)
{
    const TempFolder folder;
    make_directory(folder.path("tree"));
    const std::string path = folder.path("tree/file");
    make_file(path);
    std::error_code error;
    std::filesystem::resize_file(path, std::uintmax_t{3} << 30, error);
    if (error)
        GTEST_SKIP() << "no sparse file of 3 GiB: " << error.message();
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

} // namespace
} // namespace quintral
