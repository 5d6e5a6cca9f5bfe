#include "web/proxy-settings.h"

#include <cstring>
#include <string>
#include <string_view>

#include "support/ascii.h"
#include "support/c-utils.h"

namespace quintral {

namespace {

// Skips a leading "http://". Returns null for any other scheme.
const char *skip_scheme(const char *text)
{
    const char *rest = ascii_skip_prefix(text, "http://");
    if (rest == nullptr && std::string_view(text).find("://") == std::string_view::npos)
        rest = text;
    return rest;
}

} // namespace

bool read_proxy_text(const char *text, char *host, std::size_t size, std::int32_t *port)
{
    host[0] = '\0';
    *port = 0;
    const char *place = text != nullptr ? skip_scheme(text) : nullptr;
    if (place == nullptr)
        return false;
    std::string rest = place;
    const std::size_t credentials_end = rest.rfind('@');
    if (credentials_end != std::string::npos)
        rest.erase(0, credentials_end + 1);
    if (!rest.empty() && rest.back() == '/')
        rest.pop_back();

    const std::size_t colon = rest.find(':');
    if (colon == std::string::npos || colon == 0 || colon >= size)
        return false;
    if (rest.find_first_of("/ \t\r\n") < colon)
        return false;
    const std::int32_t found = ascii_read_digits(rest.c_str() + colon + 1, 65535);
    if (found <= 0)
        return false;
    copy_string_bounded(host, rest.substr(0, colon).c_str(), size);
    *port = found;
    return true;
}

int settle_proxy(ProxySettings *settings, const char *proxy, const char *user, const char *password)
{
    copy_string_bounded(settings->user, nullptr, sizeof settings->user);
    copy_string_bounded(settings->password, nullptr, sizeof settings->password);
    if (proxy == nullptr) {
        system_http_proxy(settings->host, sizeof settings->host, &settings->port);
        return 0;
    }
    const char *colon = std::strchr(proxy, ':');
    if (colon == nullptr)
        return -1;
    const std::string host(proxy, colon);
    copy_string_bounded(settings->host, host.c_str(), sizeof settings->host);
    settings->port = ascii_to_int(colon + 1);
    if (settings->port == 0)
        return -1;
    copy_string_bounded(settings->user, user, sizeof settings->user);
    copy_string_bounded(settings->password, password, sizeof settings->password);
    return 0;
}

} // namespace quintral
