#include <cstdlib>

#include "tool/proxy-exceptions.h"

namespace quintral {

bool system_proxy_is_bypassed(const char *host)
{
    const char *list = std::getenv("no_proxy");
    return list != nullptr && list_names_host(list, host);
}

} // namespace quintral
