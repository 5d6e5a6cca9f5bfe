// Transactions with scripted system calls: the calls they make, and the result if each one fails.
#include "tests/web/scripted-calls.h"
#include "web/transaction.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <netdb.h>

namespace quintral {
namespace {

using namespace tests;

// The calls

TEST_F(WebTransactionUnderFaults, AnExchangeMakesTheseCallsInThisOrder)
{
    stage.arrivals = {{"A\n\nb"}};
    EXPECT_EQ(call_scripted(), delivered("A\n", "b"));
    EXPECT_EQ(stage.calls, joined({{"socket", "lookup WEB", "connect 127.0.0.1:81"},
                                   times(10, {"send"}),
                                   times(3, {header_wait, "recv 1"}),
                                   times(2, {body_wait, "recv 1023"}),
                                   {"close"}}));
}

TEST_F(WebTransactionUnderFaults, EachPieceOfTheRequestIsOneSend)
{
    stage.arrivals = {{"A\n\n"}};
    WebCall call = {web_url, "POST", {{"a", "b"}}};
    call.proxy_user = "user";
    call.proxy_password = "pass";
    EXPECT_EQ(call_scripted(call), delivered("A\n", ""));
    const std::vector<std::string> expected = {
        "POST ",
        "http://Web:81/p",
        " HTTP/1.0\r\n",
        "Accept: image/gif, image/x-xbitmap, image/jpeg, image/pjpeg, */*\r\n",
        "Accept-Language: en-us\r\n",
        "User-Agent: Velmora_Auto1\r\n",
        "Referer: " QUINTRAL_WEB_DOMAIN "\r\n",
        "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: 3\r\n",
        "Host: WEB\r\n",
        "Authorization: Basic dXNlcjpwYXNz\r\n",
        "\r\n",
        "a=b",
    };
    EXPECT_EQ(stage.sent, expected);
}

TEST_F(WebTransactionUnderFaults, FailedSendsAreIgnored)
{
    for (int error : {EPIPE, ECONNRESET, EINTR}) {
        stage.send_error = error;
        stage.arrivals = {{"A\n\nb"}};
        EXPECT_EQ(call_scripted(), delivered("A\n", "b"));
        EXPECT_EQ(count_of_calls("send"), 10) << error;
    }
}

TEST_F(WebTransactionUnderFaults, ASchemeOtherThanHttpMakesNoCallAtAll)
{
    EXPECT_EQ(call_scripted({"https://web/"}), failed("Protocol should be HTTP, not HTTPS"));
    EXPECT_EQ(stage.calls, CallList());
}

TEST_F(WebTransactionUnderFaults, AFailureToCreateASocketComesBeforeTheLookup)
{
    for (int error : {EMFILE, ENFILE, ENOBUFS, EACCES}) {
        stage.socket_error = error;
        EXPECT_EQ(call_scripted(), failed("Can't create web socket, " + detail_of(error)));
        EXPECT_EQ(stage.calls, CallList({"socket"}));
    }
    stage.socket_error = EMFILE;
    call_scripted();
    EXPECT_STREQ(web_last_error(), "Can't create web socket, code 24: Too many open files");
}

// The lookup

TEST_F(WebTransactionUnderFaults, EachResolverFailureIsReportedWithItsReason)
{
    const struct {
        int error;
        const char *text;
    } rows[] = {
        {HOST_NOT_FOUND, "Unknown host"},
        {TRY_AGAIN, "Host name lookup failure"},
        {NO_RECOVERY, "Unknown server error"},
        {NO_DATA, "No address associated with name"},
        {NETDB_INTERNAL, "Resolver internal error"},
    };
    for (const auto &row : rows) {
        const std::string text = row.text;
        stage.host_error = row.error;
        EXPECT_EQ(call_scripted(), failed("Can't find web server 'WEB': " + text));
        EXPECT_EQ(stage.calls, CallList({"socket", "lookup WEB", "close"}));

        WebCall through_proxy = {web_url};
        through_proxy.proxy_host = "The-Proxy";
        through_proxy.proxy_port = 3128;
        EXPECT_EQ(call_scripted(through_proxy), failed("Can't find web server 'WEB': " + text));
        EXPECT_EQ(stage.calls, CallList({"socket", "lookup The-Proxy", "close"}));
    }
}

TEST_F(WebTransactionUnderFaults, ALookupWithoutAnIPv4AddressFails)
{
    const struct {
        const char *name;
        FoundHost host;
    } rows[] = {
        {"no address", {AF_INET, 4, {}}},
        {"IPv6 addresses", {AF_INET6, 16, {"127.0.0.1"}}},
        {"another length", {AF_INET, 16, {"127.0.0.1"}}},
        {"no length", {AF_INET, 0, {"127.0.0.1"}}},
        {"another family", {AF_UNIX, 4, {"127.0.0.1"}}},
    };
    for (const auto &row : rows) {
        stage.host = row.host;
        EXPECT_EQ(call_scripted(),
                  failed("Can't find web server 'WEB': No address associated with name"))
            << row.name;
        EXPECT_EQ(stage.calls, CallList({"socket", "lookup WEB", "close"})) << row.name;
    }
}

TEST_F(WebTransactionUnderFaults, AHostIsLookedUpInUpperCaseAndAProxyAsGiven)
{
    const std::string long_host(100000, 'h');
    const std::string long_upper_host(100000, 'H');
    const struct {
        std::string url;
        const char *proxy;
        std::string expected;
    } rows[] = {
        {"http://Web-1.Example/", nullptr, "WEB-1.EXAMPLE"},
        {"http://Web/", "", "WEB"},
        {"http://Web/", "Proxy", "Proxy"},
        {"http:/x", nullptr, ""},
        {"", nullptr, ""},
        {"http://" + long_host + "/", nullptr, long_upper_host},
        {"http://Web/", long_host.c_str(), long_host},
    };
    for (const auto &row : rows) {
        stage.arrivals = {{"A\n\n"}};
        WebCall call = {row.url};
        call.proxy_host = row.proxy;
        EXPECT_EQ(call_scripted(call), delivered("A\n", ""));
        ASSERT_GE(stage.calls.size(), 2u);
        EXPECT_EQ(stage.calls[1], "lookup " + row.expected);
    }
}

TEST_F(WebTransactionUnderFaults, FourDecimalNumbersAreNotLookedUp)
{
    for (const char *address :
         {"127.0.0.1", "0.0.0.0", "255.255.255.255", "1.2.3.4", "10.20.30.40", "192.168.100.249",
          "100.101.109.110", "8.8.0.199", "200.209.250.99"}) {
        const std::string connection = std::string("connect ") + address;
        stage.host_error = HOST_NOT_FOUND;
        stage.connect_error = ECONNREFUSED;
        EXPECT_EQ(call_scripted({std::string("http://") + address + ":81/"}),
                  failed("Can't connect to web server '" + std::string(address) +
                         "': " + detail_of(ECONNREFUSED)));
        EXPECT_EQ(stage.calls, CallList({"socket", connection + ":81", "close"}));

        WebCall through_proxy = {web_url};
        through_proxy.proxy_host = address;
        through_proxy.proxy_port = 3128;
        call_scripted(through_proxy);
        EXPECT_EQ(stage.calls, CallList({"socket", connection + ":3128", "close"}));
    }
}

TEST_F(WebTransactionUnderFaults, AnyOtherFormOfAnAddressIsLookedUp)
{
    for (const char *host : {"256.0.0.1",
                             "0.256.0.1",
                             "0.0.256.1",
                             "1.2.3.256",
                             "1.2.3.260",
                             "1.2.3.300",
                             "1.2.3.999",
                             "1.2.3.1000",
                             "1.2.3.4294967297",
                             "1.2.3.18446744073709551617",
                             "01.2.3.4",
                             "1.02.3.4",
                             "1.2.3.04",
                             "1.2.3.00",
                             "00.0.0.0",
                             "000.0.0.0",
                             "0x1.2.3.4",
                             "1.2.3.0x4",
                             "1",
                             "1.2",
                             "1.2.3",
                             "1.2.3.",
                             "1.2.3.4.",
                             "1.2.3.4.5",
                             ".1.2.3.4",
                             "1..3.4",
                             "1...4",
                             "...",
                             ".",
                             " 1.2.3.4",
                             "1.2.3.4 ",
                             "1.2.3. 4",
                             "1.2.3.4\n",
                             "-1.2.3.4",
                             "+1.2.3.4",
                             "1.2.3.-4",
                             "1.2.3.4a",
                             "a1.2.3.4",
                             "1.2.3.a",
                             "a.2.3.4",
                             "1,2,3,4",
                             "1:2:3:4",
                             "1.2.3/4",
                             "2130706433",
                             "1.2.3.4:80",
                             "::1",
                             "\xb1.2.3.4"}) {
        WebCall call = {web_url};
        call.proxy_host = host;
        stage.host_error = HOST_NOT_FOUND;
        EXPECT_EQ(call_scripted(call), failed("Can't find web server 'WEB': Unknown host")) << host;
        EXPECT_EQ(stage.calls, CallList({"socket", std::string("lookup ") + host, "close"}));
    }
}

TEST_F(WebTransactionUnderFaults, ErrorsNameAHostOfAnyLengthInFull)
{
    const std::string host(100000, 'h');
    const std::string upper(100000, 'H');
    stage.host_error = HOST_NOT_FOUND;
    EXPECT_EQ(call_scripted({"http://" + host + "/"}),
              failed("Can't find web server '" + upper + "': Unknown host"));
    EXPECT_EQ(call_scripted({"http:/x"}), failed("Can't find web server '': Unknown host"));
    stage.host_error = 0;
    stage.connect_error = ECONNREFUSED;
    EXPECT_EQ(call_scripted({"http://" + host + "/"}),
              failed("Can't connect to web server '" + upper + "': " + detail_of(ECONNREFUSED)));
}

// The connection

TEST_F(WebTransactionUnderFaults, OnlyTheFirstAddressIsTriedOnThePeersPort)
{
    const struct {
        std::string url;
        const char *proxy;
        int proxy_port;
        const char *expected;
    } rows[] = {
        {"http://web/", nullptr, 3128, "connect 127.0.0.2:80"},
        {"http://web:8080/", nullptr, 3128, "connect 127.0.0.2:8080"},
        {"http://web:65616/", nullptr, 3128, "connect 127.0.0.2:80"},
        {"http://web:-1/", nullptr, 3128, "connect 127.0.0.2:65535"},
        {"http://web:x/", nullptr, 3128, "connect 127.0.0.2:0"},
        {"http://web:2147483647/", nullptr, 3128, "connect 127.0.0.2:65535"},
        {"http://web:8080/", "", 3128, "connect 127.0.0.2:8080"},
        {"http://web:8080/", "proxy", 3128, "connect 127.0.0.2:3128"},
        {"http://web:8080/", "proxy", 65616, "connect 127.0.0.2:80"},
        {"http://web:8080/", "proxy", -65535, "connect 127.0.0.2:1"},
        {"http://web:8080/", "proxy", 0, "connect 127.0.0.2:0"},
    };
    for (const auto &row : rows) {
        stage.host.addresses = {"127.0.0.2", "127.0.0.3"};
        stage.connect_error = ECONNREFUSED;
        WebCall call = {row.url};
        call.proxy_host = row.proxy;
        call.proxy_port = row.proxy_port;
        EXPECT_EQ(call_scripted(call),
                  failed("Can't connect to web server 'WEB': " + detail_of(ECONNREFUSED)));
        ASSERT_EQ(stage.calls.size(), 4u) << row.url;
        EXPECT_EQ(stage.calls[2], row.expected) << row.url;
        EXPECT_EQ(stage.calls[3], "close") << row.url;
    }
}

TEST_F(WebTransactionUnderFaults, EachConnectFailureIsReportedWithItsErrno)
{
    for (int error : {ECONNREFUSED, ENETUNREACH, EHOSTUNREACH, ETIMEDOUT, EINTR}) {
        stage.connect_error = error;
        EXPECT_EQ(call_scripted(),
                  failed("Can't connect to web server 'WEB': " + detail_of(error)));
    }
}

// Receiving

TEST_F(WebTransactionUnderFaults, ATransientErrorInTheHeaderIsRetriedAtOnce)
{
    for (int error : {EAGAIN, EINTR}) {
        stage.arrivals = {{"A"}, {"", error}, {"", error}, {"\n"}, {"", error}, {"\nb"}};
        EXPECT_EQ(call_scripted(), delivered("A\n", "b"));
        const auto first = std::find(stage.calls.begin(), stage.calls.end(), header_wait);
        EXPECT_EQ(CallList(first, stage.calls.end()),
                  joined({{header_wait, "recv 1"},
                          {header_wait, "recv 1", "recv 1", "recv 1"},
                          {header_wait, "recv 1", "recv 1"},
                          times(2, {body_wait, "recv 1023"}),
                          {"close"}}))
            << error;
    }
}

TEST_F(WebTransactionUnderFaults, ATransientErrorInTheBodyEndsTheBody)
{
    for (int error : {EAGAIN, EINTR}) {
        stage.arrivals = {{"A\n\n"}, {"", error}, {"lost"}};
        EXPECT_EQ(call_scripted(), delivered("A\n", ""));
        stage.arrivals = {{"A\n\n"}, {"one "}, {"two"}, {"", error}, {"lost"}};
        EXPECT_EQ(call_scripted(), delivered("A\n", "one two"));
        EXPECT_EQ(count_of_calls("close"), 1);
    }
}

TEST_F(WebTransactionUnderFaults, AnyOtherErrorInTheBodyFailsButDeliversTheHeader)
{
    for (int error : {ECONNRESET, ETIMEDOUT, EIO, EBADF, ENOTCONN}) {
        stage.arrivals = {{"A\n\n"}, {"some"}, {"", error}, {"more"}};
        EXPECT_EQ(call_scripted(), failed(receive_error(error), "A\n"));
        EXPECT_EQ(count_of_calls("close"), 1);
    }
}

TEST_F(WebTransactionUnderFaults, AfterAnErrorInTheHeaderTheBodyPhaseDecides)
{
    const std::string later = receive_error(EPIPE);
    const auto recorded = [](const char *header, const char *body) {
        return outcome(WebOk, header, body, receive_error(EIO));
    };
    const Arrival late = {"late", 0, forever};
    const struct {
        const char *name;
        std::string header;
        std::deque<Arrival> arrivals; // after the error
        std::string expected;
        bool cancelling = false;
    } rows[] = {
        {"closed", "A: b", {}, recorded("A: b", "")},
        {"before any byte", "", {}, recorded("", "")},
        {"data, then closed", "A: b\n", {{"C: d\n\nrest"}}, recorded("A: b\n", "C: d\n\nrest")},
        {"a transient error", "A", {{"", EAGAIN}}, recorded("A", "")},
        {"another error", "A", {{"some"}, {"", EPIPE}}, failed(later, "A")},
        {"silence", "A", {late}, timed_out("A")},
        {"cancelled in silence", "A", {late}, cancelled("A"), true},
    };
    for (const auto &row : rows) {
        stage.arrivals = row.arrivals;
        stage.arrivals.push_front({"", EIO});
        if (!row.header.empty())
            stage.arrivals.push_front({row.header});
        web_cancel_requested = row.cancelling ? 1 : 0;
        EXPECT_EQ(call_scripted(), row.expected) << row.name;
        EXPECT_EQ(web_cancel_requested, 0) << row.name;
        EXPECT_EQ(count_of_calls("close"), 1) << row.name;
    }
}

// web_errno_text

TEST_F(WebTransactionUnderFaults, ASystemMessageOfAnyLengthFitsTheErrnoText)
{
    stage.error_text = std::string(5000, 'e');
    errno = EIO;
    const std::string expected = ("code 5: " + stage.error_text).substr(0, 1023);
    EXPECT_EQ(web_errno_text(), expected);
    stage.error_text = std::string(1015, 'e'); // fills the buffer exactly
    errno = EIO;
    EXPECT_EQ(web_errno_text(), "code 5: " + stage.error_text);
}

} // namespace
} // namespace quintral
