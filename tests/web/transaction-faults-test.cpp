// Transactions under faults: the system calls of the client are replaced at link time (--wrap), so
// that a test can let each of them fail, script what arrives and set the clock. The replacements
// act on the test's own thread and only while a test asks for it; the loopback peer always gets the
// real calls. Allocations are counted and can fail, one after the other.
#include "tests/harness/loopback-peer.h"
#include "tests/web/transaction-calls.h"
#include "web/transaction.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <limits>
#include <new>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

extern "C" {
hostent *__real_gethostbyname(const char *name);
int __real_gettimeofday(timeval *now, void *zone);
int __real_socket(int domain, int type, int protocol);
int __real_connect(int descriptor, const sockaddr *address, socklen_t size);
ssize_t __real_send(int descriptor, const void *bytes, size_t length, int flags);
ssize_t __real_recv(int descriptor, void *bytes, size_t size, int flags);
int __real_select(int range, fd_set *reading, fd_set *writing, fd_set *failing, timeval *timeout);
int __real_poll(pollfd *entries, nfds_t count, int milliseconds);
int __real_close(int descriptor);
char *__real_strerror(int error);
void *__real_malloc(size_t size);
void *__real_realloc(void *block, size_t size);
void __real_free(void *block);

hostent *__wrap_gethostbyname(const char *name);
int __wrap_gettimeofday(timeval *now, void *zone);
int __wrap_socket(int domain, int type, int protocol);
int __wrap_connect(int descriptor, const sockaddr *address, socklen_t size);
ssize_t __wrap_send(int descriptor, const void *bytes, size_t length, int flags);
ssize_t __wrap_recv(int descriptor, void *bytes, size_t size, int flags);
int __wrap_select(int range, fd_set *reading, fd_set *writing, fd_set *failing, timeval *timeout);
int __wrap_poll(pollfd *entries, nfds_t count, int milliseconds);
int __wrap_close(int descriptor);
char *__wrap_strerror(int error);
void *__wrap_malloc(size_t size);
void *__wrap_realloc(void *block, size_t size);
void __wrap_free(void *block);
}

namespace quintral {
namespace {

using namespace tests;

constexpr std::int64_t forever = std::numeric_limits<std::int64_t>::max() / 4;
constexpr std::int64_t millisecond = 1000; // of the scripted clock, which counts microseconds
constexpr std::int64_t second = 1000 * millisecond;
constexpr std::int64_t usual_time = 1763700000 * second + 123456;

// What happens next on the scripted connection: a silence, and behind it bytes or an error.
struct Arrival {
    std::string bytes;
    int error = 0;
    std::int64_t silence = 0; // microseconds
};

// A host that the scripted resolver finds.
struct FoundHost {
    int family = AF_INET;
    int length = 4;
    std::vector<std::string> addresses = {"127.0.0.1"};
};

// The world that the client sees while a test scripts it.
struct Stage {
    bool scripted = false;
    std::vector<std::string> calls; // in order, with what matters of their arguments
    std::vector<std::string> sent;  // one entry for each send
    std::deque<Arrival> arrivals;   // behind the last one the server has closed
    std::int64_t now = usual_time;  // microseconds since 1970
    std::int64_t clock_jump = 0;    // added to the clock by the next wait that ends in silence

