// Standard streams that fail, block, or are closed.
#include "tool/options.h"
#include "tool/streams.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "tests/harness/refused-call.h"
#include "tests/tool/interrupts.h"
#include "tests/tool/json-line.h"
#include "tests/tool/query.h"
#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {
namespace {

std::string output_error(int error)
{
    return error_line("Can't write standard output, code " + std::to_string(error) + ": " +
                      std::strerror(error));
}

TEST(ToolStreams, AnOutputThatCannotBeWrittenEndsWithStatus1)
{
    const struct {
        ChildStream output;
        int error;
    } rows[] = {
        {ChildStream::FullDisk, ENOSPC},
        {ChildStream::Closed, EBADF},
        {ChildStream::BrokenPipe, EPIPE},
    };
    const Strings commands[] = {{}, {"-json"}, {"-quiet"}, {"-exit-code", "-product-version=5"}};
    const PeerScript script = sending(reply_of("Version: 5.3\nMessage: Hello\n"));
    for (const auto &row : rows) {
        const ChildOptions options = with_output(row.output);
        for (const Strings &arguments : commands)
            expect_ended(ask(script, arguments, options).result, 1, "", output_error(row.error),
                         testing::PrintToString(arguments));
        expect_ended(run_tool({"-help"}, options), 1, "", output_error(row.error));
        expect_ended(run_tool({"-version"}, options), 1, "", output_error(row.error));
        expect_ended(ask(sending("HTTP/1.0 404 No\r\n\r\n"), {"-json"}, options).result, 1, "",
                     error_line("Bad HTTP status 404 from web site: No") + output_error(row.error));
    }
}

TEST(ToolStreams, AStandardErrorThatCannotBeWrittenHasNoOtherEffect)
{
    const PeerScript answer = sending(reply_of("Message: Hello\n"));
    const PeerScript long_answer = sending(reply_of("Message: " + std::string(70000, 'm')));
    for (const ChildStream error :
         {ChildStream::FullDisk, ChildStream::Closed, ChildStream::BrokenPipe}) {
        const ChildOptions options = with_error(error);
        expect_ended(ask(answer, {}, options).result, 0, "Hello\n", "");
        expect_ended(ask(long_answer, {}, options).result, 0, std::string(65535, 'm') + "\n", "");
        const Exchange failed = ask(sending("HTTP/1.0 404 No\r\n\r\n"), {"-json"}, options);
        expect_ended(failed.result, 1,
                     unanswered_json("failed", 1, "Bad HTTP status 404 from web site: No",
                                     {"http-status", 404, failed.address}),
                     "");
        expect_ended(run_tool({"-nonsense"}, options), 2, "", "");
        const Exchange interrupted = interrupt_exchange(holding(), SIGINT, {"-json"}, options);
        expect_ended_by(interrupted.result, SIGINT, cancelled_json(SIGINT, interrupted.address),
                        "");
    }
}

TEST(ToolStreams, AClosedStandardInputHasNoEffect)
{
    ChildOptions options;
    options.prepare = [] { close(STDIN_FILENO); };
    expect_ended(ask(sending(reply_of("Message: Hello\n")), {"-quiet"}, options).result, 0,
                 "Hello\n", "");
}

ChildOptions with_closed_streams()
{
    ChildOptions options;
    options.output = ChildStream::Closed;
    options.error = ChildStream::Closed;
    options.prepare = [] { close(STDIN_FILENO); };
    return options;
}

// If the socket got the number of a standard stream, the service would receive the messages.
TEST(ToolStreams, NoOutputIsSentToTheServiceIfTheStreamsAreClosed)
{
    const ChildOptions options = with_closed_streams();
    const Exchange answered =
        ask(sending(reply_of("Message: " + std::string(70000, 'm'))), {}, options);
    EXPECT_EQ(answered.request, request_of({answered.address, default_values()}));
    EXPECT_EQ(answered.result.exit_status, 1);
    const Exchange limited = ask(holding(), {"-max-time", "1", "-json"}, options);
    EXPECT_EQ(limited.request, request_of({limited.address, default_values()}));
}

TEST(ToolStreams, ClosedStreamsAreOpenedOnTheNullDevice)
{
    const LoopbackPeer peer({holding()});
    Child child = start_tool({"-service", peer.address()}, with_closed_streams());
    ASSERT_TRUE(peer.wait_for_text(0, request_end(), patience));
    for (const char *number : {"0", "1", "2"}) {
        char target[256] = "";
        const std::string link = "/proc/" + std::to_string(child.process_id) + "/fd/" + number;
        EXPECT_GT(readlink(link.c_str(), target, sizeof target - 1), 0) << std::strerror(errno);
        EXPECT_STREQ(target, "/dev/null") << "descriptor " << number;
    }
    child_signal(child, SIGTERM);
    EXPECT_EQ(child_wait(child).signal, SIGTERM);
}

TEST(ToolStreams, HostileBytesAreEscapedOnATerminalToo)
{
    ChildOptions options;
    options.output = ChildStream::Terminal;
    options.error = ChildStream::Terminal;
    expect_ended(ask(sending(reply_of("Message: \x1B[2J\xC2\x9B\n")), {"-quiet"}, options).result,
                 0, "\\x1B[2J\\xC2\\x9B\n", "");
    expect_ended(ask(sending("HTTP/1.0 404 \x1B[2J\r\n\r\n"), {"-quiet"}, options).result, 1, "",
                 error_line("Bad HTTP status 404 from web site: \\x1B[2J"));
}

std::string read_to_end(int descriptor)
{
    std::string bytes;
    char buffer[4096];
    for (;;) {
        const ssize_t count = read(descriptor, buffer, sizeof buffer);
        if (count <= 0)
            return bytes;
        bytes.append(buffer, static_cast<std::size_t>(count));
    }
}

// The process that started the utility may have made the pipe non-blocking, and read it slowly.
TEST(ToolStreams, ANonBlockingOutputIsWrittenInFull)
{
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0) << std::strerror(errno);
    ASSERT_EQ(fcntl(ends[1], F_SETFL, O_WRONLY | O_NONBLOCK), 0) << std::strerror(errno);
    ChildOptions options;
    options.prepare = [&ends] { dup2(ends[1], STDOUT_FILENO); };
    const std::string message(60000, 'm');
    const std::string url(60000, 'u'); // together they do not fit into a pipe
    const LoopbackPeer peer({sending(reply_of("URL: " + url + "\nMessage: " + message))});
    Child child = start_tool({"-service", peer.address(), "-quiet"}, options);
    close(ends[1]);
    EXPECT_FALSE(peer.received(0).empty());
    poll(nullptr, 0, 500);
    EXPECT_EQ(read_to_end(ends[0]), "URL: " + url + "\n" + message + "\n");
    close(ends[0]);
    expect_ended(child_wait(child), 0, "", "");
}

