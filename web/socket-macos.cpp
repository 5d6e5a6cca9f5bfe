#include "web/socket.h"

#include <fcntl.h>
#include <sys/socket.h>

namespace quintral {

int web_socket_open()
{
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    if (descriptor < 0)
        return descriptor;
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
    fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    return descriptor;
}

void web_socket_send(int descriptor, const char *bytes, std::size_t length)
{
    static_cast<void>(send(descriptor, bytes, length, 0));
}

} // namespace quintral
