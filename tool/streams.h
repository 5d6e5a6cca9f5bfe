// The utility's two streams: answers on standard output, everything else on standard error.
#ifndef QUINTRAL_TOOL_STREAMS_H
#define QUINTRAL_TOOL_STREAMS_H

#include <cstddef>
#include <string>

#include "support/error.h"

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

// Collects a text for standard output. Nothing is written before all of it is there: what runs out
// of memory half-way leaves no half of an answer.
void add_output(const std::string &text);

// The utility's print handler (see set_print_handler): what print_text is given is the service's
// answer, one whole line or message, made safe, and goes to add_output. The tag (version, url,
// button or message) is for handlers that take the answer apart.
void print_to_output(const char *text, const char *tag);

// The utility's message handler (see set_message_handler): the line of format_message on standard
// error, in one write that waits for a reader, where the default handler's stream would drop it.
void show_message(MessageLevel level, const char *text);

// Writes what has been collected to standard output and closes it, so that an error that only
// closing brings up is not lost; does nothing where nothing was collected. Returns 0, or -1 after
// reporting the failure.
int finish_output();

// Writes a text of the utility's own by output_printf, line by line, to standard error.
void show_usage_text(const char *text);

// The same to standard output, which is closed then. Returns as finish_output.
int print_usage_text(const char *text);

// Reports a failure at level Error or a remark at level Note, as one line; the text is made safe
// first (see safe_line) and may contain any bytes.
void show_failure(const char *text);
void show_remark(const char *text);

} // namespace quintral

#endif
