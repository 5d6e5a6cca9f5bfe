#include "tool/open-address.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "platform/platform.h"
#include "support/ascii.h"

namespace quintral {

namespace {

// What stands behind a prefix in lower case, or null where the text does not begin with it.
const char *behind(const char *text, const char *prefix)
{
    for (; *prefix != '\0'; ++text, ++prefix) {
        if (ascii_to_lower(*text) != *prefix)
            return nullptr;
    }
    return text;
}

bool is_visible_ascii(const char *text)
{
    for (; *text != '\0'; ++text) {
        if (*text <= ' ' || *text > '~')
            return false;
    }
    return true;
}

// Whether an authority "[user@]host[:port]" of some length has a host (RFC 3986, section 3.2).
bool names_a_host(const char *authority, std::size_t length)
{
    const char *end = authority + length;
    for (const char *c = authority; c != end; ++c) {
        if (*c == '@')
            authority = c + 1;
    }
    return authority != end && *authority != ':';
}

} // namespace

bool is_web_address(const char *address)
{
    const char *authority = behind(address, "http://");
    if (authority == nullptr)
        authority = behind(address, "https://");
    return authority != nullptr && is_visible_ascii(address) &&
           names_a_host(authority, std::strcspn(authority, "/?#\\"));
}

const char *open_web_address(const char *address)
{
    if (!is_web_address(address))
        return "The web address is not opened: it is no http or https address";
    const std::int32_t status = platform_open_url(address, std::strlen(address));
    if (status == 0)
        return nullptr;
    static char text[96];
    std::snprintf(text, sizeof text, "The desktop did not open the web address: code %d",
                  static_cast<int>(status));
    return text;
}

} // namespace quintral
