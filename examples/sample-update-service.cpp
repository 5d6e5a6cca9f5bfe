// A sample update service. update-exchange.h describes what it does with a request. This file is
// the server: connections and their limits, and the start and end of the program.
//
//     sample-update-service [--port N] PRODUCTS-FILE
//
// It listens on port N of 127.0.0.1 (default: a free port) and writes the single line
// "Listening on 127.0.0.1:PORT" to standard output, so that a script can read the port. It serves
// until SIGTERM or SIGINT ends it with status 0. Each request and its answer are logged to standard
// error. An invalid command line or product list ends the program with status 2, a system error
// with status 1.
//
// One poll loop serves all connections and never waits for a single client. The limits here and in
// update-exchange bound what clients can use. Only writing the log can block, so if standard error
// is a pipe, its reader must keep reading. This is a sample: it speaks plain HTTP and only to this
// machine. Run a real service behind a web server.
#include "update-exchange.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace sample {
namespace {

using Clock = std::chrono::steady_clock;

// Below the usual limit of 1024 descriptors.
constexpr std::size_t connection_limit = 512;
// From accept to close, whatever the client does in between.
constexpr std::chrono::seconds connection_time(10);
// For this long after accept, a connection is not closed in favour of another: enough for a request
// over a slow line. A thousand clients that only hold connections delay a new one by at most twice
// that, since 512 of them are replaced each time. Clients wait ten seconds for an answer.
constexpr std::chrono::seconds grace_time(2);

// ---- One connection ---------------------------------------------------------------------------

enum class Phase { Receiving, Sending, Draining };

struct Connection {
    int descriptor;
    Clock::time_point accepted;
    Clock::time_point progress; // when it last moved bytes of the request or the answer
    Phase phase = Phase::Receiving;
    std::string input;
    std::size_t body_start = 0; // 0: the header has not been read
    Request request;
    std::string output;
    std::size_t sent = 0;
};

void start_answer(Connection *connection, const Answer &answer, const std::vector<Field> &fields)
{
    const std::string log = log_text(connection->request, fields, answer);
    std::fwrite(log.data(), 1, log.size(), stderr);
    connection->output = answer_bytes(connection->request, answer);
    connection->input = std::string();
    connection->phase = Phase::Sending;
}

void start_refusal(Connection *connection, const char *why)
{
    Answer answer;
    bad_request(&answer, why);
    start_answer(connection, answer, {});
}

// Reads the header once it is complete. Sends the answer if the request is refused.
void take_header(Connection *connection, std::size_t searched)
{
    const std::string_view input = connection->input;
    std::size_t empty_line = 0;
    const std::size_t end = find_header_end(input, searched, &empty_line);
    if (end > header_limit) {
        if (input.size() > header_limit)
            start_refusal(connection, "The header is too long.");
        return;
    }
    Answer answer;
    if (read_header(input.substr(0, end), &connection->request, &answer) != 0)
        return start_answer(connection, answer, {});
    connection->body_start = end + 1 + empty_line;
}

// Answers the form once it is complete.
void take_body(Connection *connection, const std::vector<Product> &products)
{
    const std::string_view body =
        std::string_view(connection->input).substr(connection->body_start);
    const std::size_t length = connection->request.body_length;
    if (body.size() < length)
        return;
    Answer answer;
    std::vector<Field> fields;
    answer_form(products, body.substr(0, length), &fields, &answer);
    start_answer(connection, answer, fields);
}

// The next functions return 0 to keep the connection and -1 to close it.

int after_failure()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR ? 0 : -1;
}

int receive(Connection *connection, const std::vector<Product> &products)
{
    char chunk[4096];
    const ssize_t count = recv(connection->descriptor, chunk, sizeof chunk, 0);
    if (count < 0)
        return after_failure();
    if (connection->phase == Phase::Draining || (count == 0 && connection->input.empty()))
        return count == 0 ? -1 : 0;
    if (count == 0) {
        start_refusal(connection, connection->body_start > 0
                                      ? "The form is shorter than its length."
                                      : "The header has no end.");
        return 0;
    }
    connection->progress = Clock::now();
    const std::size_t before = connection->input.size();
    connection->input.append(chunk, static_cast<std::size_t>(count));
    if (connection->body_start == 0)
        take_header(connection, before);
    if (connection->body_start > 0 && connection->phase == Phase::Receiving)
        take_body(connection, products);
    return 0;
}

