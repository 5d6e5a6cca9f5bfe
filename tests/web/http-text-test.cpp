// Parsing URLs, composing requests and reading status lines, without a network. Every test runs
// under each test locale.
#include "web/http-text.h"

#include "tests/harness/each-locale.h"
#include "tests/harness/text.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using tests::repeated;

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
        // the scheme is everything before the first ':'
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
        // two slashes are skipped, but not a single one
        {"http:/x", "HTTP||80"},
        {"http:///x", "HTTP||80"},
        {"http:x//y", "HTTP|X|80"},
        // the host ends at the first byte that cannot be part of it
        {"http://webhost", "HTTP|WEBHOST|80"},
        {"http://webhost?q=1", "HTTP|WEBHOST|80"},
        {"http://user@webhost", "HTTP|USER|80"},
        {"http://web_host", "HTTP|WEB|80"},
        {"http://web host", "HTTP|WEB|80"},
        {"http://web#host", "HTTP|WEB|80"},
        {"http://[::1]/", "HTTP||80"},
        {"http://w\344b/", "HTTP|W|80"},
        {"http://-.-/", "HTTP|-.-|80"},
        {"http://?", "HTTP||80"},
        // the port is read like atoi, after the first ':' of the host
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

TEST_P(HttpText, UrlsOfAnyLengthAreNotCut)
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

