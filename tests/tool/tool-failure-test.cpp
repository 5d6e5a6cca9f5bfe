// What the utility says of an exchange that fails.
#include <cerrno>
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <netdb.h>

#include "tests/tool/is-json-line.h"
#include "tests/tool/json-line.h"
#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {
namespace {

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

TEST(ToolFailure, AReplyThatIsNoUpdateReplyIsSaidToBeNone)
{
    const std::string error = "The web site's answer is not an update reply";
    for (const char *body :
         {"", "Hello", "Hello\n", "<html>\n<p>Hello</p>\n</html>\n", "Version: 5.3\n",
          "Version: 5.3\nURL: http://a/\nButton: b\n", "message: One\n", "Message : One\n",
          " Message: One\n", "Version: 5.3\nMessage", "a:\n:b\n"})
        expect_failure(sending(reply_of(body)), error, error);
}

struct FailureRow {
    std::string reply;
    std::string error;      // on standard error
    std::string json_error; // the same if empty
};

TEST(ToolFailure, ABadReplyIsToldOf)
{
    const FailureRow rows[] = {
        {"HTTP/1.0 404 Not Found\r\n\r\nMessage: One\n",
         "Bad HTTP status 404 from web site: Not Found", ""},
        {"HTTP/1.1 302 Moved\r\nLocation: http://a/\r\n\r\nMessage: One\n",
         "Bad HTTP status 302 from web site: Moved", ""},
        {"HTTP/1.0 500 \x1B[31m\xE2\x80\xAE\r\n\r\n",
         "Bad HTTP status 500 from web site: \\x1B[31m\\xE2\\x80\\xAE",
         "Bad HTTP status 500 from web site: \\u001b[31m\\u202e"},
        {"HTTP/1.0 199 " + std::string(500, 'r') + "\r\n\r\n",
         "Bad HTTP status 199 from web site: " + std::string(127, 'r'), ""},
        {"garbage\r\n\r\n", "Invalid non-HTTP header string returned from web site", ""},
        {"\nHTTP/1.0 200 OK\r\n\r\nMessage: One\n",
         "Invalid non-HTTP header string returned from web site", ""},
        {"", "Invalid non-HTTP header string returned from web site", ""},
        {"HTTP/1.0 200\r\n\r\nMessage: One\n",
         "Invalid HTTP return status (can't parse header HTTP/1.0 200\\x0D\\x0A\\x0D)",
         "Invalid HTTP return status (can't parse header HTTP/1.0 200\\u000d\\n\\u000d)"},
        // cut on standard error, whole in JSON
        {"HTTP/x" + std::string(3000, 'y') + "\r\n\r\n",
         "Invalid HTTP return status (can't parse header HTTP/x" + std::string(3000, 'y'),
         "Invalid HTTP return status (can't parse header HTTP/x" + std::string(3000, 'y') +
             "\\u000d\\n\\u000d)"},
    };
    for (const FailureRow &row : rows)
        expect_failure(sending(row.reply), row.error,
                       row.json_error.empty() ? row.error : row.json_error);
}

TEST(ToolFailure, AResetIsToldOf)
{
    const std::string empty = "Invalid non-HTTP header string returned from web site";
    expect_failure({{PeerAct::ReadRequest}, {PeerAct::Reset}}, empty, empty);
}

TEST(ToolFailure, APeerThatCannotBeReachedIsToldOf)
{
    const std::string port = std::to_string(refused_port());
    const std::string refused = std::string("Can't connect to web server '127.0.0.1': code ") +
                                std::to_string(ECONNREFUSED) + ": " + std::strerror(ECONNREFUSED);
    ASSERT_EQ(gethostbyname("A..B"), nullptr);
    const std::string not_found =
        std::string("Can't find web server 'A..B': ") + hstrerror(h_errno);
    const struct {
        Texts arguments;
        std::string error;
    } rows[] = {
        {{"-service", "127.0.0.1:" + port}, refused},
        {{"-service", "127.0.0.1:1", "-proxy", "127.0.0.1:" + port}, refused},
        {{"-service", "a..b"}, not_found},
        // the service is named, though it is the proxy that is not found
        {{"-service", "a..b:80", "-proxy", "c..d:80"}, not_found},
    };
    for (const auto &row : rows) {
        expect_ended(run_tool(row.arguments), 1, "", error_line(row.error));
        expect_ended(run_tool(joined({"-json"}, row.arguments)), 1,
                     unanswered_json("failed", 1, row.error), error_line(row.error));
    }
}

// Such a reply is never passed off as a whole one, nor does it keep the machine busy for long.
TEST(ToolFailure, AReplyThatEndsInTheMiddleOfAHeaderLineMeetsTheLimit)
{
    const std::string error = "Reply header from web site is longer than 262144 bytes";
    const std::string reply = "HTTP/1.0 200 OK\r\nMessage: One";
    expect_ended(ask(sending(reply)).result, 1, "", error_line(error));
    expect_ended(ask(sending("HTTP/1.0 200 OK"), {"-json"}).result, 1,
                 unanswered_json("failed", 1, error), error_line(error));
}

TEST(ToolFailure, AHeaderThatNeverEndsMeetsTheLimit)
{
    const std::string error = "Reply header from web site is longer than 262144 bytes";
    const PeerScript script = {{PeerAct::ReadRequest},
                               {PeerAct::SendForever, repeated(1000, "a: b\r\n")}};
    expect_ended(ask(script, {"-json"}).result, 1, unanswered_json("failed", 1, error),
                 error_line(error));
}

TEST(ToolFailure, ABodyThatNeverEndsMeetsTheLimit)
{
    const std::string error = "Reply body from web site is longer than 8388608 bytes";
    const PeerScript script = {{PeerAct::ReadRequest},
                               {PeerAct::Send, reply_of("Message: ")},
                               {PeerAct::SendForever, std::string(65536, 'm')}};
    expect_ended(ask(script, {"-json"}).result, 1, unanswered_json("failed", 1, error),
                 error_line(error));
}

TEST(ToolFailure, TheLastByteWithinTheLimitsIsTaken)
{
    const std::string line = "HTTP/1.0 200 OK\r\n";
    const auto header = [&](std::size_t size) {
        return line + std::string(size - line.size() - 3, 'h') + "\r\n\r\n"; // its last \n not kept
    };
    const auto body = [](std::size_t size) { return "Message: x\n" + std::string(size - 11, 'b'); };
    const std::string shown = "x\n" + std::string(65533, 'b') + "\n";
    expect_ended(ask(sending(header(262144) + "Message: x")).result, 0, "x\n", "");
    expect_ended(ask(sending(header(262145) + "Message: x")).result, 1, "",
                 error_line("Reply header from web site is longer than 262144 bytes"));
    expect_ended(ask(sending(reply_of(body(8388608))), {"-quiet"}).result, 0, shown, "");
    expect_ended(ask(sending(reply_of(body(8388609))), {"-quiet"}).result, 1, "",
                 error_line("Reply body from web site is longer than 8388608 bytes"));
}

} // namespace
} // namespace quintral::tests::tool
