// What the system's proxy setting is called, and the settings that the utility does not use;
// proxy-environment-linux.cpp and proxy-environment-macos.cpp define the same functions.
#ifndef QUINTRAL_TOOL_PROXY_ENVIRONMENT_H
#define QUINTRAL_TOOL_PROXY_ENVIRONMENT_H

#include <string>
#include <vector>

namespace quintral {

// A setting that has no effect, and why: "HTTP_PROXY", "only http_proxy in lower case is read".
struct IgnoredSetting {
    std::string setting;
    std::string why;
};

// The name of the system's proxy setting: "http_proxy" on Linux, "the network settings" on macOS.
const char *system_proxy_name();

// True if the system proxy is not to be used for the host: on Linux according to the environment
// variable no_proxy (lower case only), on macOS never.
bool system_proxy_is_bypassed(const char *host);

// Appends the settings of the system that look like a proxy setting but cannot be used.
void find_ignored_system_settings(std::vector<IgnoredSetting> *ignored);

} // namespace quintral

#endif
