#include <quintral/support/clocks.h>

#include <cstdio>

using namespace quintral;

int main()
{
    const std::uint32_t start = clock_milliseconds();
    if (sleep_seconds(0.05F) != 0)
        return 1;
    const std::uint32_t taken = clock_milliseconds() - start; // correct even if the count wraps
    std::printf("%s\n", taken >= 45 && taken < 5000 ? "slept" : "the clock was set");
    return 0;
}
