// Diagnostics: one way to report a message at a level, one way to hand a piece of text to the user,
// indented printf-style output, and the ends of what can't go on: assertions and the abort
// exception. Every program of the suite uses these, so that its messages look alike, reach the user
// by the host's own means and can be picked out of a test run.
//
//     static void show_in_host(MessageLevel level, const char *text)
//     {
//         char line[512];
//         format_message(level, text, line, sizeof line);
//         host_show_alert(line);
//     }
//
//     const MessageHandler previous = set_message_handler(show_in_host);
//     report_message(Warning, "%s: %d of %d frames lost", name, lost, total);
//     set_message_handler(previous);
//
// What is reported goes through two handlers, one for messages and one for text. The defaults write
// to standard error; a test harness installs the capture pair, which writes the same content to
// standard output between marker lines; a plug-in installs its own.
//
// All state is the process's: handlers, counter, output stream and indent. Nothing is locked, and
// calls from several threads at once are not supported. Nothing here allocates of its own, save to
// throw: texts are formatted in fixed buffers on the stack, of which output_printf needs the most
// (two of 64 KiB). Output errors are ignored, and errno is not preserved: who needs it puts it into
// the message.
#ifndef QUINTRAL_SUPPORT_ERROR_H
#define QUINTRAL_SUPPORT_ERROR_H

#include "format-attribute.h"

#include <cstdint>
#include <cstdio>

