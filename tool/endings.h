// The ways in which the utility ends without coming back from its exchange: an interrupt, the time
// limit, an exception that nobody catches. Each has its line on standard error and, with -json, its
// object on standard output, both composed at start, so that a signal handler only writes them.
//
//     prepare_endings(json, max_time);
//     watch_for_endings(max_time);
//     ... the exchange ...
//     stop_watching();
//     if (interrupt_received() != 0) ...
//     begin_output();
//     ... writes the object ...
//     end_by_signal(interrupt_received());
//
// The first interrupt and the end of the time limit set web_cancel_requested, and the exchange
// comes back by itself. Where it does not within a second (a look-up, a connect, data that keeps
// flowing), and at a second interrupt, the process ends at once.
#ifndef QUINTRAL_TOOL_ENDINGS_H
#define QUINTRAL_TOOL_ENDINGS_H

namespace quintral {

// Installs the terminate handler: an exception that nobody catches ends the process with status 1
// after one readable line.
void install_terminate_handler();

// Composes the lines, and the objects when json is true, of all endings.
void prepare_endings(bool json, int max_time);

// Starts the time limit and takes over SIGINT and SIGTERM, each unless it was ignored at start.
// Requires: prepare_endings has run with the same max_time.
void watch_for_endings(int max_time);

// Says that the exchange has come back: from here on an interrupt ends the process at once, and so
// does the time limit, which goes on for the output.
void stop_watching();

// From here to release_endings neither the time limit nor a first interrupt ends the process, so
// that an answer that has come is printed whatever happens while the desktop is asked (a second or
// so).
// What came meanwhile counts behind it: the time limit goes on for the output, with a second at
// least, and the caller ends by interrupt_received. A second interrupt ends the process at once.
// Requires: stop_watching has been called.
void hold_endings();
void release_endings();

// The signal that interrupted the exchange, or came while endings were held, or 0.
int interrupt_received();

// True when the time limit passed during the exchange.
bool time_limit_passed();

// The text that says so.
const char *time_limit_text();

// Says that the run's own object is about to be written: no ending writes one from here on.
void begin_output();

// Ends the process by a signal's default action, as a shell expects of a program that was
// interrupted.
[[noreturn]] void end_by_signal(int signal_number);

} // namespace quintral

#endif
