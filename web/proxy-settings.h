// Which HTTP proxy the web client goes through: the one named on the command line, otherwise the
// system's, otherwise none. Settled once at start-up; the record then travels with every request:
//
//     ProxySettings proxy = {};
//     if (settle_proxy(&proxy, typed_proxy, typed_user, typed_password) != 0)
//         return usage_error();
//     web_request(..., proxy.host, proxy.port, proxy.user[0] ? proxy.user : nullptr,
//                 proxy.password[0] ? proxy.password : nullptr);
//
// An empty host means a direct connection, whatever the port. Credentials travel unencrypted, and
// only when both user and password are not empty.
#ifndef QUINTRAL_WEB_PROXY_SETTINGS_H
#define QUINTRAL_WEB_PROXY_SETTINGS_H

#include <cstddef>
#include <cstdint>

namespace quintral {

// Zero-filled at start. Each text holds up to 255 bytes and a terminator.
struct ProxySettings {
    char host[256];     // name or address, empty for a direct connection
    char user[256];     // empty for none
    char password[256]; // empty for none
    std::int32_t port;  // as given; a connection uses its low 16 bits
};

// Asks the system for its HTTP proxy: the network settings on macOS, the environment variable
// http_proxy on Linux (see read_proxy_text; the upper-case HTTP_PROXY is never read, since a web
// server sets it from a request's own "Proxy" header).
// Returns true with host and *port filled, or false with the host empty and *port 0.
// Throws std::bad_alloc when memory runs out.
// Requires: host has room for size bytes, size is at least 1, port is not null.
bool system_http_proxy(char *host, std::size_t size, std::int32_t *port);

// Reads a proxy written "[http://][user:password@]host:port[/]" as environments hold it. The scheme
// may be in either case; credentials are passed over: a proxy of the system is used without.
// Returns true with host and *port filled. Returns false with the host empty and *port 0 for a null
// text, an unknown scheme, no host, a host that does not fit or holds a slash or white space, and a
// port that is missing, not all digits or outside 1 to 65535.
// Throws std::bad_alloc when memory runs out.
// Requires: as for system_http_proxy.
bool read_proxy_text(const char *text, char *host, std::size_t size, std::int32_t *port);

// Settles the proxy from the arguments of -proxy ("host:port"), -proxy-user and -proxy-pass as
// typed, each null when not given.
//
// With a proxy argument: host is what stands before its first ':' (the first 255 bytes), port what
// atoi reads behind it, user and password the arguments (255 bytes of each) or empty. ":1" gives an
// empty host and so forces a direct connection. Without one: host and port are the system's, user
// and password are empty, since a system proxy is always used without credentials.
// Returns 0, or -1 for a usage error (no ':' in the argument, or a port that reads as 0), with
// whatever had been settled by then in the record.
// Throws std::bad_alloc when memory runs out.
// Requires: settings is not null and holds none of the three texts.
int settle_proxy(ProxySettings *settings, const char *proxy, const char *user,
                 const char *password);

} // namespace quintral

#endif
