#include "tool/progress-indicator.h"

#include <csignal>

#include <unistd.h>

#include "tool/streams.h"

namespace quintral {

namespace {

volatile std::sig_atomic_t is_shown = 0; // global because signal handlers clear the indicator

} // namespace

void show_progress(void *)
{
    static const char marks[] = {'|', '/', '-', '\\'};
    static unsigned next_mark = 0;
    char line[] = "\rWaiting for the web site... |";
    line[sizeof line - 2] = marks[next_mark++ % sizeof marks];
    is_shown = 1;
    write_if_possible(STDERR_FILENO, line, sizeof line - 1);
}

void clear_progress()
{
    static const char spaces[] = "\r                             \r";
    if (is_shown == 0)
        return;
    is_shown = 0;
    write_if_possible(STDERR_FILENO, spaces, sizeof spaces - 1);
}

} // namespace quintral
