// The version-update query: reading a reply's body and writing the version number as functions of
// bytes, then whole queries over real sockets. '#' stands for what a caller's buffer held before.
//
// The link wraps this program's malloc and free (--wrap), so that a test can count the blocks that
// a query takes and releases and let the nth one fail. What the C++ library allocates does not
// count.
#include "web/version-update.h"

#include "support/c-utils.h"
#include "tests/harness/each-locale.h"
#include "tests/harness/loopback-peer.h"
#include "web/transaction.h"

#include <cerrno>
#include <cfloat>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <netdb.h>

namespace {

// Of this thread alone: a peer's threads run beside it.
thread_local long live_blocks = 0;
thread_local long allocations_until_failure = 0; // 1: the next one fails; 0: none does

} // namespace

extern "C" {

void *__real_malloc(std::size_t size);
void __real_free(void *block);
void *__wrap_malloc(std::size_t size);
void __wrap_free(void *block);

void *__wrap_malloc(std::size_t size)
{
    if (allocations_until_failure > 0 && --allocations_until_failure == 0) {
        errno = ENOMEM;
        return nullptr;
    }
    void *const block = __real_malloc(size);
    live_blocks += block != nullptr ? 1 : 0;
    return block;
}

void __wrap_free(void *block)
{
    live_blocks -= block != nullptr ? 1 : 0;
    __real_free(block);
}

} // extern "C"

