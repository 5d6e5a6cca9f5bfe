#include "tool/output.h"

#include <cerrno>

#include <unistd.h>

#include "support/error.h"
#include "tool/streams.h"
#include "tool/termination.h"

namespace quintral {

namespace {

std::string *collected = nullptr; // global because a print handler has no user data

void append_printed_text(const char *text, const char * /*tag*/)
{
    *collected += text;
}

// Writes the end of the output. The process waits for a reader with signals allowed and writes with
// signals blocked, so that no signal can arrive between the last byte and the final status. It is
// one byte, which every writable descriptor accepts without blocking.
int write_end(const char *bytes, std::size_t length, int exit_status)
{
    while (length > 0) {
        wait_for_reader(STDOUT_FILENO);
        block_termination();
        const ssize_t written = write(STDOUT_FILENO, bytes, length);
        const int error = errno;
        if (written > 0) {
            bytes += written;
            length -= static_cast<std::size_t>(written);
        }
        if (length == 0)
            set_final_status(exit_status);
        unblock_termination();
        errno = error;
        if (written < 0 && error != EAGAIN && error != EWOULDBLOCK && error != EINTR)
            return -1;
    }
    return 0;
}

} // namespace

void collect_printed_text(std::string *output)
{
    collected = output;
    set_print_handler(append_printed_text);
}

int finish_output(const std::string &output, int exit_status)
{
    if (output.empty())
        return 0;
    const std::size_t end = std::size_t{1};
    const std::size_t start = output.size() - end;
    int result = write_all(STDOUT_FILENO, output.data(), start);
    if (result == 0)
        result = write_end(output.data() + start, end, exit_status);
    return close_output(result == 0 ? 0 : errno);
}

} // namespace quintral
