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
    EntryList entries;
};

// Returns the type bits of a mode; 0 if the path cannot be examined.
mode_t type_of(const std::string &path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0 ? status.st_mode & S_IFMT : mode_t{0};
}

// Appends a directory as the new last level. If it cannot be opened, the level has no entries; the
// directory is then removed if it is empty.
void enter_directory(std::vector<Level> *levels, const std::string &path)
{
    Level &level = levels->emplace_back();
    level.path_length = path.size();
    const DirectoryStream stream(opendir(path.c_str()));
    if (stream != nullptr)
        add_remaining_entries(&level.entries, stream.get());
}

// Removes an entry, or enters it if it is a directory; does nothing if it has no type.
void remove_entry(std::vector<Level> *levels, const std::string &path, mode_t type)
{
    if ((type & directory_bit) != 0)
        enter_directory(levels, path);
    else if (type != 0)
        static_cast<void>(unlink(path.c_str()));
}

// Removes the next entry of the last level or, after the last entry, the level's directory.
void remove_next(std::vector<Level> *levels, std::string *path)
{
    Level &level = levels->back();
    path->resize(level.path_length);
    if (is_at_end(level.entries)) {
        static_cast<void>(rmdir(path->c_str()));
        levels->pop_back();
        return;
    }
    const char *name = current_name(level.entries);
    formed_path_length(level.path_length, name);
    path->append("/").append(name);
    const mode_t listed = current_type(level.entries);
    go_to_next(&level.entries);
    remove_entry(levels, *path, listed != 0 ? listed : type_of(*path));
}

} // namespace

int remove_tree(const char *path)
{
    if (path == nullptr)
        return -1;
    std::string current = path;
    std::vector<Level> levels;
    const mode_t type = type_of(current);
    if (type == 0)
        return -1;
    remove_entry(&levels, current, type);
    while (!levels.empty())
        remove_next(&levels, &current);
    return 0;
}

} // namespace quintral
