// Whole exchanges with a peer in the same process. The peer's reply waits on a socket pair whose
// writing end is shut down. The input chooses how many bytes each recv gives and which of them
// fail. Header, body, result and last error are compared with a simple reader of the same reply; an
// update check also with the steps that need no network.
//
// An input: a byte that chooses the case from the table at the end, a byte of flags (bit 0: a
// descriptor too large for select; bit 1: no limit on the header if its end arrives; bit 2: no
// limit on the body; bit 3: the limits count back from the size of the reply), the limits of header
// and body (16 bits each, low byte first), the deliveries up to a NUL (see take_delivery), the
// product or the path up to a NUL, then the reply.
#include "fuzz/fuzz.h"
#include "web/transaction.h"
#include "web/update-check.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <string>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

extern "C" {
ssize_t __real_recv(int descriptor, void *buffer, std::size_t size, int flags);
ssize_t __wrap_recv(int descriptor, void *buffer, std::size_t size, int flags);
int __wrap_socket(int domain, int type, int protocol);
int __wrap_connect(int descriptor, const sockaddr *address, socklen_t size);
}

namespace {

using namespace quintral;
using namespace quintral::fuzz;

constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();
constexpr std::size_t chunk_size = 1023; // of the body
constexpr int first_large_descriptor = 1100;
const char no_error_yet[] = "no error yet";

// What the peer has still to deliver, and how.
struct Delivery {
    std::string script;
    std::size_t step;
    std::size_t piece_left; // of the current piece
};

// Returns how many bytes the next recv gives at most, or a negative errno. A step of the script is
// one byte: 'i' EINTR, 'a' EAGAIN, 'r' ECONNRESET, 'A' to 'T' a piece of 1, 2, 4 ... bytes, 'Z' all
// the rest, any other a piece of 1 to 64 bytes. After the last step the rest is one piece.
long take_delivery(Delivery *delivery, std::size_t wanted)
{
    if (delivery->piece_left == 0) {
        delivery->piece_left = unlimited;
        const char step =
            delivery->step < delivery->script.size() ? delivery->script[delivery->step++] : 'Z';
        if (step == 'i' || step == 'a' || step == 'r') {
            delivery->piece_left = 0;
            return step == 'i' ? -EINTR : step == 'a' ? -EAGAIN : -ECONNRESET;
        }
        if (step >= 'A' && step <= 'T')
            delivery->piece_left = std::size_t{1} << (step - 'A');
        else if (step != 'Z')
            delivery->piece_left = static_cast<unsigned char>(step) % 64 + 1;
    }
    const std::size_t count = std::min(wanted, delivery->piece_left);
    return static_cast<long>(count);
}

void note_delivered(Delivery *delivery, std::size_t count)
{
    if (delivery->piece_left != unlimited)
        delivery->piece_left -= count;
}

// The connection

struct Connection {
    int client;
    int peer;
    Delivery delivery;
};

Connection connection = {-1, -1, {}};

void open_connection(const std::string &reply, const std::string &script, bool large_descriptor)
{
    int ends[2];
    FUZZ_CHECK(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
    connection = {ends[0], ends[1], {script, 0, 0}};
    const int large = large_descriptor ? fcntl(ends[0], F_DUPFD, first_large_descriptor) : -1;
    if (large >= 0) {
        close(ends[0]);
        connection.client = large;
    }
    FUZZ_CHECK(send(connection.peer, reply.data(), reply.size(), MSG_DONTWAIT) ==
               static_cast<ssize_t>(reply.size()));
    FUZZ_CHECK(shutdown(connection.peer, SHUT_WR) == 0);
}

// Returns what the client has sent. The client must have closed its end.
std::string close_connection()
{
    FUZZ_CHECK(fcntl(connection.client, F_GETFD) == -1 && errno == EBADF);
    std::string sent;
    char buffer[4096];
    ssize_t count;
    while ((count = read(connection.peer, buffer, sizeof buffer)) > 0)
        sent.append(buffer, static_cast<std::size_t>(count));
    close(connection.peer);
    return sent;
}

// The simple reader

struct Limits {
    std::size_t header;
    std::size_t body;
};

struct Source {
    const std::string *reply;
    std::size_t position;
    Delivery delivery;
};

struct Received {
    int result = WebOk;
    bool has_header = false;
    bool ends = true; // false if the header would have no end without a limit
    std::string header;
    std::string body;
    std::string error = no_error_yet;
};

// Takes what the next recv gives. Returns 0, or the errno.
int receive(Source *source, std::size_t wanted, std::string *bytes)
{
    bytes->clear();
    const long count = take_delivery(&source->delivery, wanted);
    if (count < 0)
        return static_cast<int>(-count);
    *bytes = source->reply->substr(source->position, static_cast<std::size_t>(count));
    source->position += bytes->size();
    note_delivered(&source->delivery, bytes->size());
    return 0;
}

std::string receive_error(int error)
{
    errno = error;
    return std::string("Error receiving data from web site: ") + web_errno_text();
}

void fail_as_too_long(const char *which, std::size_t limit, Received *received)
{
    received->result = WebFailed;
    received->error = std::string("Reply ") + which + " from web site is longer than " +
                      std::to_string(limit) + " bytes";
}

bool ends_with_empty_line(const std::string &header)
{
    const std::size_t line = header.rfind('\n') + 1; // 0 if there is none
    return header.find_first_not_of('\r', line) == std::string::npos;
}

// After the close the last byte counts again and again.
void read_header(Source *source, std::size_t limit, Received *received)
{
    std::string last = "\n";
    for (;;) {
        std::string byte;
        const int error = receive(source, 1, &byte);
        if (error == EINTR || error == EAGAIN)
            continue;
        if (error != 0) {
            received->error = receive_error(error);
            break;
        }
        received->ends = !byte.empty() || last == "\n";
        last = byte.empty() ? last : byte;
        if (last == "\n" && ends_with_empty_line(received->header))
            break;
        if (!received->ends && limit == 0)
            return;
        if (limit != 0 && received->header.size() == limit)
            return fail_as_too_long("header", limit, received);
        received->header += last;
    }
    received->has_header = true;
    received->header = received->header.c_str(); // up to its first NUL
}

void read_body(Source *source, std::size_t limit, Received *received)
{
    std::size_t count = 0;
    for (;;) {
        std::string chunk;
        const int error = receive(source, chunk_size, &chunk);
        if (error == ECONNRESET) {
            received->result = WebFailed;
            received->error = receive_error(error);
        }
        if (error != 0 || chunk.empty())
            return;
        count += chunk.size();
        if (limit != 0 && count > limit)
            return fail_as_too_long("body", limit, received);
        received->body += chunk.c_str(); // up to its first NUL
    }
}

Received read_simply(const std::string &reply, const std::string &script, const Limits &limits)
{
    Received received;
    Source source = {&reply, 0, {script, 0, 0}};
    read_header(&source, limits.header, &received);
    if (received.has_header)
        read_body(&source, limits.body, &received);
    return received;
}

// The cases

struct Exchange {
    std::string text; // the path or the product
    std::string script;
    std::string reply;
    Received expected;
};

// The limits that the flags choose, 0 for none.
Limits chosen_limits(unsigned flags, Limits limits, std::size_t reply_size)
{
    const auto count_back = [&](std::size_t *limit) {
        *limit = *limit < reply_size ? reply_size - *limit : 1;
    };
    if ((flags & 8U) != 0) {
        count_back(&limits.header);
        count_back(&limits.body);
    }
    limits.header = (flags & 2U) != 0 ? 0 : limits.header % 4096;
    limits.body = (flags & 4U) != 0 ? 0 : limits.body;
    return limits;
}

// Sets the limits, opens the connection and reads the reply in the simple way.
Exchange start_exchange(Input *input)
{
    const unsigned flags = take_byte(input);
    Limits limits = {static_cast<std::uint16_t>(take_int16(input)),
                     static_cast<std::uint16_t>(take_int16(input))};
    Exchange exchange;
    exchange.script = take_text(input);
    exchange.text = take_text(input).substr(0, 1000);
    exchange.reply = take_bytes(input, input->left);
    limits = chosen_limits(flags, limits, exchange.reply.size());
    exchange.expected = read_simply(exchange.reply, exchange.script, limits);
    if (!exchange.expected.ends && limits.header == 0) {
        limits.header = 256;
        exchange.expected = read_simply(exchange.reply, exchange.script, limits);
    }
    web_set_reply_limits(limits.header, limits.body);
    open_connection(exchange.reply, exchange.script, (flags & 1U) != 0);
    return exchange;
}

void check_reply_text(char *text, bool is_given, const std::string &expected)
{
    FUZZ_CHECK((text != nullptr) == is_given);
    if (is_given)
        FUZZ_CHECK(text == expected);
    std::free(text);
}

bool begins_with(const std::string &text, const std::string &start)
{
    return text.compare(0, start.size(), start) == 0;
}

bool ends_with(const std::string &text, const std::string &end)
{
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

void fuzz_exchange(Input *input)
{
    const Exchange exchange = start_exchange(input);
    const Received &expected = exchange.expected;
    char *header = nullptr;
    char *body = nullptr;
    web_set_error("%s", no_error_yet);
    const int result = web_exchange("HTTP", "127.0.0.1", exchange.text.c_str(), 80, "POST", "X: 1",
                                    "a=b", &header, &body, nullptr, 0, nullptr, nullptr);
    FUZZ_CHECK(result == expected.result);
    FUZZ_CHECK(web_last_error() == expected.error);
    check_reply_text(header, expected.has_header, expected.header);
    check_reply_text(body, result == WebOk, expected.body);
    const std::string sent = close_connection();
    FUZZ_CHECK(begins_with(sent, "POST " + exchange.text + " HTTP/1.0\r\nAccept: "));
    FUZZ_CHECK(ends_with(sent, "\r\nX: 1\r\nHost: 127.0.0.1\r\n\r\na=b"));
}

bool same_text(const char *first, const char *second)
{
    if (first == nullptr || second == nullptr)
        return first == second;
    return std::strcmp(first, second) == 0;
}

void check_same_reply(const WebUpdateReply &one, const WebUpdateReply &other)
{
    FUZZ_CHECK(one.failure == other.failure && one.http_status == other.http_status);
    FUZZ_CHECK(one.newer == other.newer);
    FUZZ_CHECK(same_text(one.error, other.error) && same_text(one.reason, other.reason));
    FUZZ_CHECK(same_text(one.header, other.header) && same_text(one.body, other.body));
    FUZZ_CHECK(same_text(one.version, other.version) && same_text(one.url, other.url));
    FUZZ_CHECK(same_text(one.button, other.button) && same_text(one.message, other.message));
}

// A reply that arrived whole, without a NUL in the body, is read as a saved one.
void check_saved_reply(const Exchange &exchange, const WebUpdateReply &reply)
{
    const bool is_whole = exchange.expected.result == WebOk &&
                          exchange.script.find_first_of("iar") == std::string::npos &&
                          exchange.reply.find('\0') == std::string::npos;
    if (!is_whole)
        return;
    WebUpdateReply saved;
    web_update_reply_init(&saved);
    web_read_update_reply(exchange.reply.data(), exchange.reply.size(), "5.1", &saved);
    check_same_reply(reply, saved);
    web_update_reply_free(&saved);
}

void fuzz_update_check(Input *input)
{
    const Exchange exchange = start_exchange(input);
    WebUpdateQuery query;
    web_update_query_init(&query);
    query.product = exchange.text.c_str();
    query.version = "5.1";
    query.service = "127.0.0.1";
    WebUpdateReply reply;
    web_update_reply_init(&reply);
    const int result = web_check_for_update(&query, &reply);
    FUZZ_CHECK((result == WebOk) == (reply.failure == WebNoFailure));
    FUZZ_CHECK(same_text(reply.error, result == WebOk ? nullptr : web_last_error()));
    const Received &expected = exchange.expected;
    if (expected.result != WebOk) {
        FUZZ_CHECK(result == expected.result && reply.error == expected.error);
        FUZZ_CHECK(reply.failure == WebReplyTooLong || reply.failure == WebReceiveFailed);
    }
    FUZZ_CHECK((reply.header != nullptr) == expected.has_header);
    if (reply.header != nullptr)
        FUZZ_CHECK(reply.header == expected.header);
    FUZZ_CHECK((reply.body != nullptr) == (expected.result == WebOk));
    if (reply.body != nullptr)
        FUZZ_CHECK(reply.body == expected.body);
    check_saved_reply(exchange, reply);
    web_update_reply_free(&reply);

    std::string composed;
    web_compose_update_request(&query, composed);
    FUZZ_CHECK(close_connection() == composed);
}

} // namespace

extern "C" {

ssize_t __wrap_recv(int descriptor, void *buffer, std::size_t size, int flags)
{
    FUZZ_CHECK(descriptor == connection.client);
    const long most = take_delivery(&connection.delivery, size);
    if (most < 0) {
        errno = static_cast<int>(-most);
        return -1;
    }
    const ssize_t count = __real_recv(descriptor, buffer, static_cast<std::size_t>(most), flags);
    FUZZ_CHECK(count >= 0);
    note_delivered(&connection.delivery, static_cast<std::size_t>(count));
    return count;
}

int __wrap_socket(int /*domain*/, int /*type*/, int /*protocol*/)
{
    return connection.client;
}

int __wrap_connect(int descriptor, const sockaddr * /*address*/, socklen_t /*size*/)
{
    FUZZ_CHECK(descriptor == connection.client);
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    static constexpr Case cases[] = {fuzz_exchange, fuzz_update_check}; // '0', '1'
    Input input = {bytes, size};
    cases[take_byte(&input) % 2](&input);
    return 0;
}
}