    FoundHost host;
    int host_error = 0; // fails the look-up, as h_errno
    int socket_error = 0;
    int connect_error = 0;
    int send_error = 0;
    int wait_failures = 0;       // so many waits fail with EINTR
    bool wait_lies = false;      // select reports a descriptor and returns an empty set
    int descriptor_at_least = 0; // where the socket's descriptor is to be
    std::string error_text;      // of strerror, unless empty
};

Stage stage;

// The allocations of the test's own thread while they are tallied.
struct Tally {
    bool on = false;
    std::int64_t live = 0;        // blocks handed out and not released
    std::int64_t handed = 0;      // blocks handed out
    std::int64_t fail_at = 0;     // the allocation that fails, counted from 1; 0 for none
    std::size_t failing_size = 0; // a malloc of so many bytes fails; 0 for none
    bool failed = false;
};

Tally tally;

const pthread_t test_thread = pthread_self();

bool is_scripted()
{
    return stage.scripted && pthread_equal(pthread_self(), test_thread) != 0;
}

bool is_tallied()
{
    return tally.on && pthread_equal(pthread_self(), test_thread) != 0;
}

bool allocation_fails(std::size_t malloc_size)
{
    if (!is_tallied())
        return false;
    ++tally.handed;
    const bool fails =
        tally.handed == tally.fail_at || (malloc_size != 0 && malloc_size == tally.failing_size);
    tally.failed = tally.failed || fails;
    tally.live += fails ? 0 : 1;
    return fails;
}

void note_release(const void *block)
{
    if (block != nullptr && is_tallied())
        --tally.live;
}

// Work of a replacement for the test's own sake is neither counted nor failed.
struct TallyPause {
    bool was_on = tally.on;
    TallyPause()
    {
        if (is_scripted())
            tally.on = false;
    }
    ~TallyPause()
    {
        if (is_scripted())
            tally.on = was_on;
    }
    TallyPause(const TallyPause &) = delete;
    TallyPause &operator=(const TallyPause &) = delete;
};

// A client that goes on for ever would fill the memory before any time limit ends it.
constexpr std::size_t most_calls = 1000000;

void note(const std::string &call)
{
    stage.calls.push_back(call);
    if (stage.calls.size() < most_calls)
        return;
    std::fputs("the exchange does not end\n", stderr);
    std::abort();
}

int fail_with(int error)
{
    errno = error;
    return -1;
}

hostent *scripted_host()
{
    static hostent host;
    static std::vector<std::string> bytes;
    static std::vector<char *> list;
    static char name[] = "name";
    bytes.clear();
    list.clear();
    for (const std::string &address : stage.host.addresses) {
        std::string four(16, '\0'); // room for the longest length that a test gives
        inet_pton(AF_INET, address.c_str(), four.data());
        bytes.push_back(four);
    }
    for (std::string &four : bytes)
        list.push_back(four.data());
    list.push_back(nullptr);
    host = {};
    host.h_name = name;
    host.h_addrtype = stage.host.family;
    host.h_length = stage.host.length;
    host.h_addr_list = list.data();
    return &host;
}

// Lets the scripted time pass up to the next arrival, for at most the timeout. True when something
// has arrived.
bool scripted_wait(std::int64_t timeout)
{
    if (stage.arrivals.empty())
        return true;
    std::int64_t &silence = stage.arrivals.front().silence;
    const std::int64_t passed = std::min(timeout, silence);
    silence -= passed;
    stage.now += passed;
    if (silence == 0)
        return true;
    stage.now += stage.clock_jump;
    stage.clock_jump = 0;
    return false;
}

int scripted_wait_result(std::int64_t timeout)
{
    if (stage.wait_failures > 0) {
        --stage.wait_failures;
        return fail_with(EINTR);
    }
    return scripted_wait(timeout) ? 1 : 0;
}

ssize_t scripted_receive(void *bytes, std::size_t size)
{
    if (stage.arrivals.empty())
        return 0;
    Arrival &next = stage.arrivals.front();
    const int error = next.error;
    const std::size_t count = std::min(size, next.bytes.size());
    std::copy_n(next.bytes.begin(), count, static_cast<char *>(bytes));
    next.bytes.erase(0, count);
    if (next.bytes.empty())
        stage.arrivals.pop_front();
    return error != 0 ? fail_with(error) : static_cast<ssize_t>(count);
}

} // namespace
} // namespace quintral

using quintral::stage;
using quintral::TallyPause;

hostent *__wrap_gethostbyname(const char *name)
{
    if (!quintral::is_scripted())
        return __real_gethostbyname(name);
    const TallyPause pause;
    quintral::note(std::string("look-up ") + name);
    errno = ENOENT; // of files that a resolver has looked for
    if (stage.host_error == 0)
        return quintral::scripted_host();
    h_errno = stage.host_error;
    return nullptr;
}

int __wrap_gettimeofday(timeval *now, void *zone)
{
    if (!quintral::is_scripted())
        return __real_gettimeofday(now, zone);
    now->tv_sec = static_cast<time_t>(stage.now / quintral::second);
    now->tv_usec = static_cast<suseconds_t>(stage.now % quintral::second);
    return 0;
}

int __wrap_socket(int domain, int type, int protocol)
{
    if (!quintral::is_scripted())
        return __real_socket(domain, type, protocol);
    const TallyPause pause;
    quintral::note("socket");
    if (stage.socket_error != 0)
        return quintral::fail_with(stage.socket_error);
    const int made = __real_socket(domain, type, protocol);
    if (stage.descriptor_at_least == 0)
        return made;
    const int moved = fcntl(made, F_DUPFD_CLOEXEC, stage.descriptor_at_least);
    __real_close(made);
    return moved;
}

int __wrap_connect(int descriptor, const sockaddr *address, socklen_t size)
{
    if (!quintral::is_scripted())
        return __real_connect(descriptor, address, size);
    const TallyPause pause;
    sockaddr_in peer = {};
    std::memcpy(&peer, address, std::min<std::size_t>(size, sizeof peer));
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &peer.sin_addr, text, sizeof text);
    quintral::note("connect " + std::string(text) + ":" + std::to_string(ntohs(peer.sin_port)));
    return stage.connect_error == 0 ? 0 : quintral::fail_with(stage.connect_error);
}

ssize_t __wrap_send(int descriptor, const void *bytes, size_t length, int flags)
{
    if (!quintral::is_scripted())
        return __real_send(descriptor, bytes, length, flags);
    const TallyPause pause;
    // The flag against SIGPIPE stands for no flag.
    quintral::note((flags & ~MSG_NOSIGNAL) == 0 ? "send" : "send with flags");
    stage.sent.emplace_back(static_cast<const char *>(bytes), length);
    return stage.send_error == 0 ? static_cast<ssize_t>(length)
                                 : quintral::fail_with(stage.send_error);
}

