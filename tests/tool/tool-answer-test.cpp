// What the utility prints of an answer.
#include <array>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "tests/tool/is-json-line.h"
#include "tests/tool/json-line.h"
#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {
namespace {

struct AnswerRow {
    std::string body;
    std::string text;                  // standard output
    const char *newer;                 // than 5.2, in JSON
    std::array<std::string, 4> values; // in JSON
};

void expect_answer(const AnswerRow &row)
{
    const std::string what = testing::PrintToString(row.body);
    const PeerScript script = sending(reply_of(row.body));
    const bool newer = std::strcmp(row.newer, "true") == 0;
    const Texts version = {"-product-version", "5.2"};
    expect_ended(ask(script, version).result, 0, row.text, "", what);
    expect_ended(ask(script, joined(version, {"-exit-code"})).result, newer ? 10 : 0, row.text, "",
                 what);
    const ChildResult json = ask(script, joined(version, {"-json"})).result;
    expect_ended(json, 0, json_line("answered", 0, row.newer, row.values, "null"), "", what);
    EXPECT_TRUE(is_json_line(json.output)) << json.output;
    const ChildResult json_10 = ask(script, joined(version, {"-json", "-exit-code"})).result;
    expect_ended(json_10, newer ? 10 : 0,
                 json_line("answered", newer ? 10 : 0, row.newer, row.values, "null"), "", what);
}

TEST(ToolAnswer, EachValueIsOneLineAndTheMessageFollowsAsGiven)
{
    const AnswerRow rows[] = {
        {"Version: 5.3\nURL: http://a/\nButton: Get it\nMessage: One\nTwo\n",
         "Version: 5.3\nURL: http://a/\nButton: Get it\nOne\nTwo\n",
         "true",
         {"\"5.3\"", "\"http://a/\"", "\"Get it\"", "\"One\\nTwo\\n\""}},
        // always in this order
        {"Button: Get it\nURL: http://a/\nVersion: 5.1\nMessage: One\n",
         "Version: 5.1\nURL: http://a/\nButton: Get it\nOne\n",
         "false",
         {"\"5.1\"", "\"http://a/\"", "\"Get it\"", "\"One\\n\""}},
        // with the line endings that services write
        {"Version: 5.3\r\nURL: http://a/\r\nButton: Get it\r\nMessage: One\r\nTwo\r\n",
         "Version: 5.3\nURL: http://a/\nButton: Get it\nOne\nTwo\n",
         "true",
         {"\"5.3\"", "\"http://a/\"", "\"Get it\"", "\"One\\nTwo\\n\""}},
        // a message without a line feed gets one on the text output
        {"Message: One", "One\n", "null", {"null", "null", "null", "\"One\""}},
        {"Message: One\r", "One\n", "null", {"null", "null", "null", "\"One\""}},
        {"Message: One\nTwo", "One\nTwo\n", "null", {"null", "null", "null", "\"One\\nTwo\""}},
        {"Message: \n", "\n", "null", {"null", "null", "null", "\"\\n\""}},
        // an empty message prints nothing
        {"Message: ", "", "null", {"null", "null", "null", "\"\""}},
        {"Message:", "", "null", {"null", "null", "null", "\"\""}},
        {"Message: \r", "", "null", {"null", "null", "null", "\"\""}},
        {"Version: 5.3\nMessage: ", "Version: 5.3\n", "true", {"\"5.3\"", "null", "null", "\"\""}},
        // an empty value counts as not given
        {"Version: \nURL: \nButton: \nMessage: One\n",
         "One\n",
         "null",
         {"null", "null", "null", "\"One\\n\""}},
        {"Version: \r\nURL: \r\nButton: \r\nMessage: One\r\n",
         "One\n",
         "null",
         {"null", "null", "null", "\"One\\n\""}},
        {"Version: \t \r\nURL: http://a/\r\nMessage: One\n",
         "URL: http://a/\nOne\n",
         "null",
         {"null", "\"http://a/\"", "null", "\"One\\n\""}},
        // one carriage return goes, a second one shows
        {"URL: a\r\r\nButton: b\rc\r\nMessage: d\r\r\ne\rf\r\r",
         "URL: a\\x0D\nButton: b\\x0Dc\nd\\x0D\ne\\x0Df\\x0D\n",
         "null",
         {"null", "\"a\\u000d\"", "\"b\\u000dc\"", "\"d\\u000d\\ne\\u000df\\u000d\""}},
        // the later value wins, other keys are passed over
        {"Version: 5.3\nColour: red\nVersion: 5.1\nMessage: One\n",
         "Version: 5.1\nOne\n",
         "false",
         {"\"5.1\"", "null", "null", "\"One\\n\""}},
        {"Message: Version: 5.3\nURL: x\n",
         "Version: 5.3\nURL: x\n",
         "null",
         {"null", "null", "null", "\"Version: 5.3\\nURL: x\\n\""}},
        // tabs stay, in JSON as an escape
        {"Button: a\tb\nMessage: \tc \"d\" \\e\n",
         "Button: a\tb\n\tc \"d\" \\e\n",
         "null",
         {"null", "null", "\"a\\tb\"", "\"\\tc \\\"d\\\" \\\\e\\n\""}},
    };
    for (const AnswerRow &row : rows)
        expect_answer(row);
}

TEST(ToolAnswer, AVersionIsNewerAsADecimalNumber)
{
    const std::string nines(40, '9');
    const struct {
        std::string version;
        const char *newer;
        std::string shown;
    } rows[] = {
        {"5.3", "true", "5.3"},
        {"5.21", "true", "5.21"},
        {"5.2.1", "true", "5.2.1"},
        {"6", "true", "6"},
        {nines, "true", nines},
        {"5.2", "false", "5.2"},
        {"5.20", "false", "5.20"},
        {"5.200", "false", "5.200"},
        {"5.2.0", "false", "5.2.0"},
        {"5.10", "false", "5.10"},
        {"5.1999", "false", "5.1999"},
        {"005.2", "false", "005.2"},
        {" 5.3\t\r", "true", "5.3"},
        {" 5.2 ", "false", "5.2"},
        {"5.3 beta", "null", "5.3 beta"},
        {"5.", "null", "5."},
        {"-6", "null", "-6"},
        {"6,0", "null", "6,0"},
        {"new", "null", "new"},
    };
    for (const auto &row : rows)
        expect_answer({"Version: " + row.version + "\nMessage: ",
                       "Version: " + row.shown + "\n",
                       row.newer,
                       {"\"" + row.shown + "\"", "null", "null", "\"\""}});
}

TEST(ToolAnswer, HostileTextIsWrittenOut)
{
    const AnswerRow row = {
        "Version: \x1B]0;title\a\r\n"
        "URL: http://a/\xE2\x80\xAEmoc.b\xE2\x81\xA9\r\n"
        "Button: \xC2\x9B"
        "2J\x7F\xFF\xD8\x9C\r\n"
        "Message: \x08\x0B\x9B\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\xED\xA0\x80\xC0\x80\xE2\x82\r\n",
        "Version: \\x1B]0;title\\x07\n"
        "URL: http://a/\\xE2\\x80\\xAEmoc.b\\xE2\\x81\\xA9\n"
        "Button: \\xC2\\x9B"
        "2J\\x7F\\xFF\\xD8\\x9C\n"
        "\\x08\\x0B\\x9B\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\\xED\\xA0\\x80\\xC0\\x80\\xE2\\x82\n",
        "null",
        {"\"\\u001b]0;title\\u0007\"", "\"http://a/\\u202emoc.b\\u2069\"",
         "\"\\u009b"
         "2J\\u007f\\ufffd\\u061c\"",
         "\"\\u0008\\u000b\\ufffd\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\\ufffd\\ufffd\\ufffd"
         "\\ufffd\\ufffd\\ufffd\\ufffd\\n\""}};
    expect_answer(row);
}

std::string every_byte()
{
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte)
        bytes += static_cast<char>(byte);
    return bytes;
}

