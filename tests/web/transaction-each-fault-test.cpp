// Transactions with scripted system calls, of which one fails: each call, at each place where the
// client makes it, with each errno of its manual. Also sends that take a part of their bytes. Each
// row checks the result, the message, the number of calls, and that no block of memory and no
// descriptor is left.
#include "tests/harness/descriptors.h"
#include "tests/web/counted-memory.h"
#include "tests/web/scripted-calls.h"
#include "web/transaction.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/select.h>

namespace quintral {
namespace {

using namespace tests;

const std::string sample_header = "HTTP/1.0 200 OK\r\nA: b\r\n\r";
const std::string sample_body = "Version: 6\nMessage: m";
const WebCall sample_call = {web_url, "POST", {{"a", "b"}}, "proxy", 81, "user", "pass"};
const std::string sample_request =
    request_text("POST http://Web:81/p",
                 form_lines(3) + "Host: WEB\r\nAuthorization: Basic dXNlcjpwYXNz\r\n", "a=b");

std::string all_sent()
{
    std::string all;
    for (const std::string &piece : stage.sent)
        all += piece;
    return all;
}

// The number of calls of a function, whatever their arguments.
long calls_of(const std::string &function)
{
    return std::count_if(
        stage.calls.begin(), stage.calls.end(), [&function](const std::string &call) {
            return call.compare(0, call.find(' '), function) == 0; // the name, without arguments
        });
}

// Calls the client once and checks that nothing is left of the call. The first wait of the header
// ends in silence, so that the clock is read after it.
std::string call_with_a_fault(const Fault &fault)
{
    stage.now = usual_time;
    stage.fault = fault;
    stage.arrivals = {{sample_header, 0, 150 * millisecond}, {"\n"}, {sample_body, 0, 3 * second}};
    const std::size_t descriptors = open_descriptors();
    web_set_error("an earlier error");
    start_counting();
    const std::string result = call_scripted(sample_call);
    web_set_error("a later error"); // one block again
    memory_count.on = false;
    EXPECT_EQ(memory_count.live, 0);
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(count_of_calls("close"), stage.calls.size() == 1 ? 0 : 1); // 1: no socket
    EXPECT_EQ(stage.fault.number, 0) << "there is no such call";
    return result;
}

// Sends

using SendCount = std::size_t (*)(std::size_t length);

// The number of sends that these pieces take.
std::size_t sends_of(const std::vector<std::string> &pieces, SendCount send_count)
{
    std::size_t sends = 0;
    for (const std::string &piece : pieces) {
        for (std::size_t left = piece.size(); left > 0; left -= send_count(left))
            ++sends;
    }
    return sends;
}

TEST_F(WebTransactionUnderFaults, ASendThatTakesAPartIsFollowedByTheRest)
{
    EXPECT_EQ(call_with_a_fault({}), delivered(sample_header, sample_body));
    const std::vector<std::string> pieces = stage.sent;
    EXPECT_EQ(pieces.size(), 12u);
    const struct {
        const char *name;
        SendCount send_count;
    } rows[] = {
        {"one byte", [](std::size_t) { return std::size_t{1}; }},
        {"seven bytes", [](std::size_t size) { return std::min<std::size_t>(size, 7); }},
        {"all but one", [](std::size_t size) { return std::max<std::size_t>(size - 1, 1); }},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        stage.send_count = row.send_count;
        EXPECT_EQ(call_with_a_fault({}), delivered(sample_header, sample_body));
        EXPECT_EQ(all_sent(), sample_request);
        EXPECT_EQ(stage.sent.size(), sends_of(pieces, row.send_count));
    }
}

// A send that fails, of a piece that is sent one byte at a time: the rest of that piece is lost,
// and the next piece is sent. A signal is not a failure once the piece has begun.
TEST_F(WebTransactionUnderFaults, AfterAPartASignalLosesNothingAndAFailureTheRestOfThePiece)
{
    stage.send_count = [](std::size_t) { return std::size_t{1}; };
    const std::string after_the_method = sample_request.substr(5);
    const struct {
        int number; // of the send that fails: the first piece has five bytes
        int error;
        std::string sent;
    } rows[] = {
        {1, EINTR, after_the_method},       {2, EINTR, sample_request},
        {5, EINTR, sample_request},         {1, EPIPE, after_the_method},
        {2, EPIPE, "P" + after_the_method}, {5, ECONNRESET, "POST" + after_the_method},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(call_with_a_fault({"send", row.number, row.error}),
                  delivered(sample_header, sample_body));
        EXPECT_EQ(all_sent(), row.sent) << row.number << " " << row.error;
    }
}

std::size_t sends_until_cancel;

// Takes the pieces whole. At the last send before the cancel a signal leaves half of the piece.
std::size_t half_of_the_last(std::size_t length)
{
    if (--sends_until_cancel > 0)
        return length;
    web_cancel_requested = 1;
    return length / 2;
}

TEST_F(WebTransactionUnderFaults, AFlagSetWhileAPieceIsSentKeepsBackTheRestOfTheRequest)
{
    const struct {
        std::size_t sends;
        std::string sent;
    } rows[] = {
        {1, "PO"},
        {2, "POST http://"},
        {12, sample_request.substr(0, sample_request.size() - 2)},
    };
    stage.send_count = half_of_the_last;
    for (const auto &row : rows) {
        sends_until_cancel = row.sends;
        EXPECT_EQ(call_with_a_fault({}), cancelled()) << row.sends;
        EXPECT_EQ(all_sent(), row.sent);
        EXPECT_EQ(stage.sent.size(), row.sends);
        EXPECT_EQ(web_cancel_requested, 0);
    }
}

// The flag does not end sends that the peer takes at once. A signal that comes before the first
// byte of a piece leaves out that piece and, with the flag set, those after it.
TEST_F(WebTransactionUnderFaults, AFlagSetBeforeTheRequestEndsSendingOnlyAtASignal)
{
    web_cancel_requested = 1;
    EXPECT_EQ(call_with_a_fault({}), cancelled());
    EXPECT_EQ(all_sent(), sample_request);
    web_cancel_requested = 1;
    EXPECT_EQ(call_with_a_fault({"send", 2, EINTR}), cancelled());
    EXPECT_EQ(all_sent(), "POST ");
}

TEST_F(WebTransactionUnderFaults, ASendThatTakesNothingEndsItsPiece)
{
    stage.send_count = [](std::size_t) { return std::size_t{0}; };
    EXPECT_EQ(call_with_a_fault({}), delivered(sample_header, sample_body));
    EXPECT_EQ(stage.sent.size(), 12u);
}

// Each call

// The outcome of an exchange in which one call fails, from the number of that call.
using ExpectedOutcome = std::function<std::string(int number, int error)>;

struct FaultRow {
    const char *function;
    std::vector<int> errors;
    ExpectedOutcome expected;
};

std::string whole_outcome(int /*number*/, int /*error*/)
{
    return delivered(sample_header, sample_body);
}

bool is_transient(int error)
{
    return error == EINTR || error == EAGAIN;
}

// The receives: one for each byte of the header and for the final line feed, one for the body, and
// one that sees the close. An error in the header makes the rest of the reply the body.
std::string outcome_of_receive(int number, int error)
{
    const std::size_t position = static_cast<std::size_t>(number) - 1;
    const std::string rest = sample_header + "\n" + sample_body;
    if (position <= sample_header.size() && is_transient(error))
        return whole_outcome(number, error);
    if (position <= sample_header.size())
        return outcome(WebOk, rest.substr(0, position), rest.substr(position),
                       receive_error(error));
    if (!is_transient(error))
        return failed(receive_error(error), sample_header);
    return delivered(sample_header, position == sample_header.size() + 1 ? "" : sample_body);
}

// A clock that cannot be read counts as 1970, which is later than the usual time in the 32 bits of
// the clock: a deadline from it does not come, and one that is compared with it has passed. The
// clock is read before each wait for new data and after each silent wait. The only silent wait is
// the first one of the header: a wait of the body is longer than the silence there.
std::string outcome_of_clock(int number, int /*error*/)
{
    return number == 2 ? timed_out() : delivered(sample_header, sample_body);
}

std::vector<FaultRow> fault_rows()
{
    const auto no_socket = [](int, int error) {
        return failed("Can't create web socket, " + detail_of(error));
    };
    const auto no_host = [](int, int error) {
        return failed(std::string("Can't find web server 'WEB': ") + hstrerror(error));
    };
    const auto no_connection = [](int, int error) {
        return failed("Can't connect to web server 'WEB': " + detail_of(error));
    };
    return {
        {"socket",
         {EACCES, EAFNOSUPPORT, EINVAL, EMFILE, ENFILE, ENOBUFS, ENOMEM, EPROTONOSUPPORT, EINTR},
         no_socket},
        {"gethostbyname",
         {HOST_NOT_FOUND, NO_DATA, NO_RECOVERY, TRY_AGAIN, NETDB_INTERNAL},
         no_host},
        {"connect",
         {EACCES, EPERM, EADDRINUSE, EADDRNOTAVAIL, EAFNOSUPPORT, EAGAIN, EALREADY, EBADF,
          ECONNREFUSED, EFAULT, EINPROGRESS, EINTR, EISCONN, ENETUNREACH, ENOTSOCK, EPROTOTYPE,
          ETIMEDOUT, EHOSTUNREACH},
         no_connection},
        {"send",
         {EACCES, EAGAIN, EALREADY, EBADF, ECONNRESET, EDESTADDRREQ, EFAULT, EINTR, EINVAL, EISCONN,
          EMSGSIZE, ENOBUFS, ENOMEM, ENOTCONN, ENOTSOCK, EOPNOTSUPP, EPIPE},
         whole_outcome},
        {"select", {EBADF, EINTR, EINVAL, ENOMEM}, whole_outcome},
        {"recv",
         {EAGAIN, EBADF, ECONNREFUSED, ECONNRESET, EFAULT, EINTR, EINVAL, ENOMEM, ENOTCONN,
          ENOTSOCK, ETIMEDOUT, EIO},
         outcome_of_receive},
        {"close", {EBADF, EINTR, EIO, ENOSPC, EDQUOT}, whole_outcome},
        {"gettimeofday", {EFAULT, EINVAL, EINTR}, outcome_of_clock},
    };
}

// The number of places where a function is called in an exchange without a fault.
int places_of(const std::string &function)
{
    const std::string recorded = function == "gethostbyname" ? "lookup" : function;
    EXPECT_EQ(call_with_a_fault({}), delivered(sample_header, sample_body));
    return function == "gettimeofday" ? stage.clock_readings : static_cast<int>(calls_of(recorded));
}

void check_each_place(const FaultRow &row)
{
    const int places = places_of(row.function);
    EXPECT_GE(places, 1) << row.function;
    for (int number = 1; number <= places; ++number) {
        for (const int error : row.errors) {
            EXPECT_EQ(call_with_a_fault({row.function, number, error}), row.expected(number, error))
                << row.function << " " << number << ": " << detail_of(error);
        }
    }
}

TEST_F(WebTransactionUnderFaults, EachCallFailsOnceAtEachPlaceWithEachErrno)
{
    for (const FaultRow &row : fault_rows())
        check_each_place(row);
}

// A descriptor that does not fit into an fd_set is polled.
TEST_F(WebTransactionUnderFaults, EachPollFailsOnceWithEachErrno)
{
    ASSERT_TRUE(allow_descriptors(FD_SETSIZE + 1)) << too_few_descriptors;
    stage.descriptor_at_least = static_cast<int>(FD_SETSIZE);
    check_each_place({"poll", {EFAULT, EINTR, EINVAL, ENOMEM}, whole_outcome});
}

} // namespace
} // namespace quintral
