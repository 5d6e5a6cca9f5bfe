// Running the utility in a test: against a scripted service, with what it must print.
//
// The program is the build's own, QUINTRAL_TOOL.
#ifndef QUINTRAL_TESTS_TOOL_TOOL_RUN_H
#define QUINTRAL_TESTS_TOOL_TOOL_RUN_H

#include "tests/harness/child-process.h"
#include "tests/harness/loopback-peer.h"
#include "tests/harness/text.h"

#include <array>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral::tests::tool {

using quintral::tests::repeated;

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

// JSON

// An object with its values as they are written.
inline std::string json_line(const std::string &status, int exit_status, const std::string &newer,
                             const std::array<std::string, 4> &values, const std::string &error)
{
    return "{\"status\":\"" + status + "\",\"exit_status\":" + std::to_string(exit_status) +
           ",\"newer\":" + newer + ",\"version\":" + values[0] + ",\"url\":" + values[1] +
           ",\"button\":" + values[2] + ",\"message\":" + values[3] + ",\"error\":" + error + "}\n";
}

inline std::string unanswered_json(const std::string &status, int exit_status,
                                   const std::string &error)
{
    return json_line(status, exit_status, "null", {"null", "null", "null", "null"},
                     "\"" + error + "\"");
}

} // namespace quintral::tests::tool

#endif
