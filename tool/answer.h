// The service's answer: cleaned, compared, and composed for standard output.
#ifndef QUINTRAL_TOOL_ANSWER_H
#define QUINTRAL_TOOL_ANSWER_H

#include <cstddef>
#include <string>

namespace quintral {

// Capacity for each value of a reply, terminator included.
constexpr unsigned answer_capacity = 65536;

// The four values as the service gave them. An empty string counts as not given.
struct UpdateAnswer {
    char version[answer_capacity];
    char address[answer_capacity];
    char button[answer_capacity];
    char message[answer_capacity];
};

// Whether the service has a newer version.
enum class Newer { Unknown, No, Yes };

// The outcome of a run, for its JSON object.
struct RunOutcome {
    const char *status; // "answered", "failed", "timeout" or "cancelled"
    int exit_status;
    Newer newer;
    const UpdateAnswer *answer; // null unless answered
    const char *error;          // null unless something failed; an answer may have one too
};

// Shows a note for each value that fills its capacity, since it may have been truncated. Call it
// before clean_answer.
void note_truncated_values(const UpdateAnswer &answer);

// Removes the carriage returns left by services that use CR LF line endings: one at the end of
// version, address and button, and in the message one before each line feed and one at the end.
// Also removes spaces and tabs around the version.
void clean_answer(UpdateAnswer *answer);

// Compares the answer's version with the product's. Unknown if the answer has no version or it is
// not a version number.
// Requires: the answer is clean, is_version_number(product_version).
Newer compare_answer(const UpdateAnswer &answer, const char *product_version);

// Prints the answer by print_text: the lines "Version: ", "URL: " and "Button: " for the values
// given, with the tags version, url and button, then the message with the tag message. A line feed
// is added to a message that does not end with one, unless it is empty. Everything is made safe
// (see safe_text).
void print_answer(const UpdateAnswer &answer);

// Returns text, or null if it is empty.
inline const char *null_if_empty(const char *text)
{
    return *text != '\0' ? text : nullptr;
}

// Returns the outcome as one JSON object on one line, with its line feed.
std::string outcome_json(const RunOutcome &outcome);

} // namespace quintral

#endif
