// Checked memory and strings: allocation that throws std::bad_alloc instead of returning null,
// printf-style formatting into newly allocated or growing blocks, and a bounded copy into the
// caller's buffer.
//
// Every block returned here comes from the system allocator and is released with checked_free. The
// only failure is running out of memory, which is thrown and not reported through the diagnostics.
// Nothing is locked; concurrent calls on separate data are safe.
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

#pragma GCC visibility push(default) // exported from a shared library
namespace quintral {

// A growable string, owned by its user. A zeroed record is an empty buffer. After the first append,
// even of an empty string, the text is always followed by a terminator.
struct StringBuffer {
    char *data;            // the block that holds the text; null before the first append
    std::int32_t capacity; // size of the block in bytes, terminator included
    std::int32_t length;   // length of the text in bytes, terminator not included
};

// Allocation

// Allocates size bytes with undefined content. Returns the block, which the caller owns; or null
// for a size of 0, in which case nothing is allocated. Throws std::bad_alloc when memory runs out.
void *checked_malloc(std::size_t size);

// Resizes a block to new_size bytes, or allocates one if block is null. Returns the block, possibly
// moved, with its content kept up to the smaller size; the old pointer is invalid. old_size is
// accepted as documentation and not used.
//
// Throws std::bad_alloc when memory runs out; the old block then stays valid and owned by the
// caller. A new_size of 0 does what the system's realloc does: if that returns null, std::bad_alloc
// is thrown, and the C library has then usually (glibc: always) released the block, so it must not
// be used or freed again; use checked_free to release a block.
// Requires: block is null or came from this header or the system allocator.
void *checked_realloc(void *block, std::size_t old_size, std::size_t new_size);

// Releases a block; does nothing for null.
// Requires: block is null or came from this header or the system allocator.
void checked_free(void *block);

// Copies a string into a new block of strlen(text) + extra + 1 bytes, so that extra more bytes can
// be appended in place. Returns the terminated copy, which the caller owns; the bytes after its
// terminator are undefined. Throws std::bad_alloc when memory runs out or the size overflows.
// Requires: text is terminated.
char *copy_string_with_room(const char *text, std::size_t extra);

// Formatting

// Formats as vprintf does, into a new block of exactly the size needed for the text and its
// terminator. Returns the string, which the caller owns; it is empty if the C library cannot format
// it (a wide character that the locale lacks, more than INT_MAX bytes). Throws std::bad_alloc when
// memory runs out. The argument list is consumed; the caller still calls va_end.
char *alloc_vprintf(const char *format, std::va_list arguments) QUINTRAL_PRINTF(1, 0);

// Formats as printf does; otherwise the same as alloc_vprintf.
char *alloc_printf(const char *format, ...) QUINTRAL_PRINTF(1, 2);

// Growable strings

// Makes the buffer empty. Neither allocates nor releases memory.
void string_buffer_init(StringBuffer *buffer);

// Appends formatted text and its terminator. Returns the new length in bytes.
//
// One call appends at most 4094 characters; longer text is cut. If the C library cannot format the
// text, 4095 bytes are appended: what it had written, then NULs. The block grows only if fewer than
// the text's length plus 2 bytes are free, and then to the new length plus 128 bytes, so that a
// series of short appends rarely resizes it.
//
// Throws std::bad_alloc when memory runs out or the size would exceed the 32-bit range; the buffer
// is then unchanged. Arguments may point into the buffer's own text.
// Requires: the buffer has been initialised or zeroed.
std::int32_t string_buffer_printf(StringBuffer *buffer, const char *format, ...)
    QUINTRAL_PRINTF(2, 3);

// Returns the text, which the buffer owns and which is valid until the next append or free; null if
// nothing has been appended.
char *string_buffer_text(const StringBuffer *buffer);

// Releases the text and makes the buffer empty; it can be used again.
void string_buffer_free(StringBuffer *buffer);

// Copies

// Copies a string into a buffer of size bytes, terminator included. Returns the destination.
//
// At most size - 1 bytes are copied, and the result is always terminated; after a shorter string
// the rest of the buffer is filled with NULs, as strncpy does. A null source makes the destination
// empty, and the bytes after that one NUL are not changed. With a size of 0 or a null destination,
// nothing is written.
// Requires: destination is at least size bytes long; the two do not overlap.
char *copy_string_bounded(char *destination, const char *source, std::size_t size);

} // namespace quintral
#pragma GCC visibility pop

#endif
