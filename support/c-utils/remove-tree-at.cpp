// remove_tree with calls relative to open directories (POSIX 2008; Mac OS X has them since 10.10).
//
// The walk opens and removes only single path components and never opens a link, so swapping
// directories and links around it cannot make it leave the tree. It keeps the last few directories
// on the current path open, reopens the others through "..", and stops if ".." is not the directory
// it came from. It does not recurse.
#include "support/c-utils/files.h"

#include "support/c-utils/directory-walk.h"

#include <cerrno>
#include <deque>

#include <fcntl.h>
#include <unistd.h>

namespace quintral {

namespace {

// Number of levels kept open, each with its directory stream; the next one is opened before the
// first of them is closed. At least two: ".." cannot be opened from a directory that can be read
// but not searched. A directory that contains another one on the path can always be searched.
constexpr std::size_t open_levels = 8;

constexpr int closed = -1;

// The directory that contains the tree may be searchable but not readable. Use whichever of the two
// flags the system defines.
#if defined(O_SEARCH)
constexpr int search_only = O_SEARCH;
#elif defined(O_PATH)
constexpr int search_only = O_PATH;
#else
constexpr int search_only = O_RDONLY;
#endif

// One directory on the current path.
struct Level {
    int descriptor = closed; // or AT_FDCWD
    DirectoryStream stream;  // owns the descriptor, unless it is null
    dev_t device = 0;
    ino_t inode = 0;
    std::size_t path_length = 0;
    EntryList entries;
};

void close_level(Level *level)
{
    if (level->stream != nullptr)
        level->stream.reset();
    else if (level->descriptor >= 0)
        close(level->descriptor);
    level->descriptor = closed;
}

// The first level has the tree itself as its only entry, and stays open.
struct Walk {
    const char *path; // of the tree, as given
    bool ended = false;
    std::deque<Level> levels = std::deque<Level>(1);

    explicit Walk(const char *given) : path(given)
    {
    }
    Walk(const Walk &) = delete;
    Walk &operator=(const Walk &) = delete;

