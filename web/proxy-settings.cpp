#include "web/proxy-settings.h"

#include <cstring>
#include <string>

#include "support/ascii.h"
#include "support/c-utils.h"

namespace quintral {

namespace {

// A port written in digits alone; 0 for anything that is none.
std::int32_t read_port(const std::string &text)
{
    for (char c : text) {
        if (!ascii_is_digit(c))
            return 0;
    }
    const std::int32_t port = ascii_to_int(text.c_str());
    return port <= 65535 ? port : 0;
}

// Takes a leading "http://" off. False for any other scheme.
bool drop_scheme(std::string *text)
{
    static const char name[] = "http";
    const std::size_t mark = text->find("://");
    if (mark == std::string::npos)
        return true;
    if (mark != sizeof name - 1)
        return false;
    for (std::size_t i = 0; i < mark; ++i) {
        if (ascii_to_lower((*text)[i]) != name[i])
            return false;
    }
    text->erase(0, mark + 3);
    return true;
}

} // namespace

bool read_proxy_text(const char *text, char *host, std::size_t size, std::int32_t *port)
{
    host[0] = '\0';
    *port = 0;
    std::string rest = text != nullptr ? text : "";
    if (!drop_scheme(&rest))
        return false;
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
    const std::int32_t found = read_port(rest.substr(colon + 1));
    if (found == 0)
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
