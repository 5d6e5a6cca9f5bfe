#include "bench/exchange-server.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quintral {

namespace {

// A header of exactly this size, its empty line included, in lines that every client accepts.
std::string header_of(std::size_t size)
{
    constexpr std::size_t longest_line = 1000;
    const std::string end = "\r\n\r\n";
    std::string header = "HTTP/1.0 200 OK\r\nServer: of the benchmark\r\nX-Fill: ";
    std::size_t line_start = header.rfind('\n') + 1;
    while (header.size() + end.size() < size) {
        const std::size_t left = size - end.size() - header.size();
        if (header.size() - line_start > longest_line && left > 20) {
            header += "\r\nX-Fill: ";
            line_start = header.size();
        } else {
            header += 'f';
        }
    }
    return header + end;
}

// Receives a request up to its form. Returns an empty string if the client closes before that.
std::string receive_request(int connection)
{
    const std::string end = std::string("\r\n\r\n") + exchange_form;
    std::string request;
    char chunk[4096];
    while (request.size() < end.size() ||
           request.compare(request.size() - end.size(), end.size(), end) != 0) {
        const ssize_t count = recv(connection, chunk, sizeof chunk, 0);
        if (count <= 0)
            return "";
        request.append(chunk, static_cast<std::size_t>(count));
    }
    return request;
}

void answer(int connection)
{
    static std::string sizes; // of the reply that is kept
    static std::string reply;
    const std::string request = receive_request(connection);
    const std::string line = request.substr(0, request.find(" HTTP/1.0"));
    // The path or, after a host, the whole URL.
    const std::size_t body_mark = line.rfind('/');
    const std::size_t header_mark = line.rfind('/', body_mark - 1);
    if (body_mark == std::string::npos || header_mark == std::string::npos)
        return;
    if (line.substr(header_mark) != sizes) {
        sizes = line.substr(header_mark);
        reply = header_of(std::strtoul(line.c_str() + header_mark + 1, nullptr, 10));
        reply.append(std::strtoul(line.c_str() + body_mark + 1, nullptr, 10), 'x');
    }
    for (std::size_t sent = 0; sent < reply.size();) {
        const ssize_t count = send(connection, &reply[sent], reply.size() - sent, MSG_NOSIGNAL);
        if (count <= 0)
            return;
        sent += static_cast<std::size_t>(count);
    }
}

[[noreturn]] void serve(int listener)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL); // so that it ends with the benchmark
    for (;;) {
        const int connection = accept(listener, nullptr, nullptr);
        if (connection < 0)
            _exit(1);
        answer(connection);
        close(connection);
    }
}

[[noreturn]] void fail(const char *call)
{
    std::perror(call);
    std::exit(1);
}

} // namespace

ExchangeServer start_exchange_server()
{
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(listener, reinterpret_cast<const sockaddr *>(&address), size) != 0)
        fail("bind");
    if (listen(listener, 16) != 0)
        fail("listen");
    if (getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size) != 0)
        fail("getsockname");
    const pid_t process = fork();
    if (process < 0)
        fail("fork");
    if (process == 0)
        serve(listener);
    close(listener);
    return {process, ntohs(address.sin_port)};
}

void stop_exchange_server(const ExchangeServer &server)
{
    kill(server.process, SIGKILL);
    waitpid(server.process, nullptr, 0);
}

} // namespace quintral
