#include "tool/read-file.h"

#include <cerrno>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include "support/c-utils.h"
#include "tool/streams.h"
#include "web/transaction.h"

namespace quintral {

namespace {

constexpr std::size_t largest_file = std::size_t{64} * 1024 * 1024;
constexpr std::size_t longest_line = 4096;                     // kept
constexpr std::size_t largest_line = std::size_t{1024} * 1024; // accepted

#if defined(O_CLOEXEC)
constexpr int close_on_exec = O_CLOEXEC;
#else
constexpr int close_on_exec = 0; // on Mac OS X before 10.7, where no child is started here
#endif

struct OpenFile {
    int descriptor;
    bool is_standard_input;
    ~OpenFile()
    {
        if (!is_standard_input && descriptor >= 0)
            close(descriptor);
    }
};

OpenFile open_to_read(const char *path)
{
    if (std::strcmp(path, "-") == 0)
        return {STDIN_FILENO, true};
    return {open(path, O_RDONLY | close_on_exec), false};
}

int cannot_read(const char *path, std::string *error)
{
    *error = std::string("Can't read '") + path + "', " + web_errno_text();
    return -1;
}

ssize_t read_some(int descriptor, char *buffer, std::size_t size)
{
    ssize_t count = read(descriptor, buffer, size);
    while (count < 0 && errno == EINTR)
        count = read(descriptor, buffer, size);
    return count;
}

// The terminal whose echo is off, and its settings before; global because signal handlers restore
// them.
termios echoing;
volatile std::sig_atomic_t silent_terminal = -1;

void restore_echo()
{
    if (silent_terminal < 0)
        return;
    tcsetattr(silent_terminal, TCSAFLUSH, &echoing);
    silent_terminal = -1;
}

void restore_echo_and_end(int signal_number)
{
    restore_echo();
    set_signal_action(signal_number, SIG_DFL);
    std::raise(signal_number);
}

// Turns the echo of a terminal off while it exists. Does nothing for other files.
struct EchoOff {
    static constexpr int signals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
    struct sigaction before[4] = {};
    bool is_terminal;

    explicit EchoOff(int descriptor) : is_terminal(tcgetattr(descriptor, &echoing) == 0)
    {
        if (!is_terminal)
            return;
        struct sigaction action = {};
        action.sa_handler = restore_echo_and_end;
        for (int i = 0; i < 4; ++i) {
            sigaction(signals[i], nullptr, &before[i]);
            if (before[i].sa_handler != SIG_IGN)
                sigaction(signals[i], &action, nullptr);
        }
        termios silent = echoing;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        silent_terminal = descriptor;
        tcsetattr(descriptor, TCSAFLUSH, &silent);
    }

    ~EchoOff()
    {
        if (silent_terminal < 0)
            return;
        restore_echo();
        for (int i = 0; i < 4; ++i)
            sigaction(signals[i], &before[i], nullptr);
    }

    EchoOff(const EchoOff &) = delete;
    EchoOff &operator=(const EchoOff &) = delete;
};

void overwrite(std::string *text)
{
    for (char &c : *text)
        c = '\0';
}

// Reads up to a line feed, a byte at a time, so that nothing after it is taken from standard input.
// Returns 0, or -1 with errno set.
int read_line(int descriptor, std::string *line)
{
    char byte = '\0';
    for (std::size_t count = 0; count < largest_line; ++count) {
        const ssize_t received = read_some(descriptor, &byte, 1);
        if (received < 0)
            return -1;
        if (received == 0 || byte == '\n')
            return 0;
        if (line->size() < longest_line)
            *line += byte;
    }
    errno = EMSGSIZE; // rather than read a device for ever
    return -1;
}

} // namespace

int read_whole_file(const char *path, std::string *text, std::string *error)
{
    const OpenFile file = open_to_read(path);
    if (file.descriptor < 0)
        return cannot_read(path, error);
    char buffer[16384];
    for (;;) {
        const ssize_t count = read_some(file.descriptor, buffer, sizeof buffer);
        if (count == 0)
            return 0;
        if (count > 0 && text->size() + static_cast<std::size_t>(count) > largest_file)
            errno = EFBIG;
        else if (count > 0) {
            text->append(buffer, static_cast<std::size_t>(count));
            continue;
        }
        return cannot_read(path, error);
    }
}

int read_secret_line(const char *path, char *buffer, std::size_t size, std::string *error)
{
    const OpenFile file = open_to_read(path);
    if (file.descriptor < 0)
        return cannot_read(path, error);
    std::string line;
    line.reserve(longest_line); // so that no copy of the secret is left in memory
    int result = 0;
    {
        const EchoOff echo(file.descriptor);
        static const char prompt[] = "Password: ";
        if (echo.is_terminal)
            write_if_possible(STDERR_FILENO, prompt, sizeof prompt - 1);
        result = read_line(file.descriptor, &line);
        if (echo.is_terminal)
            write_if_possible(STDERR_FILENO, "\n", 1);
    }
    if (result != 0) {
        cannot_read(path, error); // first, as it reads errno
        overwrite(&line);
        return -1;
    }
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    copy_string_bounded(buffer, line.c_str(), size);
    overwrite(&line);
    return 0;
}

} // namespace quintral
