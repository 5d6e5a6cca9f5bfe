// Failures before the reply, over real sockets, and the last error.
#include "tests/harness/loopback-peer.h"
#include "tests/web/transaction-calls.h"
#include "web/transaction.h"

#include <cerrno>
#include <string>

#include <gtest/gtest.h>
#include <netdb.h>

namespace quintral {
namespace {

using namespace tests;

const std::string error_at_start = web_last_error();

// Failures before the reply

TEST_F(WebTransaction, ASchemeOtherThanHttpIsRejected)
{
    const std::string long_scheme(100000, 'S');
    const struct {
        std::string url;
        std::string scheme;
    } rows[] = {
        {"https://127.0.0.1/", "HTTPS"},
        {"ftp://127.0.0.1/", "FTP"},
        {"web:81/p", "WEB"},
        {"://127.0.0.1/", ""},
        {"httpx://h/", "HTTPX"},
        {"htt://h/", "HTT"},
        {"%s%n://h/", "%S%N"},
        {long_scheme + "://h/", long_scheme},
    };
    for (const auto &row : rows)
        EXPECT_EQ(call_web({row.url}), failed("Protocol should be HTTP, not " + row.scheme));
}

TEST_F(WebTransaction, AnExchangeAcceptsOnlyTheUpperCaseSchemeHttp)
{
    for (const char *scheme : {"http", "Http", "HTTP ", "HTTPS", ""}) {
        char *header = nullptr;
        char *body = nullptr;
        EXPECT_EQ(web_exchange(scheme, "127.0.0.1", "/", refused_port(), "GET", "", "", &header,
                               &body, nullptr, 0, nullptr, nullptr),
                  WebFailed);
        EXPECT_EQ(web_last_error(), std::string("Protocol should be HTTP, not ") + scheme);
        EXPECT_EQ(header, nullptr);
        EXPECT_EQ(body, nullptr);
    }
}

// The resolver rejects two periods in a row without a query.
TEST_F(WebTransaction, ANameThatIsNotFoundIsReportedWithTheResolversReason)
{
    h_errno = 0;
    ASSERT_EQ(gethostbyname("A..B"), nullptr);
    const std::string reason = hstrerror(h_errno);
    ASSERT_NE(h_errno, 0);
    EXPECT_EQ(call_web({"http://a..b/"}), failed("Can't find web server 'A..B': " + reason));

    WebCall through_proxy = {"http://the-server:81/"};
    through_proxy.proxy_host = "a..b";
    through_proxy.proxy_port = refused_port();
    EXPECT_EQ(call_web(through_proxy), failed("Can't find web server 'THE-SERVER': " + reason));
}

TEST_F(WebTransaction, ARefusedConnectionIsReportedWithTheSystemsReason)
{
    const std::string port = std::to_string(refused_port());
    const std::string refused = detail_of(ECONNREFUSED);
    EXPECT_EQ(call_web({"http://127.0.0.1:" + port + "/"}),
              failed("Can't connect to web server '127.0.0.1': " + refused));

    WebCall through_proxy = {"http://the-server:81/"};
    through_proxy.proxy_host = "127.0.0.1";
    through_proxy.proxy_port = refused_port();
    EXPECT_EQ(call_web(through_proxy),
              failed("Can't connect to web server 'THE-SERVER': " + refused));
}

// The last error

TEST_F(WebTransaction, TheLastErrorIsEmptyAtProcessStart)
{
    EXPECT_EQ(error_at_start, "");
}

TEST_F(WebTransaction, SettingAnErrorFormatsStoresAndReturnsIt)
{
    const std::string long_text(1000000, 'x');
    const char *set = web_set_error("%s and %d%%", "text", -7);
    EXPECT_STREQ(set, "text and -7%");
    EXPECT_EQ(web_last_error(), set);
    set = web_set_error("%s", long_text.c_str());
    EXPECT_TRUE(set == long_text);
    EXPECT_EQ(web_last_error(), set);
    web_set_error("short");
    EXPECT_STREQ(web_set_error("%s, %s", web_last_error(), "longer"), "short, longer");
    EXPECT_STREQ(web_set_error("%s", ""), "");
}

void copy_last_error(void *user_data)
{
    *static_cast<std::string *>(user_data) = web_last_error();
}

TEST_F(WebTransaction, ARequestClearsTheLastErrorAtItsStart)
{
    std::string during_request = "the hook was not called";
    web_set_error("old");
    web_set_idle_hook(copy_last_error, &during_request);
    check_reply_row({"cleared", answering_after(500), good_outcome()});
    EXPECT_EQ(during_request, "");
}

TEST_F(WebTransaction, TheNextFailureReplacesTheLastError)
{
    EXPECT_EQ(call_web({"one://h/"}), failed("Protocol should be HTTP, not ONE"));
    EXPECT_EQ(call_web({"two://h/"}), failed("Protocol should be HTTP, not TWO"));
    check_reply_row({"recorded", resetting_after("A\n"), outcome(WebOk, "A\n", "", reset_error())});
    check_reply_row({"none", answering("A\n\n"), delivered("A\n", "")});
}

TEST_F(WebTransaction, ABareExchangeDoesNotClearTheLastError)
{
    LoopbackPeer peer({answering(good_reply)});
    web_set_error("old");
    EXPECT_EQ(call_exchange(peer, "GET", "", ""), outcome(WebOk, good_header, "body", "old"));
}

TEST_F(WebTransaction, TheErrnoTextHasTheNumberAndTheSystemsMessage)
{
    for (int error : {0, 1, EAGAIN, ECONNREFUSED, ETIMEDOUT, 99999, -5}) {
        const std::string expected = detail_of(error);
        errno = error;
        EXPECT_EQ(web_errno_text(), expected);
    }
    errno = EPERM;
    EXPECT_STREQ(web_errno_text(), "code 1: Operation not permitted");
}

TEST_F(WebTransaction, TheErrnoTextIsOneBufferThatTheNextCallOverwrites)
{
    errno = EPERM;
    const char *first = web_errno_text();
    errno = ENOENT;
    const char *second = web_errno_text();
    EXPECT_EQ(first, second);
    EXPECT_EQ(first, detail_of(ENOENT));
}

} // namespace
} // namespace quintral
