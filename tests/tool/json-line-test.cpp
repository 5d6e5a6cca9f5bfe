// The check of the utility's JSON object, which other tests rely on.
#include <string>

#include <gtest/gtest.h>

#include "tests/tool/is-json-line.h"
#include "tests/tool/json-line.h"

namespace quintral::tests::tool {
namespace {

std::string with_error(const std::string &error)
{
    return unanswered_json("failed", 1, error);
}

std::string with_version(const std::string &version)
{
    return json_line("answered", 0, "true", {version, "null", "null", "null"}, "null");
}

std::string replaced(std::string line, const std::string &old_part, const std::string &new_part)
{
    return line.replace(line.find(old_part), old_part.size(), new_part);
}

TEST(JsonLine, TheCheckAcceptsAnObjectWithTheEightKeys)
{
    EXPECT_TRUE(is_json_line(with_error("a\\n\\u001b\\\"\xC3\xA4")));
    EXPECT_TRUE(is_json_line(with_version("\"5.2\"")));
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
        with_version(""),
        with_version("none"),
        with_version("[]"),
        with_version("{}"),
        with_version("{\"url\":null}"),
        // keys
        replaced(good, "\"url\":null,", ""),
        replaced(good, "\"url\"", "\"URL\""),
        replaced(good, "\"url\":null,", "\"url\":null,\"url\":null,"),
        replaced(good, "\"url\":null,", "\"url\":null,\"other\":null,"),
        replaced(good, "\"url\":null,\"button\":null", "\"button\":null,\"url\":null"),
        replaced(good, "\"status\":", "status:"),
    };
    for (const std::string &bad : bad_lines)
        EXPECT_FALSE(is_json_line(bad)) << bad;
}

} // namespace
} // namespace quintral::tests::tool
