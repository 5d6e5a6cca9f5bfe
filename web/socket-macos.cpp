#include "web/socket.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace quintral {

int web_socket_open()
{
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    if (descriptor < 0)
        return descriptor;
    const int on = 1;
    if (setsockopt(descriptor, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on) == 0 &&
        fcntl(descriptor, F_SETFD, FD_CLOEXEC) == 0)
        return descriptor;
    const int error = errno; // the caller shows it
    close(descriptor);
    errno = error;
    return -1;
}

ssize_t web_socket_send(int descriptor, const char *bytes, std::size_t length)
{
    return send(descriptor, bytes, length, 0);
}

} // namespace quintral
