// The check of the utility's JSON object, which other tests rely on.
#include <string>

#include <gtest/gtest.h>

#include "tests/tool/is-json-line.h"
#include "tests/tool/json-line.h"

namespace quintral::tests::tool {
namespace {

std::string with_error(const std::string &error)
{
    return unanswered_json("failed", 1, error, {"http-status", 404, "a:1", "b:2"});
}

std::string with_values(const std::string &version, const std::string &url)
{
    return json_line("answered", 0, "true", {version, url, "null", "null"}, "null", {"", 200, "a"});
}

std::string replaced(std::string line, const std::string &old_part, const std::string &new_part)
{
    return line.replace(line.find(old_part), old_part.size(), new_part);
}

TEST(JsonLine, TheCheckAcceptsAnObjectWithTheTwelveKeys)
{
    EXPECT_TRUE(is_json_line(with_error("a\\n\\u001b\\\"\xC3\xA4")));
    EXPECT_TRUE(is_json_line(with_values("\"5.2\"", "null")));
}

TEST(JsonLine, HasNullForWhatIsNotGiven)
{
    EXPECT_EQ(with_values("\"5.2\"", "null"),
              "{\"status\":\"answered\",\"exit_status\":0,\"newer\":true,\"version\":\"5.2\","
              "\"url\":null,\"button\":null,\"message\":null,\"error\":null,\"reason\":null,"
              "\"http_status\":200,\"service\":\"a\",\"proxy\":null}\n");
    EXPECT_EQ(unanswered_json("timeout", 3, "x", {"timeout", 0, "a:1", "b:2"}),
              "{\"status\":\"timeout\",\"exit_status\":3,\"newer\":null,\"version\":null,"
              "\"url\":null,\"button\":null,\"message\":null,\"error\":\"x\","
              "\"reason\":\"timeout\",\"http_status\":null,\"service\":\"a:1\","
              "\"proxy\":\"b:2\"}\n");
}

TEST(JsonLine, TheCheckRejectsEverythingElse)
{
    const std::string good = with_error("a");
    const std::string bad_lines[] = {
        "",
        "\n",
        "null\n",
        "{}\n",
        good + good,
        good + "\n",
        "\n" + good,
        good.substr(1),
        good.substr(0, good.size() - 1),
        "x" + good,
        // strings
        with_error("\x1B"),
        with_error("\n"),
        with_error("\""),
        with_error("\\x41"),
        with_error("\\u12"),
        with_error("\x80"),
        with_error("\xED\xA0\x80"),
        with_error("\xC0\x80"),
        // values
        with_values("", "null"),
        with_values("none", "null"),
        with_values("[]", "null"),
        with_values("{}", "null"),
        with_values("{\"url\":null}", "null"),
        // keys
        replaced(good, "\"url\":null,", ""),
        replaced(good, "\"url\"", "\"URL\""),
        replaced(good, "\"url\":null,", "\"url\":null,\"url\":null,"),
        replaced(good, "\"url\":null,", "\"url\":null,\"other\":null,"),
        replaced(good, "\"url\":null,\"button\":null", "\"button\":null,\"url\":null"),
        replaced(good, "\"status\":", "status:"),
        replaced(good, ",\"reason\":\"http-status\"", ""),
        replaced(good, ",\"http_status\":404", ""),
        replaced(good, ",\"service\":\"a:1\"", ""),
        replaced(good, ",\"proxy\":\"b:2\"", ""),
        replaced(good, "\"http_status\":404", "\"http_status\":[404]"),
        replaced(good, "\"http_status\":404,\"service\":\"a:1\"",
                 "\"service\":\"a:1\",\"http_status\":404"),
    };
    for (const std::string &bad : bad_lines)
        EXPECT_FALSE(is_json_line(bad)) << bad;
}

} // namespace
} // namespace quintral::tests::tool
