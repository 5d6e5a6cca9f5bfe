#include "tool/streams.h"

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>

#include "support/error.h"
#include "tool/safe-text.h"
#include "web/transaction.h"

namespace quintral {

namespace {

// Waits until a standard descriptor is writable, for as long as `timeout` says; null for any time.
// Returns false if it is not writable by then. Deliberately select: poll of macOS reports terminals
// as invalid. Async-signal-safe.
bool wait_until_writable(int descriptor, timeval *timeout)
{
    fd_set descriptors;
    FD_ZERO(&descriptors);
    FD_SET(descriptor, &descriptors);
    return select(descriptor + 1, nullptr, &descriptors, nullptr, timeout) > 0;
}

// After a failed write: true if the next one may succeed. A non-blocking stream is waited for.
bool can_write_again(int descriptor, int error)
{
    if (error == EAGAIN || error == EWOULDBLOCK) {
        wait_until_writable(descriptor, nullptr);
        return true;
    }
    return error == EINTR;
}

} // namespace

void set_signal_action(int signal_number, void (*action)(int))
{
    struct sigaction wanted = {};
    wanted.sa_handler = action;
    sigaction(signal_number, &wanted, nullptr);
}

void prepare_streams()
{
    // In rising order, each closed descriptor is the lowest free one when it is opened.
    const int modes[] = {O_RDONLY, O_RDONLY, O_RDWR};
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) == -1)
            static_cast<void>(open("/dev/null", modes[descriptor]));
    }
    set_signal_action(SIGPIPE, SIG_IGN);
    set_signal_action(SIGXFSZ, SIG_IGN);
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
    timeval at_once = {0, 0};
    if (wait_until_writable(descriptor, &at_once))
        static_cast<void>(!write(descriptor, bytes, length));
}

void wait_for_reader(int descriptor)
{
    wait_until_writable(descriptor, nullptr);
}

int close_output(int error)
{
    if (close(STDOUT_FILENO) != 0 && error == 0)
        error = errno;
    if (error == 0)
        return 0;
    errno = error;
    show_failure((std::string("Can't write standard output, ") + web_errno_text()).c_str());
    return -1;
}

void show_message(MessageLevel level, const char *text)
{
    char line[1024]; // less a byte for the line feed: format_message then keeps 1003 of the text
    int length = format_message(level, text, line, sizeof line - 1);
    line[length++] = '\n';
    write_all(STDERR_FILENO, line, static_cast<std::size_t>(length));
}

void show_usage_text(const std::string &text)
{
    write_all(STDERR_FILENO, text.data(), text.size());
}

int print_usage_text(const std::string &text)
{
    const int result = write_all(STDOUT_FILENO, text.data(), text.size());
    return close_output(result == 0 ? 0 : errno);
}

void show_failure(const char *text)
{
    report_message(Error, "%s", safe_line(text).c_str());
}

void show_note(const char *text)
{
    report_message(Note, "%s", safe_line(text).c_str());
}

} // namespace quintral
