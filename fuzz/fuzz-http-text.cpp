// The web client's strings: URLs, status lines, reply headers, requests, the two notations for a
// proxy, and base64. Each result is compared with a second computation: a URL is composed from its
// parts and parsed again, a status line is read by scanf, a request is composed line by line.
//
// An input: cases, each a byte that chooses a kind from the table at the end, then the strings of
// that kind.
#include "fuzz/fuzz.h"
#include "support/ascii.h"
#include "web/base64.h"
#include "web/http-text.h"
#include "web/proxy-settings.h"
#include "web/transaction.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace quintral;
using namespace quintral::fuzz;

// The part after the scheme and its slashes, up to the first byte that cannot occur in a host.
std::string host_and_port(const std::string &url)
{
    const std::size_t colon = url.find(':'); // without one, the text starts with the host
    std::string rest = url.substr(colon == std::string::npos ? 0 : colon + 1);
    if (rest.substr(0, 2) == "//")
        rest.erase(0, 2);
    return rest.substr(0, rest.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-.:"));
}

void fuzz_url(Input *input)
{
    const std::string text = take_text(input);
    const ExactBlock url(text);
    WebUrl parsed;
    web_parse_url(url.data, &parsed);

    const std::string upper = upper_case(text);
    const std::string host = host_and_port(upper);
    const std::size_t mark = host.find(':');
    const bool has_scheme = upper.find(':') != std::string::npos;
    FUZZ_CHECK(parsed.scheme == (has_scheme ? upper.substr(0, upper.find(':')) : "HTTP"));
    FUZZ_CHECK(parsed.host == host.substr(0, mark));
    if (mark == std::string::npos)
        FUZZ_CHECK(parsed.port == 80);
    else
        FUZZ_CHECK(parsed.port == ascii_to_int(host.c_str() + mark + 1));

    const ExactBlock again(parsed.scheme + "://" + parsed.host + ":" + std::to_string(parsed.port));
    WebUrl reparsed;
    web_parse_url(again.data, &reparsed);
    FUZZ_CHECK(reparsed.scheme == parsed.scheme && reparsed.host == parsed.host &&
               reparsed.port == parsed.port);
}

void fuzz_status_line(Input *input)
{
    const std::string text = take_text(input);
    const ExactBlock block(text);
    WebStatusLine line;
    std::memset(&line, ExactBlock::fill_byte, sizeof line);
    const int items = web_scan_status_line(block.data, &line);
    FUZZ_CHECK(items >= 0 && items <= 4);
    FUZZ_CHECK(std::memchr(line.reason, '\0', sizeof line.reason) != nullptr);
    FUZZ_CHECK((items == 4) == (line.reason[0] != '\0'));
    if (longest_digit_run(text) > 9)
        return;

    int major = 0;
    int minor = 0;
    int status = 0;
    char reason[128] = "";
    const int found =
        std::sscanf(text.c_str(), "%d.%d %d %127[^\r\n]", &major, &minor, &status, reason);
    FUZZ_CHECK(items == std::max(found, 0));
    FUZZ_CHECK(line.major_version == major && line.minor_version == minor &&
               line.status == status && std::strcmp(line.reason, reason) == 0);
}

void fuzz_reply(Input *input)
{
    const std::string text = take_text(input);
    const ExactBlock header(text);
    web_set_error("none yet");
    const int result = web_check_reply(header.data);

    const std::size_t mark = text.find("HTTP/");
    WebStatusLine line = {};
    const int items =
        mark == std::string::npos ? 0 : web_scan_status_line(text.c_str() + mark + 5, &line);
    const bool acceptable = items == 4 && line.status / 100 == 2;
    FUZZ_CHECK(result == (acceptable ? 0 : -1));
    FUZZ_CHECK((std::strcmp(web_last_error(), "none yet") == 0) == acceptable);
}

// Encodes six bits at a time, each extracted from the bytes separately.
std::string base64_bit_by_bit(const std::string &bytes)
{
    static const char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t bit = 0; bit < bytes.size() * 8; bit += 6) {
        unsigned value = 0;
        for (std::size_t i = bit; i < bit + 6; ++i) {
            const unsigned byte =
                i / 8 < bytes.size() ? static_cast<unsigned char>(bytes[i / 8]) : 0;
            value = value << 1 | (byte >> (7 - i % 8) & 1U);
        }
        text += digits[value];
    }
    text.append((4 - text.size() % 4) % 4, '=');
    return text;
}

std::string join(const std::vector<std::string_view> &pieces)
{
    std::string joined;
    for (const std::string_view piece : pieces)
        joined += piece;
    return joined;
}

// The header lines that are the same in every request.
std::string fixed_lines()
{
    WebRequestText text;
    web_compose_request({"GET", "", "", "", 0, "", 0, nullptr, nullptr}, &text);
    const std::string request = join(text.pieces);
    const std::size_t start = request.find("\r\n") + 2;
    return request.substr(start, request.rfind("Host: ") - start);
}

// Composes a request from its parts; the credentials may be empty.
std::string expected_request(const WebRequest &request, const std::string &extra,
                             const std::string &body, const std::string &credentials)
{
    static const std::string fixed = fixed_lines();
    const bool posts = std::strcmp(request.method, "POST") == 0;
    std::string text = posts ? "POST " : "GET ";
    text += std::string(request.path) + " HTTP/1.0\r\n" + fixed;
    if (!extra.empty())
        text += extra + "\r\n";
    text += std::string("Host: ") + request.host + "\r\n";
    if (!credentials.empty())
        text += "Authorization: Basic " + base64_bit_by_bit(credentials) + "\r\n";
    return text + "\r\n" + (posts ? body : "");
}

