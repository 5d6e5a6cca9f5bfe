#include "support/c-utils/memory.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

namespace quintral {

namespace {

// Size of the local buffer of one append, and the size given to vsnprintf: the byte between the two
// is the terminator if the formatting failed.
constexpr std::size_t append_area_size = 4096;
constexpr std::size_t append_bound = append_area_size - 1;
constexpr std::int32_t longest_append = append_bound - 1;
constexpr std::int32_t failed_append = append_bound;

// Size of the local area for a new string. Only a longer one is formatted twice. No message is this
// long.
constexpr std::size_t format_area_size = 4096;

// Free bytes after the text of a buffer that has just grown.
constexpr std::int32_t growth_reserve = 128;

void *block_or_throw(void *block)
{
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

char *text_or_throw(char *text)
{
    return static_cast<char *>(block_or_throw(text));
}

// Formats a text once if it fits into a local area, and copies it into a block of its size. Returns
// null when memory runs out, so that the caller can call va_end before it throws. The content of an
// area is undefined if vsnprintf fails; callers still get a terminated string.
QUINTRAL_PRINTF(1, 0) char *format_to_block(const char *format, std::va_list arguments)
{
    char area[format_area_size];
    std::va_list again;
    va_copy(again, arguments);
    const int measured = std::vsnprintf(area, sizeof area, format, arguments);
    const std::size_t length = measured < 0 ? 0 : static_cast<std::size_t>(measured);
    char *text = static_cast<char *>(std::malloc(length + 1));
    if (text != nullptr && length < sizeof area) {
        std::memcpy(text, area, length);
        text[length] = '\0';
    } else if (text != nullptr && std::vsnprintf(text, length + 1, format, again) < 0) {
        text[0] = '\0';
    }
    va_end(again);
    return text;
}

// Formats the text of one append. Returns its length; the terminator follows it. If the formatting
// fails, the whole area is appended: the text is then formatted a second time into zeros, so that
// no stack content is appended.
QUINTRAL_PRINTF(2, 0)
std::int32_t format_append(char (&area)[append_area_size], const char *format,
                           std::va_list arguments)
{
    std::va_list again;
    va_copy(again, arguments);
    std::int32_t length =
        std::min(std::vsnprintf(area, append_bound, format, arguments), longest_append);
    if (length < 0) {
        std::memset(area, '\0', sizeof area);
        std::vsnprintf(area, append_bound, format, again);
        length = failed_append;
    }
    va_end(again);
    return length;
}

// Grows the buffer if needed for `added` more bytes. The sizes are computed in 64 bits, so that a
// buffer at the end of the 32-bit range is rejected and does not wrap to a small block.
void ensure_capacity(StringBuffer *buffer, std::int32_t added)
{
    const std::int64_t available = std::int64_t{buffer->capacity} - buffer->length - 2;
    if (added <= available)
        return;
    const std::int64_t capacity = std::int64_t{added} + buffer->length + growth_reserve;
    if (capacity > std::numeric_limits<std::int32_t>::max())
        throw std::bad_alloc();
    buffer->data = static_cast<char *>(checked_realloc(buffer->data,
                                                       static_cast<std::size_t>(buffer->capacity),
                                                       static_cast<std::size_t>(capacity)));
    buffer->capacity = static_cast<std::int32_t>(capacity);
}

} // namespace

void *checked_malloc(std::size_t size)
{
    if (size == 0)
        return nullptr;
    return block_or_throw(std::malloc(size));
}

void *checked_realloc(void *block, std::size_t /*old_size*/, std::size_t new_size)
{
    return block_or_throw(std::realloc(block, new_size));
}

void checked_free(void *block)
{
    std::free(block);
}

char *copy_string_with_room(const char *text, std::size_t extra)
{
    const std::size_t used = std::strlen(text) + 1;
    if (extra > std::numeric_limits<std::size_t>::max() - used)
        throw std::bad_alloc();
    void *block = checked_malloc(used + extra);
    return static_cast<char *>(std::memcpy(block, text, used));
}

char *alloc_vprintf(const char *format, std::va_list arguments)
{
    return text_or_throw(format_to_block(format, arguments));
}

char *alloc_printf(const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    char *text = format_to_block(format, arguments);
    va_end(arguments);
    return text_or_throw(text);
}

void string_buffer_init(StringBuffer *buffer)
{
    *buffer = StringBuffer{nullptr, 0, 0};
}

std::int32_t string_buffer_printf(StringBuffer *buffer, const char *format, ...)
{
    // Not formatted into the block itself: an argument may point to its text.
    char area[append_area_size];
    std::va_list arguments;
    va_start(arguments, format);
    const std::int32_t added = format_append(area, format, arguments);
    va_end(arguments);

    ensure_capacity(buffer, added);
    std::memcpy(buffer->data + buffer->length, area, static_cast<std::size_t>(added) + 1);
    buffer->length += added;
    return buffer->length;
}

char *string_buffer_text(const StringBuffer *buffer)
{
    return buffer->data;
}

void string_buffer_free(StringBuffer *buffer)
{
    checked_free(buffer->data);
    string_buffer_init(buffer);
}

char *copy_string_bounded(char *destination, const char *source, std::size_t size)
{
    if (size == 0 || destination == nullptr)
        return destination;
    if (source == nullptr) {
        destination[0] = '\0';
        return destination;
    }
    const void *end = std::memchr(source, '\0', size - 1);
    const std::size_t copied =
        end == nullptr ? size - 1
                       : static_cast<std::size_t>(static_cast<const char *>(end) - source);
    std::memcpy(destination, source, copied);
    std::memset(destination + copied, '\0', size - copied);
    return destination;
}

} // namespace quintral
