// The answer: read from a reply, truncated, printed, and as a JSON object.
#include "support/error.h"
#include "tool/answer.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "tests/harness/message-handler-guard.h"
#include "tests/tool/json-line.h"

namespace quintral::tests::tool {
namespace {

// A reply that was read, and is released.
struct ReplyRead {
    WebUpdateReply reply;
    int result;

    explicit ReplyRead(const std::string &body, const char *own_version = "5.2")
    {
        const std::string bytes = "HTTP/1.0 200 OK\r\n\r\n" + body;
        web_update_reply_init(&reply);
        result = web_read_update_reply(bytes.data(), bytes.size(), own_version, &reply);
    }
    ~ReplyRead()
    {
        web_update_reply_free(&reply);
    }
    ReplyRead(const ReplyRead &) = delete;
    ReplyRead &operator=(const ReplyRead &) = delete;
};

std::string body_of(const std::string &version, const std::string &url, const std::string &button,
                    const std::string &message)
{
    return "Version: " + version + "\nURL: " + url + "\nButton: " + button +
           "\nMessage: " + message;
}

std::string or_none(const char *value)
{
    return value != nullptr ? value : "(none)";
}

// The handlers of messages and of printed text, which a test replaces.

std::string shown;
std::string printed;

void keep_message(MessageLevel level, const char *text)
{
    shown += (level == Note ? "Note: " : "?") + std::string(text) + "\n";
}

void print_with_tag(const char *text, const char *tag)
{
    printed += std::string("<") + tag + ">" + text;
}

TEST(TruncateValues, KeepsThe65535BytesOfEachValueAndNotesIt)
{
    const std::string shorter(65534, '7');
    const std::string longest(65535, '7');
    const std::string longer(65536, '7');
    const std::string longer_message(200000, 'm');
    const MessageHandlerGuard guard(keep_message);
    const struct {
        std::string body;
        std::string notes;
    } rows[] = {
        {body_of(shorter, shorter, shorter, shorter), ""},
        {body_of(longest, "a", "b", "c"),
         "Note: The version may have been truncated to 65535 bytes\n"},
        {body_of("1", longer, "b", "c"),
         "Note: The web address may have been truncated to 65535 bytes\n"},
        {body_of("1", "a", longest, longer_message),
         "Note: The button caption may have been truncated to 65535 bytes\n"
         "Note: The message may have been truncated to 65535 bytes\n"},
        {"Message: a", ""},
    };
    for (const auto &row : rows) {
        for (const bool notes : {true, false}) {
            ReplyRead read(row.body);
            ASSERT_EQ(read.result, 0);
            shown.clear();
            truncate_values(&read.reply, notes);
            EXPECT_EQ(shown, notes ? row.notes : "");
            for (const char *value : {read.reply.version, read.reply.url, read.reply.button})
                EXPECT_LE(or_none(value).size(), 65535U);
            EXPECT_LE(std::strlen(read.reply.message), 65535U);
        }
    }
    ReplyRead all(body_of(longer, longer, longer, longer_message));
    truncate_values(&all.reply, false);
    EXPECT_EQ(all.reply.version, longest);
    EXPECT_EQ(all.reply.url, longest);
    EXPECT_EQ(all.reply.button, longest);
    EXPECT_EQ(all.reply.message, std::string(65535, 'm'));
}

void expect_printed(const std::string &body, const std::string &expected)
{
    const ReplyRead read(body);
    ASSERT_EQ(read.result, 0) << body;
    const PrintHandler previous = set_print_handler(print_with_tag);
    printed.clear();
    print_answer(read.reply);
    set_print_handler(previous);
    EXPECT_EQ(printed, expected);
}

TEST(PrintAnswer, PrintsALineForEachValueThenTheMessageEachWithItsTag)
{
    const struct {
        std::string body;
        const char *expected;
    } rows[] = {
        {body_of("5.3", "http://a/", "Get it", "News\n"),
         "<version>Version: 5.3\n<url>URL: http://a/\n<button>Button: Get it\n<message>News\n"},
        {body_of("", "", "", ""), ""},
        {"Message: ", ""},
        {body_of("5.3", "", "", ""), "<version>Version: 5.3\n"},
        {body_of("", "http://a/", "", ""), "<url>URL: http://a/\n"},
        {body_of("", "", "Get it", ""), "<button>Button: Get it\n"},
        {body_of("", "", "", "News"), "<message>News\n"},
        {body_of("", "", "", "News\n\n"), "<message>News\n\n"},
        {body_of("", "", "", "\n"), "<message>\n"},
        {body_of("", "", "", "One\n\tTwo"), "<message>One\n\tTwo\n"},
    };
    for (const auto &row : rows)
        expect_printed(row.body, row.expected);
}

TEST(PrintAnswer, MakesEveryValueSafe)
{
    expect_printed(body_of("\x1B[1m", "a\tb", "\xE2\x80\xAE", "\x9B\n"),
                   "<version>Version: \\x1B[1m\n"
                   "<url>URL: a\tb\n"
                   "<button>Button: \\xE2\\x80\\xAE\n"
                   "<message>\\x9B\n");
}

TEST(OutcomeJson, AlwaysHasEveryKeyOnOneLine)
{
    const ReplyRead full(body_of("5.3", "http://a/", "Get \"it\"", "One\n\tTwo\n"));
    EXPECT_EQ(outcome_json({"answered", 10, &full.reply, nullptr, nullptr, 200},
                           {"a.example:80", "cache:3128", "-proxy"}),
              "{\"status\":\"answered\",\"exit_status\":10,\"newer\":true,\"version\":\"5.3\","
              "\"url\":\"http://a/\",\"button\":\"Get \\\"it\\\"\",\"message\":\"One\\n\\tTwo\\n\","
              "\"error\":null,\"reason\":null,\"http_status\":200,\"service\":\"a.example:80\","
              "\"proxy\":\"cache:3128\"}\n");
    EXPECT_EQ(outcome_json({"failed", 1, nullptr, "a \\ \x1B\x80", "http-status", 404},
                           {"a\"\x1B", "", "http_proxy"}),
              "{\"status\":\"failed\",\"exit_status\":1,\"newer\":null,\"version\":null,"
              "\"url\":null,\"button\":null,\"message\":null,"
              "\"error\":\"a \\\\ \\u001b\\ufffd\",\"reason\":\"http-status\","
              "\"http_status\":404,\"service\":\"a\\\"\\u001b\",\"proxy\":null}\n");
}

TEST(OutcomeJson, HasNullForWhatIsNotGiven)
{
    const RunTarget target = {"a", "", ""};
    const ReplyRead full(body_of("5.1", "a", "b", "c"));
    const ReplyRead empty("Message: ");
    EXPECT_EQ(outcome_json({"answered", 0, &full.reply, nullptr, nullptr, 204}, target),
              json_line("answered", 0, "false", {"\"5.1\"", "\"a\"", "\"b\"", "\"c\""}, "null",
                        {"", 204, "a"}));
    EXPECT_EQ(outcome_json({"answered", 1, &empty.reply, "x", "open", 200}, target),
              json_line("answered", 1, "null", {"null", "null", "null", "\"\""}, "\"x\"",
                        {"open", 200, "a"}));
    EXPECT_EQ(outcome_json({"cancelled", 143, nullptr, "x", "cancelled", 0}, target),
              unanswered_json("cancelled", 143, "x", {"cancelled", 0, "a"}));
}

TEST(OutcomeJson, HoldsTheWholeOfALongError)
{
    const std::string error(5000, 'e');
    EXPECT_EQ(outcome_json({"failed", 1, nullptr, error.c_str(), "receive", 0}, {"a", "b:1", ""}),
              unanswered_json("failed", 1, error, {"receive", 0, "a", "b:1"}));
}

} // namespace
} // namespace quintral::tests::tool
