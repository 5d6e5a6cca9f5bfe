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

// Returns the type bits of an entry's mode as its directory lists them, 0 if it does not. A removal
// need not examine an entry whose type is listed.
inline mode_t listed_type(const dirent *entry)
{
#ifdef DTTOIF
    return static_cast<mode_t>(DTTOIF(entry->d_type));
#else
    static_cast<void>(entry);
    return 0;
#endif
}

// Entries of a directory, read before the first of them is removed: what readdir yields while a
// directory is being emptied differs between systems. Each has one byte for its type, its name and
// a terminator.
struct EntryList {
    std::string bytes;
    std::size_t position = 0; // of the current entry
};

// Makes the type bits of a mode fit into a byte.
inline constexpr int type_shift = 12;

// Appends an entry of the given type bits, 0 if its type is not known.
inline void add_entry(EntryList *list, mode_t type, const char *name)
{
    list->bytes += static_cast<char>(type >> type_shift);
    list->bytes.append(name, std::strlen(name) + 1);
}

// Appends the remaining entries of a stream.
inline void add_remaining_entries(EntryList *list, DIR *stream)
{
    while (const dirent *entry = next_entry(stream))
        add_entry(list, listed_type(entry), entry->d_name);
}

// True if no entry is left. The functions below require one.
inline bool is_at_end(const EntryList &list)
{
    return list.position == list.bytes.size();
}

// Returns the type bits of the current entry, 0 if its type is not known.
inline mode_t current_type(const EntryList &list)
{
    return static_cast<mode_t>(static_cast<unsigned>(list.bytes[list.position]) << type_shift);
}

// Returns the name of the current entry. Adding an entry invalidates it.
inline const char *current_name(const EntryList &list)
{
    return list.bytes.c_str() + list.position + 1;
}

// Makes the next entry current.
inline void go_to_next(EntryList *list)
{
    list->position += 1 + std::strlen(current_name(*list)) + 1;
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
