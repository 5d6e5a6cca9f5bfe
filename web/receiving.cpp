#include "web/receiving.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>

#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "support/c-utils.h"
#include "support/clocks.h"
#include "web/last-error.h"
#include "web/transaction.h"

namespace quintral {

volatile std::sig_atomic_t web_cancel_requested = 0;

namespace {

constexpr std::uint32_t time_limit = 10000; // milliseconds without data
constexpr int header_wait = 100;            // milliseconds between two calls of the idle hook
constexpr int body_wait = 10000;            // the whole time limit
constexpr int select_range = 1024;          // select's first argument
constexpr std::size_t chunk_size = 1023;    // of the body, without a terminator
constexpr std::size_t first_capacity = 2048;

WebIdleHook idle_hook = nullptr;
void *idle_hook_data = nullptr;

struct ReplyLimits {
    std::size_t header_bytes; // of each, 0 is no limit
    std::size_t body_bytes;
};

constexpr ReplyLimits default_limits = {std::size_t{256} * 1024, std::size_t{8} * 1024 * 1024};
ReplyLimits limits = {0, 0};
bool program_has_set_limits = false;

// Waiting

bool has_passed(std::uint32_t deadline)
{
    return static_cast<std::int32_t>(deadline - clock_milliseconds()) <= 0;
}

// Waits for data with select. Returns select's result; *readable says whether the socket is in the
// returned set.
int wait_with_select(int descriptor, int milliseconds, bool *readable)
{
    fd_set descriptors;
    FD_ZERO(&descriptors);
    FD_SET(descriptor, &descriptors);
    timeval timeout;
    timeout.tv_sec = milliseconds / 1000;
    timeout.tv_usec = milliseconds % 1000 * 1000L;
    const int result = select(select_range, &descriptors, nullptr, nullptr, &timeout);
    *readable = result > 0 && FD_ISSET(descriptor, &descriptors);
    return result;
}

// The same for a descriptor too large for an fd_set, as a host program with many open files has. A
// bad descriptor is a failure, as it is for select.
int wait_with_poll(int descriptor, int milliseconds, bool *readable)
{
    pollfd entry = {descriptor, POLLIN, 0};
    const int result = poll(&entry, 1, milliseconds);
    *readable = result > 0;
    return result > 0 && (entry.revents & POLLNVAL) != 0 ? -1 : result;
}

int wait_once(int descriptor, int milliseconds, bool *readable)
{
    return descriptor < static_cast<int>(FD_SETSIZE)
               ? wait_with_select(descriptor, milliseconds, readable)
               : wait_with_poll(descriptor, milliseconds, readable);
}

int timed_out()
{
    web_last_failure = WebCheckTimedOut;
    web_set_error("Timeout waiting for web site");
    return WebTimedOut;
}

int cancelled()
{
    web_last_failure = WebCheckCancelled;
    web_set_error("User canceled web transaction");
    web_cancel_requested = 0;
    return WebCancelled;
}

// Waits until data can be read, at most for the time limit, in waits of the given length. After
// each wait it checks the cancel flag and calls the idle hook. Returns WebOk, WebTimedOut or
// WebCancelled. The clock is not read after a wait that found data: a header takes one wait per
// byte. A wait as long as the time limit can start again once, after a signal has ended it.
int wait_for_data(int descriptor, int milliseconds)
{
    const std::uint32_t deadline = clock_milliseconds() + time_limit;
    do {
        bool readable = false;
        if (wait_once(descriptor, milliseconds, &readable) > 0)
            return readable ? WebOk : timed_out();
        if (web_cancel_requested != 0)
            return cancelled();
        if (idle_hook != nullptr)
            idle_hook(idle_hook_data);
    } while (!has_passed(deadline));
    return timed_out();
}

// The block of a reply

// A part of the reply, in the block that the caller gets. The block doubles. The C library moves a
// large one by remapping its pages, and pages that were never written take no memory, so the peak
// of a large reply is about its own size.
struct ReplyPart {
    char *bytes = nullptr;    // null before the first byte
    std::size_t capacity = 0; // size of the block
    std::size_t length = 0;   // of the bytes received and kept

    ReplyPart() = default;
    ReplyPart(const ReplyPart &) = delete;
    ReplyPart &operator=(const ReplyPart &) = delete;

