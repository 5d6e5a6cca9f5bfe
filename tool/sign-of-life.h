// What the utility shows on a terminal while it waits for the web site.
#ifndef QUINTRAL_TOOL_SIGN_OF_LIFE_H
#define QUINTRAL_TOOL_SIGN_OF_LIFE_H

namespace quintral {

// Shows on standard error, on one line that it writes over, that the utility is alive. An idle hook
// (WebIdleHook); the user data is not used. To be installed only where standard error is a
// terminal.
void show_sign_of_life(void *);

// Takes the trace of show_sign_of_life off the terminal; does nothing where there is none.
// Async-signal-safe.
void clear_sign_of_life();

} // namespace quintral

#endif
