#include "tool/open-address.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "platform/platform.h"
#include "support/ascii.h"
#include "tool/answer.h"

namespace quintral {

namespace {

bool is_visible_ascii(const char *text)
{
    for (; *text != '\0'; ++text) {
        if (*text <= ' ' || *text > '~')
            return false;
    }
    return true;
}

// The length of the host in "host[:port]"; the brackets of an IPv6 address count.
std::size_t host_length(const std::string &place)
{
    if (place[0] == '[')
        return place.find(']') + 1; // 0 if there is none
    return std::min(place.find_first_of(":[]"), place.size());
}

// True if an authority "[user@]host[:port]" has a host (RFC 3986, section 3.2).
bool names_a_host(const std::string &authority)
{
    const std::string place = authority.substr(authority.rfind('@') + 1); // all of it without '@'
    const std::size_t length = host_length(place);
    const std::size_t shortest = place[0] == '[' ? 4 : 1; // [::]
    const std::string port = place.substr(length);
    return length >= shortest && (port.empty() || port[0] == ':') &&
           port.find_first_not_of("0123456789", 1) == std::string::npos;
}

} // namespace

bool is_web_address(const char *address)
{
    const char *authority = ascii_skip_prefix(address, "http://");
    if (authority == nullptr)
        authority = ascii_skip_prefix(address, "https://");
    return authority != nullptr && is_visible_ascii(address) &&
           names_a_host(std::string(authority, ascii_length_before(authority, "/?#\\")));
}

int open_web_address(const char *address, std::string *error)
{
    // One byte less than the longest value, since a carriage return may have been removed at the
    // end.
    if (std::strlen(address) >= longest_value - 1) {
        *error = "Not opening the web address: it may be truncated";
        return -1;
    }
    if (!is_web_address(address)) {
        *error = "Not opening the web address: not an http or https URL";
        return -1;
    }
    const std::int32_t status = platform_open_url(address, std::strlen(address));
    if (status == 0)
        return 0;
    *error = "The desktop did not open the web address: code " + std::to_string(status);
    return -1;
}

} // namespace quintral
