// Reading files that are named on the command line, in a host that handles signals.
#include "tool/read-file.h"

#include <csignal>
#include <cstdio>
#include <functional>
#include <string>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/time.h>
#include <unistd.h>

#include "tests/harness/child-process.h"
#include "tests/harness/temp-folder.h"

namespace quintral::tests {
namespace {

void ignore_signal(int)
{
}

// Interrupts whatever waits, every five milliseconds.
void interrupt_waits()
{
    struct sigaction action = {};
    action.sa_handler = ignore_signal; // without SA_RESTART
    sigaction(SIGALRM, &action, nullptr);
    const itimerval often = {{0, 5000}, {0, 5000}};
    setitimer(ITIMER_REAL, &often, nullptr);
}

// Runs the body with a pipe as its standard input, which gets the text after a while.
ChildResult run_with_late_input(const std::function<int()> &body, const std::string &text)
{
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe(ends), 0);
    Child child = child_start_function([&] {
        close(ends[1]);
        dup2(ends[0], STDIN_FILENO);
        interrupt_waits();
        return body();
    });
    close(ends[0]);
    poll(nullptr, 0, 100);
    EXPECT_EQ(write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(ends[1]);
    return child_wait(child);
}

TEST(ReadFile, GoesOnAfterAnInterruption)
{
    const ChildResult whole = run_with_late_input(
        [] {
            std::string text, error;
            const int result = read_whole_file("-", &text, &error);
            std::fputs((text + error).c_str(), stdout);
            return result;
        },
        "late\ntext");
    EXPECT_EQ(whole.exit_status, 0);
    EXPECT_EQ(whole.output, "late\ntext");
    const ChildResult line = run_with_late_input(
        [] {
            char buffer[8];
            std::string error;
            const int result = read_secret_line("-", buffer, sizeof buffer, &error);
            std::fputs(result == 0 ? buffer : error.c_str(), stdout);
            return result;
        },
        "late\ntext");
    EXPECT_EQ(line.exit_status, 0);
    EXPECT_EQ(line.output, "late");
}

TEST(ReadFile, ReturnsMinus1WithTheReasonIfThereIsNone)
{
    const TempFolder folder;
    const std::string path = folder.path("none");
    const std::string reason = "Can't read '" + path + "', code 2: No such file or directory";
    std::string text, error;
    EXPECT_EQ(read_whole_file(path.c_str(), &text, &error), -1);
    EXPECT_EQ(text, "");
    EXPECT_EQ(error, reason);
    error.clear();
    char buffer[8] = "";
    EXPECT_EQ(read_secret_line(path.c_str(), buffer, sizeof buffer, &error), -1);
    EXPECT_EQ(error, reason);
}

} // namespace
} // namespace quintral::tests
