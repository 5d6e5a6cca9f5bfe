// A scripted peer on 127.0.0.1: a server that plays a few steps and records every byte it receives.
//
// A test scripts what the peer does on each connection, runs the code under test against it, and
// checks the bytes that arrived:
//
//     LoopbackPeer peer({{{PeerAct::ReadRequest},
//                         {PeerAct::Send, "HTTP/1.0 200 OK\r\n\r\nbody"}}});
//     ... web_request(("http://127.0.0.1:" + std::to_string(peer.port()) + "/").c_str(), ...);
//     EXPECT_EQ(peer.received(0), "POST http://...");
//
// Every wait is bounded, so that a broken test fails instead of hanging. The destructor ends all
// connections and joins the threads. A script ends early if its client is gone. In a process that
// the test forks, the peer's sockets are closed at once.
#ifndef QUINTRAL_TESTS_HARNESS_LOOPBACK_PEER_H
#define QUINTRAL_TESTS_HARNESS_LOOPBACK_PEER_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace quintral::tests {

enum class PeerAct {
    ReadRequest, // read up to the empty line and, for a POST, the body of Content-Length bytes,
                 // with a pause of `milliseconds` after each chunk of at most 16 KiB
    Send,        // send `bytes`
    Pause,       // wait for `milliseconds`, still recording
    Trickle,     // send `bytes` one by one, with a pause of `milliseconds` after each
    SendForever, // send `bytes` repeatedly until the client closes or the peer is destroyed
    Close,       // read what has arrived, then close cleanly; also done after the last step
    Reset,       // close with a reset (SO_LINGER 0)
    Hold,        // do nothing until the client closes or the peer is destroyed, still recording
    Ignore,      // read nothing for `milliseconds`, so that a client with much to send has to wait
};

struct PeerStep {
    PeerAct act;
    std::string bytes = {};
    int milliseconds = 0;
};

using PeerScript = std::vector<PeerStep>;

class LoopbackPeer {
public:
    // Listens on a free port of 127.0.0.1. Connection i, counted from 0, plays scripts[i] on its
    // own thread; further connections play the last script again.
    explicit LoopbackPeer(std::vector<PeerScript> scripts);
    ~LoopbackPeer();
    LoopbackPeer(const LoopbackPeer &) = delete;
    LoopbackPeer &operator=(const LoopbackPeer &) = delete;

    std::uint16_t port() const;

    // "127.0.0.1:PORT"
    std::string address() const;

    // The number of connections accepted so far.
    int connection_count() const;

    // All bytes that connection i has sent. Waits at most 10 s until its script has ended. Without
    // such a connection the test fails and the result is empty.
    std::string received(int connection) const;

    // True as soon as connection i has sent the text, false after `limit_milliseconds`. For a test
    // that must act while the connection is open, for example to interrupt its client.
    bool wait_for_text(int connection, const std::string &text, int limit_milliseconds) const;

private:
    struct State;
    std::shared_ptr<State> state;
};

// A port of 127.0.0.1 that refuses connections. It stays reserved (bound, not listening) for the
// life of the process.
std::uint16_t refused_port();

} // namespace quintral::tests

#endif
