#include "tool/streams.h"

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "tool/safe-text.h"
#include "web/transaction.h"

namespace quintral {

namespace {

void show_line(const char *name, const char *text, const char *ending)
{
    const std::string line = std::string(name) + ": " + safe_line(text) + ending;
    write_all(STDERR_FILENO, line.data(), line.size());
}

// After a write that failed: true when the next one may succeed. A stream that whoever started the
// utility has made non-blocking is waited for.
bool can_write_again(int descriptor, int error)
{
    if (error == EAGAIN || error == EWOULDBLOCK) {
        pollfd entry = {descriptor, POLLOUT, 0};
        poll(&entry, 1, -1);
        return true;
    }
    return error == EINTR;
}

} // namespace

void settle_streams()
{
    // Opened in rising order, each closed descriptor is the lowest free one.
    const int modes[] = {O_RDONLY, O_RDONLY, O_RDWR};
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) == -1)
            static_cast<void>(open("/dev/null", modes[descriptor]));
    }
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

int write_all(int descriptor, const char *bytes, std::size_t length)
{
    while (length > 0) {
        const ssize_t written = write(descriptor, bytes, length);
        if (written < 0 && !can_write_again(descriptor, errno))
            return -1;
        if (written < 0)
            continue;
        bytes += written;
        length -= static_cast<std::size_t>(written);
    }
    return 0;
}

void write_if_possible(int descriptor, const char *bytes, std::size_t length)
{
    pollfd entry = {descriptor, POLLOUT, 0};
    if (poll(&entry, 1, 0) == 1 && (entry.revents & POLLOUT) != 0)
        static_cast<void>(!write(descriptor, bytes, length));
}

int print_output(const std::string &text)
{
    if (write_all(STDOUT_FILENO, text.data(), text.size()) == 0 && close(STDOUT_FILENO) == 0)
        return 0;
    show_failure((std::string("Can't write standard output, ") + web_errno_text()).c_str());
    return -1;
}

void show_failure(const char *text)
{
    show_line("Error", text, "\a\n");
}

void show_remark(const char *text)
{
    show_line("Note", text, "\n");
}

} // namespace quintral
