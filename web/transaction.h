// One HTTP/1.0 transaction with a web server, directly or through an HTTP proxy.
//
//     WebField fields[] = {{"product", "Sample"}, {"version", "5.000"}};
//     char *header = nullptr;
//     char *body = nullptr;
//     int result = web_request("http://update.quintral.example/version-update.php", "POST", 2,
//                              fields, &header, &body, nullptr, 0, nullptr, nullptr);
//     if (result == WebOk)
//         result = web_check_reply(header);
//     if (result != WebOk)
//         report_message(Error, "%s", web_last_error());
//     std::free(header);
//     std::free(body);
//
// A transaction blocks the calling thread until the server has closed the connection. While it
// waits for data it calls the idle hook and checks web_cancel_requested. It times out after ten
// seconds without data; up to twenty if a signal interrupts the wait for the body. The total time
// is not limited: a name lookup, a connect, sending to a peer that does not read, and a server that
// sends a byte now and then can take any time. During the first three the hook is not called.
// During the first two the flag is not checked; sending ends at the next signal once it is set.
//
// A send that a signal cuts short is continued. A failing send is not reported, nor is one that a
// signal interrupts before its first byte: it shows when the reply is received.
//
// All state is global and not locked: one transaction at a time, on one thread.
//
// A broken connection raises no SIGPIPE, and the host program's setting for that signal is left
// alone. Sockets are closed on exec.
#ifndef QUINTRAL_WEB_TRANSACTION_H
#define QUINTRAL_WEB_TRANSACTION_H

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <string>

#include "../support/format-attribute.h"
#include "form-body.h"

#pragma GCC visibility push(default) // exported from a shared library
namespace quintral {

// Called while a transaction waits for data, on the transaction's thread: about ten times a second
// until the reply's header has ended, then at most once per wait while reading the body. It may set
// web_cancel_requested.
using WebIdleHook = void (*)(void *user_data);

// Results of web_request and web_exchange; all but WebOk set the last error.
enum : int {
    WebOk = 0,       // the whole reply was received
    WebFailed = -1,  // see web_last_error
    WebTimedOut = 1, // no data for ten seconds (see above)
    WebCancelled = 2 // web_cancel_requested was seen
};

// Set to non-zero, from the idle hook or a signal handler, to cancel the running transaction. The
// transaction checks it after each wait without data, and resets it when it cancels. The flag is
// not checked while data keeps arriving. It ends a send to a peer that does not read only together
// with a signal; the rest of the request is then not sent. If it is set while no transaction runs,
// it cancels the next one.
//
// While reading the body, a wait without data lasts the whole ten seconds unless a signal
// interrupts it. A flag set by the hook is then too late: the transaction times out, the flag stays
// set, and the next transaction is cancelled unless the caller resets the flag.
extern volatile std::sig_atomic_t web_cancel_requested;

// Sends a request for a URL and receives the reply.
//
// method: exactly "POST" sends the fields as a form body. Anything else is a GET, which sends the
// fields' Content-Type and Content-Length but not the fields.
// proxy_host: null or empty for a direct connection. proxy_user, proxy_password: null for none; if
// both are given they are sent as Basic credentials to whichever host the connection is made to.
// Only the low 16 bits of a port number are used.
//
// On WebOk *header_out and *body_out hold the reply, for the caller to release with std::free: the
// header with its line endings up to the carriage return of the empty line, truncated at its first
// NUL; the body without the bytes from a NUL to the end of the chunk it was received in. A block is
// at least 2 KiB long, at most 2 KiB more than twice the bytes received. On any other result
// *body_out is unchanged; *header_out holds the header if the header phase was over, either
// complete or as far as it was received before a receive error, and is unchanged otherwise.
//
// The last error is cleared at the start. After WebOk it is empty, unless reading the header failed
// and the body was then read successfully.
//
// Throws std::bad_alloc when memory runs out; the socket is closed, and a header already stored is
// the caller's.
// Requires: url and method are terminated and not null, *header_out and *body_out are null, fields
// holds field_count entries.
int web_request(const char *url, const char *method, int field_count, const WebField *fields,
                char **header_out, char **body_out, const char *proxy_host, int proxy_port,
                const char *proxy_user, const char *proxy_password);

// Does the socket work of web_request for a URL that is already parsed. The scheme must be exactly
// "HTTP"; path goes into the request line; host names the server for the lookup and the Host line.
// A host or proxy of four decimal numbers from 0 to 255 without leading zeros, as 127.0.0.1, is an
// address and is not looked up.
// The extra header is sent with a line ending after it unless it is empty; the body is sent with
// its full length. Results and outputs are those of web_request, but the last error is not cleared.
// Requires: scheme, host, path and method are terminated and not null; the rest as for web_request.
//
// A server that closes the connection within a header line causes its last byte to be stored
// forever; set a limit with web_set_reply_limits for untrusted servers. The suite's services always
// end their header lines.
int web_exchange(const char *scheme, const char *host, const char *path, std::uint16_t port,
                 const char *method, const std::string &extra_header, const std::string &body,
                 char **header_out, char **body_out, const char *proxy_host,
                 std::uint16_t proxy_port, const char *proxy_user, const char *proxy_password);

// Replaces the last error with the formatted string and returns it. The arguments may point into
// the error that is replaced. The string belongs to the client and is valid until the next error or
// the start of the next web_request. It is empty if the C library cannot format it or it is longer
// than INT_MAX bytes. Throws std::bad_alloc when memory runs out; the last error is then unchanged.
const char *web_set_error(const char *format, ...) QUINTRAL_PRINTF(1, 2);

// Returns the last error, or an empty string if there is none. For ownership see web_set_error.
const char *web_last_error();

// Installs the idle hook and its user data; null for none. Both stay until replaced.
void web_set_idle_hook(WebIdleHook hook, void *user_data);

// Formats "code %d: %s" from the current errno and the system's message for it. Returns a static
// buffer of 1024 bytes that the next call overwrites.
const char *web_errno_text();

// Checks from a reply's header whether its body may be used: the first "HTTP/" in it must be
// followed by a version, a status from 200 to 299, and a reason. White space before the reason may
// include line ends, so the next header line can be taken as the reason. Returns 0 with the last
// error unchanged, or -1 with the last error set. Throws as web_set_error does.
// Requires: header is terminated and not null.
int web_check_reply(const char *header);

// Limits the size of a reply's header and body in bytes; 0, as at start, for no limit. The header's
// limit is on the bytes stored, the body's on the bytes received. A reply that exceeds a limit ends
// the exchange with WebFailed. The limits stay until replaced. They also replace the default limits
// of web_check_for_update, whatever their values.
void web_set_reply_limits(std::size_t header_bytes, std::size_t body_bytes);

} // namespace quintral
#pragma GCC visibility pop

#endif
