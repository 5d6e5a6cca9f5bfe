#include "tests/harness/loopback-peer.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <set>
#include <utility>

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

namespace quintral::tests {
namespace {

using Clock = std::chrono::steady_clock;
using Lock = std::unique_lock<std::mutex>;

constexpr auto request_limit = std::chrono::seconds(10);  // silence inside a request
constexpr auto drain_limit = std::chrono::seconds(10);    // between our close and the client's
constexpr auto received_limit = std::chrono::seconds(10); // as the header promises
constexpr auto step_limit = std::chrono::seconds(90);     // below the time limit of a test

struct Peer;

// A thread of the peer. Not std::thread, which keeps a block of memory that only the new thread
// points to: a forked child does not have that thread, and memory checkers report a leak there.
struct Thread {
    pthread_t handle = {};
    bool is_running = false;
};

struct Connection {
    Peer *peer = nullptr;
    int descriptor = -1;
    PeerScript script;
    std::string received;
    std::size_t request_start = 0; // where in `received` the next request begins
    bool client_closed = false;    // the client has closed its side; ours may still send
    bool ended = false;            // the script is over and the socket closed
    Thread thread;
};

struct Peer {
    std::vector<PeerScript> scripts;
    int listener = -1;
    int wake_pipe[2] = {-1, -1}; // a byte in it, never read, stops all threads
    std::uint16_t port = 0;
    std::vector<std::unique_ptr<Connection>> connections;
    std::condition_variable changed;
    Thread acceptor;
};

// Shared by all peers of the process. One lock guards every peer's state and the descriptors. A
// fork takes it too, so that the child starts with a known set of descriptors to close, and while
// no thread of a peer is inside the allocator.
struct Registry {
    std::mutex mutex;
    std::set<int> descriptors;
};

Registry *registry_of_forks = nullptr;

void lock_before_fork()
{
    registry_of_forks->mutex.lock();
}

void unlock_after_fork()
{
    registry_of_forks->mutex.unlock();
}

void close_in_child()
{
    for (int descriptor : registry_of_forks->descriptors)
        close(descriptor);
    registry_of_forks->descriptors.clear();
    registry_of_forks->mutex.unlock();
}

Registry *make_registry()
{
    registry_of_forks = new Registry;
    pthread_atfork(lock_before_fork, unlock_after_fork, close_in_child);
    return registry_of_forks;
}

// Never destroyed, because a fork in the destructor of another global may still need it.
Registry &registry()
{
    static Registry *const instance = make_registry();
    return *instance;
}

// Requires: the registry's lock is held, so that no child is forked before the flag is set.
int adopt_descriptor(int descriptor)
{
    if (descriptor < 0)
        return descriptor;
    fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) | O_NONBLOCK);
    registry().descriptors.insert(descriptor);
    return descriptor;
}

// Requires: the registry's lock is held.
void drop_descriptor(int *descriptor)
{
    if (*descriptor < 0)
        return;
    registry().descriptors.erase(*descriptor);
    close(*descriptor);
    *descriptor = -1;
}

sockaddr_in loopback_address()
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// Binds to a free port of 127.0.0.1 and returns it; 0 on failure.
std::uint16_t bind_to_loopback(int descriptor)
{
    sockaddr_in address = loopback_address();
    socklen_t size = sizeof address;
    if (bind(descriptor, reinterpret_cast<sockaddr *>(&address), size) != 0)
        return 0;
    if (getsockname(descriptor, reinterpret_cast<sockaddr *>(&address), &size) != 0)
        return 0;
    return ntohs(address.sin_port);
}

int milliseconds_until(Clock::time_point deadline)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() < 0 ? 0 : static_cast<int>(left.count());
}

enum class Event { Writable, Received, ClientClosed, Gone, Late, Stopped };

Event record_arrivals(Peer &peer, Connection &connection)
{
    char chunk[16384];
    const ssize_t count = recv(connection.descriptor, chunk, sizeof chunk, 0);
    if (count < 0)
        return errno == EAGAIN || errno == EINTR ? Event::Received : Event::Gone;
    const Lock lock(registry().mutex);
    if (count == 0) {
        connection.client_closed = true;
        return Event::ClientClosed;
    }
    connection.received.append(chunk, static_cast<std::size_t>(count));
    peer.changed.notify_all();
    return Event::Received;
}