namespace quintral {

// Levels

// How much a message matters. A plain integer, so that a handler compares levels; a value outside 0
// to 10 is shown as Warning wherever one is given.
using MessageLevel = int;

// BEL is byte 7. From InfoBell up every message rings it.
enum : MessageLevel {
    Log,       // "Log: text", for the message log alone: no handler sees it
    Plain,     // "text"
    Info,      // "Info: text"
    Note,      // "Note: text"
    InfoBell,  // "Info: text" BEL
    NoteBell,  // "Note: text" BEL
    PlainBell, // BEL "text"
    Alert,     // "Alert: text" BEL
    Warning,   // "Warning: text" BEL
    Error,     // "Error: text" BEL
    FatalError // "Fatal Error: text" BEL; the default handler then ends the process
};

// Shows one message. The text is as it was reported, terminated, with the line feeds at its end; it
// is gone when the handler returns.
using MessageHandler = void (*)(MessageLevel level, const char *text);

// Shows one piece of text; the tag says what the text is ("status"), for a handler that tells texts
// apart. Both are terminated and belong to the caller of print_text.
using PrintHandler = void (*)(const char *text, const char *tag);

// Messages

// Builds the line of one message, as the table above shows it, without a line feed behind it: what
// a handler of one's own starts from.
//
// The line feeds at the end of the text are dropped, and of what is left at most out_size - 20
// characters are used. Returns the length of the line in out, which is terminated. With an out_size
// below 20 the line has no text and is itself cut to out_size - 1 characters; with 0 or less
// nothing is written and the result is 0.
// Requires: text is terminated; out holds out_size bytes; the two do not overlap.
int format_message(MessageLevel level, const char *text, char *out, int out_size);

// Reports a message, formatted as printf does: to the message log and, above level Log, to the
// message handler, which gets level 8 (Warning) for a level outside 0 to 10. Then counts it, Log
// too.
//
// Of the formatted text the first 1023 characters are used; it is empty where the C library cannot
// format (a wide character that the locale lacks). A text that is not the program's own goes in
// through "%s". With the default handler a FatalError does not return.
void report_message(MessageLevel level, const char *format, ...) QUINTRAL_PRINTF(2, 3);

// Writes the message's line, its text cut to 1003 characters, and a line feed to standard error
// and flushes it. At level FatalError, and at no other, ends the process by exit with status 1.
// (1003 is one less than format_message would keep in the same 1024 bytes; captured runs rely on
// it.)
void default_message_handler(MessageLevel level, const char *text);

// Writes the same line to standard output between "QUINTRALTEST" and the line "ENDQUINTRALTEST",
// and flushes it. Returns at every level, FatalError included, so that a test run goes on.
void test_message_handler(MessageLevel level, const char *text);

// Installs a message handler; null installs default_message_handler. Returns the handler that was
// installed, never null, so that the caller can put it back: nothing else does.
MessageHandler set_message_handler(MessageHandler handler);

// Text

// Hands a text of any length to the user: to the message log, then to the print handler with its
// tag. Does nothing for an empty text.
// Requires: text and tag are terminated.
void print_text(const char *text, const char *tag);

// Writes the text as it is to standard error. The tag is not used.
void default_print_handler(const char *text, const char *tag);

// Writes "QUINTRALTEST", the tag, ": ", the text, a line feed and the line "ENDQUINTRALTEST" to
// standard output and flushes it.
void test_print_handler(const char *text, const char *tag);

// Installs a print handler; null installs default_print_handler. Returns the handler that was
// installed, never null.
PrintHandler set_print_handler(PrintHandler handler);

// Count and log

// The number of calls of report_message so far, those at level Log included. Wraps round to
// negative numbers behind the highest.
std::int32_t message_count();

// Composes the log line of a text: the time as ctime shows it, ": ", the text without the carriage
// returns and line feeds at its end and cut to 4056 characters. Returns its length.
//
// The line is written nowhere, and no log file is kept: this is where a message log attaches, which
// every message and every printed text passes first. Where the system can't express the time its
// part of the line is empty.
// Requires: text is terminated.
int log_message(const char *text);

// Indented output

// Writes a text, formatted as printf does, to the output stream and flushes the stream once.
// Returns the result of the flush, 0 or EOF. That 0 does not say that all was written: a stream
// that is unbuffered, or whose buffer the text fills, fails before the flush and tells by
// std::ferror.
//
// With an indent of n, n full stops come first, and again behind every line feed that another
// character follows: at indent 2 "a\nb\n" is written as "..a\n..b\n". Of the formatted text the
// first 65534 - n characters are used, or those before a NUL; where that leaves none, or where the
// C library cannot format, the full stops stand alone. An output that fits 64 KiB is one fwrite, a
// longer one as few as that allows.
int output_printf(const char *format, ...) QUINTRAL_PRINTF(1, 2);

// Sets the output stream; null sets standard error. The stream stays the caller's, who keeps it
// open until another is set.
void set_output_stream(std::FILE *stream);

// The output stream: null until one has been set or output_printf has run, which then uses and
// remembers standard error.
std::FILE *output_stream();

// Sets the indent of output_printf in characters, 0 at start; a negative one counts as 0.
void set_output_indent(int n);

// Assertions and aborts

// Thrown for a fault that the library can't go on from, and by the throwing functions below alone.
// A program inside a host application catches it at each function that the host calls, reports
// code, file and line, and gives control back to its host; elsewhere nothing catches it and the
// process ends.
//
// Host programs and plug-ins are built apart from each other and read the fields in this order.
class QuintralAbortException {
public:
    const char *file;      // the source file, a literal that nobody releases
    std::int32_t line;     // the line in it
    std::int32_t code;     // 1: a file that had to open did not; 5: an assertion failed
    std::int32_t reserved; // 0

    QuintralAbortException(const char *file, std::int32_t line, std::int32_t code);
    ~QuintralAbortException();
};

// Throws a QuintralAbortException by value, with the reserved word 0.
// Requires: file outlives every handler of the exception, as a literal does.
[[noreturn]] void throw_abort(int code, const char *file, int line);

// Says that an assertion failed: logs the location and the condition, tells the user in one message
// at level Error to save and restart, and throws a QuintralAbortException with code 5, file
// "support/error" and line 419. That is the place of this report on purpose, whatever assertion
// failed: programs of the suite recognise a failed assertion by it. The user never sees the
// condition; of location and condition the log gets the first 4056 characters.
// Requires: expression and file are terminated.
[[noreturn]] void report_assertion_failure(const char *expression, const char *file, int line);

// Ends in report_assertion_failure when the condition is false; it is evaluated once, in every
// build type. An expression of type void.
#define QUINTRAL_ASSERT(condition)                                                                 \
    ((condition) ? static_cast<void>(0)                                                            \
                 : ::quintral::report_assertion_failure(#condition, __FILE__, __LINE__))

} // namespace quintral

#endif
