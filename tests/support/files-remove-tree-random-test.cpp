// remove_tree beside its simplest form, which works by paths and recursion, on random trees and
// paths.
//
// Compiled twice: with the library's own remove_tree, and with the one for old systems.
#include "support/c-utils/files.h"

#include "tests/support/files-checks.h"

#include <cstddef>
#include <filesystem>
#include <iterator>
#include <random>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quintral {
namespace {

using tests::entries_below;
using tests::exists;
using tests::make_directory;
using tests::make_file;
using tests::make_link;
using tests::make_socket;
using tests::Names;
using tests::names_in_system_order;
using tests::TempFolder;

int simple_remove_tree(const std::string &path)
{
    constexpr mode_t directory_bit = 0x4000; // sockets have it too
    struct stat status;
    if (lstat(path.c_str(), &status) != 0)
        return -1;
    if ((status.st_mode & directory_bit) == 0) {
        unlink(path.c_str());
        return 0;
    }
    const Names names = S_ISDIR(status.st_mode) ? names_in_system_order(path) : Names();
    for (const std::string &name : names)
        simple_remove_tree(path + "/" + name);
    rmdir(path.c_str());
    return 0;
}

void make_random_entries(std::mt19937 &random, const TempFolder &folder, const std::string &path,
                         int depth)
{
    static const char *const targets[] = {".", "..", "a", "b", "c", "nowhere"};
    for (const char *name : {"a", "b", "c", "d", "e"}) {
        const std::string entry = path + "/" + name;
        const std::size_t kind = random() % 8;
        if (kind < 3 && depth > 0) {
            make_directory(folder.path(entry));
            make_random_entries(random, folder, entry, depth - 1);
        } else if (kind < 5) {
            make_file(folder.path(entry));
        } else if (kind == 5) {
            make_link(targets[random() % std::size(targets)], folder.path(entry));
        } else if (kind == 6 && random() % 8 == 0) {
            make_socket(folder, entry);
        }
    }
}

// Many of them lead through an entry of the tree that they name.
std::string random_path(std::mt19937 &random)
{
    static const char *const steps[] = {"/a",    "/b",    "/c",  "/a/..", "/b/..", "/c/..",
                                        "/d/..", "/e/..", "/a/", "/.",    "/",     "/.."};
    std::string path = "top";
    for (std::size_t count = random() % 3; count > 0; --count)
        path += steps[random() % std::size(steps)];
    return path;
}

// True if the path leads to nothing, or to something at or below the folder's `top`. Any other path
// must not be removed.
bool is_harmless(const TempFolder &folder, const std::string &path)
{
    if (!exists(folder.path(path)))
        return true;
    std::error_code error;
    const std::string top = std::filesystem::canonical(folder.path("top"));
    const std::string real = std::filesystem::canonical(folder.path(path), error);
    return !error && (real + "/").compare(0, top.size() + 1, top + "/") == 0;
}

// The entries below a directory, in the order in which a removal meets them.
void list_in_order(const std::string &path, Names *names)
{
    for (const std::string &name : names_in_system_order(path)) {
        names->push_back(path.substr(path.find("/top")) + "/" + name);
        if (!std::filesystem::is_symlink(path + "/" + name) &&
            std::filesystem::is_directory(path + "/" + name))
            list_in_order(path + "/" + name, names);
    }
}

Names listed_in_order(const TempFolder &folder)
{
    Names names;
    list_in_order(folder.path("top"), &names);
    return names;
}

// Returns whether the two could be compared.
bool compare_with_simple_form(unsigned seed)
{
    std::mt19937 random(seed);
    const TempFolder folders[2];
    for (const TempFolder &folder : folders) {
        std::mt19937 same_random(seed);
        make_directory(folder.path("top"));
        make_random_entries(same_random, folder, "top", 2);
    }
    const std::string path = random_path(random);
    if (!is_harmless(folders[0], path) ||
        listed_in_order(folders[0]) != listed_in_order(folders[1]))
        return false;
    EXPECT_EQ(remove_tree(folders[0].path(path).c_str()),
              simple_remove_tree(folders[1].path(path)));
    EXPECT_EQ(entries_below(folders[0].path()), entries_below(folders[1].path()));
    return true;
}

TEST(RemoveTreeRandom, LeavesWhatTheSimplestFormLeaves)
{
    int compared = 0;
    for (unsigned seed = 1; seed <= 80 && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        compared += compare_with_simple_form(seed) ? 1 : 0;
    }
    EXPECT_GT(compared, 40);
}

} // namespace
} // namespace quintral
