#include <cstdlib>

#include "web/proxy-settings.h"

namespace quintral {

bool system_http_proxy(char *host, std::size_t size, std::int32_t *port)
{
    return read_proxy_text(std::getenv("http_proxy"), host, size, port);
}

} // namespace quintral
