// The version-update query against independent servers, directly and through proxies. rows.h holds
// what is expected of each pair. Every pair is tried by the library and by the utility, with and
// without credentials.
#include "web/version-update.h"

#include "tests/harness/child-process.h"
#include "tests/harness/loopback-peer.h"
#include "tests/harness/temp-folder.h"
#include "tests/harness/text.h"
#include "tests/real-peers/peers.h"
#include "tests/real-peers/rows.h"
#include "web/transaction.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quintral::tests {
namespace {

using std::chrono::milliseconds;

// The peers run with the temporary folder as their working folder.
class RealPeers : public testing::Test {
protected:
    void SetUp() override
    {
        chmod(folder.path().c_str(), 0755); // as root, apache changes to another user
        earlier_folder = std::filesystem::current_path();
        std::filesystem::current_path(folder.path());
        std::filesystem::copy_file(QUINTRAL_UPDATE_PAGE, "version-update.php");
    }

    void TearDown() override
    {
        if (HasFailure())
            show_logs();
        stop_peers(&peers);
        web_service_host = "";
        std::filesystem::current_path(earlier_folder);
    }

    // Returns the port, 0 if the test has failed.
    std::uint16_t start(const std::string &name, ProxyAccess access = ProxyAccess::Everybody)
    {
        RunningPeer peer = start_peer(name, access, folder.path(), php_port);
        const std::uint16_t port = peer.port;
        if (port != 0)
            peers.push_back(std::move(peer));
        return port;
    }

    // The servers of the rows, and what runs the page for three of them.
    void start_servers()
    {
        php_port = start("php-cgi");
        for (const PeerRow &row : server_rows)
            ASSERT_NE(start(row.name), 0);
    }

    std::string address_of(const std::string &name) const
    {
        for (const RunningPeer &peer : peers) {
            if (peer.name == name)
                return "127.0.0.1:" + std::to_string(peer.port);
        }
        return "";
    }

    void show_logs() const
    {
        for (const std::string &name : entries_below(folder.path())) {
            if (name.size() > 4 && name.substr(name.size() - 4) == ".log")
                std::cout << "--- " << name << "\n" << file_content(folder.path(name));
        }
    }

    void expect_pairs_of(const std::string &proxy);
    void expect_pairs_through(const std::string &proxy);