// All waits of a connection are here. Whatever it waits for, it records what arrives.
Event next_event(Peer &peer, Connection &connection, bool to_write, Clock::time_point deadline)
{
    const int reading = connection.client_closed ? 0 : POLLIN;
    const int writing = to_write ? POLLOUT : 0;
    pollfd polled[2] = {
        {peer.wake_pipe[0], POLLIN, 0},
        {reading + writing == 0 ? -1 : connection.descriptor, static_cast<short>(reading | writing),
         0},
    };
    const int count = poll(polled, 2, milliseconds_until(deadline));
    if (polled[0].revents != 0 || (count < 0 && errno != EINTR))
        return Event::Stopped;
    if (count <= 0)
        return Clock::now() < deadline ? Event::Received : Event::Late;
    if (reading != 0 && (polled[1].revents & (POLLIN | POLLHUP | POLLERR)) != 0)
        return record_arrivals(peer, connection);
    return Event::Writable;
}

// Sends all bytes. False if the client is gone, the peer stops or the step takes too long.
bool send_bytes(Peer &peer, Connection &connection, const std::string &bytes)
{
    std::size_t sent = 0;
    const auto deadline = Clock::now() + step_limit;
    while (sent < bytes.size()) {
        const Event event = next_event(peer, connection, true, deadline);
        if (event == Event::Gone || event == Event::Late || event == Event::Stopped)
            return false;
        if (event != Event::Writable)
            continue;
        const ssize_t count =
            send(connection.descriptor, bytes.data() + sent, bytes.size() - sent, 0);
        if (count < 0 && errno != EAGAIN && errno != EINTR)
            return false;
        if (count > 0)
            sent += static_cast<std::size_t>(count);
    }
    return true;
}

// Records until the client closes, the peer stops or the deadline passes. True for the deadline.
bool record_until(Peer &peer, Connection &connection, Clock::time_point deadline)
{
    Event event = connection.client_closed ? Event::ClientClosed : Event::Received;
    while (event == Event::Received)
        event = next_event(peer, connection, false, deadline);
    return event == Event::Late;
}

// Returns the Content-Length of a POST request, 0 for other requests.
std::size_t body_length(std::string header)
{
    if (header.compare(0, 4, "POST") != 0)
        return 0;
    for (char &c : header)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    static const char name[] = "\r\ncontent-length:";
    const std::size_t found = header.find(name);
    if (found == std::string::npos)
        return 0;
    return std::strtoul(header.c_str() + found + std::strlen(name), nullptr, 10);
}

// Returns the end of the request that begins at `start`, or npos while it is incomplete.
std::size_t request_end(const std::string &received, std::size_t start)
{
    const std::size_t empty_line = received.find("\r\n\r\n", start);
    if (empty_line == std::string::npos)
        return std::string::npos;
    const std::size_t body_start = empty_line + 4;
    const std::size_t length = body_length(received.substr(start, body_start - start));
    return received.size() - body_start < length ? std::string::npos : body_start + length;
}

bool read_request(Peer &peer, Connection &connection, int milliseconds)
{
    for (;;) {
        // No lock: only this thread writes to `received`.
        const std::size_t end = request_end(connection.received, connection.request_start);
        if (end != std::string::npos) {
            connection.request_start = end;
            return true;
        }
        const Event event = next_event(peer, connection, false, Clock::now() + request_limit);
        if (event == Event::Late)
            ADD_FAILURE() << "the rest of this request did not arrive:\n"
                          << connection.received.substr(connection.request_start);
        if (event != Event::Received)
            return false;
        if (milliseconds > 0)
            poll(nullptr, 0, milliseconds);
    }
}

