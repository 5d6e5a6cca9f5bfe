// Short options: clusters, unknown characters, and stale positions.
#include "cmdline/long-options.h"

#include <string>

#include <gtest/gtest.h>

#include "tests/cmdline/long-options-calls.h"

namespace quintral::tests {
namespace {

TEST(LongOptionsShort, ClusterReturnsOneOptionPerCall)
{
    run_rows({
        {"three options", "-xyx", "xy", {"x 1.2", "y 1.3", "x 2", "end 2"}},
        {"the rest is the last one's argument", "-xofile", "xo:", {"x 1.2", "o 2 =file"}},
        {"a dash can be an option", "-x-x", "x-", {"x 1.2", "- 1.3", "x 2"}},
        {"'=' is not an argument here", "-x=", "x", {"x 1.2", "?! 2"}, invalid("-=")},
        {"'=' can be an option", "-=", "=", {"= 2"}},
    });
}

TEST(LongOptionsShort, UnknownCharacterIsReportedAndSkipped)
{
    const std::string q = invalid("-q");
    run_rows({
        {"alone", "-q", "x", {"?! 2"}, q},
        {"the next call continues after it", "-qx", "x", {"?! 1.2", "x 2", "end 2"}, q},
        {"at the end", "-xq|-x", "x", {"x 1.2", "?! 2", "x 3"}, q},
        {"the last argument stays", "-ofile|-q", "o:", {"o 2 =file", "?! 3 =file"}, q},
        {"in an empty short-option string", "-q", {"", kinds, 1}, {"?! 2"}, q},
        {"a Latin-1 byte is printed unchanged", "-\xE9", "x", {"?! 2"}, invalid("-\xE9")},
    });
}

TEST(LongOptionsShort, ByteAbove127IsAPositiveCode)
{
    run_rows({
        {"0xE9", "-\xE9", "\xE9", {"233 2"}},
        {"0xFF, which is not -1", "-\xFF", "\xFF", {"255 2"}},
        {"in a message", "-\xE9", "\xE9:", {":! 2"}, missing("-\xE9")},
    });
}

TEST(LongOptionsShort, ColonIsAnOptionIfTheStringHasOne)
{
    run_rows({
        {"one colon: no argument", "-:", "x:", {": 2"}},
        {"two colons: the first takes an argument", "-:|v", "x::", {": 3 =v"}},
        {"no colon", "-:", "x", {"?! 2"}, invalid("-:")},
    });
}

TEST(LongOptionsShort, ElementThatEndsBeforeAnOptionCharacterIsUnknown)
{
    run_rows({
        {"a lone plus, no entry", "+|-x", {"x", no_entries, 1}, {"?! 2", "x 3"}, invalid("-")},
        {"a lone plus, no table", "+", {"x:", nullptr, 1}, {"?! 2", "end 2"}, invalid("-")},
    });
}

TEST(LongOptionsShort, StalePositionIsNeverReadPastTheTerminator)
{
    const struct {
        const char *rule;
        const char *words;
        int position;
    } rows[] = {
        {"at the terminator", "-xx|a", 3}, {"past it", "-xx|a", 4},
        {"far past it", "-xx|a", 1 << 30}, {"the largest", "-xx|a", 0x7FFFFFFF},
        {"a negative one", "-xx|a", -1},   {"at the start of an empty element", "|a", 0},
        {"in an empty element", "|a", 2},
    };
    for (const auto &row : rows) {
        reset_parser();
        option_index = 1;
        option_position = row.position;
        continue_row({row.rule, row.words, {"x", kinds}, {"?! 2", "end 2"}, invalid("-")});
    }
}

TEST(LongOptionsShort, StalePositionWithoutShortOptionsReadsNothing)
{
    reset_parser();
    option_index = 1;
    option_position = 99;
    continue_row({"returns the code", "-none", longs_only, {"? 1.99"}});
}

} // namespace
} // namespace quintral::tests
