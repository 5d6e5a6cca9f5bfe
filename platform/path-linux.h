// Paths on Linux. Private to the platform library.
#ifndef QUINTRAL_PLATFORM_PATH_LINUX_H
#define QUINTRAL_PLATFORM_PATH_LINUX_H

#include <cstddef>
#include <cstdio>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace quintral {

// Writes folder, a slash unless the folder ends with one, and name. Returns false, with the path
// cut, if they do not fit.
// Requires: capacity is at least 1; path does not overlap the other two.
inline bool join_path(char *path, std::size_t capacity, const char *folder, const char *name)
{
    const std::size_t end = std::strlen(folder);
    const char *slash = end > 0 && folder[end - 1] == '/' ? "" : "/";
    const int length = std::snprintf(path, capacity, "%s%s%s", folder, slash, name);
    return length >= 0 && static_cast<std::size_t>(length) < capacity;
}

// True for a folder, also through a symbolic link.
inline bool is_folder(const char *path)
{
    struct stat status = {};
    return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

// True for a file that the caller may execute. Folders, which may have that permission too, are
// excluded.
inline bool is_program(const char *path)
{
    return access(path, X_OK) == 0 && !is_folder(path);
}

} // namespace quintral

#endif