bool trickle(Peer &peer, Connection &connection, const PeerStep &step)
{
    for (char byte : step.bytes) {
        if (!send_bytes(peer, connection, std::string(1, byte)))
            return false;
        const auto pause = std::chrono::milliseconds(step.milliseconds);
        if (!record_until(peer, connection, Clock::now() + pause))
            return false;
    }
    return true;
}

// Shuts our side down and reads until the client closes its own: closing a socket with unread bytes
// would send a reset, and the client might lose the end of the reply.
bool close_cleanly(Peer &peer, Connection &connection)
{
    shutdown(connection.descriptor, SHUT_WR);
    record_until(peer, connection, Clock::now() + drain_limit);
    return false;
}

// True for the end of the time, false if the peer stops.
bool ignore_client(const Peer &peer, int milliseconds)
{
    pollfd polled = {peer.wake_pipe[0], POLLIN, 0};
    return poll(&polled, 1, milliseconds) == 0;
}

bool arm_reset(const Connection &connection)
{
    const linger at_once = {1, 0};
    setsockopt(connection.descriptor, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    return false;
}

// Plays one step. False if the connection ends with it.
bool play_step(Peer &peer, Connection &connection, const PeerStep &step)
{
    const auto pause_end = Clock::now() + std::chrono::milliseconds(step.milliseconds);
    switch (step.act) {
    case PeerAct::ReadRequest:
        return read_request(peer, connection, step.milliseconds);
    case PeerAct::Send:
        return send_bytes(peer, connection, step.bytes);
    case PeerAct::Pause:
        return record_until(peer, connection, pause_end);
    case PeerAct::Trickle:
        return trickle(peer, connection, step);
    case PeerAct::SendForever:
        while (!step.bytes.empty() && send_bytes(peer, connection, step.bytes)) {
        }
        return false;
    case PeerAct::Close:
        return close_cleanly(peer, connection);
    case PeerAct::Reset:
        return arm_reset(connection);
    case PeerAct::Hold:
        return record_until(peer, connection, Clock::now() + step_limit);
    case PeerAct::Ignore:
        return ignore_client(peer, step.milliseconds);
    }
    return false;
}

bool play_script(Peer &peer, Connection &connection)
{
    for (const PeerStep &step : connection.script) {
        if (!play_step(peer, connection, step))
            return false;
    }
    return true;
}

void serve_connection(Peer &peer, Connection &connection)
{
    if (play_script(peer, connection))
        close_cleanly(peer, connection);
    const Lock lock(registry().mutex);
    drop_descriptor(&connection.descriptor);
    connection.ended = true;
    peer.changed.notify_all();
}

void *run_connection(void *connection)
{
    Connection &served = *static_cast<Connection *>(connection);
    serve_connection(*served.peer, served);
    return nullptr;
}

void start_thread(Thread *thread, void *(*entry)(void *), void *argument)
{
    const int error = pthread_create(&thread->handle, nullptr, entry, argument);
    thread->is_running = error == 0;
    if (error != 0)
        ADD_FAILURE() << "can't start a thread of the peer: " << std::strerror(error);
}

void join_thread(Thread *thread)
{
    if (thread->is_running)
        pthread_join(thread->handle, nullptr);
    thread->is_running = false;
}

// Requires: the registry's lock is held. A thread that has ended no longer takes it.
void join_ended_threads(Peer &peer)
{
    for (auto &connection : peer.connections) {
        if (connection->ended)
            join_thread(&connection->thread);
    }
}

void accept_connection(Peer &peer)
{
    const Lock lock(registry().mutex);
    const int descriptor = adopt_descriptor(accept(peer.listener, nullptr, nullptr));
    if (descriptor < 0)
        return;
    const int on = 1;
    setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    join_ended_threads(peer);
    auto connection = std::make_unique<Connection>();
    connection->descriptor = descriptor;
    if (!peer.scripts.empty())
        connection->script =
            peer.scripts[std::min(peer.connections.size(), peer.scripts.size() - 1)];
    peer.connections.push_back(std::move(connection));
    Connection &served = *peer.connections.back();
    served.peer = &peer;
    start_thread(&served.thread, run_connection, &served);
    peer.changed.notify_all();
}

void accept_connections(Peer &peer)
{
    for (;;) {
        pollfd polled[2] = {{peer.wake_pipe[0], POLLIN, 0}, {peer.listener, POLLIN, 0}};
        poll(polled, 2, -1);
        if (polled[0].revents != 0)
            return;
        if (polled[1].revents != 0)
            accept_connection(peer);
    }
}

void *run_acceptor(void *peer)
{
    accept_connections(*static_cast<Peer *>(peer));
    return nullptr;
}

bool open_listener(Peer &peer)
{
    const Lock lock(registry().mutex);
    if (pipe(peer.wake_pipe) != 0)
        return false;
    adopt_descriptor(peer.wake_pipe[0]);
    adopt_descriptor(peer.wake_pipe[1]);
    peer.listener = adopt_descriptor(socket(AF_INET, SOCK_STREAM, 0));
    if (peer.listener < 0)
        return false;
    peer.port = bind_to_loopback(peer.listener);
    return peer.port != 0 && listen(peer.listener, 128) == 0;
}

// The threads start with all signals blocked: the signals of the process are for the test's thread,
// and a send to a client that has closed fails with EPIPE instead of ending the process.
void start_acceptor(Peer &peer)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    start_thread(&peer.acceptor, run_acceptor, &peer);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void stop_threads(Peer &peer)
{
    const char wake = 0;
    if (write(peer.wake_pipe[1], &wake, 1) != 1)
        ADD_FAILURE() << "can't wake the peer's threads: " << std::strerror(errno);
    join_thread(&peer.acceptor);
    for (auto &connection : peer.connections)
        join_thread(&connection->thread);
}

} // namespace

