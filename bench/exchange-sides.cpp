#include "bench/exchange-sides.h"

#include <cstdlib>
#include <cstring>

#include <curl/curl.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include "bench/exchange-server.h"
#include "web/transaction.h"

namespace quintral {

namespace {

std::string url_of(std::uint16_t port, std::size_t header_size, std::size_t body_size)
{
    return "http://127.0.0.1:" + std::to_string(port) + '/' + std::to_string(header_size) + '/' +
           std::to_string(body_size);
}

// Ours

bool run_ours(std::uint16_t port, std::size_t header_size, std::size_t body_size,
              ExchangeReply *reply)
{
    const WebField fields[] = {{"product", "Quintral Shapes"}, {"version", "5.100"}};
    return web_request(url_of(port, header_size, body_size).c_str(), "POST", 2, fields,
                       &reply->header, &reply->body, nullptr, 0, nullptr, nullptr) == WebOk;
}

// libcurl

std::size_t append_to_text(char *bytes, std::size_t size, std::size_t count, void *text)
{
    static_cast<std::string *>(text)->append(bytes, size * count);
    return size * count;
}

// One handle for all exchanges, as libcurl's manual advises.
bool run_libcurl(std::uint16_t port, std::size_t header_size, std::size_t body_size,
                 ExchangeReply *reply)
{
    static CURL *const handle = curl_easy_init();
    const std::string url = url_of(port, header_size, body_size);
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_0));
    curl_easy_setopt(handle, CURLOPT_POSTFIELDS, exchange_form);
    curl_easy_setopt(handle, CURLOPT_PROXY, "");
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, append_to_text);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &reply->text);
    return curl_easy_perform(handle) == CURLE_OK;
}

// The loop of system calls: those of the web client, in its order, with the same arguments.

// Waits until data can be read. A wait may time out while the server is busy.
bool wait_for(int descriptor, timeval timeout)
{
    int result = 0;
    while (result == 0) {
        fd_set descriptors;
        FD_ZERO(&descriptors);
        FD_SET(descriptor, &descriptors);
        timeval left = timeout;
        result = select(1024, &descriptors, nullptr, nullptr, &left);
    }
    return result > 0;
}

struct GrowingBlock {
    char *bytes;
    std::size_t capacity;
    std::size_t length;
};

void grow(GrowingBlock *block, std::size_t added)
{
    if (block->capacity - block->length >= added)
        return;
    block->capacity = block->capacity == 0 ? 2048 : 2 * block->capacity; // as the client does
    block->bytes = static_cast<char *>(std::realloc(block->bytes, block->capacity));
    if (block->bytes == nullptr)
        std::abort();
}

bool receive_raw_header(int descriptor, GrowingBlock *header)
{
    bool line_is_empty = true;
    for (;;) {
        char byte = '\0';
        if (!wait_for(descriptor, {0, 100000}) || recv(descriptor, &byte, 1, 0) != 1)
            return false;
        if (byte == '\n' && line_is_empty)
            return true;
        if (byte != '\r')
            line_is_empty = byte == '\n';
        grow(header, 2);
        header->bytes[header->length++] = byte;
        header->bytes[header->length] = '\0';
    }
}

bool receive_raw_body(int descriptor, GrowingBlock *body)
{
    for (;;) {
        grow(body, 1024);
        if (!wait_for(descriptor, {10, 0}))
            return false;
        const ssize_t count = recv(descriptor, body->bytes + body->length, 1023, 0);
        if (count < 0)
            return false;
        body->length += static_cast<std::size_t>(count);
        body->bytes[body->length] = '\0';
        if (count == 0)
            return true;
    }
}

void send_raw_request(int descriptor, const std::string &url)
{
    const std::string pieces[] = {
        "POST ",
        url,
        " HTTP/1.0\r\n",
        "Accept: image/gif, image/x-xbitmap, image/jpeg, image/pjpeg, */*\r\n",
        "Accept-Language: en-us\r\n",
        "User-Agent: Velmora_Auto1\r\n",
        "Referer: www.quintral.example\r\n",
        "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: 41\r\n",
        "Host: 127.0.0.1\r\n",
        "\r\n",
        exchange_form,
    };
    for (const std::string &piece : pieces)
        send(descriptor, piece.data(), piece.size(), MSG_NOSIGNAL);
}

bool run_raw(std::uint16_t port, std::size_t header_size, std::size_t body_size,
             ExchangeReply *reply)
{
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return false;
    send_raw_request(descriptor, url_of(port, header_size, body_size));
    GrowingBlock header = {};
    GrowingBlock body = {};
    const bool received =
        receive_raw_header(descriptor, &header) && receive_raw_body(descriptor, &body);
    reply->header = header.bytes;
    reply->body = body.bytes;
    close(descriptor);
    return received;
}

} // namespace

const ExchangeSide exchange_sides[exchange_side_count] = {
    {"ours", run_ours}, {"libcurl", run_libcurl}, {"reference", run_raw}};

std::size_t received_body_size(const ExchangeReply &reply)
{
    return reply.body != nullptr ? std::strlen(reply.body) : reply.text.size();
}

void release_exchange_reply(ExchangeReply *reply)
{
    std::free(reply->header);
    std::free(reply->body);
    reply->header = nullptr;
    reply->body = nullptr;
    std::string().swap(reply->text);
}

} // namespace quintral
