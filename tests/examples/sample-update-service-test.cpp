// The sample update service as a process: bytes in over raw sockets, exact bytes out, and what it
// writes on its standard error. The build names the program and the product list beside it.
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/harness/child-process.h"
#include "tests/harness/text.h"

namespace quintral::tests {
namespace {

const char *const service = QUINTRAL_SAMPLE_SERVICE;
const char *const products = QUINTRAL_SAMPLE_PRODUCTS;

// ---- The service, started and ended ----

struct Service {
    Child child;
    std::uint16_t port = 0;
};

Service start_service(ChildOptions options = {}, const char *list = products)
{
    Service started;
    options.limit_seconds = 90;
    started.child = child_start({service, list}, options);
    EXPECT_TRUE(child_wait_for_text(started.child, "\n", 10000)) << started.child.error;
    unsigned port = 0;
    if (std::sscanf(started.child.output.c_str(), "Listening on 127.0.0.1:%u", &port) != 1)
        ADD_FAILURE() << "no port in '" << started.child.output << "'";
    started.port = static_cast<std::uint16_t>(port);
    return started;
}

// Takes what the log's pipe holds, which would stall the service when full.
void drain_log(Service &started)
{
    child_wait_for_text(started.child, "no line of the log", 0);
}

// Ends the service and expects the clean end; gives what it logged.
std::string stop_service(Service &started, int signal_number = SIGTERM)
{
    child_signal(started.child, signal_number);
    const ChildResult result = child_wait(started.child);
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.signal, 0);
    EXPECT_FALSE(result.timed_out);
    EXPECT_EQ(result.output, "Listening on 127.0.0.1:" + std::to_string(started.port) + "\n");
    return result.error;
}

// ---- A client of raw bytes ----

int connect_to(std::uint16_t port)
{
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    const timeval limit = {30, 0};
    setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    EXPECT_EQ(connect(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    return descriptor;
}

bool send_bytes(int descriptor, const std::string &bytes)
{
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count =
            send(descriptor, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

// Everything up to the peer's close; anything but a clean close is a test failure.
std::string receive_to_end(int descriptor)
{
    std::string bytes;
    char chunk[4096];
    ssize_t count = 0;
    while ((count = recv(descriptor, chunk, sizeof chunk, 0)) > 0)
        bytes.append(chunk, static_cast<std::size_t>(count));
    EXPECT_EQ(count, 0) << "no clean end: errno " << errno;
    return bytes;
}

std::string ask(std::uint16_t port, const std::string &request)
{
    const int descriptor = connect_to(port);
    EXPECT_TRUE(send_bytes(descriptor, request));
    const std::string answer = receive_to_end(descriptor);
    close(descriptor);
    return answer;
}

// The same, with the end of the client's sending side behind the request.
std::string ask_and_end(std::uint16_t port, const std::string &request)
{
    const int descriptor = connect_to(port);
    EXPECT_TRUE(send_bytes(descriptor, request));
    shutdown(descriptor, SHUT_WR);
    const std::string answer = receive_to_end(descriptor);
    close(descriptor);
    return answer;
}

// A product list in a file of its own, removed at the end of the test.
class ListFile {
public:
    explicit ListFile(const std::string &text)
    {
        const int descriptor = mkstemp(name.data());
        EXPECT_GE(descriptor, 0);
        close(descriptor);
        std::ofstream(name, std::ios::binary) << text;
    }
    ~ListFile()
    {
        unlink(name.c_str());
    }
    ListFile(const ListFile &) = delete;
    ListFile &operator=(const ListFile &) = delete;

    std::string name = testing::TempDir() + "sample-products-XXXXXX";
};

// ---- Requests and answers ----

std::string form(const std::string &product, const std::string &line, const std::string &version)
{
    return "product=" + product + "&productline=" + line + "&version=" + version +
           "&version_name=Five&os=Linux&os_version=6%2e1&machine_id=M%2d7&processor_arch=x86%5f64";
}

const std::string good_form = form("Quintral%20Shapes", "Quintral", "5%2e000");

// As the web client writes it, line by line.
std::string request_with(const std::string &request_line, const std::string &length_line,
                         const std::string &body)
{
    return request_line + "\r\n" +
           "Accept: image/gif, image/x-xbitmap, image/jpeg, image/pjpeg, */*\r\n"
           "Accept-Language: en-us\r\n"
           "User-Agent: Velmora_Auto1\r\n"
           "Referer: www.quintral.example\r\n"
           "Content-Type: application/x-www-form-urlencoded\r\n" +
           length_line + "Host: 127.0.0.1\r\n\r\n" + body;
}

const std::string good_line = "POST http://127.0.0.1:80/version-update.php HTTP/1.0";

std::string length_line(std::size_t length)
{
    return "Content-Length: " + std::to_string(length) + "\r\n";
}

std::string post(const std::string &body, const std::string &request_line = good_line)
{
    return request_with(request_line, length_line(body.size()), body);
}

std::string answer(const std::string &status, const std::string &body,
                   const std::string &more_header = "")
{
    return "HTTP/1.0 " + status + "\r\nContent-Type: text/plain\r\n" + length_line(body.size()) +
           "Connection: close\r\n" + more_header + "\r\n" + body;
}

const std::string shapes_body = "Version: 5.2\n"
                                "URL: http://www.quintral.example/shapes\n"
                                "Button: Get it now\n"
                                "Message: Quintral Shapes 5.2 draws faster.\n";
const std::string shapes_current = "Version: 5.2\nMessage: You have the newest version.\n";
const std::string unknown_body = "Message: This service does not know the product.\n";
const std::string shapes_answer = answer("200 OK", shapes_body);

std::string bad_request(const std::string &why)
{
    return answer("400 Bad Request", why + "\n");
}

struct Exchange {
    std::string rule;
    std::string request;
    std::string answer;
};

void expect_answers(const std::vector<Exchange> &rows, bool end_sending = false)
{
    Service started = start_service();
    for (const Exchange &row : rows) {
        const std::string given =
            end_sending ? ask_and_end(started.port, row.request) : ask(started.port, row.request);
        drain_log(started);
        EXPECT_EQ(given, row.answer) << row.rule << "\nrequest:\n" << row.request.substr(0, 2000);
    }
    stop_service(started);
}

struct Query {
    std::string rule;
    std::string product;
    std::string line;
    std::string version;
    std::string body;
};

TEST(SampleUpdateService, AnswersAQueryFromTheProductList)
{
    const std::vector<Query> rows = {
        {"newer version", "Quintral%20Shapes", "Quintral", "5%2e000", shapes_body},
        {"newer by one thousandth", "Quintral%20Shapes", "Quintral", "5%2e199", shapes_body},
        {"5.10 is older than 5.2", "Quintral%20Shapes", "Quintral", "5%2e10", shapes_body},
        {"whole parts are numbers", "Quintral%20Frames", "Quintral", "9%2e000",
         "Version: 12\nURL: http://www.quintral.example/frames\n"
         "Message: Quintral Frames 12 is out.\n"},
        {"no point in the asked version", "Quintral%20Shapes", "Quintral", "5", shapes_body},
        {"version zero", "Quintral%20Shapes", "Quintral", "0%2e000", shapes_body},
        {"leading zeros do not count", "Quintral%20Shapes", "Quintral", "005%2e1", shapes_body},
        {"behind what a double can tell, older", "Quintral%20Shapes", "Quintral",
         "5%2e1999999999999999999999", shapes_body},
        {"behind what a double can tell, newer", "Quintral%20Shapes", "Quintral",
         "5%2e2000000000000000000001", shapes_current},
        {"the same version", "Quintral%20Shapes", "Quintral", "5%2e200", shapes_current},
        {"the same, written otherwise", "Quintral%20Shapes", "Quintral", "05%2e2", shapes_current},
        {"a newer client", "Quintral%20Shapes", "Quintral", "5%2e201", shapes_current},
        {"a far newer client", "Quintral%20Shapes", "Quintral",
         "340282346638528859811704183484516925440%2e000", shapes_current},
        {"the same whole number", "Quintral%20Frames", "Quintral", "12%2e000",
         "Version: 12\nMessage: You have the newest version.\n"},
        {"no address and no button", "Quintral%20Shapes", "Quintral%20Light", "3%2e124",
         "Version: 3.125\nMessage: Quintral Shapes 3.125 comes with your next disc.\n"},
        {"any product line, two lines of message", "Quintral", "whatever", "1%2e000",
         "Version: 1.5\nURL: http://www.quintral.example/download\nButton: Download\n"
         "Message: Version 1.5 of the update check is here.\n"
         "It is free for everybody who has version 1.\n"},
        {"any product line, an empty one", "Quintral", "", "1%2e500",
         "Version: 1.5\nMessage: You have the newest version.\n"},
        {"unknown product", "Quintral%20Lines", "Quintral", "5%2e000", unknown_body},
        {"unknown product line", "Quintral%20Shapes", "Other", "5%2e000", unknown_body},
        {"another letter case", "quintral%20shapes", "Quintral", "5%2e000", unknown_body},
        {"empty product", "", "", "5%2e000", unknown_body},
    };
    std::vector<Exchange> exchanges;
    exchanges.reserve(rows.size());
    for (const Query &row : rows)
        exchanges.push_back(
            {row.rule, post(form(row.product, row.line, row.version)), answer("200 OK", row.body)});
    expect_answers(exchanges);
}

std::string replaced(std::string text, const std::string &what, const std::string &with)
{
    const std::size_t at = text.find(what);
    EXPECT_NE(at, text.npos) << what;
    return text.replace(at, what.size(), with);
}

// A good form with unknown fields behind it, so that it is `length` bytes long.
std::string form_of_length(std::size_t length)
{
    const std::string begin = good_form + "&filler=";
    return begin + std::string(length - begin.size(), 'x');
}

std::string form_of_fields(std::size_t count)
{
    std::string text = good_form;
    for (std::size_t i = 8; i < count; ++i)
        text += "&x=";
    return text;
}

// A good request whose header, up to its last line's carriage return, is `length` bytes long.
std::string request_with_header_of(std::size_t length)
{
    const std::string request = post(good_form);
    const std::size_t header_length = request.find("\r\n\r\n") + 1;
    const std::string name = "X-Filler: ";
    const std::string filler(length - header_length - name.size() - 2, 'x');
    return replaced(request, "Host:", name + filler + "\r\nHost:");
}

TEST(SampleUpdateService, TakesEveryWellFormedSpellingOfARequest)
{
    const std::string path = "/version-update.php";
    expect_answers({
        {"absolute address", post(good_form), shapes_answer},
        {"plain path", post(good_form, "POST " + path + " HTTP/1.0"), shapes_answer},
        {"query string", post(good_form, "POST " + path + "?a=b/c HTTP/1.0"), shapes_answer},
        {"absolute address with a query string",
         post(good_form, "POST http://host" + path + "?http://x/y HTTP/1.0"), shapes_answer},
        {"scheme in capitals", post(good_form, "POST HTTP://HOST:1" + path + " HTTP/1.0"),
         shapes_answer},
        {"HTTP/1.1", post(good_form, "POST " + path + " HTTP/1.1"), shapes_answer},
        {"line feeds alone", tests::without_carriage_returns(post(good_form)), shapes_answer},
        {"header name in lower case", replaced(post(good_form), "Content-L", "content-l"),
         shapes_answer},
        {"no blank behind the colon", replaced(post(good_form), "Length: ", "Length:"),
         shapes_answer},
        {"zeros before the length", replaced(post(good_form), "Length: ", "Length:  000"),
         shapes_answer},
        {"only the header line that is needed",
         "POST " + path + " HTTP/1.0\r\n" + length_line(good_form.size()) + "\r\n" + good_form,
         shapes_answer},
        {"'+' for a blank", post(replaced(good_form, "%20", "+")), shapes_answer},
        {"escapes in capitals", post(replaced(good_form, "Shapes", "%53h%61pes%2E")),
         answer("200 OK", unknown_body)},
        {"escaped letters", post(replaced(good_form, "Shapes", "%53h%61pes")), shapes_answer},
        {"escaped field name", post(replaced(good_form, "product=", "%70roduct=")), shapes_answer},
        {"unknown field", post("more=1&" + good_form), shapes_answer},
        {"nothing between two '&'", post("&&" + good_form + "&"), shapes_answer},
        {"of a field given twice the first counts", post(good_form + "&version=9"), shapes_answer},
        {"'=' in a value", post(good_form + "&x=a=b=c"), shapes_answer},
        {"bytes behind the form", post(good_form) + "garbage\r\n\r\n", shapes_answer},
        {"longest form", post(form_of_length(32768)), shapes_answer},
        {"longest header", request_with_header_of(8192), shapes_answer},
        {"most fields", post(form_of_fields(64)), shapes_answer},
    });
}

TEST(SampleUpdateService, RefusesEveryBadRequest)
{
    const std::string path = "/version-update.php";
    const std::string line = bad_request("The request line is malformed.");
    const std::string header = bad_request("A header line is malformed.");
    const std::string escape = bad_request("The form has a malformed escape.");
    const std::string number = bad_request("Content-Length is not a number.");
    const std::string version = bad_request("The field version is not a number.");
    const std::string not_found = answer("404 Not Found", "There is no such page here.\n");
    const std::string too_large = answer("400 Bad Request", "The form is too long.\n");
    const std::string no_length = answer("411 Length Required", "Content-Length is missing.\n");
    const std::string not_allowed =
        answer("405 Method Not Allowed", "This page takes POST only.\n", "Allow: POST\r\n");
    const auto with_length = [](const std::string &text) {
        return request_with(good_line, "Content-Length:" + text + "\r\n", good_form);
    };
    const auto with_version = [](const std::string &text) {
        return post(form("Quintral%20Shapes", "Quintral", text));
    };
    expect_answers({
        {"empty request line", "\r\n\r\n", line},
        {"one word", post(good_form, "POST"), line},
        {"two words", post(good_form, "POST " + path), line},
        {"four words", post(good_form, good_line + " x"), line},
        {"two blanks", post(good_form, "POST  " + path + " HTTP/1.0"), line},
        {"blank before the method", post(good_form, " POST " + path + " HTTP/1.0"), line},
        {"method that is no name", post(good_form, "PO(ST " + path + " HTTP/1.0"), line},
        {"NUL in the method", post(good_form, std::string("PO\0ST ", 6) + path + " HTTP/1.0"),
         line},
        {"relative path", post(good_form, "POST version-update.php HTTP/1.0"), line},
        {"another scheme", post(good_form, "POST https://host" + path + " HTTP/1.0"), line},
        {"a star", post(good_form, "OPTIONS * HTTP/1.0"), line},
        {"only a query", post(good_form, "POST ?x HTTP/1.0"), line},
        {"another protocol", post(good_form, "POST " + path + " FTP/1.0"), line},
        {"another HTTP", post(good_form, "POST " + path + " HTTP/2.0"), line},
        {"no number of HTTP", post(good_form, "POST " + path + " HTTP/1.x"), line},
        {"short number of HTTP", post(good_form, "POST " + path + " HTTP/1."), line},
        {"long number of HTTP", post(good_form, "POST " + path + " HTTP/1.00"), line},
        {"header line without a colon", replaced(post(good_form), "Host:", "Host"), header},
        {"blank before the colon", replaced(post(good_form), "Host:", "Host :"), header},
        {"header line without a name", replaced(post(good_form), "Host:", ":"), header},
        {"folded header line", replaced(post(good_form), "Host:", " Host:"), header},
        {"two lengths", replaced(post(good_form), "Host:", "Content-Length: 1\r\nHost:"),
         bad_request("Content-Length is given twice.")},
        {"other path", post(good_form, "POST /other HTTP/1.0"), not_found},
        {"root", post(good_form, "POST / HTTP/1.0"), not_found},
        {"address without a path", post(good_form, "POST http://host:80 HTTP/1.0"), not_found},
        {"path that begins alike", post(good_form, "POST " + path + "/x HTTP/1.0"), not_found},
        {"path in capitals", post(good_form, "POST /VERSION-UPDATE.PHP HTTP/1.0"), not_found},
        {"path only in the query", post(good_form, "POST /?" + path + " HTTP/1.0"), not_found},
        {"other path and method", "GET / HTTP/1.0\r\n\r\n", not_found},
        {"GET", "GET " + path + " HTTP/1.0\r\n\r\n", not_allowed},
        {"PUT with a form", post(good_form, "PUT " + path + " HTTP/1.0"), not_allowed},
        {"method in lower case", post(good_form, "post " + path + " HTTP/1.0"), not_allowed},
        {"HEAD gets no body", "HEAD " + path + " HTTP/1.0\r\n\r\n",
         not_allowed.substr(0, not_allowed.find("\r\n\r\n") + 4)},
        {"no length", request_with(good_line, "", good_form), no_length},
        {"no header line at all", good_line + "\r\n\r\n", no_length},
        {"chunks instead of a length",
         request_with(good_line, "Transfer-Encoding: chunked\r\n", "0\r\n\r\n"), no_length},
        {"empty length", with_length(""), number},
        {"blank length", with_length("  "), number},
        {"negative length", with_length(" -1"), number},
        {"signed length", with_length(" +5"), number},
        {"length in words", with_length(" ten"), number},
        {"length with more behind it", with_length(" 12x"), number},
        {"two numbers", with_length(" 1 2"), number},
        {"form a byte too long", post(form_of_length(32769)), too_large},
        {"length over 32 bits", with_length(" 4294967297"), too_large},
        {"length over 64 bits", with_length(" 18446744073709551617"), too_large},
        {"length of 4000 digits", with_length(" " + std::string(4000, '9')), too_large},
        {"header a byte too long", request_with_header_of(8193),
         bad_request("The header is too long.")},
        {"header line without an end", "POST " + std::string(20000, 'x'),
         bad_request("The header is too long.")},
        {"a field too many", post(form_of_fields(65)),
         bad_request("The form has too many fields.")},
        {"'%' at the end", post(good_form + "%"), escape},
        {"one digit at the end", post(good_form + "%4"), escape},
        {"one digit, the other behind the form", post(good_form + "%4") + "0", escape},
        {"no digit", post(good_form + "%zz"), escape},
        {"one digit", post(good_form + "%4z"), escape},
        {"second digit only", post(good_form + "%z4"), escape},
        {"NUL for a digit", post(good_form + std::string("%4\0", 3)), escape},
        {"escape cut by the next field", post("x=%4&" + good_form), escape},
        {"bad escape in a name", post("%=1&" + good_form), escape},
        {"empty version", with_version(""), version},
        {"version in words", with_version("five"), version},
        {"negative version", with_version("%2d5%2e000"), version},
        {"infinity", with_version("inf"), version},
        {"comma for a point", with_version("5%2c000"), version},
        {"no digit before the point", with_version("%2e5"), version},
        {"no digit behind the point", with_version("5%2e"), version},
        {"two points", with_version("5%2e2%2e1"), version},
        {"blank before the version", with_version("%205"), version},
    });
}

TEST(SampleUpdateService, AsksForEveryField)
{
    const char *const names[] = {"product", "productline", "version",    "version_name",
                                 "os",      "os_version",  "machine_id", "processor_arch"};
    std::vector<Exchange> rows = {
        {"empty form", post(""), bad_request("The field product is missing.")}};
    for (const std::string name : names) {
        rows.push_back({name, post(replaced("&" + good_form, "&" + name + "=", "&x=")),
                        bad_request("The field " + name + " is missing.")});
    }
    expect_answers(rows);
}

TEST(SampleUpdateService, AnswersARequestThatEndsTooEarly)
{
    const std::string request = post(good_form);
    expect_answers(
        {
            {"inside the form", request.substr(0, request.size() - 1),
             bad_request("The form is shorter than its length.")},
            {"before the form", request.substr(0, request.size() - good_form.size()),
             bad_request("The form is shorter than its length.")},
            {"inside the empty line", request.substr(0, request.size() - good_form.size() - 1),
             bad_request("The header has no end.")},
            {"inside the request line", "POST", bad_request("The header has no end.")},
            {"before the first byte", "", ""},
            {"behind the form", request, shapes_answer},
        },
        true);
}

TEST(SampleUpdateService, SurvivesARequestCutAtEveryByte)
{
    Service started = start_service();
    const std::string request = post(good_form);
    const std::size_t header_end = request.size() - good_form.size();
    for (std::size_t length = 1; length < request.size(); ++length) {
        const char *why =
            length < header_end ? "The header has no end." : "The form is shorter than its length.";
        EXPECT_EQ(ask_and_end(started.port, request.substr(0, length)), bad_request(why))
            << "the first " << length << " bytes";
        drain_log(started);
    }
    EXPECT_EQ(ask(started.port, request), shapes_answer);
    stop_service(started);
}

TEST(SampleUpdateService, TakesARequestThatArrivesByteByByte)
{
    Service started = start_service();
    const int on = 1;
    for (const std::string &request :
         {post(good_form), tests::without_carriage_returns(post(good_form))}) {
        const int client = connect_to(started.port);
        setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        for (const char byte : request) {
            ASSERT_TRUE(send_bytes(client, std::string(1, byte)));
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_EQ(receive_to_end(client), shapes_answer);
        close(client);
    }
    stop_service(started);
}

TEST(SampleUpdateService, EndsARefusalCleanlyWhileTheClientStillSends)
{
    Service started = start_service();
    const std::string body(4 * 1024 * 1024, 'x');
    EXPECT_EQ(ask(started.port, post(body)), answer("400 Bad Request", "The form is too long.\n"));
    EXPECT_EQ(ask(started.port, post(body, "POST /other HTTP/1.0")),
              answer("404 Not Found", "There is no such page here.\n"));
    stop_service(started);
}

// ---- Clients that are slow or worse ----

TEST(SampleUpdateService, IdleAndSlowClientsDoNotHoldUpAGoodOne)
{
    Service started = start_service();
    std::vector<int> clients;
    for (int i = 0; i < 50; ++i)
        clients.push_back(connect_to(started.port));
    const std::string request = post(good_form);
    const int slow = connect_to(started.port);
    ASSERT_TRUE(send_bytes(slow, request.substr(0, request.size() / 2)));
    const int deaf = connect_to(started.port); // asks and never reads
    ASSERT_TRUE(send_bytes(deaf, request));
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(ask(started.port, request), shapes_answer);
    ASSERT_TRUE(send_bytes(slow, request.substr(request.size() / 2)));
    EXPECT_EQ(receive_to_end(slow), shapes_answer);
    ASSERT_TRUE(send_bytes(clients[0], request)); // an idle one that wakes up is served too
    EXPECT_EQ(receive_to_end(clients[0]), shapes_answer);
    for (const int client : clients)
        close(client);
    close(slow);
    close(deaf);
    stop_service(started);
}

TEST(SampleUpdateService, TheOldestOfTooManyClientsMakesRoom)
{
    Service started = start_service();
    std::vector<int> clients;
    for (int i = 0; i < 300; ++i)
        clients.push_back(connect_to(started.port));
    EXPECT_EQ(ask(started.port, post(good_form)), shapes_answer);
    EXPECT_EQ(receive_to_end(clients.front()), "");
    ASSERT_TRUE(send_bytes(clients.back(), post(good_form)));
    EXPECT_EQ(receive_to_end(clients.back()), shapes_answer);
    for (const int client : clients)
        close(client);
    const std::string log = stop_service(started);
    EXPECT_EQ(log.substr(0, 25), "Closed: too many clients\n");
}

TEST(SampleUpdateService, TheOldestClientMakesRoomWhereDescriptorsRunOut)
{
    ChildOptions options;
    options.prepare = [] {
        const rlimit few = {12, 12};
        setrlimit(RLIMIT_NOFILE, &few);
    };
    Service started = start_service(options);
    std::vector<int> clients;
    for (int i = 0; i < 30; ++i)
        clients.push_back(connect_to(started.port));
    EXPECT_EQ(ask(started.port, post(good_form)), shapes_answer);
    for (const int client : clients)
        close(client);
    const std::string log = stop_service(started);
    EXPECT_EQ(log.substr(0, log.find('\n')), "Closed: the system has no room for another client");
}

TEST(SampleUpdateService, AClientThatResetsDoesNoHarm)
{
    Service started = start_service();
    const linger reset = {1, 0};
    const std::string request = post(good_form);
    for (std::size_t length = 0; length <= request.size(); length += request.size() / 4) {
        for (int i = 0; i < 10; ++i) {
            const int client = connect_to(started.port);
            ASSERT_TRUE(send_bytes(client, request.substr(0, length)));
            setsockopt(client, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
            close(client);
        }
        EXPECT_EQ(ask(started.port, request), shapes_answer);
    }
    stop_service(started);
}

// The answer is longer than all that the system takes off the service's hands for a client that
// does not read.
TEST(SampleUpdateService, AnAnswerThatNobodyReadsDoesNotHoldUpOthers)
{
    const std::string message(16 * 1024 * 1024, 'x');
    const ListFile list("long|line|2|u|b|" + message + "\nshort|line|2|u|b|m\n");
    ChildOptions options;
    options.error = ChildStream::BrokenPipe; // the log shows the answer too
    Service started = start_service(options, list.name.c_str());
    const int deaf = connect_to(started.port);
    ASSERT_TRUE(send_bytes(deaf, post(form("long", "line", "1"))));
    char byte = 0;
    EXPECT_EQ(recv(deaf, &byte, 1, MSG_PEEK), 1); // the answer is on its way
    EXPECT_EQ(ask(started.port, post(form("short", "line", "1"))),
              answer("200 OK", "Version: 2\nURL: u\nButton: b\nMessage: m\n"));
    EXPECT_TRUE(receive_to_end(deaf) ==
                answer("200 OK", "Version: 2\nURL: u\nButton: b\nMessage: " + message + "\n"));
    close(deaf);
    stop_service(started);
}

// The time is counted from the start of the connection: a byte now and then buys no more of it.
TEST(SampleUpdateService, ClosesAConnectionWhoseTimeIsUp)
{
    Service started = start_service();
    const int idle = connect_to(started.port);
    const int trickling = connect_to(started.port);
    const int finished = connect_to(started.port); // has its answer and does not close
    ASSERT_TRUE(send_bytes(finished, post(good_form)));
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 8; ++i) {
        ASSERT_TRUE(send_bytes(trickling, "P")) << "closed too early, after " << i << " s";
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
    EXPECT_EQ(receive_to_end(idle), "");
    EXPECT_EQ(receive_to_end(trickling), "");
    const auto lived = std::chrono::steady_clock::now() - start;
    EXPECT_GE(lived, std::chrono::seconds(9));
    EXPECT_LE(lived, std::chrono::seconds(25));
    EXPECT_EQ(receive_to_end(finished), shapes_answer);
    EXPECT_EQ(ask(started.port, post(good_form)), shapes_answer);
    for (const int client : {idle, trickling, finished})
        close(client);
    const std::string log = stop_service(started);
    EXPECT_NE(log.find("Closed: the client took too long\n"
                       "Closed: the client took too long\n"
                       "Request: "),
              log.npos)
        << log;
}

// ---- The log ----

TEST(SampleUpdateService, LogsWhatItReceivedAndWhatItAnswered)
{
    Service started = start_service();
    ask(started.port, post(good_form));
    ask(started.port, "GET /other HTTP/1.0\r\n\r\n");
    EXPECT_EQ(stop_service(started), "Request: " + good_line +
                                         "\n"
                                         "  product = Quintral Shapes\n"
                                         "  productline = Quintral\n"
                                         "  version = 5.000\n"
                                         "  version_name = Five\n"
                                         "  os = Linux\n"
                                         "  os_version = 6.1\n"
                                         "  machine_id = M-7\n"
                                         "  processor_arch = x86_64\n"
                                         "Answer: 200 OK\n"
                                         "  Version: 5.2\n"
                                         "  URL: http://www.quintral.example/shapes\n"
                                         "  Button: Get it now\n"
                                         "  Message: Quintral Shapes 5.2 draws faster.\n"
                                         "Request: GET /other HTTP/1.0\n"
                                         "Answer: 404 Not Found\n"
                                         "  There is no such page here.\n");
}

// All 256 bytes as a value: printable ASCII but the backslash as it is, every other byte escaped.
TEST(SampleUpdateService, WritesNoRawByteOfAClientToTheLog)
{
    Service started = start_service();
    std::string escaped;
    std::string shown;
    char text[8];
    for (unsigned byte = 0; byte < 256; ++byte) {
        std::snprintf(text, sizeof text, "%%%02x", byte);
        escaped += text;
        std::snprintf(text, sizeof text, "\\x%02X", byte);
        const bool plain = byte >= 0x20 && byte <= 0x7E && byte != '\\';
        shown += plain ? std::string(1, static_cast<char>(byte)) : text;
    }
    EXPECT_EQ(ask(started.port, post("%1b%5d0=" + escaped + "&" + good_form)), shapes_answer);
    EXPECT_EQ(ask(started.port, "GET /\x1b[2J\x9b\xc3\xa4\t HTTP/1.0\r\n\r\n"),
              answer("404 Not Found", "There is no such page here.\n"));
    const std::string log = stop_service(started);
    EXPECT_NE(log.find("  \\x1B]0 = " + shown + "\n"), log.npos) << log;
    EXPECT_NE(log.find("Request: GET /\\x1B[2J\\x9B\\xC3\\xA4\\x09 HTTP/1.0\n"), log.npos) << log;
    for (const char c : log)
        EXPECT_TRUE(c == '\n' || (c >= ' ' && c <= '~')) << static_cast<int>(c);
}

// With standard input closed too, the first descriptors that the service opens for itself would be
// its standard error.
TEST(SampleUpdateService, AClosedLogDoesNoHarm)
{
    for (const ChildStream stream : {ChildStream::Closed, ChildStream::BrokenPipe}) {
        ChildOptions options;
        options.error = stream;
        options.prepare = [] { close(STDIN_FILENO); };
        Service started = start_service(options);
        EXPECT_EQ(ask(started.port, post(good_form)), shapes_answer);
        EXPECT_EQ(ask(started.port, post(good_form)), shapes_answer);
        stop_service(started);
    }
}

// ---- Start and end ----

TEST(SampleUpdateService, EitherSignalEndsItWithStatusZero)
{
    for (const int signal_number : {SIGTERM, SIGINT}) {
        Service started = start_service();
        EXPECT_EQ(stop_service(started, signal_number), "");
    }
}

TEST(SampleUpdateService, EndsAtASignalWhateverItsClientsDo)
{
    Service started = start_service();
    const int idle = connect_to(started.port);
    const int half = connect_to(started.port);
    ASSERT_TRUE(send_bytes(half, "POST /version-update.php"));
    EXPECT_EQ(ask(started.port, post(good_form)), shapes_answer);
    stop_service(started);
    close(idle);
    close(half);
}

TEST(SampleUpdateService, ListensOnThePortItIsTold)
{
    Service first = start_service();
    const std::string port = std::to_string(first.port);
    const ChildResult taken = run_child({service, "--port", port, products});
    EXPECT_EQ(taken.exit_status, 1);
    EXPECT_EQ(taken.output, "");
    EXPECT_EQ(taken.error, "Can't listen on 127.0.0.1:" + port + ": Address already in use\n");
    stop_service(first);

    Service second;
    second.child = child_start({service, products, "--port", port});
    ASSERT_TRUE(child_wait_for_text(second.child, "\n", 10000));
    second.port = first.port;
    EXPECT_EQ(ask(second.port, post(good_form)), shapes_answer);
    stop_service(second);
}

const std::string usage = "Usage: sample-update-service [--port N] PRODUCTS-FILE\n"
                          "Answers version-update queries on 127.0.0.1 (port N, or a free one).\n";

TEST(SampleUpdateService, HelpGoesToStandardOutput)
{
    const ChildResult result = run_child({service, "--help"});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.output, usage);
    EXPECT_EQ(result.error, "");
}

TEST(SampleUpdateService, AWrongCommandLineEndsItWithStatusTwo)
{
    const std::string port = "--port takes a number from 0 to 65535";
    const std::vector<std::pair<std::vector<std::string>, std::string>> rows = {
        {{}, "no product list is given"},
        {{"--port", "0"}, "no product list is given"},
        {{products, products}, "more than one product list is given"},
        {{"-x", products}, "there is no such option"},
        {{"--ports", "1", products}, "there is no such option"},
        {{products, "--help"}, "there is no such option"},
        {{products, "--port"}, port},
        {{"--port", "", products}, port},
        {{"--port", "x", products}, port},
        {{"--port", "80x", products}, port},
        {{"--port", "-1", products}, port},
        {{"--port", "65536", products}, port},
        {{"--port", "99999999999999999999", products}, port},
    };
    for (const auto &[arguments, wrong] : rows) {
        std::vector<std::string> command = {service};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const ChildResult result = run_child(command);
        EXPECT_EQ(result.exit_status, 2) << wrong;
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.error, "sample-update-service: " + wrong + "\n" + usage);
    }
}

TEST(SampleUpdateService, AStandardOutputThatCannotBeWrittenEndsItWithStatusOne)
{
    for (const ChildStream stream : {ChildStream::FullDisk, ChildStream::BrokenPipe}) {
        ChildOptions options;
        options.output = stream;
        const ChildResult result = run_child({service, products}, options);
        EXPECT_EQ(result.exit_status, 1);
        EXPECT_EQ(result.error, "");
    }
}

TEST(SampleUpdateService, ABadLineOfTheListIsNamedWithFileAndNumber)
{
    const std::string six = ":1: not six texts with '|' between them\n";
    const std::string version =
        ":1: the version is not a number with at most three digits behind the point\n";
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"p|l|1|u|b", six},
        {"p|l|1|u|b|m|x", six},
        {"text", six},
        {" # no comment", six},
        {"|l|1|u|b|m", ":1: no product name\n"},
        {"  |l|1|u|b|m", ":1: no product name\n"},
        {"p|l||u|b|m", version},
        {"p|l|one|u|b|m", version},
        {"p|l|1.|u|b|m", version},
        {"p|l|.1|u|b|m", version},
        {"p|l|1.2.3|u|b|m", version},
        {"p|l|-1|u|b|m", version},
        {"p|l|1.2345|u|b|m", version},
        {"p|l|1|u|b| ", ":1: no message\n"},
        {"p|l|1|u\x1b|b|m", ":1: a control character in the line\n"},
        {"p\tq|l|1|u|b|m", ":1: a control character in the line\n"},
        {"p|l|1|u|b|m\x7f", ":1: a control character in the line\n"},
        {std::string("p|l|1|u|b|\0m", 12), ":1: a control character in the line\n"},
        {"# note\n\n  \np|l|1|u|b|m\r\np|l|x|u|b|m\n", ":5" + version.substr(2)},
        {"p|l|1|u|b|m\np| l |2|u|b|m\n", ":2: this product and product line stand above already\n"},
        {"", ": holds no product\n"},
        {"# nothing\n", ": holds no product\n"},
    };
    for (const auto &[text, wrong] : rows) {
        const ListFile list(text);
        const ChildResult result = run_child({service, list.name});
        EXPECT_EQ(result.exit_status, 2) << text;
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.error, list.name + wrong) << text;
    }
}

TEST(SampleUpdateService, AListThatCannotBeReadIsAPlainMessage)
{
    const std::string missing = testing::TempDir() + "no-such-list";
    const ChildResult result = run_child({service, missing});
    EXPECT_EQ(result.exit_status, 2);
    EXPECT_EQ(result.error,
              "Can't open the product list " + missing + ": No such file or directory\n");
    const ChildResult folder = run_child({service, testing::TempDir()});
    EXPECT_EQ(folder.exit_status, 2);
    EXPECT_EQ(folder.error, testing::TempDir() + ": can't be read\n");
}

TEST(SampleUpdateService, TakesEverySpellingOfAListLine)
{
    const ListFile list("# a comment\r\n\r\n"
                        "first|x|1.250|http://h/?a=b:c|B|one\\n\\ntwo\r\n"
                        "   second  |  | 007 |  |  b b  |  m\\n  \n"
                        "\xC3\xA4|y|2.5000|u||\xC3\xB6");
    Service started = start_service({}, list.name.c_str());
    const std::vector<Query> rows = {
        {"carriage return dropped", "first", "x", "1",
         "Version: 1.250\nURL: http://h/?a=b:c\nButton: B\nMessage: one\n\ntwo\n"},
        {"blanks dropped", "second", "any", "6", "Version: 007\nButton: b b\nMessage: m\n\n"},
        {"bytes above 127, no line feed at the end", "%c3%a4", "y", "2",
         "Version: 2.5000\nURL: u\nMessage: \xC3\xB6\n"},
    };
    for (const Query &row : rows)
        EXPECT_EQ(ask(started.port, post(form(row.product, row.line, row.version))),
                  answer("200 OK", row.body))
            << row.rule;
    stop_service(started);
}

} // namespace
} // namespace quintral::tests