namespace quintral {
namespace {

using tests::LoopbackPeer;
using tests::PeerAct;
using tests::PeerScript;

constexpr unsigned room = 64; // of each buffer, whatever capacity a row gives

// One of the caller's buffers.
struct Buffer {
    char bytes[room];
    Buffer()
    {
        std::memset(bytes, '#', sizeof bytes);
    }
};

const char *const untouched = nullptr; // the value of a buffer that was not to be written

// All bytes of a buffer that was given the value: cut, terminated, filled with NULs up to the
// capacity, and not written behind it.
std::string bytes_given(const char *value, unsigned capacity)
{
    std::string all(room, '#');
    if (value == untouched || capacity == 0)
        return all;
    std::string stored = std::string(value).substr(0, capacity - 1);
    stored.resize(capacity, '\0');
    return all.replace(0, capacity, stored);
}

// ---- web_read_update_body -----------------------------------------------------------------------

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

// ---- web_format_version -------------------------------------------------------------------------

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

// ---- whole queries ------------------------------------------------------------------------------

const char accepted[] = "HTTP/1.0 200 OK\r\n\r\n";

// What a caller gives, beside its buffers.
struct Question {
    std::string service;
    float version = 5.0F;
    unsigned capacity = room;
    const char *proxy_host = nullptr;
    int proxy_port = 0;
    const char *proxy_user = nullptr;
    const char *proxy_password = nullptr;
};

struct Answer {
    int result = 99;
    Buffer message;
    Buffer version;
    Buffer url;
    Buffer button;
    std::string error;
};

int send_question(const Question &question, Answer *answer)
{
    return web_version_update("Sample", "Samples", question.version, "5.0", "Linux", "6.1", "",
                              "x86_64", question.capacity, answer->message.bytes,
                              answer->version.bytes, answer->url.bytes, answer->button.bytes,
                              question.proxy_host, question.proxy_port, question.proxy_user,
                              question.proxy_password);
}

Answer ask(const Question &question)
{
    const char *const service_before = web_service_host;
    web_service_host = question.service.c_str();
    Answer answer;
    answer.result = send_question(question, &answer);
    answer.error = web_last_error();
    web_service_host = service_before;
    return answer;
}

Answer ask(const LoopbackPeer &peer)
{
    Question question;
    question.service = peer.address();
    return ask(question);
}

PeerScript replying(const std::string &reply)
{
    return {{PeerAct::ReadRequest}, {PeerAct::Send, reply}};
}

void expect_values(const Answer &answer, const char *message, const char *version, const char *url,
                   const char *button)
{
    EXPECT_EQ(std::string(answer.message.bytes, room), bytes_given(message, room)) << "message";
    EXPECT_EQ(std::string(answer.version.bytes, room), bytes_given(version, room)) << "version";
    EXPECT_EQ(std::string(answer.url.bytes, room), bytes_given(url, room)) << "address";
    EXPECT_EQ(std::string(answer.button.bytes, room), bytes_given(button, room)) << "button";
}

void expect_failure(const Answer &answer, int result, const std::string &error)
{
    EXPECT_EQ(answer.result, result);
    EXPECT_EQ(answer.error, error);
    expect_values(answer, untouched, untouched, untouched, untouched);
}

std::string system_error(const std::string &what, int number)
{
    return what + "code " + std::to_string(number) + ": " + std::strerror(number);
}

// The bytes of a request; `credentials` is its Authorization line or empty.
std::string request(const std::string &service, const std::string &host, const std::string &body,
                    const std::string &credentials = "")
{
    return "POST http://" + service +
           "/version-update.php HTTP/1.0\r\n"
           "Accept: image/gif, image/x-xbitmap, image/jpeg, image/pjpeg, */*\r\n"
           "Accept-Language: en-us\r\n"
           "User-Agent: Velmora_Auto1\r\n"
           "Referer: " QUINTRAL_WEB_DOMAIN "\r\n"
           "Content-Type: application/x-www-form-urlencoded\r\n"
           "Content-Length: " +
           std::to_string(body.size()) + "\r\nHost: " + host + "\r\n" + credentials + "\r\n" + body;
}

const char sample_body[] = "product=Sample&productline=Samples&version=5%2e000&version%5fname=5%2e0"
                           "&os=Linux&os%5fversion=6%2e1&machine%5fid=&processor%5farch=x86%5f64";

class WebVersionUpdate : public tests::InEachLocale {};

INSTANTIATE_TEST_SUITE_P(Locales, WebVersionUpdate, tests::each_locale(), tests::locale_label);

TEST_P(WebVersionUpdate, SendsEightFieldsInOrderAndReadsTheAnswer)
{
    const LoopbackPeer peer({replying("HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n\r\n"
                                      "Version: 5.100\nURL: http://a/\nButton: Get it\n"
                                      "Message: A newer version\nis there.\n")});
    const Answer answer = ask(peer);
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.error, "");
    expect_values(answer, "A newer version\nis there.\n", "5.100", "http://a/", "Get it");
    EXPECT_EQ(peer.received(0), request(peer.address(), "127.0.0.1", sample_body));
    EXPECT_EQ(peer.connection_count(), 1);
}

TEST_P(WebVersionUpdate, EscapesEachValueAndCutsItAt1023)
{
    const LoopbackPeer peer({replying(std::string(accepted) + "Message: m")});
    const std::string address = peer.address();
    const char *const service_before = web_service_host;
    web_service_host = address.c_str();
    const std::string letters(1100, 'x');
    const std::string spaces(1100, ' ');
    Buffer message;
    EXPECT_EQ(web_version_update("A&B = C?", "50%+1", 1.1F, "\xc4\xe4 1/2", letters.c_str(),
                                 "#;:\"'\r\n", "-._~*", spaces.c_str(), room, message.bytes,
                                 nullptr, nullptr, nullptr, "", 0, nullptr, nullptr),
              0);
    web_service_host = service_before;
    std::string body = "product=A%26B%20%3d%20C%3f&productline=50%25%2b1&version=1%2e100"
                       "&version%5fname=%c4%e4%201%2f2&os=" +
                       std::string(1023, 'x') +
                       "&os%5fversion=%23%3b%3a%22%27%0d%0a&machine%5fid=%2d%2e%5f%7e%2a"
                       "&processor%5farch=";
    for (int i = 0; i < 1021; ++i)
        body += "%20";
    EXPECT_EQ(peer.received(0), request(address, "127.0.0.1", body));
}

TEST_P(WebVersionUpdate, SendsTheVersionWithThreeDigitsBehindAPoint)
{
    struct {
        float version;
        const char *sent;
    } const rows[] = {
        {1.1F, "&version=1%2e100&"},
        {-2.5F, "&version=%2d2%2e500&"},
        {FLT_MAX, "&version=340282346638528859811704183484516925440%2e000&"},
        {std::numeric_limits<float>::infinity(), "&version=inf&"},
    };
    for (const auto &row : rows) {
        const LoopbackPeer peer({replying(std::string(accepted) + "Message: m")});
        Question question;
        question.service = peer.address();
        question.version = row.version;
        EXPECT_EQ(ask(question).result, 0);
        const std::string sent = peer.received(0);
        EXPECT_NE(sent.find(row.sent), std::string::npos) << row.sent << " is not in\n" << sent;
    }
}

TEST(WebServiceHost, StartsAsTheHostOfTheBuild)
{
    EXPECT_STREQ(web_service_host, QUINTRAL_SERVICE_HOST);
}

// The names stand for nobody: the proxy is asked in their place.
TEST(WebVersionUpdateProxy, GetsTheWholeAddressOnItsOwnPort)
{
    struct {
        const char *service;
        const char *host_line;
    } const rows[] = {
        {"update.quintral.example", "UPDATE.QUINTRAL.EXAMPLE"},
        {"Update.quintral.example:8080", "UPDATE.QUINTRAL.EXAMPLE"},
    };
    for (const auto &row : rows) {
        for (const int excess : {0, 65536}) {
            const LoopbackPeer proxy({replying(std::string(accepted) + "Message: m")});
            Question question;
            question.service = row.service;
            question.proxy_host = "127.0.0.1";
            question.proxy_port = proxy.port() + excess;
            const Answer answer = ask(question);
            EXPECT_EQ(answer.result, 0) << answer.error;
            expect_values(answer, "m", untouched, untouched, untouched);
            EXPECT_EQ(proxy.received(0), request(row.service, row.host_line, sample_body));
        }
    }
}

TEST(WebVersionUpdateProxy, GetsTheCredentialsWhenBothAreGiven)
{
    struct {
        const char *user;
        const char *password;
        const char *line;
    } const rows[] = {
        {"user1", "pw1", "Authorization: Basic dXNlcjE6cHcx\r\n"},
        {"", "", "Authorization: Basic Og==\r\n"},
        {"user1", nullptr, ""},
        {nullptr, "pw1", ""},
        {nullptr, nullptr, ""},
    };
    for (const auto &row : rows) {
        const LoopbackPeer proxy({replying(std::string(accepted) + "Message: m")});
        Question question;
        question.service = "update.quintral.example";
        question.proxy_host = "127.0.0.1";
        question.proxy_port = proxy.port();
        question.proxy_user = row.user;
        question.proxy_password = row.password;
        EXPECT_EQ(ask(question).result, 0);
        EXPECT_EQ(proxy.received(0), request("update.quintral.example", "UPDATE.QUINTRAL.EXAMPLE",
                                             sample_body, row.line));
    }
}

// The credentials go to whichever peer is asked.
TEST(WebVersionUpdateProxy, IsNotUsedWithoutAHost)
{
    for (const char *host : {static_cast<const char *>(nullptr), ""}) {
        const LoopbackPeer peer({replying(std::string(accepted) + "Message: m")});
        Question question;
        question.service = peer.address();
        question.proxy_host = host;
        question.proxy_port = tests::refused_port();
        question.proxy_user = "user1";
        question.proxy_password = "pw1";
        EXPECT_EQ(ask(question).result, 0);
        EXPECT_EQ(peer.received(0), request(peer.address(), "127.0.0.1", sample_body,
                                            "Authorization: Basic dXNlcjE6cHcx\r\n"));
    }
}

struct ReplyRow {
    const char *header; // without the empty line
    const char *error;  // empty: accepted
};

TEST(WebVersionUpdateReply, IsReadWhenItsStatusIs200To299)
{
    const ReplyRow rows[] = {
        {"HTTP/1.0 200 OK\r\n", ""},
        {"HTTP/1.1 201 Created\r\nServer: s\r\n", ""},
        {"HTTP/1.1 204 No Content\r\n", ""},
        {"HTTP/1.0 299 Last\r\n", ""},
        {"HTTP/1.0 200 OK\n", ""},
        {"HTTP/1.0 200\r\nServer: s\r\n", ""}, // the next line stands as the reason
        {"HTTP/1.0 0200 OK\r\n", ""},
        {"X-Before: 1\r\nHTTP/1.0 200 OK\r\n", ""},
        {"HTTP/1.0 200 OK\r\nX-Again: HTTP/1.0 404 Gone\r\n", ""},
        {"HTTP/1.0 199 Early\r\n", "Bad HTTP status 199 from web site: Early"},
        {"HTTP/1.0 300 Choices\r\n", "Bad HTTP status 300 from web site: Choices"},
        {"HTTP/1.0 302 Found\r\nLocation: http://a/\r\n",
         "Bad HTTP status 302 from web site: Found"},
        {"HTTP/1.0 302\r\nLocation: http://a/\r\n",
         "Bad HTTP status 302 from web site: Location: http://a/"},
        {"HTTP/1.1 404 Not Found\r\n", "Bad HTTP status 404 from web site: Not Found"},
        {"HTTP/1.1 500 %s%n%d\r\n", "Bad HTTP status 500 from web site: %s%n%d"},
        {"HTTP/1.0 -200 OK\r\n", "Bad HTTP status -200 from web site: OK"},
        {"HTTP/1.0 4294967496 OK\r\n", "Bad HTTP status 2147483647 from web site: OK"},
        {"X: HTTP/1.0 404 First\r\nHTTP/1.0 200 OK\r\n",
         "Bad HTTP status 404 from web site: First"},
        {"HTTP/1.0 200\r\n", "Invalid HTTP return status (can't parse header HTTP/1.0 200\r\n\r)"},
        {"HTTP/x 200 OK\r\n",
         "Invalid HTTP return status (can't parse header HTTP/x 200 OK\r\n\r)"},
        {"ICY 200 OK\r\n", "Invalid non-HTTP header string returned from web site"},
        {"http/1.0 200 OK\r\n", "Invalid non-HTTP header string returned from web site"},
        {"HTTP 200 OK\r\n", "Invalid non-HTTP header string returned from web site"},
        {"", "Invalid non-HTTP header string returned from web site"},
    };
    for (const ReplyRow &row : rows) {
        const bool is_accepted = row.error[0] == '\0';
        const char *const empty_line = std::strchr(row.header, '\r') != nullptr ? "\r\n" : "\n";
        const LoopbackPeer peer(
            {replying(std::string(row.header) + empty_line + "Version: 6\nMessage: m")});
        const Answer answer = ask(peer);
        SCOPED_TRACE(std::string("header ") + row.header);
        EXPECT_EQ(answer.result, is_accepted ? 0 : -1);
        EXPECT_EQ(answer.error, row.error);
        expect_values(answer, is_accepted ? "m" : untouched, is_accepted ? "6" : untouched,
                      untouched, untouched);
    }
}

TEST(WebVersionUpdateReply, ShowsAtMost127BytesOfAReason)
{
    const LoopbackPeer peer({replying("HTTP/1.0 404 " + std::string(5000, 'x') + "\r\n\r\n")});
    expect_failure(ask(peer), -1, "Bad HTTP status 404 from web site: " + std::string(127, 'x'));
}

TEST(WebVersionUpdateReply, ThatIsEmptyIsNoHttp)
{
    const LoopbackPeer peer({{{PeerAct::ReadRequest}}});
    expect_failure(ask(peer), -1, "Invalid non-HTTP header string returned from web site");
}

TEST(WebVersionUpdateReply, WithoutAMessageFailsWithNoErrorTextAndKeepsWhatItHasRead)
{
    const LoopbackPeer refusing({replying("HTTP/1.0 404 Not Found\r\n\r\n")});
    EXPECT_NE(ask(refusing).error, "");
    const LoopbackPeer peer({replying(std::string(accepted) + "Version: 6\nURL: u\nButton: b\n"),
                             replying(accepted),
                             replying(std::string(accepted) + "Version: 6\nURL: u")});
    Answer answer = ask(peer);
    EXPECT_EQ(answer.result, -1);
    EXPECT_EQ(answer.error, "");
    expect_values(answer, untouched, "6", "u", "b");
    expect_failure(ask(peer), -1, "");
    answer = ask(peer);
    EXPECT_EQ(answer.result, -1);
    EXPECT_EQ(answer.error, "");
    expect_values(answer, untouched, "6", untouched, untouched);
}

TEST(WebVersionUpdateReply, MayBeCutByTheCapacity)
{
    const char *const body = "Version: 12345\nURL: abcde\nButton: fghij\nMessage: klmno";
    const LoopbackPeer peer({replying(std::string(accepted) + body)});
    for (const unsigned capacity : {0u, 1u, 3u}) {
        Question question;
        question.service = peer.address();
        question.capacity = capacity;
        const Answer answer = ask(question);
        EXPECT_EQ(answer.result, 0) << "capacity " << capacity;
        EXPECT_EQ(std::string(answer.message.bytes, room), bytes_given("klmno", capacity));
        EXPECT_EQ(std::string(answer.version.bytes, room), bytes_given("12345", capacity));
        EXPECT_EQ(std::string(answer.url.bytes, room), bytes_given("abcde", capacity));
        EXPECT_EQ(std::string(answer.button.bytes, room), bytes_given("fghij", capacity));
    }
}

TEST(WebVersionUpdateReply, OfSeveralMegabytesIsReadWhole)
{
    std::string body;
    while (body.size() < 2000000)
        body += "Other: some value\nURL: u\n";
    const LoopbackPeer peer({replying(accepted + body + "Message: " + std::string(2000000, 'x'))});
    const Answer answer = ask(peer);
    EXPECT_EQ(answer.result, 0) << answer.error;
    expect_values(answer, std::string(room, 'x').c_str(), untouched, "u", untouched);
}

// ---- a failed exchange --------------------------------------------------------------------------

TEST(WebVersionUpdateFailure, PassesOnAConnectThatIsRefused)
{
    Question question;
    question.service = "127.0.0.1:" + std::to_string(tests::refused_port());
    expect_failure(ask(question), -1,
                   system_error("Can't connect to web server '127.0.0.1': ", ECONNREFUSED));
}

TEST(WebVersionUpdateFailure, PassesOnALookUpThatFails)
{
    Question question;
    question.service = "a..b";
    const Answer answer = ask(question);
    expect_failure(answer, -1, std::string("Can't find web server 'A..B': ") + hstrerror(h_errno));
}

TEST(WebVersionUpdateFailure, PassesOnACancellation)
{
    const LoopbackPeer peer({{{PeerAct::ReadRequest}, {PeerAct::Hold}}});
    web_set_idle_hook([](void *) { web_cancel_requested = 1; }, nullptr);
    const Answer answer = ask(peer);
    web_set_idle_hook(nullptr, nullptr);
    expect_failure(answer, 2, "User canceled web transaction");
}

TEST(WebVersionUpdateFailure, PassesOnATimeOut)
{
    const LoopbackPeer peer({{{PeerAct::ReadRequest}, {PeerAct::Hold}}});
    expect_failure(ask(peer), 1, "Timeout waiting for web site");
}

// ---- what a query keeps -------------------------------------------------------------------------

class WebVersionUpdateBlocks : public testing::Test {
protected:
    void SetUp() override
    {
        const long before = live_blocks;
        char *const probe = alloc_printf("counted");
        const long taken = live_blocks - before;
        checked_free(probe);
        if (taken != 1)
            GTEST_SKIP() << "the libraries are shared: their malloc is not this program's";
    }
};

// Asks once, behind an earlier error: the last error is one block, and a query clears it first. So
// 0 is a query that failed with a text, -1 one that left no text, and neither lost anything.
long blocks_kept_by(const LoopbackPeer &peer, Answer *answer)
{
    web_set_error("An error text of an earlier query");
    const long before = live_blocks;
    *answer = ask(peer);
    return live_blocks - before;
}

// The header was delivered before, and nobody but the query can release it.
TEST_F(WebVersionUpdateBlocks, ATimeOutBehindTheHeaderReleasesIt)
{
    const LoopbackPeer peer({{{PeerAct::ReadRequest},
                              {PeerAct::Send, std::string(accepted) + "Version: 6\n"},
                              {PeerAct::Hold}}});
    Answer answer;
    EXPECT_EQ(blocks_kept_by(peer, &answer), 0);
    expect_failure(answer, 1, "Timeout waiting for web site");
}

TEST_F(WebVersionUpdateBlocks, AResetInTheBodyReleasesTheHeader)
{
    const LoopbackPeer peer({{{PeerAct::ReadRequest},
                              {PeerAct::Send, std::string(accepted) + "Message: m"},
                              {PeerAct::Pause, "", 300},
                              {PeerAct::Reset}}});
    Answer answer;
    EXPECT_EQ(blocks_kept_by(peer, &answer), 0);
    expect_failure(answer, -1, system_error("Error receiving data from web site: ", ECONNRESET));
}

TEST_F(WebVersionUpdateBlocks, ABodyPastTheLimitReleasesTheHeader)
{
    const LoopbackPeer peer({replying(std::string(accepted) + "Message: too long")});
    web_set_reply_limits(0, 5);
    Answer answer;
    EXPECT_EQ(blocks_kept_by(peer, &answer), 0);
    web_set_reply_limits(0, 0);
    expect_failure(answer, -1, "Reply body from web site is longer than 5 bytes");
}

// The exchange goes on behind a header that breaks off, and succeeds with an empty body.
TEST_F(WebVersionUpdateBlocks, AResetInTheHeaderLeavesItsErrorTextAlone)
{
    const LoopbackPeer peer({{{PeerAct::ReadRequest},
                              {PeerAct::Send, "HTTP/1.0 200 OK\r\nServer: s"},
                              {PeerAct::Pause, "", 300},
                              {PeerAct::Reset}}});
    Answer answer;
    EXPECT_EQ(blocks_kept_by(peer, &answer), 0);
    expect_failure(answer, -1, system_error("Error receiving data from web site: ", ECONNRESET));
}

TEST_F(WebVersionUpdateBlocks, AReplyThatWasReceivedIsReleased)
{
    struct {
        const char *reply;
        long kept;
    } const rows[] = {
        {"HTTP/1.0 200 OK\r\n\r\nMessage: m", -1}, {"HTTP/1.0 200 OK\r\n\r\nVersion: 6\n", -1},
        {"HTTP/1.0 200 OK\r\n\r\n", -1},           {"HTTP/1.0 404 Not Found\r\n\r\nMessage: m", 0},
        {"Something else\r\n\r\nMessage: m", 0},
    };
    for (const auto &row : rows) {
        const LoopbackPeer peer({replying(row.reply)});
        Answer answer;
        EXPECT_EQ(blocks_kept_by(peer, &answer), row.kept) << row.reply;
    }
}

// The nth allocation of the query fails; what it had taken before is released.
bool fails_in_allocation(int number, const LoopbackPeer &peer)
{
    web_set_error("An error text of an earlier query");
    const std::string address = peer.address();
    const char *const service_before = web_service_host;
    web_service_host = address.c_str();
    Question question;
    Answer answer;
    bool has_thrown = false;
    const long before = live_blocks;
    allocations_until_failure = number;
    try {
        answer.result = send_question(question, &answer);
    } catch (const std::bad_alloc &) {
        has_thrown = true;
    }
    allocations_until_failure = 0;
    web_service_host = service_before;
    EXPECT_EQ(live_blocks - before, -1) << "allocation " << number;
    if (has_thrown)
        expect_values(answer, untouched, untouched, untouched, untouched);
    else
        EXPECT_EQ(answer.result, 0);
    return has_thrown;
}

TEST_F(WebVersionUpdateBlocks, MemoryThatRunsOutThrowsAndLosesNothing)
{
    const LoopbackPeer peer({replying(std::string(accepted) + "Version: 6\nMessage: m")});
    int number = 1;
    while (number < 20 && fails_in_allocation(number, peer))
        ++number;
    EXPECT_EQ(number, 3) << "a query takes two blocks, for the header and for the body";
    for (int i = 0; i < peer.connection_count(); ++i) // each was closed by the query
        EXPECT_EQ(peer.received(i), request(peer.address(), "127.0.0.1", sample_body));
}

} // namespace
} // namespace quintral
