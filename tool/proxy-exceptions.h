// Lists of hosts that are reached without a proxy.
#ifndef QUINTRAL_TOOL_PROXY_EXCEPTIONS_H
#define QUINTRAL_TOOL_PROXY_EXCEPTIONS_H

namespace quintral {

// True if a list in the form of no_proxy matches the host. "*" alone matches every host. Otherwise
// the list holds names separated by commas or spaces; each matches that host and every host in that
// domain, in any letter case. A leading dot is ignored.
bool list_names_host(const char *list, const char *host);

} // namespace quintral

#endif
