// Reading the body of an update reply and writing a version number, without a network.
#include "tests/harness/each-locale.h"
#include "tests/web/version-update-calls.h"
#include "web/version-update.h"

#include <cfloat>
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using namespace tests;

// web_read_update_body

struct BodyRow {
    const char *rule;
    const char *body;
    const char *message; // untouched if the body has no Message line
    const char *version = untouched;
    const char *url = untouched;
    const char *button = untouched;
    unsigned capacity = buffer_size; // of each buffer; 0 keeps them all untouched
};

void expect_buffer(const Buffer &buffer, const char *value, const BodyRow &row, const char *name)
{
    EXPECT_EQ(all_bytes(buffer), stored_bytes(value, row.capacity))
        << row.rule << ": the " << name << " of body\n"
        << row.body;
}

// Reads a row's body, with null for each optional buffer whose bit in `wanted` is not set. The
// bytes after the body's end must not reach a buffer. If there are none, the body fills its block
// exactly, so that a memory checker reports a read past its end.
void expect_body_row(const BodyRow &row, unsigned wanted, const std::string &after)
{
    const std::string bytes = row.body + std::string(1, '\0') + after;
    const std::unique_ptr<char[]> body(new char[bytes.size()]);
    std::memcpy(body.get(), bytes.data(), bytes.size());
    Buffer message;
    Buffer version;
    Buffer url;
    Buffer button;
    const WebUpdateBuffers buffers = {
        row.capacity, message.bytes, (wanted & 1) != 0 ? version.bytes : nullptr,
        (wanted & 2) != 0 ? url.bytes : nullptr, (wanted & 4) != 0 ? button.bytes : nullptr};
    EXPECT_EQ(web_read_update_body(body.get(), &buffers), row.message != untouched ? 0 : -1)
        << row.rule << ", buffers " << wanted << ": " << row.body;
    expect_buffer(message, row.message, row, "message");
    expect_buffer(version, (wanted & 1) != 0 ? row.version : untouched, row, "version");
    expect_buffer(url, (wanted & 2) != 0 ? row.url : untouched, row, "URL");
    expect_buffer(button, (wanted & 4) != 0 ? row.button : untouched, row, "button");
}

void expect_body_rows(const std::vector<BodyRow> &rows)
{
    for (const BodyRow &row : rows) {
        for (unsigned wanted = 0; wanted < 8; ++wanted) {
            expect_body_row(row, wanted, "");
            expect_body_row(row, wanted, "after\nMessage: after\n");
        }
    }
}

TEST(WebReadUpdateBody, ReadsTheFourValuesInAnyOrderAndTheMessageToTheEnd)
{
    const char *const in_order = "Version: 5.1\nURL: http://a/\nButton: Get\nMessage: New.\n";
    const char *const not_in_order = "Button: Get\nVersion: 5.1\nURL: http://a/\nMessage: New.\n";
    const char *const message_first = "Message: one\n\ntwo\nVersion: 9\nURL: x\n";
    const char *const its_rest = "one\n\ntwo\nVersion: 9\nURL: x\n";
    expect_body_rows({
        {"four lines", in_order, "New.\n", "5.1", "http://a/", "Get"},
        {"other order", not_in_order, "New.\n", "5.1", "http://a/", "Get"},
        {"the message takes the rest", message_first, its_rest},
        {"only a message, no line feed", "Message: New.", "New."},
        {"one optional line", "URL: u\nMessage: m", "m", untouched, "u"},
        {"a second Message belongs to the first", "Message: a\nMessage: b\n", "a\nMessage: b\n"},
        {"colons", "URL: http://a:8/b:c\nMessage: m: n", "m: n", untouched, "http://a:8/b:c"},
        {"other keys are skipped", "X: 1\nVersion: 2\n: 3\nMessages: 4\nMessage: m", "m", "2"},
    });
}

TEST(WebReadUpdateBody, AValueBeginsAtTheSecondCharacterAfterTheColon)
{
    const char *const with_returns = "Version: 5.1\r\nURL: u\r\nButton: b\r\nMessage: m\r\n";
    expect_body_rows({
        {"without a space a character is lost", "Version:5.1\nMessage:New", "ew", ".1"},
        {"the first character may be any", "Version:\t5.1\nMessage:xNew", "New", "5.1"},
        {"a second space belongs to the value", "Version:  5.1 \nMessage:  m ", " m ", " 5.1 "},
        {"a colon is skipped like any other", "Version::5.1\nMessage::m", "m", "5.1"},
        {"empty values", "Version: \nURL: \nButton: \nMessage: ", "", "", "", ""},
        {"a final carriage return stays", with_returns, "m\r\n", "5.1\r", "u\r", "b\r"},
        {"a carriage return is skipped", "Version:\r\nMessage: m", "m", ""},
        {"a line feed is skipped", "Version:\nURL: u\nMessage: m", "m", "URL: u"},
        {"so is one after Message", "Message:\nNew.\n", "New.\n"},
        {"even if that hides the Message line", "Version:\nMessage: m\n", untouched, "Message: m"},
    });
}

