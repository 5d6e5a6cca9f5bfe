// How the desktop is asked on Linux. Private to the platform library.
#ifndef QUINTRAL_PLATFORM_XDG_OPEN_LINUX_H
#define QUINTRAL_PLATFORM_XDG_OPEN_LINUX_H

#include <cstdint>

namespace quintral {

// Has xdg-open open the argument, which it gets as its only one, and waits for at most a second.
//
// Returns the exit status where it ended by then, 0 where it is still at work; -1 where the folders
// of PATH hold no xdg-open, it cannot be started or a signal ended it. Only absolute folders of
// PATH count: the current folder never supplies the program.
//
// xdg-open, and what it starts, has a session of its own, /dev/null for its standard streams, no
// other descriptor, no blocked or ignored signal, and the caller's environment and working folder.
// It is never the caller's child and leaves no zombie, unless the caller is the process that gets
// the system's orphans. The caller gets one more SIGCHLD; its handlers and blocked signals stay as
// they are, and they may do with that child as they like. Safe from several threads at a time.
// Requires: the argument is a checked address or an absolute path, so that it is no option.
std::int32_t platform_xdg_open(const char *argument);

} // namespace quintral

#endif