ssize_t __wrap_recv(int descriptor, void *bytes, size_t size, int flags)
{
    if (!quintral::is_scripted())
        return __real_recv(descriptor, bytes, size, flags);
    const TallyPause pause;
    quintral::note("recv " + std::to_string(size));
    return quintral::scripted_receive(bytes, size);
}

int __wrap_select(int range, fd_set *reading, fd_set *writing, fd_set *failing, timeval *timeout)
{
    if (!quintral::is_scripted())
        return __real_select(range, reading, writing, failing, timeout);
    const TallyPause pause;
    int in_set = 0;
    for (int descriptor = 0; descriptor < static_cast<int>(FD_SETSIZE); ++descriptor)
        in_set += FD_ISSET(descriptor, reading) ? 1 : 0;
    quintral::note("select " + std::to_string(range) + " " + std::to_string(timeout->tv_sec) +
                   " s " + std::to_string(timeout->tv_usec) + " us");
    if (in_set != 1 || writing != nullptr || failing != nullptr)
        quintral::note("with another set");
    const int result =
        quintral::scripted_wait_result(timeout->tv_sec * quintral::second + timeout->tv_usec);
    if (result == 0 || stage.wait_lies)
        FD_ZERO(reading);
    return result;
}

int __wrap_poll(pollfd *entries, nfds_t count, int milliseconds)
{
    if (!quintral::is_scripted())
        return __real_poll(entries, count, milliseconds);
    const TallyPause pause;
    quintral::note("poll " + std::to_string(milliseconds));
    if (count != 1 || entries->events != POLLIN)
        quintral::note("for something else");
    const int result = quintral::scripted_wait_result(milliseconds * quintral::millisecond);
    entries->revents = result > 0 ? POLLIN : 0;
    return result;
}

int __wrap_close(int descriptor)
{
    if (!quintral::is_scripted())
        return __real_close(descriptor);
    const TallyPause pause;
    quintral::note("close");
    const int result = __real_close(descriptor);
    errno = ENODEV; // a client that asks for errno behind this shows the wrong one
    return result;
}

char *__wrap_strerror(int error)
{
    const bool replaced = quintral::is_scripted() && !stage.error_text.empty();
    return replaced ? stage.error_text.data() : __real_strerror(error);
}

void *__wrap_malloc(size_t size)
{
    return quintral::allocation_fails(size) ? nullptr : __real_malloc(size);
}

void *__wrap_realloc(void *block, size_t size)
{
    if (block == nullptr)
        return __wrap_malloc(size);
    if (quintral::allocation_fails(size))
        return nullptr;
    quintral::note_release(block);
    return __real_realloc(block, size);
}

void __wrap_free(void *block)
{
    quintral::note_release(block);
    __real_free(block);
}

