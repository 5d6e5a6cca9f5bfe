// The version-update query against independent servers: nginx with a PHP page at
// /version-update.php, directly or through tinyproxy. They run on the loopback interface. All their
// files are in a temporary folder, which is the working folder during each test.
#include "web/version-update.h"

#include "tests/harness/child-process.h"
#include "tests/harness/loopback-peer.h"
#include "tests/harness/temp-folder.h"
#include "tests/harness/text.h"
#include "web/transaction.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using tests::Child;
using tests::ChildOptions;
using tests::ChildResult;

// Servers

// The path of an installed program. If there is none, the test fails with the package to install,
// and the result is empty. Servers are often in folders that are not in an ordinary user's PATH.
std::string installed_program(const std::string &name, const std::string &package)
{
    const char *path = std::getenv("PATH");
    std::string folders = std::string(path == nullptr ? "" : path) + ":/usr/sbin:/sbin:/usr/bin:";
    for (std::size_t end = folders.find(':'); end != std::string::npos; end = folders.find(':')) {
        std::string program = folders.substr(0, end) + "/" + name;
        if (end > 0 && access(program.c_str(), X_OK) == 0)
            return program;
        folders.erase(0, end + 1);
    }
    ADD_FAILURE() << "This test needs " << name << ", which is not installed. On Debian: apt-get "
                  << "install --no-install-recommends " << package;
    return "";
}

bool wait_until(const std::function<bool()> &condition)
{
    for (int i = 0; i < 2000; ++i) {
        if (condition())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return condition();
}

bool has_ended(const Child &child)
{
    siginfo_t info{};
    const int options = WEXITED | WNOHANG | WNOWAIT; // child_wait collects the status
    return waitid(P_PID, static_cast<id_t>(child.process_id), &info, options) != 0 ||
           info.si_pid != 0;
}

// A port that was free a moment ago.
std::uint16_t free_port()
{
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(bind(descriptor, reinterpret_cast<sockaddr *>(&address), size), 0);
    EXPECT_EQ(getsockname(descriptor, reinterpret_cast<sockaddr *>(&address), &size), 0);
    close(descriptor);
    return ntohs(address.sin_port);
}

// Runs a server under `timeout`, so that it ends even if this process is killed.
Child start_server(const std::vector<std::string> &command)
{
    std::vector<std::string> bounded = {"timeout", "-k", "2", "100"};
    bounded.insert(bounded.end(), command.begin(), command.end());
    ChildOptions options;
    options.limit_seconds = 110;
    return tests::child_start(bounded, options);
}

void stop_server(Child *child)
{
    if (child->process_id < 0)
        return;
    tests::child_signal(*child, SIGTERM);
    const ChildResult result = tests::child_wait(*child);
    EXPECT_FALSE(result.timed_out) << result.output << result.error;
    child->process_id = -1;
}

// Starts a server that writes its process id to `pid_file` once it listens. Tries several ports,
// because another process may take one before the server starts.
std::uint16_t start_on_free_port(const std::vector<std::string> &command, const char *pid_file,
                                 const std::function<void(std::uint16_t)> &write_settings,
                                 Child *child)
{
    std::string output;
    for (int i = 0; i < 4; ++i) {
        const std::uint16_t port = free_port();
        write_settings(port);
        *child = start_server(command);
        if (child->process_id < 0)
            return 0;
        wait_until([&] { return !tests::file_content(pid_file).empty() || has_ended(*child); });
        if (!has_ended(*child) && !tests::file_content(pid_file).empty())
            return port;
        tests::child_signal(*child, SIGTERM);
        const ChildResult result = tests::child_wait(*child);
        child->process_id = -1;
        output = result.output + result.error;
    }
    ADD_FAILURE() << command[0] << " does not start: " << output;
    return 0;
}

// A single process, so that its process id ends it. As root it stays root; the user of a worker
// process could not enter the temporary folder.
void write_nginx_settings(std::uint16_t port)
{
    std::ofstream("nginx.conf") << "daemon off;\n"
                                   "master_process off;\n"
                                   "pid nginx.pid;\n"
                                   "error_log nginx-error.log;\n"
                                   "events { worker_connections 64; }\n"
                                   "http {\n"
                                   "    access_log nginx-access.log;\n"
                                   "    client_body_temp_path nginx-body;\n"
                                   "    fastcgi_temp_path nginx-fastcgi;\n"
                                   "    proxy_temp_path nginx-proxy;\n"
                                   "    scgi_temp_path nginx-scgi;\n"
                                   "    uwsgi_temp_path nginx-uwsgi;\n"
                                   "    server {\n"
                                   "        listen 127.0.0.1:"
                                << port
                                << ";\n"
                                   "        location = /version-update.php {\n"
                                   "            fastcgi_pass unix:php.socket;\n"
                                   "            fastcgi_param SCRIPT_FILENAME version-update.php;\n"
                                   "            fastcgi_param REQUEST_METHOD $request_method;\n"
                                   "            fastcgi_param REQUEST_LINE $request;\n"
                                   "            fastcgi_param CONTENT_TYPE $content_type;\n"
                                   "            fastcgi_param CONTENT_LENGTH $content_length;\n"
                                   "            fastcgi_param REDIRECT_STATUS 200;\n"
                                   "        }\n"
                                   "    }\n"
                                   "}\n";
}

void write_tinyproxy_settings(std::uint16_t port, const std::string &more)
{
    std::ofstream("tinyproxy.conf") << "Port " << port
                                    << "\n"
                                       "Listen 127.0.0.1\n"
                                       "Timeout 30\n"
                                       "MaxClients 10\n"
                                       "PidFile \"tinyproxy.pid\"\n"
                                       "LogFile \"tinyproxy.log\"\n"
                                       "ViaProxyName \"quintral-test\"\n"
                                    << more;
}

bool php_answers()
{
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "php.socket");
    const int result = connect(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address);
    close(descriptor);
    return result == 0;
}

