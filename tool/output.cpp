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

// The process waits for a reader with signals allowed and writes with signals blocked, so that no
// signal can arrive between the last byte and the final status. Every writable descriptor accepts
// one byte without blocking.
int write_last_byte(char byte, int exit_status)
{
    for (;;) {
        wait_for_reader(STDOUT_FILENO);
        block_termination();
        const ssize_t written = write(STDOUT_FILENO, &byte, 1);
        const int error = errno;
        if (written == 1)
            set_final_status(exit_status);
        unblock_termination();
        errno = error;
        if (written == 1)
            return 0;
        if (written < 0 && error != EAGAIN && error != EWOULDBLOCK && error != EINTR)
            return -1;
    }
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
    int result = write_all(STDOUT_FILENO, output.data(), output.size() - 1);
    if (result == 0)
        result = write_last_byte(output.back(), exit_status);
    return close_output(result == 0 ? 0 : errno);
}

} // namespace quintral
