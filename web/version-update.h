// Asks the maker's update service whether a newer version of a product exists.
//
//     char message[1024] = "", newest[64] = "";
//     int result = web_version_update("Sample", "Samples", 5.0F, "5.0", "Linux", "6.1", "", "i386",
//                                     sizeof newest, message, newest, nullptr, nullptr,
//                                     nullptr, 0, nullptr, nullptr);
//
// (each buffer must be at least capacity bytes long; here capacity is the smaller of the two).
//
// The request is a form POST of eight fields to "/version-update.php" on web_service_host. The body
// of the reply consists of lines "Key: value":
//
//     Version: 5.100
//     URL: http://www.quintral.example/sample
//     Button: Get it
//     Message: A newer version of Sample is available.
//
// Keys are case-sensitive and unknown keys are skipped. The message is the rest of the body, so
// "Message" comes last.
//
// web/update-check.h has the same query with records: values of any length, the status, the kind of
// a failure, and whether the version is newer.
#ifndef QUINTRAL_WEB_VERSION_UPDATE_H
#define QUINTRAL_WEB_VERSION_UPDATE_H

#include <cstddef>

#pragma GCC visibility push(default) // exported from a shared library
namespace quintral {

// "host" or "host:port" of the maker's update service; starts as the build's QUINTRAL_SERVICE_HOST.
// The string is not copied and must outlive every query; it is never null.
extern const char *web_service_host;

// The caller's buffers for the four values of a reply. Each is capacity bytes long, terminator
// included. All but message may be null for a value that is not wanted.
struct WebUpdateBuffers {
    unsigned capacity;
    char *message;
    char *newest_version;
    char *web_address;
    char *button;
};

// Sends the query and reads the reply. The arguments up to processor_arch become the fields
// product, productline, version ("%.3f" with a point under every locale), version_name, os,
// os_version, machine_id and processor_arch. The buffers are those of WebUpdateBuffers. The last
// four arguments are passed to web_request unchanged.
//
// Returns 0 if the reply has a "Message" line: the message buffer holds its value, and each
// optional buffer whose key occurred holds that value, truncated to capacity - 1 bytes and
// terminated.
// Returns web_request's result unchanged, with its last error, if the exchange failed; no buffer is
// changed. Returns -1 with web_check_reply's last error if the status is not acceptable; no buffer
// is changed. Returns -1 and sets no last error if there is no "Message" line; values before that
// are in their buffers, and an error that web_request recorded together with WebOk stays. Throws
// std::bad_alloc when memory runs out; no memory leaks.
// Requires: message is not null; all strings are terminated and 7-bit.
int web_version_update(const char *product, const char *product_line, float version,
                       const char *version_name, const char *os, const char *os_version,
                       const char *machine_id, const char *processor_arch, unsigned capacity,
                       char *message, char *newest_version, char *web_address, char *button,
                       const char *proxy_host, int proxy_port, const char *proxy_user,
                       const char *proxy_password);

// Reads the values from a reply's body in place: colons and line feeds are replaced by terminators.
// A value begins with the second character after the colon, whatever the first one is, and ends
// before the next line feed; a value that would begin after the end of the body is empty. A
// carriage return before the line feed belongs to the value. If a key occurs twice, the later value
// wins.
// Returns 0 if a "Message" line was found, otherwise -1; the buffers hold the values read.
// Requires: body is terminated, buffers is not null and its message is not null.
int web_read_update_body(char *body, const WebUpdateBuffers *buffers);

// Formats a version number as the query sends it: "%.3f" with a point, under every locale. A result
// that does not fit is truncated; 64 bytes hold every float. Returns the buffer.
// Requires: buffer is size bytes long, size is at least 1.
char *web_format_version(float version, char *buffer, std::size_t size);

} // namespace quintral
#pragma GCC visibility pop

#endif