TEST(ToolStreams, AMessageKeeps1003BytesOfItsText)
{
    const ChildResult result = run_child_function([] {
        show_message(Note, std::string(2000, 'x').c_str());
        return 0;
    });
    EXPECT_EQ(result.error, note_line(std::string(1003, 'x')));
}

// A non-blocking pipe that is full when the utility starts.
struct FullPipe {
    int ends[2] = {-1, -1};
    std::size_t filled = 0;

    FullPipe()
    {
        if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
            ADD_FAILURE() << "no pipe: " << std::strerror(errno);
        while (write(ends[1], "x", 1) == 1)
            ++filled;
    }

    ~FullPipe()
    {
        close(ends[0]);
    }

    FullPipe(const FullPipe &) = delete;
    FullPipe &operator=(const FullPipe &) = delete;
};

// Runs the utility with a full pipe as one of its streams, and reads the pipe only after a while.
// Returns what the utility has written.
std::string run_with_full_pipe(int stream, const Strings &arguments, int status)
{
    FullPipe pipe;
    ChildOptions options;
    options.prepare = [&pipe, stream] { dup2(pipe.ends[1], stream); };
    Child child = start_tool(arguments, options);
    close(pipe.ends[1]);
    poll(nullptr, 0, 500);
    EXPECT_EQ(fcntl(pipe.ends[0], F_SETFL, O_RDONLY), 0) << std::strerror(errno);
    const std::string bytes = read_to_end(pipe.ends[0]);
    const ChildResult result = child_wait(child);
    EXPECT_EQ(result.exit_status, status) << result.output << result.error;
    EXPECT_EQ(result.output + result.error, "");
    return bytes.substr(std::min(pipe.filled, bytes.size()));
}

TEST(ToolStreams, AMessageOnANonBlockingStreamIsWrittenInFull)
{
    const std::string refused = "127.0.0.1:" + std::to_string(refused_port());
    EXPECT_EQ(run_with_full_pipe(STDERR_FILENO, {"-service", refused, "-proxy", ":1"}, 1),
              error_line(refused_text()));
    EXPECT_EQ(run_with_full_pipe(STDERR_FILENO, {"-bogus"}, 2),
              error_line("Unknown option -bogus") + usage_text());
    EXPECT_EQ(run_with_full_pipe(STDOUT_FILENO, {"-help"}, 0), usage_text());
    EXPECT_EQ(run_with_full_pipe(STDOUT_FILENO, {"-version"}, 0), version_line());
}