    ~Walk()
    {
        for (Level &level : levels)
            close_level(&level);
    }
};

// True if the path of the tree does not exist any more.
bool path_has_vanished(const char *path)
{
    struct stat status;
    return lstat(path, &status) != 0 && errno == ENOENT;
}

// Tries to remove the current entry of the last level, and makes the next one current. Deliberately
// ends the walk if the path of the tree led through that entry, as "tree/folder/.." does: the path
// of everything that is left leads nowhere then. The walk also ends when the tree's own path has
// been renamed or removed meanwhile.
void finish_entry(Walk *walk, mode_t type)
{
    Level &level = walk->levels.back();
    const bool directory = (type & directory_bit) != 0;
    const int flags = directory ? AT_REMOVEDIR : 0;
    static_cast<void>(unlinkat(level.descriptor, current_name(level.entries), flags));
    go_to_next(&level.entries);
    const bool tree_is_done = walk->levels.size() == 1;
    if (!tree_is_done && (directory || S_ISLNK(type)) && path_has_vanished(walk->path))
        walk->ended = true;
}

// Opens a directory. Returns false, with the level closed, if that fails.
bool open_level(Level *level, int from, const char *name, struct stat *status)
{
    level->descriptor = openat(from, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (level->descriptor != closed && fstat(level->descriptor, status) == 0)
        return true;
    close_level(level);
    return false;
}

// The same, and returns false unless the directory is the one that the level represents.
bool open_known_level(Level *level, int from, const char *name)
{
    struct stat status;
    if (!open_level(level, from, name, &status))
        return false;
    if (status.st_dev == level->device && status.st_ino == level->inode)
        return true;
    close_level(level);
    return false;
}

// On failure the level has no entries; its directory is then removed if it is empty, like one that
// cannot be opened.
void read_entries(Level *level)
{
    level->stream.reset(fdopendir(level->descriptor));
    if (level->stream != nullptr)
        add_remaining_entries(&level->entries, level->stream.get());
}

// Opens the current entry of the level above, which is either the directory that was examined or,
// if examined is null, one that is listed as a directory. An entry is a single component: whatever
// has its name now is part of the tree, and a link is not opened.
bool open_entry(Level *level, const Level &above, const struct stat *examined)
{
    const char *name = current_name(above.entries);
    if (examined != nullptr) {
        level->device = examined->st_dev;
        level->inode = examined->st_ino;
        return open_known_level(level, above.descriptor, name);
    }
    struct stat status;
    if (!open_level(level, above.descriptor, name, &status))
        return false;
    level->device = status.st_dev;
    level->inode = status.st_ino;
    return true;
}

// Appends the last level's current entry, a directory, as the new last level. Returns false if it
// cannot be opened.
bool enter_directory(Walk *walk, const struct stat *examined, std::size_t path_length)
{
    const Level &above = walk->levels.back();
    Level &level = walk->levels.emplace_back();
    level.path_length = path_length;
    if (!open_entry(&level, above, examined)) {
        walk->levels.pop_back();
        return false;
    }
    read_entries(&level);
    if (walk->levels.size() > open_levels + 1)
        close_level(&walk->levels[walk->levels.size() - 1 - open_levels]);
    return true;
}

// Removes the last level's directory, which has been emptied as far as possible. Ends the walk if
// the level above cannot be reopened.
void leave_directory(Walk *walk)
{
    Level &level = walk->levels.back();
    Level &above = walk->levels[walk->levels.size() - 2];
    if (above.descriptor == closed && !open_known_level(&above, level.descriptor, "..")) {
        walk->ended = true;
        return;
    }
    close_level(&level);
    walk->levels.pop_back();
    finish_entry(walk, S_IFDIR);
}

// Removes the last level's current entry, or enters it if it is a directory. Returns false if it
// cannot be examined.
bool remove_entry(Walk *walk, std::size_t path_length)
{
    Level &level = walk->levels.back();
    mode_t type = current_type(level.entries);
    struct stat status;
    const struct stat *examined = nullptr;
    if (type == 0) {
        const char *name = current_name(level.entries);
        if (fstatat(level.descriptor, name, &status, AT_SYMLINK_NOFOLLOW) == 0)
            type = status.st_mode & S_IFMT;
        examined = &status;
    }
    if (type == 0) {
        go_to_next(&level.entries);
        return false;
    }
    if ((type & directory_bit) == 0 || !enter_directory(walk, examined, path_length))
        finish_entry(walk, type);
    return true;
}

// Returns the length of the text before a path's last component, which includes its trailing
// slashes.
std::size_t parent_length(const char *path)
{
    std::size_t length = std::strlen(path);
    while (length > 0 && path[length - 1] == '/')
        --length;
    while (length > 0 && path[length - 1] != '/')
        --length;
    return length;
}

// Opens the directory that contains the tree, so that later changes to the directories above it do
// not matter. If that fails (no flag for search-only access, no free descriptor), the whole path
// serves as the name.
void open_first_level(Level *level, const char *path)
{
    std::size_t length = parent_length(path);
    if (length > 0) {
        const std::string parent(path, length);
        level->descriptor = openat(AT_FDCWD, parent.c_str(), search_only | O_DIRECTORY | O_CLOEXEC);
    }
    if (level->descriptor == closed) {
        level->descriptor = AT_FDCWD;
        length = 0;
    }
    add_entry(&level->entries, 0, path + length);
}

} // namespace

int remove_tree(const char *path)
{
    if (path == nullptr)
        return -1;
    Walk walk(path);
    open_first_level(&walk.levels.front(), path);
    if (!remove_entry(&walk, std::strlen(path)))
        return -1;
    while (!walk.ended && walk.levels.size() > 1) {
        const Level &level = walk.levels.back();
        if (is_at_end(level.entries))
            leave_directory(&walk);
        else
            remove_entry(&walk, formed_path_length(level.path_length, current_name(level.entries)));
    }
    return 0;
}

} // namespace quintral