struct LoopbackPeer::State : Peer {
    Connection *find(int connection) const
    {
        const std::size_t index = static_cast<std::size_t>(connection);
        return index < connections.size() ? connections[index].get() : nullptr;
    }
};

LoopbackPeer::LoopbackPeer(std::vector<PeerScript> scripts) : state(std::make_shared<State>())
{
    state->scripts = std::move(scripts);
    if (open_listener(*state))
        start_acceptor(*state);
    else
        ADD_FAILURE() << "can't listen on 127.0.0.1: " << std::strerror(errno);
}

LoopbackPeer::~LoopbackPeer()
{
    if (state->acceptor.is_running)
        stop_threads(*state);
    const Lock lock(registry().mutex);
    drop_descriptor(&state->listener);
    drop_descriptor(&state->wake_pipe[0]);
    drop_descriptor(&state->wake_pipe[1]);
}

std::uint16_t LoopbackPeer::port() const
{
    return state->port;
}

std::string LoopbackPeer::address() const
{
    return "127.0.0.1:" + std::to_string(state->port);
}

int LoopbackPeer::connection_count() const
{
    const Lock lock(registry().mutex);
    return static_cast<int>(state->connections.size());
}

std::string LoopbackPeer::received(int connection) const
{
    Lock lock(registry().mutex);
    const auto ended = [&] {
        const Connection *found = state->find(connection);
        return found != nullptr && found->ended;
    };
    const bool in_time = state->changed.wait_for(lock, received_limit, ended);
    const Connection *found = state->find(connection);
    if (found == nullptr) {
        ADD_FAILURE() << "connection " << connection << " never came";
        return "";
    }
    if (!in_time)
        ADD_FAILURE() << "connection " << connection << " has not ended";
    return found->received;
}

bool LoopbackPeer::wait_for_text(int connection, const std::string &text,
                                 int limit_milliseconds) const
{
    Lock lock(registry().mutex);
    const auto arrived = [&] {
        const Connection *found = state->find(connection);
        return found != nullptr && found->received.find(text) != std::string::npos;
    };
    return state->changed.wait_for(lock, std::chrono::milliseconds(limit_milliseconds), arrived);
}

std::uint16_t refused_port()
{
    static const std::uint16_t port = [] {
        const Lock lock(registry().mutex);
        const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);
        return bind_to_loopback(descriptor);
    }();
    return port;
}

} // namespace quintral::tests
