// What the utility prints for an answer, as text and as a JSON object.
#include <array>
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/tool/is-json-line.h"
#include "tests/tool/json-line.h"
#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {
namespace {

struct ExpectedAnswer {
    std::string text;
    const char *newer;                 // than 5.2, as in the object
    std::array<std::string, 4> values; // as in the object
    std::string note;                  // on standard error
};

const char no_version[] = "the reply has no version";
const char no_version_line[] = "the reply has no Version line";
const char no_number[] = "the version in the reply is not a number";

std::string unknown_note(const std::string &why)
{
    return note_line("It is unknown whether a newer version exists: " + why);
}

int status_of(const std::string &newer)
{
    if (newer == "null")
        return 11;
    return newer == "true" ? 10 : 0;
}

// Runs the utility as version 5.2, with each combination of -json and -exit-code, and with -quiet.
void expect_answer(const std::string &body, const ExpectedAnswer &expected)
{
    const std::string what = testing::PrintToString(body);
    const PeerScript script = sending(reply_of(body));
    const int exit_code = status_of(expected.newer);
    const auto object = [&expected](int status, const std::string &address) {
        return json_line("answered", status, expected.newer, expected.values, "null",
                         {"", 200, address});
    };
    const Strings version = {"-product-version", "5.2"};
    expect_ended(ask(script, version).result, 0, expected.text, expected.note, what);
    expect_ended(ask(script, joined(version, {"-exit-code", "-quiet"})).result, exit_code,
                 expected.text, "", what);
    const Exchange json = ask(script, joined(version, {"-json"}));
    expect_ended(json.result, 0, object(0, json.address), expected.note, what);
    EXPECT_TRUE(is_json_line(json.result.output)) << json.result.output;
    const Exchange both = ask(script, joined(version, {"-json", "-exit-code"}));
    expect_ended(both.result, exit_code, object(exit_code, both.address), expected.note, what);
}

// A reply whose values hold nothing that text and object show differently.
struct AnswerRow {
    std::string body;
    std::string message;
    std::string version = {}; // empty: not given
    const char *newer = "null";
    std::string url = {};
    std::string button = {};
    const char *why = no_version_line; // newer is null
};

std::string text_line(const std::string &key, const std::string &value)
{
    return value.empty() ? "" : key + ": " + value + "\n";
}

std::string json_value(const std::string &value)
{
    return value.empty() ? "null" : nlohmann::json(value).dump();
}

void expect_answer(const AnswerRow &row)
{
    std::string text = text_line("Version", row.version) + text_line("URL", row.url) +
                       text_line("Button", row.button) + row.message;
    if (!row.message.empty() && row.message.back() != '\n')
        text += '\n';
    expect_answer(row.body, {text,
                             row.newer,
                             {json_value(row.version), json_value(row.url), json_value(row.button),
                              nlohmann::json(row.message).dump()},
                             std::strcmp(row.newer, "null") == 0 ? unknown_note(row.why) : ""});
}

TEST(ToolAnswer, EachValueIsOneLineAndTheMessageFollowsAsGiven)
{
    expect_answer("Version: 5.3\nURL: http://a/\nButton: Get it\nMessage: One\nTwo\n",
                  {"Version: 5.3\nURL: http://a/\nButton: Get it\nOne\nTwo\n",
                   "true",
                   {"\"5.3\"", "\"http://a/\"", "\"Get it\"", "\"One\\nTwo\\n\""},
                   ""});
    const std::string with_crlf = "Version: 5.3\r\nURL: a\r\nButton: b\r\nMessage: One\r\nTwo\r\n";
    const AnswerRow rows[] = {
        // always in this order
        {"Button: b\nURL: a\nVersion: 5.1\nMessage: One\n", "One\n", "5.1", "false", "a", "b"},
        // with the line endings that services write
        {with_crlf, "One\nTwo\n", "5.3", "true", "a", "b"},
        // the text output ends with a line feed
        {"Message: One", "One"},
        {"Message: One\r", "One"},
        {"Message: One\nTwo", "One\nTwo"},
        {"Message: \n", "\n"},
        // but an empty message prints nothing
        {"Message: ", ""},
        {"Message:", ""},
        {"Message: \r", ""},
        {"Version: 5.3\nMessage: ", "", "5.3", "true"},
        // an empty value counts as not given
        {"Version: \nURL: \nButton: \nMessage: One\n", "One\n", "", "null", "", "", no_version},
        {"Version: \r\nURL: \r\nButton: \r\nMessage: One\r\n", "One\n", "", "null", "", "",
         no_version},
        {"Version: \t \r\nURL: http://a/\r\nMessage: One\n", "One\n", "", "null", "http://a/", "",
         no_version},
        // the last value of a key counts, unknown keys are ignored
        {"Version: 5.3\nColour: red\nVersion: 5.1\nMessage: One\n", "One\n", "5.1", "false"},
        {"Message: Version: 5.3\nURL: x\n", "Version: 5.3\nURL: x\n"},
        // tabs are kept, in JSON as an escape
        {"Button: a\tb\nMessage: \tc \"d\" \\e\n", "\tc \"d\" \\e\n", "", "null", "", "a\tb"},
    };
    for (const AnswerRow &row : rows)
        expect_answer(row);
}

TEST(ToolAnswer, ASecondCarriageReturnIsEscaped)
{
    expect_answer("URL: a\r\r\nButton: b\rc\r\nMessage: d\r\r\ne\rf\r\r",
                  {"URL: a\\x0D\nButton: b\\x0Dc\nd\\x0D\ne\\x0Df\\x0D\n",
                   "null",
                   {"null", "\"a\\u000d\"", "\"b\\u000dc\"", "\"d\\u000d\\ne\\u000df\\u000d\""},
                   unknown_note(no_version_line)});
}

TEST(ToolAnswer, AVersionIsComparedAsADecimalNumber)
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
        expect_answer({"Version: " + row.version + "\nMessage: ", "", row.shown, row.newer, "", "",
                       no_number});
}

