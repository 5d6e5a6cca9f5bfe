// Checked memory and strings: allocation that throws std::bad_alloc instead of returning null, text
// formatted into fresh or growing blocks, and the bounded copy into a caller's buffer.
//
// Every block handed out here comes from the system allocator and is released with checked_free.
// Nothing is reported through the diagnostics: exhausted memory is the one failure, and it is
// thrown. Nothing is locked either; calls on separate data are safe beside each other.
//
//     StringBuffer lines;
//     string_buffer_init(&lines);
//     for (int i = 0; i < count; ++i)
//         string_buffer_printf(&lines, "%d: %s\n", i, names[i]);
//     print_text(string_buffer_text(&lines), "names");
//     string_buffer_free(&lines);
#ifndef QUINTRAL_SUPPORT_C_UTILS_MEMORY_H
#define QUINTRAL_SUPPORT_C_UTILS_MEMORY_H

#include "../format-attribute.h"

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace quintral {

// A growable text that its user owns. All zero is the empty buffer. Once anything has been
// appended, even an empty text, a terminator always follows the text.
struct StringBuffer {
    char *data;            // the block that holds the text, null before the first append
    std::int32_t capacity; // size of the block in bytes, terminator included
    std::int32_t length;   // bytes of text, terminator not counted
};

// Allocation

// Allocates size bytes, their content undefined. Returns the block, which the caller owns; null
// for a size of 0, where nothing is allocated. Throws std::bad_alloc when memory runs out.
void *checked_malloc(std::size_t size);

// Resizes a block to new_size bytes, or allocates one where block is null. Returns the block,
// perhaps moved, with its content kept up to the smaller size; the old pointer is dead. old_size is
// accepted for the caller's own record and not used.
//
// Throws std::bad_alloc when memory runs out; the old block then stays valid and the caller's. A
// new_size of 0 does what the system's realloc does: where that returns null, std::bad_alloc is
// thrown, and the C library has then usually (glibc always) released the block, so that it must
// not be used or freed again. checked_free is the way to give a block up.
// Requires: block is null or came from this header or the system allocator.
void *checked_realloc(void *block, std::size_t old_size, std::size_t new_size);

// Releases a block; does nothing for null.
// Requires: block is null or came from this header or the system allocator.
void checked_free(void *block);

// Copies a text into a new block of strlen(text) + extra + 1 bytes, so that extra more bytes can be
// appended in place. Returns the copy, terminated, which the caller owns; the bytes behind its
// terminator are undefined. Throws std::bad_alloc when memory runs out or the size cannot be
// expressed.
// Requires: text is terminated.
char *copy_string_with_room(const char *text, std::size_t extra);

// Formatting

// Formats as vprintf does into a new block of exactly the size that text and terminator need.
// Returns the text, which the caller owns; an empty text where the C library cannot format (a wide
// character that the locale lacks, more than INT_MAX bytes). Throws std::bad_alloc when memory runs
// out. The argument list is used up; the caller ends it.
char *alloc_vprintf(const char *format, std::va_list arguments) QUINTRAL_PRINTF(1, 0);

// Formats as printf does; all else as alloc_vprintf.
char *alloc_printf(const char *format, ...) QUINTRAL_PRINTF(1, 2);

// Growable text

// Makes the buffer empty. Allocates nothing and releases nothing.
void string_buffer_init(StringBuffer *buffer);

// Appends a formatted text and its terminator. Returns the new length in bytes.
//
// One append is meant for at most 4094 characters: of a longer text the first 4094 are appended.
// Where the C library cannot format, 4095 bytes are appended: what it had written, then NULs. The
// block grows only when fewer than the text's length and 2 bytes are free, and then to the new
// length and 128 bytes, so that a run of short appends resizes it rarely.
//
// Throws std::bad_alloc when memory runs out or the size would pass the 32-bit range; the buffer
// then holds what it held before. Arguments may point into the buffer's own text.
// Requires: the buffer was initialised, or is all zero.
std::int32_t string_buffer_printf(StringBuffer *buffer, const char *format, ...)
    QUINTRAL_PRINTF(2, 3);

// Returns the text, which stays the buffer's own and is good until the next append or free; null
// for a buffer that never received any.
char *string_buffer_text(const StringBuffer *buffer);

// Releases the text and makes the buffer empty, ready for use again.
void string_buffer_free(StringBuffer *buffer);

// Copies

// Copies a text into a buffer of size bytes, terminator included. Returns the destination.
//
// At most size - 1 bytes are copied and the result is always terminated; behind a shorter text the
// rest of the buffer is filled with NULs, as strncpy does. A null source makes the destination
// empty and leaves the bytes behind that one NUL alone. With a size of 0, or a null
// destination, nothing is touched.
// Requires: destination holds size bytes; the two do not overlap.
char *copy_string_bounded(char *destination, const char *source, std::size_t size);

} // namespace quintral

#endif
