// A tree for the tests of remove_tree. Every name in it occurs once, so the name of a call's file
// shows where in the tree the call was made.
#ifndef QUINTRAL_TESTS_SUPPORT_FILE_TREE_H
#define QUINTRAL_TESTS_SUPPORT_FILE_TREE_H

#include "support/c-utils/files.h"
#include "tests/harness/temp-folder.h"
#include "tests/support/failing-calls.h"
#include "tests/support/files-checks.h"

#include <string>
#include <vector>

namespace quintral::tests {

// An entry of the tree.
struct Place {
    std::string name;
    std::string path; // from the folder
    bool directory;
};

inline std::vector<Place> places;

inline void add_place(const TempFolder &folder, const std::string &parent, const std::string &name,
                      bool directory)
{
    const std::string path = parent.empty() ? name : parent + "/" + name;
    if (directory)
        make_directory(folder.path(path));
    else
        make_file(folder.path(path));
    places.push_back({name, path, directory});
}

// Makes a tree of `depth` levels with a file, a link and a directory beside the first and the last.
// The links lead to a folder `outside`.
inline void make_tree(const TempFolder &folder, int depth)
{
    places.clear();
    make_directory(folder.path("outside"));
    make_file(folder.path("outside/kept"));
    make_directory(folder.path("outside/empty"));
    add_place(folder, "", "tree", true);
    std::string parent = "tree";
    for (int level = 1; level <= depth; ++level) {
        const std::string number = std::to_string(level);
        if (level == 1 || level == depth) {
            add_place(folder, parent, "file" + number, false);
            add_place(folder, parent, "side" + number, true);
            add_place(folder, parent + "/side" + number, "inner" + number, false);
            make_link(folder.path("outside"), folder.path(parent + "/link" + number));
            places.push_back({"link" + number, parent + "/link" + number, false});
        }
        add_place(folder, parent, "level" + number, true);
        parent += "/level" + number;
    }
    add_place(folder, parent, "bottom", false);
}

// What make_tree makes outside the tree.
inline const Names outside_entries = {"outside", "outside/empty", "outside/kept"};

// Removes a tree with its calls recorded and none failing.
inline int watched_remove_tree(const std::string &path)
{
    return with_failing_call(0, 0, [&] { return remove_tree(path.c_str()); });
}

} // namespace quintral::tests

#endif