class RealPeers : public testing::Test {
protected:
    void SetUp() override
    {
        const std::string php_program = installed_program("php-cgi", "php-cgi");
        const std::string nginx_program = installed_program("nginx", "nginx-light");
        tinyproxy_program = installed_program("tinyproxy", "tinyproxy-bin");
        ASSERT_FALSE(HasFailure());
        enter_folder();
        ASSERT_FALSE(HasFailure());
        php = start_server({php_program, "-n", "-b", "php.socket"});
        nginx_port = start_on_free_port(
            {nginx_program, "-e", "nginx-error.log", "-p", folder + "/", "-c", "nginx.conf"},
            "nginx.pid", write_nginx_settings, &nginx);
        ASSERT_NE(nginx_port, 0) << tests::file_content("nginx-error.log");
        ASSERT_TRUE(wait_until(php_answers));
        service = "127.0.0.1:" + std::to_string(nginx_port);
        web_service_host = service.c_str();
    }

    void TearDown() override
    {
        if (HasFailure() && !folder.empty())
            show_logs();
        stop_server(&tinyproxy);
        stop_server(&nginx);
        stop_server(&php);
        web_service_host = "";
        if (folder.empty())
            return;
        std::filesystem::current_path(earlier_folder);
        std::filesystem::remove_all(folder);
    }

    void enter_folder()
    {
        std::string name = testing::TempDir() + "real-peers-XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr) << name;
        folder = std::filesystem::absolute(name);
        earlier_folder = std::filesystem::current_path();
        std::filesystem::current_path(folder);
        std::filesystem::copy_file(QUINTRAL_UPDATE_PAGE, "version-update.php");
    }

    void start_tinyproxy(const std::string &more_settings = "")
    {
        proxy_port = start_on_free_port(
            {tinyproxy_program, "-d", "-c", "tinyproxy.conf"}, "tinyproxy.pid",
            [&](std::uint16_t port) { write_tinyproxy_settings(port, more_settings); }, &tinyproxy);
        ASSERT_NE(proxy_port, 0) << tests::file_content("tinyproxy.log");
    }

