// remove_tree with calls relative to open directories (POSIX 2008; Mac OS X has them since 10.10).
//
// The walk uses only single path components and never opens a link, so swapping directories and
// links around it cannot make it leave the tree. It keeps the last few directories on the current
// path open, reopens the others through "..", and stops if ".." is not the directory it came from.
// It does not recurse.
#include "support/c-utils/files.h"

#include "support/c-utils/directory-walk.h"

#include <deque>

#include <fcntl.h>
#include <unistd.h>

namespace quintral {

namespace {

// Number of levels kept open. At least two: ".." cannot be opened from a directory that can be read
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
    dev_t device = 0;
    ino_t inode = 0;
    std::size_t path_length = 0;
    std::string names;        // names of its entries, each with its terminator
    std::size_t position = 0; // offset of the current entry's name
};

void close_level(Level *level)
{
    if (level->descriptor >= 0)
        close(level->descriptor);
    level->descriptor = closed;
}

// The first level has the tree itself as its only entry, and stays open.
struct Walk {
    std::deque<Level> levels = std::deque<Level>(1);

    Walk() = default;
    Walk(const Walk &) = delete;
    Walk &operator=(const Walk &) = delete;

    ~Walk()
    {
        for (Level &level : levels)
            close_level(&level);
    }
};

const char *current_name(const Level &level)
{
    return level.names.c_str() + level.position;
}

// Tries to remove the current entry, and makes the next one current.
void finish_entry(Level *level, int unlink_flags)
{
    static_cast<void>(unlinkat(level->descriptor, current_name(*level), unlink_flags));
    level->position += std::strlen(current_name(*level)) + 1;
}

// Opens the directory called name. Returns false unless it is the one that the level represents.
bool open_level(Level *level, int from, const char *name)
{
    level->descriptor = openat(from, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat status;
    if (level->descriptor != closed && fstat(level->descriptor, &status) == 0 &&
        status.st_dev == level->device && status.st_ino == level->inode)
        return true;
    close_level(level);
    return false;
}

// On failure the level has no names; its directory is then removed if it is empty, like one that
// cannot be opened.
void read_names(Level *level)
{
    const int copy = fcntl(level->descriptor, F_DUPFD_CLOEXEC, 0);
    const DirectoryStream stream(fdopendir(copy));
    if (stream != nullptr)
        level->names = remaining_names(stream.get());
    else if (copy != closed)
        close(copy);
}

// Appends the last level's current entry, a directory, as the new last level. Returns false if it
// cannot be opened.
bool enter_directory(Walk *walk, const struct stat &examined, std::size_t path_length)
{
    const Level &above = walk->levels.back();
    Level &level = walk->levels.emplace_back();
    level.device = examined.st_dev;
    level.inode = examined.st_ino;
    level.path_length = path_length;
    if (!open_level(&level, above.descriptor, current_name(above))) {
        walk->levels.pop_back();
        return false;
    }
    read_names(&level);
    if (walk->levels.size() > open_levels + 1)
        close_level(&walk->levels[walk->levels.size() - 1 - open_levels]);
    return true;
}

// Removes the last level's directory, which has been emptied as far as possible. Returns false if
// the level above cannot be reopened.
bool leave_directory(Walk *walk)
{
    Level &level = walk->levels.back();
    Level &above = walk->levels[walk->levels.size() - 2];
    if (above.descriptor == closed && !open_level(&above, level.descriptor, ".."))
        return false;
    close_level(&level);
    walk->levels.pop_back();
    finish_entry(&above, AT_REMOVEDIR);
    return true;
}

// Removes the last level's current entry, or enters it if it is a directory. Returns false if it
// cannot be examined.
bool remove_entry(Walk *walk, std::size_t path_length)
{
    Level &level = walk->levels.back();
    struct stat status;
    if (fstatat(level.descriptor, current_name(level), &status, AT_SYMLINK_NOFOLLOW) != 0)
        status.st_mode = 0;
    if ((status.st_mode & S_IFMT) == 0) {
        level.position += std::strlen(current_name(level)) + 1;
        return false;
    }
    const bool directory = (status.st_mode & directory_bit) != 0;
    if (!directory || !enter_directory(walk, status, path_length))
        finish_entry(&level, directory ? AT_REMOVEDIR : 0);
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
    level->names.assign(path + length, std::strlen(path + length) + 1);
}

} // namespace

int remove_tree(const char *path)
{
    if (path == nullptr)
        return -1;
    Walk walk;
    open_first_level(&walk.levels.front(), path);
    if (!remove_entry(&walk, std::strlen(path)))
        return -1;
    while (walk.levels.size() > 1) {
        const Level &level = walk.levels.back();
        if (level.position < level.names.size())
            remove_entry(&walk, formed_path_length(level.path_length, current_name(level)));
        else if (!leave_directory(&walk))
            break;
    }
    return 0;
}

} // namespace quintral
