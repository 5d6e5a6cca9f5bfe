// Diagnostics: reporting messages at a level, showing text to the user, indented printf-style
// output, and unrecoverable errors: assertions and the abort exception. All Quintral programs use
// these functions, so that their messages look alike, reach the user in the host's own way, and can
// be found in the output of a test run.
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
// Output goes through two handlers, one for messages and one for text. The defaults write to
// standard error. A test harness installs the capture pair, which writes the same content to
// standard output between marker lines. A plug-in installs its own.
//
// All state is global: handlers, counter, output stream and indent. Nothing is locked, and calls
// from several threads at once are not supported. Nothing here allocates memory except when
// throwing: text is formatted in fixed buffers on the stack, the largest being two of 64 KiB in
// output_printf. Output errors are ignored. errno is not preserved; format it into the message if
// you need it.
#ifndef QUINTRAL_SUPPORT_ERROR_H
#define QUINTRAL_SUPPORT_ERROR_H

#include "format-attribute.h"

#include <cstdint>
#include <cstdio>

#pragma GCC visibility push(default) // exported from a shared library
namespace quintral {

// Levels

// The severity of a message: a plain integer, so that handlers can compare levels. Every function
// treats a value outside 0 to 10 as Warning.
using MessageLevel = int;

// BEL is byte 7, the terminal bell. Every level from InfoBell up rings it.
enum : MessageLevel {
    Log,       // "Log: text", for the message log only: handlers never see it
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

// Shows one message. The text is the terminated string that was reported, including any trailing
// newlines; it is valid only until the handler returns.
using MessageHandler = void (*)(MessageLevel level, const char *text);

// Shows one piece of text. The tag names its kind ("status"), for handlers that distinguish kinds.
// Both strings are terminated and belong to the caller of print_text.
using PrintHandler = void (*)(const char *text, const char *tag);

// Messages

// Builds the line for one message, as the table above shows it, without a trailing newline;
// intended for custom handlers.
//
// Trailing newlines of the text are dropped, and at most out_size - 20 characters of the rest are
// used. Returns the length of the line in out, which is terminated. If out_size is below 20, the
// line has no text and is itself cut to out_size - 1 characters; if it is 0 or less, nothing is
// written and the result is 0.
// Requires: text is terminated; out is at least out_size bytes long; the two do not overlap.
int format_message(MessageLevel level, const char *text, char *out, int out_size);

// Reports a message, formatted as by printf. It is passed to the message log and, at any level but
// Log, to the message handler, which gets level 8 (Warning) for a level outside 0 to 10. Then the
// message is counted, at level Log too.
//
// Only the first 1023 characters of the formatted text are used. The text is empty if the C library
// cannot format it (a wide character that the locale lacks). Pass untrusted text with "%s". With
// the default handler, a FatalError does not return.
void report_message(MessageLevel level, const char *format, ...) QUINTRAL_PRINTF(2, 3);

// Writes the message's line, with its text cut to 1003 characters, and a newline to standard error
// with one fwrite and flushes it. At level FatalError, and at no other, exits the process with
// status 1. (1003 is one less than format_message would keep in the same 1024 bytes; existing
// captured output depends on it.)
void default_message_handler(MessageLevel level, const char *text);

// Writes the same line to standard output between "QUINTRALTEST" and the line "ENDQUINTRALTEST",
// and flushes it. Returns at every level, FatalError included, so that a test run continues.
void test_message_handler(MessageLevel level, const char *text);

// Installs a message handler; null installs default_message_handler. Returns the previous handler,
// never null, so the caller can restore it.
MessageHandler set_message_handler(MessageHandler handler);

// Text

// Shows text of any length to the user: passes it to the message log, then to the print handler
// with its tag. Does nothing for an empty text.
// Requires: text and tag are terminated.
void print_text(const char *text, const char *tag);

// Writes the text unchanged to standard error. The tag is not used.
void default_print_handler(const char *text, const char *tag);

// Writes "QUINTRALTEST", the tag, ": ", the text, a newline and the line "ENDQUINTRALTEST" to
// standard output and flushes it.
void test_print_handler(const char *text, const char *tag);

// Installs a print handler; null installs default_print_handler. Returns the previous handler,
// never null.
PrintHandler set_print_handler(PrintHandler handler);

// Count and log

// The number of calls of report_message so far, including those at level Log. Wraps to negative
// numbers after the highest.
std::int32_t message_count();

// Composes the log line for a text and passes it to the log handler, if there is one. The line is
// the time as ctime formats it (with all digits of a year from 10000 on), ": ", the text without
// its trailing carriage returns and newlines, cut to 4056 characters, and a newline. Returns the
// length of the line without that newline.
//
// Every message and printed text is logged like this first. Without a log handler, the line is not
// composed and the time zone is not read; the result is the same. If the time cannot be broken
// down, its part of the line is empty.
// Requires: text is terminated.
int log_message(const char *text);

// Receives each line that log_message composes, with its newline. The line is valid only until the
// handler returns.
using LogHandler = void (*)(const char *line);

// Installs a log handler; null, as at start, for none. Returns the previous one.
LogHandler set_log_handler(LogHandler handler);

// Indented output

// Writes text, formatted as by printf, to the output stream and flushes the stream once. Returns
// the result of the flush, 0 or EOF. A result of 0 does not guarantee that everything was written:
// an unbuffered stream, or one whose buffer the text fills, can fail before the flush. Check
// std::ferror as well.
//
// With an indent of n, n periods are written first, and again after every newline that is followed
// by another character: at indent 2, "a\nb\n" is written as "..a\n..b\n". Only the first 65534 - n
// characters of the formatted text are used, or those before a NUL; if that leaves none, or if the
// C library cannot format the text, only the periods are written. Output that fits into 64 KiB is
// written with one fwrite, longer output with as few as that size allows.
int output_printf(const char *format, ...) QUINTRAL_PRINTF(1, 2);

// Sets the output stream; null sets standard error. The caller still owns the stream and must keep
// it open until another one is set.
void set_output_stream(std::FILE *stream);

// The output stream: null until one has been set or output_printf has been called, which then uses
// and remembers standard error.
std::FILE *output_stream();

// Sets the indent of output_printf in characters, initially 0; a negative value counts as 0.
void set_output_indent(int n);

// Assertions and aborts

// Thrown only by the two functions below, for unrecoverable errors. A plug-in catches it in each
// function that its host calls, reports code, file and line, and returns control to the host;
// elsewhere nothing catches it and the process ends.
//
// Host programs and plug-ins are built separately and read the fields in this order.
class QuintralAbortException {
public:
    const char *file;      // the source file, a string literal that is never freed
    std::int32_t line;     // the line in that file
    std::int32_t code;     // 1: a mandatory file could not be opened; 5: an assertion failed
    std::int32_t reserved; // 0

    QuintralAbortException(const char *file, std::int32_t line, std::int32_t code);
    ~QuintralAbortException();
};

// Throws a QuintralAbortException by value, with the reserved word 0.
// Requires: file outlives every handler of the exception, as a literal does.
[[noreturn]] void throw_abort(int code, const char *file, int line);

// Reports a failed assertion: logs the location and the condition, asks the user in one message at
// level Error to save and restart, and throws a QuintralAbortException with code 5, file
// "support/error" and line 419. This location is deliberately the same for every assertion;
// existing programs use it to recognise assertion failures. The user never sees the condition; the
// log gets the first 4056 characters of location and condition.
// Requires: expression and file are terminated.
[[noreturn]] void report_assertion_failure(const char *expression, const char *file, int line);

// Calls report_assertion_failure if the condition is false. The condition is evaluated once, in
// every build type. An expression of type void.
#define QUINTRAL_ASSERT(condition)                                                                 \
    ((condition) ? static_cast<void>(0)                                                            \
                 : ::quintral::report_assertion_failure(#condition, __FILE__, __LINE__))

} // namespace quintral
#pragma GCC visibility pop

#endif