void *operator new(std::size_t size)
{
    void *block = quintral::allocation_fails(0) ? nullptr : __real_malloc(size == 0 ? 1 : size);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

void operator delete(void *block) noexcept
{
    quintral::note_release(block);
    __real_free(block);
}

void operator delete(void *block, std::size_t /*size*/) noexcept
{
    operator delete(block);
}

namespace quintral {
namespace {

const char *const web_url = "http://Web:81/p";

const std::string header_wait = "select 1024 0 s 100000 us";
const std::string body_wait = "select 1024 10 s 0 us";

class WebTransactionUnderFaults : public WebTransaction {
protected:
    void SetUp() override
    {
        stage = {};
        stage.scripted = true;
    }

    void TearDown() override
    {
        stage = {};
        tally = {};
        WebTransaction::TearDown();
    }
};

// A call on a fresh stage that keeps what the test has set up.
std::string call_scripted(const WebCall &call = {web_url})
{
    stage.calls.clear();
    stage.sent.clear();
    return call_web(call);
}

long count_of_calls(const std::string &call)
{
    return std::count(stage.calls.begin(), stage.calls.end(), call);
}

std::vector<std::string> repeated(long count, const std::vector<std::string> &texts)
{
    std::vector<std::string> all;
    for (long i = 0; i < count; ++i)
        all.insert(all.end(), texts.begin(), texts.end());
    return all;
}

std::vector<std::string> joined(const std::vector<std::vector<std::string>> &lists)
{
    std::vector<std::string> all;
    for (const auto &list : lists)
        all.insert(all.end(), list.begin(), list.end());
    return all;
}

// The calls

TEST_F(WebTransactionUnderFaults, AnExchangeMakesTheseCallsInThisOrder)
{
    stage.arrivals = {{"A\n\nb"}};
    EXPECT_EQ(call_scripted(), outcome(WebOk, "A\n", "b", ""));
    EXPECT_EQ(stage.calls, joined({{"socket", "look-up WEB", "connect 127.0.0.1:81"},
                                   repeated(10, {"send"}),
                                   repeated(3, {header_wait, "recv 1"}),
                                   repeated(2, {body_wait, "recv 1023"}),
                                   {"close"}}));
}

TEST_F(WebTransactionUnderFaults, EachPieceOfTheRequestIsOneSend)
{
    stage.arrivals = {{"A\n\n"}};
    WebCall call = {web_url, "POST", {{"a", "b"}}};
    call.proxy_user = "user";
    call.proxy_password = "pass";
    EXPECT_EQ(call_scripted(call), outcome(WebOk, "A\n", "", ""));
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

TEST_F(WebTransactionUnderFaults, SendsThatFailAreNotLookedAt)
{
    for (int error : {EPIPE, ECONNRESET, EINTR}) {
        stage.send_error = error;
        stage.arrivals = {{"A\n\nb"}};
        EXPECT_EQ(call_scripted(), outcome(WebOk, "A\n", "b", ""));
        EXPECT_EQ(count_of_calls("send"), 10) << error;
    }
}

TEST_F(WebTransactionUnderFaults, ASchemeOtherThanHttpMakesNoCallAtAll)
{
    EXPECT_EQ(call_scripted({"https://web/"}),
              outcome(WebFailed, none, none, "Protocol should be HTTP, not HTTPS"));
    EXPECT_EQ(stage.calls, std::vector<std::string>());
}

TEST_F(WebTransactionUnderFaults, ASocketThatCannotBeMadeFailsBeforeTheLookUp)
{
    for (int error : {EMFILE, ENFILE, ENOBUFS, EACCES}) {
        stage.socket_error = error;
        EXPECT_EQ(call_scripted(),
                  outcome(WebFailed, none, none, "Can't create web socket, " + detail_of(error)));
        EXPECT_EQ(stage.calls, std::vector<std::string>({"socket"}));
    }
    stage.socket_error = EMFILE;
    call_scripted();
    EXPECT_STREQ(web_last_error(), "Can't create web socket, code 24: Too many open files");
}

// The look-up

TEST_F(WebTransactionUnderFaults, EachFailureOfTheResolverIsReportedWithItsText)
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
        EXPECT_EQ(call_scripted(),
                  outcome(WebFailed, none, none, "Can't find web server 'WEB': " + text));
        EXPECT_EQ(stage.calls, std::vector<std::string>({"socket", "look-up WEB", "close"}));

        WebCall through_proxy = {web_url};
        through_proxy.proxy_host = "The-Proxy";
        through_proxy.proxy_port = 3128;
        EXPECT_EQ(call_scripted(through_proxy),
                  outcome(WebFailed, none, none, "Can't find web server 'WEB': " + text));
        EXPECT_EQ(stage.calls, std::vector<std::string>({"socket", "look-up The-Proxy", "close"}));
    }
}

TEST_F(WebTransactionUnderFaults, AnAnswerWithoutAnIPv4AddressIsNoAddress)
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
                  outcome(WebFailed, none, none,
                          "Can't find web server 'WEB': No address associated with name"))
            << row.name;
        EXPECT_EQ(stage.calls, std::vector<std::string>({"socket", "look-up WEB", "close"}))
            << row.name;
    }
}

TEST_F(WebTransactionUnderFaults, TheHostIsLookedUpInUpperCaseAndTheProxyAsItIs)
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
        EXPECT_EQ(call_scripted(call), outcome(WebOk, "A\n", "", ""));
        ASSERT_GE(stage.calls.size(), 2u);
        EXPECT_EQ(stage.calls[1], "look-up " + row.expected);
    }
}

TEST_F(WebTransactionUnderFaults, AHostOfAnyLengthIsNamedWholeWhenItFails)
{
    const std::string host(100000, 'h');
    const std::string upper(100000, 'H');
    stage.host_error = HOST_NOT_FOUND;
    EXPECT_EQ(
        call_scripted({"http://" + host + "/"}),
        outcome(WebFailed, none, none, "Can't find web server '" + upper + "': Unknown host"));
    EXPECT_EQ(call_scripted({"http:/x"}),
              outcome(WebFailed, none, none, "Can't find web server '': Unknown host"));
    stage.host_error = 0;
    stage.connect_error = ECONNREFUSED;
    EXPECT_EQ(call_scripted({"http://" + host + "/"}),
              outcome(WebFailed, none, none,
                      "Can't connect to web server '" + upper + "': " + detail_of(ECONNREFUSED)));
}

// The connection

TEST_F(WebTransactionUnderFaults, OnlyTheFirstAddressIsTriedAtThePeersPort)
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
                  outcome(WebFailed, none, none,
                          "Can't connect to web server 'WEB': " + detail_of(ECONNREFUSED)));
        ASSERT_EQ(stage.calls.size(), 4u) << row.url;
        EXPECT_EQ(stage.calls[2], row.expected) << row.url;
        EXPECT_EQ(stage.calls[3], "close") << row.url;
    }
}

TEST_F(WebTransactionUnderFaults, EachFailureOfConnectShowsItsOwnError)
{
    for (int error : {ECONNREFUSED, ENETUNREACH, EHOSTUNREACH, ETIMEDOUT, EINTR}) {
        stage.connect_error = error;
        EXPECT_EQ(call_scripted(),
                  outcome(WebFailed, none, none,
                          "Can't connect to web server 'WEB': " + detail_of(error)));
    }
}

// Receiving