    TempFolder folder;
    std::filesystem::path earlier_folder;
    std::vector<RunningPeer> peers;
    std::uint16_t php_port = 0;
};

// Asking

const std::string credentials_line = "Basic dXNlcjE6cHcx"; // user1:pw1

struct Request {
    std::string service;
    std::string proxy; // host:port, "" for a direct connection
    bool credentials = false;
    std::string product = "Quintral Shapes";
    const char *version = "5.000";
};

struct Reply {
    int result = -2;
    std::string error;
    std::string version;
    std::string url;
    std::string button;
    std::string message;
};

Reply ask_by_library(const Request &request)
{
    constexpr unsigned capacity = 65536;
    std::vector<std::array<char, capacity>> texts(4); // zero-filled
    const std::size_t colon = request.proxy.find(':');
    const std::string proxy_host = request.proxy.substr(0, colon);
    const int proxy_port = request.proxy.empty() ? 0 : std::atoi(request.proxy.c_str() + colon + 1);
    web_service_host = request.service.c_str();
    Reply reply;
    reply.result = web_version_update(
        request.product.c_str(), "Quintral & Co", std::strtof(request.version, nullptr),
        "5 \"beta\"+1", "Linux", "6.1-~_*", "M=7%2e/\xC3\xA4", "x86_64", capacity, texts[0].data(),
        texts[1].data(), texts[2].data(), texts[3].data(), proxy_host.c_str(), proxy_port,
        request.credentials ? "user1" : nullptr, request.credentials ? "pw1" : nullptr);
    web_service_host = "";
    reply.error = web_last_error();
    reply.message = texts[0].data();
    reply.version = texts[1].data();
    reply.url = texts[2].data();
    reply.button = texts[3].data();
    return reply;
}

ChildResult ask_by_utility(const Request &request, const std::vector<std::string> &more = {})
{
    std::vector<std::string> command = {QUINTRAL_TOOL,
                                        "-service",
                                        request.service,
                                        "-product",
                                        request.product,
                                        "-productline",
                                        "Quintral & Co",
                                        "-product-version",
                                        request.version,
                                        "-os",
                                        "Linux",
                                        "-version-name",
                                        "5 \"beta\"+1",
                                        "-os-version",
                                        "6.1-~_*",
                                        "-machine-id",
                                        "M=7%2e/\xC3\xA4",
                                        "-processor-arch",
                                        "x86_64",
                                        "-proxy",
                                        request.proxy + ":1"};
    if (!request.proxy.empty())
        command.back() = request.proxy;
    if (request.credentials)
        command.insert(command.end(), {"-proxy-user", "user1", "-proxy-pass", "pw1"});
    command.insert(command.end(), more.begin(), more.end());
    return run_child(command);
}

// What the page reports of a request, from its second line on.
std::string received(const std::string &seen, const Request &request)
{
    std::string line = seen;
    const std::size_t service = line.find("SERVICE");
    if (service != std::string::npos)
        line.replace(service, 7, request.service);
    return line + "\r\ncredentials " + (request.credentials ? credentials_line : "none") +
           "\r\nproduct=" + request.product +
           "\r\nproductline=Quintral & Co\r\nversion=" + request.version +
           "\r\nversion_name=5 \"beta\"+1\r\nos=Linux\r\nos_version=6.1-~_*" +
           "\r\nmachine_id=M=7%2e/\xC3\xA4\r\nprocessor_arch=x86_64\r\n";
}

// Pairs

const char *const closed_error = "Invalid non-HTTP header string returned from web site";
const char *const refused_error = "Bad HTTP status 400 from web site: Bad Request";

// The error of an exchange that does not give an answer; "" if it must.
std::string expected_error(const PairRow &row, const std::string &error)
{
    if (row.outcome == Outcome::Refused)
        return refused_error;
    const bool closed = row.outcome == Outcome::Unreliable && error == closed_error;
    return closed ? error : "";
}

// The library's buffers keep the carriage return before a line feed.
void expect_library_reply(const PairRow &row, const Request &request)
{
    const Reply reply = ask_by_library(request);
    const std::string error = expected_error(row, reply.error);
    EXPECT_EQ(reply.error, error);
    EXPECT_EQ(reply.result, error.empty() ? 0 : -1);
    const std::string message = "Quintral Shapes 5.200 is here.\r\n" + received(row.seen, request);
    EXPECT_EQ(reply.version, error.empty() ? "5.200\r" : "");
    EXPECT_EQ(reply.url, error.empty() ? "http://www.quintral.example/shapes\r" : "");
    EXPECT_EQ(reply.button, error.empty() ? "Get it\r" : "");
    EXPECT_EQ(reply.message, error.empty() ? message : "");
}

void expect_utility_output(const PairRow &row, const Request &request)
{
    const ChildResult result = ask_by_utility(request);
    const std::string first_line = result.error.substr(0, result.error.find("\a\n"));
    const std::string typed = first_line.substr(0, 7) == "Error: " ? first_line.substr(7) : "";
    const std::string error = expected_error(row, typed);
    EXPECT_EQ(first_line, error.empty() ? "" : "Error: " + error);
    EXPECT_EQ(result.exit_status, error.empty() ? 0 : 1);
    const std::string lines = "Version: 5.200\n"
                              "URL: http://www.quintral.example/shapes\n"
                              "Button: Get it\n"
                              "Quintral Shapes 5.200 is here.\n" +
                              without_carriage_returns(received(row.seen, request));
    EXPECT_EQ(result.output, error.empty() ? lines : "");
}

// A status other than 200, and a reply of 60000 bytes.
void expect_other_replies(const PairRow &row, Request request)
{
    request.product = "Gone";
    const Reply gone = ask_by_library(request);
    EXPECT_EQ(gone.result, -1);
    const std::string error = expected_error(row, gone.error);
    EXPECT_EQ(gone.error,
              error.empty() ? "Bad HTTP status 410 from web site: Gone" : error.c_str());

    request.product = "Long";
    const Reply reply = ask_by_library(request);
    const bool answered = expected_error(row, reply.error).empty();
    EXPECT_EQ(reply.error, expected_error(row, reply.error));
    EXPECT_EQ(reply.message, answered ? repeated(6000, "0123456789") + "\r\n" : "");
}

void RealPeers::expect_pairs_of(const std::string &proxy)
{
    for (const PairRow &row : pair_rows) {
        if (row.proxy != proxy)
            continue;
        SCOPED_TRACE(std::string(row.server) + " through '" + row.proxy + "'");
        Request request = {address_of(row.server), address_of(row.proxy)};
        for (const bool credentials : {false, true}) {
            request.credentials = credentials;
            expect_library_reply(row, request);
            expect_utility_output(row, request);
        }
        expect_other_replies(row, request);
    }
}

void RealPeers::expect_pairs_through(const std::string &proxy)
{
    start_servers();
    ASSERT_NE(start(proxy), 0);
    expect_pairs_of(proxy);
}

TEST_F(RealPeers, AnswerDirectly)
{
    start_servers();
    expect_pairs_of("");
}

TEST_F(RealPeers, AnswerThroughSquid)
{
    expect_pairs_through("squid");
}

TEST_F(RealPeers, AnswerThroughTinyproxy)
{
    expect_pairs_through("tinyproxy");
}

TEST_F(RealPeers, AnswerThroughPrivoxy)
{
    expect_pairs_through("privoxy");
}

TEST_F(RealPeers, AnswerThroughModProxy)
{
    expect_pairs_through("mod_proxy");
}

// Errors of the proxies themselves

// After an error reply of its own, a proxy may close the connection without reading the form. That
// resets the connection, so that only the reset is reported. If the form arrives after the close,
// the reply ends cleanly and its status is reported.
void expect_proxy_error(const ProxyErrorRow &row, const std::string &status, const Request &request)
{
    const std::string reset = "Error receiving data from web site: code " +
                              std::to_string(ECONNRESET) + ": " + std::strerror(ECONNRESET);
    const std::string refused =
        "Bad HTTP status " + status.substr(0, 3) + " from web site: " + status.substr(4);
    const Reply reply = ask_by_library(request);
    EXPECT_EQ(reply.result, -1);
    EXPECT_EQ(reply.error, row.may_reset && reply.error == reset ? reset : refused);
    const ChildResult result = ask_by_utility(request);
    EXPECT_EQ(result.exit_status, 1);
    const std::string first_line = result.error.substr(0, result.error.find('\n'));
    const bool was_reset = row.may_reset && first_line == "Error: " + reset + "\a";
    EXPECT_EQ(first_line, "Error: " + (was_reset ? reset : refused) + "\a");
}

TEST_F(RealPeers, ProxiesReportAServiceThatRefusesTheConnection)
{
    const std::string service = "127.0.0.1:" + std::to_string(refused_port());
    for (const ProxyErrorRow &row : proxy_error_rows) {
        SCOPED_TRACE(row.proxy);
        ASSERT_NE(start(row.proxy), 0);
        for (int i = 0; i < 5; ++i)
            expect_proxy_error(row, row.unreachable, {service, address_of(row.proxy)});
    }
}

// A proxy expects its own credentials in a different header line.
TEST_F(RealPeers, CredentialsDoNotSatisfyAProxysOwnPassword)
{
    php_port = start("php-cgi");
    ASSERT_NE(start("nginx"), 0);
    for (const ProxyErrorRow &row : proxy_error_rows) {
        if (*row.password_wanted == '\0')
            continue;
        SCOPED_TRACE(row.proxy);
        ASSERT_NE(start(row.proxy, ProxyAccess::ClientsWithPassword), 0);
        for (const bool credentials : {false, true})
            expect_proxy_error(row, row.password_wanted,
                               {address_of("nginx"), address_of(row.proxy), credentials});
    }
    EXPECT_EQ(file_content("nginx-access.log"), "");
}

// The advice of the page.
TEST_F(RealPeers, ProxiesCanAllowTheServiceWithoutAPassword)
{
    php_port = start("php-cgi");
    ASSERT_NE(start("nginx"), 0);
    for (const PairRow &row : pair_rows) {
        if (std::string(row.server) != "nginx" || *row.proxy == '\0')
            continue;
        SCOPED_TRACE(row.proxy);
        ASSERT_NE(start(row.proxy, ProxyAccess::EverybodyForTheService), 0);
        expect_library_reply(row, {address_of("nginx"), address_of(row.proxy)});
    }
}

// The page's own rules

TEST_F(RealPeers, ThePageAnswersForEachProductAndVersion)
{
    php_port = start("php-cgi");
    ASSERT_NE(start("nginx"), 0);
    const struct {
        const char *product;
        const char *version;
        const char *newest_version;
        const char *message; // its first line
        int exit_status;     // with -exit-code
    } rows[] = {
        {"Quintral Shapes", "5.199", "5.200\r", "Quintral Shapes 5.200 is here.", 10},
        {"Quintral Shapes", "5.200", "5.200\r", "You have the newest version.", 0},
        {"Quintral Frames", "1.100", "12\r", "Quintral Frames 12 is here.", 10},
        {"a+b & c", "0.000", "", "Unknown product.", 11},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.product);
        const Request request = {address_of("nginx"), "", false, row.product, row.version};
        const Reply reply = ask_by_library(request);
        EXPECT_EQ(reply.result, 0) << reply.error;
        EXPECT_EQ(reply.version, row.newest_version);
        EXPECT_EQ(reply.message,
                  std::string(row.message) + "\r\n" + received(pair_rows[0].seen, request));
        EXPECT_EQ(ask_by_utility(request, {"-exit-code"}).exit_status, row.exit_status);
    }
}

