// The formatting that the library speeds up, in its simple form: measure, then format, and append
// an area that is always zeroed. Tests and the benchmarks compare the library with it.
#ifndef QUINTRAL_TESTS_SUPPORT_REFERENCE_MEMORY_H
#define QUINTRAL_TESTS_SUPPORT_REFERENCE_MEMORY_H

#include "support/c-utils/memory.h"

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace quintral::reference {

QUINTRAL_PRINTF(1, 2) inline char *alloc_printf(const char *format, ...)
{
    std::va_list arguments, again;
    va_start(arguments, format);
    va_copy(again, arguments);
    const int measured = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    const std::size_t size = measured < 0 ? 1 : static_cast<std::size_t>(measured) + 1;
    char *text = static_cast<char *>(checked_malloc(size));
    if (std::vsnprintf(text, size, format, again) < 0)
        text[0] = '\0';
    va_end(again);
    return text;
}

QUINTRAL_PRINTF(2, 3)
inline std::int32_t string_buffer_printf(StringBuffer *buffer, const char *format, ...)
{
    constexpr std::int32_t longest = 4094;
    char area[longest + 2] = {};
    std::va_list arguments;
    va_start(arguments, format);
    std::int32_t added = std::vsnprintf(area, longest + 1, format, arguments);
    va_end(arguments);
    added = added < 0 ? longest + 1 : std::min(added, longest);
    if (added > buffer->capacity - buffer->length - 2) {
        buffer->capacity = buffer->length + added + 128;
        buffer->data = static_cast<char *>(
            checked_realloc(buffer->data, 0, static_cast<std::size_t>(buffer->capacity)));
    }
    std::memcpy(buffer->data + buffer->length, area, static_cast<std::size_t>(added) + 1);
    buffer->length += added;
    return buffer->length;
}

} // namespace quintral::reference

#endif
