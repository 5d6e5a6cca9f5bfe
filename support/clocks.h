// Clocks with their own, recent epochs, which keep the values small; and two waits.
//
// Epochs: clock_seconds and clock_stamp count from 1997-01-01 00:00:00 UTC, clock_milliseconds from
// 2003-04-10 18:40:00 UTC. All follow the system's time of day and jump when it is set. If the time
// is unavailable, 1970-01-01 is used. Every function may be called from any thread except
// clock_stamp, whose global is unguarded.
//
//     const std::uint32_t start = clock_milliseconds();
//     draw();
//     const std::uint32_t taken = clock_milliseconds() - start; // correct even if the count wraps
#ifndef QUINTRAL_SUPPORT_CLOCKS_H
#define QUINTRAL_SUPPORT_CLOCKS_H

#include <cstdint>
#include <ctime>

#pragma GCC visibility push(default) // exported from a shared library
namespace quintral {

// The time of the last clock_stamp call, in seconds with microseconds; 0 before the first call.
extern double clock_last_stamp;

// Returns the seconds since 1997, with microseconds.
double clock_seconds();

// Returns the whole seconds since 1997 and stores the same time with microseconds in
// clock_last_stamp. The result wraps modulo 2^32 (from 2065 on); clock_last_stamp does not.
std::int32_t clock_stamp();

// Returns the milliseconds since 2003 modulo 2^32. They wrap every 49.7 days: compare two readings
// by unsigned subtraction.
std::uint32_t clock_milliseconds();

// Sleeps for a number of seconds, rounded to the nearest millisecond. A sleep interrupted by a
// signal is not resumed.
//
// Returns 0 after the whole time; a time below half a millisecond, including a negative one above
// -1.5 milliseconds, returns 0 at once. Returns -1 with errno set if it fails: EINTR after a
// signal; EINVAL, without sleeping, for a time that is NaN, infinite, -1.5 milliseconds or less, or
// longer than the system can represent. The product 1000 * seconds is computed in single precision,
// so above about 16777 seconds the milliseconds are rounded to what a float can hold.
int sleep_seconds(float seconds);

// Busy-waits until the time is at least the time of the call plus the given number of whole
// seconds. It deliberately never sleeps, for hosts that must not lose the processor. Returns the
// last time read, in seconds since 1970.
std::time_t wait_seconds(std::uint32_t seconds);

} // namespace quintral
#pragma GCC visibility pop

#endif
