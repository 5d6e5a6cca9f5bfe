// The texts of one HTTP/1.0 exchange as functions of bytes: reading a URL, composing the request,
// reading a status line. No sockets and no state; web/transaction.h moves these bytes over the
// network, the tests call them without one.
//
// Character classes and number reading are ASCII's own (support/ascii.h): a host program's locale
// changes nothing on the wire.
#ifndef QUINTRAL_WEB_HTTP_TEXT_H
#define QUINTRAL_WEB_HTTP_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace quintral {

// Where a URL leads, as far as the exchange needs it.
struct WebUrl {
    std::string scheme; // upper case, "HTTP" where the URL names none
    std::string host;   // upper case, may be empty
    std::int32_t port;  // as written; the exchange uses its low 16 bits
};

// One part of a request line by line; all texts belong to the caller.
struct WebRequest {
    const char *method;       // exactly "POST" is a POST, anything else a GET
    const char *path;         // what the request line asks for: the whole URL
    const char *host;         // for the Host line, without a port
    const char *extra_header; // header lines without the last line ending; empty for none
    std::size_t extra_header_length;
    const char *body; // sent for a POST only
    std::size_t body_length;
    const char *user;     // the credentials line goes out when both user
    const char *password; // and password are not null, empty texts included
};

// A status line taken apart.
struct WebStatusLine {
    std::int32_t major_version;
    std::int32_t minor_version;
    std::int32_t status;
    char reason[128]; // terminated, cut to 127 bytes
};

// Splits a URL into scheme, host and port. Every text gives a result; what is wrong with it shows
// when the exchange refuses the scheme or cannot find the host.
//
// The scheme is what stands before the first ':' wherever that is, so "web:81/p" has the scheme
// "WEB"; without any ':' it is "HTTP". Two slashes behind it are skipped, a single one is not:
// "http:/x" has an empty host. The host runs over ASCII letters, digits, '-', '.' and ':'; its part
// behind a ':' is the port (atoi's reading, so 0 where it is no number), 80 where there is none.
// Texts of any length are taken whole. Throws std::bad_alloc.
// Requires: url is terminated, result is not null.
void web_parse_url(const char *url, WebUrl *result);

// Composes the request as the pieces that go out, in their order, one send each: the method, the
// path, the version, five fixed header lines, the extra header, the Host line, the credentials
// line, the empty line and the body; a piece that the request does not have is left out.
//
// The credentials are standard base64 of "user:password" in the origin server's line,
// "Authorization: Basic ", also towards a proxy: the maker's service and the studios' proxies rely
// on it. A GET announces the extra header all the same, though it sends no body.
// Replaces *pieces. Throws std::bad_alloc.
// Requires: method, path and host are terminated; extra_header and body hold their lengths.
void web_compose_request(const WebRequest &request, std::vector<std::string> *pieces);

// Reads what follows "HTTP/" in a reply's header the way scanf's "%d.%d %d %[^\r\n]" does, and
// returns how many of the four items it found (0 to 4). Fields behind the last item are 0 or empty.
//
// The white space before the reason also spans line ends: a status line without a reason takes the
// next header line for one, and has only three items where nothing follows. Services with bare
// status lines work because of it. A number outside 32 bits is the nearest end of that range.
// Requires: text is terminated, line is not null.
int web_scan_status_line(const char *text, WebStatusLine *line);

} // namespace quintral

#endif
