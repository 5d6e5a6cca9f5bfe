// Running the utility in a test: against a scripted service, and checking how it ended.
//
//     const Exchange exchange = ask(sending(reply_of("Message: Hello\n")), {"-json"});
//     expect_ended(exchange.result, 0, expected_output, "");
//
// QUINTRAL_TOOL is the path of the program.
#ifndef QUINTRAL_TESTS_TOOL_TOOL_RUN_H
#define QUINTRAL_TESTS_TOOL_TOOL_RUN_H

#include "tests/harness/child-process.h"
#include "tests/harness/loopback-peer.h"
#include "tests/harness/text.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <termios.h>
#include <unistd.h>

namespace quintral::tests::tool {

using Strings = std::vector<std::string>;

// How long a test waits for a child or a peer, in milliseconds.
constexpr int patience = 20000;

inline Strings joined(Strings first, const Strings &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

inline Child start_tool(const Strings &arguments, const ChildOptions &options = {})
{
    return child_start(joined({QUINTRAL_TOOL}, arguments), options);
}

inline ChildResult run_tool(const Strings &arguments, const ChildOptions &options = {})
{
    return run_child(joined({QUINTRAL_TOOL}, arguments), options);
}

// In a child: sets a limit for itself that it may raise again, as the preset coverage does to write
// its counters.
inline void limit_resource(decltype(RLIMIT_AS) resource, rlim_t amount)
{
    rlimit limit = {};
    getrlimit(resource, &limit);
    limit.rlim_cur = amount;
    setrlimit(resource, &limit);
}

inline ChildOptions with_output(ChildStream stream)
{
    ChildOptions options;
    options.output = stream;
    return options;
}

inline ChildOptions with_error(ChildStream stream)
{
    ChildOptions options;
    options.error = stream;
    return options;
}

// What the service does

inline std::string reply_of(const std::string &body)
{
    return "HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\n\r\n" + body;
}

inline PeerScript sending(const std::string &bytes)
{
    return {{PeerAct::ReadRequest}, {PeerAct::Send, bytes}};
}

inline PeerScript sending_late(const std::string &bytes, int milliseconds)
{
    return {{PeerAct::ReadRequest}, {PeerAct::Pause, "", milliseconds}, {PeerAct::Send, bytes}};
}

// Sends the bytes, then keeps the connection open.
inline PeerScript holding(const std::string &bytes = "")
{
    return {{PeerAct::ReadRequest}, {PeerAct::Send, bytes}, {PeerAct::Hold}};
}

// Sends the start at once and the bytes one at a time, with a pause after each.
inline PeerScript trickling(const std::string &start, const std::string &bytes, int milliseconds)
{
    return {{PeerAct::ReadRequest},
            {PeerAct::Send, start},
            {PeerAct::Trickle, bytes, milliseconds},
            {PeerAct::Hold}};
}

// To trickle: they last longer than any test.
inline const std::string trickled_header = "HTTP/1.0 200 OK\r\n" + std::string(60000, 'h');
inline const std::string trickled_body = std::string(60000, 'b');

struct Exchange {
    ChildResult result;
    std::string address; // of the service
    std::string request;
};

// Runs the utility against a service that follows the script.
inline Exchange ask(const PeerScript &script, const Strings &arguments = {},
                    const ChildOptions &options = {})
{
    const LoopbackPeer peer({script});
    Exchange exchange;
    exchange.address = peer.address();
    exchange.result = run_tool(joined({"-service", peer.address()}, arguments), options);
    exchange.request = peer.received(0);
    return exchange;
}

// How the utility ended, with the exact bytes on both streams

inline void expect_ended(const ChildResult &result, int status, const std::string &output,
                         const std::string &error, const std::string &what = "")
{
    EXPECT_EQ(result.exit_status, status) << what;
    EXPECT_EQ(result.signal, 0) << what;
    EXPECT_EQ(result.output, output) << what;
    EXPECT_EQ(result.error, error) << what;
}

inline void expect_ended_by(const ChildResult &result, int signal_number, const std::string &output,
                            const std::string &error, const std::string &what = "")
{
    EXPECT_EQ(result.signal, signal_number) << what;
    EXPECT_EQ(result.output, output) << what;
    EXPECT_EQ(result.error, error) << what;
}

// Messages

const char cancelled_text[] = "User canceled web transaction";
const char not_http[] = "Invalid non-HTTP header string returned from web site";
const char not_update[] = "The web site's answer is not an update reply";
const char long_header[] = "Reply header from web site is longer than 262144 bytes";
const char long_body[] = "Reply body from web site is longer than 8388608 bytes";

inline std::string limit_text(int seconds)
{
    return "The time limit of " + std::to_string(seconds) + " s has passed";
}

inline std::string connect_text(int error)
{
    return "Can't connect to web server '127.0.0.1': code " + std::to_string(error) + ": " +
           std::strerror(error);
}

inline std::string refused_text()
{
    return connect_text(ECONNREFUSED);
}

// The line on standard error for a failure.
inline std::string error_line(const std::string &text)
{
    return "Error: " + text + "\a\n";
}

inline std::string note_line(const std::string &text)
{
    return "Note: " + text + "\n";
}

// The note for a reply without a Version line, such as most scripted ones.
inline const std::string no_version_note =
    note_line("It is unknown whether a newer version exists: the reply has no Version line");

// The parser's line for an option without its argument.
inline std::string missing_argument(const std::string &name)
{
    return QUINTRAL_TOOL ": argument required for option `--" + name + "'\n";
}

// Stops the terminal on the child's standard error, as a user does with Ctrl-S.
inline void stop_terminal(const Child &child)
{
    const int terminal = open(ptsname(child.error_descriptor), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(terminal, 0) << std::strerror(errno);
    EXPECT_EQ(tcflow(terminal, TCOOFF), 0) << std::strerror(errno);
    close(terminal);
}

} // namespace quintral::tests::tool

#endif
