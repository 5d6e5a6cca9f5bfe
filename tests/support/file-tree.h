// A tree for the tests of remove_tree. Every name in it occurs once, so that the file named by a call
// says where in the tree it was made.
#ifndef QUINTRAL_TESTS_SUPPORT_FILE_TREE_H
#define QUINTRAL_TESTS_SUPPORT_FILE_TREE_H

#include "tests/harness/temp-folder.h"
#include "tests/support/files-checks.h"

#include <string>
#include <vector>

namespace quintral::tests {

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

// A tree of so many levels, more than stay open, with files, links and directories beside the first
// and the last, and a folder outside that the links lead to.
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

inline const Names outside_entries = {"outside", "outside/empty", "outside/kept"};

} // namespace quintral::tests

#endif
