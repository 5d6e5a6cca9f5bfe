// Opening something in the desktop on Linux. Private to the platform library.
#ifndef QUINTRAL_PLATFORM_XDG_OPEN_LINUX_H
#define QUINTRAL_PLATFORM_XDG_OPEN_LINUX_H

#include <cstdint>

namespace quintral {

// Runs xdg-open with the argument as its only one, and waits for it for at most one second.
//
// Returns its exit status; 0 if it is still running; or -1 if no folder in PATH contains xdg-open,
// if it cannot be started, or if it was killed by a signal. Only absolute folders in PATH are
// searched, so the program is never taken from the current folder.
//
// xdg-open, and what it starts, runs in its own session, with /dev/null as its standard streams, no
// other descriptors, no blocked or ignored signals, and the caller's environment and working
// folder. It is never a child of the caller and leaves no zombie, unless the caller is the process
// that adopts orphans. The caller gets one additional SIGCHLD; its signal handlers and mask are not
// changed, and its handlers may wait for that child. Safe to call from several threads at once.
// Requires: argument is a validated URL or an absolute path, so that it is not taken for an option.
std::int32_t platform_xdg_open(const char *argument);

} // namespace quintral

#endif
