// Reading files that are named on the command line.
#ifndef QUINTRAL_TOOL_READ_FILE_H
#define QUINTRAL_TOOL_READ_FILE_H

#include <cstddef>
#include <string>

namespace quintral {

// Appends a whole file of at most 64 MiB to *text; "-" for standard input. Returns 0, or -1 with
// the reason in *error.
int read_whole_file(const char *path, std::string *text, std::string *error);

// Reads the first line of a file into the buffer, without its line ending, which may be LF or CR
// LF; "-" for standard input. Truncates the line to size - 1 bytes; its bytes after the 4096th are
// always dropped. A first line of 1 MiB or more is an error (EMSGSIZE). If the file is a
// terminal, shows a prompt and does not echo the line; the settings are restored afterwards,
// even if a signal ends the process. Returns 0, or -1 with the reason in *error.
int read_secret_line(const char *path, char *buffer, std::size_t size, std::string *error);

} // namespace quintral

#endif
