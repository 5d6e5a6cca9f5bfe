// remove_tree with path-based calls, for Mac OS X before 10.10, which lacks calls relative to an
// open directory.
//
// It cannot guarantee to stay in the tree: if a directory is replaced with a symbolic link after
// its path has been examined, the removal follows the link. Callers must make sure that nobody else
// can write to the tree. Otherwise it behaves as files.h describes; one descriptor is open at a
// time.
#include "support/c-utils/files.h"

#include "support/c-utils/directory-walk.h"

#include <vector>

#include <unistd.h>

namespace quintral {

namespace {

// One directory on the current path.
struct Level {
    std::size_t path_length = 0;
    std::string names;        // names of its entries, each with its terminator
    std::size_t position = 0; // offset of the next entry's name
};

mode_t mode_of(const std::string &path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0 ? status.st_mode : mode_t{0};
}

// Appends a directory as the new last level. If it cannot be opened, the level has no names; the
// directory is then removed if it is empty.
void enter_directory(std::vector<Level> *levels, const std::string &path)
{
    Level &level = levels->emplace_back();
    level.path_length = path.size();
    const DirectoryStream stream(opendir(path.c_str()));
    if (stream != nullptr)
        level.names = remaining_names(stream.get());
}

// Removes an entry, or enters it if it is a directory. Returns false if it cannot be examined.
bool remove_entry(std::vector<Level> *levels, const std::string &path)
{
    const mode_t mode = mode_of(path);
    if ((mode & S_IFMT) == 0)
        return false;
    if ((mode & directory_bit) != 0)
        enter_directory(levels, path);
    else
        remove_path(path.c_str());
    return true;
}

// Removes the next entry of the last level or, after the last entry, the level's directory.
void remove_next(std::vector<Level> *levels, std::string *path)
{
    Level &level = levels->back();
    path->resize(level.path_length);
    if (level.position == level.names.size()) {
        static_cast<void>(rmdir(path->c_str()));
        levels->pop_back();
        return;
    }
    const char *name = level.names.c_str() + level.position;
    formed_path_length(level.path_length, name);
    path->append("/").append(name);
    level.position += std::strlen(name) + 1;
    remove_entry(levels, *path);
}

} // namespace

int remove_tree(const char *path)
{
    if (path == nullptr)
        return -1;
    std::string current = path;
    std::vector<Level> levels;
    if (!remove_entry(&levels, current))
        return -1;
    while (!levels.empty())
        remove_next(&levels, &current);
    return 0;
}

} // namespace quintral
