// Strings made safe for a terminal and for JSON.
#include "tool/safe-text.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "tests/harness/text.h"
#include "tests/tool/simple-safe-text.h"

namespace quintral {
namespace {

using tests::repeated;

std::string one_byte(unsigned byte)
{
    return std::string(1, static_cast<char>(byte));
}

std::string utf8(std::uint32_t c)
{
    if (c < 0x80)
        return one_byte(c);
    if (c < 0x800)
        return one_byte(0xC0 | c >> 6) + one_byte(0x80 | (c & 0x3F));
    if (c < 0x10000)
        return one_byte(0xE0 | c >> 12) + one_byte(0x80 | (c >> 6 & 0x3F)) +
               one_byte(0x80 | (c & 0x3F));
    return one_byte(0xF0 | c >> 18) + one_byte(0x80 | (c >> 12 & 0x3F)) +
           one_byte(0x80 | (c >> 6 & 0x3F)) + one_byte(0x80 | (c & 0x3F));
}

std::string hex_of_bytes(const std::string &bytes)
{
    std::string result;
    for (char c : bytes) {
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\x%02X",
                      static_cast<unsigned>(static_cast<unsigned char>(c)));
        result += escape;
    }
    return result;
}

std::string json_escape_of(std::uint32_t c)
{
    char escape[16];
    std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
    return escape;
}

struct Range {
    std::uint32_t first;
    std::uint32_t last;
};

// Control bytes except tab and line feed, DEL and the C1 controls, and the bidirectional controls.
const Range unsafe[] = {
    {0x01, 0x08},     {0x0B, 0x1F},     {0x7F, 0x9F},     {0x061C, 0x061C},
    {0x200E, 0x200F}, {0x202A, 0x202E}, {0x2066, 0x2069},
};

bool is_unsafe(std::uint32_t c)
{
    for (const Range &range : unsafe) {
        if (c >= range.first && c <= range.last)
            return true;
    }
    return false;
}

bool is_surrogate(std::uint32_t c)
{
    return c >= 0xD800 && c <= 0xDFFF;
}

std::string expected_safe(std::uint32_t c)
{
    return is_unsafe(c) ? hex_of_bytes(utf8(c)) : utf8(c);
}

std::string expected_json(std::uint32_t c)
{
    switch (c) {
    case '\n':
        return "\\n";
    case '\t':
        return "\\t";
    case '"':
        return "\\\"";
    case '\\':
        return "\\\\";
    default:
        return is_unsafe(c) ? json_escape_of(c) : utf8(c);
    }
}

void expect_block_is_safe(std::uint32_t first)
{
    std::string source;
    std::string safe;
    std::string json = "\"";
    for (std::uint32_t c = first == 0 ? 1 : first; c < first + 0x100; ++c) {
        if (is_surrogate(c))
            continue;
        source += utf8(c);
        safe += expected_safe(c);
        json += expected_json(c);
    }
    EXPECT_EQ(safe_text(source.c_str()), safe) << "from U+" << std::hex << first;
    EXPECT_EQ(json_string(source.c_str()), json + "\"") << "from U+" << std::hex << first;
}

// All of the first plane, and both ends of the others, which hold no controls.
TEST(SafeText, EveryCharacterIsShownUnlessItIsAControl)
{
    for (std::uint32_t first = 0; first < 0x10000; first += 0x100)
        expect_block_is_safe(first);
    for (std::uint32_t plane = 0x10000; plane < 0x110000; plane += 0x10000) {
        expect_block_is_safe(plane);
        expect_block_is_safe(plane + 0xFF00);
    }
}

TEST(SafeText, EveryByteAloneIsShownOrEscaped)
{
    for (unsigned byte = 0; byte < 256; ++byte) {
        const std::string text = byte == 0 ? "" : one_byte(byte);
        const bool shown = byte < 0x80 && !is_unsafe(byte);
        const std::string safe = shown ? text : hex_of_bytes(text);
        const std::string json = byte == 0 ? "" : byte < 0x80 ? expected_json(byte) : "\\ufffd";
        EXPECT_EQ(safe_text(text.c_str()), safe) << "byte " << byte;
        EXPECT_EQ(safe_line(text.c_str()), byte == '\n' ? "\\x0A" : safe) << "byte " << byte;
        EXPECT_EQ(json_string(text.c_str()), "\"" + json + "\"") << "byte " << byte;
    }
}

struct SafeRow {
    std::uint32_t character;
    const char *safe;
    const char *json;
};

TEST(SafeText, ControlsAreEscaped)
{
    const SafeRow rows[] = {
        {0x0001, "\\x01", "\\u0001"},
        {0x0007, "\\x07", "\\u0007"},
        {0x0008, "\\x08", "\\u0008"},
        {0x0009, "\t", "\\t"},
        {0x000A, "\n", "\\n"},
        {0x000B, "\\x0B", "\\u000b"},
        {0x000C, "\\x0C", "\\u000c"},
        {0x000D, "\\x0D", "\\u000d"},
        {0x001B, "\\x1B", "\\u001b"},
        {0x001F, "\\x1F", "\\u001f"},
        {0x0020, " ", " "},
        {0x0022, "\"", "\\\""},
        {0x002F, "/", "/"},
        {0x005C, "\\", "\\\\"},
        {0x007E, "~", "~"},
        {0x007F, "\\x7F", "\\u007f"},
        {0x0080, "\\xC2\\x80", "\\u0080"},
        {0x009B, "\\xC2\\x9B", "\\u009b"},
        {0x009F, "\\xC2\\x9F", "\\u009f"},
        {0x00A0, "\xC2\xA0", "\xC2\xA0"},
        {0x061B, "\xD8\x9B", "\xD8\x9B"},
        {0x061C, "\\xD8\\x9C", "\\u061c"},
        {0x061D, "\xD8\x9D", "\xD8\x9D"},
        {0x200D, "\xE2\x80\x8D", "\xE2\x80\x8D"},
        {0x200E, "\\xE2\\x80\\x8E", "\\u200e"},
        {0x200F, "\\xE2\\x80\\x8F", "\\u200f"},
        {0x2010, "\xE2\x80\x90", "\xE2\x80\x90"},
        {0x2029, "\xE2\x80\xA9", "\xE2\x80\xA9"},
        {0x202A, "\\xE2\\x80\\xAA", "\\u202a"},
        {0x202B, "\\xE2\\x80\\xAB", "\\u202b"},
        {0x202C, "\\xE2\\x80\\xAC", "\\u202c"},
        {0x202D, "\\xE2\\x80\\xAD", "\\u202d"},
        {0x202E, "\\xE2\\x80\\xAE", "\\u202e"},
        {0x202F, "\xE2\x80\xAF", "\xE2\x80\xAF"},
        {0x2065, "\xE2\x81\xA5", "\xE2\x81\xA5"},
        {0x2066, "\\xE2\\x81\\xA6", "\\u2066"},
        {0x2067, "\\xE2\\x81\\xA7", "\\u2067"},
        {0x2068, "\\xE2\\x81\\xA8", "\\u2068"},
        {0x2069, "\\xE2\\x81\\xA9", "\\u2069"},
        {0x206A, "\xE2\x81\xAA", "\xE2\x81\xAA"},
        {0xFEFF, "\xEF\xBB\xBF", "\xEF\xBB\xBF"},
        {0x1F600, "\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80"},
    };
    for (const SafeRow &row : rows) {
        const std::string source = "a" + utf8(row.character) + "b";
        const std::string safe = std::string("a") + row.safe + "b";
        EXPECT_EQ(safe_text(source.c_str()), safe) << std::hex << row.character;
        if (row.character != '\n') {
            EXPECT_EQ(safe_line(source.c_str()), safe) << std::hex << row.character;
        }
        EXPECT_EQ(json_string(source.c_str()), std::string("\"a") + row.json + "b\"")
            << std::hex << row.character;
    }
}

TEST(SafeText, ALineFeedIsEscapedOnlyBySafeLine)
{
    EXPECT_EQ(safe_text("one\ntwo\n"), "one\ntwo\n");
    EXPECT_EQ(safe_line("one\ntwo\n"), "one\\x0Atwo\\x0A");
    EXPECT_EQ(safe_line("one\r\ntwo\tthree"), "one\\x0D\\x0Atwo\tthree");
}

std::string with_replacement_characters(const std::string &text)
{
    std::string result;
    for (const char c : text)
        result += c == '?' ? std::string("\\ufffd") : std::string(1, c);
    return result;
}

struct IllFormedRow {
    const char *source;
    const char *safe;
    const char *json; // a '?' for each "\ufffd"
};

TEST(SafeText, EachIllFormedByteIsEscaped)
{
    const IllFormedRow rows[] = {
        // neither a lead nor a continuation byte that is expected
        {"a\x80z", "a\\x80z", "a?z"},
        {"a\xBFz", "a\\xBFz", "a?z"},
        {"a\xF5z", "a\\xF5z", "a?z"},
        {"\xFE\xFF", "\\xFE\\xFF", "??"},
        {"Gr\xFC\xDFz", "Gr\\xFC\\xDFz", "Gr??z"},
        // longer than necessary
        {"\xC0\x80", "\\xC0\\x80", "??"},
        {"\xC1\xBF", "\\xC1\\xBF", "??"},
        {"\xE0\x80\x9B", "\\xE0\\x80\\x9B", "???"},
        {"\xE0\x9F\xBF", "\\xE0\\x9F\\xBF", "???"},
        {"\xF0\x80\x80\x9B", "\\xF0\\x80\\x80\\x9B", "????"},
        {"\xF0\x8F\xBF\xBF", "\\xF0\\x8F\\xBF\\xBF", "????"},
        {"\xF8\x88\x80\x80\x80", "\\xF8\\x88\\x80\\x80\\x80", "?????"},
        // surrogates, alone and in pairs
        {"\xED\xA0\x80", "\\xED\\xA0\\x80", "???"},
        {"\xED\xBF\xBF", "\\xED\\xBF\\xBF", "???"},
        {"\xED\xA0\xBD\xED\xB8\x80", "\\xED\\xA0\\xBD\\xED\\xB8\\x80", "??????"},
        // above the last character of Unicode
        {"\xF4\x90\x80\x80", "\\xF4\\x90\\x80\\x80", "????"},
        {"\xF5\x80\x80\x80", "\\xF5\\x80\\x80\\x80", "????"},
        // cut short: by the end, by a letter, by another character
        {"\xC3", "\\xC3", "?"},
        {"\xE2\x82", "\\xE2\\x82", "??"},
        {"\xF0\x9F\x98", "\\xF0\\x9F\\x98", "???"},
        {"\xC3z", "\\xC3z", "?z"},
        {"\xE2\x82z", "\\xE2\\x82z", "??z"},
        {"\xF0\x9F\x98z", "\\xF0\\x9F\\x98z", "???z"},
        {"\xC3\xC3\xA4", "\\xC3\xC3\xA4", "?\xC3\xA4"},
        {"\xE2\x82\xC3\xA4", "\\xE2\\x82\xC3\xA4", "??\xC3\xA4"},
        {"\xF0\x9F\x98\xE2\x82\xAC", "\\xF0\\x9F\\x98\xE2\x82\xAC", "???\xE2\x82\xAC"},
        {"\xC3\x1B", "\\xC3\\x1B", "?\\u001b"},
        // a continuation byte too many
        {"\xC3\xA4\xA4", "\xC3\xA4\\xA4", "\xC3\xA4?"},
    };
    for (const IllFormedRow &row : rows) {
        EXPECT_EQ(safe_text(row.source), row.safe);
        EXPECT_EQ(safe_line(row.source), row.safe);
        EXPECT_EQ(json_string(row.source), "\"" + with_replacement_characters(row.json) + "\"")
            << "for " << row.safe;
    }
}

// Unicode 15, table 3-7: the lead bytes of one length with the range of their second byte.
struct LeadRow {
    unsigned first;
    unsigned last;
    unsigned length; // 0: not a lead byte
    unsigned low;
    unsigned high;
};

const LeadRow leads[] = {
    {0x01, 0x7F, 1, 0, 0},       {0x80, 0xC1, 0, 0, 0},       {0xC2, 0xDF, 2, 0x80, 0xBF},
    {0xE0, 0xE0, 3, 0xA0, 0xBF}, {0xE1, 0xEC, 3, 0x80, 0xBF}, {0xED, 0xED, 3, 0x80, 0x9F},
    {0xEE, 0xEF, 3, 0x80, 0xBF}, {0xF0, 0xF0, 4, 0x90, 0xBF}, {0xF1, 0xF3, 4, 0x80, 0xBF},
    {0xF4, 0xF4, 4, 0x80, 0x8F}, {0xF5, 0xFF, 0, 0, 0},
};

const LeadRow &lead_row(unsigned lead)
{
    const LeadRow *row = leads;
    while (lead > row->last)
        ++row;
    return *row;
}

// Every second byte after every lead byte, with a valid rest. If the pair is ill-formed, everything
// that is not ASCII is escaped.
TEST(SafeText, TheSecondByteIsJudgedByTheTableOfUnicode)
{
    for (unsigned lead = 0x80; lead < 0x100; ++lead) {
        const LeadRow &row = lead_row(lead);
        const std::string rest = row.length < 3 ? "" : repeated(row.length - 2, "\xBF");
        for (unsigned second = 1; second < 0xC0; ++second) {
            const std::string source = one_byte(lead) + one_byte(second) + rest;
            const bool well_formed = second >= row.low && second <= row.high && row.length > 1;
            const bool is_control = (lead == 0xC2 && second < 0xA0) || source == "\xD8\x9C";
            const bool second_is_shown = second < 0x80 && !is_unsafe(second);
            const std::string ill_formed =
                hex_of_bytes(one_byte(lead)) +
                (second_is_shown ? one_byte(second) : hex_of_bytes(one_byte(second))) +
                hex_of_bytes(rest);
            EXPECT_EQ(safe_text(source.c_str()), well_formed && !is_control ? source : ill_formed)
                << "bytes " << lead << " " << second;
        }
    }
}

// The line for some letters, a piece that is shown as `written`, and a "b". If the piece does not
// fit, nothing after it is shown either.
std::string expected_line(std::size_t letters, const std::string &written)
{
    const std::string start(letters, 'a');
    if (letters + written.size() > 1003)
        return start.substr(0, 1003);
    return start + written + (letters + written.size() < 1003 ? "b" : "");
}

TEST(SafeLine, IsTruncatedTo1003BytesNeverWithinACharacterOrAnEscape)
{
    const struct {
        const char *piece;
        const char *written;
    } pieces[] = {
        // characters of one to four bytes
        {"c", "c"},
        {"\xC3\xA4", "\xC3\xA4"},
        {"\xE2\x82\xAC", "\xE2\x82\xAC"},
        {"\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80"},
        // one to three escapes
        {"\n", "\\x0A"},
        {"\xFF", "\\xFF"},
        {"\xC2\x9B", "\\xC2\\x9B"},
        {"\xE2\x80\xAE", "\\xE2\\x80\\xAE"},
    };
    for (const auto &piece : pieces) {
        const std::size_t length = std::strlen(piece.written);
        for (std::size_t before = 1003 - length - 2; before <= 1004; ++before) {
            const std::string source = std::string(before, 'a') + piece.piece + "b";
            EXPECT_EQ(safe_line(source.c_str()), expected_line(before, piece.written))
                << before << " letters, then " << piece.written;
        }
    }
}

TEST(SafeLine, IsTheOnlyOneThatTruncates)
{
    EXPECT_EQ(safe_line(std::string(5000, 'x').c_str()), std::string(1003, 'x'));
    EXPECT_EQ(safe_line(repeated(500, "\x1B").c_str()), repeated(250, "\\x1B"));
    EXPECT_EQ(safe_line(repeated(500, "\xE2\x82\xAC").c_str()), repeated(334, "\xE2\x82\xAC"));
    EXPECT_EQ(safe_text(std::string(5000, 'x').c_str()), std::string(5000, 'x'));
    EXPECT_EQ(safe_text(repeated(500, "\x1B").c_str()), repeated(500, "\\x1B"));
    EXPECT_EQ(json_string(std::string(5000, 'x').c_str()), "\"" + std::string(5000, 'x') + "\"");
}

// Pieces that begin, continue and end characters, and runs that end at them.
std::string random_text(std::mt19937 &random)
{
    static const char *const pieces[] = {"plain text",
                                         "\n",
                                         "\t",
                                         "\"",
                                         "\\",
                                         "\x1B",
                                         "\x7F",
                                         "\x80",
                                         "\xBF",
                                         "\xC2",
                                         "\xC3\xA4",
                                         "\xC2\x9B",
                                         "\xD8\x9C",
                                         "\xE2",
                                         "\xE2\x82",
                                         "\xE2\x82\xAC",
                                         "\xE2\x80\xAE",
                                         "\xED\xA0",
                                         "\xF0\x9F\x98\x80",
                                         "\xF4\x90",
                                         "\xFF"};
    std::string text(random() % 8 == 0 ? 980 + random() % 24 : random() % 8, 'x');
    for (std::size_t count = random() % 12; count > 0; --count)
        text += pieces[random() % std::size(pieces)];
    return text;
}

TEST(SafeText, RandomTextsGiveWhatTheSimplestFormGives)
{
    std::mt19937 random(20240118);
    for (int i = 0; i < 5000; ++i) {
        const std::string text = random_text(random);
        ASSERT_EQ(safe_text(text.c_str()), tests::simple_safe_text(text));
        ASSERT_EQ(safe_line(text.c_str()), tests::simple_safe_line(text));
        ASSERT_EQ(json_string(text.c_str()), tests::simple_json_string(text));
    }
}

} // namespace
} // namespace quintral
