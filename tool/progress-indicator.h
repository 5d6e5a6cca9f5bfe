// The progress indicator that the utility shows on a terminal while it waits for the service.
#ifndef QUINTRAL_TOOL_PROGRESS_INDICATOR_H
#define QUINTRAL_TOOL_PROGRESS_INDICATOR_H

namespace quintral {

// Shows or advances the progress indicator on standard error, on one line that it overwrites. An
// idle hook (WebIdleHook); the user data is not used. Install it only if standard error is a
// terminal.
void show_progress(void *);

// Erases the progress indicator if it is shown. Async-signal-safe.
void clear_progress();

} // namespace quintral

#endif