    ~ReplyPart()
    {
        checked_free(bytes); // null once delivered; frees the block if the idle hook throws
    }
};

// Grows the block if needed for `added` more bytes and a terminator.
void ensure_capacity(ReplyPart *part, std::size_t added)
{
    if (part->capacity - part->length > added)
        return;
    if (part->capacity > std::numeric_limits<std::size_t>::max() / 2)
        throw std::bad_alloc();
    const std::size_t capacity = part->capacity == 0 ? first_capacity : 2 * part->capacity;
    part->bytes = static_cast<char *>(checked_realloc(part->bytes, part->capacity, capacity));
    part->capacity = capacity;
}

// Terminates the bytes and gives the block to the caller. Deliberately not shrunk: the unused pages
// of a large block take no memory, and an allocator that gets back a smaller block than it had to
// provide does not keep enough of it for the next reply of that size.
void deliver(ReplyPart *part, char **text)
{
    ensure_capacity(part, 0);
    part->bytes[part->length] = '\0';
    *text = part->bytes;
    part->bytes = nullptr;
}

// Receiving

bool is_transient_error(int error)
{
    return error == EAGAIN || error == EINTR;
}

int receive_failed()
{
    web_last_failure = WebReceiveFailed;
    web_set_error("Error receiving data from web site: %s", web_errno_text());
    return WebFailed;
}

int longer_than_limit(const char *which, std::size_t limit)
{
    web_last_failure = WebReplyTooLong;
    web_set_error("Reply %s from web site is longer than %lu bytes", which,
                  static_cast<unsigned long>(limit));
    return WebFailed;
}

ssize_t receive_byte(int descriptor, char *byte)
{
    ssize_t count;
    do {
        count = recv(descriptor, byte, 1, 0);
    } while (count < 0 && is_transient_error(errno));
    return count;
}

// Receives up to the empty line, a byte at a time, so that nothing of the body is taken. Returns
// WebOk also when receiving failed: the body phase then decides.
//
// Deliberately, end-of-file is not distinguished from data: the last byte is processed again. After
// a line feed that ends the header. After any other byte it repeats until a limit is reached or
// memory runs out: a service that closes within a line is broken, and no part of its header is
// passed off as complete. The byte before the first counts as a line feed, so an empty reply has an
// empty header.
int receive_header(int descriptor, ReplyPart *header)
{
    std::size_t line_length = 0;
    char byte = '\n';
    for (;;) {
        const int waited = wait_for_data(descriptor, header_wait);
        if (waited != WebOk)
            return waited;
        if (receive_byte(descriptor, &byte) < 0) {
            receive_failed();
            return WebOk;
        }
        if (byte == '\n' && line_length == 0)
            return WebOk;
        if (byte == '\n')
            line_length = 0;
        else if (byte != '\r')
            ++line_length;
        if (limits.header_bytes != 0 && header->length >= limits.header_bytes)
            return longer_than_limit("header", limits.header_bytes);
        ensure_capacity(header, 1);
        header->bytes[header->length++] = byte;
    }
}

// Returns how many of the bytes come before the first NUL: a body is a string.
std::size_t length_without_nul(const char *bytes, std::size_t count)
{
    const void *nul = std::memchr(bytes, '\0', count);
    return nul != nullptr ? static_cast<std::size_t>(static_cast<const char *>(nul) - bytes)
                          : count;
}

// Receives up to the server's close. A NUL drops the rest of its chunk.
int receive_body(int descriptor, ReplyPart *body)
{
    std::size_t received = 0;
    for (;;) {
        const int waited = wait_for_data(descriptor, body_wait);
        if (waited != WebOk)
            return waited;
        ensure_capacity(body, chunk_size);
        char *chunk = body->bytes + body->length;
        const ssize_t count = recv(descriptor, chunk, chunk_size, 0);
        if (count < 0)
            return is_transient_error(errno) ? WebOk : receive_failed();
        if (count == 0)
            return WebOk;
        received += static_cast<std::size_t>(count);
        if (limits.body_bytes != 0 && received > limits.body_bytes)
            return longer_than_limit("body", limits.body_bytes);
        body->length += length_without_nul(chunk, static_cast<std::size_t>(count));
    }
}

} // namespace

int web_receive_reply(int descriptor, char **header_out, char **body_out)
{
    ReplyPart header;
    int result = receive_header(descriptor, &header);
    if (result != WebOk)
        return result;
    deliver(&header, header_out);
    ReplyPart body;
    result = receive_body(descriptor, &body);
    if (result != WebOk)
        return result;
    deliver(&body, body_out);
    return WebOk;
}

void web_set_idle_hook(WebIdleHook hook, void *user_data)
{
    idle_hook = hook;
    idle_hook_data = user_data;
}

void web_set_reply_limits(std::size_t header_bytes, std::size_t body_bytes)
{
    limits = {header_bytes, body_bytes};
    program_has_set_limits = true;
}

void web_apply_default_limits(bool apply)
{
    if (!program_has_set_limits)
        limits = apply ? default_limits : ReplyLimits{0, 0};
}

} // namespace quintral
