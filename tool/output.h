// The output of a run: collected as a whole, then written at once.
#ifndef QUINTRAL_TOOL_OUTPUT_H
#define QUINTRAL_TOOL_OUTPUT_H

#include <string>

namespace quintral {

// Installs the utility's print handler (see set_print_handler), which appends to *output. The whole
// answer is collected before any of it is written, so an allocation failure never leaves half an
// answer on standard output. The tag (version, url, button or message) is for handlers that treat
// the parts differently; this one ignores it.
// Requires: *output outlives the last call of print_text.
void collect_printed_text(std::string *output);

// Writes the output to standard output and closes it, so that an error that only closing reports is
// not lost. Does nothing if the output is empty. The output states an exit status: as soon as its
// last byte has been written, the process ends with that status, whatever signal arrives (see
// set_final_status in tool/termination.h). Returns 0, or -1 after reporting the failure.
int finish_output(const std::string &output, int exit_status);

} // namespace quintral

#endif