TEST(ToolAnswer, HostileBytesAreEscaped)
{
    expect_answer(
        "Version: \x1B]0;title\a\r\n"
        "URL: http://a/\xE2\x80\xAEmoc.b\xE2\x81\xA9\r\n"
        "Button: \302\2332J\x7F\xFF\xD8\x9C\r\n"
        "Message: \x08\x0B\x9B\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\xED\xA0\x80\xC0\x80\xE2\x82\r\n",
        {"Version: \\x1B]0;title\\x07\n"
         "URL: http://a/\\xE2\\x80\\xAEmoc.b\\xE2\\x81\\xA9\n"
         "Button: \\xC2\\x9B2J\\x7F\\xFF\\xD8\\x9C\n"
         "\\x08\\x0B\\x9B\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\\xED\\xA0\\x80\\xC0\\x80\\xE2\\x82\n",
         "null",
         {"\"\\u001b]0;title\\u0007\"", "\"http://a/\\u202emoc.b\\u2069\"",
          "\"\\u009b2J\\u007f\\ufffd\\u061c\"",
          "\"\\u0008\\u000b\\ufffd\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\\ufffd\\ufffd\\ufffd"
          "\\ufffd\\ufffd\\ufffd\\ufffd\\n\""},
         unknown_note(no_number)});
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

TEST(ToolAnswer, NoControlByteOfTheServiceReachesAStream)
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
    EXPECT_EQ(failed.error.find('\a'), failed.error.size() - 2) << "one bell, at the end";
}

// Runs the utility against a service that gives one value of `length` bytes.
ChildResult ask_for_long_value(const std::string &key, std::size_t length, bool quiet)
{
    const std::string start = key == "Message" ? "" : key + ": " + std::string(length, '7') + "\n";
    const std::string message = key == "Message" ? std::string(length, '7') : "x";
    return ask(sending(reply_of(start + "Message: " + message)),
               quiet ? Strings{"-quiet", "-product-version", "8000"}
                     : Strings{"-product-version", "8000"})
        .result;
}

TEST(ToolAnswer, AValueThatFillsItsCapacityIsNotedAsPossiblyTruncated)
{
    const struct {
        std::string key;
        std::string name;
    } rows[] = {
        {"Version", "version"},
        {"URL", "web address"},
        {"Button", "button caption"},
        {"Message", "message"},
    };
    for (const auto &row : rows) {
        const bool is_message = row.key == "Message";
        const auto shown = [&](std::size_t length) {
            const std::string value(length, '7');
            return is_message ? value + "\n" : row.key + ": " + value + "\nx\n";
        };
        const std::string note =
            note_line("The " + row.name + " may have been truncated to 65535 bytes");
        const std::string unknown = row.key == "Version" ? "" : no_version_note;
        expect_ended(ask_for_long_value(row.key, 65534, false), 0, shown(65534), unknown, row.key);
        expect_ended(ask_for_long_value(row.key, 65535, false), 0, shown(65535), note + unknown,
                     row.key);
        expect_ended(ask_for_long_value(row.key, 70000, false), 0, shown(65535), note + unknown,
                     row.key);
        expect_ended(ask_for_long_value(row.key, 70000, true), 0, shown(65535), "", row.key);
    }
}

TEST(ToolAnswer, JsonHoldsTheWholeOfALongMessage)
{
    const std::string message = repeated(65535 / 3, "a\x1B\n");
    const std::string in_json = "\"" + repeated(65535 / 3, "a\\u001b\\n") + "\"";
    const Exchange exchange = ask(sending(reply_of("Message: " + message)), {"-json"});
    expect_ended(exchange.result, 0,
                 json_line("answered", 0, "null", {"null", "null", "null", in_json}, "null",
                           {"", 200, exchange.address}),
                 note_line("The message may have been truncated to 65535 bytes") + no_version_note);
}

