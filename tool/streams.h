// The utility's two streams: answers on standard output, everything else on standard error.
#ifndef QUINTRAL_TOOL_STREAMS_H
#define QUINTRAL_TOOL_STREAMS_H

#include <cstddef>
#include <string>

#include "support/error.h"

namespace quintral {

// Opens /dev/null on any standard descriptor that is closed, so that no socket is given its number
// and receives our output. Writing to a stdout opened this way fails. From here on, a broken pipe
// and a file at its size limit are reported as write errors, not as signals.
void prepare_streams();

// Writes all bytes, waiting for a reader if necessary. Returns 0, or -1 with errno set if some
// could not be written.
int write_all(int descriptor, const char *bytes, std::size_t length);

// Writes the bytes if that cannot block, otherwise nothing, as for a full pipe that nobody reads or
// a stopped terminal. Async-signal-safe.
// Requires: length is at most PIPE_BUF, for which a writable pipe has space.
void write_if_possible(int descriptor, const char *bytes, std::size_t length);

// Installs the utility's print handler (see set_print_handler), which appends to *output. The whole
// answer is collected before any of it is written, so an allocation failure never leaves half an
// answer on standard output. The tag (version, url, button or message) is for handlers that treat
// the parts differently; this one ignores it.
// Requires: *output outlives the last call of print_text.
void collect_printed_text(std::string *output);

// The utility's message handler (see set_message_handler). Writes the line of format_message to
// standard error with one write that waits for a reader; the default handler's stream would drop
// it.
void show_message(MessageLevel level, const char *text);

// Writes the collected output to standard output and closes it, so that an error that only closing
// reports is not lost. Does nothing if the output is empty. Returns 0, or -1 after reporting the
// failure.
int finish_output(const std::string &output);

// Writes the utility's own text to standard error by output_printf, line by line.
void show_usage_text(const std::string &text);

// Writes it to standard output and closes that. Returns 0, or -1 after reporting the failure.
int print_usage_text(const std::string &text);

// Reports a failure at level Error or a note at level Note, as one line. The text may contain any
// bytes; it is made safe first (see safe_line).
void show_failure(const char *text);
void show_note(const char *text);

} // namespace quintral

#endif
