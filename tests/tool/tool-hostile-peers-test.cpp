// What the utility prints for peers that are not an update service. The library's own results are
// in tests/web/hostile-peers-test.cpp, which has more rows.
#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {
namespace {

void expect_error(const PeerScript &script, const std::string &error)
{
    expect_ended(ask(script, {"-quiet"}).result, 1, "", error_line(error), error);
}

TEST(ToolHostilePeer, ThatDoesNotSpeakHttpIsAnError)
{
    for (const std::string &start :
         {std::string("220 mail ready"), std::string("\x1f\x8b\x08\x00\x00", 5),
          std::string("\x00HTTP/1.0 200 OK", 16), std::string("\x1b[2J\xE2\x80\xAE")})
        expect_error(sending(start + "\r\n\r\nMessage: m"), not_http);
}

TEST(ToolHostilePeer, WithABodyOfAnotherKindIsAnError)
{
    const std::string gzip = std::string("\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\x03", 10);
    for (const std::string &body :
         {gzip + "\nMessage: m", std::string("3\r\nMes\r\n7\r\nsage: m\r\n0\r\n\r\n"),
          std::string("{\"Message\": \"m\"}"), std::string(1000, '\0'), std::string("\n\n\n")})
        expect_error(sending(reply_of(body)), not_update);
}

TEST(ToolHostilePeer, WithControlsInItsReasonIsAnErrorInEscapes)
{
    expect_error(sending("HTTP/1.1 100 \x1b]0;t\x07\xE2\x80\xAE\x9b%s%n\r\n\r\n"),
                 "Bad HTTP status 100 from web site: \\x1B]0;t\\x07\\xE2\\x80\\xAE\\x9B%s%n");
}

TEST(ToolHostilePeer, WithALineOfAMebibyteInTheHeaderIsAnError)
{
    const std::string xs(1024 * 1024, 'x');
    expect_error(sending("HTTP/1.0 200 " + xs + "\r\n\r\nMessage: m"), long_header);
}

TEST(ToolHostilePeer, WithoutAnEndIsAnError)
{
    expect_error({{PeerAct::ReadRequest}, {PeerAct::SendForever, std::string(10000, '\0')}},
                 long_header);
    expect_error({{PeerAct::ReadRequest},
                  {PeerAct::Send, reply_of("")},
                  {PeerAct::SendForever, std::string(10000, '\0')}},
                 long_body);
}

TEST(ToolHostilePeer, ThatRepliesBeforeItReadsIsUnderstood)
{
    const PeerScript script = {{PeerAct::Send, reply_of("Message: m")}, {PeerAct::ReadRequest}};
    expect_ended(ask(script, {"-quiet"}).result, 0, "m\n", "");
}

// A client that a busy machine stops while it connects sees the reset there.
TEST(ToolHostilePeer, ThatResetsBeforeItReadsIsAnError)
{
    const ChildResult result = ask({{PeerAct::Reset}}, {"-quiet"}).result;
    const std::string reset = error_line(connect_text(ECONNRESET));
    expect_ended(result, 1, "", result.error == reset ? reset : error_line(not_http));
}

} // namespace
} // namespace quintral::tests::tool