// The client reads until the connection closes, so the sending side is shut down after the answer.
// Whatever the client still sends is then read and dropped: closing with unread bytes would send a
// reset, which can destroy the answer before the client has read it.
int send_answer(Connection *connection)
{
    const std::string &output = connection->output;
    const ssize_t count = send(connection->descriptor, output.data() + connection->sent,
                               output.size() - connection->sent, 0);
    if (count < 0)
        return after_failure();
    connection->progress = Clock::now();
    connection->sent += static_cast<std::size_t>(count);
    if (connection->sent == output.size()) {
        shutdown(connection->descriptor, SHUT_WR);
        connection->phase = Phase::Draining;
    }
    return 0;
}

int serve(Connection *connection, const std::vector<Product> &products)
{
    if (connection->phase == Phase::Sending)
        return send_answer(connection);
    return receive(connection, products);
}

// ---- All connections --------------------------------------------------------------------------

struct Clients {
    // In the order in which they were accepted, so the time of the first one ends first.
    std::vector<Connection> connections;
    std::size_t capacity = connection_limit; // less if the system has no more descriptors
};

void close_connection(Clients *clients, std::size_t index, const char *why)
{
    const Connection &connection = clients->connections[index];
    if (why != nullptr && connection.phase != Phase::Draining)
        std::fprintf(stderr, "Closed: %s\n", why);
    close(connection.descriptor);
    clients->connections.erase(clients->connections.begin() + static_cast<std::ptrdiff_t>(index));
    clients->capacity = connection_limit;
}

bool has_grace(const Connection &connection)
{
    return connection.accepted + grace_time > Clock::now();
}

// Whether new clients wait in the system's queue: no more can be held, and no connection may be
// closed for them.
bool is_full(const Clients &clients)
{
    const std::size_t count = clients.connections.size();
    return count > 0 && count >= clients.capacity && has_grace(clients.connections.front());
}

// Closes the connection that has been without progress for the longest, of those that have had
// their grace time.
void close_stalest(Clients *clients, const char *why)
{
    const std::vector<Connection> &connections = clients->connections;
    std::size_t stalest = 0;
    for (std::size_t i = 1; i < connections.size() && !has_grace(connections[i]); ++i) {
        if (connections[i].progress < connections[stalest].progress)
            stalest = i;
    }
    close_connection(clients, stalest, why);
}

// Accepts a client that is waiting. If no more can be held, another connection is closed.
// Requires: the clients are not full.
void accept_client(int listener, Clients *clients)
{
    if (clients->connections.size() >= clients->capacity)
        close_stalest(clients, clients->capacity < connection_limit
                                   ? "the system has no room for another client"
                                   : "too many clients");
    const int descriptor = accept(listener, nullptr, nullptr);
    if (descriptor < 0 && (after_failure() == 0 || errno == ECONNABORTED))
        return;
    if (descriptor < 0) { // most likely out of descriptors; never spin
        clients->capacity = std::max<std::size_t>(clients->connections.size(), 1);
        if (clients->connections.empty())
            poll(nullptr, 0, 100);
        return;
    }
    fcntl(descriptor, F_SETFL, O_NONBLOCK);
    Connection connection{};
    connection.descriptor = descriptor;
    connection.accepted = Clock::now();
    connection.progress = connection.accepted;
    clients->connections.push_back(connection);
}

void close_late(Clients *clients)
{
    while (!clients->connections.empty() &&
           clients->connections.front().accepted + connection_time <= Clock::now())
        close_connection(clients, 0, "the client took too long");
}