    static void show_logs()
    {
        for (const char *log : {"nginx-error.log", "nginx-access.log", "tinyproxy.log"})
            std::printf("--- %s\n%s", log, tests::file_content(log).c_str());
    }

    // What the page reports about a direct request, whose request line has the whole URL.
    std::string received_directly(const std::string &credentials = "none") const
    {
        return "POST http://" + service + "/version-update.php HTTP/1.0\r\nvia none\r\n" +
               "credentials " + credentials + "\r\n";
    }

    // The same for a request through tinyproxy, which leaves only the path.
    static std::string received_through_proxy(const std::string &credentials = "none")
    {
        return "POST /version-update.php HTTP/1.0\r\nvia 1.0 quintral-test\r\ncredentials " +
               credentials + "\r\n";
    }

    std::string folder;
    std::filesystem::path earlier_folder;
    std::string tinyproxy_program;
    Child php;
    Child nginx;
    Child tinyproxy;
    std::uint16_t nginx_port = 0;
    std::uint16_t proxy_port = 0;
    std::string service;
};

// The library

struct Reply {
    int result = -2;
    std::string error;
    std::string version;
    std::string url;
    std::string button;
    std::string message;
};

// Removes the version of the installed tinyproxy.
std::string without_proxy_version(std::string text)
{
    const std::size_t begin = text.find(" (tinyproxy/");
    if (begin != std::string::npos)
        text.erase(begin, text.find(')', begin) + 1 - begin);
    return text;
}

Reply ask(const std::string &product, float version, int proxy_port = 0, const char *user = nullptr,
          const char *password = nullptr)
{
    constexpr unsigned capacity = 65536;
    std::vector<std::array<char, capacity>> texts(4); // zero-filled
    Reply reply;
    reply.result = web_version_update(
        product.c_str(), "Quintral & Co", version, "5 \"beta\"+1", "Linux", "6.1-~_*",
        "M=7%2e/\xC3\xA4", "x86_64", capacity, texts[0].data(), texts[1].data(), texts[2].data(),
        texts[3].data(), proxy_port == 0 ? nullptr : "127.0.0.1", proxy_port, user, password);
    reply.error = web_last_error();
    reply.message = without_proxy_version(texts[0].data());
    reply.version = texts[1].data();
    reply.url = texts[2].data();
    reply.button = texts[3].data();
    return reply;
}

// What the page reports about the fields of `ask` and `run_utility`.
std::string fields(const std::string &product, const std::string &version)
{
    return "product=" + product + "\r\nproductline=Quintral & Co\r\nversion=" + version +
           "\r\nversion_name=5 \"beta\"+1\r\nos=Linux\r\nos_version=6.1-~_*"
           "\r\nmachine_id=M=7%2e/\xC3\xA4\r\nprocessor_arch=x86_64\r\n";
}

void expect_reply(const Reply &reply, const Reply &expected)
{
    EXPECT_EQ(reply.result, expected.result);
    EXPECT_EQ(reply.error, expected.error);
    EXPECT_EQ(reply.version, expected.version);
    EXPECT_EQ(reply.url, expected.url);
    EXPECT_EQ(reply.button, expected.button);
    EXPECT_EQ(reply.message, expected.message);
}

struct Row {
    const char *product;
    float version;
    const char *sent_version;
    const char *newest_version;
    const char *url;
    const char *button;
    const char *message; // its first line
};

const char *const shapes = "http://www.quintral.example/shapes";

const Row rows[] = {
    {"Quintral Shapes", 5.0F, "5.000", "5.200", shapes, "Get it", "Quintral Shapes 5.200 is here."},
    {"Quintral Shapes", 5.2F, "5.200", "5.200", "", "", "You have the newest version."},
    {"Quintral Frames", 1.1F, "1.100", "12", "", "", "Quintral Frames 12 is here."},
    {"a+b & c", 0.0F, "0.000", "", "", "", "Unknown product."},
};

