// The texts of a version-update query without a network: reading a reply's body, writing the version
// number.
#include "tests/harness/each-locale.h"
#include "tests/web/version-update-calls.h"
#include "web/version-update.h"

#include <cfloat>
#include <clocale>
#include <cstring>
#include <limits>
#include <memory>
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
    unsigned capacity;
    int result;
    const char *message;
    const char *version;
    const char *url;
    const char *button;
};

void expect_buffer(const Buffer &buffer, const char *value, const BodyRow &row, const char *name)
{
    EXPECT_EQ(std::string(buffer.bytes, room), bytes_given(value, row.capacity))
        << row.rule << ": the " << name << " of body\n"
        << row.body;
}

// Reads a row's body, without the buffers whose bits are not set in `wanted`. What stands behind
// the body's end shows in no buffer; without it the body fills a block of its very size, so that a
// checker sees a read behind its end.
void expect_body_row(const BodyRow &row, unsigned wanted, const std::string &behind)
{
    const std::string bytes = row.body + std::string(1, '\0') + behind;
    const std::unique_ptr<char[]> body(new char[bytes.size()]);
    std::memcpy(body.get(), bytes.data(), bytes.size());
    Buffer message;
    Buffer version;
    Buffer url;
    Buffer button;
    const WebUpdateBuffers buffers = {
        row.capacity, message.bytes, (wanted & 1) != 0 ? version.bytes : nullptr,
        (wanted & 2) != 0 ? url.bytes : nullptr, (wanted & 4) != 0 ? button.bytes : nullptr};
    EXPECT_EQ(web_read_update_body(body.get(), &buffers), row.result)
        << row.rule << ", buffers " << wanted << ": " << row.body;
    expect_buffer(message, row.message, row, "message");
    expect_buffer(version, (wanted & 1) != 0 ? row.version : untouched, row, "version");
    expect_buffer(url, (wanted & 2) != 0 ? row.url : untouched, row, "address");
    expect_buffer(button, (wanted & 4) != 0 ? row.button : untouched, row, "button");
}

void expect_body_rows(const std::vector<BodyRow> &rows)
{
    for (const BodyRow &row : rows) {
        for (unsigned wanted = 0; wanted < 8; ++wanted) {
            expect_body_row(row, wanted, "");
            expect_body_row(row, wanted, "behind\nMessage: behind\n");
        }
    }
}

const char *const none = untouched;

TEST(WebReadUpdateBody, TakesTheFourValuesInAnyOrderAndTheMessageToTheEnd)
{
    expect_body_rows({
        {"four lines", "Version: 5.1\nURL: http://a/\nButton: Get\nMessage: New.\n", room, 0,
         "New.\n", "5.1", "http://a/", "Get"},
        {"other order", "Button: Get\nVersion: 5.1\nURL: http://a/\nMessage: New.\n", room, 0,
         "New.\n", "5.1", "http://a/", "Get"},
        {"message alone, no line feed", "Message: New.", room, 0, "New.", none, none, none},
        {"one optional line", "URL: u\nMessage: m", room, 0, "m", none, "u", none},
        {"the message takes the rest", "Message: one\n\ntwo\nVersion: 9\nURL: x\n", room, 0,
         "one\n\ntwo\nVersion: 9\nURL: x\n", none, none, none},
        {"a second message line belongs to the first", "Message: a\nMessage: b\n", room, 0,
         "a\nMessage: b\n", none, none, none},
        {"a value keeps its own colons", "URL: http://a:8/b:c\nMessage: m: n", room, 0, "m: n",
         none, "http://a:8/b:c", none},
        {"other keys are skipped", "X: 1\nVersion: 2\n: 3\nMessages: 4\nMessage: m", room, 0, "m",
         "2", none, none},
    });
}

TEST(WebReadUpdateBody, TakesAValueFromTheSecondCharacterBehindTheColon)
{
    expect_body_rows({
        {"no blank loses a character", "Version:5.1\nMessage:New", room, 0, "ew", ".1", none, none},
        {"the first character may be any", "Version:\t5.1\nMessage:xNew", room, 0, "New", "5.1",
         none, none},
        {"a second blank belongs to the value", "Version:  5.1 \nMessage:  m ", room, 0, " m ",
         " 5.1 ", none, none},
        {"a colon is skipped like any other", "Version::5.1\nMessage::m", room, 0, "m", "5.1", none,
         none},
        {"empty values", "Version: \nURL: \nButton: \nMessage: ", room, 0, "", "", "", ""},
        {"a carriage return stays", "Version: 5.1\r\nURL: u\r\nButton: b\r\nMessage: m\r\n", room,
         0, "m\r\n", "5.1\r", "u\r", "b\r"},
        {"a carriage return right behind the colon is skipped", "Version:\r\nMessage: m", room, 0,
         "m", "", none, none},
        {"a line feed right behind the colon is skipped", "Version:\nURL: u\nMessage: m", room, 0,
         "m", "URL: u", none, none},
        {"so is one behind Message", "Message:\nNew.\n", room, 0, "New.\n", none, none, none},
        {"and one that hides the Message line", "Version:\nMessage: m\n", room, -1, none,
         "Message: m", none, none},
    });
}

TEST(WebReadUpdateBody, AValueThatWouldBeginBehindTheEndIsEmpty)
{
    expect_body_rows({
        {"message", "Message:", room, 0, "", none, none, none},
        {"message behind a line", "Version: 1\nMessage:", room, 0, "", "1", none, none},
        {"message of the skipped character alone", "Message:x", room, 0, "", none, none, none},
        {"version, which no line feed ends", "Version:", room, -1, none, none, none, none},
        {"version of the skipped character alone", "Version: ", room, -1, none, none, none, none},
        {"version of a line feed that is skipped", "Version:\n", room, -1, none, none, none, none},
        {"other key", "X:", room, -1, none, none, none, none},
        {"a colon alone", ":", room, -1, none, none, none, none},
    });
}

