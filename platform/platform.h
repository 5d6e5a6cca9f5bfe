// Queries of the operating system and the desktop: plain texts as answers, no platform object
// escapes.
#ifndef QUINTRAL_PLATFORM_PLATFORM_H
#define QUINTRAL_PLATFORM_PLATFORM_H

#include <cstddef>
#include <cstdint>

namespace quintral {

// Writes the text of a system version number of Mac OS X, in which each of the low four half bytes
// is a decimal digit: the two highest make the major number, the others follow behind points, so
// 0x1049 gives "10.4.9". What does not fit is cut; the buffer's last byte is always a terminator.
// Returns the buffer.
// Requires: buffer has room for capacity bytes, capacity is at least 1.
char *platform_format_system_version(std::uint32_t system_version, char *buffer,
                                     std::size_t capacity);

} // namespace quintral

#endif
