// The parts of the utility that need no process of their own: safe texts, version numbers, proxy
// exceptions, the launch argument, the answer's texts and the option table. The process as a whole
// is in tool-test.cpp.
#include "platform/platform.h"
#include "support/error.h"
#include "tool/answer.h"
#include "tool/options.h"
#include "tool/proxy-exceptions.h"
#include "tool/safe-text.h"
#include "tool/start-up.h"
#include "tool/streams.h"
#include "tool/version-number.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/utsname.h>

#include "tests/harness/test-main.h"
#include "tests/harness/text.h"

namespace quintral {
namespace {

using tests::repeated;

std::string byte_text(unsigned byte)
{
    return std::string(1, static_cast<char>(byte));
}

// Safe texts

std::string utf8(std::uint32_t c)
{
    if (c < 0x80)
        return byte_text(c);
    if (c < 0x800)
        return byte_text(0xC0 | c >> 6) + byte_text(0x80 | (c & 0x3F));
    if (c < 0x10000)
        return byte_text(0xE0 | c >> 12) + byte_text(0x80 | (c >> 6 & 0x3F)) +
               byte_text(0x80 | (c & 0x3F));
    return byte_text(0xF0 | c >> 18) + byte_text(0x80 | (c >> 12 & 0x3F)) +
           byte_text(0x80 | (c >> 6 & 0x3F)) + byte_text(0x80 | (c & 0x3F));
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

// What is never shown raw: control bytes but tab and line feed, DEL with the C1 controls, and the
// bidirectional controls.
const Range hidden[] = {
    {0x01, 0x08},     {0x0B, 0x1F},     {0x7F, 0x9F},     {0x061C, 0x061C},
    {0x200E, 0x200F}, {0x202A, 0x202E}, {0x2066, 0x2069},
};

bool is_hidden(std::uint32_t c)
{
    for (const Range &range : hidden) {
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
    return is_hidden(c) ? hex_of_bytes(utf8(c)) : utf8(c);
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
        return is_hidden(c) ? json_escape_of(c) : utf8(c);
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

// The first plane whole, of the others, where nothing is hidden, both ends.
TEST(SafeText, EveryCharacterOfUnicodeIsShownUnlessItIsAControl)
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
        const std::string text = byte == 0 ? "" : byte_text(byte);
        const bool shown = byte < 0x80 && !is_hidden(byte);
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

TEST(SafeText, ControlsAreWrittenOut)
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

TEST(SafeText, ALineFeedIsWrittenOutOnALineOnly)
{
    EXPECT_EQ(safe_text("one\ntwo\n"), "one\ntwo\n");
    EXPECT_EQ(safe_line("one\ntwo\n"), "one\\x0Atwo\\x0A");
    EXPECT_EQ(safe_line("one\r\ntwo\tthree"), "one\\x0D\\x0Atwo\tthree");
}

struct IllFormedRow {
    const char *source;
    const char *safe;
    const char *json;
};

TEST(SafeText, EachByteThatIsNotWellFormedIsWrittenOut)
{
    const IllFormedRow rows[] = {
        // nothing that leads or follows
        {"a\x80z", "a\\x80z", "a\\ufffdz"},
        {"a\xBFz", "a\\xBFz", "a\\ufffdz"},
        {"a\xF5z", "a\\xF5z", "a\\ufffdz"},
        {"\xFE\xFF", "\\xFE\\xFF", "\\ufffd\\ufffd"},
        {"Gr\xFC\xDF"
         "e",
         "Gr\\xFC\\xDF"
         "e",
         "Gr\\ufffd\\ufffd"
         "e"},
        // longer than need be
        {"\xC0\x80", "\\xC0\\x80", "\\ufffd\\ufffd"},
        {"\xC1\xBF", "\\xC1\\xBF", "\\ufffd\\ufffd"},
        {"\xE0\x80\x9B", "\\xE0\\x80\\x9B", "\\ufffd\\ufffd\\ufffd"},
        {"\xE0\x9F\xBF", "\\xE0\\x9F\\xBF", "\\ufffd\\ufffd\\ufffd"},
        {"\xF0\x80\x80\x9B", "\\xF0\\x80\\x80\\x9B", "\\ufffd\\ufffd\\ufffd\\ufffd"},
        {"\xF0\x8F\xBF\xBF", "\\xF0\\x8F\\xBF\\xBF", "\\ufffd\\ufffd\\ufffd\\ufffd"},
        {"\xF8\x88\x80\x80\x80", "\\xF8\\x88\\x80\\x80\\x80",
         "\\ufffd\\ufffd\\ufffd\\ufffd\\ufffd"},
        // surrogates, alone and in pairs
        {"\xED\xA0\x80", "\\xED\\xA0\\x80", "\\ufffd\\ufffd\\ufffd"},
        {"\xED\xBF\xBF", "\\xED\\xBF\\xBF", "\\ufffd\\ufffd\\ufffd"},
        {"\xED\xA0\xBD\xED\xB8\x80", "\\xED\\xA0\\xBD\\xED\\xB8\\x80",
         "\\ufffd\\ufffd\\ufffd\\ufffd\\ufffd\\ufffd"},
        // behind the end of Unicode
        {"\xF4\x90\x80\x80", "\\xF4\\x90\\x80\\x80", "\\ufffd\\ufffd\\ufffd\\ufffd"},
        {"\xF5\x80\x80\x80", "\\xF5\\x80\\x80\\x80", "\\ufffd\\ufffd\\ufffd\\ufffd"},
        // cut off: by the end, by a letter, by another character
        {"\xC3", "\\xC3", "\\ufffd"},
        {"\xE2\x82", "\\xE2\\x82", "\\ufffd\\ufffd"},
        {"\xF0\x9F\x98", "\\xF0\\x9F\\x98", "\\ufffd\\ufffd\\ufffd"},
        {"\xC3z", "\\xC3z", "\\ufffdz"},
        {"\xE2\x82z", "\\xE2\\x82z", "\\ufffd\\ufffdz"},
        {"\xF0\x9F\x98z", "\\xF0\\x9F\\x98z", "\\ufffd\\ufffd\\ufffdz"},
        {"\xC3\xC3\xA4", "\\xC3\xC3\xA4", "\\ufffd\xC3\xA4"},
        {"\xE2\x82\xC3\xA4", "\\xE2\\x82\xC3\xA4", "\\ufffd\\ufffd\xC3\xA4"},
        {"\xF0\x9F\x98\xE2\x82\xAC", "\\xF0\\x9F\\x98\xE2\x82\xAC",
         "\\ufffd\\ufffd\\ufffd\xE2\x82\xAC"},
        {"\xC3\x1B", "\\xC3\\x1B", "\\ufffd\\u001b"},
        // a continuation byte too many
        {"\xC3\xA4\xA4", "\xC3\xA4\\xA4", "\xC3\xA4\\ufffd"},
    };
    for (const IllFormedRow &row : rows) {
        EXPECT_EQ(safe_text(row.source), row.safe);
        EXPECT_EQ(safe_line(row.source), row.safe);
        EXPECT_EQ(json_string(row.source), std::string("\"") + row.json + "\"")
            << "for " << row.safe;
    }
}

// Unicode 15, table 3-7: the lead bytes of one length with the range of their second byte.
struct LeadRow {
    unsigned first;
    unsigned last;
    unsigned length; // 0: leads nothing
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

// Every second byte behind every lead byte, the rest as it must be. Where the pair is ill-formed,
// all that is not ASCII is written out.
TEST(SafeText, TheSecondByteDecidesAsTheTableOfUnicodeSays)
{
    for (unsigned lead = 0x80; lead < 0x100; ++lead) {
        const LeadRow &row = lead_row(lead);
        const std::string rest = row.length < 3 ? "" : repeated(row.length - 2, "\xBF");
        for (unsigned second = 1; second < 0xC0; ++second) {
            const std::string source = byte_text(lead) + byte_text(second) + rest;
            const bool well_formed = second >= row.low && second <= row.high && row.length > 1;
            const bool is_control = (lead == 0xC2 && second < 0xA0) || source == "\xD8\x9C";
            const bool second_is_shown = second < 0x80 && !is_hidden(second);
            const std::string ill_formed =
                hex_of_bytes(byte_text(lead)) +
                (second_is_shown ? byte_text(second) : hex_of_bytes(byte_text(second))) +
                hex_of_bytes(rest);
            EXPECT_EQ(safe_text(source.c_str()), well_formed && !is_control ? source : ill_formed)
                << "bytes " << lead << " " << second;
        }
    }
}

// What a text of some letters, a piece that is shown as `written`, and a "b" becomes. Where the
// piece does not fit, nothing smaller takes its place.
std::string expected_cut(std::size_t letters, const std::string &written)
{
    const std::string start(letters, 'a');
    if (letters + written.size() > 1003)
        return start.substr(0, 1003);
    return start + written + (letters + written.size() < 1003 ? "b" : "");
}

TEST(SafeLine, IsCutAt1003BytesNeverInsideACharacterOrAnEscape)
{
    const struct {
        const char *piece;
        const char *written;
    } pieces[] = {
        {"c", "c"},                               // one byte
        {"\xC3\xA4", "\xC3\xA4"},                 // two
        {"\xE2\x82\xAC", "\xE2\x82\xAC"},         // three
        {"\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80"}, // four
        {"\n", "\\x0A"},                          // an escape
        {"\xFF", "\\xFF"},                        // an ill-formed byte
        {"\xC2\x9B", "\\xC2\\x9B"},               // a character of two escapes
        {"\xE2\x80\xAE", "\\xE2\\x80\\xAE"},      // of three
    };
    for (const auto &piece : pieces) {
        const std::size_t length = std::strlen(piece.written);
        for (std::size_t before = 1003 - length - 2; before <= 1004; ++before) {
            const std::string source = std::string(before, 'a') + piece.piece + "b";
            EXPECT_EQ(safe_line(source.c_str()), expected_cut(before, piece.written))
                << before << " letters, then " << piece.written;
        }
    }
}

TEST(SafeLine, ALongTextKeeps1003BytesAndAnUncutTextAll)
{
    EXPECT_EQ(safe_line(std::string(5000, 'x').c_str()), std::string(1003, 'x'));
    EXPECT_EQ(safe_line(repeated(500, "\x1B").c_str()), repeated(250, "\\x1B"));
    EXPECT_EQ(safe_line(repeated(500, "\xE2\x82\xAC").c_str()), repeated(334, "\xE2\x82\xAC"));
    EXPECT_EQ(safe_text(std::string(5000, 'x').c_str()), std::string(5000, 'x'));
    EXPECT_EQ(safe_text(repeated(500, "\x1B").c_str()), repeated(500, "\\x1B"));
    EXPECT_EQ(json_string(std::string(5000, 'x').c_str()), "\"" + std::string(5000, 'x') + "\"");
}

// Version numbers

TEST(VersionNumber, IsRunsOfDigitsWithAPointBetween)
{
    const struct {
        std::string text;
        bool is_number;
    } rows[] = {
        {"5", true},
        {"0", true},
        {"5.2", true},
        {"5.2.1", true},
        {"1.2.3.4.5", true},
        {"0005.0002", true},
        {std::string(40, '9'), true},
        {std::string(40, '9') + "." + std::string(40, '0'), true},
        {"", false},
        {".", false},
        {"5.", false},
        {".5", false},
        {"5..2", false},
        {"5.2.", false},
        {"5a", false},
        {"5.2a", false},
        {"5.a", false},
        {"5.2.x", false},
        {"v5", false},
        {" 5", false},
        {"5 ", false},
        {"5\r", false},
        {"5\n", false},
        {"-5", false},
        {"+5", false},
        {"5,2", false},
        {"1e3", false},
        {"0x10", false},
        {"inf", false},
        {"nan", false},
        {"\xD9\xA5", false}, // an Arabic five
    };
    for (const auto &row : rows)
        EXPECT_EQ(is_version_number(row.text.c_str()), row.is_number) << "text " << row.text;
}

int sign(int n)
{
    return (n > 0) - (n < 0);
}

TEST(VersionNumber, ComparesExactlyWhateverItsLength)
{
    const std::string nines(40, '9');
    const std::string zeros(40, '0');
    const struct {
        std::string first;
        std::string second;
        int expected;
    } rows[] = {
        // decimal fractions, not counters
        {"5.2", "5.2", 0},
        {"5.2", "5.20", 0},
        {"5.2", "5.200", 0},
        {"5.20", "5.200", 0},
        {"5", "5.0", 0},
        {"5", "5.000", 0},
        {"5.10", "5.9", -1},
        {"5.19", "5.2", -1},
        {"5.02", "5.2", -1},
        {"5.1", "5.09", 1},
        {"5.999", "6", -1},
        // whole parts as numbers
        {"6", "5.9", 1},
        {"10", "9", 1},
        {"10.0", "9.9", 1},
        {"05", "5", 0},
        {"0005.2", "5.2", 0},
        {"0", "000", 0},
        {"0.1", "0", 1},
        // further parts as whole numbers, a missing one as 0
        {"5.2.1", "5.2", 1},
        {"5.2.0", "5.2", 0},
        {"5.2.0.0", "5.20", 0},
        {"1.0.0", "1", 0},
        {"1.0.1", "1", 1},
        {"5.2.10", "5.2.9", 1},
        {"5.2.01", "5.2.1", 0},
        {"5.2.1", "5.2.1.1", -1},
        {"5.2.0.1", "5.2", 1},
        {"5.2.9", "5.3", -1},
        {"5.20.1", "5.2.1", 0},
        {"5.2.0.0.7", "5.2.0.0.6", 1},
        // any length
        {nines, "1" + zeros, -1},
        {"1" + zeros, nines, 1},
        {zeros + "7", "7", 0},
        {"4294967296", "0", 1},
        {"18446744073709551616", "1", 1},
        {"9007199254740993", "9007199254740992", 1},
        {"5.2" + zeros + "1", "5.2", 1},
        {"5.2" + zeros, "5.2", 0},
        {"5." + nines, "6", -1},
        {"5." + nines + "1", "5." + nines + "2", -1},
        {"5.2." + nines, "5.2." + nines, 0},
        {"5.2.1" + zeros, "5.2." + nines, 1},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(sign(compare_versions(row.first.c_str(), row.second.c_str())), row.expected)
            << row.first << " against " << row.second;
        EXPECT_EQ(sign(compare_versions(row.second.c_str(), row.first.c_str())), -row.expected)
            << row.second << " against " << row.first;
    }
}

TEST(ProductVersion, TakesWhatSinglePrecisionSendsAsItself)
{
    const struct {
        std::string text;
        float version;
    } rows[] = {
        {"0", 0.0F},
        {"5", 5.0F},
        {"5.2", 5.2F},
        {"5.20", 5.2F},
        {"5.200", 5.2F},
        {"1.001", 1.001F},
        {"0.999", 0.999F},
        {"0005.2", 5.2F},
        {std::string(40, '0') + "5.2", 5.2F},
        {"8192.001", 8192.001F},
        {"16384.002", 16384.002F},
        {"123456.789", 123456.7890625F},
        {"16777216", 16777216.0F},
        {"16777216.000", 16777216.0F},
        {"16777218", 16777218.0F},
        {"33554436", 33554436.0F},
        {"340282346638528859811704183484516925440", 340282346638528859811704183484516925440.0F},
    };
    for (const auto &row : rows) {
        float version = -1.0F;
        EXPECT_EQ(read_product_version(row.text.c_str(), &version), 0) << "text " << row.text;
        EXPECT_EQ(version, row.version) << "text " << row.text;
    }
}

TEST(ProductVersion, RefusesEverythingElseAndLeavesTheNumberAlone)
{
    const std::string rows[] = {
        // not the shape
        "",
        ".",
        "5.",
        ".5",
        "5.1234",
        "5.0000",
        "5.2.1",
        "5..2",
        "-5",
        "+5",
        " 5",
        "5 ",
        "5\n",
        "5,2",
        "1e3",
        "0x10",
        "nan",
        "inf",
        "infinity",
        "5f",
        "5.2f",
        "five",
        // not sent as itself
        "16777217",
        "16777219",
        "33554434",
        "16384.001",
        "16777216.001",
        "123456.785",
        "340282346638528859811704183484516925441",
        "340282366920938463463374607431768211456",
        std::string(39, '9'),
        std::string(40, '9'),
        "1" + std::string(4000, '0'),
    };
    for (const std::string &text : rows) {
        float version = -1.0F;
        EXPECT_EQ(read_product_version(text.c_str(), &version), -1) << "text " << text;
        EXPECT_EQ(version, -1.0F) << "text " << text;
    }
}

// Proxy exceptions

TEST(ProxyExceptions, AListNamesAHostOrADomainItEndsIn)
{
    const struct {
        const char *list;
        const char *host;
        bool named;
    } rows[] = {
        {"", "example.com", false},
        {" , ,\t", "example.com", false},
        {"*", "example.com", true},
        {"*", "127.0.0.1", true},
        // "*" is nothing special among names
        {"*,other.org", "example.com", false},
        {"other.org *", "example.com", false},
        {"*.example.com", "www.example.com", false},
        {"example.com", "example.com", true},
        {"example.com", "www.example.com", true},
        {"example.com", "a.b.example.com", true},
        {"com", "example.com", true},
        {"example.com", "badexample.com", false},
        {"example.com", "example.com.org", false},
        {"example.com", "example.co", false},
        {"www.example.com", "example.com", false},
        {"example.com", "example.org", false},
        // a leading point is ignored
        {".example.com", "example.com", true},
        {".example.com", "www.example.com", true},
        {".example.com", "badexample.com", false},
        {".", "example.com", false},
        // any letter case
        {"EXAMPLE.com", "example.COM", true},
        {"Example.Com", "WWW.EXAMPLE.COM", true},
        // names apart by commas or blanks
        {"other.org,example.com", "www.example.com", true},
        {"other.org example.com", "www.example.com", true},
        {"other.org\texample.com", "www.example.com", true},
        {"other.org, example.com", "example.com", true},
        {",,other.org ,, example.com,", "example.com", true},
        {" example.com ", "example.com", true},
        {"example.com,other.org", "example.com", true},
        {"other.org,third.net", "example.com", false},
        {"other.orgexample.com", "example.com", false},
        // addresses are names like any
        {"127.0.0.1", "127.0.0.1", true},
        {"127.0.0.1", "127.0.0.11", false},
        {"127.0.0.1", "1127.0.0.1", false},
        {"localhost,127.0.0.1", "127.0.0.1", true},
    };
    for (const auto &row : rows)
        EXPECT_EQ(list_names_host(row.list, row.host), row.named)
            << "list \"" << row.list << "\", host " << row.host;
}

TEST(ProxyExceptions, OnlyTheLowerCaseVariableCounts)
{
    EXPECT_FALSE(system_proxy_is_bypassed("example.com"));
    setenv("NO_PROXY", "example.com", 1);
    EXPECT_FALSE(system_proxy_is_bypassed("example.com"));
    setenv("no_proxy", "example.com", 1);
    EXPECT_TRUE(system_proxy_is_bypassed("www.example.com"));
    EXPECT_FALSE(system_proxy_is_bypassed("example.org"));
    setenv("no_proxy", "", 1);
    EXPECT_FALSE(system_proxy_is_bypassed("example.com"));
    tests::clean_environment();
}

// Argument vectors

// A vector as main gets one; the texts may be written to.
struct CommandLine {
    std::vector<std::string> texts;
    std::vector<char *> elements; // null behind the last
};

void fill_command_line(CommandLine *line, const std::vector<std::string> &texts)
{
    line->texts = texts;
    line->elements.clear();
    for (std::string &text : line->texts)
        line->elements.push_back(text.data());
    line->elements.push_back(nullptr);
}

std::vector<std::string> texts_of(int count, char **arguments)
{
    return std::vector<std::string>(arguments, arguments + count);
}

TEST(LaunchArgument, IsDroppedWhereItStandsFirst)
{
    using Texts = std::vector<std::string>;
    const struct {
        Texts before;
        Texts after;
    } rows[] = {
        {{"prog", "-psn_0_12345"}, {"prog"}},
        {{"prog", "-psn_0_12345", "-proxy", "cache:3128"}, {"prog", "-proxy", "cache:3128"}},
        {{"prog", "-psn_"}, {"prog"}},
        {{"prog", "-psn_=x", "a"}, {"prog", "a"}},
        {{"prog", "-psn_0_1", "-psn_0_2"}, {"prog", "-psn_0_2"}},
        {{"prog", "-psn"}, {"prog", "-psn"}},
        {{"prog", "-psn0_1"}, {"prog", "-psn0_1"}},
        {{"prog", "-PSN_0_1"}, {"prog", "-PSN_0_1"}},
        {{"prog", "--psn_0_1"}, {"prog", "--psn_0_1"}},
        {{"prog", "psn_0_1"}, {"prog", "psn_0_1"}},
        {{"prog", "-json", "-psn_0_1"}, {"prog", "-json", "-psn_0_1"}},
        {{"prog", ""}, {"prog", ""}},
        {{"prog"}, {"prog"}},
        {{"-psn_0_1"}, {"-psn_0_1"}},
        {{}, {}},
    };
    for (const auto &row : rows) {
        CommandLine line;
        fill_command_line(&line, row.before);
        int count = static_cast<int>(row.before.size());
        char **arguments = line.elements.data();
        drop_launch_argument(&count, &arguments);
        const std::string what = testing::PrintToString(row.before);
        ASSERT_EQ(count, static_cast<int>(row.after.size())) << what;
        EXPECT_EQ(texts_of(count, arguments), row.after) << what;
        EXPECT_EQ(arguments[count], nullptr) << what;
    }
}

// Options

// Reads the options of a command line whose program is called prog.
int read_line(CommandLine *line, ToolOptions *options, std::vector<std::string> texts)
{
    texts.insert(texts.begin(), "prog");
    fill_command_line(line, texts);
    return read_options(static_cast<int>(texts.size()), line->elements.data(), options);
}

TEST(Options, StartFromTheUtilitysOwnAndTheSystemsNames)
{
    utsname system;
    ASSERT_EQ(uname(&system), 0);
    CommandLine line;
    ToolOptions options;
    ASSERT_EQ(read_line(&line, &options, {}), 0);
    EXPECT_STREQ(options.product, "Quintral");
    EXPECT_STREQ(options.product_line, "Quintral");
    EXPECT_STREQ(options.version_text, QUINTRAL_VERSION);
    EXPECT_EQ(options.version, std::strtof(QUINTRAL_VERSION, nullptr));
    EXPECT_STREQ(options.version_name, QUINTRAL_VERSION_NAME);
    EXPECT_STREQ(options.machine_id, "");
    char os_name[9];
    char os_version[sizeof system.release];
    platform_os_name(os_name);
    EXPECT_STREQ(options.os, os_name);
    EXPECT_STREQ(options.os_version, platform_os_version(os_version, sizeof os_version));
    EXPECT_STREQ(options.processor_arch, system.machine);
    EXPECT_EQ(options.service, nullptr);
    EXPECT_EQ(options.proxy, nullptr);
    EXPECT_EQ(options.proxy_user, nullptr);
    EXPECT_EQ(options.proxy_password, nullptr);
    EXPECT_EQ(options.max_time, 60);
    EXPECT_FALSE(options.json || options.quiet || options.exit_code || options.open);
    EXPECT_FALSE(options.help || options.show_version);
}

TEST(Options, EachTextOptionFillsItsFieldInEverySpelling)
{
    const struct {
        const char *name;
        const char *ToolOptions::*field;
    } rows[] = {
        {"product", &ToolOptions::product},
        {"productline", &ToolOptions::product_line},
        {"version-name", &ToolOptions::version_name},
        {"machine-id", &ToolOptions::machine_id},
        {"os", &ToolOptions::os},
        {"os-version", &ToolOptions::os_version},
        {"processor-arch", &ToolOptions::processor_arch},
        {"proxy", &ToolOptions::proxy},
        {"proxy-user", &ToolOptions::proxy_user},
        {"proxy-pass", &ToolOptions::proxy_password},
        {"service", &ToolOptions::service},
    };
    for (const auto &row : rows) {
        for (const char *dash : {"-", "--", "+"}) {
            const std::string word = dash + std::string(row.name);
            CommandLine line;
            ToolOptions options;
            ASSERT_EQ(read_line(&line, &options, {word, "-x"}), 0) << word;
            EXPECT_STREQ(options.*row.field, "-x") << word;
            ASSERT_EQ(read_line(&line, &options, {word + "=a", "-json"}), 0) << word;
            EXPECT_STREQ(options.*row.field, "a") << word;
            EXPECT_TRUE(options.json) << word;
            ASSERT_EQ(read_line(&line, &options, {word, "a", word + "=b"}), 0) << word;
            EXPECT_STREQ(options.*row.field, "b") << "the last " << word << " counts";
        }
    }
}

TEST(Options, EachSwitchSetsItsFieldAloneInEverySpelling)
{
    const struct {
        const char *name;
        bool ToolOptions::*field;
    } rows[] = {
        {"json", &ToolOptions::json},           {"quiet", &ToolOptions::quiet},
        {"exit-code", &ToolOptions::exit_code}, {"open", &ToolOptions::open},
        {"help", &ToolOptions::help},           {"version", &ToolOptions::show_version},
    };
    for (const auto &row : rows) {
        for (const char *dash : {"-", "--", "+"}) {
            CommandLine line;
            ToolOptions options;
            ASSERT_EQ(read_line(&line, &options, {dash + std::string(row.name)}), 0) << row.name;
            for (const auto &other : rows)
                EXPECT_EQ(options.*other.field, other.field == row.field)
                    << dash << row.name << " and " << other.name;
        }
    }
}

TEST(Options, TheProductVersionIsKeptAsNumberAndAsTyped)
{
    CommandLine line;
    ToolOptions options;
    ASSERT_EQ(read_line(&line, &options, {"-product-version", "0005.25"}), 0);
    EXPECT_STREQ(options.version_text, "0005.25");
    EXPECT_EQ(options.version, 5.25F);
}

TEST(Options, MaxTimeTakes1To86400Seconds)
{
    const struct {
        const char *text;
        int seconds;
    } rows[] = {{"1", 1}, {"60", 60}, {"0090", 90}, {"86399", 86399}, {"86400", 86400}};
    for (const auto &row : rows) {
        CommandLine line;
        ToolOptions options;
        ASSERT_EQ(read_line(&line, &options, {"-max-time", row.text}), 0) << row.text;
        EXPECT_EQ(options.max_time, row.seconds);
    }
}

TEST(Options, AServiceIsAHostWithAPortOrWithout)
{
    for (const char *text : {"a", "9", "Update.Example-2.com", "127.0.0.1", "host:1", "host:65535",
                             "host:00080", "-", ".", "a..b", "-json:80"}) {
        CommandLine line;
        ToolOptions options;
        ASSERT_EQ(read_line(&line, &options, {"-service", text}), 0) << text;
        EXPECT_STREQ(options.service, text);
    }
}

TEST(Options, EveryPasswordIsOverwrittenInTheVector)
{
    const struct {
        std::vector<std::string> before;
        const char *password;
    } rows[] = {
        {{"-proxy-pass", "secret"}, "secret"},
        {{"--proxy-pass", "secret"}, "secret"},
        {{"+proxy-pass", "secret"}, "secret"},
        {{"-proxy-pass=secret"}, "secret"},
        {{"--proxy-pass=secret"}, "secret"},
        {{"-proxy-p", "secret"}, "secret"},
        {{"--proxy-p=secret"}, "secret"},
        {{"-proxy-pass", "secret1", "-json", "--proxy-pass=secret2"}, "secret2"},
        {{"-proxy-pass=", "secret"}, "secret"},
        {{"-proxy-pass", "=secret"}, "=secret"},
    };
    for (const auto &row : rows) {
        const std::string what = testing::PrintToString(row.before);
        CommandLine line;
        ToolOptions options;
        ASSERT_EQ(read_line(&line, &options, row.before), 0) << what;
        EXPECT_STREQ(options.proxy_password, row.password) << what;
        for (const std::string &text : line.texts)
            EXPECT_EQ(text.find("secret"), std::string::npos) << text << " of " << what;
    }
}

TEST(Options, APasswordKeeps255Bytes)
{
    CommandLine line;
    ToolOptions options;
    ASSERT_EQ(read_line(&line, &options, {"-proxy-pass", std::string(300, 'p')}), 0);
    EXPECT_EQ(options.proxy_password, std::string(255, 'p'));
    EXPECT_EQ(line.texts[2], std::string(300, '\0'));
}

TEST(Options, UsageNamesEveryOptionAndHasTheProxyLinesWordForWord)
{
    const std::string usage = usage_text();
    for (const char *line : {
             "  -proxy host:port\tUse a proxy server to connect to the internet.\n",
             "  -proxy-user\t\tUsername for proxy authentication.\n",
             "  -proxy-pass\t\tPassword for proxy authentication.\n",
             "\n  -product ",
             "\n  -productline ",
             "\n  -product-version ",
             "\n  -version-name ",
             "\n  -machine-id ",
             "\n  -os ",
             "\n  -os-version ",
             "\n  -processor-arch ",
             "\n  -service host[:port]",
             "\n  -max-time seconds",
             "\n  -json\t",
             "\n  -quiet\t",
             "\n  -exit-code\t",
             "\n  -help\t",
             "\n  -version\t",
         })
        EXPECT_NE(usage.find(line), std::string::npos) << line;
    EXPECT_EQ(usage.back(), '\n');
    EXPECT_STREQ(version_line(), "quintral " QUINTRAL_VERSION_NAME "\n");
}

// Answers

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

TEST(CleanAnswer, DropsWhatTheLineEndingsLeftOfTheShortValues)
{
    const struct {
        std::string value;
        std::string version;
        std::string other; // web address and button caption keep their blanks
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

TEST(CleanAnswer, DropsOneCarriageReturnBeforeEachLineFeedAndAtTheEndOfTheMessage)
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

TEST(PrintAnswer, PrintsALineForEachValueGivenThenTheMessageEachWithItsTag)
{
    const struct {
        AnswerPointer answer;
        const char *expected;
    } rows[] = {
        {make_answer("", "", "", ""), ""},
        {make_answer("5.3", "http://a/", "Get it", "News\n"),
         "<version>Version: 5.3\n<url>URL: http://a/\n<button>Button: Get it\n<message>News\n"},
        {make_answer("5.3", "", "", ""), "<version>Version: 5.3\n"},
        {make_answer("", "http://a/", "", ""), "<url>URL: http://a/\n"},
        {make_answer("", "", "Get it", ""), "<button>Button: Get it\n"},
        {make_answer("", "", "", "News"), "<message>News\n"},
        {make_answer("", "", "", "News\n\n"), "<message>News\n\n"},
        {make_answer("", "", "", "\n"), "<message>\n"},
        {make_answer("", "", "", "One\n\tTwo"), "<message>One\n\tTwo\n"},
        {make_answer("\x1B[1m", "a\tb", "\xE2\x80\xAE", "\x9B\n"),
         "<version>Version: \\x1B[1m\n<url>URL: a\tb\n<button>Button: \\xE2\\x80\\xAE\n"
         "<message>\\x9B\n"},
    };
    const PrintHandler previous = set_print_handler(print_with_tag);
    for (const auto &row : rows) {
        printed.clear();
        print_answer(*row.answer);
        EXPECT_EQ(printed, row.expected);
    }
    set_print_handler(previous);
}

std::string reported;

void collect_message(MessageLevel level, const char *text)
{
    reported += std::to_string(level) + " " + text + ";";
}

TEST(ShowFailure, ReportsAtLevelErrorAndARemarkAtLevelNoteMadeSafe)
{
    const MessageHandler previous = set_message_handler(collect_message);
    reported.clear();
    show_failure("50% of\n\x1B");
    show_note("%s\r");
    EXPECT_EQ(reported, "9 50% of\\x0A\\x1B;3 %s\\x0D;");
    reported.clear();
    show_failure(std::string(2000, 'x').c_str());
    EXPECT_EQ(reported, "9 " + std::string(1003, 'x') + ";");
    set_message_handler(previous);
}

TEST(OutcomeJson, AlwaysHasEveryKeyOnOneLine)
{
    const AnswerPointer full = make_answer("5.3", "http://a/", "Get \"it\"", "One\n\tTwo\n");
    const AnswerPointer empty = make_answer("", "", "", "");
    const std::string long_error(5000, 'e');
    const struct {
        RunOutcome outcome;
        std::string expected;
    } rows[] = {
        {{"answered", 10, Newer::Yes, full.get(), nullptr},
         "{\"status\":\"answered\",\"exit_status\":10,\"newer\":true,\"version\":\"5.3\","
         "\"url\":\"http://a/\",\"button\":\"Get \\\"it\\\"\",\"message\":\"One\\n\\tTwo\\n\","
         "\"error\":null}\n"},
        {{"answered", 0, Newer::No, full.get(), nullptr},
         "{\"status\":\"answered\",\"exit_status\":0,\"newer\":false,\"version\":\"5.3\","
         "\"url\":\"http://a/\",\"button\":\"Get \\\"it\\\"\",\"message\":\"One\\n\\tTwo\\n\","
         "\"error\":null}\n"},
        {{"answered", 0, Newer::Unknown, empty.get(), nullptr},
         "{\"status\":\"answered\",\"exit_status\":0,\"newer\":null,\"version\":null,"
         "\"url\":null,\"button\":null,\"message\":\"\",\"error\":null}\n"},
        {{"failed", 1, Newer::Unknown, nullptr, "a \\ \x1B\x80"},
         "{\"status\":\"failed\",\"exit_status\":1,\"newer\":null,\"version\":null,"
         "\"url\":null,\"button\":null,\"message\":null,"
         "\"error\":\"a \\\\ \\u001b\\ufffd\"}\n"},
        {{"failed", 1, Newer::Unknown, nullptr, long_error.c_str()},
         "{\"status\":\"failed\",\"exit_status\":1,\"newer\":null,\"version\":null,"
         "\"url\":null,\"button\":null,\"message\":null,\"error\":\"" +
             long_error + "\"}\n"},
        {{"cancelled", 143, Newer::Unknown, nullptr, "x"},
         "{\"status\":\"cancelled\",\"exit_status\":143,\"newer\":null,\"version\":null,"
         "\"url\":null,\"button\":null,\"message\":null,\"error\":\"x\"}\n"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(outcome_json(row.outcome), row.expected);
}

} // namespace
} // namespace quintral
