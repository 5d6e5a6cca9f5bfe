// How the utility terminates when it does not reach the end of main: tool/termination.h.
#include "support/error.h"
#include "tool/termination.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <new>
#include <stdexcept>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/harness/allocation.h"
#include "tests/tool/hanging-server.h"
#include "tests/tool/interrupts.h"
#include "tests/tool/json-line.h"
#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {
namespace {

// Endings write their object in one piece, so that nothing can come between its halves.

// A socket that keeps each write of the child apart, for its standard output.
struct MessageSocket {
    int ends[2] = {-1, -1};

    MessageSocket()
    {
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
            ADD_FAILURE() << "no socket pair: " << std::strerror(errno);
    }

    ~MessageSocket()
    {
        close(ends[0]);
        close(ends[1]);
    }

    MessageSocket(const MessageSocket &) = delete;
    MessageSocket &operator=(const MessageSocket &) = delete;
};

ChildOptions with_output_on(const MessageSocket &socket)
{
    const int descriptor = socket.ends[1];
    ChildOptions options;
    options.prepare = [descriptor] { dup2(descriptor, STDOUT_FILENO); };
    return options;
}

Texts messages_on(const MessageSocket &socket)
{
    Texts messages;
    char buffer[4096];
    for (;;) {
        const ssize_t count = recv(socket.ends[0], buffer, sizeof buffer, MSG_DONTWAIT);
        if (count <= 0)
            return messages;
        messages.emplace_back(buffer, static_cast<std::size_t>(count));
    }
}

TEST(ToolEnding, AnInterruptsObjectIsOneWrite)
{
    const HangingServer server;
    const MessageSocket output;
    Child child = start_tool({"-service", server.service(), "-json"}, with_output_on(output));
    ASSERT_TRUE(wait_until_watching(child));
    child_signal(child, SIGINT);
    child_signal(child, SIGTERM);
    EXPECT_EQ(child_wait(child).signal, SIGTERM);
    EXPECT_EQ(messages_on(output), Texts{cancelled_json(SIGTERM)});
}

TEST(ToolEnding, TheTimeLimitsObjectIsOneWrite)
{
    const HangingServer server;
    const MessageSocket output;
    const ChildResult result =
        run_tool({"-service", server.service(), "-json", "-max-time", "1"}, with_output_on(output));
    EXPECT_EQ(result.exit_status, 3);
    EXPECT_EQ(messages_on(output), Texts{unanswered_json("timeout", 3, limit_text(1))});
}

struct FaultRow {
    const char *name;
    void (*fault)();
    const char *error;
};

const FaultRow faults[] = {
    {"exhausted memory", [] { throw std::bad_alloc(); }, "Out of memory"},
    {"an array of a bad size", [] { throw std::bad_array_new_length(); }, "Out of memory"},
    {"an abort", [] { throw_abort(1, "support/c-utils", 369); }, "Aborted by an internal fault"},
    {"another exception", [] { throw std::runtime_error("never shown"); },
     "Ended by an internal fault"},
    {"what is no exception class", [] { throw 5; }, "Ended by an internal fault"},
    {"no exception", [] { std::terminate(); }, "Ended by an internal fault"},
};

TEST(ToolEnding, AnExceptionThatNobodyCatchesIsOneLineAndOneObjectInOneWrite)
{
    for (const FaultRow &row : faults) {
        const MessageSocket output;
        const auto body = [&row] {
            install_terminate_handler();
            prepare_termination(true, 60);
            row.fault();
            return 0;
        };
        const ChildResult result = run_child_function(body, with_output_on(output));
        expect_ended(result, 1, "", error_line(row.error), row.name);
        EXPECT_EQ(messages_on(output), Texts{unanswered_json("failed", 1, row.error)}) << row.name;
    }
}

TEST(ToolEnding, AnExceptionIsToldOfWithoutAllocating)
{
    const struct {
        void (*fault)();
        const char *error;
    } rows[] = {
        {[] { throw std::bad_alloc(); }, "Out of memory"},
        {[] { throw_abort(5, "support/error", 419); }, "Aborted by an internal fault"},
        {[] { throw 5; }, "Ended by an internal fault"},
    };
    for (const auto &row : rows) {
        const auto body = [&row] {
            install_terminate_handler();
            prepare_termination(true, 60);
            allow_allocation = exit_on_allocation;
            row.fault();
            return 0;
        };
        expect_ended(run_child_function(body), 1, unanswered_json("failed", 1, row.error),
                     error_line(row.error));
    }
}

TEST(ToolEnding, AnExceptionPrintsNoObjectWhereNoneIsDue)
{
    for (const FaultRow &row : faults) {
        const auto before_the_options = [&row] {
            install_terminate_handler();
            row.fault();
            return 0;
        };
        expect_ended(run_child_function(before_the_options), 1, "", error_line(row.error),
                     row.name);
        const auto without_json = [&row] {
            install_terminate_handler();
            prepare_termination(false, 60);
            row.fault();
            return 0;
        };
        expect_ended(run_child_function(without_json), 1, "", error_line(row.error), row.name);
        const auto behind_the_output = [&row] {
            install_terminate_handler();
            prepare_termination(true, 60);
            begin_output();
            row.fault();
            return 0;
        };
        expect_ended(run_child_function(behind_the_output), 1, "", error_line(row.error), row.name);
    }
}

} // namespace
} // namespace quintral::tests::tool