TEST_F(WebTransactionUnderFaults, APassingErrorInTheHeaderReceivesAgainAtOnce)
{
    for (int error : {EAGAIN, EINTR}) {
        stage.arrivals = {{"A"}, {"", error}, {"", error}, {"\n"}, {"", error}, {"\nb"}};
        EXPECT_EQ(call_scripted(), outcome(WebOk, "A\n", "b", ""));
        const auto first = std::find(stage.calls.begin(), stage.calls.end(), header_wait);
        EXPECT_EQ(std::vector<std::string>(first, stage.calls.end()),
                  joined({{header_wait, "recv 1"},
                          {header_wait, "recv 1", "recv 1", "recv 1"},
                          {header_wait, "recv 1", "recv 1"},
                          repeated(2, {body_wait, "recv 1023"}),
                          {"close"}}))
            << error;
    }
}

TEST_F(WebTransactionUnderFaults, APassingErrorInTheBodyEndsTheBody)
{
    for (int error : {EAGAIN, EINTR}) {
        stage.arrivals = {{"A\n\n"}, {"", error}, {"lost"}};
        EXPECT_EQ(call_scripted(), outcome(WebOk, "A\n", "", ""));
        stage.arrivals = {{"A\n\n"}, {"one "}, {"two"}, {"", error}, {"lost"}};
        EXPECT_EQ(call_scripted(), outcome(WebOk, "A\n", "one two", ""));
        EXPECT_EQ(count_of_calls("close"), 1);
    }
}

TEST_F(WebTransactionUnderFaults, AnyOtherErrorInTheBodyFailsWithTheHeaderDelivered)
{
    for (int error : {ECONNRESET, ETIMEDOUT, EIO, EBADF, ENOTCONN}) {
        stage.arrivals = {{"A\n\n"}, {"some"}, {"", error}, {"more"}};
        EXPECT_EQ(call_scripted(),
                  outcome(WebFailed, "A\n", none,
                          "Error receiving data from web site: " + detail_of(error)));
        EXPECT_EQ(count_of_calls("close"), 1);
    }
}

TEST_F(WebTransactionUnderFaults, BehindAnErrorInTheHeaderTheBodyPhaseDecides)
{
    const std::string first = "Error receiving data from web site: " + detail_of(EIO);
    const std::string later = "Error receiving data from web site: " + detail_of(EPIPE);
    const struct {
        const char *name;
        std::deque<Arrival> arrivals;
        bool cancelling;
        std::string expected;
    } rows[] = {
        {"closed", {{"A: b"}, {"", EIO}}, false, outcome(WebOk, "A: b", "", first)},
        {"before any byte", {{"", EIO}}, false, outcome(WebOk, "", "", first)},
        {"data, then closed",
         {{"A: b\n"}, {"", EIO}, {"C: d\n\nrest"}},
         false,
         outcome(WebOk, "A: b\n", "C: d\n\nrest", first)},
        {"a passing error",
         {{"A"}, {"", EIO}, {"", EAGAIN}},
         false,
         outcome(WebOk, "A", "", first)},
        {"another error",
         {{"A"}, {"", EIO}, {"some"}, {"", EPIPE}},
         false,
         outcome(WebFailed, "A", none, later)},
        {"silence",
         {{"A"}, {"", EIO}, {"late", 0, forever}},
         false,
         outcome(WebTimedOut, "A", none, timeout_error)},
        {"cancelled in silence",
         {{"A"}, {"", EIO}, {"late", 0, forever}},
         true,
         outcome(WebCancelled, "A", none, cancel_error)},
    };
    for (const auto &row : rows) {
        stage.arrivals = row.arrivals;
        web_cancel_requested = row.cancelling ? 1 : 0;
        EXPECT_EQ(call_scripted(), row.expected) << row.name;
        EXPECT_EQ(web_cancel_requested, 0) << row.name;
        EXPECT_EQ(count_of_calls("close"), 1) << row.name;
    }
}

// Waiting

TEST_F(WebTransactionUnderFaults, AWaitThatReportsAnotherDescriptorIsATimeout)
{
    stage.wait_lies = true;
    stage.arrivals = {{"A\n\nb"}};
    EXPECT_EQ(call_scripted(), outcome(WebTimedOut, none, none, timeout_error));
    EXPECT_EQ(count_of_calls("recv 1"), 0);
    EXPECT_EQ(count_of_calls("close"), 1);
}

TEST_F(WebTransactionUnderFaults, AWaitThatFailsCallsTheHookAndWaitsAgain)
{
    int calls = 0;
    web_set_idle_hook(count_call, &calls);
    stage.wait_failures = 3;
    stage.arrivals = {{"A\n\nb"}};
    EXPECT_EQ(call_scripted(), outcome(WebOk, "A\n", "b", ""));
    EXPECT_EQ(calls, 3);

    stage.wait_failures = 3;
    stage.arrivals = {{"A\n\nb"}};
    web_cancel_requested = 1;
    EXPECT_EQ(call_scripted(), outcome(WebCancelled, none, none, cancel_error));
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(count_of_calls(header_wait), 1);
    EXPECT_EQ(web_cancel_requested, 0);
}

