#include "web/socket.h"

#include <sys/socket.h>

namespace quintral {

int web_socket_open()
{
    return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

ssize_t web_socket_send(int descriptor, const char *bytes, std::size_t length)
{
    return send(descriptor, bytes, length, MSG_NOSIGNAL);
}

} // namespace quintral
