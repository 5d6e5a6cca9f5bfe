#include "web/transaction.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "support/c-utils.h"
#include "web/http-text.h"
#include "web/socket.h"

namespace quintral {

volatile std::sig_atomic_t web_cancel_requested = 0;

namespace {

// Where the clock counts from, as all clocks of the suite; only differences matter here.
constexpr std::uint32_t clock_epoch = 1050000000;
constexpr std::uint32_t time_limit = 10000; // milliseconds without data
constexpr int header_wait = 100;            // milliseconds between two calls of the idle hook
constexpr int body_wait = 10000;            // the whole time limit
constexpr int select_range = 1024;          // select's first argument
constexpr std::size_t chunk_size = 1024;    // of the body, with room for a terminator

char *last_error = nullptr;
WebIdleHook idle_hook = nullptr;
void *idle_hook_data = nullptr;
std::size_t header_limit = 0;
std::size_t body_limit = 0;

struct ConnectedSocket {
    int descriptor;
    ~ConnectedSocket()
    {
        if (descriptor >= 0)
            close(descriptor);
    }
};

void discard_last_error()
{
    checked_free(last_error);
    last_error = nullptr;
}

// Milliseconds since clock_epoch, modulo 2^32: two readings are compared by their difference, so
// the wrap harms nothing.
std::uint32_t clock_now()
{
    timeval now;
    gettimeofday(&now, nullptr);
    return (static_cast<std::uint32_t>(now.tv_sec) - clock_epoch) * 1000U +
           static_cast<std::uint32_t>(now.tv_usec) / 1000U;
}

bool has_passed(std::uint32_t deadline)
{
    return static_cast<std::int32_t>(deadline - clock_now()) <= 0;
}

// Waits for data with select. Returns select's result; *readable tells whether the socket is in the
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

// The same for a descriptor that no fd_set can hold, usual in a host program with many open files.
// A bad descriptor is a failure, as it is for select.
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
    web_set_error("Timeout waiting for web site");
    return WebTimedOut;
}

int cancelled()
{
    web_set_error("User canceled web transaction");
    web_cancel_requested = 0;
    return WebCancelled;
}

// Waits until data can be read, for at most the time limit from now, in waits of the given length
// with the cancel flag and the idle hook behind each. Returns WebOk, WebTimedOut or WebCancelled.
int wait_for_data(int descriptor, int milliseconds)
{
    const std::uint32_t deadline = clock_now() + time_limit;
    while (!has_passed(deadline)) {
        bool readable = false;
        if (wait_once(descriptor, milliseconds, &readable) > 0)
            return readable ? WebOk : timed_out();
        if (web_cancel_requested != 0)
            return cancelled();
        if (idle_hook != nullptr)
            idle_hook(idle_hook_data);
    }
    return timed_out();
}

bool is_passing_error(int error)
{
    return error == EAGAIN || error == EINTR;
}

int receive_failed()
{
    web_set_error("Error receiving data from web site: %s", web_errno_text());
    return WebFailed;
}

int longer_than_limit(const char *which, std::size_t limit)
{
    web_set_error("Reply %s from web site is longer than %lu bytes", which,
                  static_cast<unsigned long>(limit));
    return WebFailed;
}

// A string refuses to grow past its own bound with an exception that no caller expects; to them
// that is memory exhausted like any other.
void append_bytes(std::string *text, const char *bytes, std::size_t length)
{
    if (length > text->max_size() - text->size())
        throw std::bad_alloc();
    text->append(bytes, length);
}

ssize_t receive_byte(int descriptor, char *byte)
{
    ssize_t count;
    do {
        count = recv(descriptor, byte, 1, 0);
    } while (count < 0 && is_passing_error(errno));
    return count;
}

// Reads up to the empty line, a byte at a time, so that nothing of the body is taken. Returns WebOk
// also when receiving failed: the body phase then decides.
//
// The end of the data is deliberately not told apart from a byte: the last byte counts once more.
// Behind a line feed that ends the header, behind any other byte it goes on until a limit or memory
// ends it; a service that breaks off within a line is broken, and no part of its header is passed
// off as whole. Before the first byte the last one counts as a line feed: an empty header.
int read_header(int descriptor, std::string *header)
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
        if (header_limit != 0 && header->size() >= header_limit)
            return longer_than_limit("header", header_limit);
        append_bytes(header, &byte, 1);
    }
}

// Reads to the server's close. A NUL loses the rest of its chunk: the body is text.
int read_body(int descriptor, std::string *body)
{
    char chunk[chunk_size];
    std::size_t received = 0;
    for (;;) {
        const int waited = wait_for_data(descriptor, body_wait);
        if (waited != WebOk)
            return waited;
        const ssize_t count = recv(descriptor, chunk, sizeof chunk - 1, 0);
        if (count < 0)
            return is_passing_error(errno) ? WebOk : receive_failed();
        if (count == 0)
            return WebOk;
        chunk[count] = '\0';
        received += static_cast<std::size_t>(count);
        if (body_limit != 0 && received > body_limit)
            return longer_than_limit("body", body_limit);
        append_bytes(body, chunk, std::strlen(chunk));
    }
}