TEST_F(WebTransactionUnderFaults, AFlagIsNotLookedAtWhileDataFlows)
{
    stage.arrivals = {{"A\n\nb"}};
    web_cancel_requested = 1;
    EXPECT_EQ(call_scripted(), outcome(WebOk, "A\n", "b", ""));
    EXPECT_EQ(web_cancel_requested, 1);
    stage.arrivals = {{"A\n\nb", 0, 100 * millisecond + 1}};
    EXPECT_EQ(call_scripted(), outcome(WebCancelled, none, none, cancel_error));
    EXPECT_EQ(web_cancel_requested, 0);
}

TEST_F(WebTransactionUnderFaults, CancelFromTheHookIsSeenBehindTheNextSilentWait)
{
    web_set_idle_hook(request_cancel, nullptr);
    stage.arrivals = {{"A\n\nb", 0, forever}};
    EXPECT_EQ(call_scripted(), outcome(WebCancelled, none, none, cancel_error));
    EXPECT_EQ(count_of_calls(header_wait), 2);
    EXPECT_EQ(stage.now - usual_time, 200 * millisecond);
    EXPECT_EQ(web_cancel_requested, 0);
}

// Where the socket's descriptor fits into no fd_set, poll stands in with the same waits.
TEST_F(WebTransactionUnderFaults, ADescriptorThatNoSetCanHoldIsWaitedForWithPoll)
{
    constexpr int first_too_large = static_cast<int>(FD_SETSIZE);
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    ASSERT_GT(limit.rlim_max, FD_SETSIZE)
        << "the hard limit of open files is too low for this test (ulimit -Hn)";
    limit.rlim_cur = std::max<rlim_t>(limit.rlim_cur, FD_SETSIZE + 1);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    const struct {
        int descriptor;
        std::string header_wait;
        std::string body_wait;
    } rows[] = {
        {first_too_large - 1, header_wait, body_wait},
        {first_too_large, "poll 100", "poll 10000"},
    };
    for (const auto &row : rows) {
        int hook_calls = 0;
        web_set_idle_hook(count_call, &hook_calls);
        stage.descriptor_at_least = row.descriptor;
        stage.wait_failures = 1;
        stage.arrivals = {
            {"A\n\n", 0, 150 * millisecond}, {"b", 0, 9999 * millisecond}, {"c", 0, forever}};
        EXPECT_EQ(call_scripted(), outcome(WebTimedOut, "A\n", none, timeout_error));
        EXPECT_EQ(hook_calls, 3);
        const auto first = std::find(stage.calls.begin(), stage.calls.end(), row.header_wait);
        EXPECT_EQ(std::vector<std::string>(first, stage.calls.end()),
                  joined({repeated(2, {row.header_wait}),
                          repeated(3, {row.header_wait, "recv 1"}),
                          {row.body_wait, "recv 1023", row.body_wait, "close"}}))
            << "descriptor " << row.descriptor;
    }
}

// The clock: milliseconds since 1050000000 in 32 bits, which wrap every 49.7 days.

struct ClockRow {
    const char *name;
    std::int64_t start; // microseconds since 1970
};

std::vector<ClockRow> clock_rows()
{
    const std::int64_t epoch = 1050000000 * second;
    const std::int64_t half = (std::int64_t{1} << 31) * millisecond;
    const std::int64_t whole = 2 * half;
    return {
        {"any time", usual_time},
        {"the clock's own zero", epoch},
        {"three seconds before it", epoch - 3 * second},
        {"1970", 0},
        {"three seconds before the sign changes", epoch + half - 3 * second},
        {"the deadline is the change of sign", epoch + half - 10 * second},
        {"the sign has changed", epoch + half},
        {"one microsecond before", epoch + half - 1},
        {"three seconds before the first wrap", epoch + whole - 3 * second},
        {"the deadline is the first wrap", epoch + whole - 10 * second},
        {"the first wrap", epoch + whole},
        {"three seconds before a late change of sign", epoch + 150 * whole + half - 3 * second},
        {"three seconds before a late wrap", epoch + 166 * whole - 3 * second},
        {"the end of 32-bit time", (std::int64_t{1} << 31) * second - 60 * second},
    };
}

TEST_F(WebTransactionUnderFaults, TheTimeLimitIsTenSecondsAtAnyTimeOfTheClock)
{
    for (const ClockRow &row : clock_rows()) {
        SCOPED_TRACE(row.name);
        int calls = 0;
        web_set_idle_hook(count_call, &calls);
        stage.now = row.start;
        stage.arrivals = {{"A", 0, forever}};
        EXPECT_EQ(call_scripted(), outcome(WebTimedOut, none, none, timeout_error));
        EXPECT_EQ(stage.now - row.start, 10 * second);
        EXPECT_EQ(count_of_calls(header_wait), 100);
        EXPECT_EQ(calls, 100);

        stage.now = row.start;
        stage.arrivals = {{"A\n\nb"}, {"c", 0, forever}};
        EXPECT_EQ(call_scripted(), outcome(WebTimedOut, "A\n", none, timeout_error));
        EXPECT_EQ(stage.now - row.start, 10 * second);
        EXPECT_EQ(count_of_calls(body_wait), 2);
        EXPECT_EQ(calls, 101);
    }
}

