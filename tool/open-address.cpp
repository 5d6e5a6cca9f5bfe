#include "tool/open-address.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "platform/platform.h"
#include "support/ascii.h"
#include "tool/answer.h"

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

// The length of the host that "host[:port]" begins with, an address in brackets with them.
std::size_t host_length(const std::string &place)
{
    if (place[0] == '[')
        return place.find(']') + 1; // 0 for none
    return std::min(place.find_first_of(":[]"), place.size());
}

// Whether an authority "[user@]host[:port]" has a host (RFC 3986, section 3.2).
bool names_a_host(const std::string &authority)
{
    const std::string place = authority.substr(authority.rfind('@') + 1); // all of it for none
    const std::size_t length = host_length(place);
    const std::size_t shortest = place[0] == '[' ? 4 : 1; // [::]
    const std::string port = place.substr(length);
    return length >= shortest && (port.empty() || port[0] == ':') &&
           port.find_first_not_of("0123456789", 1) == std::string::npos;
}

} // namespace

bool is_web_address(const char *address)
{
    const char *authority = behind(address, "http://");
    if (authority == nullptr)
        authority = behind(address, "https://");
    return authority != nullptr && is_visible_ascii(address) &&
           names_a_host(std::string(authority, std::strcspn(authority, "/?#\\")));
}

const char *open_web_address(const char *address)
{
    // One byte less than the room has, since a carriage return may have been taken off the end.
    if (std::strlen(address) >= answer_capacity - 2)
        return "The web address is not opened: it may have been cut";
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
