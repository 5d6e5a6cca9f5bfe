// The sample update service as a process, and a client that sends raw bytes to it. The build names
// the program and its product list.
#ifndef QUINTRAL_TESTS_EXAMPLES_SAMPLE_SERVICE_H
#define QUINTRAL_TESTS_EXAMPLES_SAMPLE_SERVICE_H

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/harness/child-process.h"

namespace quintral::tests {

const char *const service = QUINTRAL_SAMPLE_SERVICE;
const char *const products = QUINTRAL_SAMPLE_PRODUCTS;

// The process

struct Service {
    Child child;
    std::uint16_t port = 0;
};

inline Service start_service(ChildOptions options = {}, const char *list = products)
{
    Service started;
    options.limit_seconds = 90;
    started.child = child_start({service, list}, options);
    EXPECT_TRUE(child_wait_for_text(started.child, "\n", 10000)) << started.child.error;
    unsigned port = 0;
    if (std::sscanf(started.child.output.c_str(), "Listening on 127.0.0.1:%u", &port) != 1)
        ADD_FAILURE() << "no port in '" << started.child.output << "'";
    started.port = static_cast<std::uint16_t>(port);
    return started;
}

// Empties the pipe of the log. A full pipe would stall the service.
inline void drain_log(Service &started)
{
    child_wait_for_text(started.child, "no line of the log", 0);
}

// Ends the service, which must exit with status 0, and returns its log.
inline std::string stop_service(Service &started, int signal_number = SIGTERM)
{
    child_signal(started.child, signal_number);
    const ChildResult result = child_wait(started.child);
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.signal, 0);
    EXPECT_FALSE(result.timed_out);
    EXPECT_EQ(result.output, "Listening on 127.0.0.1:" + std::to_string(started.port) + "\n");
    return result.error;
}

// A product list in a temporary file.
class ListFile {
public:
    explicit ListFile(const std::string &text)
    {
        const int descriptor = mkstemp(name.data());
        EXPECT_GE(descriptor, 0);
        close(descriptor);
        std::ofstream(name, std::ios::binary) << text;
    }
    ~ListFile()
    {
        unlink(name.c_str());
    }
    ListFile(const ListFile &) = delete;
    ListFile &operator=(const ListFile &) = delete;

    std::string name = testing::TempDir() + "sample-products-XXXXXX";
};

// The client

inline sockaddr_in loopback(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

inline int connect_to(std::uint16_t port)
{
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    const timeval limit = {30, 0};
    setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    const sockaddr_in address = loopback(port);
    EXPECT_EQ(connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    return descriptor;
}

inline bool send_bytes(int descriptor, const std::string &bytes)
{
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count =
            send(descriptor, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

// Everything up to the end of the connection. Returns false if that is not a clean close.
inline bool receive_all(int descriptor, std::string *bytes)
{
    char chunk[4096];
    ssize_t count = 0;
    while ((count = recv(descriptor, chunk, sizeof chunk, 0)) > 0)
        bytes->append(chunk, static_cast<std::size_t>(count));
    return count == 0;
}

// Everything up to the end of the connection, which must be a clean close.
inline std::string receive_to_end(int descriptor)
{
    std::string bytes;
    EXPECT_TRUE(receive_all(descriptor, &bytes)) << "not a clean close: errno " << errno;
    return bytes;
}

inline std::string ask(std::uint16_t port, const std::string &request)
{
    const int descriptor = connect_to(port);
    EXPECT_TRUE(send_bytes(descriptor, request));
    const std::string answer = receive_to_end(descriptor);
    close(descriptor);
    return answer;
}

// Also shuts down the client's sending side after the request.
inline std::string ask_and_end(std::uint16_t port, const std::string &request)
{
    const int descriptor = connect_to(port);
    EXPECT_TRUE(send_bytes(descriptor, request));
    shutdown(descriptor, SHUT_WR);
    const std::string answer = receive_to_end(descriptor);
    close(descriptor);
    return answer;
}

// Requests and answers

inline std::string form(const std::string &product, const std::string &line,
                        const std::string &version)
{
    return "product=" + product + "&productline=" + line + "&version=" + version +
           "&version_name=Five&os=Linux&os_version=6%2e1&machine_id=M%2d7&processor_arch=x86%5f64";
}

const std::string good_form = form("Quintral%20Shapes", "Quintral", "5%2e000");
const std::string page = "/version-update.php";
const std::string good_line = "POST http://127.0.0.1:80" + page + " HTTP/1.0";

inline std::string length_line(std::size_t length)
{
    return "Content-Length: " + std::to_string(length) + "\r\n";
}

// As the web client writes it, line by line.
inline std::string request_with(const std::string &request_line, const std::string &length,
                                const std::string &body)
{
    return request_line + "\r\n" +
           "Accept: image/gif, image/x-xbitmap, image/jpeg, image/pjpeg, */*\r\n"
           "Accept-Language: en-us\r\n"
           "User-Agent: Velmora_Auto1\r\n"
           "Referer: www.quintral.example\r\n"
           "Content-Type: application/x-www-form-urlencoded\r\n" +
           length + "Host: 127.0.0.1\r\n\r\n" + body;
}

inline std::string post(const std::string &body, const std::string &request_line = good_line)
{
    return request_with(request_line, length_line(body.size()), body);
}

inline std::string answer(const std::string &status, const std::string &body,
                          const std::string &more_header = "")
{
    return "HTTP/1.0 " + status + "\r\nContent-Type: text/plain\r\n" + length_line(body.size()) +
           "Connection: close\r\n" + more_header + "\r\n" + body;
}

const std::string shapes_body = "Version: 5.2\n"
                                "URL: http://www.quintral.example/shapes\n"
                                "Button: Get it now\n"
                                "Message: Quintral Shapes 5.2 draws faster.\n";
const std::string shapes_answer = answer("200 OK", shapes_body);
const std::string too_large = answer("400 Bad Request", "The form is too long.\n");
const std::string not_found = answer("404 Not Found", "There is no such page here.\n");

} // namespace quintral::tests

#endif
