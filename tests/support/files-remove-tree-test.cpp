// remove_tree on real directories: entries of every kind, permissions, and the limits on depth,
// descriptors, stack and the length of a path.
//
// Compiled twice: with the library's own remove_tree, and with the one for old systems.
#include "support/c-utils/files.h"

#include "tests/harness/descriptors.h"
#include "tests/support/files-checks.h"

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quintral {
namespace {

using tests::ChildResult;
using tests::entries_below;
using tests::exists;
using tests::long_name;
using tests::longest_path;
using tests::make_device;
using tests::make_directory;
using tests::make_file;
using tests::make_link;
using tests::make_long_path;
using tests::make_one_of_each;
using tests::make_socket;
using tests::Names;
using tests::names_in_system_order;
using tests::open_descriptors;
using tests::run_child_function;
using tests::run_without_rights;
using tests::set_up_failed;
using tests::TempFolder;

TEST(RemoveTree, RemovesEverythingBelowAndTheTop)
{
    const TempFolder folder;
    make_directory(folder.path("outside"));
    make_file(folder.path("outside/kept"));
    make_directory(folder.path("tree"));
    const std::string longest_name(255, 'x');
    const Names names = {"plain", "with space",  ".hidden",   "..two",
                         "...",   "new\nline",   "\xe4\xff",  "*",
                         "-rf",   "percent%s%n", longest_name};
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

TEST(RemoveTree, AcceptsATopOfEveryKind)
{
    const TempFolder folder;
    make_one_of_each(folder);
    const struct {
        const char *name;
        int result;
        bool left;
    } rows[] = {
        {"missing", -1, false},
        {"no/such/path", -1, false},
        {"file/x", -1, false},
        {"file/", -1, false},
        {"file", 0, false},
        {"empty", 0, false},
        {"full", 0, false},
        {"file-link", 0, false},
        {"folder-link", 0, false},
        {"dangling", 0, false},
        {"circle", 0, false},
        {"fifo", 0, false},
        // sockets count as directories, which rmdir refuses
        {"socket", 0, true},
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

// Removes a tree in a child that has `folder` as its working folder.
ChildResult remove_tree_in(const TempFolder &folder, const char *path)
{
    return run_child_function(
        [&] { return chdir(folder.path().c_str()) == 0 ? remove_tree(path) : set_up_failed; });
}

TEST(RemoveTree, AcceptsEverySpellingOfTheTop)
{
    struct Row {
        const char *path; // from the folder
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
        for (const std::string &path : {std::string(row.path), folder.path(row.path)}) {
            make_directory(folder.path("tree"));
            make_directory(folder.path("tree/sub"));
            make_file(folder.path("tree/sub/file"));
            EXPECT_EQ(remove_tree_in(folder, path.c_str()).exit_status, 0) << path;
            const Names left = row.top_left ? Names{"other", "tree"} : Names{"other"};
            EXPECT_EQ(entries_below(folder.path()), left) << path;
            rmdir(folder.path("tree").c_str());
        }
    }
}

// The path of each entry leads through `gone`, so whatever follows it in the directory is left.
TEST(RemoveTree, EndsWhenItRemovesAPartOfItsOwnPath)
{
    for (const char *path :
         {"tree/gone/..", "tree/gone/sub/../..", "tree/link/", "tree/gone/../."}) {
        const TempFolder folder;
        const std::string gone = path[5] == 'g' ? "gone" : "link";
        make_directory(folder.path("tree"));
        for (int i = 0; i < 40; ++i) {
            if (i == 20)
                make_directory(folder.path("tree/gone"));
            if (i == 21)
                make_link(".", folder.path("tree/link"));
            make_file(folder.path("tree/" + std::to_string(i)));
        }
        make_directory(folder.path("tree/gone/sub"));
        Names left = names_in_system_order(folder.path("tree"));
        left.erase(left.begin(), std::find(left.begin(), left.end(), gone));
        EXPECT_EQ(remove_tree(folder.path(path).c_str()), 0);
        // Of "gone/sub", the part that vanishes first is "sub".
        if (std::string(path).find("sub") == std::string::npos)
            left.erase(left.begin());
        EXPECT_EQ(names_in_system_order(folder.path("tree")), left) << path;
    }
}

TEST(RemoveTree, EmptiesTheTargetOfALinkWithATrailingSlash)
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

// Makes the chain tree/d1/d2/... of `depth` directories below `tree` in the working folder, with a
// file in each but the last. Runs in a child, so it returns false instead of asserting.
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

// The descriptors of the removal then have the numbers of the streams.
TEST(RemoveTree, LeavesNoDescriptorOpenInAHostWithoutStandardStreams)
{
    const TempFolder folder;
    const std::string tree = folder.path("tree");
    make_directory(tree);
    for (const char *name : {"tree/one", "tree/one/two", "tree/one/two/three"})
        make_directory(folder.path(name));
    make_file(folder.path("tree/one/two/file"));
    const ChildResult result = run_child_function([&tree] {
        for (const int stream : {0, 1, 2})
            close(stream);
        const std::size_t before = open_descriptors();
        if (remove_tree(tree.c_str()) != 0)
            return 1;
        return open_descriptors() == before ? 0 : 2;
    });
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(entries_below(folder.path()), Names());
}

TEST(RemoveTree, ContinuesAfterADirectoryThatItMayNotEnter)
{
    struct Row {
        int depth;
        mode_t permissions;
        bool empty;
        bool left;
    };
    // A directory that may be read but not searched has no way up through its "..".
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

TEST(RemoveTree, NeedsNoRightToReadTheParentOfTheTree)
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

TEST(RemoveTree, FailsIfTheTopCannotBeReached)
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

// Limits the process to descriptors below `count`.
bool allow_descriptors(rlim_t count)
{
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return false;
    limit.rlim_cur = count;
    return setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

TEST(RemoveTree, Returns0IfNoDescriptorIsLeft)
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

// The body of a thread with little stack; its argument is the result.
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

// Makes a tree of `depth` levels in the working folder, with names of one letter.
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

TEST(RemoveTree, AcceptsPathsOf1023CharactersAndAbortsAtALongerOne)
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

TEST(RemoveTree, LeavesAnEntryWithTooLongAPathAndAllThatFollowsIt)
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
        std::string entry; // a file in the top; empty for none
        bool aborts;
    };
    const Row rows[] = {
        {dots.substr(0, 1014) + "tree", "four", false}, // 1018 + 1 + 4
        {dots.substr(0, 1014) + "tree", "fifth", true},
        {dots.substr(0, 1012) + "tree//", "four", false}, // the slashes count
        {dots.substr(0, 1014) + "tree/", "four", true},
        {dots + dots + "tree", "", false}, // the top itself may be longer
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

} // namespace
} // namespace quintral
