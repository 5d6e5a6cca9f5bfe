// format_message: the line of each level, the line feeds that are dropped, and where text is cut.
#include "support/error.h"

#include "tests/harness/test-main.h"
#include "tests/support/error-checks.h"

#include <algorithm>
#include <climits>
#include <clocale>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using tests::expect_bytes;
using tests::level_rows;
using tests::LevelRow;
using tests::rule_of;
using tests::shown;

TEST(MessageLevels, AreTheIntegers0To10)
{
    static_assert(std::is_same_v<MessageLevel, int>);
    const MessageLevel levels[] = {Log,       Plain, Info,    Note,  InfoBell,  NoteBell,
                                   PlainBell, Alert, Warning, Error, FatalError};
    for (int i = 0; i <= 10; ++i)
        EXPECT_EQ(levels[i], i);
}

// Returns the line for a buffer of out_size bytes. Checks the result, the terminator, and that
// nothing is written after the buffer.
std::string formatted(MessageLevel level, const std::string &text, int out_size)
{
    const auto size = static_cast<std::size_t>(out_size);
    std::vector<char> out(size + 64, '#');
    const std::string given = text;
    const int length = format_message(level, given.c_str(), out.data(), out_size);
    EXPECT_EQ(given, text) << "the caller's string was changed";
    EXPECT_TRUE(std::all_of(out.begin() + out_size, out.end(), [](char c) { return c == '#'; }))
        << "written past out_size " << out_size;
    EXPECT_TRUE(length >= 0 && length < out_size) << "result " << length;
    EXPECT_EQ(std::memchr(out.data(), '\0', size), out.data() + length) << "result " << length;
    return std::string(out.data());
}

TEST(FormatMessage, FormatsEachLevelWithoutALineFeed)
{
    for (const LevelRow &row : level_rows) {
        for (const std::string body : {"text", "", "a\nb", "100%s%n", "\x80\xe4\xff"}) {
            expect_bytes(formatted(row.level, body, 1024), row.before + body + row.after,
                         rule_of(row));
        }
    }
}

struct TextRow {
    std::string text;
    std::string body;
};

const TextRow ending_rows[] = {
    {"text\n", "text"},       {"text\n\n", "text"},
    {"text\n\n\n\n", "text"}, {"\n", ""},
    {"\n\n\n", ""},           {"a\nb\n", "a\nb"},
    {"\ntext", "\ntext"},     {"text\r\n", "text\r"},
    {"text\n\r", "text\n\r"}, {"text \n", "text "},
    {"text\t", "text\t"},     {"\r", "\r"},
    {"a\n\nb\n\n", "a\n\nb"},
};

TEST(FormatMessage, DropsAllLineFeedsAtTheEndAndNothingElse)
{
    for (const TextRow &row : ending_rows) {
        expect_bytes(formatted(Plain, row.text, 1024), row.body, shown(row.text));
        expect_bytes(formatted(Error, row.text, 1024), "Error: " + row.body + "\a",
                     shown(row.text));
        expect_bytes(formatted(PlainBell, row.text, 1024), "\a" + row.body, shown(row.text));
    }
}

struct CutRow {
    int out_size;
    std::string text;
    std::string body;
};

TEST(FormatMessage, CutsTheBodyToOutSizeLess20)
{
    const CutRow rows[] = {
        {100, std::string(79, 'x'), std::string(79, 'x')},
        {100, std::string(80, 'x'), std::string(80, 'x')},
        {100, std::string(81, 'x'), std::string(80, 'x')},
        {100, std::string(5000, 'x'), std::string(80, 'x')},
        {1024, std::string(1003, 'x'), std::string(1003, 'x')},
        {1024, std::string(1004, 'x'), std::string(1004, 'x')}, // the handlers show one less
        {1024, std::string(1005, 'x'), std::string(1004, 'x')},
        {20, "text", ""},
        {21, "text", "t"},
        {22, "text", "te"},
        {24, "text", "text"},
        {70000, std::string(69000, 'x'), std::string(69000, 'x')},
        // line feeds are dropped before the cut
        {100, std::string(80, 'x') + "\n\n", std::string(80, 'x')},
        {100, std::string(79, 'x') + "\n\n", std::string(79, 'x')},
        {100, std::string(79, 'x') + "\ny", std::string(79, 'x') + "\n"},
    };
    for (const CutRow &row : rows) {
        for (const LevelRow &level : level_rows) {
            expect_bytes(formatted(level.level, row.text, row.out_size),
                         level.before + row.body + level.after,
                         rule_of(level) + ", out_size " + std::to_string(row.out_size));
        }
    }
}

TEST(FormatMessage, CutsALineWithoutTextBelowASizeOf20)
{
    for (const LevelRow &row : level_rows) {
        const std::string line = row.before + row.after;
        for (int out_size = 1; out_size < 20; ++out_size) {
            const auto capacity = static_cast<std::size_t>(out_size - 1);
            expect_bytes(formatted(row.level, "text", out_size), line.substr(0, capacity),
                         rule_of(row) + ", out_size " + std::to_string(out_size));
        }
    }
}

// The line as printf formats it.
std::string printed_line(const LevelRow &row, std::string text, int out_size)
{
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    std::vector<char> out(static_cast<std::size_t>(out_size));
    std::snprintf(out.data(), out.size(), "%s%.*s%s", row.before.c_str(),
                  std::max(out_size - 20, 0), text.c_str(), row.after.c_str());
    return out.data();
}

TEST(FormatMessage, FormatsRandomTextsAsPrintfDoes)
{
    std::mt19937 random(20240117);
    for (int i = 0; i < 20000; ++i) {
        std::string text;
        for (std::size_t length = random() % 60; text.size() < length;)
            text += "ab\n\n%\r \xe4"[random() % 8];
        const LevelRow &row = level_rows[random() % std::size(level_rows)];
        const int out_size = static_cast<int>(random() % 80) + 1;
        expect_bytes(formatted(row.level, text, out_size), printed_line(row, text, out_size),
                     rule_of(row) + ", out_size " + std::to_string(out_size));
    }
}

TEST(FormatMessage, WritesNothingAndReturns0WithoutCapacity)
{
    for (const int out_size : {0, -1, -20, INT_MIN}) {
        char out[] = "####";
        EXPECT_EQ(format_message(Error, "text", out, out_size), 0) << "out_size " << out_size;
        EXPECT_STREQ(out, "####") << "out_size " << out_size;
        EXPECT_EQ(format_message(Error, "text", nullptr, out_size), 0) << "out_size " << out_size;
    }
}

TEST(FormatMessage, TreatsStringsAsBytesUnderALatin1Locale)
{
    ASSERT_NE(std::setlocale(LC_ALL, tests::comma_locale), nullptr);
    expect_bytes(formatted(Error, "\xc4\xe4\xff\xa0\n", 100), "Error: \xc4\xe4\xff\xa0\a",
                 "Latin-1");
    std::setlocale(LC_ALL, "C");
}

} // namespace
} // namespace quintral