bool is_plain(char c)
{
    return c == '\n' || (c >= ' ' && c <= '~');
}

TEST(ToolAnswer, NoByteOfTheServicesReachesAStreamAsAControl)
{
    std::string values = every_byte();
    values.erase(values.find('\n'), 1);
    const std::string body = "Version: " + values + "\nURL: " + values + "\nButton: " + values +
                             "\nMessage: " + every_byte();
    const ChildResult text = ask(sending(reply_of(body))).result;
    EXPECT_EQ(text.exit_status, 0);
    for (char c : text.output)
        EXPECT_TRUE(is_plain(c) || c == '\t') << static_cast<int>(c);
    const ChildResult json = ask(sending(reply_of(body)), {"-json"}).result;
    EXPECT_TRUE(is_json_line(json.output)) << json.output;
    for (char c : json.output)
        EXPECT_TRUE(is_plain(c)) << static_cast<int>(c);

    const std::string status_line = "HTTP/1.0 500 \x1B" + values + "\r\n\r\n";
    const ChildResult failed = ask(sending(status_line), {"-json"}).result;
    EXPECT_EQ(failed.exit_status, 1);
    EXPECT_TRUE(is_json_line(failed.output)) << failed.output;
    for (char c : failed.error + failed.output)
        EXPECT_TRUE(is_plain(c) || c == '\t' || c == '\a') << static_cast<int>(c);
    EXPECT_EQ(failed.error.find('\a'), failed.error.size() - 2) << "one bell, of the line's end";
}

