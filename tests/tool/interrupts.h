// Interrupting the utility while it runs.
#ifndef QUINTRAL_TESTS_TOOL_INTERRUPTS_H
#define QUINTRAL_TESTS_TOOL_INTERRUPTS_H

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include "tests/tool/json-line.h"
#include "tests/tool/query.h"
#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {

inline std::string cancelled_json(int signal_number, const std::string &service,
                                  int http_status = 0)
{
    return unanswered_json("cancelled", 128 + signal_number, cancelled_text,
                           {"cancelled", http_status, service});
}

// The value of a field of /proc/PID/status, with the space before it.
inline std::string process_status(const Child &child, const std::string &field)
{
    std::ifstream file("/proc/" + std::to_string(child.process_id) + "/status");
    std::string line;
    while (std::getline(file, line)) {
        if (line.compare(0, field.size(), field) == 0)
            return line.substr(field.size());
    }
    return "";
}

inline bool catches_signals(const Child &child)
{
    // the one that is installed last
    const unsigned long long hangup = 1ULL << (SIGHUP - 1);
    return (std::strtoull(process_status(child, "SigCgt:").c_str(), nullptr, 16) & hangup) != 0;
}

// True as soon as the utility has installed its signal handlers.
inline bool wait_for_handlers(const Child &child)
{
    for (int waited = 0; waited < patience; waited += 5) {
        if (catches_signals(child))
            return true;
        poll(nullptr, 0, 5);
    }
    return false;
}

// Runs the utility, which must fail, with an output that nobody reads. Interrupts it when the line
// of the failure shows that the output has begun. That must end it at once, although the output is
// read then.
inline void expect_interrupted_output(const Strings &arguments, const std::string &failure)
{
    Child child = start_tool(arguments, with_output(ChildStream::StalledPipe));
    ASSERT_TRUE(child_wait_for_text(child, failure, patience));
    child_signal(child, SIGTERM);
    char bytes[65536]; // what has filled the pipe
    EXPECT_GT(read(child.stalled_descriptors[0], bytes, sizeof bytes), 0);
    expect_ended_by(child_wait(child), SIGTERM, "", failure + error_line(cancelled_text));
}

// Runs the utility against a peer and interrupts it that many milliseconds after the request
// arrived.
inline Exchange interrupt_exchange(const PeerScript &script, int signal_number,
                                   const Strings &arguments, const ChildOptions &options = {},
                                   int milliseconds = 0)
{
    const LoopbackPeer peer({script});
    Child child = start_tool(joined({"-service", peer.address()}, arguments), options);
    EXPECT_TRUE(peer.wait_for_text(0, request_end(), patience));
    poll(nullptr, 0, milliseconds);
    child_signal(child, signal_number);
    Exchange exchange;
    exchange.address = peer.address();
    exchange.result = child_wait(child);
    return exchange;
}

} // namespace quintral::tests::tool

#endif
