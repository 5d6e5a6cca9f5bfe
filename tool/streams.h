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

// Sets what a signal does: SIG_DFL, SIG_IGN or a handler. Async-signal-safe.
void set_signal_action(int signal_number, void (*action)(int));

// Writes all bytes, waiting for a reader if necessary. Returns 0, or -1 with errno set if some
// could not be written.
int write_all(int descriptor, const char *bytes, std::size_t length);

// Writes the bytes if that cannot block, otherwise nothing, as for a full pipe that nobody reads or
// a stopped terminal. Async-signal-safe.
// Requires: length is at most PIPE_BUF, for which a writable pipe has space.
void write_if_possible(int descriptor, const char *bytes, std::size_t length);

// Waits until a standard descriptor is writable. Can be interrupted by a signal.
void wait_for_reader(int descriptor);

// Closes standard output. `error` is the error of the writes before, or 0. Returns 0, or -1 after
// reporting the first failure.
int close_output(int error);

// The utility's message handler (see set_message_handler). Writes the line of format_message to
// standard error with one write that waits for a reader; the default handler's stream would drop
// it.
void show_message(MessageLevel level, const char *text);

// Writes the utility's own text to standard error.
void show_usage_text(const std::string &text);

// Writes it to standard output and closes that. Returns 0, or -1 after reporting the failure.
int print_usage_text(const std::string &text);

// Reports a failure at level Error or a note at level Note, as one line. The text may contain any
// bytes; it is made safe first (see safe_line).
void show_failure(const char *text);
void show_note(const char *text);

} // namespace quintral

#endif
