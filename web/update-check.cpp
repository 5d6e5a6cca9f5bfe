#include "web/update-check.h"

#include <cstring>

#include "support/ascii.h"
#include "support/c-utils.h"
#include "web/http-text.h"
#include "web/last-error.h"
#include "web/receiving.h"
#include "web/update-exchange.h"
#include "web/version-update.h"

namespace quintral {

namespace {

const char not_an_update[] = "The web site's answer is not an update reply";
const char bad_query[] =
    "The product version cannot be sent: it must be a number with at most three "
    "decimal places that a float represents exactly";

// Applies the default limits, to a program that has set none, while one exchange runs.
struct DefaultLimits {
    DefaultLimits()
    {
        web_apply_default_limits(true);
    }
    ~DefaultLimits()
    {
        web_apply_default_limits(false);
    }
    DefaultLimits(const DefaultLimits &) = delete;
    DefaultLimits &operator=(const DefaultLimits &) = delete;
};

char *copy_of(const char *text)
{
    return copy_string_with_room(text, 0);
}

const char *null_if_empty(const char *text)
{
    return *text != '\0' ? text : nullptr;
}

// A copy of the bytes up to their first NUL.
char *copy_up_to_nul(const char *bytes, std::size_t size)
{
    const void *nul = std::memchr(bytes, '\0', size);
    const std::size_t length =
        nul != nullptr ? static_cast<std::size_t>(static_cast<const char *>(nul) - bytes) : size;
    char *copy = static_cast<char *>(checked_malloc(length + 1));
    std::memcpy(copy, bytes, length);
    copy[length] = '\0';
    return copy;
}

// Sets failure and error. Takes ownership of the error, which is empty if the C library could not
// format it.
void fail(WebUpdateReply *reply, WebUpdateFailure failure, char *error)
{
    reply->failure = failure;
    reply->error = error;
    if (*error != '\0')
        return;
    reply->error = nullptr;
    checked_free(error);
    reply->error = copy_of(not_an_update);
}

// Values

void drop_last_carriage_return(char *text)
{
    const std::size_t length = std::strlen(text);
    if (length > 0 && text[length - 1] == '\r')
        text[length - 1] = '\0';
}

void trim_spaces(char *text)
{
    const std::size_t start = ascii_length_of(text, " \t");
    std::size_t length = std::strlen(text + start);
    std::memmove(text, text + start, length + 1);
    while (length > 0 && (text[length - 1] == ' ' || text[length - 1] == '\t'))
        text[--length] = '\0';
}

void drop_carriage_returns_of_lines(char *text)
{
    char *end = text;
    for (const char *c = text; *c != '\0'; ++c) {
        if (*c == '\r' && (c[1] == '\n' || c[1] == '\0'))
            continue;
        *end++ = *c;
    }
    *end = '\0';
}

// A clean copy of a value that is on one line; null if it is empty or not given.
char *clean_copy(const char *value, bool trimmed)
{
    if (value == nullptr)
        return nullptr;
    char *copy = copy_of(value);
    drop_last_carriage_return(copy);
    if (trimmed)
        trim_spaces(copy);
    if (*copy != '\0')
        return copy;
    checked_free(copy);
    return nullptr;
}

// Reads the values of the body and compares the version. Returns 0, or -1 if there is no message.
int read_body(WebUpdateReply *reply, const char *own_version)
{
    std::string scratch = reply->body;
    UpdateValues values;
    web_find_update_values(scratch.data(), &values);
    reply->version = clean_copy(values.version, true);
    reply->url = clean_copy(values.url, false);
    reply->button = clean_copy(values.button, false);
    if (values.message == nullptr)
        return -1;
    reply->message = copy_of(values.message);
    drop_carriage_returns_of_lines(reply->message);
    int order = 0;
    if (web_compare_versions(reply->version, own_version, &order) == 0)
        reply->newer = order > 0 ? WebNewer : WebNotNewer;
    return 0;
}

// Judges the header and stores its status and reason.
WebStatusVerdict read_status(WebUpdateReply *reply, WebStatusLine *line, const char **status_text)
{
    const WebStatusVerdict verdict = web_judge_status(reply->header, line, status_text);
    reply->http_status = line->status;
    if (line->reason[0] != '\0')
        reply->reason = copy_of(line->reason);
    return verdict;
}

// Reads the header of a whole reply. Returns 0, or -1 with the failure if the status is not
// accepted. If receiving failed within the header, that is why; the error is still that of the
// status.
int read_header(WebUpdateReply *reply, bool receive_failed)
{
    WebStatusLine line;
    const char *status_text = nullptr;
    const WebStatusVerdict verdict = read_status(reply, &line, &status_text);
    if (verdict == WebStatusAccepted)
        return 0;
    const WebUpdateFailure failure = verdict == WebStatusRejected ? WebBadStatus : WebNotHttp;
    fail(reply, receive_failed ? WebReceiveFailed : failure,
         web_status_error(verdict, line, status_text));
    return -1;
}

// Reads header and body of a whole reply. receive_error is null unless receiving failed within the
// header, which an exchange survives. Returns 0, or -1 with the failure.
int read_reply(WebUpdateReply *reply, const char *own_version, const char *receive_error)
{
    if (read_header(reply, receive_error != nullptr) != 0)
        return -1;
    if (read_body(reply, own_version) == 0)
        return 0;
    if (receive_error != nullptr)
        fail(reply, WebReceiveFailed, copy_of(receive_error));
    else
        fail(reply, WebNotAnUpdate, copy_of(not_an_update));
    return -1;
}

// The check

// Fills *form and *url. Returns 0, or -1 if the query's version cannot be sent.
int prepare_query(const WebUpdateQuery *query, UpdateForm *form, std::string *url)
{
    float version = 0;
    if (web_read_product_version(query->version, &version) != 0)
        return -1;
    const UpdateFields fields = {
        query->product, query->product_line, version,           query->version_name,
        query->os,      query->os_version,   query->machine_id, query->processor_arch};
    web_fill_update_form(fields, form);
    *url = web_update_url(query->service != nullptr ? query->service : web_service_host);
    return 0;
}

int request_update(const WebUpdateQuery *query, const std::string &url, const UpdateForm &form,
                   WebUpdateReply *reply)
{
    const ProxySettings none = {};
    const ProxySettings &proxy = query->proxy != nullptr ? *query->proxy : none;
    const DefaultLimits limits;
    return web_request(url.c_str(), "POST", update_field_count, form.fields, &reply->header,
                       &reply->body, null_if_empty(proxy.host), proxy.port,
                       null_if_empty(proxy.user), null_if_empty(proxy.password));
}

// After an exchange that failed: why, and the status if the header was received.
void read_failed_exchange(WebUpdateReply *reply)
{
    fail(reply, web_last_failure, copy_of(web_last_error()));
    if (reply->header == nullptr)
        return;
    WebStatusLine line;
    const char *status_text = nullptr;
    read_status(reply, &line, &status_text);
}

// Does the work of web_check_for_update on an empty reply. The last error is set only if the
// exchange failed.
int check(const WebUpdateQuery *query, WebUpdateReply *reply)
{
    UpdateForm form;
    std::string url;
    if (prepare_query(query, &form, &url) != 0) {
        fail(reply, WebBadQuery, copy_of(bad_query));
        return WebFailed;
    }
    const int result = request_update(query, url, form, reply);
    if (result != WebOk) {
        read_failed_exchange(reply);
        return result;
    }
    const bool receive_failed = web_last_failure == WebReceiveFailed;
    return read_reply(reply, query->version, receive_failed ? web_last_error() : nullptr) == 0
               ? WebOk
               : WebFailed;
}

} // namespace

void web_update_query_init(WebUpdateQuery *query)
{
    *query = {};
}

void web_update_reply_init(WebUpdateReply *reply)
{
    *reply = {};
    reply->newer = WebNewerUnknown;
}

void web_update_reply_free(WebUpdateReply *reply)
{
    checked_free(reply->error);
    checked_free(reply->reason);
    checked_free(reply->header);
    checked_free(reply->body);
    checked_free(reply->version);
    checked_free(reply->url);
    checked_free(reply->button);
    checked_free(reply->message);
    web_update_reply_init(reply);
}

int web_check_for_update(const WebUpdateQuery *query, WebUpdateReply *reply)
{
    web_update_reply_free(reply);
    web_clear_error();
    const int result = check(query, reply);
    if (result == WebOk)
        web_clear_error(); // of a receive error in the header that the reply survived
    else
        web_set_error("%s", reply->error);
    return result;
}

void web_compose_update_request(const WebUpdateQuery *query, std::string &bytes)
{
    UpdateForm form;
    std::string url;
    if (prepare_query(query, &form, &url) != 0) {
        bytes.clear();
        return;
    }
    WebUrl target;
    web_parse_url(url.c_str(), &target);
    std::string header;
    std::string body;
    web_form_body(update_field_count, form.fields, header, body);
    const ProxySettings none = {};
    const ProxySettings &proxy = query->proxy != nullptr ? *query->proxy : none;
    WebRequestText text;
    web_compose_request({"POST", url.c_str(), target.host.c_str(), header.data(), header.size(),
                         body.data(), body.size(), null_if_empty(proxy.user),
                         null_if_empty(proxy.password)},
                        &text);
    std::string request; // not bytes: the query may point into those
    for (const std::string_view piece : text.pieces)
        request += piece;
    bytes.swap(request);
}

int web_read_update_reply(const char *bytes, std::size_t size, const char *own_version,
                          WebUpdateReply *reply)
{
    web_update_reply_free(reply);
    if (size == 0)
        bytes = "";
    const std::size_t header_size = web_header_size(bytes, size);
    const std::size_t body_start = header_size < size ? header_size + 1 : size;
    reply->header = copy_up_to_nul(bytes, header_size);
    reply->body = copy_up_to_nul(bytes + body_start, size - body_start);
    return read_reply(reply, own_version, nullptr);
}

const char *web_update_failure_name(WebUpdateFailure failure)
{
    switch (failure) {
    case WebNoFailure:
        return "none";
    case WebBadQuery:
        return "bad-query";
    case WebLookupFailed:
        return "lookup";
    case WebConnectFailed:
        return "connect";
    case WebReceiveFailed:
        return "receive";
    case WebCheckTimedOut:
        return "timeout";
    case WebCheckCancelled:
        return "cancelled";
    case WebReplyTooLong:
        return "too-long";
    case WebNotHttp:
        return "not-http";
    case WebBadStatus:
        return "http-status";
    case WebNotAnUpdate:
        return "not-an-update";
    }
    return "unknown";
}

} // namespace quintral
