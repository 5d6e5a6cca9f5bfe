// Opening the web address of an answer in the desktop, for -open.
#ifndef QUINTRAL_TOOL_OPEN_ADDRESS_H
#define QUINTRAL_TOOL_OPEN_ADDRESS_H

#include <string>

namespace quintral {

// True for an address that -open may pass to the desktop: it begins with "http://" or "https://" in
// any letter case, has a host, and contains no spaces, control characters or non-ASCII bytes. Every
// other scheme is refused, so a reply can never open a local file or launch a program.
bool is_web_address(const char *address);

// Opens the address. Returns 0, or -1 with the reason in *error. An address that is not a web
// address, or that is as long as a value can be and so may be truncated, is refused before
// anything is started. Takes about a second at most.
int open_web_address(const char *address, std::string *error);

} // namespace quintral

#endif
