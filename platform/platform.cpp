#include "platform/platform.h"

#include <cstdio>
#include <cstring>

namespace quintral {

char *platform_format_system_version(std::uint32_t system_version, char *buffer,
                                     std::size_t capacity)
{
    std::snprintf(buffer, capacity, "%u%u.%u.%u", (system_version >> 12) & 15U,
                  (system_version >> 8) & 15U, (system_version >> 4) & 15U, system_version & 15U);
    buffer[capacity - 1] = '\0';
    return buffer;
}

int platform_open_document(const char *text)
{
    const std::int32_t status =
        text[0] == '/' ? platform_open_path(text) : platform_open_url(text, std::strlen(text));
    return status == 0 ? 0 : -1;
}

} // namespace quintral
