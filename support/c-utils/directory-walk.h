// Shared by the functions that walk directories: files.cpp and the two files that define
// remove_tree.
#ifndef QUINTRAL_SUPPORT_C_UTILS_DIRECTORY_WALK_H
#define QUINTRAL_SUPPORT_C_UTILS_DIRECTORY_WALK_H

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <dirent.h>
#include <sys/stat.h>

namespace quintral {

// Size in bytes of the paths that the walks build, terminator included: PATH_MAX of Mac OS X, used
// on every system. A longer path aborts the program.
inline constexpr std::size_t formed_path_size = 1024;

// The mode bit that marks a directory. Deliberately not S_ISDIR: the types of sockets and block
// devices have this bit too, and existing programs depend on neither ever being removed.
inline constexpr mode_t directory_bit = 0x4000;

// A directory stream that closes itself.
struct CloseDirectory {
    void operator()(DIR *stream) const
    {
        closedir(stream);
    }
};
// The stream itself, null if it could not be opened.
using DirectoryStream = std::unique_ptr<DIR, CloseDirectory>;

// False for ".", ".." and a name with a slash, which only a broken file system yields and which
// would lead out of the directory.
inline bool is_own_entry(const char *name)
{
    return std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0 &&
           std::strchr(name, '/') == nullptr;
}

// Returns the next entry for which is_own_entry is true, or null at the end and if reading fails.
inline const dirent *next_entry(DIR *stream)
{
    const dirent *entry = readdir(stream);
    while (entry != nullptr && !is_own_entry(entry->d_name))
        entry = readdir(stream);
    return entry;
}

// Returns the names of the remaining entries, each followed by its terminator. A removal reads all
// of them before it removes the first: what readdir yields while a directory is being emptied
// differs between systems.
inline std::string remaining_names(DIR *stream)
{
    std::string names;
    while (const dirent *entry = next_entry(stream))
        names.append(entry->d_name, std::strlen(entry->d_name) + 1);
    return names;
}

// Returns the length of an entry's path: directory, slash and name. Aborts the program if the path
// would not fit into formed_path_size.
inline std::size_t formed_path_length(std::size_t directory_length, const char *name)
{
    const std::size_t length = directory_length + 1 + std::strlen(name);
    if (length >= formed_path_size)
        std::abort();
    return length;
}

} // namespace quintral

#endif
