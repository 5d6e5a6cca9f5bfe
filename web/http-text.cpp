#include "web/http-text.h"

#include <cstring>
#include <string_view>

#include "support/ascii.h"
#include "support/c-utils.h"
#include "web/base64.h"

namespace quintral {

namespace {

constexpr std::int32_t default_port = 80;
constexpr char referer_line[] = "Referer: " QUINTRAL_WEB_DOMAIN "\r\n";

bool belongs_to_host(char c)
{
    return ascii_is_letter_or_digit(c) || c == '-' || c == '.' || c == ':';
}

// Base64 of a string of any length. base64_encode counts in int, so the string is encoded in runs.
// A run whose length is a multiple of three has no padding, so the results simply join.
std::string base64_text(const std::string &text)
{
    constexpr std::size_t run = std::size_t{3} * 256;
    char encoded[run / 3 * 4 + 1];
    std::string result;
    for (std::size_t start = 0; start < text.size(); start += run) {
        const std::size_t left = text.size() - start;
        base64_encode(text.data() + start, static_cast<int>(left < run ? left : run), encoded);
        result += encoded;
    }
    return result;
}

std::string credentials_line(const char *user, const char *password)
{
    const std::string credentials = std::string(user) + ":" + password;
    return "Authorization: Basic " + base64_text(credentials) + "\r\n";
}

const char *skip_white_space(const char *text)
{
    while (ascii_is_space(*text))
        ++text;
    return text;
}

} // namespace

void web_parse_url(const char *url, WebUrl *result)
{
    std::string text = url;
    for (char &c : text)
        c = ascii_to_upper(c);

    const std::size_t colon = text.find(':');
    result->scheme = colon == std::string::npos ? "HTTP" : text.substr(0, colon);
    std::size_t start = colon == std::string::npos ? 0 : colon + 1;
    if (text.compare(start, 2, "//") == 0)
        start += 2;

    std::size_t end = start;
    while (end < text.size() && belongs_to_host(text[end]))
        ++end;
    const std::string host_run = text.substr(start, end - start);
    const std::size_t port_mark = host_run.find(':');
    result->host = host_run.substr(0, port_mark);
    result->port = port_mark == std::string::npos ? default_port
                                                  : ascii_to_int(host_run.c_str() + port_mark + 1);
}

void web_compose_request(const WebRequest &request, WebRequestText *text)
{
    const bool is_post = std::strcmp(request.method, "POST") == 0;
    std::string &lines = text->lines;
    lines.assign(request.extra_header, request.extra_header_length);
    if (!lines.empty())
        lines += "\r\n";
    const std::size_t host_start = lines.size();
    lines.append("Host: ").append(request.host).append("\r\n");
    const std::size_t credentials_start = lines.size();
    if (request.user != nullptr && request.password != nullptr)
        lines += credentials_line(request.user, request.password);

    const std::string_view composed = lines; // complete: it does not move any more
    text->pieces = {
        is_post ? "POST " : "GET ",
        request.path,
        " HTTP/1.0\r\n",
        "Accept: image/gif, image/x-xbitmap, image/jpeg, image/pjpeg, */*\r\n",
        "Accept-Language: en-us\r\n",
        "User-Agent: Velmora_Auto1\r\n",
        referer_line,
    };
    std::vector<std::string_view> &pieces = text->pieces;
    if (host_start > 0)
        pieces.push_back(composed.substr(0, host_start));
    pieces.push_back(composed.substr(host_start, credentials_start - host_start));
    if (credentials_start < composed.size())
        pieces.push_back(composed.substr(credentials_start));
    pieces.emplace_back("\r\n");
    if (is_post)
        pieces.emplace_back(request.body, request.body_length);
}

int web_scan_status_line(const char *text, WebStatusLine *line)
{
    *line = WebStatusLine{};
    text = ascii_scan_int(text, &line->major_version);
    if (text == nullptr)
        return 0;
    if (*text != '.')
        return 1;
    text = ascii_scan_int(text + 1, &line->minor_version);
    if (text == nullptr)
        return 1;
    text = ascii_scan_int(text, &line->status);
    if (text == nullptr)
        return 2;
    text = skip_white_space(text);
    const std::size_t length = ascii_length_before(text, "\r\n");
    if (length == 0)
        return 3;
    constexpr std::size_t longest = sizeof line->reason - 1;
    std::memcpy(line->reason, text, length < longest ? length : longest);
    return 4;
}

WebStatusVerdict web_judge_status(const char *header, WebStatusLine *line, const char **status_text)
{
    constexpr std::string_view mark = "HTTP/";
    *line = WebStatusLine{};
    *status_text = nullptr;
    const std::size_t found = std::string_view(header).find(mark);
    if (found == std::string_view::npos)
        return WebStatusMissing;
    *status_text = header + found + mark.size();
    if (web_scan_status_line(*status_text, line) != 4)
        return WebStatusMalformed;
    return line->status >= 200 && line->status <= 299 ? WebStatusAccepted : WebStatusRejected;
}

char *web_status_error(WebStatusVerdict verdict, const WebStatusLine &line, const char *status_text)
{
    switch (verdict) {
    case WebStatusAccepted:
        return nullptr;
    case WebStatusMissing:
        return alloc_printf("Invalid non-HTTP header string returned from web site");
    case WebStatusMalformed:
        return alloc_printf("Invalid HTTP return status (can't parse header HTTP/%s)", status_text);
    case WebStatusRejected:
        break;
    }
    return alloc_printf("Bad HTTP status %d from web site: %s", line.status, line.reason);
}

std::size_t web_header_size(const char *bytes, std::size_t size)
{
    bool line_is_empty = true;
    for (std::size_t i = 0; i < size; ++i) {
        if (bytes[i] == '\n' && line_is_empty)
            return i;
        if (bytes[i] == '\n')
            line_is_empty = true;
        else if (bytes[i] != '\r')
            line_is_empty = false;
    }
    return size;
}

} // namespace quintral
