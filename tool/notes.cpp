#include "tool/notes.h"

#include <cstring>
#include <string_view>

#include "support/ascii.h"
#include "tool/safe-text.h"
#include "tool/streams.h"

namespace quintral {

namespace {

void note(const std::string &text)
{
    show_note(text.c_str());
}

// The values of all header lines of a name ("name: value"), separated by commas, or an empty
// string. The name is in lower case and ends with its colon. Made safe, and truncated so that the
// rest of the note is shown too.
std::string header_value(const char *header, const char *name)
{
    constexpr std::size_t limit = 800;
    std::string values;
    for (const char *line = header != nullptr ? header : ""; line != nullptr;
         line = std::strchr(line, '\n')) {
        if (*line == '\n')
            ++line;
        const char *value = ascii_skip_prefix(line, name);
        if (value == nullptr)
            continue;
        while (*value == ' ' || *value == '\t')
            ++value;
        values += values.empty() ? "" : ", ";
        values.append(value, ascii_length_before(value, "\r\n"));
    }
    return safe_line(values.c_str()).substr(0, limit);
}

bool is_empty(const char *text)
{
    return text == nullptr || *text == '\0';
}

void note_proxy(WebUpdateFailure failure, const RunTarget &target)
{
    const std::string proxy =
        " through the proxy " + target.proxy + ", from " + target.proxy_origin;
    if (failure == WebLookupFailed || failure == WebConnectFailed)
        note("The request was to go" + proxy);
    else if (failure != WebBadQuery)
        note("The request went" + proxy);
}

void note_redirect(const WebUpdateReply &reply)
{
    const std::string target = header_value(reply.header, "location:");
    if (reply.http_status < 300 || reply.http_status > 399 || target.empty())
        return;
    note("The reply redirects to " + target + "; redirects are not followed");
}

// A proxy asks for credentials with 407, some with 401.
void note_credentials(const WebUpdateReply &reply, bool through_proxy)
{
    if (!through_proxy || (reply.http_status != 407 && reply.http_status != 401))
        return;
    std::string wanted = header_value(reply.header, "proxy-authenticate:");
    if (wanted.empty())
        wanted = header_value(reply.header, "www-authenticate:");
    if (wanted.empty())
        wanted = "credentials";
    note("The proxy asks for: " + wanted);
    note("This client sends its credentials in the header Authorization only");
}

bool is_html(const WebUpdateReply &reply)
{
    if (ascii_skip_prefix(header_value(reply.header, "content-type:").c_str(), "text/html"))
        return true;
    const char *start = reply.body + ascii_length_of(reply.body, " \t\r\n");
    return *start == '<';
}

void note_status(const WebUpdateReply &reply, bool through_proxy)
{
    note_redirect(reply);
    note_credentials(reply, through_proxy);
}

void note_not_http(const WebUpdateReply &reply, const char *peer)
{
    if (is_empty(reply.header) && is_empty(reply.body))
        note(std::string(peer) + " closed the connection without answering");
    else if (is_empty(reply.header) || std::string_view(reply.header).substr(0, 5) != "HTTP/")
        note("The reply is not HTTP: the service may expect HTTPS, which this client does not "
             "speak");
}

// A header without an end: a peer that does not speak HTTP closed within its first line.
void note_too_long(const WebUpdateReply &reply)
{
    if (reply.header == nullptr)
        note("The reply's header is too long: the service may expect HTTPS, which this client does "
             "not speak");
}

// Finds the keys as web_read_update_body does: a line without a colon belongs to the next key, one
// character after the colon is skipped, and the message ends the keys.
bool has_version_line(const char *key)
{
    for (;;) {
        const char *colon = std::strchr(key, ':');
        if (colon == nullptr || colon[1] == '\0')
            return false;
        const std::string name(key, colon);
        if (name == "Version" || name == "Message")
            return name == "Version";
        const char *line_feed = std::strchr(colon + 2, '\n');
        if (line_feed == nullptr)
            return false;
        key = line_feed + 1;
    }
}

} // namespace

void show_failure_notes(const WebUpdateReply &reply, const RunTarget &target)
{
    const bool through_proxy = !target.proxy.empty();
    if (through_proxy)
        note_proxy(reply.failure, target);
    switch (reply.failure) {
    case WebBadStatus:
        note_status(reply, through_proxy);
        break;
    case WebNotHttp:
        note_not_http(reply, through_proxy ? "The proxy" : "The service");
        break;
    case WebReplyTooLong:
        note_too_long(reply);
        break;
    default:
        break;
    }
    if (reply.body != nullptr && reply.header != nullptr && is_html(reply))
        note("The reply is HTML: a login page of the network (a captive portal) may have answered");
}

void show_unknown_note(const WebUpdateReply &reply)
{
    const char *why = "the version in the reply is not a number";
    if (reply.version == nullptr)
        why = has_version_line(reply.body) ? "the reply has no version"
                                           : "the reply has no Version line";
    note(std::string("It is unknown whether a newer version exists: ") + why);
}

std::string newer_note(const WebUpdateReply &reply, const char *own_version)
{
    const std::string version = reply.version;
    if (reply.newer == WebNewer)
        return "Version " + version + " is newer than " + own_version;
    return "There is no newer version than " + std::string(own_version);
}

} // namespace quintral