TEST_F(WebTransactionUnderFaults, ASilenceShorterThanTheLimitPassesAtAnyTimeOfTheClock)
{
    for (const ClockRow &row : clock_rows()) {
        SCOPED_TRACE(row.name);
        stage.now = row.start;
        stage.arrivals = {{"A", 0, 9999 * millisecond},
                          {"\n\n", 0, 9999 * millisecond},
                          {"b", 0, 9999 * millisecond},
                          {"c", 0, 9999 * millisecond}};
        EXPECT_EQ(call_scripted(), outcome(WebOk, "A\n", "bc", ""));
    }
}

TEST_F(WebTransactionUnderFaults, AClockThatIsSetBackOrForwardMovesTheDeadlineAndNothingElse)
{
    const struct {
        std::int64_t jump;
        long waits; // of the header phase until its time is over
    } rows[] = {
        {-5 * second, 150}, {-1 * millisecond, 101}, {-3600 * second, 36100},
        {5 * second, 50},   {10 * second, 1},        {3600 * second, 1},
    };
    for (const auto &row : rows) {
        stage.clock_jump = row.jump;
        stage.arrivals = {{"A", 0, forever}};
        EXPECT_EQ(call_scripted(), outcome(WebTimedOut, none, none, timeout_error));
        EXPECT_EQ(count_of_calls(header_wait), row.waits) << row.jump;

        stage.clock_jump = row.jump;
        stage.arrivals = {{"A\n\n"}, {"b", 0, 2 * second}};
        EXPECT_EQ(call_scripted(), outcome(WebOk, "A\n", "b", "")) << row.jump;
    }
}

// Errors of the system

TEST_F(WebTransactionUnderFaults, ASystemTextOfAnyLengthFitsTheBuffer)
{
    stage.error_text = std::string(5000, 'e');
    errno = EIO;
    const std::string expected = ("code 5: " + stage.error_text).substr(0, 1023);
    EXPECT_EQ(web_errno_text(), expected);
    stage.error_text = std::string(1015, 'e'); // fills the buffer exactly
    errno = EIO;
    EXPECT_EQ(web_errno_text(), "code 5: " + stage.error_text);
}

// Memory

// Each way for an exchange to end, in turn, on the scripted connection.
std::vector<std::deque<Arrival>> endings()
{
    return {
        {{"HTTP/1.0 200 OK\r\nA long enough header: value\r\n\r\nA body of some length"}},
        {{"A\n\n" + std::string(5000, 'x')}},
        {{"HTTP/1.0 200 OK, which is to be repeated\r\n"}, {"", EIO}, {"body"}},
        {{"A\n\n"}, {"", EIO}},
        {{"A", 0, forever}},
        {{"A\n\n"}, {"b", 0, forever}},
    };
}

// Runs one transaction with the given allocation failing. True when it was reached; it must have
// thrown then and left nothing behind but what it had delivered.
bool fails_cleanly(const std::deque<Arrival> &arrivals, std::int64_t fail_at)
{
    char *header = nullptr;
    char *body = nullptr;
    bool thrown = false;
    stage.arrivals = arrivals;
    stage.calls.clear();
    stage.sent.clear();
    web_set_error("in place of the one before");
    const std::size_t descriptors = open_descriptors();
    const WebField fields[] = {{"a name", "a value"}, {"another name", "another value"}};
    tally = {};
    tally.fail_at = fail_at;
    tally.on = true;
    try {
        web_request("http://a-web-host-with-a-long-name:81/a-path", "POST", 2, fields, &header,
                    &body, nullptr, 0, "a user of the proxy", "a password of the proxy");
    } catch (const std::bad_alloc &) {
        thrown = true;
    }
    tally.fail_at = 0;
    std::free(header);
    std::free(body);
    web_set_error("in its place");
    tally.on = false;
    EXPECT_EQ(thrown, tally.failed);
    // The error set before was released by the request; the one set behind it takes its place.
    EXPECT_EQ(tally.live, 0);
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(count_of_calls("close"), count_of_calls("socket"));
    EXPECT_TRUE(!thrown || body == nullptr);
    return tally.failed;
}

TEST_F(WebTransactionUnderFaults, EachAllocationThatFailsThrowsAndLosesNothing)
{
    for (const auto &arrivals : endings()) {
        std::int64_t fail_at = 1;
        while (fails_cleanly(arrivals, fail_at) && !HasFailure())
            ++fail_at;
        // At the least the two copies: valgrind hides the operators new and delete from us.
        EXPECT_GT(fail_at, 1) << "allocations are not counted";
        EXPECT_FALSE(HasFailure()) << "with allocation " << fail_at << " failing";
    }
}

