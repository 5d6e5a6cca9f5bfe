// What the utility reports when an exchange fails.
#include <string>

#include <gtest/gtest.h>
#include <netdb.h>

#include "tests/tool/is-json-line.h"
#include "tests/tool/json-line.h"
#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {
namespace {

// Notes

const char note_closed[] = "Note: The service closed the connection without answering\n";
const char note_closed_by_proxy[] = "Note: The proxy closed the connection without answering\n";
const char note_not_http[] =
    "Note: The reply is not HTTP: the service may expect HTTPS, which this "
    "client does not speak\n";
const char note_endless[] = "Note: The reply's header is too long: the service may expect HTTPS, "
                            "which this client does not speak\n";
const char note_html[] = "Note: The reply is HTML: a login page of the network (a captive portal) "
                         "may have answered\n";
const char note_authorization[] =
    "Note: This client sends its credentials in the header Authorization only\n";

std::string note_redirect(const std::string &target)
{
    return "Note: The reply redirects to " + target + "; redirects are not followed\n";
}

std::string note_challenge(const std::string &challenge)
{
    return "Note: The proxy asks for: " + challenge + "\n" + note_authorization;
}

std::string note_proxy(const std::string &address, const std::string &origin)
{
    return "Note: The request went through the proxy " + address + ", from " + origin + "\n";
}

std::string note_unreached_proxy(const std::string &address)
{
    return "Note: The request was to go through the proxy " + address + ", from -proxy\n";
}

std::string bad_status(const std::string &status, const std::string &reason)
{
    return "Bad HTTP status " + status + " from web site: " + reason;
}

std::string unparsable(const std::string &header)
{
    return "Invalid HTTP return status (can't parse header " + header + ")";
}

// A reply that fails. The error is as the object shows it; on standard error it is shown as `line`.
struct Failure {
    std::string error;
    std::string reason;
    int http_status = 0;
    std::string notes = {};
    std::string line = {}; // empty if it is the same
};

void expect_failure(const PeerScript &script, const Failure &failure)
{
    const std::string line =
        error_line((failure.line.empty() ? failure.error : failure.line).substr(0, 1003));
    const std::string &what = failure.error;
    expect_ended(ask(script).result, 1, "", line + failure.notes, what);
    expect_ended(ask(script, {"-quiet", "-exit-code"}).result, 1, "", line, what);
    const Exchange json = ask(script, {"-json"});
    expect_ended(json.result, 1,
                 unanswered_json("failed", 1, failure.error,
                                 {failure.reason, failure.http_status, json.address}),
                 line + failure.notes, what);
    EXPECT_TRUE(is_json_line(json.result.output)) << json.result.output;
}

TEST(ToolFailure, AReplyThatIsNotAnUpdateReplyIsReported)
{
    for (const char *body :
         {"", "Hello", "Hello\n", "Version: 5.3\n", "Version: 5.3\nURL: http://a/\nButton: b\n",
          "message: One\n", "Message : One\n", " Message: One\n", "Version: 5.3\nMessage",
          "a:\n:b\n"})
        expect_failure(sending(reply_of(body)), {not_update, "not-an-update", 200});
}

TEST(ToolFailure, ABadReplyIsReported)
{
    const std::string reason(500, 'r');
    const struct {
        std::string reply;
        Failure failure;
    } rows[] = {
        {"HTTP/1.0 404 Not Found\r\n\r\nMessage: One\n",
         {bad_status("404", "Not Found"), "http-status", 404}},
        {"HTTP/1.0 199 " + reason + "\r\n\r\n",
         {bad_status("199", reason.substr(0, 127)), "http-status", 199}},
        {"garbage\r\n\r\n", {not_http, "not-http", 0, note_not_http}},
        {"SSH-2.0-OpenSSH_9.2\r\n\r\n", {not_http, "not-http", 0, note_not_http}},
        {"\nHTTP/1.0 200 OK\r\n\r\nMessage: One\n", {not_http, "not-http", 0, note_not_http}},
        {"", {not_http, "not-http", 0, note_closed}},
        // a TLS alert: no line feed ends it
        {std::string("\x15\x03\x01\x00\x02\x02\x46", 7),
         {long_header, "too-long", 0, note_endless}},
        // the same, with a line feed after it
        {"\x15\x03\x01\n\n", {not_http, "not-http", 0, note_not_http}},
    };
    for (const auto &row : rows)
        expect_failure(sending(row.reply), row.failure);
}

TEST(ToolFailure, TheTargetOfARedirectIsNamed)
{
    const auto moved = [](const std::string &status, const std::string &lines) {
        return sending("HTTP/1.1 " + status + " Moved\r\n" + lines + "\r\n\r\nMessage: One\n");
    };
    const auto failure = [](const std::string &status, const std::string &notes) {
        return Failure{bad_status(status, "Moved"), "http-status", std::stoi(status), notes};
    };
    const std::string target = "https://www.quintral.example/get?a=b";
    expect_failure(moved("302", "Location: " + target), failure("302", note_redirect(target)));
    expect_failure(moved("301", "A: b\r\nLOCATION:\t " + target + "\r\nC: d"),
                   failure("301", note_redirect(target)));
    expect_failure(moved("308", "location:a"), failure("308", note_redirect("a")));
    // no target, and no redirect
    for (const char *lines : {"Location:", "Location: ", "X-Location: a", "A: Location: b"})
        expect_failure(moved("302", lines), failure("302", ""));
    expect_failure(moved("404", "Location: a"), failure("404", ""));
    // nothing of it reaches the terminal raw
    expect_failure(moved("302", "Location: \x1B[2J\xE2\x80\xAE%s"),
                   failure("302", note_redirect("\\x1B[2J\\xE2\\x80\\xAE%s")));
    // a long one is truncated
    expect_failure(moved("302", "Location: http://" + std::string(2000, 'x')),
                   failure("302", note_redirect("http://" + std::string(793, 'x'))));
}

TEST(ToolFailure, AReplyThatIsHtmlIsNamed)
{
    const std::string html = "HTTP/1.0 200 OK\r\nContent-Type: text/html; charset=x\r\n\r\n";
    const Failure failure = {not_update, "not-an-update", 200, note_html};
    expect_failure(sending(html + "Log in\n"), failure);
    expect_failure(sending(html), failure);
    expect_failure(sending(reply_of("<html>\n<p>Hello</p>\n</html>\n")), failure);
    expect_failure(sending(reply_of(" \r\n\t<!DOCTYPE html>")), failure);
    expect_failure(sending(reply_of("a < b\n")), {not_update, "not-an-update", 200});
    expect_failure(sending("HTTP/1.0 511 Log in\r\n\r\n<html>"),
                   {bad_status("511", "Log in"), "http-status", 511, note_html});
    expect_failure(
        sending("HTTP/1.0 302 Log in\r\nLocation: http://p/\r\nContent-Type: TEXT/HTML\r\n\r\n"),
        {bad_status("302", "Log in"), "http-status", 302, note_redirect("http://p/") + note_html});
    expect_failure(sending("<html>\n\n"), {not_http, "not-http", 0, note_not_http});
}

// Through a proxy

// Runs the utility through a proxy that follows the script.
void expect_failure_through_proxy(const PeerScript &script, const Failure &failure)
{
    const LoopbackPeer proxy({script});
    const std::string line = error_line(failure.error);
    const std::string &what = failure.notes;
    const Strings arguments = {"-service", "a.example", "-proxy", proxy.address()};
    expect_ended(run_tool(arguments), 1, "",
                 line + note_proxy(proxy.address(), "-proxy") + failure.notes, what);
    expect_ended(run_tool(joined(arguments, {"-quiet"})), 1, "", line, what);
    ChildOptions options;
    options.environment = {{"http_proxy", proxy.address()}};
    expect_ended(
        run_tool({"-service", "a.example:81", "-json"}, options), 1,
        unanswered_json("failed", 1, failure.error,
                        {failure.reason, failure.http_status, "a.example:81", proxy.address()}),
        line + note_proxy(proxy.address(), "http_proxy") + failure.notes, what);
}

TEST(ToolFailure, TheProxyIsNamedAndWhatItAsksFor)
{
    const auto refusing = [](const std::string &status, const std::string &lines) {
        return sending("HTTP/1.0 " + status + " No\r\n" + lines + "\r\n");
    };
    const auto failure = [](const std::string &status, const std::string &notes) {
        return Failure{bad_status(status, "No"), "http-status", std::stoi(status), notes};
    };
    const std::string basic = "Basic realm=\"a, b\"";
    const struct {
        const char *status;
        std::string lines;
        std::string notes;
    } rows[] = {
        {"407", "Proxy-Authenticate: " + basic + "\r\n", note_challenge(basic)},
        {"407", "proxy-authenticate:NTLM\r\nProxy-Authenticate: Negotiate\r\n",
         note_challenge("NTLM, Negotiate")},
        {"407", "WWW-Authenticate: Digest\r\n", note_challenge("Digest")},
        {"407", "WWW-Authenticate: a\r\nProxy-Authenticate: b\r\n", note_challenge("b")},
        {"407", "", note_challenge("credentials")},
        {"401", "WWW-Authenticate: " + basic + "\r\n", note_challenge(basic)},
        {"401", "", note_challenge("credentials")},
        {"407", "Proxy-Authenticate: \x1B]0;x\x07\xC2\x9B%n\r\n",
         note_challenge("\\x1B]0;x\\x07\\xC2\\x9B%n")},
        {"407", "Proxy-Authenticate: " + std::string(2000, 'x') + "\r\n",
         note_challenge(std::string(800, 'x'))},
        {"403", "Proxy-Authenticate: Basic\r\n", ""},
        {"302", "Location: b\r\n", note_redirect("b")},
    };
    for (const auto &row : rows)
        expect_failure_through_proxy(refusing(row.status, row.lines),
                                     failure(row.status, row.notes));
}

TEST(ToolFailure, TheProxyIsNamedForEveryOtherReply)
{
    expect_failure_through_proxy(sending(""), {not_http, "not-http", 0, note_closed_by_proxy});
    expect_failure_through_proxy(sending("garbage\n\n"), {not_http, "not-http", 0, note_not_http});
    expect_failure_through_proxy(sending("\x15\x03\x01"),
                                 {long_header, "too-long", 0, note_endless});
    expect_failure_through_proxy(sending(reply_of("<html>")),
                                 {not_update, "not-an-update", 200, note_html});
    expect_failure_through_proxy({{PeerAct::ReadRequest}, {PeerAct::Reset}},
                                 {not_http, "receive", 0});
}

TEST(ToolFailure, AnOriginThatAsksForCredentialsIsNotCalledAProxy)
{
    for (const char *status : {"401", "407"})
        expect_failure(sending(std::string("HTTP/1.0 ") + status +
                               " No\r\nWWW-Authenticate: Basic\r\n"
                               "Proxy-Authenticate: Basic\r\n\r\n"),
                       {bad_status(status, "No"), "http-status", std::stoi(status)});
}

// Hostile bytes

TEST(ToolFailure, HostileBytesAreEscaped)
{
    expect_failure(sending("HTTP/1.0 500 \x1B[31m\xE2\x80\xAE\r\n\r\n"),
                   {bad_status("500", "\\u001b[31m\\u202e"), "http-status", 500, "",
                    bad_status("500", "\\x1B[31m\\xE2\\x80\\xAE")});
    expect_failure(sending("HTTP/1.0 200\r\n\r\nMessage: One\n"),
                   {unparsable("HTTP/1.0 200\\u000d\\n\\u000d"), "not-http", 200, "",
                    unparsable("HTTP/1.0 200\\x0D\\x0A\\x0D")});
}

TEST(ToolFailure, ALongErrorIsTruncatedOnStandardErrorOnly)
{
    const std::string header = "HTTP/x" + std::string(3000, 'y');
    expect_failure(sending(header + "\r\n\r\n"), {unparsable(header + "\\u000d\\n\\u000d"),
                                                  "not-http", 0, "", unparsable(header)});
}

TEST(ToolFailure, AResetIsReported)
{
    expect_failure({{PeerAct::ReadRequest}, {PeerAct::Reset}}, {not_http, "receive"});
}

TEST(ToolFailure, APeerThatCannotBeReachedIsReported)
{
    const std::string refused = "127.0.0.1:" + std::to_string(refused_port());
    ASSERT_EQ(gethostbyname("A..B"), nullptr);
    const std::string not_found =
        std::string("Can't find web server 'A..B': ") + hstrerror(h_errno);
    const struct {
        std::string service;
        std::string proxy;
        std::string error;
        const char *reason;
    } rows[] = {
        {refused, "", refused_text(), "connect"},
        {"127.0.0.1:1", refused, refused_text(), "connect"},
        {"a..b", "", not_found, "lookup"},
        // the proxy is not found, but the message names the service
        {"a..b:80", "c..d:80", not_found, "lookup"},
    };
    for (const auto &row : rows) {
        const std::string notes = row.proxy.empty() ? "" : note_unreached_proxy(row.proxy);
        Strings arguments = {"-service", row.service};
        if (!row.proxy.empty())
            arguments = joined(arguments, {"-proxy", row.proxy});
        expect_ended(run_tool(arguments), 1, "", error_line(row.error) + notes);
        expect_ended(run_tool(joined({"-quiet"}, arguments)), 1, "", error_line(row.error));
        expect_ended(
            run_tool(joined({"-json"}, arguments)), 1,
            unanswered_json("failed", 1, row.error, {row.reason, 0, row.service, row.proxy}),
            error_line(row.error) + notes);
    }
}

// Limits

// Without a limit, the client would store the last byte of such a header forever.
TEST(ToolFailure, AReplyThatEndsInTheMiddleOfAHeaderLineReachesTheLimit)
{
    const Failure failure = {long_header, "too-long", 0, note_endless};
    expect_failure(sending("HTTP/1.0 200 OK\r\nMessage: One"), failure);
    expect_failure(sending("HTTP/1.0 200 OK"), failure);
}

TEST(ToolFailure, AHeaderThatNeverEndsReachesTheLimit)
{
    expect_failure({{PeerAct::ReadRequest}, {PeerAct::SendForever, repeated(1000, "a: b\r\n")}},
                   {long_header, "too-long", 0, note_endless});
}

TEST(ToolFailure, ABodyThatNeverEndsReachesTheLimit)
{
    expect_failure({{PeerAct::ReadRequest},
                    {PeerAct::Send, reply_of("Message: ")},
                    {PeerAct::SendForever, std::string(65536, 'm')}},
                   {long_body, "too-long", 200});
}

TEST(ToolFailure, TheLastByteWithinTheLimitsIsAccepted)
{
    const std::string line = "HTTP/1.0 200 OK\r\n";
    const auto header = [&](std::size_t size) { // the last line feed does not count
        return line + std::string(size - line.size() - 3, 'h') + "\r\n\r\n";
    };
    const auto body = [](std::size_t size) { return "Message: x\n" + std::string(size - 11, 'b'); };
    const std::string shown = "x\n" + std::string(65533, 'b') + "\n";
    expect_ended(ask(sending(header(262144) + "Message: x"), {"-quiet"}).result, 0, "x\n", "");
    expect_ended(ask(sending(header(262145) + "Message: x"), {"-quiet"}).result, 1, "",
                 error_line(long_header));
    expect_ended(ask(sending(reply_of(body(8388608))), {"-quiet"}).result, 0, shown, "");
    expect_ended(ask(sending(reply_of(body(8388609))), {"-quiet"}).result, 1, "",
                 error_line(long_body));
}

} // namespace
} // namespace quintral::tests::tool
