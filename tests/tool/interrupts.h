// Interrupting the utility while it runs.
#ifndef QUINTRAL_TESTS_TOOL_INTERRUPTS_H
#define QUINTRAL_TESTS_TOOL_INTERRUPTS_H

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <poll.h>

#include "tests/tool/json-line.h"
#include "tests/tool/query.h"
#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {

inline std::string cancelled_json(int signal_number)
{
    return unanswered_json("cancelled", 128 + signal_number, cancelled_text);
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
    const unsigned long long both = 1ULL << (SIGINT - 1) | 1ULL << (SIGTERM - 1);
    return (std::strtoull(process_status(child, "SigCgt:").c_str(), nullptr, 16) & both) == both;
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

// Runs the utility against a peer and interrupts it `milliseconds` after its request arrived.
inline ChildResult interrupt_exchange(const PeerScript &script, int signal_number,
                                      const Strings &arguments, const ChildOptions &options = {},
                                      int milliseconds = 0)
{
    const LoopbackPeer peer({script});
    Child child = start_tool(joined({"-service", peer.address()}, arguments), options);
    EXPECT_TRUE(peer.wait_for_text(0, request_end(), patience));
    poll(nullptr, 0, milliseconds);
    child_signal(child, signal_number);
    return child_wait(child);
}

} // namespace quintral::tests::tool

#endif
