// Reading the command line by the table of options, and reporting what is wrong with it.
#ifndef QUINTRAL_TOOL_COMMAND_LINE_H
#define QUINTRAL_TOOL_COMMAND_LINE_H

#include <string>

#include "tool/options.h"

namespace quintral {

// A usage error. Either the utility has a message, or the parser has one for a word.
struct UsageError {
    std::string message; // empty if the parser has the message
    std::string program; // as typed, for the parser's message
    std::string word;    // the option as typed, without '=' and the value after it
};

// Reads the command line into *options. An option that takes an argument must not have an empty
// value after its '=', and one that takes none must not have a '='.
//
// Secret arguments are overwritten in the argument vector before this returns, so that they do not
// stay visible in the process list. After an error in the command line everything but the names of
// options is overwritten: with a mistyped name, any value may be a password. A copy of the first
// 255 bytes of the proxy password (all that ProxySettings holds) stays in the record.
//
// Returns 0, or -1 for a usage error, which is not yet reported, in *error. Its message never shows
// an operand or the value of an option.
int read_options(int argument_count, char **arguments, ToolOptions *options, UsageError *error);

// Reports a usage error on standard error as one line. May be called more than once.
void show_usage_error(const UsageError &error);

} // namespace quintral

#endif