TEST(WebReadUpdateBody, AValueThatWouldBeginPastTheEndIsEmpty)
{
    expect_body_rows({
        {"message", "Message:", ""},
        {"message after a line", "Version: 1\nMessage:", "", "1"},
        {"only the skipped character: message", "Message:x", ""},
        {"version without a line feed", "Version:", untouched},
        {"only the skipped character: version", "Version: ", untouched},
        {"version of a skipped line feed", "Version:\n", untouched},
        {"other key", "X:", untouched},
        {"only a colon", ":", untouched},
    });
}

TEST(WebReadUpdateBody, FailsWithoutAMessageLineButStoresTheOtherValues)
{
    expect_body_rows({
        {"empty body", "", untouched},
        {"only a version", "Version: 5.1\n", untouched, "5.1"},
        {"three lines", "Version: 5.1\nURL: u\nButton: b\n", untouched, "5.1", "u", "b"},
        {"an unfinished last line is not stored", "Version: 5.1", untouched},
        {"the line before it is", "URL: u\nVersion: 5.1", untouched, untouched, "u"},
        {"no colon", "Message", untouched},
        {"no colon in many lines", "a\nb\n\n", untouched},
        {"no colon after a line", "Button: b\nsome text\n", untouched, untouched, untouched, "b"},
        {"only a line feed", "\n", untouched},
    });
}

TEST(WebReadUpdateBody, ComparesKeysExactlyFromTheLineStartToTheColon)
{
    expect_body_rows({
        {"other case", "version: 1\nurl: 2\nBUTTON: 3\nmessage: 4\n", untouched},
        {"other case is skipped", "VERSION: 1\nUrl: 2\nMessage: m", "m"},
        {"space before the colon", "Version : 1\nMessage : m\n", untouched},
        {"space before the key", " Version: 1\nMessage: m", "m"},
        {"longer and shorter keys", "Versions: 1\nVersio: 2\nUR: 3\nButto: 4\nMessage: m", "m"},
        {"a line without a colon hides the next key", "Hello\nVersion: 1\nMessage: m", "m"},
        {"even a Message", "Hello\nMessage: m\n", untouched},
        {"so does an empty line", "\nVersion: 1\nURL: u\nMessage: m", "m", untouched, "u"},
        {"a byte above 0x7F", "Version\xe4: 1\nMessage: m", "m"},
    });
}

TEST(WebReadUpdateBody, TheLaterValueOfARepeatedKeyWins)
{
    expect_body_rows({
        {"later", "Version: 1\nVersion: 2\nMessage: m", "m", "2"},
        {"shorter", "URL: a long one\nURL: b\nMessage: m", "m", untouched, "b"},
        {"empty", "Button: b\nButton: \nMessage: m", "m", untouched, untouched, ""},
        {"without a message", "Version: 1\nURL: u\nVersion: 2\n", untouched, "2", "u"},
        {"the last one is unfinished", "Version: 1\nVersion: 2", untouched, "1"},
    });
}

TEST(WebReadUpdateBody, CutsEachValueToTheCapacity)
{
    const char *const body = "Version: 12345\nURL: abcde\nButton: fghij\nMessage: klmno";
    expect_body_rows({
        {"nothing is stored", body, "", "", "", "", 0},
        {"only the terminator", body, "", "", "", "", 1},
        {"one byte", body, "k", "1", "a", "f", 2},
        {"one byte too little", body, "klmn", "1234", "abcd", "fghi", 5},
        {"exactly enough", body, "klmno", "12345", "abcde", "fghij", 6},
        {"one byte more", body, "klmno", "12345", "abcde", "fghij", 7},
        {"the whole buffer", body, "klmno", "12345", "abcde", "fghij"},
        {"nothing is stored without a message", "Version: 1\n", untouched, "", "", "", 0},
        {"cut after a line feed", "Message: a\nb", "a\n", untouched, untouched, untouched, 3},
    });
}

// web_format_version

class WebFormatVersion : public tests::InEachLocale {};

INSTANTIATE_TEST_SUITE_P(Locales, WebFormatVersion, tests::each_locale(), tests::locale_label);

struct VersionRow {
    float version;
    const char *text;
};

