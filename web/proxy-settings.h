// Which HTTP proxy the web client uses: the one named on the command line, otherwise the system's,
// otherwise none. It is chosen once at start-up; the record is then passed to every request:
//
//     ProxySettings proxy = {};
//     if (settle_proxy(&proxy, typed_proxy, typed_user, typed_password) != 0)
//         return usage_error();
//     web_request(..., proxy.host, proxy.port, proxy.user[0] ? proxy.user : nullptr,
//                 proxy.password[0] ? proxy.password : nullptr);
//
// An empty host means a direct connection, whatever the port. Credentials are sent only if neither
// user nor password is empty, and are not encrypted.
#ifndef QUINTRAL_WEB_PROXY_SETTINGS_H
#define QUINTRAL_WEB_PROXY_SETTINGS_H

#include <cstddef>
#include <cstdint>

#pragma GCC visibility push(default) // exported from a shared library
namespace quintral {

// Zero-filled at start. Each string holds up to 255 bytes and a terminator.
struct ProxySettings {
    char host[256];     // name or address, empty for a direct connection
    char user[256];     // empty for none
    char password[256]; // empty for none
    std::int32_t port;  // as given; a connection uses its low 16 bits
};

// Asks the system for its HTTP proxy: the network settings on macOS, the environment variable
// http_proxy on Linux (see read_proxy_text). HTTP_PROXY in upper case is never read: a CGI server
// sets it from a request's "Proxy" header.
// Returns true with host and *port filled, or false with the host empty and *port 0.
// Throws std::bad_alloc when memory runs out.
// Requires: host is size bytes long, size is at least 1, port is not null.
bool system_http_proxy(char *host, std::size_t size, std::int32_t *port);

// Reads a proxy in the form "[http://][user:password@]host:port[/]" that environment variables use.
// The scheme may be in any letter case. Credentials are ignored: the system proxy is used without
// authentication.
// Returns true with host and *port filled. Returns false with the host empty and *port 0 for null,
// an unknown scheme, no host, a host that does not fit or contains a slash or white space, and a
// port that is missing, not all digits or outside 1 to 65535. Throws std::bad_alloc when memory
// runs out.
// Requires: as for system_http_proxy.
bool read_proxy_text(const char *text, char *host, std::size_t size, std::int32_t *port);

// Chooses the proxy from the arguments of -proxy ("host:port"), -proxy-user and -proxy-pass as
// typed, each null if not given.
//
// With a proxy argument, host is the part before its first ':' (the first 255 bytes), port is the
// rest as atoi reads it, user and password are the arguments (255 bytes of each) or empty. ":1"
// gives an empty host and so forces a direct connection. Without a proxy argument, host and port
// are the system's; user and password are empty, since the system proxy is always used without
// credentials.
// Returns 0, or -1 for a usage error (no ':' in the argument, or a port that reads as 0), in which
// case *settings is partially filled in.
// Throws std::bad_alloc when memory runs out.
// Requires: settings is not null and does not contain the three strings.
int settle_proxy(ProxySettings *settings, const char *proxy, const char *user,
                 const char *password);

} // namespace quintral
#pragma GCC visibility pop

#endif