// A copy for the caller, who releases it with std::free, up to the first NUL.
char *copy_for_caller(const std::string &text)
{
    const std::size_t size = std::strlen(text.c_str()) + 1;
    char *copy = static_cast<char *>(std::malloc(size));
    if (copy == nullptr)
        throw std::bad_alloc();
    std::memcpy(copy, text.c_str(), size);
    return copy;
}

// Finds the first address of a name. Returns 0, or -1 with the resolver's reason in *reason.
int find_address(const char *name, in_addr *address, const char **reason)
{
    const hostent *entry = gethostbyname(name);
    if (entry == nullptr) {
        *reason = hstrerror(h_errno);
        return -1;
    }
    if (entry->h_addrtype != AF_INET || entry->h_length != static_cast<int>(sizeof *address) ||
        entry->h_addr_list[0] == nullptr) {
        *reason = hstrerror(NO_DATA);
        return -1;
    }
    std::memcpy(address, entry->h_addr_list[0], sizeof *address);
    return 0;
}

// Connects the socket to peer:port. The messages name the web server also where the peer is the
// proxy: it is the server that the user asked for.
int connect_to(int descriptor, const char *peer, std::uint16_t port, const char *server)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    const char *reason = nullptr;
    if (find_address(peer, &address.sin_addr, &reason) != 0) {
        web_set_error("Can't find web server '%s': %s", server, reason);
        return WebFailed;
    }
    if (connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        web_set_error("Can't connect to web server '%s': %s", server, web_errno_text());
        return WebFailed;
    }
    return WebOk;
}

void send_request(int descriptor, const WebRequest &request)
{
    std::vector<std::string> pieces;
    web_compose_request(request, &pieces);
    for (const std::string &piece : pieces)
        web_socket_send(descriptor, piece.data(), piece.size());
}

int read_reply(int descriptor, char **header_out, char **body_out)
{
    std::string text;
    int result = read_header(descriptor, &text);
    if (result != WebOk)
        return result;
    *header_out = copy_for_caller(text);
    text.clear();
    result = read_body(descriptor, &text);
    if (result != WebOk)
        return result;
    *body_out = copy_for_caller(text);
    return WebOk;
}

} // namespace

int web_request(const char *url, const char *method, int field_count, const WebField *fields,
                char **header_out, char **body_out, const char *proxy_host, int proxy_port,
                const char *proxy_user, const char *proxy_password)
{
    discard_last_error();
    WebUrl target;
    web_parse_url(url, &target);
    std::string header;
    std::string body;
    web_form_body(field_count, fields, header, body);
    return web_exchange(target.scheme.c_str(), target.host.c_str(), url,
                        static_cast<std::uint16_t>(target.port), method, header, body, header_out,
                        body_out, proxy_host, static_cast<std::uint16_t>(proxy_port), proxy_user,
                        proxy_password);
}

int web_exchange(const char *scheme, const char *host, const char *path, std::uint16_t port,
                 const char *method, const std::string &extra_header, const std::string &body,
                 char **header_out, char **body_out, const char *proxy_host,
                 std::uint16_t proxy_port, const char *proxy_user, const char *proxy_password)
{
    if (std::strcmp(scheme, "HTTP") != 0) {
        web_set_error("Protocol should be HTTP, not %s", scheme);
        return WebFailed;
    }
    const ConnectedSocket socket = {web_socket_open()};
    if (socket.descriptor < 0) {
        web_set_error("Can't create web socket, %s", web_errno_text());
        return WebFailed;
    }
    const bool uses_proxy = proxy_host != nullptr && proxy_host[0] != '\0';
    const int connected = connect_to(socket.descriptor, uses_proxy ? proxy_host : host,
                                     uses_proxy ? proxy_port : port, host);
    if (connected != WebOk)
        return connected;
    send_request(socket.descriptor, {method, path, host, extra_header.data(), extra_header.size(),
                                     body.data(), body.size(), proxy_user, proxy_password});
    return read_reply(socket.descriptor, header_out, body_out);
}

const char *web_set_error(const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    char *text = alloc_vprintf(format, arguments);
    va_end(arguments);
    checked_free(last_error);
    last_error = text;
    return last_error;
}

const char *web_last_error()
{
    return last_error != nullptr ? last_error : "";
}

void web_set_idle_hook(WebIdleHook hook, void *user_data)
{
    idle_hook = hook;
    idle_hook_data = user_data;
}

const char *web_errno_text()
{
    const int error = errno;
    static char text[1024];
    std::snprintf(text, sizeof text, "code %d: %s", error, std::strerror(error));
    return text;
}

int web_check_reply(const char *header)
{
    static const char mark[] = "HTTP/";
    const char *found = std::strstr(header, mark);
    if (found == nullptr) {
        web_set_error("Invalid non-HTTP header string returned from web site");
        return -1;
    }
    found += sizeof mark - 1;
    WebStatusLine line;
    if (web_scan_status_line(found, &line) != 4) {
        web_set_error("Invalid HTTP return status (can't parse header HTTP/%s)", found);
        return -1;
    }
    if (line.status < 200 || line.status > 299) {
        web_set_error("Bad HTTP status %d from web site: %s", line.status, line.reason);
        return -1;
    }
    return 0;
}

void web_set_reply_limits(std::size_t header_bytes, std::size_t body_bytes)
{
    header_limit = header_bytes;
    body_limit = body_bytes;
}

} // namespace quintral
