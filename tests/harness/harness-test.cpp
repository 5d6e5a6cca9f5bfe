// Tests of the test tools: child processes and the scripted peer.
#include "tests/harness/child-process.h"
#include "tests/harness/descriptors.h"
#include "tests/harness/loopback-peer.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

namespace quintral::tests {
namespace {

using Clock = std::chrono::steady_clock;

long long milliseconds_since(Clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// A plain client. The time limits of its socket bound every wait.
struct Client {
    int descriptor = -1;
    explicit Client(std::uint16_t port)
    {
        descriptor = socket(AF_INET, SOCK_STREAM, 0);
        const timeval limit = {10, 0};
        setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port);
        if (connect(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
            finish(); // every later call fails with EBADF
    }
    ~Client()
    {
        finish();
    }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;
    void finish()
    {
        if (descriptor >= 0)
            close(descriptor);
        descriptor = -1;
    }
    void send_text(const std::string &text) const
    {
        EXPECT_EQ(send(descriptor, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    }
    // Returns the bytes up to the peer's close. *error is 0, or the errno of a failure.
    std::string read_all(int *error) const
    {
        std::string all;
        char chunk[4096];
        ssize_t count = 0;
        while ((count = recv(descriptor, chunk, sizeof chunk, 0)) > 0)
            all.append(chunk, static_cast<std::size_t>(count));
        *error = count == 0 ? 0 : errno;
        return all;
    }
    // True if nothing arrives for that long.
    bool stays_silent(int milliseconds) const
    {
        pollfd polled = {descriptor, POLLIN, 0};
        return poll(&polled, 1, milliseconds) == 0;
    }
};

TEST(LoopbackPeer, ReadRequestEndsAtTheEmptyLineAndForAPostAfterTheBody)
{
    const struct {
        const char *request;
        const char *rest; // the peer waits for this before it answers
    } rows[] = {
        {"GET / HTTP/1.0\r\nContent-Length: 5\r\n", "\r\n"},
        {"POST / HTTP/1.0\r\nContent-Length: 5\r\n\r\nabcd", "e"},
        {"POST / HTTP/1.0\r\ncONTENT-lENGTH:5\r\n\r\nabcd", "e"},
        {"POST / HTTP/1.0\r\nHost: A\r\n", "\r\n"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.request);
        LoopbackPeer peer({{{PeerAct::ReadRequest}, {PeerAct::Send, "answer"}}});
        Client client(peer.port());
        client.send_text(row.request);
        EXPECT_TRUE(client.stays_silent(100));
        client.send_text(row.rest);
        int error = -1;
        EXPECT_EQ(client.read_all(&error), "answer");
        EXPECT_EQ(error, 0);
        client.finish();
        EXPECT_EQ(peer.received(0), std::string(row.request) + row.rest);
    }
}

TEST(LoopbackPeer, TwoReadRequestsReadOneRequestEach)
{
    LoopbackPeer peer({{{PeerAct::ReadRequest},
                        {PeerAct::Send, "first "},
                        {PeerAct::ReadRequest},
                        {PeerAct::Send, "second"}}});
    Client client(peer.port());
    client.send_text("GET /1 HTTP/1.0\r\n\r\nGET /2 HTTP/1.0\r\n");
    EXPECT_TRUE(peer.wait_for_text(0, "/2", 5000));
    client.send_text("\r\n");
    int error = -1;
    EXPECT_EQ(client.read_all(&error), "first second");
}

TEST(LoopbackPeer, PauseWaitsAndRecords)
{
    LoopbackPeer peer({{{PeerAct::Pause, "", 300}, {PeerAct::Send, "late"}}});
    const auto start = Clock::now();
    Client client(peer.port());
    client.send_text("early");
    EXPECT_TRUE(peer.wait_for_text(0, "early", 5000));
    int error = -1;
    EXPECT_EQ(client.read_all(&error), "late");
    EXPECT_GE(milliseconds_since(start), 295);
}

TEST(LoopbackPeer, TrickleSendsOneByteAtATime)
{
    LoopbackPeer peer({{{PeerAct::Trickle, "abc", 100}}});
    const auto start = Clock::now();
    Client client(peer.port());
    const long long earliest[] = {0, 95, 195};
    for (int i = 0; i < 3; ++i) {
        char byte = 0;
        EXPECT_EQ(recv(client.descriptor, &byte, 1, 0), 1);
        EXPECT_EQ(byte, "abc"[i]);
        EXPECT_GE(milliseconds_since(start), earliest[i]);
    }
}

TEST(LoopbackPeer, SendForeverEndsWithTheClient)
{
    LoopbackPeer peer({{{PeerAct::SendForever, std::string(100000, 'x')}}});
    Client client(peer.port());
    char chunk[4096];
    for (int i = 0; i < 1000; ++i)
        ASSERT_GT(recv(client.descriptor, chunk, sizeof chunk, 0), 0);
    client.finish();
    EXPECT_EQ(peer.received(0), "");
}

TEST(LoopbackPeer, SendForeverEndsWithThePeer)
{
    const auto start = Clock::now();
    {
        LoopbackPeer peer({{{PeerAct::SendForever, "x"}}});
        Client client(peer.port());
        char byte = 0;
        EXPECT_EQ(recv(client.descriptor, &byte, 1, 0), 1);
    }
    EXPECT_LT(milliseconds_since(start), 5000);
}

TEST(LoopbackPeer, CloseIsCleanAsAStepAndAtTheEndEvenWithUnreadBytes)
{
    const PeerScript scripts[] = {
        {{PeerAct::Send, "bye"}},
        {{PeerAct::Send, "bye"}, {PeerAct::Close}, {PeerAct::Send, "never"}},
    };
    for (const PeerScript &script : scripts) {
        LoopbackPeer peer({script});
        Client client(peer.port());
        client.send_text(std::string(200000, 'u'));
        int error = -1;
        EXPECT_EQ(client.read_all(&error), "bye");
        EXPECT_EQ(error, 0);
        client.send_text("more");
        client.finish();
        EXPECT_EQ(peer.received(0), std::string(200000, 'u') + "more");
    }
}

TEST(LoopbackPeer, ResetArrivesAsAReset)
{
    LoopbackPeer peer({{{PeerAct::ReadRequest}, {PeerAct::Reset}}});
    Client client(peer.port());
    client.send_text("GET / HTTP/1.0\r\n\r\n");
    int error = -1;
    EXPECT_EQ(client.read_all(&error), "");
    EXPECT_EQ(error, ECONNRESET);
    EXPECT_EQ(peer.received(0), "GET / HTTP/1.0\r\n\r\n");
}

TEST(LoopbackPeer, HoldStaysSilentUntilTheClientCloses)
{
    LoopbackPeer peer({{{PeerAct::Hold}}});
    Client client(peer.port());
    client.send_text("anybody?");
    EXPECT_TRUE(client.stays_silent(200));
    client.finish();
    EXPECT_EQ(peer.received(0), "anybody?");
}

TEST(LoopbackPeer, HoldEndsWithThePeer)
{
    const auto start = Clock::now();
    {
        LoopbackPeer peer({{{PeerAct::Hold}}});
        Client client(peer.port());
        client.send_text("x");
        EXPECT_TRUE(peer.wait_for_text(0, "x", 5000));
    }
    EXPECT_LT(milliseconds_since(start), 5000);
}

TEST(LoopbackPeer, IgnoreReadsNothingUntilItsTimeIsOver)
{
    const auto start = Clock::now();
    LoopbackPeer peer({{{PeerAct::Ignore, "", 300}, {PeerAct::Hold}}});
    Client client(peer.port());
    client.send_text("unread");
    EXPECT_TRUE(peer.wait_for_text(0, "unread", 5000));
    EXPECT_GE(milliseconds_since(start), 295);
}

TEST(LoopbackPeer, ConnectionsPlayTheirScriptsInParallelAndThenTheLastOne)
{
    LoopbackPeer peer({{{PeerAct::Hold}}, {{PeerAct::Send, "second"}}, {{PeerAct::Send, "last"}}});
    Client held(peer.port());
    const char *const expected[] = {"second", "last", "last"};
    for (const char *text : expected) {
        Client client(peer.port());
        int error = -1;
        EXPECT_EQ(client.read_all(&error), text);
    }
    EXPECT_EQ(peer.connection_count(), 4);
    EXPECT_EQ(peer.address(), "127.0.0.1:" + std::to_string(peer.port()));
}

TEST(LoopbackPeer, AMissingConnectionFailsTheTest)
{
    EXPECT_NONFATAL_FAILURE(
        {
            LoopbackPeer peer({{{PeerAct::Hold}}});
            EXPECT_EQ(peer.received(0), "");
        },
        "connection 0 never came");
}

TEST(LoopbackPeer, LeavesNoDescriptorOpenAfterManyConnections)
{
    const std::size_t before = open_descriptors();
    {
        LoopbackPeer peer({{{PeerAct::Send, "x"}}, {{PeerAct::Reset}}});
        for (int i = 0; i < 500; ++i) {
            Client client(peer.port());
            int error = 0;
            client.read_all(&error);
        }
        peer.received(499);
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST(LoopbackPeer, AForkedChildDoesNotKeepAConnectionOpen)
{
    LoopbackPeer peer({{{PeerAct::ReadRequest}, {PeerAct::Reset}}});
    Client client(peer.port());
    client.send_text("GET / HTTP/1.0\r\n");
    EXPECT_TRUE(peer.wait_for_text(0, "GET", 5000));
    Child child = child_start_function([] {
        std::fputs("up\n", stdout);
        std::fflush(stdout);
        poll(nullptr, 0, 20000);
        return 0;
    });
    EXPECT_TRUE(child_wait_for_text(child, "up", 5000));
    client.send_text("\r\n");
    int error = -1;
    client.read_all(&error);
    EXPECT_EQ(error, ECONNRESET);
    child_signal(child, SIGKILL);
    EXPECT_EQ(child_wait(child).signal, SIGKILL);
}

TEST(RefusedPort, RefusesConnections)
{
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(refused_port());
    EXPECT_NE(refused_port(), 0);
    EXPECT_EQ(connect(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    close(descriptor);
}

TEST(ChildProcess, BothStreamsAndTheStatusArriveSeparately)
{
    const ChildResult result =
        run_child({"/bin/sh", "-c", "printf 'a\\nb'; printf 'c' >&2; exit 7"});
    EXPECT_EQ(result.output, "a\nb");
    EXPECT_EQ(result.error, "c");
    EXPECT_EQ(result.exit_status, 7);
    EXPECT_EQ(result.signal, 0);
    EXPECT_FALSE(result.timed_out);
}

TEST(ChildProcess, ATerminalPassesBytesAsTheyAreWritten)
{
    ChildOptions options;
    options.output = ChildStream::Terminal;
    options.error = ChildStream::Terminal;
    const ChildResult result = run_child_function(
        [] {
            std::fputs("out\n\001", stdout);
            std::fputs("error\n\r", stderr);
            return isatty(1) != 0 && isatty(2) != 0 && isatty(0) == 0 ? 0 : 1;
        },
        options);
    EXPECT_EQ(result.output, "out\n\001");
    EXPECT_EQ(result.error, "error\n\r");
    EXPECT_EQ(result.exit_status, 0);
}

// Writes one byte to standard output. Returns 0 or the errno, ETIMEDOUT if the write would block.
int write_error()
{
    pollfd polled = {1, POLLOUT, 0};
    if (fcntl(1, F_GETFD) >= 0 && poll(&polled, 1, 100) == 0)
        return ETIMEDOUT;
    return write(1, "x", 1) == 1 ? 0 : errno;
}

TEST(ChildProcess, EachStreamFailsInItsOwnWay)
{
    const struct {
        const char *name;
        ChildStream stream;
        int expected;
    } rows[] = {
        {"pipe", ChildStream::Pipe, 0},
        {"terminal", ChildStream::Terminal, 0},
        {"closed", ChildStream::Closed, EBADF},
        {"full disk", ChildStream::FullDisk, ENOSPC},
        {"broken", ChildStream::BrokenPipe, EPIPE},
        {"stalled", ChildStream::StalledPipe, ETIMEDOUT},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        ChildOptions options;
        options.output = row.stream;
        options.ignored_signals = {SIGPIPE};
        EXPECT_EQ(run_child_function(write_error, options).exit_status, row.expected);
    }
}

TEST(ChildProcess, AWriteToAStalledPipeBlocks)
{
    ChildOptions options;
    options.output = ChildStream::StalledPipe;
    const ChildResult result = run_child_function(
        [] {
            alarm(1); // ends the write below, which blocks
            return write(1, "x", 1) == 1 ? 1 : 2;
        },
        options);
    EXPECT_EQ(result.signal, SIGALRM);
}

TEST(ChildProcess, SignalsAreDefaultAndUnblockedByDefault)
{
    struct sigaction before = {};
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    ASSERT_EQ(sigaction(SIGTERM, &ignore, &before), 0);
    ChildOptions ignored;
    ignored.ignored_signals = {SIGTERM};
    ChildOptions blocked;
    blocked.blocked_signals = {SIGTERM};
    const std::vector<std::string> script = {"/bin/sh", "-c", "kill -TERM $$; exit 5"};
    EXPECT_EQ(run_child(script).signal, SIGTERM);
    EXPECT_EQ(run_child(script, ignored).exit_status, 5);
    EXPECT_EQ(run_child(script, blocked).exit_status, 5);
    sigaction(SIGTERM, &before, nullptr);
}

TEST(ChildProcess, TheEnvironmentIsTheTestsOwnWithTheGivenChanges)
{
    ASSERT_EQ(setenv("TOOLS_KEPT", "kept", 1), 0);
    ASSERT_EQ(setenv("TOOLS_CHANGED", "old", 1), 0);
    ChildOptions options;
    options.environment = {{"TOOLS_CHANGED", "new"}, {"TOOLS_ADDED", "added"}};
    const std::string script = "echo $TOOLS_KEPT $TOOLS_CHANGED $TOOLS_ADDED; env | grep -c TOOLS_";
    EXPECT_EQ(run_child({"/bin/sh", "-c", script}, options).output, "kept new added\n3\n");
}

TEST(ChildProcess, PrepareRunsInTheChildOnly)
{
    ChildOptions options;
    options.prepare = [] {
        if (chdir("/") != 0)
            _exit(99);
    };
    EXPECT_EQ(run_child({"pwd"}, options).output, "/\n");
    char folder[4096] = {};
    ASSERT_NE(getcwd(folder, sizeof folder), nullptr);
    EXPECT_STRNE(folder, "/");
}

TEST(ChildProcess, AnExceptionInAFunctionEndsTheChild)
{
    const ChildResult result =
        run_child_function([]() -> int { throw std::runtime_error("leaves"); });
    EXPECT_EQ(result.signal, SIGABRT);
}

TEST(ChildProcess, AChildThatOutlivesItsLimitIsKilledAndFailsTheTest)
{
    ChildResult result;
    ChildOptions options;
    options.limit_seconds = 1;
    const auto start = Clock::now();
    EXPECT_NONFATAL_FAILURE(result =
                                run_child({"/bin/sh", "-c", "echo begun; exec sleep 25"}, options),
                            "longer than 1 s");
    EXPECT_LT(milliseconds_since(start), 15000);
    EXPECT_TRUE(result.timed_out);
    EXPECT_EQ(result.signal, SIGKILL);
    EXPECT_EQ(result.output, "begun\n");
}

TEST(ChildProcess, AMissingProgramFailsTheTest)
{
    Child child;
    EXPECT_NONFATAL_FAILURE(child = child_start({"/nowhere/at-all"}), "can't run /nowhere/at-all");
    EXPECT_EQ(child.process_id, -1);
    EXPECT_EQ(child_wait(child).exit_status, -1);
}

TEST(ChildProcess, WaitsForTextNoLongerThanTheGivenLimit)
{
    Child child = child_start({"/bin/sh", "-c", "echo ready >&2; exec sleep 25"});
    EXPECT_TRUE(child_wait_for_text(child, "ready", 5000));
    EXPECT_FALSE(child_wait_for_text(child, "never", 100));
    child_signal(child, SIGTERM);
    child_wait(child);
}

TEST(ChildProcess, LeavesNoDescriptorOpen)
{
    const std::size_t before = open_descriptors();
    const ChildStream streams[] = {ChildStream::Pipe,       ChildStream::Terminal,
                                   ChildStream::Closed,     ChildStream::FullDisk,
                                   ChildStream::BrokenPipe, ChildStream::StalledPipe};
    for (ChildStream stream : streams) {
        ChildOptions options;
        options.output = stream;
        options.error = stream;
        run_child({"/bin/sh", "-c", "exit 0"}, options);
        run_child_function([] { return 0; }, options);
    }
    EXPECT_EQ(open_descriptors(), before);
}

} // namespace
} // namespace quintral::tests
