// remove_tree by calls relative to open directories (POSIX 2008; Mac OS X has them from 10.10).
//
// The walk names nothing by more than one component, and opens no link, so that an exchange of
// directories and links around it cannot lead it out of the tree. It keeps the last few directories
// on its way down open; the others it finds again through "..", and it stops where that is not the
// directory it came from. It needs no recursion.
#include "support/c-utils/directory-walk.h" // first, since it sets the size of file offsets

#include "support/c-utils/files.h"

#include <deque>

#include <fcntl.h>
#include <unistd.h>

namespace quintral {

namespace {

// Levels that stay open. At least two: there is no way up through ".." from a directory that may be
// read but not searched, whereas one that has led to another can be searched.
constexpr std::size_t open_levels = 8;

constexpr int closed = -1;

// How the directory above the tree is opened: it may be searchable only. Which of the two flags for
// that a system has, its headers tell.
#if defined(O_SEARCH)
constexpr int search_only = O_SEARCH;
#elif defined(O_PATH)
constexpr int search_only = O_PATH;
#else
constexpr int search_only = O_RDONLY;
#endif

// One directory on the way down.
struct Level {
    int descriptor = closed; // or AT_FDCWD
    dev_t device = 0;
    ino_t inode = 0;
    std::size_t path_length = 0;
    std::string names;        // of its entries, each with its terminator
    std::size_t position = 0; // of the current entry's name
};

void close_level(Level *level)
{
    if (level->descriptor >= 0)
        close(level->descriptor);
    level->descriptor = closed;
}

// The first level holds the tree itself as its one entry, and stays open.
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

// Removes the current entry if the system lets it go, and makes the next one current.
void finish_entry(Level *level, int unlink_flags)
{
    static_cast<void>(unlinkat(level->descriptor, current_name(*level), unlink_flags));
    level->position += std::strlen(current_name(*level)) + 1;
}

// Opens the directory at name if it is the one that the level stands for.
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

// Leaves the level without names where the system refuses: its directory is then removed if it is
// empty, like one that cannot be opened.
void read_names(Level *level)
{
    const int copy = fcntl(level->descriptor, F_DUPFD_CLOEXEC, 0);
    const DirectoryStream stream(fdopendir(copy));
    if (stream != nullptr)
        level->names = remaining_names(stream.get());
    else if (copy != closed)
        close(copy);
}

// Makes the directory at the last level's current entry the last level. False where it cannot be
// opened.
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

// Removes the last level's directory, which has been emptied as far as possible. False where the
// level above is not to be found again.
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

// Removes the last level's current entry, or enters it where it is a directory. False where it
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

// Length of what stands before a path's last component, whose slashes belong to it.
std::size_t parent_length(const char *path)
{
    std::size_t length = std::strlen(path);
    while (length > 0 && path[length - 1] == '/')
        --length;
    while (length > 0 && path[length - 1] != '/')
        --length;
    return length;
}

// Opens the directory that the tree is in, so that nothing done to the directories above matters
// from then on. Where that cannot be opened (a system without a flag for searching, a process out
// of descriptors) the whole path is the name.
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
