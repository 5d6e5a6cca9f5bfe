// remove_tree under failing system calls and allocations: each fails in turn.
//
// Compiled twice: with the library's own remove_tree, and with the one for old systems.
#include "support/c-utils/files.h"

#include "tests/harness/allocation.h"
#include "tests/harness/descriptors.h"
#include "tests/support/failing-calls.h"
#include "tests/support/file-tree.h"
#include "tests/support/files-checks.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <new>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace quintral {
namespace {

using tests::allow_allocation;
using tests::before_call;
using tests::Call;
using tests::call_errors;
using tests::call_limit;
using tests::calls;
using tests::entries_below;
using tests::entry_types_hidden;
using tests::exists;
using tests::forged_name;
using tests::holds;
using tests::last_component;
using tests::make_directory;
using tests::make_file;
using tests::make_tree;
using tests::Names;
using tests::open_descriptors;
using tests::outside_entries;
using tests::Place;
using tests::places;
using tests::RecordedReports;
using tests::reports;
using tests::TempFolder;
using tests::type_bits_hidden;
using tests::watched_remove_tree;
using tests::with_failing_call;

bool is_at_or_below(const std::string &path, const std::string &top)
{
    return path == top || path.compare(0, top.size() + 1, top + "/") == 0;
}

const Place *place_named(const std::string &name)
{
    for (const Place &place : places) {
        if (place.name == name)
            return &place;
    }
    return nullptr;
}

// What is left if the place is: the directories above it and, with `below`, everything in it.
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

// The name of the file that the last call was about, if need be from an earlier call.
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

// The call that examines the tree itself. The other one, in the library's own remove_tree, only
// asks whether the path still exists.
#ifdef QUINTRAL_REMOVES_BY_PATH
const std::string examining_call = "lstat";
const std::string asking_call = "no such call";
#else
const std::string examining_call = "fstatat";
const std::string asking_call = "lstat";
#endif

// Checks what is left of the tree after a call of the function failed, the last of `calls`.
void expect_left_after(const TempFolder &folder, const std::string &function)
{
    const Names left = entries_below(folder.path());
    EXPECT_TRUE(includes(left, outside_entries));
    const std::string name = last_name();
    const Place *place = place_named(last_component(name));
    const bool harmless = holds(Names{"close", "closedir", asking_call}, function);
    if (harmless || name == folder.path() + "/") {
        EXPECT_EQ(left, outside_entries);
    } else if (name == "..") {
        EXPECT_NE(left, outside_entries);
    } else if (place == nullptr) {
        ADD_FAILURE() << "a call about " << name;
    } else if (function == "readdir") {
        EXPECT_TRUE(includes(expected_left(*place, true), left));
    } else {
        const bool below = !holds(Names{"unlinkat", "unlink", "rmdir"}, function);
        EXPECT_EQ(left, expected_left(*place, below));
    }
}

// Returns the number of the removal's calls.
std::size_t fail_every_call(bool types_are_listed)
{
    std::size_t number = 1;
    bool all_failed = false;
    for (; !all_failed && number < call_limit; ++number) {
        const TempFolder folder;
        make_tree(folder, 11);
        const std::size_t before = open_descriptors();
        const RecordedReports recorded;
        entry_types_hidden = !types_are_listed;
        std::vector<Call> until_failure;
        before_call = [&](const Call &) {
            if (calls.size() == number)
                until_failure = calls;
        };
        const int error = call_errors[number % std::size(call_errors)];
        const int result = with_failing_call(
            number, error, [&] { return remove_tree(folder.path("tree").c_str()); });
        all_failed = calls.size() < number;
        if (all_failed)
            break;
        const std::size_t made = calls.size();
        calls = until_failure;
        const std::string function = calls.back().function;
        SCOPED_TRACE("call " + std::to_string(number) + " " + function + " " + last_name());
        const bool top_unseen =
            function == examining_call && last_component(calls.back().name) == "tree";
        EXPECT_EQ(result, top_unseen ? -1 : 0);
        EXPECT_EQ(open_descriptors(), before);
        EXPECT_EQ(reports.size(), 0U);
        EXPECT_LT(made, 2000U);
        expect_left_after(folder, function);

        // The rest is still an ordinary tree.
        remove_tree(folder.path("tree").c_str());
        EXPECT_EQ(entries_below(folder.path()), outside_entries);
    }
    EXPECT_TRUE(all_failed);
    return number - 1;
}

TEST(RemoveTreeFaults, LeaveThePlaceOfTheCallAndNothingElse)
{
    EXPECT_GT(fail_every_call(true), 90U);
}

TEST(RemoveTreeFaults, LeaveTheSamePlaceIfDirectoriesListNoTypes)
{
    EXPECT_GT(fail_every_call(false), 90U);
}

TEST(RemoveTreeFaults, CoverEveryCallThatItMakes)
{
    const TempFolder folder;
    make_tree(folder, 11);
    entry_types_hidden = true; // so that entries are examined too
    watched_remove_tree(folder.path("tree"));
    Names made;
    for (const Call &call : calls)
        made.push_back(call.function);
    std::sort(made.begin(), made.end());
    made.erase(std::unique(made.begin(), made.end()), made.end());
#ifdef QUINTRAL_REMOVES_BY_PATH
    EXPECT_EQ(made, (Names{"closedir", "lstat", "opendir", "readdir", "rmdir", "unlink"}));
#else
    EXPECT_EQ(made, (Names{"close", "closedir", "fdopendir", "fstat", "fstatat", "lstat", "openat",
                           "readdir", "unlinkat"}));
#endif
}

std::size_t allocations = 0;
std::size_t failing_allocation = 0; // counted from 1; 0 for none

bool count_allocation()
{
    return ++allocations != failing_allocation;
}

// Runs a function with one of its allocations failing. True if that threw std::bad_alloc.
template <typename Function> bool throws_at_allocation(std::size_t number, const Function &function)
{
    bool thrown = false;
    allocations = 0;
    failing_allocation = number;
    allow_allocation = count_allocation;
    try {
        function();
    } catch (const std::bad_alloc &) {
        thrown = true;
    }
    allow_allocation = nullptr;
    return thrown;
}

// False under a memory checker that replaces this program's allocator with its own.
bool allocations_are_counted()
{
    throws_at_allocation(0, [] { ::operator delete(::operator new(1)); });
    return allocations == 1;
}

TEST(RemoveTreeFaults, OfAllocationsThrowAndLeaveNoDescriptorOpen)
{
    if (!allocations_are_counted())
        GTEST_SKIP() << "another allocator is in use";
    std::size_t number = 1;
    for (bool thrown = true; thrown && number < call_limit; ++number) {
        const TempFolder folder;
        make_tree(folder, 11);
        // The name and its path are too long for a string's own buffer, so each is allocated.
        make_file(folder.path("tree/" + std::string(200, 'n')));
        const std::string path = folder.path("tree");
        const std::size_t before = open_descriptors();
        thrown = throws_at_allocation(number, [&] { remove_tree(path.c_str()); });
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
    entry_types_hidden = true;
    EXPECT_EQ(watched_remove_tree(folder.path("tree")), -1);
    EXPECT_EQ(entries_below(folder.path()), all);

    for (const char *name : {"file1", "link2", "side1", "level1"}) {
        const TempFolder other;
        make_tree(other, 2);
        entry_types_hidden = true;
        before_call = [&](const Call &call) {
            type_bits_hidden = last_component(call.name) == name;
        };
        EXPECT_EQ(watched_remove_tree(other.path("tree")), 0);
        EXPECT_EQ(entries_below(other.path()), expected_left(*place_named(name), true)) << name;
    }
}

// An entry is replaced just before the call that opens or removes it.

#ifdef QUINTRAL_REMOVES_BY_PATH
const std::string open_call = "opendir";
const std::string unlink_call = "unlink";
#else
const std::string open_call = "openat";
const std::string unlink_call = "unlinkat";
#endif

TEST(RemoveTreeFaults, ADirectoryReplacedByAFifoNeitherHangsItNorIsRemoved)
{
    const TempFolder folder;
    make_tree(folder, 2);
    const std::string path = folder.path("tree/side1");
    bool replaced = false;
    before_call = [&](const Call &call) {
        if (replaced || call.function != open_call || last_component(call.name) != "side1")
            return;
        replaced = true;
        std::rename(path.c_str(), (path + "-aside").c_str());
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
    };
    EXPECT_EQ(watched_remove_tree(folder.path("tree")), 0);
    EXPECT_TRUE(replaced);
    EXPECT_TRUE(exists(path));
    EXPECT_TRUE(exists(path + "-aside/inner1"));
}

TEST(RemoveTreeFaults, OfAFileReplacedByADirectoryLeaveTheDirectory)
{
    const TempFolder folder;
    make_tree(folder, 2);
    const std::string path = folder.path("tree/file1");
    bool replaced = false;
    before_call = [&](const Call &call) {
        if (replaced || call.function != unlink_call || last_component(call.name) != "file1")
            return;
        replaced = true;
        std::remove(path.c_str());
        make_directory(path);
    };
    EXPECT_EQ(watched_remove_tree(folder.path("tree")), 0);
    EXPECT_TRUE(replaced);
    EXPECT_TRUE(exists(path));
    EXPECT_FALSE(exists(folder.path("tree/level1")));
}

TEST(RemoveTreeFaults, IgnoreANameWithASlash)
{
    const TempFolder folder;
    make_directory(folder.path("tree"));
    make_file(folder.path("tree/forged"));
    make_file(folder.path("tree/other"));
    make_file(folder.path("outside"));
    forged_name = "../outside";
    EXPECT_EQ(watched_remove_tree(folder.path("tree")), 0);
    EXPECT_EQ(entries_below(folder.path()), (Names{"outside", "tree", "tree/forged"}));
}

} // namespace
} // namespace quintral
