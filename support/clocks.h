// Clocks that count from the suite's own epochs, so that their values stay small, and two waits.
//
// Epochs: clock_seconds and clock_stamp count from 1997-01-01 00:00:00 UTC, clock_milliseconds from
// 2003-04-10 18:40:00 UTC. All follow the system's time of day and jump when that is set. What the
// system cannot tell is taken for 1970-01-01. Every function may be called from any thread but
// clock_stamp, whose global is unguarded.
//
//     const std::uint32_t start = clock_milliseconds();
//     draw();
//     const std::uint32_t taken = clock_milliseconds() - start; // right also when the count wraps
#ifndef QUINTRAL_SUPPORT_CLOCKS_H
#define QUINTRAL_SUPPORT_CLOCKS_H

#include <cstdint>
#include <ctime>

namespace quintral {

// What clock_stamp last read, with its microseconds; 0 before its first call. In seconds.
extern double clock_last_stamp;

// Seconds since 1997, with microseconds.
double clock_seconds();

// Whole seconds since 1997, and the same with microseconds in clock_last_stamp. The result wraps
// modulo 2^32 (from 2065 on); clock_last_stamp does not.
std::int32_t clock_stamp();

// Milliseconds since 2003 modulo 2^32, which wrap every 49.7 days: compare by unsigned subtraction.
std::uint32_t clock_milliseconds();

// Sleeps for a time in seconds, rounded to the nearest millisecond. A sleep that a signal cuts short
// is not resumed.
// Returns 0 after the whole time, at once where that is shorter than half a millisecond, and for a
// negative one above -1.5 milliseconds; or -1 with errno set: EINTR for a signal, EINVAL without
// sleeping for a time that is no number, infinite, negative or longer than the system can express. The
// product 1000 * seconds is taken in single precision: above some 16777 seconds the milliseconds
// are those that a float can hold.
int sleep_seconds(float seconds);

// Waits until the time is at least the time of the call plus so many whole seconds, by asking for
// it again and again: deliberately a busy wait, which never sleeps, for hosts that must not lose
// the processor. Returns the last time read, in seconds since 1970.
std::time_t wait_seconds(std::uint32_t seconds);

} // namespace quintral

#endif
