// The utility's two streams: answers on standard output, everything else on standard error.
#ifndef QUINTRAL_TOOL_STREAMS_H
#define QUINTRAL_TOOL_STREAMS_H

#include <cstddef>
#include <string>

namespace quintral {

// Gives the standard descriptors that were closed at start something to stand on, so that no socket
// takes their numbers and gets the utility's messages. Writing to a standard output made so fails.
// A broken pipe and a file at its size limit are errors of the write that meets them from here on,
// not signals.
void settle_streams();

// Writes all bytes, waiting for a reader where need be. Returns 0, or -1 with errno set when some
// could not be written.
int write_all(int descriptor, const char *bytes, std::size_t length);

// Writes the bytes where that cannot block, otherwise nothing: a pipe that nobody reads and a
// stopped terminal take none. At most PIPE_BUF bytes, for which a writable pipe has room.
// Async-signal-safe.
void write_if_possible(int descriptor, const char *bytes, std::size_t length);

// Writes the text to standard output and closes it, so that an error that only closing brings up is
// not lost. Returns 0, or -1 after showing the failure.
int print_output(const std::string &text);

// Shows a failure on standard error as one line, "Error: ", the text and BEL. The text is made safe
// first (see safe_line). It may contain any bytes.
void show_failure(const char *text);

// Shows a remark on standard error as one line, "Note: " and the text, made safe likewise.
void show_remark(const char *text);

} // namespace quintral

#endif
