// A complete update check in one call: takes a query, returns all that is known about the reply.
//
//     WebUpdateQuery query;
//     web_update_query_init(&query);
//     query.product = "Quintral Shapes";
//     query.version = "5.1";
//     WebUpdateReply reply;
//     web_update_reply_init(&reply);
//     if (web_check_for_update(&query, &reply) != WebOk)
//         report_message(Error, "%s", reply.error);
//     else if (reply.newer == WebNewer)
//         offer(reply.version, reply.url, reply.message);
//     web_update_reply_free(&reply);
//
// The steps can be used alone, without a network: composing the request, reading a saved reply,
// comparing two versions.
//
// web/version-update.h describes the request and the reply's body. The idle hook,
// web_cancel_requested, web_last_error and the threading rule of web/transaction.h apply.
//
// The reply is not authenticated, and its strings can contain any byte but NUL. Escape them, and
// check the URL, before they are shown or used; the error can quote the reply too.
#ifndef QUINTRAL_WEB_UPDATE_CHECK_H
#define QUINTRAL_WEB_UPDATE_CHECK_H

#include <cstddef>
#include <string>

#include "proxy-settings.h"
#include "transaction.h"

#pragma GCC visibility push(default) // exported from a shared library
namespace quintral {

// Records

// What to ask. The strings are the caller's and are not copied; null counts as empty. The protocol
// allows 7-bit strings only. A value is truncated as by web_form_body.
struct WebUpdateQuery {
    const char *product;
    const char *product_line;
    const char *version; // a number that web_read_product_version accepts
    const char *version_name;
    const char *os;
    const char *os_version;
    const char *machine_id;
    const char *processor_arch;
    const char *service;        // host or host:port; null for web_service_host
    const ProxySettings *proxy; // null for a direct connection without credentials
};

// Whether the reply's version is newer than the query's.
enum WebUpdateNewer : int {
    WebNewerUnknown = -1, // the check failed, or the reply has no version that can be compared
    WebNotNewer = 0,
    WebNewer = 1
};

// Why a check failed.
enum WebUpdateFailure : int {
    WebNoFailure,
    WebBadQuery,       // the query's version cannot be sent; nothing was sent
    WebLookupFailed,   // the name of the server or the proxy cannot be resolved
    WebConnectFailed,  // no socket, or no connection
    WebReceiveFailed,  // the connection broke before the reply could be used
    WebCheckTimedOut,  // ten seconds without data
    WebCheckCancelled, // web_cancel_requested was set
    WebReplyTooLong,   // the header or the body exceeds its limit
    WebNotHttp,        // the header has no valid HTTP status line
    WebBadStatus,      // the status is not 200 to 299
    WebNotAnUpdate     // the body has no Message line
};

// What is known about a reply. The record owns its strings; a string that is missing is null.
struct WebUpdateReply {
    WebUpdateFailure failure;
    char *error;     // null without a failure, never empty with one
    int http_status; // 0 if none was read
    char *reason;    // the reason phrase as web_check_reply reads it, truncated to 127 bytes
    char *header;    // header and body as web_request stores them
    char *body;

    // The four values, of any length, without the carriage returns of CR LF line endings: one at
    // the end of each, and in the message one before each line feed. The version has no surrounding
    // spaces and tabs. Each is null if not given; the first three also if empty.
    char *version;
    char *url;
    char *button;
    char *message;

    WebUpdateNewer newer; // against the query's version
};

// Makes a query empty: all null.
void web_update_query_init(WebUpdateQuery *query);

// Makes a reply empty: WebNoFailure, 0, WebNewerUnknown, all strings null. Allocates nothing.
void web_update_reply_init(WebUpdateReply *reply);

// Releases the strings and makes the reply empty, ready for use again.
void web_update_reply_free(WebUpdateReply *reply);

// The check

// Sends the query and reads the reply into *reply, after releasing what that held. A header longer
// than 256 KiB or a body longer than 8 MiB is a failure. A program that calls web_set_reply_limits,
// even with 0, replaces these two limits with its own.
//
// Returns WebOk with the whole reply in *reply. Returns WebFailed, WebTimedOut or WebCancelled, as
// web_request does, with failure and error set, and with everything that was received and read
// before the failure. The last error is then a copy of reply->error; after WebOk it is empty.
// Throws std::bad_alloc when memory runs out; no memory leaks, *reply can be freed or used again.
// Requires: neither pointer is null, *reply was initialised, the query does not point into *reply.
int web_check_for_update(const WebUpdateQuery *query, WebUpdateReply *reply);

// The individual steps: they use no sockets or state and do not change the last error

// Replaces bytes with what web_check_for_update sends for the query. They are empty if the query's
// version cannot be sent. Throws std::bad_alloc when memory runs out; bytes is then unchanged.
// Requires: query is not null; its strings may point into bytes.
void web_compose_update_request(const WebUpdateQuery *query, std::string &bytes);

// Reads a saved reply into *reply, after releasing what that held. The header extends up to the
// line feed of the first empty line (carriage returns do not count), the body follows; without an
// empty line all of it is header. Both are strings: each ends at its first NUL. There are no
// limits. own_version is what the reply's version is compared with; null or not a version leaves
// newer unknown.
//
// Returns 0, or -1 with failure and error set as by web_check_for_update.
// Throws std::bad_alloc when memory runs out; no memory leaks, *reply can be freed or used again.
// Requires: bytes holds size bytes (null for none), *reply was initialised, bytes and own_version
// do not point into *reply.
int web_read_update_reply(const char *bytes, std::size_t size, const char *own_version,
                          WebUpdateReply *reply);

// Compares two versions of any length exactly. A version is one or more runs of digits separated by
// points. The first two parts are a decimal number, so 5.2, 5.20 and 5.200 are the same and 5.10 is
// older than 5.9; each further part is an integer, 0 if missing, so 5.2.1 is newer than 5.2.
// Returns 0 with -1, 0 or 1 in *order if the first is older, the same or newer. Returns -1 with
// *order unchanged if either is not a version; null is not one.
// Throws std::bad_alloc when memory runs out.
int web_compare_versions(const char *first, const char *second, int *order);

// Reads a version that a query can send: digits, optionally a point and one to three digits, under
// every locale. Returns 0 with the number in *version. Returns -1 with *version unchanged for null,
// for any other string, and for a number that a float does not represent exactly to three decimal
// places ("16777217" would be sent as 16777216.000).
// Throws std::bad_alloc when memory runs out.
int web_read_product_version(const char *text, float *version);

// Returns the word that stands for a failure in JSON: "bad-query", "lookup", "connect", "receive",
// "timeout", "cancelled", "too-long", "not-http", "http-status", "not-an-update"; "none" for
// WebNoFailure and "unknown" for any other value.
const char *web_update_failure_name(WebUpdateFailure failure);

} // namespace quintral
#pragma GCC visibility pop

#endif
