// Requests to the sample update service: bytes in, exact bytes out.
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <netinet/tcp.h>

#include <gtest/gtest.h>

#include "tests/examples/sample-service.h"
#include "tests/harness/text.h"

namespace quintral::tests {
namespace {

using namespace std::string_literals;

const std::string unknown_body = "Message: This service does not know the product.\n";

std::string bad_request(const std::string &why)
{
    return answer("400 Bad Request", why + "\n");
}

struct Exchange {
    std::string rule;
    std::string request;
    std::string answer = shapes_answer;
};

using Ask = std::string (*)(std::uint16_t port, const std::string &request);

void expect_answers(const std::vector<Exchange> &rows, Ask ask_service = ask)
{
    Service started = start_service();
    for (const Exchange &row : rows) {
        const std::string given = ask_service(started.port, row.request);
        drain_log(started);
        EXPECT_EQ(given, row.answer) << row.rule << "\nrequest:\n" << row.request.substr(0, 2000);
    }
    stop_service(started);
}

TEST(SampleUpdateService, AnswersAQueryFromTheProductList)
{
    const std::string shapes = "Quintral%20Shapes";
    const std::string frames = "Quintral%20Frames";
    const std::string huge = "340282346638528859811704183484516925440%2e000";
    const std::string older = "5%2e1999999999999999999999";
    const std::string newer = "5%2e2000000000000000000001";
    const std::string shapes_current = "Version: 5.2\nMessage: You have the newest version.\n";
    const std::string frames_body = "Version: 12\nURL: http://www.quintral.example/frames\n"
                                    "Message: Quintral Frames 12 is out.\n";
    const std::string frames_current = "Version: 12\nMessage: You have the newest version.\n";
    const std::string light_body =
        "Version: 3.125\nMessage: Quintral Shapes 3.125 comes with your next disc.\n";
    const std::string any_line_body =
        "Version: 1.5\nURL: http://www.quintral.example/download\nButton: Download\n"
        "Message: Version 1.5 of the update check is here.\n"
        "It is free for everybody who has version 1.\n";
    const std::string any_line_current = "Version: 1.5\nMessage: You have the newest version.\n";
    const struct {
        std::string rule;
        std::string product;
        std::string line;
        std::string version;
        std::string body;
    } rows[] = {
        {"newer version", shapes, "Quintral", "5%2e000", shapes_body},
        {"newer by one thousandth", shapes, "Quintral", "5%2e199", shapes_body},
        {"5.10 is older than 5.2", shapes, "Quintral", "5%2e10", shapes_body},
        {"whole parts are numbers", frames, "Quintral", "9%2e000", frames_body},
        {"no point in the client's version", shapes, "Quintral", "5", shapes_body},
        {"version zero", shapes, "Quintral", "0%2e000", shapes_body},
        {"leading zeros do not count", shapes, "Quintral", "005%2e1", shapes_body},
        {"beyond the precision of a double, older", shapes, "Quintral", older, shapes_body},
        {"beyond the precision of a double, newer", shapes, "Quintral", newer, shapes_current},
        {"the same version", shapes, "Quintral", "5%2e200", shapes_current},
        {"the same, in other digits", shapes, "Quintral", "05%2e2", shapes_current},
        {"a newer client", shapes, "Quintral", "5%2e201", shapes_current},
        {"a much newer client", shapes, "Quintral", huge, shapes_current},
        {"the same whole number", frames, "Quintral", "12%2e000", frames_current},
        {"no URL and no button", shapes, "Quintral%20Light", "3%2e124", light_body},
        {"any product line, two-line message", "Quintral", "whatever", "1%2e000", any_line_body},
        {"any product line, an empty one", "Quintral", "", "1%2e500", any_line_current},
        {"unknown product", "Quintral%20Lines", "Quintral", "5%2e000", unknown_body},
        {"unknown product line", shapes, "Other", "5%2e000", unknown_body},
        {"another letter case", "quintral%20shapes", "Quintral", "5%2e000", unknown_body},
        {"empty product", "", "", "5%2e000", unknown_body},
    };
    std::vector<Exchange> exchanges;
    for (const auto &row : rows)
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

// A good request with another request line.
std::string with_line(const std::string &request_line)
{
    return post(good_form, request_line);
}

// A good request with one change, anywhere or in its form.
std::string changed(const std::string &what, const std::string &with)
{
    return replaced(post(good_form), what, with);
}

std::string changed_form(const std::string &what, const std::string &with)
{
    return post(replaced(good_form, what, with));
}

// A good form with an unknown field at the end, so that it is `length` bytes long.
std::string form_of_length(std::size_t length)
{
    const std::string begin = good_form + "&filler=";
    return begin + std::string(length - begin.size(), 'x');
}

std::string form_of_fields(std::size_t count)
{
    return good_form + repeated(count - 8, "&x=");
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

TEST(SampleUpdateService, AcceptsEveryWellFormedRequest)
{
    const std::string short_header =
        "POST " + page + " HTTP/1.0\r\n" + length_line(good_form.size()) + "\r\n";
    expect_answers({
        {"absolute address", with_line(good_line)},
        {"plain path", with_line("POST " + page + " HTTP/1.0")},
        {"query string", with_line("POST " + page + "?a=b/c HTTP/1.0")},
        {"both", with_line("POST http://host" + page + "?http://x/y HTTP/1.0")},
        {"scheme in upper case", with_line("POST HTTP://HOST:1" + page + " HTTP/1.0")},
        {"HTTP/1.1", with_line("POST " + page + " HTTP/1.1")},
        {"only line feeds", without_carriage_returns(post(good_form))},
        {"header name in lower case", changed("Content-L", "content-l")},
        {"no space after the colon", changed("Length: ", "Length:")},
        {"zeros before the length", changed("Length: ", "Length:  000")},
        {"only the required header line", short_header + good_form},
        {"'+' for a space", changed_form("%20", "+")},
        {"escaped letters", changed_form("Shapes", "%53h%61pes")},
        {"escapes in upper case", changed_form("es&", "es%2E&"), answer("200 OK", unknown_body)},
        {"escaped field name", changed_form("product=", "%70roduct=")},
        {"unknown field", post("more=1&" + good_form)},
        {"nothing between two '&'", post("&&" + good_form + "&")},
        {"the first of two fields with the same name", post(good_form + "&version=9")},
        {"'=' in a value", post(good_form + "&x=a=b=c")},
        {"bytes after the form", post(good_form) + "garbage\r\n\r\n"},
        {"longest form", post(form_of_length(32768))},
        {"longest header", request_with_header_of(8192)},
        {"most fields", post(form_of_fields(64))},
    });
}

TEST(SampleUpdateService, RejectsABadRequestLine)
{
    const std::string malformed = bad_request("The request line is malformed.");
    expect_answers({
        {"empty", "\r\n\r\n", malformed},
        {"one word", with_line("POST"), malformed},
        {"two words", with_line("POST " + page), malformed},
        {"four words", with_line(good_line + " x"), malformed},
        {"two spaces", with_line("POST  " + page + " HTTP/1.0"), malformed},
        {"space before the method", with_line(" POST " + page + " HTTP/1.0"), malformed},
        {"invalid method", with_line("PO(ST " + page + " HTTP/1.0"), malformed},
        {"NUL in the method", with_line("PO\0ST "s + page + " HTTP/1.0"), malformed},
        {"relative path", with_line("POST version-update.php HTTP/1.0"), malformed},
        {"another scheme", with_line("POST https://host" + page + " HTTP/1.0"), malformed},
        {"asterisk", with_line("OPTIONS * HTTP/1.0"), malformed},
        {"only a query", with_line("POST ?x HTTP/1.0"), malformed},
        {"another protocol", with_line("POST " + page + " FTP/1.0"), malformed},
        {"another version of HTTP", with_line("POST " + page + " HTTP/2.0"), malformed},
        {"no minor version", with_line("POST " + page + " HTTP/1."), malformed},
        {"minor version not a digit", with_line("POST " + page + " HTTP/1.x"), malformed},
        {"minor version of two digits", with_line("POST " + page + " HTTP/1.00"), malformed},
    });
}

TEST(SampleUpdateService, RejectsOtherPathsAndMethods)
{
    const std::string not_allowed =
        answer("405 Method Not Allowed", "This page takes POST only.\n", "Allow: POST\r\n");
    const std::string no_body = not_allowed.substr(0, not_allowed.find("\r\n\r\n") + 4);
    expect_answers({
        {"another path", with_line("POST /other HTTP/1.0"), not_found},
        {"root", with_line("POST / HTTP/1.0"), not_found},
        {"address without a path", with_line("POST http://host:80 HTTP/1.0"), not_found},
        {"a longer path", with_line("POST " + page + "/x HTTP/1.0"), not_found},
        {"path in upper case", with_line("POST /VERSION-UPDATE.PHP HTTP/1.0"), not_found},
        {"path only in the query", with_line("POST /?" + page + " HTTP/1.0"), not_found},
        {"another path and method", "GET / HTTP/1.0\r\n\r\n", not_found},
        {"GET", "GET " + page + " HTTP/1.0\r\n\r\n", not_allowed},
        {"PUT with a form", with_line("PUT " + page + " HTTP/1.0"), not_allowed},
        {"method in lower case", with_line("post " + page + " HTTP/1.0"), not_allowed},
        {"HEAD gets no body", "HEAD " + page + " HTTP/1.0\r\n\r\n", no_body},
    });
}

TEST(SampleUpdateService, RejectsABadHeader)
{
    const std::string header = bad_request("A header line is malformed.");
    const std::string number = bad_request("Content-Length is not a number.");
    const std::string twice = bad_request("Content-Length is given twice.");
    const std::string too_long = bad_request("The header is too long.");
    const std::string no_length = answer("411 Length Required", "Content-Length is missing.\n");
    const std::string chunked =
        request_with(good_line, "Transfer-Encoding: chunked\r\n", "0\r\n\r\n");
    const auto with_length = [](const std::string &text) {
        return request_with(good_line, "Content-Length:" + text + "\r\n", good_form);
    };
    expect_answers({
        {"line without a colon", changed("Host:", "Host"), header},
        {"space before the colon", changed("Host:", "Host :"), header},
        {"line without a name", changed("Host:", ":"), header},
        {"folded line", changed("Host:", " Host:"), header},
        {"no length", request_with(good_line, "", good_form), no_length},
        {"no header line at all", good_line + "\r\n\r\n", no_length},
        {"chunks instead of a length", chunked, no_length},
        {"two lengths", changed("Host:", "Content-Length: 1\r\nHost:"), twice},
        {"empty length", with_length(""), number},
        {"spaces as length", with_length("  "), number},
        {"negative length", with_length(" -1"), number},
        {"signed length", with_length(" +5"), number},
        {"length in words", with_length(" ten"), number},
        {"text after the length", with_length(" 12x"), number},
        {"two numbers", with_length(" 1 2"), number},
        {"length over 32 bits", with_length(" 4294967297"), too_large},
        {"length over 64 bits", with_length(" 18446744073709551617"), too_large},
        {"length of 4000 digits", with_length(" " + std::string(4000, '9')), too_large},
        {"one byte too long", request_with_header_of(8193), too_long},
        {"line without an end", "POST " + std::string(20000, 'x'), too_long},
    });
}

TEST(SampleUpdateService, RejectsABadForm)
{
    const std::string escape = bad_request("The form has a malformed escape.");
    const std::string version = bad_request("The field version is not a number.");
    const std::string too_many = bad_request("The form has too many fields.");
    const auto with_version = [](const std::string &text) {
        return post(form("Quintral%20Shapes", "Quintral", text));
    };
    expect_answers({
        {"one byte too long", post(form_of_length(32769)), too_large},
        {"one field too many", post(form_of_fields(65)), too_many},
        {"'%' at the end", post(good_form + "%"), escape},
        {"one digit at the end", post(good_form + "%4"), escape},
        {"one digit, the other after the form", post(good_form + "%4") + "0", escape},
        {"no digit", post(good_form + "%zz"), escape},
        {"one digit", post(good_form + "%4z"), escape},
        {"only the second digit", post(good_form + "%z4"), escape},
        {"NUL for a digit", post(good_form + "%4\0"s), escape},
        {"escape cut by the next field", post("x=%4&" + good_form), escape},
        {"bad escape in a name", post("%=1&" + good_form), escape},
        {"empty version", with_version(""), version},
        {"version in words", with_version("five"), version},
        {"negative version", with_version("%2d5%2e000"), version},
        {"infinity", with_version("inf"), version},
        {"decimal comma", with_version("5%2c000"), version},
        {"no digit before the point", with_version("%2e5"), version},
        {"no digit after the point", with_version("5%2e"), version},
        {"two points", with_version("5%2e2%2e1"), version},
        {"space before the version", with_version("%205"), version},
    });
}

TEST(SampleUpdateService, RequiresEveryField)
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
    const std::size_t header_length = request.size() - good_form.size();
    const std::string no_end = bad_request("The header has no end.");
    const std::string short_form = bad_request("The form is shorter than its length.");
    const std::vector<Exchange> rows = {
        {"inside the form", request.substr(0, request.size() - 1), short_form},
        {"before the form", request.substr(0, header_length), short_form},
        {"inside the empty line", request.substr(0, header_length - 1), no_end},
        {"inside the request line", "POST", no_end},
        {"before the first byte", "", ""},
        {"after the form", request, shapes_answer},
    };
    expect_answers(rows, ask_and_end);
}

TEST(SampleUpdateService, SurvivesARequestCutAtEveryByte)
{
    Service started = start_service();
    const std::string request = post(good_form);
    const std::size_t header_length = request.size() - good_form.size();
    for (std::size_t length = 1; length < request.size(); ++length) {
        const char *why = length < header_length ? "The header has no end."
                                                 : "The form is shorter than its length.";
        EXPECT_EQ(ask_and_end(started.port, request.substr(0, length)), bad_request(why))
            << "the first " << length << " bytes";
        drain_log(started);
    }
    EXPECT_EQ(ask(started.port, request), shapes_answer);
    stop_service(started);
}

TEST(SampleUpdateService, AcceptsARequestThatArrivesByteByByte)
{
    Service started = start_service();
    const int on = 1;
    for (const std::string &request :
         {post(good_form), without_carriage_returns(post(good_form))}) {
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

TEST(SampleUpdateService, ClosesCleanlyAfterAnErrorWhileTheClientStillSends)
{
    Service started = start_service();
    const std::string body(4 * 1024 * 1024, 'x');
    EXPECT_EQ(ask(started.port, post(body)), too_large);
    EXPECT_EQ(ask(started.port, post(body, "POST /other HTTP/1.0")), not_found);
    stop_service(started);
}

} // namespace
} // namespace quintral::tests