std::vector<std::string> pieces_of(const char *method, const std::string &extra_header,
                                   const std::string &body, const char *user = nullptr,
                                   const char *password = nullptr)
{
    WebRequestText text;
    text.pieces = {"left over"};
    text.lines = "left over";
    web_compose_request({method, "http://Web/p", "WEB", extra_header.data(), extra_header.size(),
                         body.data(), body.size(), user, password},
                        &text);
    return {text.pieces.begin(), text.pieces.end()};
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

const std::string host_line = "Host: WEB\r\n";

TEST_P(HttpText, ARequestIsComposedOfPiecesInAFixedOrder)
{
    const std::string nul = std::string("a\0b", 3);
    const std::string nul_line = nul + "\r\n";
    const struct {
        const char *rule;
        const char *method;
        std::string extra_header;
        std::string body;
        const char *sent_method;
        std::string sent_header; // an empty piece is left out
        std::string sent_body;
    } rows[] = {
        {"GET", "GET", "", "", "GET ", "", ""},
        {"a GET only announces", "GET", "A: b\r\nC: 4", "body", "GET ", "A: b\r\nC: 4\r\n", ""},
        {"a POST sends its body", "POST", "A: b", "body", "POST ", "A: b\r\n", "body"},
        {"the body is sent in full", "POST", "", nul, "POST ", "", nul},
        {"the extra header too", "GET", nul, "", "GET ", nul_line, ""},
        {"post is not POST", "post", "", "body", "GET ", "", ""},
        {"POSTS is not POST", "POSTS", "", "body", "GET ", "", ""},
        {"no method is a GET", "", "", "body", "GET ", "", ""},
    };
    for (const auto &row : rows) {
        std::vector<std::string> rest = {host_line, "\r\n"};
        if (!row.sent_header.empty())
            rest.insert(rest.begin(), row.sent_header);
        if (!row.sent_body.empty())
            rest.push_back(row.sent_body);
        EXPECT_EQ(pieces_of(row.method, row.extra_header, row.body),
                  with_fixed_lines(row.sent_method, rest))
            << row.rule;
    }
}

TEST_P(HttpText, CredentialsFollowTheHostIfBothAreGiven)
{
    const struct {
        const char *rule;
        const char *user;
        const char *password;
        const char *line; // empty if none is sent
    } rows[] = {
        {"both", "user", "pass", "Authorization: Basic dXNlcjpwYXNz\r\n"},
        {"only a user", "user", nullptr, ""},
        {"only a password", nullptr, "pass", ""},
        {"empty credentials are a colon", "", "", "Authorization: Basic Og==\r\n"},
        {"an empty user", "", "pw", "Authorization: Basic OnB3\r\n"},
        {"an empty password", "u", "", "Authorization: Basic dTo=\r\n"},
        {"any byte", "a:b%s", "\xff\n", "Authorization: Basic YTpiJXM6/wo=\r\n"},
    };
    for (const auto &row : rows) {
        std::vector<std::string> rest = {host_line, "\r\n"};
        if (*row.line != '\0')
            rest.insert(rest.begin() + 1, row.line);
        EXPECT_EQ(pieces_of("GET", "", "", row.user, row.password), with_fixed_lines("GET ", rest))
            << row.rule;
        rest.insert(rest.begin(), "A: b\r\n");
        rest.push_back("body");
        EXPECT_EQ(pieces_of("POST", "A: b", "body", row.user, row.password),
                  with_fixed_lines("POST ", rest))
            << row.rule;
    }
}

TEST_P(HttpText, APostWithoutABodyEndsWithTheEmptyLine)
{
    std::string joined;
    for (const std::string &piece : pieces_of("POST", "", ""))
        joined += piece;
    std::string expected;
    for (const std::string &piece : with_fixed_lines("POST ", {"Host: WEB\r\n", "\r\n"}))
        expected += piece;
    EXPECT_EQ(joined, expected);
}

TEST_P(HttpText, CredentialsOfAnyLengthAreEncodedOnOneLine)
{
    // "uuu" and "ppp" in base64, around a group with the colon.
    for (std::size_t groups : {1u, 18u, 19u, 255u, 256u, 257u, 33000u}) {
        const std::string user(3 * groups, 'u');
        const std::string password(3 * groups + 2, 'p');
        const auto pieces = pieces_of("GET", "", "", user.c_str(), password.c_str());
        ASSERT_EQ(pieces.size(), 10u) << groups;
        EXPECT_EQ(pieces[8], "Authorization: Basic " + repeated(groups, "dXV1") + "OnBw" +
                                 repeated(groups, "cHBw") + "\r\n")
            << groups;
    }
}

TEST_P(HttpText, PiecesOfAnyLengthAreNotCut)
{
    const std::string path(100000, 'p');
    const std::string host(100000, 'H');
    const std::string extra(100000, 'e');
    const std::string body(100000, 'b');
    WebRequestText text;
    web_compose_request({"POST", path.c_str(), host.c_str(), extra.data(), extra.size(),
                         body.data(), body.size(), nullptr, nullptr},
                        &text);
    const std::vector<std::string_view> &pieces = text.pieces;
    ASSERT_EQ(pieces.size(), 11u);
    EXPECT_EQ(pieces[1], path);
    EXPECT_EQ(pieces[7], extra + "\r\n");
    EXPECT_EQ(pieces[8], "Host: " + host + "\r\n");
    EXPECT_EQ(pieces[10], body);
}

TEST_P(HttpText, ThePathAndTheBodyAreSentFromWhereTheyAre)
{
    const std::string path(100, 'p');
    const std::string body(100, 'b');
    WebRequestText text;
    web_compose_request(
        {"POST", path.c_str(), "WEB", "", 0, body.data(), body.size(), nullptr, nullptr}, &text);
    ASSERT_EQ(text.pieces.size(), 10u);
    EXPECT_EQ(text.pieces[1].data(), path.data());
    EXPECT_EQ(text.pieces[9].data(), body.data());
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

// The same from sscanf, which the function must match.
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
        // without a reason, the next line is taken for it, if there is one
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
        // white space and signs before numbers
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

TEST_P(HttpText, AnOutOfRangeNumberInAStatusLineBecomesTheNearestLimit)
{
    EXPECT_EQ(status_of("2147483647.2147483648 99999999999999999999 x"),
              "4|2147483647|2147483647|2147483647|x");
    EXPECT_EQ(status_of("-2147483648.-2147483649 -99999999999999999999 x"),
              "4|-2147483648|-2147483648|-2147483648|x");
    EXPECT_EQ(status_of(std::string(100000, '9') + ".0 200 x"), "4|2147483647|0|200|x");
}

TEST_P(HttpText, AnyStringIsReadAsScanfReadsIt)
{
    static const char alphabet[] = " \r\n\t.1120-+xO\xe4";
    unsigned state = 12345;
    const auto next = [&state](unsigned below) {
        state = state * 1664525u + 1013904223u;
        return (state >> 16) % below;
    };
    for (int i = 0; i < 20000; ++i) {
        // The beginning of a valid line with random insertions reaches every branch often.
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