void fuzz_request(Input *input)
{
    const unsigned given = take_byte(input);
    const std::string method = take_text(input);
    const std::string path = take_text(input);
    const std::string host = take_text(input);
    const std::string user = take_text(input);
    const std::string password = take_text(input);
    const std::string extra = take_text(input);
    const std::string body = take_bytes(input, take_byte(input));
    const ExactBlock user_block(user);
    const ExactBlock password_block(password);
    const bool has_credentials = given % 4 == 3;
    const WebRequest request = {method.c_str(),
                                path.c_str(),
                                host.c_str(),
                                extra.data(),
                                extra.size(),
                                body.data(),
                                body.size(),
                                (given & 1U) != 0 ? user_block.data : nullptr,
                                (given & 2U) != 0 ? password_block.data : nullptr};
    WebRequestText text;
    text.pieces = {"left from before"};
    text.lines = "left from before";
    web_compose_request(request, &text);

    const std::string credentials = has_credentials ? user + ":" + password : "";
    FUZZ_CHECK(join(text.pieces) == expected_request(request, extra, body, credentials));
}

// A proxy and its port, or an empty host.
struct Proxy {
    std::string host;
    int port;
};

// The number that a text of digits is, or 0 if it is none or above 65535.
int port_of(const std::string &text)
{
    const std::size_t start = std::min(text.find_first_not_of('0'), text.size());
    const bool is_short =
        text.find_first_not_of("0123456789") == std::string::npos && text.size() - start <= 5;
    const int port = is_short ? std::atoi(text.c_str() + start) : 0;
    return port <= 65535 ? port : 0;
}

// Reads "[http://][user:password@]host:port[/]" from its end.
Proxy read_proxy(const std::string &text, std::size_t capacity)
{
    std::string rest = text;
    if (lower_case(text.substr(0, 7)) == "http://")
        rest.erase(0, 7);
    else if (text.find("://") != std::string::npos)
        return {"", 0};
    rest.erase(0, rest.rfind('@') + 1);
    if (!rest.empty() && rest.back() == '/')
        rest.pop_back();
    const std::size_t colon = rest.rfind(':');
    if (colon == std::string::npos)
        return {"", 0};
    const std::string host = rest.substr(0, colon);
    const int port = port_of(rest.substr(colon + 1));
    const bool is_host = !host.empty() && host.size() < capacity &&
                         host.find_first_of(":/ \t\r\n") == std::string::npos;
    return is_host && port > 0 ? Proxy{host, port} : Proxy{"", 0};
}

void fuzz_proxy_text(Input *input)
{
    const ExactBlock host(1 + take_byte(input) % 64);
    const std::string text = take_text(input);
    const ExactBlock block(text);
    std::int32_t port = -1;
    const bool is_proxy = read_proxy_text(block.data, host.data, host.size, &port);
    const Proxy expected = read_proxy(text, host.size);
    FUZZ_CHECK(is_proxy == !expected.host.empty());
    FUZZ_CHECK(holds_text(host, expected.host) && port == expected.port);
}

// Truncated to what the record holds.
std::string truncated(const std::string &text)
{
    return text.substr(0, 255);
}

void fuzz_proxy_settings(Input *input)
{
    const std::string proxy = take_text(input);
    const std::string user = take_text(input);
    const std::string password = take_text(input);
    const ExactBlock proxy_block(proxy);
    const ExactBlock user_block(user);
    const ExactBlock password_block(password);
    ProxySettings settings;
    std::memset(&settings, ExactBlock::fill_byte, sizeof settings);
    const int result =
        settle_proxy(&settings, proxy_block.data, user_block.data, password_block.data);
    const std::size_t colon = proxy.find(':');
    const std::int32_t port =
        colon == std::string::npos ? 0 : ascii_to_int(proxy.c_str() + colon + 1);
    FUZZ_CHECK(result == (port != 0 ? 0 : -1));
    if (result != 0)
        return;
    FUZZ_CHECK(settings.port == port);
    FUZZ_CHECK(settings.host == truncated(proxy.substr(0, colon)));
    FUZZ_CHECK(settings.user == truncated(user));
    FUZZ_CHECK(settings.password == truncated(password));
}

void fuzz_base64(Input *input)
{
    const std::string bytes = take_bytes(input, take_byte(input));
    const int count = static_cast<int>(bytes.size());
    const ExactBlock destination(static_cast<std::size_t>(base64_encoded_length(count)) + 1);
    base64_encode(bytes.data(), count, destination.data);
    FUZZ_CHECK(holds_text(destination, base64_bit_by_bit(bytes)));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    static constexpr Case kinds[] = {
        fuzz_url,            // '0'
        fuzz_status_line,    // '1'
        fuzz_reply,          // '2'
        fuzz_request,        // '3'
        fuzz_proxy_text,     // '4'
        fuzz_proxy_settings, // '5'
        fuzz_base64,         // '6'
    };
    Input input = {bytes, size};
    run_cases(&input, kinds, '0');
    return 0;
}
