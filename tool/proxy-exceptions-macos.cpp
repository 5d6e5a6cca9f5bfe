#include "tool/proxy-exceptions.h"

namespace quintral {

// macOS has its own exception list; the utility does not consult it.
bool system_proxy_is_bypassed(const char *)
{
    return false;
}

} // namespace quintral
