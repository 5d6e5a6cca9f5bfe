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
// waits for data it calls the idle hook and watches web_cancel_requested; a server that is silent
// for ten seconds ends it. There is no bound on the whole time: a name look-up, a connect, sending
// to a peer that does not read, and a server that sends a byte now and then take as long as they
// take. During the first three the hook is not called and the flag not seen.
//
// All state is the process's own and unguarded: one transaction at a time, on one thread.
//
// A broken connection raises no SIGPIPE, whatever the host program has set for it, and its setting
// is left alone. Sockets are closed on exec.
#ifndef QUINTRAL_WEB_TRANSACTION_H
#define QUINTRAL_WEB_TRANSACTION_H

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <string>

#include "../support/format-attribute.h"
#include "form-body.h"

namespace quintral {

// Called while a transaction waits for data, on the transaction's thread: about ten times a second
// before the reply's header has ended, at most once per silence behind that. It may set
// web_cancel_requested.
using WebIdleHook = void (*)(void *user_data);

// Results of web_request and web_exchange; all but WebOk leave a text in the last error.
enum : int {
    WebOk = 0,       // the reply was read to its end
    WebFailed = -1,  // the last error says why
    WebTimedOut = 1, // no data for ten seconds
    WebCancelled = 2 // web_cancel_requested was seen
};

// Set to non-zero to stop the running transaction: from the idle hook or a signal handler. The
// transaction resets it when it acts on it, at its next silent wait. Set while none runs, it
// cancels the next one. Data that keeps flowing keeps the transaction from looking.
//
// Behind the header a silent wait is the whole ten seconds, unless a signal breaks it off. A flag
// that the hook sets there comes too late: the transaction times out, the flag stays, and the next
// transaction is cancelled unless the caller resets it.
extern volatile std::sig_atomic_t web_cancel_requested;

// Sends a request for a URL and reads the reply.
//
// method: exactly "POST" sends the fields as a form body; anything else is a GET, which announces
// the fields' Content-Type and Content-Length but does not send them.
// proxy_host: null or empty for a direct connection. proxy_user, proxy_password: null when absent;
// when both are given they go out as Basic credentials, to whichever peer the socket is connected.
// The low 16 bits of a port count.
//
// On WebOk *header_out and *body_out hold the reply's texts, for the caller to release with
// std::free: the header with its line endings up to the carriage return of the empty line, cut at
// its first NUL; the body without the bytes between a NUL and the end of the chunk it came in. On
// any other result *body_out is untouched. *header_out then holds the header if its phase had
// ended: whole, or as far as it came before a receive error; otherwise it is untouched.
//
// The last error is cleared at the start. After WebOk it is empty, unless receiving broke off in
// the header and the rest then ended cleanly.
//
// Throws std::bad_alloc when memory runs out; the socket is closed then, and a header already
// delivered is the caller's.
// Requires: url and method are terminated and not null, *header_out and *body_out are null, fields
// holds field_count entries.
int web_request(const char *url, const char *method, int field_count, const WebField *fields,
                char **header_out, char **body_out, const char *proxy_host, int proxy_port,
                const char *proxy_user, const char *proxy_password);

// The socket work of web_request, for a URL already taken apart. The scheme must be exactly "HTTP";
// path is what the request line asks for, host names the server for the look-up and the Host line.
// The extra header is sent with a line ending behind it unless it is empty; the body goes out with
// its full length. Results and outputs as for web_request, but the last error is not cleared.
// Requires: scheme, host, path and method are terminated and not null; the rest as for web_request.
//
// A reply that the server ends within a header line repeats its last byte without end: the suite's
// services always end their lines, and a program that cannot be sure of its server sets a limit
// with web_set_reply_limits.
int web_exchange(const char *scheme, const char *host, const char *path, std::uint16_t port,
                 const char *method, const std::string &extra_header, const std::string &body,
                 char **header_out, char **body_out, const char *proxy_host,
                 std::uint16_t proxy_port, const char *proxy_user, const char *proxy_password);

// Replaces the last error by the formatted text and returns it. The arguments may point into the
// error that is replaced. The text belongs to the client and lives until the next error or the
// start of the next web_request. A text that the C library cannot format, or one of more than
// INT_MAX bytes, is empty. Throws std::bad_alloc when memory runs out; the last error then stays.
const char *web_set_error(const char *format, ...) QUINTRAL_PRINTF(1, 2);

// The last error, an empty text when there is none. Owned as said at web_set_error.
const char *web_last_error();

// Installs the idle hook and what it is given; null for none. Both stay until they are replaced.
void web_set_idle_hook(WebIdleHook hook, void *user_data);

// Writes "code %d: %s" with the current errno and the system's text for it into one buffer of 1024
// bytes and returns it; the next call overwrites it.
const char *web_errno_text();

// Tells from a reply's header whether its body may be used: the first "HTTP/" in it must be
// followed by a version, a status from 200 to 299 and a reason (see web_scan_status_line).
// Returns 0 with the last error as it was, or -1 with the last error set. Throws as web_set_error.
// Requires: header is terminated and not null.
int web_check_reply(const char *header);

// Sets how many bytes of a reply's header and body are taken, 0 for any number (the start value).
// Counted are the bytes stored of the header and those received of the body; the first one past a
// limit ends the exchange with WebFailed. The limits stay until they are replaced.
void web_set_reply_limits(std::size_t header_bytes, std::size_t body_bytes);

} // namespace quintral

#endif
