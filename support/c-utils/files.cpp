// remove_tree is in remove-tree-at.cpp or remove-tree-path.cpp; the build picks one by the system.
#include "support/c-utils/files.h"

#include "support/c-utils/directory-walk.h"
#include "support/error.h"

#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace quintral {

namespace {

constexpr mode_t shared_permissions = 0666;
constexpr int bell = 7;

// The exception that an embedding program gets if a mandatory file cannot be opened.
constexpr int open_abort_code = 1;
constexpr const char *open_abort_file = "support/c-utils";
constexpr int open_abort_line = 369;

void report_open_failure(const char *path, const char *mode, const char *reason)
{
    if (mode[0] == 'w')
        report_message(Error, "Write of %s failed at open: %s\n", path, reason);
    else
        report_message(Error, "Open of %s failed: %s\n", path, reason);
}

bool is_regular_file(const char *path)
{
    struct stat status;
    return stat(path, &status) == 0 && S_ISREG(status.st_mode);
}

std::size_t read_to_end(std::FILE *stream, char *buffer, std::size_t size)
{
    std::size_t length = 0;
    std::size_t added = 1;
    while (added > 0 && length < size) {
        added = std::fread(buffer + length, 1, size - length, stream);
        length += added;
    }
    return length;
}

} // namespace

std::FILE *open_file(const char *path, const char *mode, unsigned flags)
{
    std::FILE *stream = std::fopen(path, mode);
    const int error = errno;
    if (stream != nullptr) {
        // Deliberately every time: the file-creation mask of the program that first wrote the file
        // must not lock the others out. Not by path: another file may have its name by now, and
        // would be opened to all.
        if (mode[0] == 'w' || mode[0] == 'a')
            static_cast<void>(fchmod(fileno(stream), shared_permissions));
        return stream;
    }
    if ((flags & (OpenFatal | OpenReport)) != 0)
        report_open_failure(path, mode, std::strerror(error));
    if ((flags & OpenFatal) != 0)
        throw_abort(open_abort_code, open_abort_file, open_abort_line);
    return nullptr;
}

std::FILE *open_file_either(const char *first_path, const char *second_path, const char *mode,
                            unsigned flags)
{
    std::FILE *stream = open_file(first_path, mode, flags);
    return stream != nullptr ? stream : open_file(second_path, mode, flags);
}

std::int32_t close_file(std::FILE *stream)
{
    if (stream == nullptr)
        return 0;
    const int result = std::fclose(stream);
    const int error = errno;
    if (result == -1) {
        report_message(Error, "Close file failed.");
        errno = error; // reporting may have changed it
        std::perror("Reason");
    }
    return result;
}

int file_exists(const char *path)
{
    struct stat status;
    return path != nullptr && path[0] != '\0' && stat(path, &status) == 0 ? 1 : 0;
}

int remove_path(const char *path)
{
    if (path == nullptr || path[0] == '\0')
        return 0;
    struct stat status;
    if (lstat(path, &status) != 0)
        return -1;
    return (status.st_mode & directory_bit) != 0 ? rmdir(path) : unlink(path);
}

void for_each_file(const char *directory, FileCallback callback, void *user_value)
{
    const DirectoryStream stream(opendir(directory));
    if (stream == nullptr) {
        report_message(Warning, "Can't open directory %s: error %s\n", directory,
                       std::strerror(errno));
        return;
    }
    char path[formed_path_size];
    const std::size_t directory_length = std::strlen(directory);
    while (const dirent *entry = next_entry(stream.get())) {
        formed_path_length(directory_length, entry->d_name);
        std::snprintf(path, sizeof path, "%s/%s", directory, entry->d_name);
        if (is_regular_file(path))
            callback(path, user_value);
    }
}

const char *path_basename(const char *path)
{
    if (path == nullptr || path[0] == '\0')
        return ".";
    if (std::strcmp(path, "/") == 0)
        return path;
    const char *slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

int ring_bell()
{
    return std::fputc(bell, stderr);
}

char *process_command_line(char *buffer, std::size_t size, long process_id)
{
    if (size == 0)
        return nullptr;
    buffer[0] = '\0';
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%ld/cmdline",
                  process_id == 0 ? static_cast<long>(getpid()) : process_id);
    std::FILE *stream = std::fopen(path, "r");
    if (stream == nullptr)
        return nullptr;
    buffer[read_to_end(stream, buffer, size - 1)] = '\0';
    std::fclose(stream);
    return buffer[0] == '\0' ? nullptr : buffer;
}

} // namespace quintral
