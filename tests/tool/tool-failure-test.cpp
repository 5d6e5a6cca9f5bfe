// What the utility reports when an exchange fails.
#include <string>

#include <gtest/gtest.h>
#include <netdb.h>

#include "tests/tool/is-json-line.h"
#include "tests/tool/json-line.h"
#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {
namespace {

const char not_http[] = "Invalid non-HTTP header string returned from web site";
const char long_header[] = "Reply header from web site is longer than 262144 bytes";
const char long_body[] = "Reply body from web site is longer than 8388608 bytes";

std::string bad_status(const std::string &status, const std::string &reason)
{
    return "Bad HTTP status " + status + " from web site: " + reason;
}

std::string unparsable(const std::string &header)
{
    return "Invalid HTTP return status (can't parse header " + header + ")";
}

// `json_error` is the error as the object shows it.
void expect_failure(const PeerScript &script, const std::string &error,
                    const std::string &json_error)
{
    const std::string line = error_line(error.substr(0, 1003));
    expect_ended(ask(script).result, 1, "", line, error);
    expect_ended(ask(script, {"-quiet", "-exit-code"}).result, 1, "", line, error);
    const ChildResult json = ask(script, {"-json"}).result;
    expect_ended(json, 1, unanswered_json("failed", 1, json_error), line, error);
    EXPECT_TRUE(is_json_line(json.output)) << json.output;
}

TEST(ToolFailure, AReplyThatIsNotAnUpdateReplyIsReported)
{
    const std::string error = "The web site's answer is not an update reply";
    for (const char *body :
         {"", "Hello", "Hello\n", "<html>\n<p>Hello</p>\n</html>\n", "Version: 5.3\n",
          "Version: 5.3\nURL: http://a/\nButton: b\n", "message: One\n", "Message : One\n",
          " Message: One\n", "Version: 5.3\nMessage", "a:\n:b\n"})
        expect_failure(sending(reply_of(body)), error, error);
}

TEST(ToolFailure, ABadReplyIsReported)
{
    const std::string reason(500, 'r');
    const struct {
        std::string reply;
        std::string error;
    } rows[] = {
        {"HTTP/1.0 404 Not Found\r\n\r\nMessage: One\n", bad_status("404", "Not Found")},
        {"HTTP/1.1 302 Moved\r\nLocation: a\r\n\r\nMessage: One\n", bad_status("302", "Moved")},
        {"HTTP/1.0 199 " + reason + "\r\n\r\n", bad_status("199", reason.substr(0, 127))},
        {"garbage\r\n\r\n", not_http},
        {"\nHTTP/1.0 200 OK\r\n\r\nMessage: One\n", not_http},
        {"", not_http},
    };
    for (const auto &row : rows)
        expect_failure(sending(row.reply), row.error, row.error);
}

TEST(ToolFailure, HostileBytesAreEscaped)
{
    expect_failure(sending("HTTP/1.0 500 \x1B[31m\xE2\x80\xAE\r\n\r\n"),
                   bad_status("500", "\\x1B[31m\\xE2\\x80\\xAE"),
                   bad_status("500", "\\u001b[31m\\u202e"));
    expect_failure(sending("HTTP/1.0 200\r\n\r\nMessage: One\n"),
                   unparsable("HTTP/1.0 200\\x0D\\x0A\\x0D"),
                   unparsable("HTTP/1.0 200\\u000d\\n\\u000d"));
}

TEST(ToolFailure, ALongErrorIsTruncatedOnStandardErrorOnly)
{
    const std::string header = "HTTP/x" + std::string(3000, 'y');
    expect_failure(sending(header + "\r\n\r\n"), unparsable(header),
                   unparsable(header + "\\u000d\\n\\u000d"));
}

TEST(ToolFailure, AResetIsReported)
{
    expect_failure({{PeerAct::ReadRequest}, {PeerAct::Reset}}, not_http, not_http);
}

TEST(ToolFailure, APeerThatCannotBeReachedIsReported)
{
    const std::string refused = "127.0.0.1:" + std::to_string(refused_port());
    ASSERT_EQ(gethostbyname("A..B"), nullptr);
    const std::string not_found =
        std::string("Can't find web server 'A..B': ") + hstrerror(h_errno);
    const struct {
        Strings arguments;
        std::string error;
    } rows[] = {
        {{"-service", refused}, refused_text()},
        {{"-service", "127.0.0.1:1", "-proxy", refused}, refused_text()},
        {{"-service", "a..b"}, not_found},
        // the proxy is not found, but the message names the service
        {{"-service", "a..b:80", "-proxy", "c..d:80"}, not_found},
    };
    for (const auto &row : rows) {
        expect_ended(run_tool(row.arguments), 1, "", error_line(row.error));
        expect_ended(run_tool(joined({"-json"}, row.arguments)), 1,
                     unanswered_json("failed", 1, row.error), error_line(row.error));
    }
}

// Without a limit, the client would store the last byte of such a header forever.
TEST(ToolFailure, AReplyThatEndsInTheMiddleOfAHeaderLineReachesTheLimit)
{
    expect_ended(ask(sending("HTTP/1.0 200 OK\r\nMessage: One")).result, 1, "",
                 error_line(long_header));
    expect_ended(ask(sending("HTTP/1.0 200 OK"), {"-json"}).result, 1,
                 unanswered_json("failed", 1, long_header), error_line(long_header));
}

TEST(ToolFailure, AHeaderThatNeverEndsReachesTheLimit)
{
    const PeerScript script = {{PeerAct::ReadRequest},
                               {PeerAct::SendForever, repeated(1000, "a: b\r\n")}};
    expect_ended(ask(script, {"-json"}).result, 1, unanswered_json("failed", 1, long_header),
                 error_line(long_header));
}

TEST(ToolFailure, ABodyThatNeverEndsReachesTheLimit)
{
    const PeerScript script = {{PeerAct::ReadRequest},
                               {PeerAct::Send, reply_of("Message: ")},
                               {PeerAct::SendForever, std::string(65536, 'm')}};
    expect_ended(ask(script, {"-json"}).result, 1, unanswered_json("failed", 1, long_body),
                 error_line(long_body));
}

TEST(ToolFailure, TheLastByteWithinTheLimitsIsAccepted)
{
    const std::string line = "HTTP/1.0 200 OK\r\n";
    const auto header = [&](std::size_t size) { // the last line feed does not count
        return line + std::string(size - line.size() - 3, 'h') + "\r\n\r\n";
    };
    const auto body = [](std::size_t size) { return "Message: x\n" + std::string(size - 11, 'b'); };
    const std::string shown = "x\n" + std::string(65533, 'b') + "\n";
    expect_ended(ask(sending(header(262144) + "Message: x")).result, 0, "x\n", "");
    expect_ended(ask(sending(header(262145) + "Message: x")).result, 1, "",
                 error_line(long_header));
    expect_ended(ask(sending(reply_of(body(8388608))), {"-quiet"}).result, 0, shown, "");
    expect_ended(ask(sending(reply_of(body(8388609))), {"-quiet"}).result, 1, "",
                 error_line(long_body));
}

} // namespace
} // namespace quintral::tests::tool