TEST_P(WebFormatVersion, WritesThreeDigitsAfterThePoint)
{
    const VersionRow rows[] = {
        {5.0F, "5.000"},
        {1.1F, "1.100"},
        {0.0F, "0.000"},
        {-0.0F, "-0.000"},
        {-1.5F, "-1.500"},
        {0.125F, "0.125"},
        {10.4F, "10.400"},
        {2.0625F, "2.062"}, // a tie rounds to the even digit
        {0.1875F, "0.188"},
        {0.0004F, "0.000"},
        {0.9996F, "1.000"},
        {999.9996F, "1000.000"},
        {1234567.0F, "1234567.000"},
        {16777217.0F, "16777216.000"}, // the next float
        {FLT_MIN, "0.000"},
        {FLT_MAX, "340282346638528859811704183484516925440.000"},
        {-FLT_MAX, "-340282346638528859811704183484516925440.000"},
        {std::numeric_limits<float>::infinity(), "inf"},
        {-std::numeric_limits<float>::infinity(), "-inf"},
        {std::numeric_limits<float>::quiet_NaN(), "nan"},
    };
    for (const VersionRow &row : rows) {
        Buffer buffer;
        EXPECT_EQ(web_format_version(row.version, buffer.bytes, buffer_size), buffer.bytes);
        EXPECT_EQ(all_bytes(buffer), stored_bytes(row.text, buffer_size))
            << "version " << static_cast<double>(row.version);
    }
}

TEST_P(WebFormatVersion, CutsTheStringToTheSize)
{
    struct {
        float version;
        unsigned size;
        const char *text;
    } const rows[] = {
        {5.0F, 1, ""},     {5.0F, 2, "5"},       {5.0F, 3, "5."},
        {5.0F, 5, "5.00"}, {5.0F, 6, "5.000"},   {-1.5F, 3, "-1"},
        {-1.5F, 4, "-1."}, {FLT_MAX, 5, "3402"}, {std::numeric_limits<float>::infinity(), 3, "in"},
    };
    for (const auto &row : rows) {
        Buffer buffer;
        EXPECT_EQ(web_format_version(row.version, buffer.bytes, row.size), buffer.bytes);
        EXPECT_EQ(all_bytes(buffer), stored_bytes(row.text, row.size))
            << "version " << static_cast<double>(row.version) << ", size " << row.size;
    }
}

// The simple form: what the C library writes, in the "C" locale.
std::string formatted_by_printf(float version)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.3f", static_cast<double>(version));
    return text;
}

float float_of_bits(std::uint32_t bits)
{
    float number = 0;
    std::memcpy(&number, &bits, sizeof number);
    return number;
}

// Returns how many of the numbers are formatted differently from the simple form, and reports the
// first.
int count_differences(const std::vector<float> &numbers)
{
    int differences = 0;
    for (const float number : numbers) {
        char text[64];
        web_format_version(number, text, sizeof text);
        if (formatted_by_printf(number) != text && differences++ == 0)
            ADD_FAILURE() << "'" << text << "', not '" << formatted_by_printf(number) << "'";
    }
    return differences;
}

TEST(WebFormatVersionLikePrintf, AtBothEndsAndInTheMiddleOfEveryExponent)
{
    std::vector<float> numbers;
    for (std::uint32_t exponent = 0; exponent < 512; ++exponent) { // the sign is the highest bit
        for (const std::uint32_t mantissa :
             {0U, 1U, 2U, 0x3FFFFFU, 0x400000U, 0x400001U, 0x7FFFFEU, 0x7FFFFFU})
            numbers.push_back(float_of_bits(exponent << 23 | mantissa));
    }
    EXPECT_EQ(count_differences(numbers), 0);
}

// Only an odd number of sixteenths is halfway between two thousandths.
TEST(WebFormatVersionLikePrintf, ForEveryTie)
{
    std::vector<float> numbers;
    for (int sixteenths = 1; sixteenths < 1 << 24; sixteenths += sixteenths < 40000 ? 2 : 1022)
        numbers.push_back(static_cast<float>(sixteenths) / 16);
    EXPECT_EQ(count_differences(numbers), 0);
}

TEST(WebFormatVersionLikePrintf, ForRandomFloats)
{
    std::mt19937 random(20030410);
    std::vector<float> numbers;
    for (int i = 0; i < 200000; ++i) {
        const auto bits = static_cast<std::uint32_t>(random());
        numbers.push_back(float_of_bits(bits));
        numbers.push_back(static_cast<float>(bits % 100000000) / 1000);
    }
    EXPECT_EQ(count_differences(numbers), 0);
}

TEST(WebFormatVersionLocale, TheTestLocaleHasADecimalComma)
{
    ASSERT_NE(std::setlocale(LC_ALL, tests::comma_locale), nullptr);
    EXPECT_STREQ(std::localeconv()->decimal_point, ",");
    std::setlocale(LC_ALL, "C");
}

} // namespace
} // namespace quintral
