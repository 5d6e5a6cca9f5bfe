// Notes that explain an outcome beyond its error or its answer.
#ifndef QUINTRAL_TOOL_NOTES_H
#define QUINTRAL_TOOL_NOTES_H

#include <string>

#include "tool/answer.h"
#include "web/update-check.h"

namespace quintral {

// Shows notes after the error of a failed exchange: through which proxy it went, and what the reply
// says about the cause, such as a redirect or a request for credentials.
void show_failure_notes(const WebUpdateReply &reply, const RunTarget &target);

// Shows a note that says why newer is unknown. Requires: newer is WebNewerUnknown.
void show_unknown_note(const WebUpdateReply &reply);

// Returns the note for a user at a terminal: whether the reply's version is newer than own_version.
// Requires: newer is known.
std::string newer_note(const WebUpdateReply &reply, const char *own_version);

} // namespace quintral

#endif
