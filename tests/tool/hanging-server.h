// A server that a connect never reaches.
#ifndef QUINTRAL_TESTS_TOOL_HANGING_SERVER_H
#define QUINTRAL_TESTS_TOOL_HANGING_SERVER_H

#include <array>
#include <cerrno>
#include <cstring>
#include <string>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace quintral::tests::tool {

// A server whose queue is full, so that connecting to it never comes to an end.
struct HangingServer {
    int listener = -1;
    std::array<int, 4> clients = {-1, -1, -1, -1};
    sockaddr_in address = {};

    HangingServer()
    {
        listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        sockaddr *const name = reinterpret_cast<sockaddr *>(&address);
        if (bind(listener, name, size) != 0 || getsockname(listener, name, &size) != 0 ||
            listen(listener, 0) != 0)
            ADD_FAILURE() << "can't listen: " << std::strerror(errno);
        for (int &client : clients) {
            client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
            if (connect(client, name, size) == 0)
                ADD_FAILURE() << "connected at once";
        }
    }

    ~HangingServer()
    {
        for (int client : clients)
            close(client);
        close(listener);
    }

    HangingServer(const HangingServer &) = delete;
    HangingServer &operator=(const HangingServer &) = delete;

    std::string service() const
    {
        return "127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    }
};

} // namespace quintral::tests::tool

#endif
