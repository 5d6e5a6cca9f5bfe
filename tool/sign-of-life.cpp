#include "tool/sign-of-life.h"

#include <csignal>

#include <unistd.h>

#include "tool/streams.h"

namespace quintral {

namespace {

volatile std::sig_atomic_t trace_is_shown = 0;

} // namespace

void show_sign_of_life(void *)
{
    static const char marks[] = {'|', '/', '-', '\\'};
    static unsigned next_mark = 0;
    char line[] = "\rWaiting for the web site... |";
    line[sizeof line - 2] = marks[next_mark++ % sizeof marks];
    trace_is_shown = 1;
    write_if_possible(STDERR_FILENO, line, sizeof line - 1);
}

void clear_sign_of_life()
{
    static const char blank[] = "\r                             \r";
    if (trace_is_shown == 0)
        return;
    trace_is_shown = 0;
    write_if_possible(STDERR_FILENO, blank, sizeof blank - 1);
}

} // namespace quintral
