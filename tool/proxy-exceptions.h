// Hosts that the utility reaches directly although the system has a proxy.
#ifndef QUINTRAL_TOOL_PROXY_EXCEPTIONS_H
#define QUINTRAL_TOOL_PROXY_EXCEPTIONS_H

namespace quintral {

// True when the system says that the host is to be reached without its proxy: on Linux by the
// environment variable no_proxy (lower case only), on macOS never.
bool system_proxy_is_bypassed(const char *host);

// True when a list as no_proxy holds it names the host: "*" alone names every host; otherwise names
// stand apart by commas or blanks, each for the host itself and for every host in that domain, in
// any letter case, a leading point being ignored.
bool list_names_host(const char *list, const char *host);

} // namespace quintral

#endif
