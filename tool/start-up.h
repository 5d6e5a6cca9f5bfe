// What the utility does with its argument vector before any option is parsed.
#ifndef QUINTRAL_TOOL_START_UP_H
#define QUINTRAL_TOOL_START_UP_H

namespace quintral {

// Drops a first argument that begins "-psn_": the Finder adds one ("-psn_0_12345") to a program
// that is started from the desktop. The program name moves into its slot, *arguments then starts at
// that slot and *argument_count falls by one. Any other vector stays as it is. Requires: *arguments
// holds *argument_count texts.
void drop_launch_argument(int *argument_count, char ***arguments);

} // namespace quintral

#endif
