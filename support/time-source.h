// The source of the time for dates, clocks and the message log, and of the sleep for the waits: one
// record of functions, which a test replaces to control the time. Private to the library and its
// tests.
#ifndef QUINTRAL_SUPPORT_TIME_SOURCE_H
#define QUINTRAL_SUPPORT_TIME_SOURCE_H

#include <ctime>

#include <sys/time.h>

namespace quintral {

// The calls that ask for the time, and the one that sleeps.
struct TimeSource {
    std::time_t (*time)();
    timeval (*time_of_day)();
    int (*sleep)(const timespec *request);
};

// Initially gettimeofday, for both times, and nanosleep.
extern TimeSource time_source;

} // namespace quintral

#endif