TEST(ToolAnswer, ANoteSaysWhyNewerIsUnknown)
{
    const struct {
        const char *body;
        const char *output;
        const char *why;
    } rows[] = {
        {"Message: a", "a\n", no_version_line},
        {"URL: a\nMessage: a", "URL: a\na\n", no_version_line},
        {"Message: a\nVersion: 6", "a\nVersion: 6\n", no_version_line},
        {"version: 6\nMessage: a", "a\n", no_version_line},
        {"XVersion: 6\nMessage: a", "a\n", no_version_line},
        {"a line\nVersion: 6\nMessage: a", "a\n", no_version_line},
        {"URL:\nVersion: 6\nMessage: a", "URL: Version: 6\na\n", no_version_line},
        {"Message:", "", no_version_line},
        {"X: Y: Z\nVersion: \nMessage: a", "a\n", no_version},
        {"X: \nVersion: \nMessage: a", "a\n", no_version},
        {"Version: \nMessage: a", "a\n", no_version},
        {"URL: a\nVersion: \t \r\nMessage: a", "URL: a\na\n", no_version},
        {"Version: 6\nVersion: \nMessage: a", "a\n", no_version},
        {"Version: six\nMessage: a", "Version: six\na\n", no_number},
        {"Version: 6 beta\nMessage: a", "Version: 6 beta\na\n", no_number},
    };
    for (const auto &row : rows) {
        const PeerScript script = sending(reply_of(row.body));
        const std::string note = unknown_note(row.why);
        expect_ended(ask(script).result, 0, row.output, note, row.body);
        expect_ended(ask(script, {"-exit-code"}).result, 11, row.output, note, row.body);
        expect_ended(ask(script, {"-exit-code", "-quiet"}).result, 11, row.output, "", row.body);
    }
}

// What the utility wrote to the terminal after the progress indicator, if that was shown.
std::string after_progress(const std::string &error)
{
    return error.substr(error.rfind('\r') + 1);
}

TEST(ToolAnswer, ATerminalShowsWhetherTheVersionIsNewer)
{
    const struct {
        const char *version;
        std::string note;
    } rows[] = {
        {"5.3", note_line("Version 5.3 is newer than 5.20")},
        {"5.2.1", note_line("Version 5.2.1 is newer than 5.20")},
        {"5.2", note_line("There is no newer version than 5.20")},
        {"5.1", note_line("There is no newer version than 5.20")},
        {"five", unknown_note(no_number)},
    };
    const Strings own = {"-product-version", "5.20"};
    for (const auto &row : rows) {
        const std::string line = std::string("Version: ") + row.version + "\n";
        const PeerScript script = sending(reply_of(line + "Message: a"));
        const ChildOptions terminal = with_error(ChildStream::Terminal);
        const ChildResult result = ask(script, own, terminal).result;
        expect_ended({result.exit_status, result.signal, result.timed_out, result.output,
                      after_progress(result.error)},
                     0, line + "a\n", row.note, row.version);
        const ChildResult quiet = ask(script, joined(own, {"-quiet"}), terminal).result;
        expect_ended(quiet, 0, line + "a\n", "", row.version);
        const ChildResult json = ask(script, joined(own, {"-json"}), terminal).result;
        EXPECT_EQ(json.exit_status, 0);
        const bool is_known = std::strcmp(row.version, "five") != 0;
        EXPECT_EQ(after_progress(json.error), is_known ? "" : row.note) << row.version;
        // whatever standard output is
        const ChildResult script_result =
            ask(script, own, with_output(ChildStream::Terminal)).result;
        expect_ended(script_result, 0, line + "a\n", is_known ? "" : row.note, row.version);
    }
}

TEST(ToolAnswer, TheUtilityIsComparedByItsOwnVersionByDefault)
{
    const ChildOptions terminal = with_error(ChildStream::Terminal);
    const ChildResult result =
        ask(sending(reply_of("Version: " QUINTRAL_VERSION "\nMessage: ")), {}, terminal).result;
    EXPECT_EQ(result.output, "Version: " QUINTRAL_VERSION "\n");
    EXPECT_EQ(after_progress(result.error),
              note_line("There is no newer version than " QUINTRAL_VERSION));
}

TEST(ToolAnswer, TheNoteAboutALongVersionIsTruncatedLikeEveryMessage)
{
    const std::string version = "6." + std::string(2000, '1');
    const ChildResult result = ask(sending(reply_of("Version: " + version + "\nMessage: ")),
                                   {"-product-version", "5"}, with_error(ChildStream::Terminal))
                                   .result;
    expect_ended(result, 0, "Version: " + version + "\n", result.error);
    EXPECT_EQ(after_progress(result.error), note_line("Version 6." + std::string(993, '1')));
}

// The streams are one terminal, so their order shows.
TEST(ToolAnswer, TheNoteAboutTheVersionComesAfterTheAnswer)
{
    ChildOptions options = with_error(ChildStream::Terminal);
    options.prepare = [] { dup2(STDERR_FILENO, STDOUT_FILENO); };
    const ChildResult result =
        ask(sending(reply_of("Version: 5.3\nMessage: a")), {"-product-version", "5"}, options)
            .result;
    EXPECT_EQ(after_progress(result.error),
              "Version: 5.3\na\n" + note_line("Version 5.3 is newer than 5"));
}

} // namespace
} // namespace quintral::tests::tool