// Why the two servers do not always work

// Sends the request for the page as the client does: with the port in the URL, or, for a service on
// port 80, without.
int exchange(const std::string &address, bool port_in_url, std::string *status_line)
{
    const std::string port = address.substr(address.find(':') + 1);
    const std::string url =
        "http://" + (port_in_url ? address : "127.0.0.1") + "/version-update.php";
    const std::string form = "product=Long";
    const std::string header =
        "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: " +
        std::to_string(form.size());
    char *reply_header = nullptr;
    char *body = nullptr;
    const int result =
        web_exchange("HTTP", "127.0.0.1", url.c_str(), static_cast<std::uint16_t>(std::stoi(port)),
                     "POST", header, form, &reply_header, &body, nullptr, 0, nullptr, nullptr);
    *status_line = reply_header == nullptr ? "" : reply_header;
    status_line->erase(std::min(status_line->size(), status_line->find('\r')));
    std::free(reply_header);
    std::free(body);
    return result;
}

TEST_F(RealPeers, LighttpdAnswersIfTheUrlHasNoPort)
{
    php_port = start("php-cgi");
    ASSERT_NE(start("lighttpd"), 0);
    std::string status_line;
    EXPECT_EQ(exchange(address_of("lighttpd"), true, &status_line), 0);
    EXPECT_EQ(status_line, "HTTP/1.0 400 Bad Request");
    EXPECT_EQ(exchange(address_of("lighttpd"), false, &status_line), 0);
    EXPECT_EQ(status_line, "HTTP/1.0 200 OK");
}

