// Cleaning up the argument vector before options are parsed.
#ifndef QUINTRAL_TOOL_START_UP_H
#define QUINTRAL_TOOL_START_UP_H

namespace quintral {

// Drops a first argument that begins with "-psn_": Finder adds one ("-psn_0_12345") to a program
// that is started from the desktop. The program name moves into its slot, *arguments then starts at
// that slot, and *argument_count is one less. Any other vector is unchanged.
// Requires: *arguments holds *argument_count strings.
void drop_launch_argument(int *argument_count, char ***arguments);

} // namespace quintral

#endif
