// The check of the JSON object that the tests of the utility use.
#include <string>

#include <gtest/gtest.h>

#include "tests/tool/is-json-line.h"
#include "tests/tool/json-line.h"

namespace quintral::tests::tool {
namespace {

TEST(JsonLine, TheCheckOfTheseTestsTellsGoodFromBad)
{
    const std::string good = unanswered_json("failed", 1, "a\\n\\u001b\\\"\xC3\xA4");
    EXPECT_TRUE(is_json_line(good));
    for (const std::string &bad :
         {good + good, good + "\n", good.substr(1), "x" + good, std::string(),
          unanswered_json("failed", 1, "\x1B"), unanswered_json("failed", 1, "\n"),
          unanswered_json("failed", 1, "\""), unanswered_json("failed", 1, "\\x41"),
          unanswered_json("failed", 1, "\\u12"), unanswered_json("failed", 1, "\x80"),
          unanswered_json("failed", 1, "\xED\xA0\x80"), unanswered_json("failed", 1, "\xC0\x80")})
        EXPECT_FALSE(is_json_line(bad)) << bad;
}

} // namespace
} // namespace quintral::tests::tool
