// The proxy password does not stay visible in the process list.
#include <csignal>
#include <string>

#include <gtest/gtest.h>
#include <poll.h>

#include "tests/harness/temp-folder.h"
#include "tests/tool/query.h"
#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {
namespace {

std::string command_line_of(const Child &child)
{
    return file_content("/proc/" + std::to_string(child.process_id) + "/cmdline");
}

TEST(ToolPassword, DoesNotStayVisibleInTheProcessList)
{
    const Strings rows[] = {
        {"-proxy-pass", "secret"},
        {"-proxy-pass=secret"},
        {"--proxy-pass", "secret"},
        {"--proxy-pass=secret"},
        {"+proxy-pass=secret"},
        {"-proxy-p", "secret"},
        {"-proxy-pass", "secret-1", "-proxy-pass=secret-2", "--proxy-pass", "secret"},
    };
    for (const Strings &row : rows) {
        const LoopbackPeer proxy({holding()});
        Child child = start_tool(
            joined({"-service", "a.example", "-proxy", proxy.address(), "-proxy-user", "me"}, row));
        ASSERT_TRUE(proxy.wait_for_text(0, request_end(), patience));
        const std::string line = command_line_of(child);
        EXPECT_EQ(line.find("secret"), std::string::npos) << line;
        EXPECT_NE(line.find("-proxy-user"), std::string::npos) << line;
        child_signal(child, SIGTERM);
        child_wait(child);
        EXPECT_EQ(proxy.received(0), request_of({"a.example", default_values(), "bWU6c2VjcmV0"}));
    }
}

// The command line of the utility while the message of its usage error waits for a reader: as soon
// as it holds no secret, or after ten seconds.
std::string hidden_command_line(const Strings &arguments)
{
    Child child = start_tool(arguments, with_error(ChildStream::StalledPipe));
    std::string line = command_line_of(child); // empty at first
    for (int i = 0; i < 1000 && (line.empty() || line.find("secret") != line.npos); ++i) {
        poll(nullptr, 0, 10);
        line = command_line_of(child);
    }
    child_signal(child, SIGKILL);
    child_wait(child);
    return line;
}

// The message of a usage error may have to wait for a reader. The passwords after the error are
// overwritten before that.
TEST(ToolPassword, IsHiddenAfterAUsageErrorToo)
{
    const Strings passwords = {"-proxy-pass", "secret",       "--unknown", "-proxy-pass=secret",
                               "operand",     "--proxy-pass", "secret",    "-proxy-pass"};
    const Strings errors[] = {
        {"-bogus"},
        {"--bogus"},
        {"operand"},
        {"-max-time=0"},
        {"-service", "a:0"},
        {"--"},
        // values of mistyped options
        {"-proxy-=secret"},
        {"-proxy-", "secret"},
        {"--=secret"},
        {"-proxypass=secret"},
        {"-proxypass", "secret"},
        {"-proxypass", "-secret"},
        {"-bogus", "-proxy-pass", "-secret"},
        {"-bogus", "--proxy-pass", "--secret"},
        {"-bogus", "+proxy-p", "-secret"},
        {"-bogus", "-proxy-", "-secret"},
        {"-bogus", "-proxy-pass=secret", "--", "-proxy-pass", "-secret"},
        {"-json=secret"},
        {"-proxy-user=", "-proxy-pass", "secret"},
        {"-proxy-pass=", "secret"},
        {"secret"},
    };
    for (const Strings &error : errors) {
        const std::string line = hidden_command_line(joined(error, passwords));
        EXPECT_NE(line.find("-unknown"), std::string::npos) << line;
        EXPECT_EQ(line.find("secret"), std::string::npos) << line;
    }
}

// Hiding takes time in proportion to the number of arguments: this many took minutes when each was
// searched for from the start.
TEST(ToolPassword, IsHiddenAmongManyArguments)
{
    Strings arguments = {"-bogus"};
    for (int i = 0; i < 60000; ++i)
        arguments.insert(arguments.end(), {"x", "-json"});
    arguments.insert(arguments.end(), {"-proxy-pass", "secret"});
    const std::string line = hidden_command_line(arguments);
    EXPECT_NE(line.find("-bogus"), std::string::npos);
    EXPECT_EQ(line.find("secret"), std::string::npos);
    ChildOptions options;
    options.limit_seconds = 10;
    const ChildResult result = run_tool(arguments, options);
    EXPECT_EQ(result.exit_status, 2);
    EXPECT_EQ(result.error.substr(0, 28), "Error: Unknown option -bogus");
}

} // namespace
} // namespace quintral::tests::tool
