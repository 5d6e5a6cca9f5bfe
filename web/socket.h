// The two socket calls that differ between systems; socket-linux.cpp and socket-macos.cpp define
// the same functions. For web/transaction.cpp only.
#ifndef QUINTRAL_WEB_SOCKET_H
#define QUINTRAL_WEB_SOCKET_H

#include <cstddef>

#include <sys/types.h>

namespace quintral {

// Opens an IPv4 TCP socket that is closed on exec. A broken connection raises no SIGPIPE in
// web_socket_send. Returns the descriptor, which the caller closes, or -1 with errno set.
int web_socket_open();

// Makes one send call and returns its result: the number of bytes sent, or -1 with errno set.
ssize_t web_socket_send(int descriptor, const char *bytes, std::size_t length);

} // namespace quintral

#endif