// The last byte finds the pipe full, and a signal without effect ends the wait for its reader.
TEST(ToolStreams, TheLastByteIsWrittenToANonBlockingPipeAfterASignal)
{
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0) << std::strerror(errno);
    const int room = fcntl(ends[1], F_SETPIPE_SZ, 4096);
    ASSERT_GE(room, 4096) << std::strerror(errno);
    const std::string message(static_cast<std::size_t>(room), 'm');
    ChildOptions options;
    options.prepare = [&ends] { dup2(ends[1], STDOUT_FILENO); };
    const LoopbackPeer peer({sending(reply_of("Message: " + message))});
    Child child = start_tool({"-service", peer.address(), "-quiet"}, options);
    close(ends[1]);
    int filled = 0;
    for (int waited = 0; filled < room && waited < patience; waited += 10) {
        poll(nullptr, 0, 10);
        ASSERT_EQ(ioctl(ends[0], FIONREAD, &filled), 0) << std::strerror(errno);
    }
    EXPECT_EQ(filled, room);
    for (int i = 0; i < 3; ++i) {
        poll(nullptr, 0, 50);
        child_signal(child, SIGALRM);
    }
    poll(nullptr, 0, 50);
    EXPECT_EQ(fcntl(ends[0], F_SETFL, O_RDONLY), 0) << std::strerror(errno);
    EXPECT_EQ(read_to_end(ends[0]), message + "\n");
    close(ends[0]);
    expect_ended(child_wait(child), 0, "", "");
}

// A pipe of one page can hold all of the text, but counts as full after its first line.
TEST(ToolStreams, HelpFillsAPipeThatNobodyReads)
{
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0) << std::strerror(errno);
    ASSERT_GE(fcntl(ends[1], F_SETPIPE_SZ, 4096), 4096) << std::strerror(errno);
    ChildOptions options;
    options.prepare = [&ends] { dup2(ends[1], STDOUT_FILENO); };
    options.limit_seconds = 10;
    expect_ended(run_tool({"-help"}, options), 0, "", "");
    close(ends[1]);
    EXPECT_EQ(read_to_end(ends[0]), usage_text());
    close(ends[0]);
}

TEST(ToolStreams, HelpNeedsLittleStack)
{
    ChildOptions options;
    options.prepare = [] {
        const rlimit limit = {std::size_t{128} * 1024, std::size_t{128} * 1024};
        setrlimit(RLIMIT_STACK, &limit);
    };
    expect_ended(run_tool({"-help"}, options), 0, usage_text(), "");
}

// The terminal has hung up, so that a write fails before the flush does.
TEST(ToolStreams, HelpThatCannotBeWrittenEndsWithStatus1)
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(master, 0) << std::strerror(errno);
    ASSERT_EQ(grantpt(master), 0) << std::strerror(errno);
    ASSERT_EQ(unlockpt(master), 0) << std::strerror(errno);
    const int terminal = open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(terminal, 0) << std::strerror(errno);
    close(master);
    ChildOptions options;
    options.prepare = [terminal] { dup2(terminal, STDOUT_FILENO); };
    expect_ended(run_tool({"-help"}, options), 1, "", output_error(EIO));
    close(terminal);
}

TEST(ToolStreams, AnEmptyAnswerDoesNotTouchTheOutput)
{
    const PeerScript script = sending(reply_of("Message: "));
    for (const ChildStream output : {ChildStream::FullDisk, ChildStream::BrokenPipe})
        expect_ended(ask(script, {"-quiet"}, with_output(output)).result, 0, "", "");
}

TEST(ToolStreams, AnOutputAtItsSizeLimitEndsWithStatus1)
{
    const std::string text = "Hello, hello\n";
    for (const std::size_t limit : {std::size_t{10}, text.size() - 1}) {
        std::FILE *file = std::tmpfile();
        ASSERT_NE(file, nullptr) << std::strerror(errno);
        const int descriptor = fileno(file);
        ChildOptions options;
        options.prepare = [descriptor, limit] {
            limit_resource(RLIMIT_FSIZE, limit);
            dup2(descriptor, STDOUT_FILENO);
        };
        expect_ended(ask(sending(reply_of("Message: " + text)), {"-quiet"}, options).result, 1, "",
                     output_error(EFBIG));
        std::fclose(file);
    }
}

// As on a network file system that is full.
TEST(ToolStreams, AnOutputThatCannotBeClosedEndsWithStatus1)
{
    ChildOptions options;
    options.prepare = [] {
        if (!refuse_call({SYS_close, EDQUOT, 0, ~0U, STDOUT_FILENO}))
            _exit(99);
    };
    expect_ended(ask(sending(reply_of("Message: Hello\n")), {"-quiet"}, options).result, 1,
                 "Hello\n", output_error(EDQUOT));
    expect_ended(run_tool({"-version"}, options), 1, version_line(), output_error(EDQUOT));
}

} // namespace
} // namespace quintral::tests::tool