// Milliseconds until new clients need not wait any more or the first connection's time ends,
// rounded up; -1 without connections.
int poll_time(const Clients &clients)
{
    if (clients.connections.empty())
        return -1;
    const auto end =
        clients.connections.front().accepted + (is_full(clients) ? grace_time : connection_time);
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

int stop_pipe[2];

extern "C" void stop_signal(int)
{
    const int error = errno;
    (void)!write(stop_pipe[1], "", 1);
    errno = error;
}

// Waits until there is something to do. Returns what poll has found for the stop pipe, the listener
// and each connection, or nothing if a signal has interrupted it.
std::vector<pollfd> wait_for_events(int listener, const Clients &clients)
{
    const short accepting = is_full(clients) ? 0 : POLLIN;
    std::vector<pollfd> waiting = {{stop_pipe[0], POLLIN, 0}, {listener, accepting, 0}};
    for (const Connection &connection : clients.connections) {
        const bool sending = connection.phase == Phase::Sending;
        const short events = sending ? POLLOUT : POLLIN;
        waiting.push_back({connection.descriptor, events, 0});
    }
    const auto count = static_cast<nfds_t>(waiting.size());
    if (poll(waiting.data(), count, poll_time(clients)) < 0)
        waiting.clear();
    return waiting;
}

void run(int listener, const std::vector<Product> &products)
{
    Clients clients;
    for (;;) {
        const std::vector<pollfd> ready = wait_for_events(listener, clients);
        if (ready.empty())
            continue;
        if (ready[0].revents != 0)
            break;
        // Backwards, because closing a connection moves the ones after it.
        for (std::size_t i = clients.connections.size(); i-- > 0;) {
            if (ready[i + 2].revents != 0 && serve(&clients.connections[i], products) != 0)
                close_connection(&clients, i, nullptr);
        }
        close_late(&clients);
        if (ready[1].revents != 0)
            accept_client(listener, &clients);
    }
    while (!clients.connections.empty())
        close_connection(&clients, clients.connections.size() - 1, "the service ends");
}

// ---- Start ------------------------------------------------------------------------------------

constexpr const char *usage =
    "Usage: sample-update-service [--port N] PRODUCTS-FILE\n"
    "Answers version-update queries on 127.0.0.1 (port N, or a free one).\n";

struct Settings {
    std::uint16_t port = 0;
    const char *products_path = nullptr;
};

int read_port(const std::string &text, std::uint16_t *port)
{
    if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != text.npos ||
        std::stoi(text) > 65535)
        return -1;
    *port = static_cast<std::uint16_t>(std::stoi(text));
    return 0;
}

// Returns null, or what is wrong with the command line.
const char *read_arguments(int count, char **arguments, Settings *settings)
{
    for (int i = 1; i < count; ++i) {
        const std::string_view argument = arguments[i];
        if (argument == "--port") {
            if (read_port(++i < count ? arguments[i] : "", &settings->port) != 0)
                return "--port takes a number from 0 to 65535";
        } else if (argument.substr(0, 1) == "-") {
            return "unknown option";
        } else if (settings->products_path != nullptr) {
            return "more than one product list is given";
        } else {
            settings->products_path = arguments[i];
        }
    }
    return settings->products_path != nullptr ? nullptr : "no product list is given";
}

// Returns the listening socket and sets *port to its port, or returns -1 after reporting the error.
int listen_on_loopback(std::uint16_t *port)
{
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    const int on = 1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(*port);
    socklen_t size = sizeof address;
    if (listener < 0 || setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(listener, reinterpret_cast<sockaddr *>(&address), size) != 0 ||
        listen(listener, SOMAXCONN) != 0 || fcntl(listener, F_SETFL, O_NONBLOCK) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size) != 0) {
        std::fprintf(stderr, "Can't listen on 127.0.0.1:%u: %s\n", static_cast<unsigned>(*port),
                     std::strerror(errno));
        return -1;
    }
    *port = ntohs(address.sin_port);
    return listener;
}

// Opens descriptors 0 to 2 before any socket, so that the log never goes to a client if the service
// was started with standard error closed.
void fill_standard_descriptors()
{
    int descriptor = open("/dev/null", O_RDWR);
    while (descriptor >= 0 && descriptor <= 2)
        descriptor = open("/dev/null", O_RDWR);
    if (descriptor >= 0)
        close(descriptor);
}

int catch_signals()
{
    if (pipe(stop_pipe) != 0 || fcntl(stop_pipe[1], F_SETFL, O_NONBLOCK) != 0)
        return -1;
    std::signal(SIGPIPE, SIG_IGN); // a client that is gone makes send fail
    std::signal(SIGTERM, stop_signal);
    std::signal(SIGINT, stop_signal);
    return 0;
}

} // namespace
} // namespace sample

int main(int argument_count, char **arguments)
{
    using namespace sample;
    fill_standard_descriptors();
    if (argument_count == 2 && std::strcmp(arguments[1], "--help") == 0)
        return std::fputs(usage, stdout) < 0 || std::fflush(stdout) != 0 ? 1 : 0;
    Settings settings;
    const char *wrong = read_arguments(argument_count, arguments, &settings);
    if (wrong != nullptr) {
        std::fprintf(stderr, "sample-update-service: %s\n%s", wrong, usage);
        return 2;
    }
    std::vector<Product> products;
    if (read_products(settings.products_path, &products) != 0)
        return 2;
    const int listener = catch_signals() == 0 ? listen_on_loopback(&settings.port) : -1;
    if (listener < 0)
        return 1;
    std::printf("Listening on 127.0.0.1:%u\n", static_cast<unsigned>(settings.port));
    if (std::fflush(stdout) != 0)
        return 1;
    run(listener, products);
    return 0;
}
