// A server for tests of a connect that hangs.
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

// A server with a full queue: connecting to it never completes.
class HangingServer {
public:
    HangingServer()
    {
        name_.sin_family = AF_INET;
        name_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof name_;
        sockaddr *const name = reinterpret_cast<sockaddr *>(&name_);
        if (bind(listener_, name, size) != 0 || getsockname(listener_, name, &size) != 0 ||
            listen(listener_, 0) != 0)
            ADD_FAILURE() << "can't listen: " << std::strerror(errno);
        for (int &client : clients_) {
            client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
            if (connect(client, name, size) == 0)
                ADD_FAILURE() << "connected at once";
        }
    }

    ~HangingServer()
    {
        for (const int client : clients_)
            close(client);
        close(listener_);
    }

    HangingServer(const HangingServer &) = delete;
    HangingServer &operator=(const HangingServer &) = delete;

    // "127.0.0.1:PORT"
    std::string address() const
    {
        return "127.0.0.1:" + std::to_string(ntohs(name_.sin_port));
    }

private:
    int listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::array<int, 4> clients_ = {-1, -1, -1, -1}; // more than the queue holds
    sockaddr_in name_ = {};
};

} // namespace quintral::tests::tool

#endif