struct LongRow {
    std::string key;
    std::string noted;
};

// Runs a service that gives one value of `length` bytes, quiet or not.
ChildResult ask_for_long_value(const std::string &key, std::size_t length, bool quiet)
{
    const std::string start = key == "Message" ? "" : key + ": " + std::string(length, '7') + "\n";
    const std::string message = key == "Message" ? std::string(length, '7') : "x";
    return ask(sending(reply_of(start + "Message: " + message)), quiet ? Texts{"-quiet"} : Texts{})
        .result;
}

TEST(ToolAnswer, AValueThatFillsItsRoomIsNotedAsMaybeCut)
{
    const LongRow rows[] = {
        {"Version", "The version may have been truncated to 65535 bytes"},
        {"URL", "The web address may have been truncated to 65535 bytes"},
        {"Button", "The button caption may have been truncated to 65535 bytes"},
        {"Message", "The message may have been truncated to 65535 bytes"},
    };
    for (const LongRow &row : rows) {
        const bool is_message = row.key == "Message";
        const auto shown = [&](std::size_t length) {
            const std::string value(length, '7');
            return is_message ? value + "\n" : row.key + ": " + value + "\nx\n";
        };
        const std::string note = "Note: " + row.noted + "\n";
        expect_ended(ask_for_long_value(row.key, 65534, false), 0, shown(65534), "", row.key);
        expect_ended(ask_for_long_value(row.key, 65535, false), 0, shown(65535), note, row.key);
        expect_ended(ask_for_long_value(row.key, 70000, false), 0, shown(65535), note, row.key);
        expect_ended(ask_for_long_value(row.key, 70000, true), 0, shown(65535), "", row.key);
    }
}

TEST(ToolAnswer, ALongMessageIsWholeInJson)
{
    const std::string message = repeated(65535 / 3, "a\x1B\n");
    const ChildResult result = ask(sending(reply_of("Message: " + message)), {"-json"}).result;
    expect_ended(result, 0,
                 json_line("answered", 0, "null",
                           {"null", "null", "null", "\"" + repeated(21845, "a\\u001b\\n") + "\""},
                           "null"),
                 "Note: The message may have been truncated to 65535 bytes\n");
}

} // namespace
} // namespace quintral::tests::tool
