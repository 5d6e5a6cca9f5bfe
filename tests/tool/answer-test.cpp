// The answer: cleaned, compared, printed, and as a JSON object.
#include "support/error.h"
#include "tool/answer.h"

#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "tests/harness/text.h"
#include "tests/tool/json-line.h"

namespace quintral::tests::tool {
namespace {

using AnswerPointer = std::unique_ptr<UpdateAnswer>;

void fill_value(char *value, const std::string &text)
{
    ASSERT_LT(text.size(), answer_capacity);
    std::memcpy(value, text.c_str(), text.size() + 1);
}

AnswerPointer make_answer(const std::string &version, const std::string &address,
                          const std::string &button, const std::string &message)
{
    AnswerPointer answer = std::make_unique<UpdateAnswer>();
    fill_value(answer->version, version);
    fill_value(answer->address, address);
    fill_value(answer->button, button);
    fill_value(answer->message, message);
    return answer;
}

TEST(CleanAnswer, RemovesTheRestOfALineEndingFromTheShortValues)
{
    const struct {
        std::string value;
        std::string version;
        std::string other; // the web address and the button caption keep their spaces
    } rows[] = {
        {"", "", ""},
        {"5.2", "5.2", "5.2"},
        {"5.2\r", "5.2", "5.2"},
        {"5.2\r\r", "5.2\r", "5.2\r"},
        {"\r", "", ""},
        {" 5.2 ", "5.2", " 5.2 "},
        {"\t 5.2 \t\r", "5.2", "\t 5.2 \t"},
        {"  \t ", "", "  \t "},
        {" \r", "", " "},
        {"5 .2", "5 .2", "5 .2"},
        {"5\r.2", "5\r.2", "5\r.2"},
        {"5.2\r ", "5.2\r", "5.2\r "},
        {"\v5.2\f", "\v5.2\f", "\v5.2\f"},
        {std::string(65534, '5') + "\r", std::string(65534, '5'), std::string(65534, '5')},
        {std::string(65535, ' '), "", std::string(65535, ' ')},
    };
    for (const auto &row : rows) {
        const AnswerPointer answer = make_answer(row.value, row.value, row.value, "");
        clean_answer(answer.get());
        EXPECT_EQ(answer->version, row.version) << testing::PrintToString(row.value);
        EXPECT_EQ(answer->address, row.other) << testing::PrintToString(row.value);
        EXPECT_EQ(answer->button, row.other) << testing::PrintToString(row.value);
    }
}

TEST(CleanAnswer, RemovesOneCarriageReturnBeforeEachLineFeedAndAtTheEndOfTheMessage)
{
    const struct {
        std::string message;
        std::string expected;
    } rows[] = {
        {"", ""},
        {"one", "one"},
        {"one\n", "one\n"},
        {"one\r\n", "one\n"},
        {"one\r\ntwo\r\n", "one\ntwo\n"},
        {"one\r\ntwo\nthree", "one\ntwo\nthree"},
        {"one\r", "one"},
        {"\r", ""},
        {"\r\n", "\n"},
        {"\r\n\r\n", "\n\n"},
        {"one\r\r\n", "one\r\n"},
        {"one\r\r", "one\r"},
        {"\r\r\r", "\r\r"},
        {"on\re\r\n", "on\re\n"},
        {"\rone", "\rone"},
        {"one\n\r", "one\n"},
        {" one \r\n", " one \n"},
        {repeated(21845, "a\r\n"), repeated(21845, "a\n")},
    };
    for (const auto &row : rows) {
        const AnswerPointer answer = make_answer("", "", "", row.message);
        clean_answer(answer.get());
        EXPECT_EQ(answer->message, row.expected) << testing::PrintToString(row.message);
    }
}

TEST(CompareAnswer, IsUnknownWithoutAVersionNumber)
{
    const struct {
        const char *version;
        Newer expected;
    } rows[] = {
        {"5.3", Newer::Yes},      {"5.201", Newer::Yes},    {"5.2.1", Newer::Yes},
        {"10", Newer::Yes},       {"5.2", Newer::No},       {"5.20", Newer::No},
        {"5.1", Newer::No},       {"5.10", Newer::No},      {"4.9.9", Newer::No},
        {"", Newer::Unknown},     {"5.3a", Newer::Unknown}, {"v5.3", Newer::Unknown},
        {"5.", Newer::Unknown},   {".9", Newer::Unknown},   {"-6", Newer::Unknown},
        {"5 3", Newer::Unknown},  {"5,3", Newer::Unknown},  {"6\r", Newer::Unknown},
        {"1e99", Newer::Unknown}, {"nan", Newer::Unknown},
    };
    for (const auto &row : rows) {
        const AnswerPointer answer = make_answer(row.version, "", "", "");
        EXPECT_EQ(compare_answer(*answer, "5.2"), row.expected) << row.version;
    }
}

std::string printed;

void print_with_tag(const char *text, const char *tag)
{
    printed += std::string("<") + tag + ">" + text;
}

void expect_printed(const UpdateAnswer &answer, const std::string &expected)
{
    const PrintHandler previous = set_print_handler(print_with_tag);
    printed.clear();
    print_answer(answer);
    set_print_handler(previous);
    EXPECT_EQ(printed, expected);
}

TEST(PrintAnswer, PrintsALineForEachValueThenTheMessageEachWithItsTag)
{
    const char all[] =
        "<version>Version: 5.3\n<url>URL: http://a/\n<button>Button: Get it\n<message>News\n";
    expect_printed(*make_answer("5.3", "http://a/", "Get it", "News\n"), all);
    const struct {
        AnswerPointer answer;
        const char *expected;
    } rows[] = {
        {make_answer("", "", "", ""), ""},
        {make_answer("5.3", "", "", ""), "<version>Version: 5.3\n"},
        {make_answer("", "http://a/", "", ""), "<url>URL: http://a/\n"},
        {make_answer("", "", "Get it", ""), "<button>Button: Get it\n"},
        {make_answer("", "", "", "News"), "<message>News\n"},
        {make_answer("", "", "", "News\n\n"), "<message>News\n\n"},
        {make_answer("", "", "", "\n"), "<message>\n"},
        {make_answer("", "", "", "One\n\tTwo"), "<message>One\n\tTwo\n"},
    };
    for (const auto &row : rows)
        expect_printed(*row.answer, row.expected);
}

TEST(PrintAnswer, MakesEveryValueSafe)
{
    expect_printed(*make_answer("\x1B[1m", "a\tb", "\xE2\x80\xAE", "\x9B\n"),
                   "<version>Version: \\x1B[1m\n"
                   "<url>URL: a\tb\n"
                   "<button>Button: \\xE2\\x80\\xAE\n"
                   "<message>\\x9B\n");
}

TEST(OutcomeJson, AlwaysHasEveryKeyOnOneLine)
{
    const AnswerPointer full = make_answer("5.3", "http://a/", "Get \"it\"", "One\n\tTwo\n");
    EXPECT_EQ(outcome_json({"answered", 10, Newer::Yes, full.get(), nullptr}),
              "{\"status\":\"answered\",\"exit_status\":10,\"newer\":true,\"version\":\"5.3\","
              "\"url\":\"http://a/\",\"button\":\"Get \\\"it\\\"\",\"message\":\"One\\n\\tTwo\\n\","
              "\"error\":null}\n");
    EXPECT_EQ(outcome_json({"failed", 1, Newer::Unknown, nullptr, "a \\ \x1B\x80"}),
              "{\"status\":\"failed\",\"exit_status\":1,\"newer\":null,\"version\":null,"
              "\"url\":null,\"button\":null,\"message\":null,"
              "\"error\":\"a \\\\ \\u001b\\ufffd\"}\n");
}

TEST(OutcomeJson, HasNullForWhatIsNotGiven)
{
    const AnswerPointer full = make_answer("5.3", "a", "b", "c");
    const AnswerPointer empty = make_answer("", "", "", "");
    EXPECT_EQ(outcome_json({"answered", 0, Newer::No, full.get(), nullptr}),
              json_line("answered", 0, "false", {"\"5.3\"", "\"a\"", "\"b\"", "\"c\""}, "null"));
    EXPECT_EQ(outcome_json({"answered", 0, Newer::Unknown, empty.get(), nullptr}),
              json_line("answered", 0, "null", {"null", "null", "null", "\"\""}, "null"));
    EXPECT_EQ(outcome_json({"cancelled", 143, Newer::Unknown, nullptr, "x"}),
              unanswered_json("cancelled", 143, "x"));
}

TEST(OutcomeJson, HoldsTheWholeOfALongError)
{
    const std::string error(5000, 'e');
    EXPECT_EQ(outcome_json({"failed", 1, Newer::Unknown, nullptr, error.c_str()}),
              unanswered_json("failed", 1, error));
}

} // namespace
} // namespace quintral::tests::tool
