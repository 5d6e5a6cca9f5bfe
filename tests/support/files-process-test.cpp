// ring_bell and process_command_line.
#include "support/c-utils/files.h"

#include "tests/harness/descriptors.h"
#include "tests/support/files-checks.h"

#include <csignal>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quintral {
namespace {

using tests::ChildOptions;
using tests::ChildResult;
using tests::ChildStream;
using tests::open_descriptors;
using tests::RecordedReports;
using tests::Report;
using tests::reports;
using tests::run_child_function;

// The bell

TEST(RingBell, WritesTheBellToStandardError)
{
    const ChildResult result = run_child_function([] { return ring_bell(); });
    EXPECT_EQ(result.exit_status, 7);
    EXPECT_EQ(result.error, "\a");
    EXPECT_EQ(result.output, "");
}

TEST(RingBell, ReturnsEofIfStandardErrorFails)
{
    for (const ChildStream stream : {ChildStream::FullDisk, ChildStream::Closed}) {
        ChildOptions options;
        options.error = stream;
        const ChildResult result =
            run_child_function([] { return ring_bell() == EOF ? 3 : 1; }, options);
        EXPECT_EQ(result.exit_status, 3);
    }
}

// Command lines

// A sleeping child with two arguments, the second one long.
class SleepingChild {
public:
    SleepingChild() : child_(tests::child_start({"sleep", "25", std::string(9000, '0')}))
    {
        // A program that has just started has no command line for a moment.
        const std::string path = "/proc/" + std::to_string(child_.process_id) + "/cmdline";
        for (int i = 0; i < 1000 && std::ifstream(path).peek() == EOF; ++i)
            usleep(10000);
    }

    ~SleepingChild()
    {
        tests::child_signal(child_, SIGKILL);
        tests::child_wait(child_);
    }

    SleepingChild(const SleepingChild &) = delete;
    SleepingChild &operator=(const SleepingChild &) = delete;

    long process_id() const
    {
        return child_.process_id;
    }

private:
    tests::Child child_;
};

TEST(ProcessCommandLine, ReadsTheArgumentsOneAfterTheOther)
{
    const SleepingChild child;
    std::string expected = std::string("sleep\00025\0", 9) + std::string(9000, '0');
    expected.push_back('\0'); // after the last argument
    expected.push_back('\0'); // after the command line
    std::string buffer(10000, '#');
    EXPECT_EQ(process_command_line(buffer.data(), buffer.size(), child.process_id()),
              buffer.data());
    expected.append(buffer.size() - expected.size(), '#');
    EXPECT_TRUE(buffer == expected);
    EXPECT_STREQ(buffer.c_str(), "sleep");
}

TEST(ProcessCommandLine, NeverWritesPastTheBuffer)
{
    const SleepingChild child;
    const std::string line = std::string("sleep\00025\0", 9) + std::string(9000, '0');
    for (const std::size_t size : {2U, 3U, 5U, 6U, 7U, 10U, 4096U, 4097U, 9009U}) {
        std::string buffer(size + 1, '#');
        EXPECT_EQ(process_command_line(buffer.data(), size, child.process_id()), buffer.data());
        std::string expected = line.substr(0, size - 1);
        expected.push_back('\0');
        expected.push_back('#');
        EXPECT_TRUE(buffer == expected) << size;
    }
}

TEST(ProcessCommandLine, IsNullAndEmptyWithASizeOf1)
{
    char buffer[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(process_command_line(buffer, 1, 0), nullptr);
    EXPECT_EQ(std::string(buffer, 4), std::string("\0bcd", 4));
}

TEST(ProcessCommandLine, WritesNothingWithASizeOf0)
{
    char buffer[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(process_command_line(buffer, 0, 0), nullptr);
    EXPECT_EQ(std::string(buffer, 4), "abcd");
    EXPECT_EQ(process_command_line(nullptr, 0, 0), nullptr);
}

TEST(ProcessCommandLine, ReadsTheCallingProcessForProcess0)
{
    std::string own(4096, '#');
    std::string same(4096, '#');
    ASSERT_EQ(process_command_line(own.data(), own.size(), 0), own.data());
    ASSERT_EQ(process_command_line(same.data(), same.size(), getpid()), same.data());
    EXPECT_EQ(own, same);
    EXPECT_NE(std::string(own.c_str()).find("files"), std::string::npos) << own.c_str();
}

TEST(ProcessCommandLine, IsNullAndEmptyForAMissingProcess)
{
    for (const long process_id : {-1L, 2147483647L}) {
        const RecordedReports recorded;
        char buffer[8] = "before";
        EXPECT_EQ(process_command_line(buffer, sizeof buffer, process_id), nullptr);
        EXPECT_STREQ(buffer, "");
        EXPECT_EQ(reports, std::vector<Report>());
    }
}

TEST(ProcessCommandLine, IsNullForAnEmptyCommandLine)
{
    // A process that has ended but has not been waited for has an empty one.
    const pid_t child = fork();
    if (child == 0)
        _exit(0);
    ASSERT_GT(child, 0);
    siginfo_t ended;
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT), 0);
    char buffer[8] = "before";
    EXPECT_EQ(process_command_line(buffer, sizeof buffer, child), nullptr);
    EXPECT_STREQ(buffer, "");
    waitpid(child, nullptr, 0);
}

TEST(ProcessCommandLine, ClosesWhatItOpens)
{
    const std::size_t before = open_descriptors();
    char buffer[64];
    for (const std::size_t size : {1U, 2U, 64U})
        process_command_line(buffer, size, 0);
    EXPECT_EQ(open_descriptors(), before);
}

} // namespace
} // namespace quintral
