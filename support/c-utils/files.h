// Files and directories: opening and closing streams with the suite's reports and permission rule,
// existence tests, removal of paths and of whole trees, a walk over the files of one directory, the
// last component of a path, the terminal bell and a process's command line.
//
// Paths are terminated byte strings in the system's encoding; nothing is converted. Reports go
// through report_message of support/error.h, each failure once and with the system's reason for the
// call that failed. Nothing is locked: the system is single-threaded.
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

namespace quintral {

// What open_file does about a failure, as a set of bits; 0 fails silently.
enum OpenFileFlags : unsigned {
    OpenFatal = 1, // report it and throw QuintralAbortException
    OpenReport = 2 // report it
};

// Receives one file of for_each_file and that function's user value. The path is good until the
// callback returns; the result is ignored.
using FileCallback = int (*)(const char *path, void *user_value);

// Streams

// Opens a file as std::fopen does. Returns the stream, which the caller gives to close_file, or
// null on failure.
//
// A mode that begins with 'w' or 'a' sets the file's permissions to 0666, new file or old and
// whatever the process's file-creation mask: the programs of the suite share their files between
// users. A failure to set them is not reported, and no other mode touches them.
//
// With OpenReport or OpenFatal a failure is reported at level Error, as "Write of PATH failed at
// open: REASON" where the mode begins with 'w' and as "Open of PATH failed: REASON" for every other
// mode, 'a' included. OpenFatal then throws QuintralAbortException with code 1, file
// "support/c-utils" and line 369, and does not return null.
// On a null result errno is that of the open, unless it has been reported.
// Requires: path and mode are terminated; mode is one that std::fopen takes.
std::FILE *open_file(const char *path, const char *mode, unsigned flags);

// Opens the first path or, where that gives null, the second, each as open_file does with the same
// mode and flags. Returns the stream, or null where neither opens. Each failure is handled by the
// flags: with OpenFatal the second path is never tried.
std::FILE *open_file_either(const char *first_path, const char *second_path, const char *mode,
                            unsigned flags);

// Closes a stream. Returns 0, also for null, where nothing is done; -1 where fclose fails, the
// stream being gone all the same. A failure is reported at level Error as "Close file failed.",
// with the system's reason behind it on standard error, on a line "Reason: REASON".
std::int32_t close_file(std::FILE *stream);

// Paths

// Returns 1 where the path leads to something, symbolic links followed; 0 where it does not, for a
// link that leads nowhere and for a null or empty path.
int file_exists(const char *path);

// Removes a file, an empty directory, or a symbolic link itself. Returns 0, also for a null or
// empty path, where nothing is done; -1 on failure, unreported, with errno set.
//
// Sockets and block devices are never removed: they count as directories here, and the attempt
// fails.
int remove_path(const char *path);

// Removes a directory and all that is below it, depth first, or a path that is no directory as
// remove_path does. Symbolic links are removed themselves; a link given with a slash behind it is
// the directory it leads to, which is emptied and stays.
//
// Returns -1 where the path itself cannot be examined, or is null; otherwise 0, even where a part
// of the tree, or all of it, could not be removed. Nothing is reported. Throws std::bad_alloc when
// memory runs out; what was removed by then is gone and no descriptor stays open.
//
// Below the directory a path is at most 1024 bytes long, terminator included: the program ends by
// abort() at the first entry that has a longer one, and leaves that entry and all that follows it
// in the walk untouched.
//
// Somebody who exchanges a directory for a symbolic link, or moves one away, while the removal runs
// cannot lead it out of the tree; a part that is no longer where it was may stay behind. On Mac OS
// X before 10.10 this does not hold: there nobody else may be able to write to the tree. Where the
// directory that the tree is in can be searched but not read, it holds on systems that can open a
// directory for searching alone (Linux, today's macOS).
//
// A tree of any depth takes less than 32 descriptors and 256 KiB of stack; the names of the entries
// of the directories on the way down are held in memory.
int remove_tree(const char *path);

// Calls callback(path, user_value) for each regular file directly in a directory, symbolic links
// followed, in the order in which the system yields them. The path is that of the directory, a
// slash and the name. Directories below it are not entered, and an entry that cannot be examined is
// left out.
//
// A directory that cannot be opened is reported at level Warning as "Can't open directory PATH:
// error REASON"; there is no call then. The program ends by abort() at the first entry whose path
// is longer than 1024 bytes, terminator included. What the callback throws is passed on.
// Requires: directory is terminated, callback is not null.
void for_each_file(const char *directory, FileCallback callback, void *user_value);

// Returns the last component of a path: what stands behind its last slash, so an empty text where
// the path ends in one; the path itself where it has no slash or is exactly "/"; the constant "."
// for a null or empty path. The result points into the path; nothing is allocated.
const char *path_basename(const char *path);

// Terminal and processes

// Rings the terminal's bell: writes byte 7 to standard error. Returns what fputc does: 7, or EOF.
int ring_bell();

// Reads a process's command line from the /proc file system into a buffer of size bytes, terminator
// included; a process id of 0 means the calling process. What does not fit is cut off.
//
// Returns the buffer, or null with an empty text in it where there is no such process or file
// system, or where the command line is empty or has no room (a size of 1). With a size of 0 returns
// null and touches nothing. The arguments stand one behind the other, each with its terminator: as
// one text the buffer is the first of them, the program's name.
char *process_command_line(char *buffer, std::size_t size, long process_id);

} // namespace quintral

#endif