// The library's buffers keep the carriage return before a line feed.
std::string with_return(const std::string &value)
{
    return value.empty() ? "" : value + "\r";
}

void expect_row(const Row &row, const std::string &received, const Reply &reply)
{
    SCOPED_TRACE(std::string(row.product) + " " + row.sent_version);
    const std::string message =
        std::string(row.message) + "\r\n" + received + fields(row.product, row.sent_version);
    expect_reply(reply, {0, "", with_return(row.newest_version), with_return(row.url),
                         with_return(row.button), message});
}

TEST_F(RealPeers, LibraryReadsTheAnswerOfNginxAndPhp)
{
    for (const Row &row : rows)
        expect_row(row, received_directly(), ask(row.product, row.version));
}

TEST_F(RealPeers, LibraryReadsTheAnswerThroughTinyproxy)
{
    start_tinyproxy();
    ASSERT_NE(proxy_port, 0);
    for (const Row &row : rows)
        expect_row(row, received_through_proxy(), ask(row.product, row.version, proxy_port));
}

TEST_F(RealPeers, LibraryReadsALongAnswerInFull)
{
    start_tinyproxy();
    ASSERT_NE(proxy_port, 0);
    const std::string message = tests::repeated(6000, "0123456789");
    const Reply expected = {0, "", "", "", "", message + "\r\n"};
    expect_reply(ask("Long", 1.0F), expected);
    expect_reply(ask("Long", 1.0F, proxy_port), expected);
}

TEST_F(RealPeers, LibraryReportsAnErrorStatusOfTheServer)
{
    start_tinyproxy();
    ASSERT_NE(proxy_port, 0);
    const Reply gone = {-1, "Bad HTTP status 410 from web site: Gone", "", "", "", ""};
    expect_reply(ask("Gone", 1.0F), gone);
    expect_reply(ask("Gone", 1.0F, proxy_port), gone);
}

// After an error reply of its own, tinyproxy closes the connection without reading the form. That
// usually resets the connection, so that only the reset is reported. If the form arrives after the
// close, the reply ends cleanly and its status is reported.
void expect_proxy_error(const Reply &reply, const std::string &status)
{
    const std::string reset = "Error receiving data from web site: code " +
                              std::to_string(ECONNRESET) + ": " + std::strerror(ECONNRESET);
    const std::string error = reply.error == reset ? reset : "Bad HTTP status " + status;
    expect_reply(reply, {-1, error, "", "", "", ""});
}

TEST_F(RealPeers, LibraryReportsAnErrorOfTinyproxyItself)
{
    start_tinyproxy();
    ASSERT_NE(proxy_port, 0);
    const std::string refused = "127.0.0.1:" + std::to_string(tests::refused_port());
    web_service_host = refused.c_str();
    for (int i = 0; i < 10; ++i)
        expect_proxy_error(ask("Quintral Shapes", 1.0F, proxy_port),
                           "500 from web site: Unable to connect");
}

// The credentials are sent in the header line for the server, so a proxy passes them on.
TEST_F(RealPeers, CredentialsReachTheServerDirectlyAndThroughTinyproxy)
{
    start_tinyproxy();
    ASSERT_NE(proxy_port, 0);
    const std::string credentials = "Basic dXNlcjE6cHcx"; // user1:pw1
    const std::string first_line = "Unknown product.\r\n";
    EXPECT_EQ(ask("Other", 1.0F, 0, "user1", "pw1").message,
              first_line + received_directly(credentials) + fields("Other", "1.000"));
    EXPECT_EQ(ask("Other", 1.0F, proxy_port, "user1", "pw1").message,
              first_line + received_through_proxy(credentials) + fields("Other", "1.000"));
}