// Sends a request in two pieces with a pause in between, or in one if the first is all of it.
// Returns the first line of the reply, "" if the connection is closed without one.
std::string first_line_of_reply(std::uint16_t port, const std::string &first,
                                const std::string &second, milliseconds pause)
{
    const int descriptor = connected_socket(port);
    EXPECT_EQ(send(descriptor, first.data(), first.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(first.size()));
    std::this_thread::sleep_for(pause);
    send(descriptor, second.data(), second.size(), MSG_NOSIGNAL); // may be too late
    char line[64] = "";
    const ssize_t count = recv(descriptor, line, sizeof line - 1, MSG_WAITALL);
    close(descriptor);
    const std::string reply(line, count < 0 ? 0 : static_cast<std::size_t>(count));
    return reply.substr(0, reply.find('\r'));
}

// The client sends the URL and the rest of its line in separate calls, and this server loses the
// part of the URL that it has received alone.
TEST_F(RealPeers, PhpAnswersUnlessItReceivesTheUrlAlone)
{
    const std::uint16_t port = start("php -S");
    ASSERT_NE(port, 0);
    const Request request = {address_of("php -S"), ""};
    const std::string bytes = ask_by_utility(request, {"-show-request"}).output;
    const std::size_t url_end = bytes.find(" HTTP/1.0\r\n");
    ASSERT_NE(url_end, std::string::npos) << bytes;
    EXPECT_EQ(first_line_of_reply(port, bytes, "", milliseconds(0)), "HTTP/1.0 200 OK");
    std::string line;
    // If the server is delayed for the length of the pause, it receives both pieces at once.
    for (const milliseconds pause : {milliseconds(200), milliseconds(1000), milliseconds(3000)}) {
        line = first_line_of_reply(port, bytes.substr(0, url_end), bytes.substr(url_end), pause);
        if (line.empty())
            break;
    }
    EXPECT_EQ(line, "");
}

} // namespace
} // namespace quintral::tests
