#include "platform/platform.h"

#include <cstdio>

namespace quintral {

char *platform_format_system_version(std::uint32_t system_version, char *buffer,
                                     std::size_t capacity)
{
    std::snprintf(buffer, capacity, "%u%u.%u.%u", (system_version >> 12) & 15U,
                  (system_version >> 8) & 15U, (system_version >> 4) & 15U, system_version & 15U);
    buffer[capacity - 1] = '\0';
    return buffer;
}

} // namespace quintral
