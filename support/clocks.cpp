#include "support/clocks.h"

#include <cerrno>
#include <limits>

#include "support/time-source.h"

namespace quintral {

double clock_last_stamp = 0;

namespace {

// On failure the zeroed record (1970) is returned.
timeval system_time_of_day()
{
    timeval now = {};
    gettimeofday(&now, nullptr);
    return now;
}

std::time_t system_time()
{
    return system_time_of_day().tv_sec;
}

int system_sleep(const timespec *request)
{
    return nanosleep(request, nullptr);
}

constexpr std::uint32_t seconds_epoch = 852076800;       // 1997-01-01 00:00:00 UTC
constexpr std::uint32_t milliseconds_epoch = 1050000000; // 2003-04-10 18:40:00 UTC

double with_microseconds(const timeval &now)
{
    return static_cast<double>(now.tv_sec) - seconds_epoch +
           static_cast<double>(now.tv_usec) * 0.000001;
}

} // namespace

TimeSource time_source = {system_time, system_time_of_day, system_sleep};

double clock_seconds()
{
    return with_microseconds(time_source.time_of_day());
}

std::int32_t clock_stamp()
{
    const timeval now = time_source.time_of_day();
    clock_last_stamp = with_microseconds(now);
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(now.tv_sec) - seconds_epoch);
}

std::uint32_t clock_milliseconds()
{
    const timeval now = time_source.time_of_day();
    return (static_cast<std::uint32_t>(now.tv_sec) - milliseconds_epoch) * 1000 +
           static_cast<std::uint32_t>(now.tv_usec / 1000);
}

int sleep_seconds(float seconds)
{
    // Converted to double before 0.5 is added: in single precision the sum would be rounded as
    // well.
    const double milliseconds = static_cast<double>(1000 * seconds) + 0.5;
    constexpr double too_many = 9223372036854775808.0; // 2^63
    // The conversion to an integer truncates: what lies between -1 and 0 becomes 0. NaN fails the
    // comparison.
    if (!(milliseconds > -1 && milliseconds < too_many)) {
        errno = EINVAL;
        return -1;
    }
    const std::int64_t m = static_cast<std::int64_t>(milliseconds);
    if (m / 1000 > std::numeric_limits<std::time_t>::max()) {
        errno = EINVAL;
        return -1;
    }
    timespec request = {};
    request.tv_sec = static_cast<std::time_t>(m / 1000);
    request.tv_nsec = static_cast<long>(m % 1000 * 1000000);
    return time_source.sleep(&request);
}

std::time_t wait_seconds(std::uint32_t seconds)
{
    const std::int64_t end = std::int64_t{time_source.time()} + seconds;
    std::time_t now = time_source.time();
    while (now < end)
        now = time_source.time();
    return now;
}

} // namespace quintral
