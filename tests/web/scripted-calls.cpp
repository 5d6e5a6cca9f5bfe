#include "tests/web/scripted-calls.h"

#include "tests/web/counted-memory.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

extern "C" {
hostent *__real_gethostbyname(const char *name);
int __real_gettimeofday(timeval *now, void *zone);
int __real___gettimeofday64(timeval *now, void *zone);
int __real_socket(int domain, int type, int protocol);
int __real_connect(int descriptor, const sockaddr *address, socklen_t size);
ssize_t __real_send(int descriptor, const void *bytes, size_t length, int flags);
ssize_t __real_recv(int descriptor, void *bytes, size_t size, int flags);
int __real_select(int range, fd_set *reads, fd_set *writes, fd_set *failures, timeval *timeout);
int __real___select64(int range, fd_set *reads, fd_set *writes, fd_set *failures, timeval *timeout);
int __real_poll(pollfd *entries, nfds_t count, int milliseconds);
int __real_close(int descriptor);
char *__real_strerror(int error);

hostent *__wrap_gethostbyname(const char *name);
int __wrap_gettimeofday(timeval *now, void *zone);
int __wrap___gettimeofday64(timeval *now, void *zone);
int __wrap_socket(int domain, int type, int protocol);
int __wrap_connect(int descriptor, const sockaddr *address, socklen_t size);
ssize_t __wrap_send(int descriptor, const void *bytes, size_t length, int flags);
ssize_t __wrap_recv(int descriptor, void *bytes, size_t size, int flags);
int __wrap_select(int range, fd_set *reads, fd_set *writes, fd_set *failures, timeval *timeout);
int __wrap___select64(int range, fd_set *reads, fd_set *writes, fd_set *failures, timeval *timeout);
int __wrap_poll(pollfd *entries, nfds_t count, int milliseconds);
int __wrap_close(int descriptor);
char *__wrap_strerror(int error);
}

namespace quintral::tests {

Stage stage;

namespace {

const pthread_t test_thread = pthread_self();

// A 32-bit program with 64-bit times (_TIME_BITS=64) calls select and gettimeofday under other
// names. Every build replaces both names, but the real function exists only under the one in use.
constexpr bool has_other_names = sizeof(time_t) > sizeof(long);

// The thread comes first: other threads must not read a record that the test is changing.
bool is_scripted()
{
    return pthread_equal(pthread_self(), test_thread) != 0 && stage.scripted;
}

// A client in an endless loop would fill the memory before any time limit ends it.
constexpr std::size_t call_limit = 1000000;

void record(const std::string &call)
{
    stage.calls.push_back(call);
    if (stage.calls.size() < call_limit)
        return;
    std::fputs("the exchange does not end\n", stderr);
    std::abort();
}

int fail_with(int error)
{
    errno = error;
    return -1;
}

// True if this call of the function is the one that fails.
bool is_faulty(const char *function)
{
    Fault &fault = stage.fault;
    return fault.number > 0 && fault.function == function && --fault.number == 0;
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
        std::string padded(16, '\0'); // as long as the longest h_length of a test
        inet_pton(AF_INET, address.c_str(), padded.data());
        bytes.push_back(padded);
    }
    for (std::string &padded : bytes)
        list.push_back(padded.data());
    list.push_back(nullptr);
    host = {};
    host.h_name = name;
    host.h_addrtype = stage.host.family;
    host.h_length = stage.host.length;
    host.h_addr_list = list.data();
    return &host;
}

// Advances the scripted clock to the next arrival, by at most the timeout. True if something has
// arrived.
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

int scripted_wait_result(const char *function, std::int64_t timeout)
{
    if (is_faulty(function))
        return fail_with(stage.fault.error);
    if (stage.wait_failures > 0) {
        --stage.wait_failures;
        return fail_with(EINTR);
    }
    return scripted_wait(timeout) ? 1 : 0;
}

int real_gettimeofday(timeval *now, void *zone)
{
    if constexpr (has_other_names)
        return __real___gettimeofday64(now, zone);
    else
        return __real_gettimeofday(now, zone);
}

int real_select(int range, fd_set *reads, fd_set *writes, fd_set *failures, timeval *timeout)
{
    if constexpr (has_other_names)
        return __real___select64(range, reads, writes, failures, timeout);
    else
        return __real_select(range, reads, writes, failures, timeout);
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

std::string call_scripted(const WebCall &call)
{
    stage.calls.clear();
    stage.clock_readings = 0;
    stage.sent.clear();
    return call_web(call);
}

long count_of_calls(const std::string &call)
{
    return std::count(stage.calls.begin(), stage.calls.end(), call);
}

CallList times(long count, const CallList &calls)
{
    CallList all;
    for (long i = 0; i < count; ++i)
        all.insert(all.end(), calls.begin(), calls.end());
    return all;
}

CallList joined(const std::vector<CallList> &lists)
{
    CallList all;
    for (const CallList &list : lists)
        all.insert(all.end(), list.begin(), list.end());
    return all;
}

void WebTransactionUnderFaults::SetUp()
{
    stage = {};
    stage.scripted = true;
}

void WebTransactionUnderFaults::TearDown()
{
    stage = {};
    memory_count = {};
    WebTransaction::TearDown();
}

} // namespace quintral::tests

using namespace quintral::tests;

hostent *__wrap_gethostbyname(const char *name)
{
    if (!is_scripted())
        return __real_gethostbyname(name);
    const CountingPause pause;
    record(std::string("lookup ") + name);
    errno = ENOENT; // as a resolver leaves it after looking for its files
    const bool faulty = is_faulty("gethostbyname");
    if (stage.host_error == 0 && !faulty)
        return scripted_host();
    h_errno = faulty ? stage.fault.error : stage.host_error;
    return nullptr;
}

int __wrap_gettimeofday(timeval *now, void *zone)
{
    if (!is_scripted())
        return real_gettimeofday(now, zone);
    ++stage.clock_readings;
    if (is_faulty("gettimeofday"))
        return fail_with(stage.fault.error);
    now->tv_sec = static_cast<time_t>(stage.now / second);
    now->tv_usec = static_cast<suseconds_t>(stage.now % second);
    return 0;
}

int __wrap___gettimeofday64(timeval *now, void *zone)
{
    return __wrap_gettimeofday(now, zone);
}

int __wrap_socket(int domain, int type, int protocol)
{
    if (!is_scripted())
        return __real_socket(domain, type, protocol);
    const CountingPause pause;
    record("socket");
    if (stage.socket_error != 0)
        return fail_with(stage.socket_error);
    if (is_faulty("socket"))
        return fail_with(stage.fault.error);
    const int made = __real_socket(domain, type, protocol);
    if (stage.descriptor_at_least == 0)
        return made;
    const int moved = fcntl(made, F_DUPFD_CLOEXEC, stage.descriptor_at_least);
    __real_close(made);
    return moved;
}

int __wrap_connect(int descriptor, const sockaddr *address, socklen_t size)
{
    if (!is_scripted())
        return __real_connect(descriptor, address, size);
    const CountingPause pause;
    sockaddr_in peer = {};
    std::memcpy(&peer, address, std::min<std::size_t>(size, sizeof peer));
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &peer.sin_addr, text, sizeof text);
    record("connect " + std::string(text) + ":" + std::to_string(ntohs(peer.sin_port)));
    if (is_faulty("connect"))
        return fail_with(stage.fault.error);
    return stage.connect_error == 0 ? 0 : fail_with(stage.connect_error);
}

