// The outcome of a run, composed for standard output.
#ifndef QUINTRAL_TOOL_ANSWER_H
#define QUINTRAL_TOOL_ANSWER_H

#include <cstddef>
#include <string>

#include "web/update-check.h"

namespace quintral {

// The longest value that is shown, in bytes.
constexpr std::size_t longest_value = 65535;

// The outcome of a run. Strings are the caller's.
struct RunOutcome {
    const char *status; // "answered", "failed", "timeout" or "cancelled"
    int exit_status;
    const WebUpdateReply *reply; // null unless answered
    const char *error;           // null unless something failed; an answer may have one too
    const char *reason;          // the word for the failure, null without one
    int http_status;             // 0 if none was read
};

// The service and the proxy of a run.
struct RunTarget {
    std::string service;      // host[:port] as asked
    std::string proxy;        // host:port, empty for a direct connection
    std::string proxy_origin; // the setting that names it, as "-proxy"
};

// Truncates each value of a reply to longest_value bytes. With `notes`, shows a note for each value
// that may have been truncated.
void truncate_values(WebUpdateReply *reply, bool notes);

// Prints the answer by print_text: the lines "Version: ", "URL: " and "Button: " for the values
// given, with the tags version, url and button, then the message with the tag message. A line feed
// is added to a message that does not end with one, unless it is empty. Everything is made safe
// (see safe_text).
void print_answer(const WebUpdateReply &reply);

// Returns the outcome as one JSON object on one line, with its line feed.
std::string outcome_json(const RunOutcome &outcome, const RunTarget &target);

} // namespace quintral

#endif
