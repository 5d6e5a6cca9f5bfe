// Opening the web address of an answer in the desktop, for -open.
#ifndef QUINTRAL_TOOL_OPEN_ADDRESS_H
#define QUINTRAL_TOOL_OPEN_ADDRESS_H

namespace quintral {

// True for an address that -open may hand to the desktop: it begins with "http://" or "https://" in
// any letter case, names a host, and holds no blank, control or non-ASCII byte. Every other scheme
// is refused, since a reply must never open a file or start a program.
bool is_web_address(const char *address);

// Opens the address. Returns null, or what went wrong as a text that stays valid until the next
// call; an address that is no web address, or that fills its room in an answer and so may be cut,
// is refused before anything is started. Takes a second or so at most.
const char *open_web_address(const char *address);

} // namespace quintral

#endif
