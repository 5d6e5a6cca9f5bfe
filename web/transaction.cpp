#include "web/transaction.h"

#include <cerrno>
#include <cstring>
#include <string_view>

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "support/ascii.h"
#include "web/http-text.h"
#include "web/last-error.h"
#include "web/receiving.h"
#include "web/socket.h"

namespace quintral {

namespace {

struct ConnectedSocket {
    int descriptor;
    ~ConnectedSocket()
    {
        if (descriptor >= 0)
            close(descriptor);
    }
};

// Reads an address in its usual form: four decimal numbers from 0 to 255 without leading zeros.
// Other forms, such as octal numbers, are left to the resolver.
bool read_numeric_address(const char *text, in_addr *address)
{
    std::uint32_t bits = 0;
    for (int part = 0; part < 4; ++part) {
        if (part > 0 && *text++ != '.')
            return false;
        const bool has_leading_zero = text[0] == '0' && ascii_is_digit(text[1]);
        if (!ascii_is_digit(text[0]) || has_leading_zero)
            return false;
        unsigned number = 0;
        for (; ascii_is_digit(*text) && number <= 255; ++text)
            number = number * 10 + static_cast<unsigned>(*text - '0');
        if (number > 255)
            return false;
        bits = bits << 8 | number;
    }
    address->s_addr = htonl(bits);
    return *text == '\0';
}

// Finds the first address of a name. Returns 0, or -1 with the resolver's reason in *reason. The
// resolver reads its files even for a numeric address, so that is not looked up.
int find_address(const char *name, in_addr *address, const char **reason)
{
    if (read_numeric_address(name, address))
        return 0;
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

// Connects the socket to peer:port. The messages name the web server even if the peer is the proxy:
// it is the server that the user asked for.
int connect_to(int descriptor, const char *peer, std::uint16_t port, const char *server)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    const char *reason = nullptr;
    if (find_address(peer, &address.sin_addr, &reason) != 0) {
        web_last_failure = WebLookupFailed;
        web_set_error("Can't find web server '%s': %s", server, reason);
        return WebFailed;
    }
    if (connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        web_last_failure = WebConnectFailed;
        web_set_error("Can't connect to web server '%s': %s", server, web_errno_text());
        return WebFailed;
    }
    return WebOk;
}

// Sends a piece of the request, usually with one call. A signal, such as a timer of the host
// program, can end a call after some of the bytes; the rest then follows, unless the exchange is to
// be cancelled. Returns whether the whole piece was sent. If it was not, the reason is deliberately
// ignored: a broken connection shows when the reply is received. After a signal before the first
// byte the whole piece is missing.
bool send_piece(int descriptor, std::string_view piece)
{
    bool has_started = false;
    do {
        const ssize_t count = web_socket_send(descriptor, piece.data(), piece.size());
        const bool is_interrupted = count < 0 && errno == EINTR && has_started;
        if (count <= 0 && !is_interrupted)
            break;
        if (count > 0)
            piece.remove_prefix(static_cast<std::size_t>(count));
        has_started = true;
    } while (!piece.empty() && web_cancel_requested == 0);
    return piece.empty();
}

// The flag does not keep back pieces that the server takes at once. After an incomplete piece the
// others would wait for the server too, each until the next signal, so nothing more is sent: the
// wait for the reply then ends the exchange.
void send_request(int descriptor, const WebRequest &request)
{
    WebRequestText text;
    web_compose_request(request, &text);
    for (const std::string_view piece : text.pieces) {
        if (!send_piece(descriptor, piece) && web_cancel_requested != 0)
            return;
    }
}

} // namespace

int web_request(const char *url, const char *method, int field_count, const WebField *fields,
                char **header_out, char **body_out, const char *proxy_host, int proxy_port,
                const char *proxy_user, const char *proxy_password)
{
    web_clear_error();
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
        web_last_failure = WebConnectFailed;
        web_set_error("Protocol should be HTTP, not %s", scheme);
        return WebFailed;
    }
    const ConnectedSocket socket = {web_socket_open()};
    if (socket.descriptor < 0) {
        web_last_failure = WebConnectFailed;
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
    return web_receive_reply(socket.descriptor, header_out, body_out);
}

int web_check_reply(const char *header)
{
    WebStatusLine line;
    const char *status_text = nullptr;
    const WebStatusVerdict verdict = web_judge_status(header, &line, &status_text);
    char *error = web_status_error(verdict, line, status_text);
    if (error == nullptr)
        return 0;
    web_take_error(error);
    return -1;
}

} // namespace quintral
