// Reading files that are named on the command line.
#ifndef QUINTRAL_TOOL_READ_FILE_H
#define QUINTRAL_TOOL_READ_FILE_H

#include <cstddef>
#include <string>

namespace quintral {

// Reads a whole file of at most 64 MiB, "-" for standard input. Returns 0 with its bytes in *text,
// or -1 with the reason in *error.
int read_whole_file(const char *path, std::string *text, std::string *error);

// Reads the first line of a file into the buffer, without its line ending, which may be LF or CR
// LF; "-" for standard input. A longer line is truncated to size - 1 bytes. If standard input is a
// terminal, it shows a prompt and does not echo the line; its settings are restored afterwards, by
// a signal that ends the process too. Returns 0, or -1 with the reason in *error.
int read_secret_line(const char *path, char *buffer, std::size_t size, std::string *error);

} // namespace quintral

#endif
