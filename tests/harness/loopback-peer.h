// A scripted peer on 127.0.0.1: a server of a few steps that records every byte it is sent.
//
// A test says what the peer does on each connection, lets the code under test talk to it, and looks
// at the bytes that arrived:
//
//     LoopbackPeer peer({{{PeerAct::ReadRequest},
//                         {PeerAct::Send, "HTTP/1.0 200 OK\r\n\r\nbody"}}});
//     ... web_request(("http://127.0.0.1:" + std::to_string(peer.port()) + "/").c_str(), ...);
//     EXPECT_EQ(peer.received(0), "POST http://...");
//
// Every wait in here is bounded, so that a test that goes wrong fails instead of hanging, and the
// destructor ends all connections and joins its threads. A script ends early when its client is
// gone. A process that the test forks holds none of the peer's sockets: they are closed in it at
// once.
#ifndef QUINTRAL_TESTS_HARNESS_LOOPBACK_PEER_H
#define QUINTRAL_TESTS_HARNESS_LOOPBACK_PEER_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace quintral::tests {

enum class PeerAct {
    ReadRequest, // read to the empty line and then, for a POST, as far as Content-Length says
    Send,        // send `bytes`
    Pause,       // wait `milliseconds` (still recording what arrives)
    Trickle,     // send `bytes` one at a time, `milliseconds` apart
    SendForever, // send `bytes` again and again until the client is gone or the peer is destroyed
    Close,       // read what is already there, then close cleanly (also done behind the last step)
    Reset,       // close with a reset (SO_LINGER 0)
    Hold,        // do nothing until the client closes or the peer is destroyed
};

struct PeerStep {
    PeerAct act;
    std::string bytes = {};
    int milliseconds = 0;
};

using PeerScript = std::vector<PeerStep>;

class LoopbackPeer {
public:
    // Listens on a free port of 127.0.0.1 at once. Connection i (from 0) plays scripts[i], each on
    // a thread of its own; connections behind the last script play the last one again.
    explicit LoopbackPeer(std::vector<PeerScript> scripts);
    ~LoopbackPeer();
    LoopbackPeer(const LoopbackPeer &) = delete;
    LoopbackPeer &operator=(const LoopbackPeer &) = delete;

    std::uint16_t port() const;

    // "127.0.0.1:PORT"
    std::string address() const;

    // How many connections have been accepted so far.
    int connection_count() const;

    // All bytes that connection i has sent. Waits (10 s at most) until that connection's script has
    // ended; a connection that never came gives an empty text and a test failure.
    std::string received(int connection) const;

    // True as soon as connection i has come and sent the text, false after `limit_milliseconds`.
    // For a test that must act while the connection is open, such as one that interrupts its
    // client.
    bool wait_for_text(int connection, const std::string &text, int limit_milliseconds) const;

private:
    struct State;
    std::shared_ptr<State> state;
};

// A port of 127.0.0.1 on which nobody listens: connecting to it is refused. It stays reserved
// (bound, not listening) for the life of the process.
std::uint16_t refused_port();

} // namespace quintral::tests

#endif
