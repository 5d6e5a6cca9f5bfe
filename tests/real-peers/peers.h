// Real servers and proxies for the tests: started on free ports of 127.0.0.1, all their files in
// one folder, ended by process id. A peer is one row of the table in peers.cpp and one file in
// settings/. They run as root or as an ordinary user.
#ifndef QUINTRAL_TESTS_REAL_PEERS_PEERS_H
#define QUINTRAL_TESTS_REAL_PEERS_PEERS_H

#include <cstdint>
#include <string>
#include <vector>

#include "tests/harness/child-process.h"

namespace quintral::tests {

// Who may use a proxy.
enum class ProxyAccess { Everybody, ClientsWithPassword, EverybodyForTheService };

struct RunningPeer {
    std::string name;
    std::uint16_t port = 0; // 0: it does not run, and the test has failed
    Child child;
};

// Starts a peer by its name in the table and waits until it accepts connections. The folder gets
// its settings and logs; php_port is where the update page's interpreter listens. If the program is
// not installed or does not start, the test fails with the package to install or the output.
RunningPeer start_peer(const std::string &name, ProxyAccess access, const std::string &folder,
                       std::uint16_t php_port);

// Returns a socket connected to a port of 127.0.0.1, or -1. Receiving on it waits 10 s at most.
int connected_socket(std::uint16_t port);

// Ends the peers, all at once, because some take two seconds.
void stop_peers(std::vector<RunningPeer> *peers);

} // namespace quintral::tests

#endif
