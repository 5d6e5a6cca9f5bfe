// The web client's system calls, replaced at link time (--wrap). A test can make each of them fail,
// script the data that arrives, and set the clock. The replacements act only on the thread that
// runs the tests and only while stage.scripted is set; otherwise the real calls are made.
//
//     stage.arrivals = {{"HTTP/1.0 200 OK\n\n"}, {"", ECONNRESET}};
//     EXPECT_EQ(call_scripted(), outcome(...));
//     EXPECT_EQ(count_of_calls("close"), 1);
#ifndef QUINTRAL_TESTS_WEB_SCRIPTED_CALLS_H
#define QUINTRAL_TESTS_WEB_SCRIPTED_CALLS_H

#include "tests/web/transaction-calls.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <string>
#include <vector>

#include <sys/socket.h>

namespace quintral::tests {

constexpr std::int64_t forever = std::numeric_limits<std::int64_t>::max() / 4;
constexpr std::int64_t millisecond = 1000; // of the scripted clock, which counts microseconds
constexpr std::int64_t second = 1000 * millisecond;
constexpr std::int64_t usual_time = 1763700000 * second + 123456;

// The next event on the scripted connection: a silence, then bytes or an error.
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

// One call that fails: the `number`-th one, counted from 1, of the function with this name.
struct Fault {
    std::string function;
    int number = 0; // 0 for none; counts down
    int error = 0;  // errno, h_errno for gethostbyname
};

// What the client sees while it is scripted, and what it did.
struct Stage {
    bool scripted = false;
    std::vector<std::string> calls; // in order, with the arguments that matter
    int clock_readings = 0;         // which are not among the calls
    std::vector<std::string> sent;  // one entry for each send
    std::deque<Arrival> arrivals;   // the server closes the connection after the last one
    std::int64_t now = usual_time;  // microseconds since 1970
    std::int64_t clock_jump = 0;    // added to the clock by the next wait that ends in silence

    FoundHost host;
    int host_error = 0; // h_errno of a lookup that fails
    int socket_error = 0;
    int connect_error = 0;
    int send_error = 0;
    std::size_t (*send_count)(std::size_t length) = nullptr; // that a send takes; null for all
    Fault fault;
    int wait_failures = 0;       // that many waits fail with EINTR
    bool wait_lies = false;      // select reports a descriptor and returns an empty set
    int descriptor_at_least = 0; // the socket's descriptor is at least this number
    std::string error_text;      // what strerror returns, unless empty
};

extern Stage stage;

// How the waits of the two phases are recorded among the calls.
inline const std::string header_wait = "select 1024 0 s 100000 us";
inline const std::string body_wait = "select 1024 10 s 0 us";

inline const char *const web_url = "http://Web:81/p";

// Calls web_request after clearing the recorded calls; the rest of the stage stays.
std::string call_scripted(const WebCall &call = {web_url});

long count_of_calls(const std::string &call);

// Lists of calls to compare with stage.calls: a list repeated, and several lists joined.
using CallList = std::vector<std::string>;
CallList times(long count, const CallList &calls);
CallList joined(const std::vector<CallList> &lists);

class WebTransactionUnderFaults : public WebTransaction {
protected:
    void SetUp() override;
    void TearDown() override;
};

} // namespace quintral::tests

#endif
