// The steps of an update check, each against a second way of saying the same: a saved reply against
// its lines and against web_check_reply and web_read_update_body, a query's request against the
// other order of its parts, two versions against one another.
//
// An input: a byte that chooses the step. '0' is a reply: the own version, a NUL, and the bytes of
// the reply, which may hold NULs. '1' is a query: a byte that gives a service (bit 0) and a proxy
// (bit 1), the eight values, the service, and the proxy's user and password. '2' is two versions.
#include "fuzz/fuzz.h"
#include "web/form-body.h"
#include "web/update-check.h"
#include "web/version-update.h"

#include <algorithm>
#include <string>
#include <vector>

namespace {

using namespace quintral;
using namespace quintral::fuzz;

// A reply

std::string up_to_nul(const std::string &bytes)
{
    return bytes.c_str();
}

// The size of the header: the lines before the first that is empty, and the carriage returns of
// that one. All of it if each line has something.
std::size_t header_size(const std::string &bytes)
{
    std::size_t line = 0;
    for (;;) {
        const std::size_t end = bytes.find('\n', line);
        if (end == std::string::npos)
            return bytes.size();
        if (bytes.find_first_not_of('\r', line) == end)
            return end;
        line = end + 1;
    }
}

void check_text(const char *text, const std::string &expected)
{
    FUZZ_CHECK(text != nullptr && text == expected);
}

void check_optional(const char *text, const std::string &expected)
{
    if (expected.empty())
        FUZZ_CHECK(text == nullptr);
    else
        check_text(text, expected);
}

std::string without_last_carriage_return(std::string text)
{
    if (!text.empty() && text.back() == '\r')
        text.pop_back();
    return text;
}

std::string trimmed(const std::string &text)
{
    const std::size_t start = text.find_first_not_of(" \t");
    if (start == std::string::npos)
        return "";
    return text.substr(start, text.find_last_not_of(" \t") + 1 - start);
}

std::string without_carriage_returns_of_lines(std::string text)
{
    text = without_last_carriage_return(text);
    for (std::size_t at = 0; (at = text.find("\r\n", at)) != std::string::npos; ++at)
        text.erase(at, 1);
    return text;
}

// The status, judged by the call that every other transaction uses.
void check_status(const WebUpdateReply &reply)
{
    const bool is_accepted = web_check_reply(reply.header) == 0;
    const bool passed = reply.failure == WebNoFailure || reply.failure == WebNotAnUpdate;
    FUZZ_CHECK(passed == is_accepted);
    FUZZ_CHECK(passed || reply.failure == WebNotHttp || reply.failure == WebBadStatus);
    if (!is_accepted)
        check_text(reply.error, web_last_error());
    if (is_accepted)
        FUZZ_CHECK(reply.http_status >= 200 && reply.http_status <= 299);
    if (is_accepted || reply.failure == WebBadStatus)
        FUZZ_CHECK(reply.reason != nullptr && std::strlen(reply.reason) < 128);
    if (reply.reason != nullptr)
        FUZZ_CHECK(reply.reason[0] != '\0' && std::strpbrk(reply.reason, "\r\n") == nullptr);
}

// The values, read from the body by the call that has buffers.
void check_values(const WebUpdateReply &reply)
{
    const std::string body = reply.body;
    const ExactBlock scratch(body);
    std::string values[4];
    for (std::string &value : values)
        value.assign(body.size() + 1, '\0');
    const WebUpdateBuffers buffers = {static_cast<unsigned>(body.size() + 1), &values[0][0],
                                      &values[1][0], &values[2][0], &values[3][0]};
    const int result = web_read_update_body(scratch.data, &buffers);
    FUZZ_CHECK((result == 0) == (reply.failure == WebNoFailure));
    check_optional(reply.version, trimmed(without_last_carriage_return(values[1].c_str())));
    check_optional(reply.url, without_last_carriage_return(values[2].c_str()));
    check_optional(reply.button, without_last_carriage_return(values[3].c_str()));
    if (result == 0)
        check_text(reply.message, without_carriage_returns_of_lines(values[0].c_str()));
    else
        FUZZ_CHECK(reply.message == nullptr);
}

void check_newer(const WebUpdateReply &reply, const char *own_version)
{
    int order = 0;
    const bool is_known = reply.failure == WebNoFailure &&
                          web_compare_versions(reply.version, own_version, &order) == 0;
    FUZZ_CHECK(reply.newer == (!is_known ? WebNewerUnknown : order > 0 ? WebNewer : WebNotNewer));
}

void fuzz_reply(Input *input)
{
    const std::string own_version = take_text(input);
    const std::string bytes = take_bytes(input, input->left);
    const ExactBlock block(bytes.size());
    std::memcpy(block.data, bytes.data(), bytes.size());

    WebUpdateReply reply;
    web_update_reply_init(&reply);
    for (int i = 0; i < 2; ++i) { // the second time into what the first one left
        const int result =
            web_read_update_reply(block.data, block.size, own_version.c_str(), &reply);
        FUZZ_CHECK(result == (reply.failure == WebNoFailure ? 0 : -1));
        FUZZ_CHECK((reply.error == nullptr) == (result == 0));
        FUZZ_CHECK(reply.error == nullptr || reply.error[0] != '\0');
        const std::size_t size = header_size(bytes);
        check_text(reply.header, up_to_nul(bytes.substr(0, size)));
        check_text(reply.body, size == bytes.size() ? "" : up_to_nul(bytes.substr(size + 1)));
        check_status(reply);
        check_newer(reply, own_version.c_str());
        if (reply.failure == WebNoFailure || reply.failure == WebNotAnUpdate)
            check_values(reply);
        else
            FUZZ_CHECK(reply.version == nullptr && reply.url == nullptr &&
                       reply.button == nullptr && reply.message == nullptr);
    }
    web_update_reply_free(&reply);
    FUZZ_CHECK(reply.header == nullptr && reply.failure == WebNoFailure);
}

// A query

void take_setting(Input *input, char (&setting)[256])
{
    const std::string text = take_text(input).substr(0, sizeof setting - 1);
    std::memcpy(setting, text.c_str(), text.size() + 1);
}

bool ends_with(const std::string &text, const std::string &end)
{
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

bool begins_with(const std::string &text, const std::string &start)
{
    return text.compare(0, start.size(), start) == 0;
}

// The bytes of a request against the steps that compose it.
void check_request(const std::string &bytes, const WebUpdateQuery &query, float version)
{
    char sent[64];
    web_format_version(version, sent, sizeof sent);
    const WebField fields[] = {{"product", query.product},
                               {"productline", query.product_line},
                               {"version", sent},
                               {"version_name", query.version_name},
                               {"os", query.os},
                               {"os_version", query.os_version},
                               {"machine_id", query.machine_id},
                               {"processor_arch", query.processor_arch}};
    std::string header;
    std::string body;
    web_form_body(8, fields, header, body);
    const std::string host = query.service != nullptr ? query.service : web_service_host;
    FUZZ_CHECK(
        begins_with(bytes, "POST http://" + host + "/version-update.php HTTP/1.0\r\nAccept: "));
    FUZZ_CHECK(ends_with(bytes, "\r\n\r\n" + body));
    FUZZ_CHECK(bytes.find("\r\n" + header + "\r\nHost: ") != std::string::npos);
    const ProxySettings *proxy = query.proxy;
    const bool has_credentials =
        proxy != nullptr && proxy->user[0] != '\0' && proxy->password[0] != '\0';
    if (host.find('\n') == std::string::npos) // which can be anything else
        FUZZ_CHECK((bytes.find("\r\nAuthorization: Basic ") != std::string::npos) ==
                   has_credentials);
}

void fuzz_query(Input *input)
{
    const unsigned given = take_byte(input);
    const std::string values[8] = {take_text(input), take_text(input), take_text(input),
                                   take_text(input), take_text(input), take_text(input),
                                   take_text(input), take_text(input)};
    const std::string service = take_text(input);
    ProxySettings proxy = {};
    take_setting(input, proxy.user);
    take_setting(input, proxy.password);
    const WebUpdateQuery query = {values[0].c_str(),
                                  values[1].c_str(),
                                  values[2].c_str(),
                                  values[3].c_str(),
                                  values[4].c_str(),
                                  values[5].c_str(),
                                  values[6].c_str(),
                                  values[7].c_str(),
                                  (given & 1U) != 0 ? service.c_str() : nullptr,
                                  (given & 2U) != 0 ? &proxy : nullptr};
    std::string bytes = "left over";
    web_compose_update_request(&query, bytes);

    float version = 0;
    if (web_read_product_version(values[2].c_str(), &version) != 0) {
        FUZZ_CHECK(bytes.empty());
        return;
    }
    check_request(bytes, query, version);
}

// Versions

std::string without_leading_zeros(const std::string &digits)
{
    return digits.substr(std::min(digits.find_first_not_of('0'), digits.size()));
}

// The order of two whole numbers of any length.
int order_of_numbers(const std::string &first, const std::string &second)
{
    const std::string one = without_leading_zeros(first);
    const std::string other = without_leading_zeros(second);
    if (one.size() != other.size())
        return one.size() < other.size() ? -1 : 1;
    return one == other ? 0 : one < other ? -1 : 1;
}

// The parts of a version; empty if it is not one.
std::vector<std::string> parts_of(const std::string &version)
{
    std::vector<std::string> parts(1);
    for (char c : version) {
        if (c == '.')
            parts.emplace_back();
        else
            parts.back() += c;
    }
    for (const std::string &part : parts) {
        if (part.empty() || part.find_first_not_of("0123456789") != std::string::npos)
            return {};
    }
    return parts;
}

// The order of two versions: the second parts, the decimal places, are padded to one length.
int order_of_versions(std::vector<std::string> first, std::vector<std::string> second)
{
    const std::size_t parts = std::max({first.size(), second.size(), std::size_t{2}});
    first.resize(parts, "0");
    second.resize(parts, "0");
    const std::size_t places = std::max(first[1].size(), second[1].size());
    first[1].resize(places, '0');
    second[1].resize(places, '0');
    int order = 0;
    for (std::size_t i = 0; i < parts && order == 0; ++i)
        order = order_of_numbers(first[i], second[i]);
    return order;
}

void fuzz_versions(Input *input)
{
    const std::string texts[] = {take_text(input), take_text(input)};
    const ExactBlock first(texts[0]);
    const ExactBlock second(texts[1]);
    int order = 2;
    int reverse = 2;
    const int result = web_compare_versions(first.data, second.data, &order);
    FUZZ_CHECK(web_compare_versions(second.data, first.data, &reverse) == result);
    FUZZ_CHECK(result == 0 ? order == -reverse : order == 2 && reverse == 2);
    const std::vector<std::string> first_parts = parts_of(texts[0]);
    const std::vector<std::string> second_parts = parts_of(texts[1]);
    FUZZ_CHECK(result == (first_parts.empty() || second_parts.empty() ? -1 : 0));
    if (result != 0)
        return;
    FUZZ_CHECK(order == order_of_versions(first_parts, second_parts));
    FUZZ_CHECK(web_compare_versions(first.data, first.data, &order) == 0 && order == 0);
    FUZZ_CHECK(web_compare_versions(("0" + texts[0]).c_str(), first.data, &order) == 0 &&
               order == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    static constexpr Case steps[] = {fuzz_reply, fuzz_query, fuzz_versions};
    Input input = {bytes, size};
    steps[(take_byte(&input) - '0') % 3](&input);
    return 0;
}
