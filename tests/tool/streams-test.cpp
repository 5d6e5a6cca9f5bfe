// How failures and notes are reported, and writing to terminals that poll reports as invalid.
#include "support/error.h"
#include "tool/streams.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include "tests/harness/message-handler-guard.h"

// The poll of macOS: it reports terminals as invalid. This one reports everything so. Nothing else
// in this program uses it.
extern "C" int poll(pollfd *entries, nfds_t count, int /*milliseconds*/)
{
    for (nfds_t i = 0; i < count; ++i)
        entries[i].revents = POLLNVAL;
    return static_cast<int>(count);
}

namespace quintral {
namespace {

std::string reported;

void collect_message(MessageLevel level, const char *text)
{
    reported += std::to_string(level) + " " + text + ";";
}

TEST(ShowFailure, ReportsOneSafeLineAtLevelError)
{
    const tests::MessageHandlerGuard guard(collect_message);
    reported.clear();
    show_failure("50% of\n\x1B");
    EXPECT_EQ(reported, "9 50% of\\x0A\\x1B;");
    reported.clear();
    show_failure(std::string(2000, 'x').c_str());
    EXPECT_EQ(reported, "9 " + std::string(1003, 'x') + ";");
}

TEST(ShowNote, ReportsOneSafeLineAtLevelNote)
{
    const tests::MessageHandlerGuard guard(collect_message);
    reported.clear();
    show_note("%s\r");
    EXPECT_EQ(reported, "3 %s\\x0D;");
}

// A pseudo-terminal without output processing.
struct Terminal {
    int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    int terminal = -1;

    Terminal()
    {
        if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0)
            ADD_FAILURE() << "no pseudo-terminal: " << std::strerror(errno);
        terminal = open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
        termios settings = {};
        EXPECT_EQ(tcgetattr(terminal, &settings), 0) << std::strerror(errno);
        cfmakeraw(&settings);
        EXPECT_EQ(tcsetattr(terminal, TCSANOW, &settings), 0) << std::strerror(errno);
    }

    ~Terminal()
    {
        close(terminal);
        close(master);
    }

    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    // The bytes that have been written since the last call. They arrive some time after the write,
    // so a mark is written after them and waited for.
    std::string bytes() const
    {
        EXPECT_EQ(write(terminal, "$", 1), 1) << std::strerror(errno);
        std::string text;
        for (char byte = '\0'; byte != '$' && read(master, &byte, 1) == 1;)
            text += byte;
        return text.substr(0, text.find('$'));
    }
};

TEST(Streams, TheTestsPollReportsATerminalAsInvalid)
{
    const Terminal terminal;
    pollfd entry = {terminal.terminal, POLLOUT, 0};
    EXPECT_EQ(poll(&entry, 1, 0), 1);
    EXPECT_EQ(entry.revents, POLLNVAL);
}

TEST(WriteIfPossible, WritesToATerminalThatPollReportsAsInvalid)
{
    const Terminal terminal;
    write_if_possible(terminal.terminal, "Hello\n", 6);
    EXPECT_EQ(terminal.bytes(), "Hello\n");
}

TEST(WriteIfPossible, WritesNothingToAStoppedTerminal)
{
    const Terminal terminal;
    ASSERT_EQ(tcflow(terminal.terminal, TCOOFF), 0) << std::strerror(errno);
    write_if_possible(terminal.terminal, "Hello\n", 6);
    ASSERT_EQ(tcflow(terminal.terminal, TCOON), 0) << std::strerror(errno);
    EXPECT_EQ(terminal.bytes(), "");
}

TEST(WriteIfPossible, WritesNothingToAFullPipe)
{
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0) << std::strerror(errno);
    std::size_t filled = 0;
    while (write(ends[1], "x", 1) == 1)
        ++filled;
    ASSERT_EQ(fcntl(ends[1], F_SETFL, O_WRONLY), 0) << std::strerror(errno);
    write_if_possible(ends[1], "Hello\n", 6); // would block
    std::string bytes(filled + 6, '\0');
    EXPECT_EQ(read(ends[0], bytes.data(), bytes.size()), static_cast<ssize_t>(filled));
    close(ends[0]);
    close(ends[1]);
}

TEST(Streams, TextIsWrittenToATerminalThatPollReportsAsInvalid)
{
    const Terminal terminal;
    const int saved = dup(STDERR_FILENO);
    dup2(terminal.terminal, STDERR_FILENO);
    wait_for_reader(STDERR_FILENO);
    show_usage_text("one\ntwo\n");
    show_message(Note, "three");
    dup2(saved, STDERR_FILENO);
    close(saved);
    EXPECT_EQ(terminal.bytes(), "one\ntwo\nNote: three\n");
}

} // namespace
} // namespace quintral
