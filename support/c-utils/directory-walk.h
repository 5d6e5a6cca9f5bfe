// What the walks over directories have in common. For files.cpp and the two files that define
// remove_tree only.
#ifndef QUINTRAL_SUPPORT_C_UTILS_DIRECTORY_WALK_H
#define QUINTRAL_SUPPORT_C_UTILS_DIRECTORY_WALK_H

// Linux on 32 bits otherwise refuses to examine files of 2 GiB and more, and directories with long
// inode numbers. Must stand before every header of the system.
#define _FILE_OFFSET_BITS 64

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <dirent.h>
#include <sys/stat.h>

namespace quintral {

// Size of the paths that the walks form, terminator included: PATH_MAX of Mac OS X, on every system
// alike. A longer one ends the program.
inline constexpr std::size_t formed_path_size = 1024;

// The bit of a mode that tells a directory. Deliberately not S_ISDIR: the types of sockets and
// block devices hold the bit too, and the suite relies on it that neither is ever removed.
inline constexpr mode_t directory_bit = 0x4000;

struct CloseDirectory {
    void operator()(DIR *stream) const
    {
        closedir(stream);
    }
};
using DirectoryStream = std::unique_ptr<DIR, CloseDirectory>;

// True for an entry of the directory itself. A name with a slash comes from a broken file system
// and would lead elsewhere.
inline bool is_own_entry(const char *name)
{
    return std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0 &&
           std::strchr(name, '/') == nullptr;
}

// Returns the next entry of the directory's own; null at the end and where reading fails.
inline const dirent *next_entry(DIR *stream)
{
    const dirent *entry = readdir(stream);
    while (entry != nullptr && !is_own_entry(entry->d_name))
        entry = readdir(stream);
    return entry;
}

// Returns the names of the entries that are left to read, each with its terminator behind it. A
// removal takes them all before the first entry goes: what readdir yields of a directory that is
// being emptied differs between systems.
inline std::string remaining_names(DIR *stream)
{
    std::string names;
    while (const dirent *entry = next_entry(stream))
        names.append(entry->d_name, std::strlen(entry->d_name) + 1);
    return names;
}

// Returns the length of an entry's path: directory, slash and name. Ends the program where it does
// not fit its size.
inline std::size_t formed_path_length(std::size_t directory_length, const char *name)
{
    const std::size_t length = directory_length + 1 + std::strlen(name);
    if (length >= formed_path_size)
        std::abort();
    return length;
}

} // namespace quintral

#endif