ssize_t __wrap_send(int descriptor, const void *bytes, size_t length, int flags)
{
    if (!is_scripted())
        return __real_send(descriptor, bytes, length, flags);
    const CountingPause pause;
    // MSG_NOSIGNAL only suppresses SIGPIPE.
    record((flags & ~MSG_NOSIGNAL) == 0 ? "send" : "send with flags");
    if (is_faulty("send"))
        return fail_with(stage.fault.error);
    const size_t count = stage.send_count == nullptr ? length : stage.send_count(length);
    stage.sent.emplace_back(static_cast<const char *>(bytes), count);
    return stage.send_error == 0 ? static_cast<ssize_t>(count) : fail_with(stage.send_error);
}

ssize_t __wrap_recv(int descriptor, void *bytes, size_t size, int flags)
{
    if (!is_scripted())
        return __real_recv(descriptor, bytes, size, flags);
    const CountingPause pause;
    record("recv " + std::to_string(size));
    if (is_faulty("recv"))
        return fail_with(stage.fault.error);
    return scripted_receive(bytes, size);
}

int __wrap_select(int range, fd_set *reads, fd_set *writes, fd_set *failures, timeval *timeout)
{
    if (!is_scripted())
        return real_select(range, reads, writes, failures, timeout);
    const CountingPause pause;
    int in_set = 0;
    for (int descriptor = 0; descriptor < static_cast<int>(FD_SETSIZE); ++descriptor)
        in_set += FD_ISSET(descriptor, reads) ? 1 : 0;
    record("select " + std::to_string(range) + " " + std::to_string(timeout->tv_sec) + " s " +
           std::to_string(timeout->tv_usec) + " us");
    if (in_set != 1 || writes != nullptr || failures != nullptr)
        record("unexpected descriptor sets");
    const int result = scripted_wait_result("select", timeout->tv_sec * second + timeout->tv_usec);
    if (result == 0 || stage.wait_lies)
        FD_ZERO(reads);
    return result;
}

int __wrap___select64(int range, fd_set *reads, fd_set *writes, fd_set *failures, timeval *timeout)
{
    return __wrap_select(range, reads, writes, failures, timeout);
}

int __wrap_poll(pollfd *entries, nfds_t count, int milliseconds)
{
    if (!is_scripted())
        return __real_poll(entries, count, milliseconds);
    const CountingPause pause;
    record("poll " + std::to_string(milliseconds));
    if (count != 1 || entries->events != POLLIN)
        record("unexpected events");
    const int result = scripted_wait_result("poll", milliseconds * millisecond);
    entries->revents = result > 0 ? POLLIN : 0;
    return result;
}

int __wrap_close(int descriptor)
{
    if (!is_scripted())
        return __real_close(descriptor);
    const CountingPause pause;
    record("close");
    const int result = __real_close(descriptor);
    if (is_faulty("close"))
        return fail_with(stage.fault.error);
    errno = ENODEV; // a client that reads errno too late reports this one
    return result;
}

char *__wrap_strerror(int error)
{
    const bool replaced = is_scripted() && !stage.error_text.empty();
    return replaced ? stage.error_text.data() : __real_strerror(error);
}
