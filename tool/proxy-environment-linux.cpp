#include <cstdlib>
#include <cstring>
#include <string_view>

#include "support/ascii.h"
#include "tool/proxy-environment.h"
#include "tool/proxy-exceptions.h"
#include "web/proxy-settings.h"

namespace quintral {

namespace {

bool is_set(const char *name)
{
    const char *value = std::getenv(name);
    return value != nullptr && value[0] != '\0';
}

// Why a value of http_proxy is unusable, or null if it is usable.
const char *fault_of(const char *proxy)
{
    char host[256];
    std::int32_t port = 0;
    if (read_proxy_text(proxy, host, sizeof host, &port))
        return nullptr;
    if (std::string_view(proxy).find("://") != std::string_view::npos &&
        ascii_skip_prefix(proxy, "http://") == nullptr)
        return "its scheme is not http";
    return "it is not host:port with a port from 1 to 65535";
}

void find_upper_case(const char *used, const char *upper, std::vector<IgnoredSetting> *ignored)
{
    if (is_set(upper) && std::getenv(used) == nullptr)
        ignored->push_back({upper, std::string("only ") + used + " in lower case is read"});
}

} // namespace

const char *system_proxy_name()
{
    return "http_proxy";
}

bool system_proxy_is_bypassed(const char *host)
{
    const char *list = std::getenv("no_proxy");
    return list != nullptr && list_names_host(list, host);
}

void find_ignored_system_settings(std::vector<IgnoredSetting> *ignored)
{
    const char *proxy = std::getenv("http_proxy");
    const char *fault = proxy != nullptr && proxy[0] != '\0' ? fault_of(proxy) : nullptr;
    if (fault != nullptr)
        ignored->push_back({"http_proxy", fault});
    find_upper_case("http_proxy", "HTTP_PROXY", ignored);
    find_upper_case("no_proxy", "NO_PROXY", ignored);
}

} // namespace quintral
