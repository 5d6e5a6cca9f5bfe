// Form bodies and escaping, byte for byte. Each destination is filled with '#' before the call and
// checked as a whole.
#include "web/form-body.h"

#include "tests/harness/each-locale.h"
#include "tests/harness/text.h"

#include <cctype>
#include <climits>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using tests::repeated;

class FormBody : public tests::InEachLocale {};

INSTANTIATE_TEST_SUITE_P(Locales, FormBody, tests::each_locale(), tests::locale_label);

std::string letters(std::size_t count)
{
    return std::string(count, 'x');
}

std::string escape_of(int byte)
{
    const char kept[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    if (std::memchr(kept, byte, sizeof kept - 1) != nullptr)
        return std::string(1, static_cast<char>(byte));
    char text[8];
    std::snprintf(text, sizeof text, "%%%02x", static_cast<unsigned>(byte));
    return text;
}

// A destination of '#'s after a string and its terminator have been written to it.
std::string written_into(std::size_t size, const std::string &text)
{
    std::string all(size, '#');
    all.replace(0, text.size() + 1, text + '\0');
    return all;
}

TEST_P(FormBody, EveryByteIsKeptOrEscapedInLowerCase)
{
    for (int byte = 1; byte < 256; ++byte) {
        const std::string source(1, static_cast<char>(byte));
        std::string destination(8, '#');
        EXPECT_EQ(web_escape(destination.data(), source.c_str()), destination.data());
        EXPECT_EQ(destination, written_into(8, escape_of(byte))) << "byte " << byte;

        std::string bounded(8, '#');
        EXPECT_EQ(web_escape_bounded(bounded.data(), source.c_str(), 3), bounded.data());
        EXPECT_EQ(bounded, written_into(8, escape_of(byte))) << "byte " << byte;
    }
}

struct EscapeRow {
    const char *source;
    const char *expected;
};

TEST_P(FormBody, EscapeKeepsOnlyLettersAndDigits)
{
    const EscapeRow rows[] = {
        {"", ""},
        {"azAZ09", "azAZ09"},
        {" ", "%20"},
        {"a b", "a%20b"},
        {"+", "%2b"},
        {"-._~*", "%2d%2e%5f%7e%2a"},
        {"1.5-x", "1%2e5%2dx"},
        {"@[`{/:", "%40%5b%60%7b%2f%3a"},
        {"&=%#?", "%26%3d%25%23%3f"},
        {"\x01\t\r\n\x1f\x7f", "%01%09%0d%0a%1f%7f"},
        {"\x80\xa0\xb5\xc4\xe4\xff", "%80%a0%b5%c4%e4%ff"},
        {"Gr\374\337e", "Gr%fc%dfe"},
        {"\xc3\xa4", "%c3%a4"},
    };
    for (const EscapeRow &row : rows) {
        std::string destination(40, '#');
        EXPECT_EQ(web_escape(destination.data(), row.source), destination.data());
        EXPECT_EQ(destination, written_into(40, row.expected)) << "source " << row.source;

        std::string bounded(40, '#');
        web_escape_bounded(bounded.data(), row.source, 1000);
        EXPECT_EQ(bounded, written_into(40, row.expected)) << "source " << row.source;
    }
}

TEST(WebEscape, HasNoLimit)
{
    const std::string source = letters(5000) + repeated(5000, " /");
    const std::string expected = letters(5000) + repeated(5000, "%20%2f");
    std::string destination(expected.size() + 1, '#');
    web_escape(destination.data(), source.c_str());
    EXPECT_EQ(destination, written_into(expected.size() + 1, expected));
}

struct BoundedRow {
    int limit;
    std::string source;
    std::string expected; // '#' is the byte that is skipped before the terminator
};

TEST(WebEscapeBounded, LimitsTheCountAndSkipsOneByteBeforeAnEscapeThatWouldExceedIt)
{
    const BoundedRow rows[] = {
        // nothing to escape
        {0, "a", ""},
        {0, "/", ""},
        {-1, "a", ""},
        {-1, "/", ""},
        {INT_MIN, "a b", ""},
        {5, "", ""},
        {0, "", ""},
        // a letter or digit counts 1
        {1, "a", "a"},
        {1, "ab", "a"},
        {2, "A9b", "A9"},
        {3, "abc", "abc"},
        {3, "abcd", "abc"},
        // no escape fits below a limit of 3
        {1, "/", "#"},
        {1, " ", "#"},
        {2, "/", "#"},
        {2, " ", "#"},
        {2, "a/", "a#"},
        {1, "a/", "a"},
        {2, "ab/", "ab"},
        // other bytes count 3
        {3, "/", "%2f"},
        {3, "//", "%2f"},
        {3, "/a", "%2f"},
        {4, "/ab", "%2fa"},
        {4, "//", "%2f#"},
        {5, "//", "%2f#"},
        {6, "//", "%2f%2f"},
        {6, "///", "%2f%2f"},
        {7, "//a/", "%2f%2fa"},
        {7, "\xe4\xf6\xfc", "%e4%f6#"},
        // a space counts 1 but takes 3 bytes
        {3, "  ", "%20#"},
        {3, " a", "%20a"},
        {3, " ab", "%20ab"},
        {3, " abc", "%20ab"},
        {4, "   ", "%20%20#"},
        {5, "   ", "%20%20%20"},
        {5, "    ", "%20%20%20#"},
        {10, "          ", "%20%20%20%20%20%20%20%20#"},
        // an escape is written at a count of limit - 3, but not above it
        {6, "abc/", "abc%2f"},
        {6, "abc/d", "abc%2f"},
        {6, "abcd/", "abcd#"},
        {6, "abcd/efg", "abcd#"},
        {6, "abc d", "abc%20d"},
        {6, "abc def", "abc%20de"},
        {6, "abcd e", "abcd#"},
        {6, "abcde/", "abcde#"},
        {6, "abcdef/", "abcdef"},
        {1023, letters(1020) + "/", letters(1020) + "%2f"},
        {1023, letters(1021) + "/", letters(1021) + "#"},
        {1023, letters(1022) + " ", letters(1022) + "#"},
        {1023, letters(1023) + "/", letters(1023)},
        {1023, letters(1100), letters(1023)},
        {1023, std::string(1100, ' '), repeated(1021, "%20") + "#"},
        {1023, std::string(1021, ' ') + "abc", repeated(1021, "%20") + "ab"},
        {INT_MAX, "a b/", "a%20b%2f"},
    };
    for (const BoundedRow &row : rows) {
        std::string destination(row.expected.size() + 8, '#');
        EXPECT_EQ(web_escape_bounded(destination.data(), row.source.c_str(), row.limit),
                  destination.data());
        EXPECT_EQ(destination, written_into(row.expected.size() + 8, row.expected))
            << "source " << row.source << ", limit " << row.limit;
    }
}

struct BodyRow {
    std::vector<WebField> fields;
    std::string body;
};

void expect_form(int count, const WebField *fields, const std::string &expected)
{
    std::string header = "X-Earlier: header\r\n";
    std::string body = "earlier=body";
    web_form_body(count, fields, header, body);
    EXPECT_EQ(body, expected);
    EXPECT_EQ(header, "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
                          std::to_string(expected.size()));
}

TEST_P(FormBody, JoinsEscapedFieldsInOrderAndAnnouncesTheirLength)
{
    const BodyRow rows[] = {
        {{{"a b", "1.5-x"}, {"c", "d"}}, "a%20b=1%2e5%2dx&c=d"},
        {{{"name", "value"}}, "name=value"},
        {{{"b", "1"}, {"a", "2"}, {"b", "3"}}, "b=1&a=2&b=3"},
        {{{"name", ""}, {"next", "x"}}, "name=&next=x"},
        {{{"", "x"}, {"y", ""}}, "=x&y="},
        {{{"", ""}}, "="},
        {{{"", ""}, {"", ""}}, "=&="},
        {{{"a&b=c", "d&e=f"}}, "a%26b%3dc=d%26e%3df"},
        {{{"line", "1\r\n2"}}, "line=1%0d%0a2"},
        {{{"Stra\337e", "\xc4\xe4"}}, "Stra%dfe=%c4%e4"},
        {{{nullptr, "x"}, {"y", nullptr}, {nullptr, nullptr}}, "=x&y=&="},
    };
    for (const BodyRow &row : rows)
        expect_form(static_cast<int>(row.fields.size()), row.fields.data(), row.body);
}

TEST(WebFormBody, TheExampleOfTwoFieldsHas19Bytes)
{
    const WebField fields[] = {{"a b", "1.5-x"}, {"c", "d"}};
    std::string header;
    std::string body;
    web_form_body(2, fields, header, body);
    EXPECT_EQ(body, "a%20b=1%2e5%2dx&c=d");
    EXPECT_EQ(header, "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: 19");
}

TEST(WebFormBody, IsEmptyWithoutFields)
{
    const WebField fields[] = {{"a", "b"}};
    for (const int count : {0, -1, INT_MIN}) {
        std::string header = "earlier";
        std::string body = "earlier";
        web_form_body(count, count == 0 ? nullptr : fields, header, body);
        EXPECT_EQ(body, "") << "count " << count;
        EXPECT_EQ(header, "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: 0")
            << "count " << count;
    }
}

TEST(WebFormBody, ReadsOnlyTheCountedFields)
{
    const WebField fields[] = {{"a", "1"}, {"b", "2"}, {"c", "3"}};
    expect_form(2, fields, "a=1&b=2");
}

struct CutRow {
    std::string text;
    std::string expected;
};

TEST(WebFormBody, CutsEachNameAndValueAtACountOf1023)
{
    const CutRow rows[] = {
        {letters(1023), letters(1023)},
        {letters(1100), letters(1023)},
        {letters(1020) + "/", letters(1020) + "%2f"},
        {letters(1021) + "/", letters(1021)},
        {letters(1022) + "/x", letters(1022)},
        {std::string(1021, ' '), repeated(1021, "%20")},
        {std::string(1100, ' '), repeated(1021, "%20")},
        {std::string(1021, ' ') + "abc", repeated(1021, "%20") + "ab"},
        {repeated(400, "/"), repeated(341, "%2f")},
        {repeated(400, "\xff"), repeated(341, "%ff")},
    };
    for (const CutRow &row : rows) {
        const WebField as_value[] = {{"v", row.text.c_str()}, {"w", "x"}};
        expect_form(2, as_value, "v=" + row.expected + "&w=x");
        const WebField as_name[] = {{row.text.c_str(), "x"}, {"w", "x"}};
        expect_form(2, as_name, row.expected + "=x&w=x");
    }
}

// The byte that a cut skips is a NUL in the scratch buffer, so the field ends there. Longer earlier
// fields leave nothing after it.
TEST(WebFormBody, ACutFieldContainsNothingOfAnEarlierField)
{
    const std::string secret(1023, 'S');
    const std::string spaces(1021, ' ');
    const std::string cut = letters(1021) + "/";
    const WebField fields[] = {
        {secret.c_str(), spaces.c_str()}, {cut.c_str(), cut.c_str()}, {"end", cut.c_str()}};
    expect_form(3, fields,
                secret + "=" + repeated(1021, "%20") + "&" + letters(1021) + "=" + letters(1021) +
                    "&end=" + letters(1021));
}

TEST(WebFormBody, AnnouncesTheLengthOfALongBody)
{
    const std::string value(1021, ' ');
    std::vector<WebField> fields(400, WebField{"n", value.c_str()});
    std::string header;
    std::string body;
    web_form_body(400, fields.data(), header, body);
    EXPECT_EQ(body.size(), 400u * (2 + 3063 + 1) - 1);
    EXPECT_EQ(header, "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: 1226399");
}

TEST(WebFormBody, FieldsMayPointIntoTheReplacedStrings)
{
    std::string header = "old header";
    std::string body = "old body";
    const WebField fields[] = {{header.c_str(), body.c_str()}, {body.c_str(), "x"}};
    web_form_body(2, fields, header, body);
    EXPECT_EQ(body, "old%20header=old%20body&old%20body=x");
}

TEST(FormBodyLocale, TheTestLocaleHasLettersAbove0x7F)
{
    ASSERT_NE(std::setlocale(LC_ALL, tests::comma_locale), nullptr);
    EXPECT_NE(std::isalnum(0xe4), 0);
    std::setlocale(LC_ALL, "C");
}

} // namespace
} // namespace quintral
