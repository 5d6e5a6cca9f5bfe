// The service's answer, cleaned, compared and composed for standard output.
#ifndef QUINTRAL_TOOL_ANSWER_H
#define QUINTRAL_TOOL_ANSWER_H

#include <cstddef>
#include <string>

namespace quintral {

// Room for each value of a reply, terminator included.
constexpr unsigned answer_capacity = 65536;

// The four values as the service gave them; an empty text counts as not given.
struct UpdateAnswer {
    char version[answer_capacity];
    char address[answer_capacity];
    char button[answer_capacity];
    char message[answer_capacity];
};

// Whether the service has a newer version.
enum class Newer { Unknown, No, Yes };

// What a run came to, for its JSON object.
struct RunOutcome {
    const char *status; // "answered", "failed", "timeout" or "cancelled"
    int exit_status;
    Newer newer;
    const UpdateAnswer *answer; // null unless answered
    const char *error;          // null unless something failed; may stand beside an answer
};

// Shows a remark for each value that fills its room, since it may have been cut. To be called
// before clean_answer.
void remark_cut_values(const UpdateAnswer &answer);

// Takes off what only the line endings of a service that writes CR LF left behind: one carriage
// return at the end of version, address and button, blanks and tabs around the version, and one
// carriage return before each line feed and at the end of the message.
void clean_answer(UpdateAnswer *answer);

// Tells whether the answer's version is newer than the product's. Unknown when the answer has none
// or one that is no version number.
// Requires: the answer is clean, is_version_number(product_version).
Newer compare_answer(const UpdateAnswer &answer, const char *product_version);

// Shows the answer by print_text: the lines "Version: ", "URL: " and "Button: " for what was given,
// with the tags version, url and button, then the message, ended by a line feed unless it is empty,
// with the tag message. Everything is made safe (see safe_text).
void print_answer(const UpdateAnswer &answer);

// The outcome as one JSON object on one line, with its line feed.
std::string outcome_json(const RunOutcome &outcome);

} // namespace quintral

#endif
