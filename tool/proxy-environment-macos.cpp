#include "tool/proxy-environment.h"

namespace quintral {

const char *system_proxy_name()
{
    return "the network settings";
}

// macOS has its own exception list; the utility does not consult it.
bool system_proxy_is_bypassed(const char *)
{
    return false;
}

void find_ignored_system_settings(std::vector<IgnoredSetting> *)
{
}

} // namespace quintral
