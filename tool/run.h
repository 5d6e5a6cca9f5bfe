// One run of the utility: the exchange, and printing its outcome.
#ifndef QUINTRAL_TOOL_RUN_H
#define QUINTRAL_TOOL_RUN_H

#include <string>
#include <vector>

#include "tool/answer.h"
#include "tool/options.h"
#include "tool/proxy-choice.h"
#include "tool/query.h"

namespace quintral {

// The exit statuses of the utility.
enum ExitStatus : int {
    AnsweredStatus = 0,
    FailureStatus = 1,
    UsageStatus = 2,
    TimeLimitStatus = 3,
    NewerStatus = 10,  // with -exit-code
    UnknownStatus = 11 // with -exit-code
};

// Everything that is known about a run before its exchange.
struct Run {
    ToolOptions options;
    ToolQuery query;
    ProxyChoice proxy;
    RunTarget target;
};

// Does the exchange and prints its outcome. Returns the exit status, or ends the process by the
// signal that interrupted the run.
int run_exchange(const Run &run);

// Prints the outcome of a run that failed: the error, notes if there is a reply, and the object of
// -json. Returns the exit status.
int print_failure(const Run &run, const RunOutcome &outcome, const WebUpdateReply *reply);

// Prints the failure to read or write a file named on the command line. Returns the exit status.
int print_file_failure(const Run &run, const std::string &error);

// What went wrong on this machine after an answer had been received. The error is empty if nothing
// did.
struct LocalError {
    std::string error;
    const char *reason; // the word for JSON
};

// Shows notes, unless -quiet suppresses them.
void show_notes(const Run &run, const std::vector<std::string> &notes);

// Prints an answer: notes, the error, the values, and for a user at a terminal whether the version
// is newer. Returns the exit status. interrupted_status is the exit status that an interrupt while
// the URL was opened gives the run, or 0.
int print_answered(const Run &run, WebUpdateReply *reply, const LocalError &local,
                   int interrupted_status);

} // namespace quintral

#endif
