// Where dates, clocks and the message log get the time from and how the waits sleep: one record, so
// that a test freezes the time by putting functions of its own in place. Not for programs of the
// suite.
#ifndef QUINTRAL_SUPPORT_TIME_SOURCE_H
#define QUINTRAL_SUPPORT_TIME_SOURCE_H

#include <ctime>

#include <sys/time.h>

namespace quintral {

struct TimeSource {
    std::time_t (*time)();
    timeval (*time_of_day)();
    int (*sleep)(const timespec *request);
};

// Starts as the system's time, gettimeofday and nanosleep. time and time_of_day are not the same
// clock: the first may lag behind the second for a few milliseconds.
extern TimeSource time_source;

} // namespace quintral

#endif