// A proxy expects its own credentials in a different header line.
TEST_F(RealPeers, CredentialsDoNotSatisfyTinyproxysOwnAuthentication)
{
    start_tinyproxy("BasicAuth user1 pw1\n");
    ASSERT_NE(proxy_port, 0);
    expect_proxy_error(ask("Quintral Shapes", 1.0F, proxy_port, "user1", "pw1"),
                       "407 from web site: Proxy Authentication Required");
    EXPECT_EQ(tests::file_content("nginx-access.log"), "");
}

// The utility

ChildResult run_utility(const std::string &service, const std::vector<std::string> &more,
                        const ChildOptions &options = {})
{
    std::vector<std::string> command = {
        QUINTRAL_TOOL,     "-service",      service,   "-product",    "Quintral Shapes",
        "-productline",    "Quintral & Co", "-os",     "Linux",       "-version-name",
        "5 \"beta\"+1",    "-os-version",   "6.1-~_*", "-machine-id", "M=7%2e/\xC3\xA4",
        "-processor-arch", "x86_64"};
    command.insert(command.end(), more.begin(), more.end());
    return tests::run_child(command, options);
}

void expect_result(const ChildResult &result, int status, const std::string &output,
                   const std::string &error)
{
    EXPECT_EQ(result.exit_status, status);
    EXPECT_EQ(without_proxy_version(result.output), output);
    EXPECT_EQ(result.error, error);
}

const std::string newer_lines = "Version: 5.200\n"
                                "URL: http://www.quintral.example/shapes\n"
                                "Button: Get it\n"
                                "Quintral Shapes 5.200 is here.\n";

TEST_F(RealPeers, UtilityPrintsTheAnswerOfNginxAndPhp)
{
    const std::string message =
        tests::without_carriage_returns(received_directly() + fields("Quintral Shapes", "5.000"));
    const std::vector<std::string> arguments = {"-proxy", ":1", "-product-version", "5"};
    expect_result(run_utility(service, arguments), 0, newer_lines + message, "");
}

TEST_F(RealPeers, UtilityPrintsTheAnswerThroughTinyproxy)
{
    start_tinyproxy();
    ASSERT_NE(proxy_port, 0);
    const std::string proxy = "127.0.0.1:" + std::to_string(proxy_port);
    const std::string message = tests::without_carriage_returns(received_through_proxy() +
                                                                fields("Quintral Shapes", "5.000"));
    const std::vector<std::string> arguments = {"-proxy", proxy, "-product-version", "5"};
    expect_result(run_utility(service, arguments), 0, newer_lines + message, "");

    ChildOptions options;
    options.environment = {{"http_proxy", "http://" + proxy + "/"}};
    expect_result(run_utility(service, {"-product-version", "5"}, options), 0,
                  newer_lines + message, "");
}

TEST_F(RealPeers, UtilityReportsANewerVersionByItsExitStatus)
{
    const std::string message =
        tests::without_carriage_returns(received_directly() + fields("Quintral Shapes", "5.200"));
    expect_result(run_utility(service, {"-proxy", ":1", "-exit-code", "-product-version", "5.2"}),
                  0, "Version: 5.200\nYou have the newest version.\n" + message, "");
    EXPECT_EQ(run_utility(service, {"-proxy", ":1", "-exit-code", "-product-version", "5.199"})
                  .exit_status,
              10);
}

TEST_F(RealPeers, UtilityReportsAnErrorStatusOfTheServer)
{
    start_tinyproxy();
    ASSERT_NE(proxy_port, 0);
    const std::string proxy = "127.0.0.1:" + std::to_string(proxy_port);
    const std::string error = "Error: Bad HTTP status 410 from web site: Gone\a\n";
    const std::string note =
        "Note: The request went through the proxy " + proxy + ", from -proxy\n";
    const std::vector<std::string> gone = {"-product", "Gone", "-product-version", "5", "-proxy"};
    std::vector<std::string> direct = gone;
    direct.push_back(":1");
    expect_result(run_utility(service, direct), 1, "", error);
    std::vector<std::string> through_proxy = gone;
    through_proxy.push_back(proxy);
    expect_result(run_utility(service, through_proxy), 1, "", error + note);
}

} // namespace
} // namespace quintral
