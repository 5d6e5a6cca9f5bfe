// How the utility terminates when it does not reach the end of main: an interrupt (SIGINT, SIGTERM,
// SIGHUP), the time limit, or an uncaught exception. Each has its line on standard error
// and, with -json, its object on standard output. Both are ready at start, so that a signal handler
// only writes them.
//
//                  first interrupt      second interrupt     time limit           exception
//
//   Starting       default action       default action       not running          report, exit 1
//   Exchange       cancel the exchange  report, end by it    cancel the exchange  report, exit 1
//   AnswerHeld     deferred             report, end by it    deferred             report, exit 1
//   Output         report, end by it    report, end by it    report, exit 3       report, exit 1
//   Finished       end as stated        end as stated        end as stated        report, exit 1
//
// - Report: write the line and the object if they are due. The line of an interrupt or the time
//   limit is not due after show_termination_line. The object is due from prepare_termination with
//   json to begin_output; that of exhausted memory from expect_object.
// - End by it: end by the signal's default action.
// - Cancel the exchange: set web_cancel_requested, so that the exchange returns by itself. If it
//   has not returned a second later (a name lookup, a connect, data that keeps arriving), report
//   and end: by the first interrupt, otherwise with exit 3.
// - Deferred: the answer is printed first. After release_answer, a deferred time limit leaves at
//   least one second for the output; interrupt_received returns a deferred interrupt, by which the
//   caller ends. If the output takes more than that second, report and end.
// - End as stated: the output, which states the exit status, has been written.
//
//     install_terminate_handler();
//     expect_object(argument_count, arguments);
//     prepare_termination(json, target, max_time);
//     begin_exchange(max_time);
//     ... the exchange ...
//     end_exchange();
//     if (interrupt_received() != 0) show_termination_line();
//     hold_answer();
//     ... opens the URL in the desktop ...
//     release_answer();
//     begin_output();
//     ... writes the object, and with its last byte set_final_status(status) ...
//     end_by_signal(interrupt_received());
#ifndef QUINTRAL_TOOL_TERMINATION_H
#define QUINTRAL_TOOL_TERMINATION_H

#include "tool/answer.h"

namespace quintral {

// Installs the terminate handler: an exception that nobody catches ends the process with status 1
// after one readable line.
void install_terminate_handler();

// If a word of the command line is -json, even as another option's value: an object is due from
// here on, before the options have been read, should memory run out so early. It names no service.
void expect_object(int argument_count, char **arguments);

// Composes the lines, and the objects if json is true, of all ways to terminate.
void prepare_termination(bool json, const RunTarget &target, int max_time);

// Starting to Exchange. Starts the time limit and installs the handlers of SIGINT, SIGTERM and
// SIGHUP, each unless the signal was ignored at start.
// Requires: prepare_termination was called with the same max_time.
void begin_exchange(int max_time);

// Exchange to Output: the exchange has returned. The time limit keeps running for the output.
void end_exchange();

// Writes the line of the interrupt or the time limit that cancelled the exchange. Waits for a
// reader; until the line has been written, a second interrupt still writes it.
// Requires: interrupt_received() is not 0, or time_limit_passed() is true.
void show_termination_line();

// Output to AnswerHeld, and back. While an answer is held, it will be printed whatever happens
// during the second or so that the desktop takes to open a URL.
void hold_answer();
void release_answer();

// The caller is about to write its own object: from here on no other is written.
void begin_output();

// Output to Finished: the output has been written, and states this status.
void set_final_status(int exit_status);

// Keeps interrupts and the time limit from being delivered, for a moment that must not be
// interrupted.
void block_termination();
void unblock_termination();

// Returns the signal that cancelled the exchange or arrived while the answer was held, or 0.
int interrupt_received();

// True if the time limit passed during the exchange.
bool time_limit_passed();

// Returns the message for an expired time limit.
const char *time_limit_text();

// Ends the process by a signal's default action, as a shell expects of a program that was
// interrupted.
[[noreturn]] void end_by_signal(int signal_number);

} // namespace quintral

#endif
