// Which proxy a run uses, where that setting came from, and which other settings have no effect.
#ifndef QUINTRAL_TOOL_PROXY_CHOICE_H
#define QUINTRAL_TOOL_PROXY_CHOICE_H

#include <string>
#include <vector>

#include "tool/answer.h"
#include "tool/options.h"
#include "tool/proxy-environment.h"
#include "web/proxy-settings.h"

namespace quintral {

// Which setting decided.
enum class ProxySource {
    None,      // there is no proxy setting
    Option,    // -proxy names a proxy
    Direct,    // -proxy with an empty host forces a direct connection
    System,    // the system's setting
    Exception, // the system has a proxy, but the service's host is among the exceptions
};

// The proxy, and what is known about the settings.
struct ProxyChoice {
    ProxySettings settings;
    ProxySource source;
    std::string host;                    // of the service
    std::vector<IgnoredSetting> ignored; // mistakes, for which the user gets a note
    std::vector<IgnoredSetting> lost;    // usable, but another setting comes first
};

// Chooses the proxy for a service ("host" or "host:port"). Returns 0, or -1 for a usage error, with
// its message in *error.
int choose_proxy(const ToolOptions &options, const std::string &service, ProxyChoice *choice,
                 std::string *error);

// Returns whom a run asks: the service, and the proxy with the setting that names it.
RunTarget run_target(const std::string &service, const ProxyChoice &choice);

// Returns the proxy and where its setting came from: "cache:3128 (from -proxy)" or "none (no
// setting names one)".
std::string describe_proxy(const ProxyChoice &choice);

// Returns a note for each ignored setting.
std::vector<std::string> ignored_setting_notes(const ProxyChoice &choice);

// Returns what -explain-proxy prints: the proxy, the credentials, and a line for each setting that
// has no effect. The password is not shown.
std::string explain_proxy(const ProxyChoice &choice);

} // namespace quintral

#endif