TEST(WebReadUpdateBody, WithoutAMessageLineFailsAndKeepsWhatItHasRead)
{
    expect_body_rows({
        {"empty body", "", room, -1, none, none, none, none},
        {"version alone", "Version: 5.1\n", room, -1, none, "5.1", none, none},
        {"three lines", "Version: 5.1\nURL: u\nButton: b\n", room, -1, none, "5.1", "u", "b"},
        {"last line without a line feed is not stored", "Version: 5.1", room, -1, none, none, none,
         none},
        {"the line before it is", "URL: u\nVersion: 5.1", room, -1, none, none, "u", none},
        {"no colon", "Message", room, -1, none, none, none, none},
        {"no colon in many lines", "a\nb\n\n", room, -1, none, none, none, none},
        {"no colon behind a line", "Button: b\nsome text\n", room, -1, none, none, none, "b"},
        {"a line feed alone", "\n", room, -1, none, none, none, none},
    });
}

TEST(WebReadUpdateBody, ComparesKeysExactlyFromTheLineStartToTheColon)
{
    expect_body_rows({
        {"other case", "version: 1\nurl: 2\nBUTTON: 3\nmessage: 4\n", room, -1, none, none, none,
         none},
        {"other case is skipped", "VERSION: 1\nUrl: 2\nMessage: m", room, 0, "m", none, none, none},
        {"blank before the colon", "Version : 1\nMessage : m\n", room, -1, none, none, none, none},
        {"blank before the key", " Version: 1\nMessage: m", room, 0, "m", none, none, none},
        {"longer and shorter keys", "Versions: 1\nVersio: 2\nUR: 3\nButto: 4\nMessage: m", room, 0,
         "m", none, none, none},
        {"a line without a colon hides the next key", "Hello\nVersion: 1\nMessage: m", room, 0, "m",
         none, none, none},
        {"it hides a Message as well", "Hello\nMessage: m\n", room, -1, none, none, none, none},
        {"and so does an empty line", "\nVersion: 1\nURL: u\nMessage: m", room, 0, "m", none, "u",
         none},
        {"a byte above 0x7F", "Version\xe4: 1\nMessage: m", room, 0, "m", none, none, none},
    });
}

TEST(WebReadUpdateBody, OfAKeyThatOccursTwiceTheLaterValueWins)
{
    expect_body_rows({
        {"later", "Version: 1\nVersion: 2\nMessage: m", room, 0, "m", "2", none, none},
        {"shorter", "URL: a long one\nURL: b\nMessage: m", room, 0, "m", none, "b", none},
        {"empty", "Button: b\nButton: \nMessage: m", room, 0, "m", none, none, ""},
        {"without a message", "Version: 1\nURL: u\nVersion: 2\n", room, -1, none, "2", "u", none},
        {"the last one breaks off", "Version: 1\nVersion: 2", room, -1, none, "1", none, none},
    });
}

TEST(WebReadUpdateBody, CutsEachValueToTheCapacity)
{
    const char *const body = "Version: 12345\nURL: abcde\nButton: fghij\nMessage: klmno";
    expect_body_rows({
        {"nothing is stored", body, 0, 0, none, none, none, none},
        {"room for the terminator", body, 1, 0, "", "", "", ""},
        {"one byte", body, 2, 0, "k", "1", "a", "f"},
        {"one byte too little", body, 5, 0, "klmn", "1234", "abcd", "fghi"},
        {"just enough", body, 6, 0, "klmno", "12345", "abcde", "fghij"},
        {"one byte more", body, 7, 0, "klmno", "12345", "abcde", "fghij"},
        {"all of the buffer", body, room, 0, "klmno", "12345", "abcde", "fghij"},
        {"nothing is stored without a message", "Version: 1\n", 0, -1, none, none, none, none},
        {"a message is cut at a line feed", "Message: a\nb", 3, 0, "a\n", none, none, none},
    });
}

// web_format_version

class WebFormatVersion : public tests::InEachLocale {};

INSTANTIATE_TEST_SUITE_P(Locales, WebFormatVersion, tests::each_locale(), tests::locale_label);

struct VersionRow {
    float version;
    const char *text;
};

TEST_P(WebFormatVersion, WritesThreeDigitsBehindAPoint)
{
    const VersionRow rows[] = {
        {5.0F, "5.000"},
        {1.1F, "1.100"},
        {0.0F, "0.000"},
        {-0.0F, "-0.000"},
        {-1.5F, "-1.500"},
        {0.125F, "0.125"},
        {10.4F, "10.400"},
        {2.0625F, "2.062"}, // a tie goes to the even digit
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
        EXPECT_EQ(web_format_version(row.version, buffer.bytes, room), buffer.bytes);
        EXPECT_EQ(std::string(buffer.bytes, room), bytes_given(row.text, room))
            << "version " << static_cast<double>(row.version);
    }
}

TEST_P(WebFormatVersion, CutsTheTextToTheSize)
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
        EXPECT_EQ(std::string(buffer.bytes, room), bytes_given(row.text, row.size))
            << "version " << static_cast<double>(row.version) << ", size " << row.size;
    }
}

TEST(WebFormatVersionLocale, TheTestLocaleHasADecimalComma)
{
    ASSERT_NE(std::setlocale(LC_ALL, tests::comma_locale), nullptr);
    EXPECT_STREQ(std::localeconv()->decimal_point, ",");
    std::setlocale(LC_ALL, "C");
}

} // namespace
} // namespace quintral
