// remove_tree while directories of its tree, or above it, are replaced by links or moved.
#include "support/c-utils/files.h"

#include "tests/harness/descriptors.h"
#include "tests/support/failing-calls.h"
#include "tests/support/file-tree.h"
#include "tests/support/files-checks.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quintral {
namespace {

using tests::before_call;
using tests::Call;
using tests::call_limit;
using tests::calls;
using tests::entries_below;
using tests::exists;
using tests::make_directory;
using tests::make_file;
using tests::make_link;
using tests::make_tree;
using tests::Names;
using tests::names_in_system_order;
using tests::open_descriptors;
using tests::TempFolder;
using tests::watched_remove_tree;

// Makes a tree of `depth` levels. The tests make one to remove and a copy of it outside, so that a
// removal that is led out of the tree finds the names that it looks for.
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

// Returns how many of the calls so far named a file. An exchange matters only before such a call.
std::size_t named_calls()
{
    return static_cast<std::size_t>(std::count_if(
        calls.begin(), calls.end(), [](const Call &call) { return !call.name.empty(); }));
}

// An exchange before the first of these calls only changes what the given path means.
struct Exchange {
    const char *given;         // the path to remove, from the folder
    const char *exchanged;     // the directory that becomes a link
    const char *target;        // where the link leads, in `outside`
    std::size_t first;         // the first named call that must not be led out
    mode_t permissions = 0755; // of the directory above the tree
};

const Exchange exchanges[] = {
    {"above/tree", "above/tree", "tree", 1},
    {"above/tree", "above/tree/level", "tree/level", 1},
    {"above/tree", "above/tree/empty", "tree", 1},
    {"above/tree", "above/tree/level/level/level", "tree", 1},
    {"above/tree", "above", "", 2},
    {"above/tree", "above", "bare", 2}, // its tree is empty, so one rmdir would remove it
    {"above/tree/", "above/tree", "tree", 3},
};

// Exchanges before the named call of that number. False if the removal made fewer.
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
    EXPECT_EQ(watched_remove_tree(folder.path(row.given)), 0);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_LT(calls.size(), 2000U);
    chmod(folder.path(exists(folder.path("aside")) ? "aside" : "above").c_str(), 0755);
    return reached;
}

TEST(RemoveTreeExchange, OfADirectoryForALinkNeverLeadsOutOfTheTree)
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

TEST(RemoveTreeExchange, ARenameOfTheTreeItselfEndsTheRemovalAtTheNextDirectory)
{
    const TempFolder folder;
    const std::string tree = folder.path("tree");
    make_directory(tree);
    for (const char *name : {"/a", "/b", "/c"}) {
        make_directory(tree + name);
        make_file(tree + name + "/file");
    }
    bool done = false;
    before_call = [&](const Call &call) {
        if (!done && call.name == "file")
            done = std::rename(tree.c_str(), folder.path("renamed").c_str()) == 0;
    };
    EXPECT_EQ(watched_remove_tree(tree), 0);
    EXPECT_TRUE(done);
    EXPECT_EQ(entries_below(folder.path("renamed")).size(), 4U); // two directories with a file
}

// Gives up root's rights for the length of a scope.
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

TEST(RemoveTreeExchange, OfASearchOnlyParentNeverLeadsOutOfTheTree)
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
    // The link leads to another directory, or to the one that was examined.
    for (const char *target : {"outside", "aside"}) {
        const TempFolder folder;
        make_tree(folder, 2);
        bool exchanged = false;
        before_call = [&](const Call &call) {
            if (exchanged || call.function != "openat" || call.name != "level1")
                return;
            exchanged = true;
            std::rename(folder.path("tree/level1").c_str(), folder.path("aside").c_str());
            make_link(folder.path(target), folder.path("tree/level1"));
        };
        EXPECT_EQ(watched_remove_tree(folder.path("tree")), 0);
        EXPECT_TRUE(exchanged);
        EXPECT_TRUE(exists(folder.path("outside/kept"))) << target;
        EXPECT_TRUE(exists(folder.path("aside/level2/bottom"))) << target;
        EXPECT_EQ(names_in_system_order(folder.path("tree")), Names{"level1"}) << target;
    }
}

TEST(RemoveTreeExchange, OfADirectoryAboveTheWalkEndsTheWalk)
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
        // When the walk is at the bottom, a directory above it moves to a folder outside, whose
        // entries have the names that the walk would go on with. The other entries of the tree are
        // removed at the same moment: with them, a walk that wrongly went on could not remove the
        // tree, and the test would not notice.
        const std::string elsewhere = folder.path("outside/tree/level/moved");
        bool done = false;
        before_call = [&](const Call &call) {
            if (done || call.name != "bottom")
                return;
            done = std::rename(folder.path(moved).c_str(), elsewhere.c_str()) == 0;
            unlink(folder.path("above/tree/file").c_str());
            rmdir(folder.path("above/tree/empty").c_str());
        };
        const std::size_t before = open_descriptors();
        EXPECT_EQ(watched_remove_tree(folder.path("above/tree")), 0);
        EXPECT_TRUE(done);
        EXPECT_EQ(open_descriptors(), before) << level;
        std::filesystem::remove_all(elsewhere);
        EXPECT_EQ(entries_below(folder.path("outside")), outside) << level;
        // The parent of the last directory is still open, the parent of the first one is not.
        if (level == 1 || level == depth) {
            EXPECT_EQ(exists(folder.path("above/tree")), level == 1);
        }
    }
}

// The walk keeps eight levels open and closes the first of nine when it opens another. One that
// cannot be opened does not count.
TEST(RemoveTreeExchange, OfADirectoryForAFileClosesNoDirectoryAboveIt)
{
    const TempFolder folder;
    make_directory(folder.path("above"));
    std::string path = folder.path("above/tree");
    make_directory(path);
    for (int level = 1; level <= 7; ++level) {
        path += "/level";
        make_directory(path);
    }
    make_directory(path + "/x");
    bool moved = false;
    before_call = [&](const Call &call) {
        if (call.name != "x")
            return;
        if (call.function == "openat") {
            rmdir((path + "/x").c_str());
            make_file(path + "/x");
        } else if (call.function == "unlinkat") {
            const std::string level = folder.path("above/tree/level");
            moved = std::rename(level.c_str(), folder.path("moved").c_str()) == 0;
        }
    };
    EXPECT_EQ(watched_remove_tree(folder.path("above/tree")), 0);
    EXPECT_TRUE(moved);
    EXPECT_FALSE(exists(folder.path("above/tree")));
}

} // namespace
} // namespace quintral
