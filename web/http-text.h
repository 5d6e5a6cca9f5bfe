// The parts of one HTTP/1.0 exchange as pure functions of bytes: parsing a URL, composing the
// request, reading and judging a status line. No sockets and no state: web/transaction.cpp sends
// and receives these bytes, the tests need no network.
//
// Character classes and number reading are ASCII-only (support/ascii.h), so a host program's locale
// does not change the bytes that are sent.
#ifndef QUINTRAL_WEB_HTTP_TEXT_H
#define QUINTRAL_WEB_HTTP_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quintral {

// The parts of a URL that the exchange needs.
struct WebUrl {
    std::string scheme; // upper case, "HTTP" if the URL has none
    std::string host;   // upper case, may be empty
    std::int32_t port;  // as written; the exchange uses its low 16 bits
};

// The parts of one request. All strings belong to the caller.
struct WebRequest {
    const char *method;       // exactly "POST" is a POST, anything else a GET
    const char *path;         // for the request line: the whole URL
    const char *host;         // for the Host line, without a port
    const char *extra_header; // header lines without the last line ending; empty for none
    std::size_t extra_header_length;
    const char *body; // sent for a POST only
    std::size_t body_length;
    const char *user;     // the credentials line is sent if user and password are both not null,
    const char *password; // even if they are empty
};

// A request as the pieces to send, in order. They point into the strings of the WebRequest and into
// `lines`, so a record cannot be copied or moved.
struct WebRequestText {
    std::vector<std::string_view> pieces;
    std::string lines; // those that have to be composed

    WebRequestText() = default;
    WebRequestText(const WebRequestText &) = delete;
    WebRequestText &operator=(const WebRequestText &) = delete;
};

// A parsed status line.
struct WebStatusLine {
    std::int32_t major_version;
    std::int32_t minor_version;
    std::int32_t status;
    char reason[128]; // terminated, truncated to 127 bytes
};

// Whether a reply's body may be used.
enum WebStatusVerdict {
    WebStatusAccepted,  // 200 to 299
    WebStatusMissing,   // the header does not contain "HTTP/"
    WebStatusMalformed, // the text after "HTTP/" is not a version, a status and a reason
    WebStatusRejected   // any other status
};

// Splits a URL into scheme, host and port. Every string gives a result; errors surface later, when
// the exchange rejects the scheme or cannot resolve the host.
//
// The scheme is the part before the first ':', wherever that is, so "web:81/p" has the scheme
// "WEB"; without a ':' it is "HTTP". Two slashes after it are skipped, a single one is not:
// "http:/x" has an empty host. The host extends over ASCII letters, digits, '-', '.' and ':'. Its
// part after a ':' is the port as atoi reads it, so 0 if it is not a number; without a ':' the port
// is 80. Strings of any length are kept whole. Throws std::bad_alloc.
// Requires: url is terminated, result is not null.
void web_parse_url(const char *url, WebUrl *result);

// Composes the request as the pieces to send, in order, one send each: the method, the path, the
// version, five fixed header lines, the extra header, the Host line, the credentials line, the
// empty line and the body. A piece that the request does not have is left out. The path and the
// body are not copied: the pieces are valid as long as *text and the request's strings.
//
// The credentials are standard base64 of "user:password" in the origin server's line,
// "Authorization: Basic ", even to a proxy: the maker's service and the studios' proxies depend on
// it. A GET includes the extra header too, although it sends no body.
// Replaces *text. Throws std::bad_alloc; the pieces must not be used then.
// Requires: method, path and host are terminated; extra_header and body hold their lengths.
void web_compose_request(const WebRequest &request, WebRequestText *text);

// Reads the text after "HTTP/" in a reply's header as scanf's "%d.%d %d %[^\r\n]" does. Returns how
// many of the four items it found (0 to 4). Fields after the last item are 0 or empty.
//
// The white space before the reason may include line ends: if the reason is missing, the next
// header line is taken as the reason; if there is none, only three items are found. Services that
// send bare status lines depend on it. A number outside 32 bits becomes the nearest end of that
// range.
// Requires: text is terminated, line is not null.
int web_scan_status_line(const char *text, WebStatusLine *line);

// Judges a reply by the first "HTTP/" in its header. *line holds the items found. *status_text is
// the text after "HTTP/", which points into the header, or null if there is none.
// Requires: header is terminated, neither pointer is null.
WebStatusVerdict web_judge_status(const char *header, WebStatusLine *line,
                                  const char **status_text);

// Returns the error message of a verdict, allocated with alloc_printf; null for WebStatusAccepted.
// Throws std::bad_alloc.
char *web_status_error(WebStatusVerdict verdict, const WebStatusLine &line,
                       const char *status_text);

// Returns the size of the header that a reply begins with: the bytes before the line feed of the
// empty line, or all of them if there is no empty line. Carriage returns do not count as content of
// a line.
// Requires: bytes holds size bytes.
std::size_t web_header_size(const char *bytes, std::size_t size);

} // namespace quintral

#endif
