// The modes that send nothing: -show-request, -explain-proxy and -parse. Each returns the exit
// status.
#ifndef QUINTRAL_TOOL_INSPECT_H
#define QUINTRAL_TOOL_INSPECT_H

#include "tool/run.h"

namespace quintral {

// Prints the request on standard output, its credentials masked, and where each value and the proxy
// came from on standard error.
int show_request(const Run &run);

// Reads the file of -parse and prints what a run with that reply would have printed. The version is
// that of -product-version, otherwise the record's, otherwise the utility's own.
int parse_record(Run *run);

} // namespace quintral

#endif
