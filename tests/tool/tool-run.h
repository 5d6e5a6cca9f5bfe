// Running the utility in a test: against a scripted service, with what it must print.
//
// The program is the build's own, QUINTRAL_TOOL.
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
#include <termios.h>
#include <unistd.h>

namespace quintral::tests::tool {

constexpr int patience = 20000; // milliseconds until a child or a peer must have come to a point

using Texts = std::vector<std::string>;

inline Texts joined(Texts first, const Texts &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

inline Child start_tool(const Texts &arguments, const ChildOptions &options = {})
{
    return child_start(joined({QUINTRAL_TOOL}, arguments), options);
}

inline ChildResult run_tool(const Texts &arguments, const ChildOptions &options = {})
{
    return run_child(joined({QUINTRAL_TOOL}, arguments), options);
}

inline std::string reply_of(const std::string &body)
{
    return "HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\n\r\n" + body;
}

inline PeerScript sending(const std::string &bytes)
{
    return {{PeerAct::ReadRequest}, {PeerAct::Send, bytes}};
}

inline PeerScript holding(const std::string &bytes = "")
{
    return {{PeerAct::ReadRequest}, {PeerAct::Send, bytes}, {PeerAct::Hold}};
}

inline PeerScript trickling(const std::string &start, const std::string &bytes, int milliseconds)
{
    return {{PeerAct::ReadRequest},
            {PeerAct::Send, start},
            {PeerAct::Trickle, bytes, milliseconds},
            {PeerAct::Hold}};
}

// More bytes than a peer that trickles them sends while a test runs.
inline const std::string trickled_header = "HTTP/1.0 200 OK\r\n" + std::string(60000, 'h');
inline const std::string trickled_body = std::string(60000, 'b');

struct Exchange {
    ChildResult result;
    std::string address; // of the service
    std::string request;
};

// Runs the utility against a service that plays the script.
inline Exchange ask(const PeerScript &script, const Texts &arguments = {},
                    const ChildOptions &options = {})
{
    const LoopbackPeer peer({script});
    Exchange exchange;
    exchange.address = peer.address();
    exchange.result = run_tool(joined({"-service", peer.address()}, arguments), options);
    exchange.request = peer.received(0);
    return exchange;
}

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

inline std::string error_line(const std::string &text)
{
    return "Error: " + text + "\a\n";
}

// The messages of an interrupt and of the time limit.

const char cancelled_text[] = "User canceled web transaction";

inline std::string limit_text(int seconds)
{
    return "The time limit of " + std::to_string(seconds) + " s has passed";
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
