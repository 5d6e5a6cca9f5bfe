// Slow, silent, numerous and hostile clients of the sample update service, and its log.
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>

#include <gtest/gtest.h>

#include "tests/examples/sample-service.h"

namespace quintral::tests {
namespace {

std::vector<int> connect_many(std::uint16_t port, int count)
{
    std::vector<int> clients;
    for (int i = 0; i < count; ++i)
        clients.push_back(connect_to(port));
    return clients;
}

void close_all(const std::vector<int> &clients)
{
    for (const int client : clients)
        close(client);
}

TEST(SampleUpdateService, IdleAndSlowClientsDoNotDelayOthers)
{
    Service started = start_service();
    const std::vector<int> idle = connect_many(started.port, 50);
    const std::string request = post(good_form);
    const int slow = connect_to(started.port);
    ASSERT_TRUE(send_bytes(slow, request.substr(0, request.size() / 2)));
    const int deaf = connect_to(started.port); // asks and never reads
    ASSERT_TRUE(send_bytes(deaf, request));
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(ask(started.port, request), shapes_answer);
    ASSERT_TRUE(send_bytes(slow, request.substr(request.size() / 2)));
    EXPECT_EQ(receive_to_end(slow), shapes_answer);
    ASSERT_TRUE(send_bytes(idle[0], request)); // an idle client that asks later is served too
    EXPECT_EQ(receive_to_end(idle[0]), shapes_answer);
    close_all(idle);
    close_all({slow, deaf});
    stop_service(started);
}

// 512 connections, each of which may stay for two seconds.
TEST(SampleUpdateService, ClosesTheClientWithoutProgressForTheLongestIfThereAreTooMany)
{
    Service started = start_service();
    const auto start = std::chrono::steady_clock::now();
    const std::vector<int> clients = connect_many(started.port, 512);
    const std::string request = post(good_form);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    ASSERT_TRUE(send_bytes(clients.front(), request.substr(0, 100)));
    EXPECT_EQ(ask(started.port, request), shapes_answer);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    EXPECT_EQ(receive_to_end(clients[1]), "");
    ASSERT_TRUE(send_bytes(clients.front(), request.substr(100)));
    EXPECT_EQ(receive_to_end(clients.front()), shapes_answer);
    ASSERT_TRUE(send_bytes(clients.back(), request));
    EXPECT_EQ(receive_to_end(clients.back()), shapes_answer);
    close_all(clients);
    EXPECT_EQ(stop_service(started).substr(0, 34), "Closed: too many clients\nRequest: ");
}

TEST(SampleUpdateService, ClosesAClientIfDescriptorsRunOut)
{
    ChildOptions options;
    options.prepare = [] {
        const rlimit few = {12, 12};
        setrlimit(RLIMIT_NOFILE, &few);
    };
    Service started = start_service(options);
    const std::vector<int> clients = connect_many(started.port, 8);
    EXPECT_EQ(ask(started.port, post(good_form)), shapes_answer);
    close_all(clients);
    const std::string log = stop_service(started);
    EXPECT_EQ(log.substr(0, log.find('\n')), "Closed: the system has no room for another client");
}

TEST(SampleUpdateService, AClientThatResetsDoesNoHarm)
{
    Service started = start_service();
    const linger reset = {1, 0};
    const std::string request = post(good_form);
    for (std::size_t length = 0; length <= request.size(); length += request.size() / 4) {
        for (int i = 0; i < 10; ++i) {
            const int client = connect_to(started.port);
            ASSERT_TRUE(send_bytes(client, request.substr(0, length)));
            setsockopt(client, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
            close(client);
        }
        EXPECT_EQ(ask(started.port, request), shapes_answer);
    }
    stop_service(started);
}

// The answer is longer than what the system buffers for a client that does not read.
TEST(SampleUpdateService, AnUnreadAnswerDoesNotDelayOthers)
{
    const std::string message(16 * 1024 * 1024, 'x');
    const ListFile list("long|line|2|u|b|" + message + "\nshort|line|2|u|b|m\n");
    ChildOptions options;
    options.error = ChildStream::BrokenPipe; // the log would contain the answer too
    Service started = start_service(options, list.name.c_str());
    const int deaf = connect_to(started.port);
    ASSERT_TRUE(send_bytes(deaf, post(form("long", "line", "1"))));
    char byte = 0;
    EXPECT_EQ(recv(deaf, &byte, 1, MSG_PEEK), 1); // the answer has started to arrive
    EXPECT_EQ(ask(started.port, post(form("short", "line", "1"))),
              answer("200 OK", "Version: 2\nURL: u\nButton: b\nMessage: m\n"));
    EXPECT_TRUE(receive_to_end(deaf) ==
                answer("200 OK", "Version: 2\nURL: u\nButton: b\nMessage: " + message + "\n"));
    close(deaf);
    stop_service(started);
}

// The limit runs from the start of the connection, so sending a byte now and then does not extend
// it.
TEST(SampleUpdateService, ClosesAConnectionAfterItsTimeLimit)
{
    Service started = start_service();
    const int idle = connect_to(started.port);
    const int trickling = connect_to(started.port);
    const int finished = connect_to(started.port); // has its answer and does not close
    ASSERT_TRUE(send_bytes(finished, post(good_form)));
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 8; ++i) {
        ASSERT_TRUE(send_bytes(trickling, "P")) << "closed too early, after " << i << " s";
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
    EXPECT_EQ(receive_to_end(idle), "");
    EXPECT_EQ(receive_to_end(trickling), "");
    const auto lived = std::chrono::steady_clock::now() - start;
    EXPECT_GE(lived, std::chrono::seconds(9));
    EXPECT_LE(lived, std::chrono::seconds(25));
    EXPECT_EQ(receive_to_end(finished), shapes_answer);
    EXPECT_EQ(ask(started.port, post(good_form)), shapes_answer);
    close_all({idle, trickling, finished});
    const std::string log = stop_service(started);
    EXPECT_NE(log.find("Closed: the client took too long\n"
                       "Closed: the client took too long\n"
                       "Request: "),
              log.npos)
        << log;
}

TEST(SampleUpdateService, LogsRequestsAndAnswers)
{
    Service started = start_service();
    ask(started.port, post(good_form));
    ask(started.port, "GET /other HTTP/1.0\r\n\r\n");
    EXPECT_EQ(stop_service(started), "Request: " + good_line +
                                         "\n"
                                         "  product = Quintral Shapes\n"
                                         "  productline = Quintral\n"
                                         "  version = 5.000\n"
                                         "  version_name = Five\n"
                                         "  os = Linux\n"
                                         "  os_version = 6.1\n"
                                         "  machine_id = M-7\n"
                                         "  processor_arch = x86_64\n"
                                         "Answer: 200 OK\n"
                                         "  Version: 5.2\n"
                                         "  URL: http://www.quintral.example/shapes\n"
                                         "  Button: Get it now\n"
                                         "  Message: Quintral Shapes 5.2 draws faster.\n"
                                         "Request: GET /other HTTP/1.0\n"
                                         "Answer: 404 Not Found\n"
                                         "  There is no such page here.\n");
}

// A value of all 256 bytes: only printable ASCII other than the backslash is written unchanged.
TEST(SampleUpdateService, EscapesClientBytesInTheLog)
{
    Service started = start_service();
    std::string escaped;
    std::string shown;
    char text[8];
    for (unsigned byte = 0; byte < 256; ++byte) {
        std::snprintf(text, sizeof text, "%%%02x", byte);
        escaped += text;
        std::snprintf(text, sizeof text, "\\x%02X", byte);
        const bool plain = byte >= 0x20 && byte <= 0x7E && byte != '\\';
        shown += plain ? std::string(1, static_cast<char>(byte)) : text;
    }
    EXPECT_EQ(ask(started.port, post("%1b%5d0=" + escaped + "&" + good_form)), shapes_answer);
    EXPECT_EQ(ask(started.port, "GET /\x1b[2J\x9b\xc3\xa4\t HTTP/1.0\r\n\r\n"), not_found);
    const std::string log = stop_service(started);
    EXPECT_NE(log.find("  \\x1B]0 = " + shown + "\n"), log.npos) << log;
    EXPECT_NE(log.find("Request: GET /\\x1B[2J\\x9B\\xC3\\xA4\\x09 HTTP/1.0\n"), log.npos) << log;
    for (const char c : log)
        EXPECT_TRUE(c == '\n' || (c >= ' ' && c <= '~')) << static_cast<int>(c);
}

// Standard input is closed too, so that the service's first descriptors would take the numbers of
// the standard streams.
TEST(SampleUpdateService, AClosedLogDoesNoHarm)
{
    for (const ChildStream stream : {ChildStream::Closed, ChildStream::BrokenPipe}) {
        ChildOptions options;
        options.error = stream;
        options.prepare = [] { close(STDIN_FILENO); };
        Service started = start_service(options);
        EXPECT_EQ(ask(started.port, post(good_form)), shapes_answer);
        EXPECT_EQ(ask(started.port, post(good_form)), shapes_answer);
        stop_service(started);
    }
}

} // namespace
} // namespace quintral::tests
