// What a transaction does not change in its host program: signal handling and open descriptors.
#include "tests/harness/child-process.h"
#include "tests/harness/loopback-peer.h"
#include "tests/web/transaction-calls.h"
#include "web/transaction.h"

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace quintral {
namespace {

using namespace tests;

// In a child process: runs an exchange that keeps sending after the peer's reset, with this handler
// of SIGPIPE. Returns 0, or the number of the check that failed.
int send_into_broken_connection(const LoopbackPeer &peer, void (*handler)(int))
{
    struct sigaction set = {};
    struct sigaction seen = {};
    set.sa_handler = handler;
    set.sa_flags = SA_NODEFER;
    sigaction(SIGPIPE, &set, nullptr);
    // More than the socket buffers take, so the reset arrives in the middle, before nine more
    // sends.
    const std::string path(30000000, 'p');
    const std::string body(30000000, 'b');
    char *header = nullptr;
    char *body_out = nullptr;
    web_exchange("HTTP", "127.0.0.1", path.c_str(), peer.port(), "POST", "A: b", body, &header,
                 &body_out, nullptr, 0, nullptr, nullptr);
    std::free(header);
    std::free(body_out);
    sigset_t pending;
    sigset_t blocked;
    sigpending(&pending);
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    sigaction(SIGPIPE, nullptr, &seen);
    if (seen.sa_handler != handler || (seen.sa_flags & SA_NODEFER) == 0)
        return 1;
    if (sigismember(&pending, SIGPIPE) == 1 || sigismember(&blocked, SIGPIPE) == 1)
        return 2;
    return signal_count == 0 ? 0 : 3;
}

TEST_F(WebTransaction, ABrokenConnectionRaisesNoSignalAndKeepsTheHostsHandling)
{
    const struct {
        const char *name;
        void (*handler)(int);
    } rows[] = {{"default", SIG_DFL}, {"ignored", SIG_IGN}, {"handled", count_signal}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        LoopbackPeer peer({{resetting}});
        const ChildResult result =
            run_child_function([&] { return send_into_broken_connection(peer, row.handler); });
        EXPECT_EQ(result.signal, 0);
        EXPECT_EQ(result.exit_status, 0);
    }
}

struct DescriptorSighting {
    std::uint16_t peer_port;
    int connections;           // of this process to the peer
    std::string listed_before; // the descriptors that a started program finds open
    std::string listed;
};

std::string descriptors_of_a_program()
{
    return run_child({"ls", "/dev/fd"}).output;
}

int connections_to(std::uint16_t port)
{
    int count = 0;
    for (int descriptor = 0; descriptor < 1024; ++descriptor) {
        sockaddr_in address = {};
        socklen_t size = sizeof address;
        if (getpeername(descriptor, reinterpret_cast<sockaddr *>(&address), &size) == 0 &&
            address.sin_family == AF_INET && ntohs(address.sin_port) == port)
            ++count;
    }
    return count;
}

void look_at_descriptors(void *user_data)
{
    DescriptorSighting &sighting = *static_cast<DescriptorSighting *>(user_data);
    sighting.connections = connections_to(sighting.peer_port);
    sighting.listed = descriptors_of_a_program();
    web_cancel_requested = 1;
}

TEST_F(WebTransaction, AStartedProgramDoesNotInheritTheSocket)
{
    LoopbackPeer peer({{holding}});
    DescriptorSighting sighting = {peer.port(), 0, descriptors_of_a_program(), ""};
    web_set_idle_hook(look_at_descriptors, &sighting);
    EXPECT_EQ(call_web({url_of(peer)}), cancelled());
    EXPECT_EQ(sighting.connections, 1);
    EXPECT_NE(sighting.listed, "");
    EXPECT_EQ(sighting.listed, sighting.listed_before);
}

struct HookFault {};

void throw_fault(void *)
{
    throw HookFault();
}

// For example, a failed assertion in a plug-in throws from its hook.
TEST_F(WebTransaction, AHookThatThrowsLeaksNoSocket)
{
    LoopbackPeer peer({{holding}});
    web_set_idle_hook(throw_fault, nullptr);
    EXPECT_THROW(call_web({url_of(peer)}), HookFault);
    EXPECT_EQ(connections_to(peer.port()), 0);
}

} // namespace
} // namespace quintral
