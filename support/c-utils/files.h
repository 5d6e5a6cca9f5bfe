// Files and directories: opening and closing streams with uniform error reports and shared
// permissions, existence tests, removal of files and directory trees, iteration over the files in a
// directory, the last component of a path, the terminal bell, and the command line of a process.
//
// Paths are terminated byte strings in the system's encoding; nothing is converted. Functions that
// report a failure do so through report_message of support/error.h, once and with the system's
// reason. Nothing is locked: use these functions from one thread.
//
//     std::FILE *list = open_file(path, "w", OpenReport);
//     if (list == nullptr)
//         return -1; // already reported
//     for_each_file("presets", write_name, list);
//     return close_file(list);
#ifndef QUINTRAL_SUPPORT_C_UTILS_FILES_H
#define QUINTRAL_SUPPORT_C_UTILS_FILES_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

#pragma GCC visibility push(default) // exported from a shared library
namespace quintral {

// What open_file does on failure, as a set of bits; 0 fails silently.
enum OpenFileFlags : unsigned {
    OpenFatal = 1, // report it and throw QuintralAbortException
    OpenReport = 2 // report it
};

// Called by for_each_file with the path of one file and the user value. The path is valid only
// until the callback returns; the result is ignored.
using FileCallback = int (*)(const char *path, void *user_value);

// Streams

// Opens a file as std::fopen does. Returns the stream, which the caller closes with close_file, or
// null on failure.
//
// A mode that begins with 'w' or 'a' sets the opened file's permissions to 0666, even if it already
// existed and whatever the process's file-creation mask, because Quintral programs share their
// files between users. A failure to set them is not reported, and no other mode changes them.
//
// With OpenReport or OpenFatal, a failure is reported at level Error: as "Write of PATH failed at
// open: REASON" if the mode begins with 'w', and as "Open of PATH failed: REASON" for every other
// mode, including 'a'. OpenFatal then throws QuintralAbortException with code 1, file
// "support/c-utils" and line 369 instead of returning null. If the result is null and no failure
// was reported, errno is that of the open.
// Requires: path and mode are terminated; mode is valid for std::fopen.
std::FILE *open_file(const char *path, const char *mode, unsigned flags);

// Opens the first path or, if that fails, the second, each with open_file and the same mode and
// flags. Returns the stream, or null if neither opens. The flags apply to each failure, so with
// OpenFatal the second path is never tried.
std::FILE *open_file_either(const char *first_path, const char *second_path, const char *mode,
                            unsigned flags);

// Closes a stream; does nothing for null. Returns 0, or -1 if fclose fails; the stream is closed
// either way. A failure is reported at level Error as "Close file failed.", followed on standard
// error by the line "Reason: REASON" with the system's reason.
std::int32_t close_file(std::FILE *stream);

// Paths

// Returns 1 if the path exists, following symbolic links; 0 if it does not, for a dangling link,
// and for a null or empty path.
int file_exists(const char *path);

// Removes a file, an empty directory, or a symbolic link (not its target); does nothing for a null
// or empty path. Returns 0, or -1 with errno set on failure, which is not reported.
//
// Sockets and block devices are never removed: they count as directories here, and the attempt
// fails.
int remove_path(const char *path);

// Removes a directory and everything below it, depth first; a path that is not a directory is
// removed as by remove_path. Symbolic links are removed, not followed; but a symlink with a
// trailing slash refers to its target directory, which is emptied but not removed.
//
// Returns -1 if the path itself is null or cannot be examined; otherwise 0, even if part or all of
// the tree could not be removed. Nothing is reported. Throws std::bad_alloc when memory runs out;
// what was removed by then stays removed, and no descriptor stays open.
//
// If the path leads through an entry of the tree, as "tree/folder/.." does, the removal ends when
// it removes that entry, since the path then leads nowhere: what follows the entry in its directory
// is left. It ends likewise, at the next directory or link that it tries to remove, when the tree's
// own path is renamed or removed while it runs.
//
// Paths below the directory are limited to 1024 bytes, terminator included: the program ends with
// abort() at the first entry whose path is longer; that entry and all entries after it in the walk
// are left untouched.
//
// Replacing a directory with a symlink, or moving it, during removal cannot make remove_tree leave
// the tree, although moved parts may remain. This does not hold on Mac OS X before 10.10: there,
// nobody else may have write access to the tree. If the directory that contains the tree can be
// searched but not read, it holds only on systems that can open a directory for searching only
// (Linux, current macOS).
//
// A tree of any depth needs fewer than 32 descriptors and less than 256 KiB of stack. The names of
// the entries in the directories on the current path are held in memory, and up to nine directory
// streams are open, each with a buffer of the system.
int remove_tree(const char *path);

// Calls callback(path, user_value) for each regular file directly in a directory, following
// symbolic links, in the order in which the system lists them. The path is the directory's path, a
// slash and the name. Subdirectories are not entered, and an entry that cannot be examined is
// skipped.
//
// If the directory cannot be opened, that is reported at level Warning as "Can't open directory
// PATH: error REASON", and the callback is not called. The program ends with abort() at the first
// entry whose path is longer than 1024 bytes, terminator included. Exceptions thrown by the
// callback propagate to the caller.
// Requires: directory is terminated; callback is not null.
void for_each_file(const char *directory, FileCallback callback, void *user_value);

// Returns the last component of a path: the text after its last slash, which is empty if the path
// ends with one; the path itself if it has no slash or is exactly "/"; the constant "." for a null
// or empty path. Nothing is allocated: except for ".", the result points into the path.
const char *path_basename(const char *path);

// Terminal and processes

// Rings the terminal bell by writing byte 7 to standard error. Returns the result of fputc: 7, or
// EOF on failure.
int ring_bell();

// Reads the command line of a process from the /proc file system into a buffer of size bytes,
// terminator included. A process id of 0 means the calling process. What does not fit is cut off.
//
// Returns the buffer; or null, with an empty string in the buffer, if there is no such process or
// no /proc, if the command line is empty, or if the size is 1. With a size of 0, returns null and
// does not touch the buffer. Arguments are stored consecutively, each NUL-terminated, so read as a
// C string the buffer is just the program name.
char *process_command_line(char *buffer, std::size_t size, long process_id);

} // namespace quintral
#pragma GCC visibility pop

#endif
