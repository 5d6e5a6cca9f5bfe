// Asks the maker's update service whether a newer version of a product exists.
//
//     char message[1024] = "", newest[64] = "";
//     int result = web_version_update("Sample", "Samples", 5.0F, "5.0", "Linux", "6.1", "", "i386",
//                                     sizeof newest, message, newest, nullptr, nullptr,
//                                     nullptr, 0, nullptr, nullptr);
//
// (each buffer has room for the one capacity that is given; here the smaller of the two).
//
// The request is a form POST of eight fields to "/version-update.php" on web_service_host. The
// reply is a text of lines "Key: value":
//
//     Version: 5.100
//     URL: http://www.quintral.example/sample
//     Button: Get it
//     Message: A newer version of Sample is available.
//
// Keys are told apart by their letters' case; unknown ones are skipped; the message is the rest of
// the body, so "Message" comes last.
#ifndef QUINTRAL_WEB_VERSION_UPDATE_H
#define QUINTRAL_WEB_VERSION_UPDATE_H

#include <cstddef>

namespace quintral {

// "host" or "host:port" of the maker's update service; starts as the build's QUINTRAL_SERVICE_HOST.
// The text is not copied and must outlive every query; it is never null.
extern const char *web_service_host;

// The caller's buffers for the four values of a reply. Each has room for capacity bytes, terminator
// included; all but message may be null for a value that is not wanted.
struct WebUpdateBuffers {
    unsigned capacity;
    char *message;
    char *newest_version;
    char *web_address;
    char *button;
};

// Sends the query and reads the answer. The texts up to processor_arch become the fields product,
// productline, version ("%.3f" with a point under every locale), version_name, os, os_version,
// machine_id and processor_arch; the buffers are those of WebUpdateBuffers; the last four arguments
// go to web_request as they are.
//
// Returns 0 when the reply holds a "Message" line: the message buffer holds its value, and each
// optional buffer whose key occurred holds that value, cut to capacity - 1 bytes and terminated.
// Returns web_request's result unchanged, with its last error, when the exchange failed; no buffer
// is touched. Returns -1 with web_check_reply's last error when the status is not acceptable; no
// buffer is touched. Returns -1 with no last error of its own when there is no "Message" line (an
// error that web_request recorded beside its WebOk stays); values before that are in their buffers.
// Throws std::bad_alloc when memory runs out; nothing is lost then.
// Requires: message is not null; all texts are terminated and 7-bit.
int web_version_update(const char *product, const char *product_line, float version,
                       const char *version_name, const char *os, const char *os_version,
                       const char *machine_id, const char *processor_arch, unsigned capacity,
                       char *message, char *newest_version, char *web_address, char *button,
                       const char *proxy_host, int proxy_port, const char *proxy_user,
                       const char *proxy_password);

// Reads the values out of a reply's body, in place: colons and line feeds become terminators. A
// value begins with the second character behind the colon, whatever the first is, and ends before
// the next line feed; one that would begin behind the body's end is empty. A carriage return before
// the line feed belongs to the value. Of a key that occurs twice the later value wins. Returns 0
// when a "Message" line was found, otherwise -1; the buffers hold what was read. Requires: body is
// terminated, buffers is not null and its message is not null.
int web_read_update_body(char *body, const WebUpdateBuffers *buffers);

// Writes a version number as the query sends it: "%.3f" with a point, whatever the locale. Returns
// the buffer. 64 bytes hold every float.
// Requires: buffer has room for size bytes, size is at least 1; a text that does not fit is cut.
char *web_format_version(float version, char *buffer, std::size_t size);

} // namespace quintral

#endif