TEST_F(WebTransactionUnderFaults, AReplyCopyThatCannotBeMadeThrowsWithTheSocketClosed)
{
    // Lengths that nothing else has.
    const std::string header_text = std::string(4320, 'h') + "\n";
    const std::string body_text(5432, 'b');
    const struct {
        const char *name;
        std::size_t failing_size;
        bool header_delivered;
        long body_receives;
    } rows[] = {
        {"header", header_text.size() + 1, false, 0},
        {"body", body_text.size() + 1, true, 7},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        char *header = nullptr;
        char *body = nullptr;
        stage.calls.clear();
        stage.arrivals = {{header_text + "\n" + body_text}};
        tally = {};
        tally.failing_size = row.failing_size;
        tally.on = true;
        EXPECT_THROW(
            web_request(web_url, "GET", 0, nullptr, &header, &body, nullptr, 0, nullptr, nullptr),
            std::bad_alloc);
        tally.on = false;
        EXPECT_TRUE(tally.failed);
        EXPECT_EQ(taken(header), row.header_delivered ? Text(header_text) : none);
        EXPECT_EQ(taken(body), none);
        EXPECT_EQ(count_of_calls("recv 1023"), row.body_receives);
        EXPECT_EQ(count_of_calls("close"), 1);
        EXPECT_STREQ(web_last_error(), "");
    }
}

// An error that cannot be stored leaves the one before as it was.
TEST_F(WebTransactionUnderFaults, AnErrorTextThatCannotBeAllocatedThrowsAndKeepsTheLast)
{
    const std::string text(6543, 'x');
    web_set_error("the last");
    tally.failing_size = text.size() + 1;
    tally.on = true;
    EXPECT_THROW(web_set_error("%s", text.c_str()), std::bad_alloc);
    tally.on = false;
    EXPECT_STREQ(web_last_error(), "the last");
}

// Hundreds of exchanges over real sockets

struct MixedExchange {
    const char *name;
    PeerScript script; // empty where the exchange makes no connection
    std::string host;  // "PEER" stands for the peer's address
    bool through_proxy;
    bool cancelled;
    std::size_t limit; // of header and body
};

std::vector<MixedExchange> mixed_exchanges()
{
    const PeerStep read = {PeerAct::ReadRequest};
    const PeerStep header = {PeerAct::Send, "HTTP/1.0 200 OK\r\nServer: of some name\r\n\r\n"};
    const PeerStep body = {PeerAct::Send, std::string(3000, 'x')};
    const std::string refused = "127.0.0.1:" + std::to_string(refused_port());
    return {
        {"answered", {read, header, body}, "PEER", false, false, 9999},
        {"through a proxy", {read, header, body}, "web", true, false, 9999},
        {"closed at once", {read}, "PEER", false, false, 9999},
        {"reset at once", {{PeerAct::Reset}}, "PEER", false, false, 9999},
        {"reset in the body", {read, header, body, {PeerAct::Reset}}, "PEER", false, false, 9999},
        {"closed in mid-line", {read, {PeerAct::Send, "HTTP"}}, "PEER", false, false, 500},
        {"too long a body", {read, header, body}, "PEER", false, false, 1000},
        {"cancelled", {{PeerAct::Hold}}, "PEER", false, true, 9999},
        {"refused", {}, refused, false, false, 9999},
        {"not found", {}, "a..b", false, false, 9999},
    };
}

void run_mixed_exchange(const MixedExchange &exchange, const LoopbackPeer &peer)
{
    const WebField fields[] = {{"a name", "a value"}};
    const std::string host = exchange.host == "PEER" ? peer.address() : exchange.host;
    char *header = nullptr;
    char *body = nullptr;
    web_set_reply_limits(exchange.limit, exchange.limit);
    web_cancel_requested = exchange.cancelled ? 1 : 0;
    web_request(("http://" + host + "/path").c_str(), "POST", 1, fields, &header, &body,
                exchange.through_proxy ? "127.0.0.1" : nullptr, peer.port(), "a user",
                "a password");
    std::free(header);
    std::free(body);
}

TEST_F(WebTransactionUnderFaults, HundredsOfMixedExchangesLeaveNoDescriptorAndNoMemory)
{
    constexpr int rounds = 40;
    stage.scripted = false;
    const std::vector<MixedExchange> exchanges = mixed_exchanges();
    std::vector<PeerScript> scripts;
    for (int round = 0; round < rounds; ++round) {
        for (const MixedExchange &exchange : exchanges) {
            if (!exchange.script.empty())
                scripts.push_back(exchange.script);
        }
    }
    const std::size_t descriptors = open_descriptors();
    {
        LoopbackPeer peer(scripts);
        web_set_error("in place of the one before");
        tally.on = true;
        for (int round = 0; round < rounds; ++round) {
            for (const MixedExchange &exchange : exchanges)
                run_mixed_exchange(exchange, peer);
        }
        web_set_error("in its place");
        tally.on = false;
        peer.received(static_cast<int>(scripts.size()) - 1);
        EXPECT_EQ(peer.connection_count(), static_cast<int>(scripts.size()));
    }
    EXPECT_GT(tally.handed, 3 * rounds) << "allocations are not counted";
    EXPECT_EQ(tally.live, 0);
    EXPECT_EQ(open_descriptors(), descriptors);
}

} // namespace
} // namespace quintral
