// The texts of an exchange without a network: URLs taken apart, requests composed, status lines
// read.
// Everything is held under the "C" locale and under a Latin-1 one with a decimal comma.
#include "web/http-text.h"

#include "tests/harness/each-locale.h"

#include <algorithm>
#include <cctype>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral {
namespace {

class HttpText : public tests::InEachLocale {};

INSTANTIATE_TEST_SUITE_P(Locales, HttpText, tests::each_locale(), tests::locale_label);

// "scheme|host|port"
std::string parts_of(const std::string &url)
{
    WebUrl parts = {"left over", "left over", 7};
    web_parse_url(url.c_str(), &parts);
    return parts.scheme + '|' + parts.host + '|' + std::to_string(parts.port);
}

TEST_P(HttpText, AUrlIsSplitIntoSchemeHostAndPort)
{
    const struct {
        const char *url;
        const char *expected;
    } rows[] = {
        {"http://webhost:8080/p?q=1", "HTTP|WEBHOST|8080"},
        {"hTTp://Web-Host.Example/Path", "HTTP|WEB-HOST.EXAMPLE|80"},
        {"http://127.0.0.1:1/", "HTTP|127.0.0.1|1"},
        {"https://host/", "HTTPS|HOST|80"},
        // without a scheme
        {"webhost/p", "HTTP|WEBHOST|80"},
        {"webhost", "HTTP|WEBHOST|80"},
        {"//webhost/p", "HTTP|WEBHOST|80"},
        {"/webhost/p", "HTTP||80"},
        {"///webhost/p", "HTTP||80"},
        {"", "HTTP||80"},
        // the scheme is what stands before the first ':' wherever that is
        {"web:81/p", "WEB|81|80"},
        {"webhost/a:b", "WEBHOST/A|B|80"},
        {"webhost?x=1:2", "WEBHOST?X=1|2|80"},
        {"http:webhost/p", "HTTP|WEBHOST|80"},
        {"http:", "HTTP||80"},
        {"http://", "HTTP||80"},
        {":", "||80"},
        {"://webhost", "|WEBHOST|80"},
        {" http://webhost", " HTTP|WEBHOST|80"},
        {"http\xe4://webhost", "HTTP\xe4|WEBHOST|80"},
        // two slashes are skipped, a single one is not
        {"http:/x", "HTTP||80"},
        {"http:///x", "HTTP||80"},
        {"http:x//y", "HTTP|X|80"},
        // the host run ends at the first byte that is not its own
        {"http://webhost", "HTTP|WEBHOST|80"},
        {"http://webhost?q=1", "HTTP|WEBHOST|80"},
        {"http://user@webhost", "HTTP|USER|80"},
        {"http://web_host", "HTTP|WEB|80"},
        {"http://web host", "HTTP|WEB|80"},
        {"http://web#host", "HTTP|WEB|80"},
        {"http://[::1]/", "HTTP||80"},
        {"http://w\xe4"
         "b/",
         "HTTP|W|80"},
        {"http://-.-/", "HTTP|-.-|80"},
        {"http://?", "HTTP||80"},
        // the port is atoi's reading of what stands behind the run's first ':'
        {"http://webhost:65535/", "HTTP|WEBHOST|65535"},
        {"http://webhost:65616/", "HTTP|WEBHOST|65616"},
        {"http://webhost:/", "HTTP|WEBHOST|0"},
        {"http://webhost:", "HTTP|WEBHOST|0"},
        {"http://webhost:p80/", "HTTP|WEBHOST|0"},
        {"http://webhost:80p/", "HTTP|WEBHOST|80"},
        {"http://webhost:80:90/", "HTTP|WEBHOST|80"},
        {"http://webhost::90/", "HTTP|WEBHOST|0"},
        {"http://webhost:0081/", "HTTP|WEBHOST|81"},
        {"http://webhost:-5/", "HTTP|WEBHOST|-5"},
        {"http://webhost:--5/", "HTTP|WEBHOST|0"},
        {"http://webhost:+5/", "HTTP|WEBHOST|0"},
        {"http://webhost: 5/", "HTTP|WEBHOST|0"},
        {"http://webhost:5.7/", "HTTP|WEBHOST|5"},
        {"http://user:81@webhost:82/", "HTTP|USER|81"},
        {"http://:81/", "HTTP||81"},
        {"http://webhost:2147483647/", "HTTP|WEBHOST|2147483647"},
        {"http://webhost:2147483648/", "HTTP|WEBHOST|2147483647"},
        {"http://webhost:-2147483648/", "HTTP|WEBHOST|-2147483648"},
        {"http://webhost:-99999999999999999999/", "HTTP|WEBHOST|-2147483648"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(parts_of(row.url), row.expected) << "url: " << testing::PrintToString(row.url);
}

TEST_P(HttpText, EachByteEitherBelongsToTheHostOrEndsIt)
{
    const std::string own = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-.";
    for (int value = 1; value < 256; ++value) {
        const char byte = static_cast<char>(value);
        const char upper = byte >= 'a' && byte <= 'z' ? static_cast<char>(byte - 32) : byte;
        const bool belongs = own.find(byte) != std::string::npos;
        const std::string host = belongs ? std::string("A") + upper + "B" : "A";
        const std::string port = byte == ':' ? "0" : "80";
        EXPECT_EQ(parts_of(std::string("http://a") + byte + "b"), "HTTP|" + host + "|" + port)
            << "byte " << value;
    }
}

TEST_P(HttpText, EachByteOfASchemeIsUpperCasedAsAsciiOnly)
{
    for (int value = 1; value < 256; ++value) {
        const char byte = static_cast<char>(value);
        const char upper = byte >= 'a' && byte <= 'z' ? static_cast<char>(byte - 32) : byte;
        const std::string expected = byte == ':' ? "|X|80" : std::string(1, upper) + "||80";
        EXPECT_EQ(parts_of(std::string(1, byte) + (byte == ':' ? "x" : ":")), expected)
            << "byte " << value;
    }
}

TEST_P(HttpText, UrlsOfAnyLengthAreTakenWhole)
{
    for (std::size_t length : {9u, 10u, 63u, 64u, 255u, 256u, 100000u}) {
        const std::string lower(length, 'x');
        const std::string upper(length, 'X');
        EXPECT_EQ(parts_of(lower + "://h:7/"), upper + "|H|7") << length;
        EXPECT_EQ(parts_of("http://" + lower + ":7/"), "HTTP|" + upper + "|7") << length;
        EXPECT_EQ(parts_of("http://h:" + std::string(length, '0') + "7/"), "HTTP|H|7") << length;
        EXPECT_EQ(parts_of("http://h:7/" + lower), "HTTP|H|7") << length;
    }
}

// What a test says about a request; the rest is the same in all of them.
struct RequestRow {
    const char *name;
    const char *method;
    std::string extra_header;
    std::string body;
    const char *user;
    const char *password;
    std::vector<std::string> expected;
};

std::vector<std::string> pieces_of(const RequestRow &row)
{
    std::vector<std::string> pieces = {"left over"};
    web_compose_request({row.method, "http://Web/p", "WEB", row.extra_header.data(),
                         row.extra_header.size(), row.body.data(), row.body.size(), row.user,
                         row.password},
                        &pieces);
    return pieces;
}

std::vector<std::string> with_fixed_lines(const std::string &method,
                                          const std::vector<std::string> &rest)
{
    std::vector<std::string> pieces = {
        method,
        "http://Web/p",
        " HTTP/1.0\r\n",
        "Accept: image/gif, image/x-xbitmap, image/jpeg, image/pjpeg, */*\r\n",
        "Accept-Language: en-us\r\n",
        "User-Agent: Velmora_Auto1\r\n",
        "Referer: " QUINTRAL_WEB_DOMAIN "\r\n",
    };
    pieces.insert(pieces.end(), rest.begin(), rest.end());
    return pieces;
}

TEST_P(HttpText, ARequestIsComposedPieceByPieceInAFixedOrder)
{
    const std::string nul(1, '\0');
    const std::string host = "Host: WEB\r\n";
    const std::string end = "\r\n";
    const std::vector<RequestRow> rows = {
        {"GET alone", "GET", "", "", nullptr, nullptr, with_fixed_lines("GET ", {host, end})},
        {"GET announces a body and does not send it", "GET", "A: b\r\nC: 4", "body", nullptr,
         nullptr, with_fixed_lines("GET ", {"A: b\r\nC: 4\r\n", host, end})},
        {"POST sends the body", "POST", "A: b", "body", nullptr, nullptr,
         with_fixed_lines("POST ", {"A: b\r\n", host, end, "body"})},
        {"the body goes out with its full length", "POST", "", "a" + nul + "b", nullptr, nullptr,
         with_fixed_lines("POST ", {host, end, "a" + nul + "b"})},
        {"the extra header too", "GET", "A" + nul + "b", "", nullptr, nullptr,
         with_fixed_lines("GET ", {"A" + nul + "b\r\n", host, end})},
        {"post is not POST", "post", "", "body", nullptr, nullptr,
         with_fixed_lines("GET ", {host, end})},
        {"POSTS is not POST", "POSTS", "", "body", nullptr, nullptr,
         with_fixed_lines("GET ", {host, end})},
        {"no method is a GET", "", "", "body", nullptr, nullptr,
         with_fixed_lines("GET ", {host, end})},
        {"credentials stand behind the host", "POST", "A: b", "body", "user", "pass",
         with_fixed_lines(
             "POST ", {"A: b\r\n", host, "Authorization: Basic dXNlcjpwYXNz\r\n", end, "body"})},
        {"a user alone is not enough", "GET", "", "", "user", nullptr,
         with_fixed_lines("GET ", {host, end})},
        {"a password alone is not enough", "GET", "", "", nullptr, "pass",
         with_fixed_lines("GET ", {host, end})},
        {"empty credentials are a lone colon", "GET", "", "", "", "",
         with_fixed_lines("GET ", {host, "Authorization: Basic Og==\r\n", end})},
        {"an empty user", "GET", "", "", "", "pw",
         with_fixed_lines("GET ", {host, "Authorization: Basic OnB3\r\n", end})},
        {"an empty password", "GET", "", "", "u", "",
         with_fixed_lines("GET ", {host, "Authorization: Basic dTo=\r\n", end})},
        {"credentials may hold any byte", "GET", "", "", "a:b%s", "\xff\n",
         with_fixed_lines("GET ", {host, "Authorization: Basic YTpiJXM6/wo=\r\n", end})},
    };
    for (const RequestRow &row : rows)
        EXPECT_EQ(pieces_of(row), row.expected) << row.name;
}

TEST_P(HttpText, APostWithoutBodyEndsWithTheEmptyLine)
{
    std::string joined;
    for (const std::string &piece : pieces_of({"", "POST", "", "", nullptr, nullptr, {}}))
        joined += piece;
    std::string expected;
    for (const std::string &piece : with_fixed_lines("POST ", {"Host: WEB\r\n", "\r\n"}))
        expected += piece;
    EXPECT_EQ(joined, expected);
}

TEST_P(HttpText, CredentialsOfAnyLengthAreEncodedWithoutALineBreak)
{
    // "uuu" and "ppp" in base64, around a group that holds the colon.
    const auto repeated = [](const char *text, int count) {
        std::string all;
        for (int i = 0; i < count; ++i)
            all += text;
        return all;
    };
    for (int groups : {1, 18, 19, 255, 256, 257, 33000}) {
        const std::string user(static_cast<std::size_t>(3 * groups), 'u');
        const std::string password(static_cast<std::size_t>(3 * groups + 2), 'p');
        const auto pieces = pieces_of({"", "GET", "", "", user.c_str(), password.c_str(), {}});
        ASSERT_EQ(pieces.size(), 10u) << groups;
        EXPECT_EQ(pieces[8], "Authorization: Basic " + repeated("dXV1", groups) + "OnBw" +
                                 repeated("cHBw", groups) + "\r\n")
            << groups;
    }
}

TEST_P(HttpText, TextsOfAnyLengthAreComposedWhole)
{
    const std::string path(100000, 'p');
    const std::string host(100000, 'H');
    const std::string extra(100000, 'e');
    const std::string body(100000, 'b');
    std::vector<std::string> pieces;
    web_compose_request({"POST", path.c_str(), host.c_str(), extra.data(), extra.size(),
                         body.data(), body.size(), nullptr, nullptr},
                        &pieces);
    ASSERT_EQ(pieces.size(), 11u);
    EXPECT_EQ(pieces[1], path);
    EXPECT_EQ(pieces[7], extra + "\r\n");
    EXPECT_EQ(pieces[8], "Host: " + host + "\r\n");
    EXPECT_EQ(pieces[10], body);
}

// "items|major|minor|status|reason"
std::string status_of(const std::string &text)
{
    WebStatusLine line;
    std::memset(&line, '#', sizeof line);
    const int items = web_scan_status_line(text.c_str(), &line);
    return std::to_string(items) + '|' + std::to_string(line.major_version) + '|' +
           std::to_string(line.minor_version) + '|' + std::to_string(line.status) + '|' +
           std::string(line.reason, strnlen(line.reason, sizeof line.reason));
}

// The same from the C library's scan, which defines what a status line is.
std::string scanned_status_of(const std::string &text)
{
    int numbers[3] = {};
    char reason[128] = {};
    const int items = std::sscanf(text.c_str(), "%d.%d %d %127[^\r\n]", &numbers[0], &numbers[1],
                                  &numbers[2], reason);
    return std::to_string(std::max(items, 0)) + '|' + std::to_string(numbers[0]) + '|' +
           std::to_string(numbers[1]) + '|' + std::to_string(numbers[2]) + '|' + reason;
}

TEST_P(HttpText, AStatusLineIsReadAsScanfReadsIt)
{
    const struct {
        std::string text; // what follows "HTTP/"
        std::string expected;
    } rows[] = {
        {"1.0 200 OK\r\nA: b\r\n\r", "4|1|0|200|OK"},
        {"1.1 204 No Content\r\n\r", "4|1|1|204|No Content"},
        {"1.0 404 Not \t Found \r\n", "4|1|0|404|Not \t Found "},
        {"1.0 200 OK", "4|1|0|200|OK"},
        {"1.0 200 OK\nnext", "4|1|0|200|OK"},
        {"1.0 200 \xe4\xff\n", "4|1|0|200|\xe4\xff"},
        // no reason: the next line stands in for it, and nothing for nothing
        {"1.0 200\r\nServer: x\r\n\r", "4|1|0|200|Server: x"},
        {"1.0 200 \r\n \t\v\fServer: x\r\n", "4|1|0|200|Server: x"},
        {"1.0 200", "3|1|0|200|"},
        {"1.0 200 ", "3|1|0|200|"},
        {"1.0 200\r\n\r", "3|1|0|200|"},
        // fewer items
        {"", "0|0|0|0|"},
        {" ", "0|0|0|0|"},
        {"x", "0|0|0|0|"},
        {".0 200 OK", "0|0|0|0|"},
        {"1", "1|1|0|0|"},
        {"1 .0 200 OK", "1|1|0|0|"},
        {"1,0 200 OK", "1|1|0|0|"},
        {"1.", "1|1|0|0|"},
        {"1.x 200 OK", "1|1|0|0|"},
        {"1.0", "2|1|0|0|"},
        {"1.0 OK", "2|1|0|0|"},
        {"1.0x200 OK", "2|1|0|0|"},
        {"1.0200 OK", "2|1|200|0|"},
        {"1.0 - 200 OK", "2|1|0|0|"},
        // white space and signs where a number may have them
        {" 1. 0\n\n200OK", "4|1|0|200|OK"},
        {"1.0+200 OK", "4|1|0|200|OK"},
        {"-1.-2 -200 x", "4|-1|-2|-200|x"},
        {"01.00 0200 x", "4|1|0|200|x"},
        {"1.0 0x10 y", "4|1|0|0|x10 y"},
        {"1.0 200.5 y", "4|1|0|200|.5 y"},
        // the reason keeps 127 bytes
        {"1.0 200 " + std::string(127, 'r') + "\r\n", "4|1|0|200|" + std::string(127, 'r')},
        {"1.0 200 " + std::string(128, 'r') + "\r\n", "4|1|0|200|" + std::string(127, 'r')},
        {"1.0 200 " + std::string(100000, 'r'), "4|1|0|200|" + std::string(127, 'r')},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(status_of(row.text), row.expected) << testing::PrintToString(row.text);
        EXPECT_EQ(scanned_status_of(row.text), row.expected) << testing::PrintToString(row.text);
    }
}

TEST_P(HttpText, ANumberOfAStatusLineOutsideTheRangeIsItsNearestEnd)
{
    EXPECT_EQ(status_of("2147483647.2147483648 99999999999999999999 x"),
              "4|2147483647|2147483647|2147483647|x");
    EXPECT_EQ(status_of("-2147483648.-2147483649 -99999999999999999999 x"),
              "4|-2147483648|-2147483648|-2147483648|x");
    EXPECT_EQ(status_of(std::string(100000, '9') + ".0 200 x"), "4|2147483647|0|200|x");
}

TEST_P(HttpText, AnyTextIsReadAsScanfReadsIt)
{
    static const char alphabet[] = " \r\n\t.1120-+xO\xe4";
    unsigned state = 12345;
    const auto next = [&state](unsigned below) {
        state = state * 1664525u + 1013904223u;
        return (state >> 16) % below;
    };
    for (int i = 0; i < 20000; ++i) {
        // Beginnings of a good line with something thrown in reach every branch often.
        std::string text = "1.0 200 OK\r\nA: b";
        text.resize(next(17));
        for (unsigned changes = next(5); changes > 0; --changes)
            text.insert(next(static_cast<unsigned>(text.size()) + 1), 1,
                        alphabet[next(sizeof alphabet - 1)]);
        ASSERT_EQ(status_of(text), scanned_status_of(text)) << testing::PrintToString(text);
    }
}

} // namespace
} // namespace quintral
