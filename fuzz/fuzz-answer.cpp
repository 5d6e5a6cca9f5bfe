// The utility's output for an answer of the service. The JSON object can be parsed, and its values
// are the given ones if those are well-formed UTF-8. The text output is what safe_text promises.
// Neither contains a byte that controls a terminal.
//
// An input: a byte with what was given (bit 0 an answer, bit 1 an error, bits 2 and 3 the status),
// then version, address, button, message, product version, error, service and proxy.
#include "fuzz/fuzz.h"
#include "support/error.h"
#include "tool/answer.h"
#include "tool/safe-text.h"
#include "tool/streams.h"
#include "web/update-check.h"

#include <string>

#include <nlohmann/json.hpp>

namespace {

using namespace quintral;
using namespace quintral::fuzz;
using Json = nlohmann::json;

// What the print handler and the message handler received.
std::string printed;
std::string reported;
int reported_level = -1;

void collect_text(const char *text, const char * /*tag*/)
{
    printed += text;
}

void collect_message(MessageLevel level, const char *text)
{
    reported_level = level;
    reported += text;
}

// A row of table 3-7 in Unicode 15: the lead bytes, the second bytes allowed after them, and the
// length of the character in bytes.
struct WellFormed {
    unsigned first_lead, last_lead, first_second, last_second;
    std::size_t length;
};

constexpr WellFormed well_formed[] = {
    {0x00, 0x7F, 0x00, 0xFF, 1}, {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
    {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3},
    {0xF0, 0xF0, 0x90, 0xBF, 4}, {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
};

unsigned byte_at(const std::string &text, std::size_t at)
{
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

// The length of the well-formed character that starts at an index, or 0.
std::size_t character_length(const std::string &text, std::size_t at)
{
    const unsigned lead = byte_at(text, at);
    const unsigned second = byte_at(text, at + 1);
    for (const WellFormed &row : well_formed) {
        if (lead < row.first_lead || lead > row.last_lead)
            continue;
        bool whole = second >= row.first_second && second <= row.last_second;
        for (std::size_t i = 2; i < row.length; ++i)
            whole = whole && byte_at(text, at + i) / 64 == 2;
        return whole ? row.length : 0;
    }
    return 0;
}

// The text without the bytes that belong to no well-formed character.
std::string well_formed_part(const std::string &text)
{
    std::string part;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = character_length(text, at);
        part.append(text, at, length);
        at += length > 0 ? length : 1;
    }
    return part;
}

bool is_utf8(const std::string &text)
{
    return well_formed_part(text).size() == text.size();
}

// True if a well-formed text contains a character whose encoding consists of `lead` and one byte
// from `first` to `last`.
bool holds_character(const std::string &text, const char *lead, unsigned first, unsigned last)
{
    const std::size_t length = std::strlen(lead);
    for (std::size_t at = text.find(lead); at != std::string::npos; at = text.find(lead, at + 1)) {
        const unsigned end = static_cast<unsigned char>(text.c_str()[at + length]);
        if (end >= first && end <= last)
            return true;
    }
    return false;
}

bool holds_control_byte(const std::string &text, const std::string &allowed)
{
    for (char c : text) {
        const bool is_control = (c >= '\0' && c < ' ') || c == '\x7F';
        if (is_control && allowed.find(c) == std::string::npos)
            return true;
    }
    return false;
}

bool is_safe(const std::string &text, const char *allowed)
{
    return is_utf8(text) && !holds_control_byte(text, allowed) &&
           !holds_character(text, "\xC2", 0x80, 0x9F) &&     // C1 controls
           !holds_character(text, "\xD8", 0x9C, 0x9C) &&     // U+061C
           !holds_character(text, "\xE2\x80", 0x8E, 0x8F) && // U+200E, U+200F
           !holds_character(text, "\xE2\x80", 0xAA, 0xAE) && // U+202A to U+202E
           !holds_character(text, "\xE2\x81", 0xA6, 0xA9);   // U+2066 to U+2069
}

// What safe_line makes of a safe text, except that it also truncates it.
std::string with_line_feeds_escaped(const std::string &text)
{
    std::string result;
    for (char c : text) {
        if (c == '\n')
            result += "\\x0A";
        else
            result += c;
    }
    return result;
}

constexpr std::size_t longest_escape = 12; // of a character of three bytes

void check_safe_text(const std::string &text)
{
    const ExactBlock block(text);
    const std::string safe = safe_text(block.data);
    FUZZ_CHECK(is_safe(safe, "\n\t"));
    if (text.find('\\') == std::string::npos)
        FUZZ_CHECK(without_escapes(safe, "\\x", "0123456789ABCDEF") == text);
    if (is_safe(text, "\n\t"))
        FUZZ_CHECK(safe == text);

    const std::string line = safe_line(block.data);
    const std::string whole = with_line_feeds_escaped(safe);
    FUZZ_CHECK(is_safe(line, "\t"));
    FUZZ_CHECK(whole.compare(0, line.size(), line) == 0);
    if (whole.size() <= safe_line_limit)
        FUZZ_CHECK(line == whole);
    else
        FUZZ_CHECK(line.size() <= safe_line_limit &&
                   line.size() > safe_line_limit - longest_escape);
}

// Removes every U+FFFD. Returns how many there were.
std::size_t remove_replacement_characters(std::string *text)
{
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text->find("\xEF\xBF\xBD", at)) != std::string::npos; ++count)
        text->erase(at, 3);
    return count;
}

// A well-formed text is read back unchanged. In any other, each ill-formed byte is read as U+FFFD.
void check_json_text(const Json &value, const std::string &text)
{
    FUZZ_CHECK(value.is_string());
    std::string read = value.get<std::string>();
    std::string expected = well_formed_part(text);
    if (expected == text)
        FUZZ_CHECK(read == text);
    const std::size_t ill_formed = text.size() - expected.size();
    const std::size_t given = remove_replacement_characters(&expected);
    FUZZ_CHECK(remove_replacement_characters(&read) == ill_formed + given);
    FUZZ_CHECK(read == expected);
}

void check_json_value(const Json &value, const char *text)
{
    if (text == nullptr)
        FUZZ_CHECK(value.is_null());
    else
        check_json_text(value, text);
}

void check_json(const RunOutcome &outcome, const RunTarget &target)
{
    const std::string text = outcome_json(outcome, target);
    FUZZ_CHECK(!text.empty() && text.back() == '\n');
    FUZZ_CHECK(is_safe(text.substr(0, text.size() - 1), ""));
    const Json object = Json::parse(text, nullptr, false);
    FUZZ_CHECK(object.is_object() && object.size() == 12);
    const WebUpdateReply *reply = outcome.reply;
    FUZZ_CHECK(object["status"] == outcome.status);
    FUZZ_CHECK(object["exit_status"] == outcome.exit_status);
    const bool knows_newer = reply != nullptr && reply->newer != WebNewerUnknown;
    FUZZ_CHECK(object["newer"].is_null() == !knows_newer);
    if (knows_newer)
        FUZZ_CHECK(object["newer"] == (reply->newer == WebNewer));
    check_json_value(object["version"], reply ? reply->version : nullptr);
    check_json_value(object["url"], reply ? reply->url : nullptr);
    check_json_value(object["button"], reply ? reply->button : nullptr);
    check_json_value(object["message"], reply ? reply->message : nullptr);
    check_json_value(object["error"], outcome.error);
    check_json_value(object["reason"], outcome.reason);
    FUZZ_CHECK(object["http_status"].is_null() == (outcome.http_status == 0));
    if (outcome.http_status != 0)
        FUZZ_CHECK(object["http_status"] == outcome.http_status);
    check_json_text(object["service"], target.service);
    check_json_value(object["proxy"], target.proxy.empty() ? nullptr : target.proxy.c_str());
}

// A line of the text output; empty if the value was not given.
std::string line_of(const char *key, const char *value)
{
    return value == nullptr ? "" : key + (": " + safe_text(value)) + "\n";
}

void check_text(const WebUpdateReply &reply)
{
    const PrintHandler previous = set_print_handler(collect_text);
    printed.clear();
    print_answer(reply);
    set_print_handler(previous);

    std::string expected = line_of("Version", reply.version) + line_of("URL", reply.url) +
                           line_of("Button", reply.button) + safe_text(reply.message);
    if (reply.message[0] != '\0' && expected.back() != '\n')
        expected += '\n';
    FUZZ_CHECK(printed == expected);
    FUZZ_CHECK(is_safe(printed, "\n\t"));
}

void check_failure(const std::string &error)
{
    const MessageHandler previous = set_message_handler(collect_message);
    reported.clear();
    show_failure(error.c_str());
    set_message_handler(previous);
    FUZZ_CHECK(reported_level == Error);
    FUZZ_CHECK(reported == safe_line(error.c_str()));
}

std::string take_checked_text(Input *input)
{
    std::string text = take_text(input);
    check_safe_text(text);
    return text;
}

char *null_if_empty(const ExactBlock &value)
{
    return value.data[0] != '\0' ? value.data : nullptr;
}

WebUpdateNewer compare(const char *version, const std::string &product_version)
{
    int order = 0;
    if (web_compare_versions(version, product_version.c_str(), &order) != 0)
        return WebNewerUnknown;
    return order > 0 ? WebNewer : WebNotNewer;
}

void check_truncated(const char *value, const std::string &text)
{
    FUZZ_CHECK((value != nullptr ? value : "") == text.substr(0, longest_value));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    static const char *const statuses[] = {"answered", "failed", "timeout", "cancelled"};
    Input input = {bytes, size};
    const unsigned given = take_byte(&input);
    const std::string values[] = {take_checked_text(&input), take_checked_text(&input),
                                  take_checked_text(&input), take_checked_text(&input)};
    const ExactBlock blocks[] = {ExactBlock(values[0]), ExactBlock(values[1]),
                                 ExactBlock(values[2]), ExactBlock(values[3])};
    const std::string product_version = take_text(&input);
    const std::string error = take_checked_text(&input);
    const RunTarget target = {take_text(&input), take_text(&input), ""};

    WebUpdateReply reply; // its strings are those of the blocks and are not released
    web_update_reply_init(&reply);
    reply.version = null_if_empty(blocks[0]);
    reply.url = null_if_empty(blocks[1]);
    reply.button = null_if_empty(blocks[2]);
    reply.message = blocks[3].data;
    reply.newer = compare(reply.version, product_version);
    truncate_values(&reply, false);
    check_truncated(reply.version, values[0]);
    check_truncated(reply.url, values[1]);
    check_truncated(reply.button, values[2]);
    check_truncated(reply.message, values[3]);
    check_text(reply);
    const bool failed = (given & 2U) != 0;
    check_json({statuses[given >> 2 & 3], static_cast<int>(given),
                (given & 1U) != 0 ? &reply : nullptr, failed ? error.c_str() : nullptr,
                failed ? web_update_failure_name(WebBadStatus) : nullptr,
                failed ? static_cast<int>(given) : 0},
               target);
    check_failure(error);
    return 0;
}
