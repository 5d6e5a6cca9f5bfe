#include "tests/real-peers/peers.h"

#include "tests/harness/temp-folder.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <thread>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace quintral::tests {
namespace {

// In arguments and settings, these are replaced: @PORT@ the peer's port, @PHP_PORT@ the update
// page's interpreter, @FOLDER@ the folder of the test, @ACCESS@ the peer's access rules, @USER@ the
// lines that apache needs as root.
struct PeerKind {
    const char *name;
    const char *program;
    const char *package;
    std::vector<std::string> arguments;
    const char *settings = nullptr; // a file of settings/, or null
    // In the order of ProxyAccess. The passwords are those of user1 and pw1, or any.
    std::array<std::string, 3> access = {"", "", ""};
};

const std::string squid_password = "auth_param basic program /usr/lib/squid/basic_fake_auth\n"
                                   "acl known proxy_auth REQUIRED\n";
const std::string apache_password = "<Proxy *>\n"
                                    "AuthType Basic\n"
                                    "AuthName quintral-test\n"
                                    "AuthBasicProvider anon\n"
                                    "Anonymous *\n"
                                    "Require valid-user\n"
                                    "</Proxy>\n";

const std::vector<PeerKind> kinds = {
    {"php-cgi", "php-cgi", "php-cgi", {"-n", "-b", "127.0.0.1:@PORT@"}},
    {"php -S", "php", "php-cli", {"-n", "-S", "127.0.0.1:@PORT@", "-t", "@FOLDER@"}},
    {"nginx",
     "nginx",
     "nginx-light",
     {"-e", "nginx-error.log", "-p", "@FOLDER@/", "-c", "nginx.conf"},
     "nginx.conf"},
    {"apache2",
     "apache2",
     "apache2-bin",
     {"-X", "-d", "@FOLDER@", "-f", "@FOLDER@/apache2.conf"},
     "apache2.conf"},
    {"lighttpd", "lighttpd", "lighttpd", {"-D", "-f", "lighttpd.conf"}, "lighttpd.conf"},
    {"squid",
     "squid",
     "squid",
     {"-N", "-d", "0", "-n", "quintral@PORT@", "-f", "@FOLDER@/squid.conf"},
     "squid.conf",
     {"http_access allow all", squid_password + "http_access allow known",
      squid_password + "acl service dst 127.0.0.1\n"
                       "http_access allow service\n"
                       "http_access allow known"}},
    {"tinyproxy",
     "tinyproxy",
     "tinyproxy-bin",
     {"-d", "-c", "tinyproxy.conf"},
     "tinyproxy.conf",
     {"", "BasicAuth user1 pw1", "Allow 127.0.0.1"}},
    {"privoxy", "privoxy", "privoxy", {"--no-daemon", "privoxy.conf"}, "privoxy.conf"},
    {"mod_proxy",
     "apache2",
     "apache2-bin",
     {"-X", "-d", "@FOLDER@", "-f", "@FOLDER@/mod_proxy.conf"},
     "mod_proxy.conf",
     {"", apache_password,
      apache_password + "<Proxy \"http://127.0.0.1*\">\n"
                        "Require all granted\n"
                        "</Proxy>"}},
};

const PeerKind &kind_named(const std::string &name)
{
    for (const PeerKind &kind : kinds) {
        if (name == kind.name)
            return kind;
    }
    std::abort(); // a test names a peer that the table does not have
}

// The path of an installed program. If there is none, the test fails with the package to install,
// and the result is empty. Servers are often in folders that are not in an ordinary user's PATH.
std::string installed_program(const PeerKind &kind)
{
    const char *path = std::getenv("PATH");
    std::string folders = std::string(path == nullptr ? "" : path) + ":/usr/sbin:/sbin:/usr/bin:";
    for (std::size_t end = folders.find(':'); end != std::string::npos; end = folders.find(':')) {
        std::string program = folders.substr(0, end) + "/" + kind.program;
        if (end > 0 && access(program.c_str(), X_OK) == 0)
            return program;
        folders.erase(0, end + 1);
    }
    ADD_FAILURE() << "This test needs " << kind.program << ", from the Debian package "
                  << kind.package << ". ./check installs it.";
    return "";
}

// Requires: no value contains a key.
std::string filled(std::string text, const std::vector<std::pair<std::string, std::string>> &values)
{
    for (const auto &[key, value] : values) {
        for (std::size_t at = text.find(key); at != std::string::npos; at = text.find(key))
            text.replace(at, key.size(), value);
    }
    return text;
}

sockaddr_in loopback(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// A port that was free a moment ago.
std::uint16_t free_port()
{
    sockaddr_in address = loopback(0);
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    socklen_t size = sizeof address;
    EXPECT_EQ(bind(descriptor, reinterpret_cast<sockaddr *>(&address), size), 0);
    EXPECT_EQ(getsockname(descriptor, reinterpret_cast<sockaddr *>(&address), &size), 0);
    close(descriptor);
    return ntohs(address.sin_port);
}

bool accepts(std::uint16_t port)
{
    const int descriptor = connected_socket(port);
    if (descriptor >= 0)
        close(descriptor);
    return descriptor >= 0;
}

bool has_ended(const Child &child)
{
    siginfo_t info{};
    const int options = WEXITED | WNOHANG | WNOWAIT; // child_wait collects the status
    return waitid(P_PID, static_cast<id_t>(child.process_id), &info, options) != 0 ||
           info.si_pid != 0;
}

// At most 10 seconds. A peer whose port another process has taken ends.
bool is_ready(const RunningPeer &peer)
{
    for (int i = 0; i < 1000 && !has_ended(peer.child); ++i) {
        if (accepts(peer.port))
            return !has_ended(peer.child);
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

// Runs a program so that it ends with this process and after 100 seconds at the latest. SIGTERM
// ends it too; one that has not ended 2 seconds later is killed.
Child start_bounded(const std::vector<std::string> &command)
{
    std::vector<std::string> bounded = {"setpriv", "--pdeathsig", "TERM", "timeout",
                                        "-k",      "2",           "100"};
    bounded.insert(bounded.end(), command.begin(), command.end());
    ChildOptions options;
    options.limit_seconds = 110;
    return child_start(bounded, options);
}

ChildResult stop(Child *child)
{
    child_signal(*child, SIGTERM);
    ChildResult result = child_wait(*child);
    child->process_id = -1;
    return result;
}

// Starts the peer on a port that is free now. Another process may take that port first.
RunningPeer try_to_start(const PeerKind &kind, const std::string &program,
                         const std::string &access, const std::string &folder,
                         std::uint16_t php_port)
{
    RunningPeer peer;
    peer.name = kind.name;
    peer.port = free_port();
    const std::vector<std::pair<std::string, std::string>> values = {
        {"@PORT@", std::to_string(peer.port)},
        {"@PHP_PORT@", std::to_string(php_port)},
        {"@FOLDER@", folder},
        {"@ACCESS@", access},
        {"@USER@", geteuid() == 0 ? "User daemon\nGroup daemon" : ""}};
    std::vector<std::string> command = {program};
    for (const std::string &argument : kind.arguments)
        command.push_back(filled(argument, values));
    if (kind.settings != nullptr) {
        const std::string text =
            file_content(std::string(QUINTRAL_PEER_SETTINGS "/") + kind.settings);
        std::ofstream(folder + "/" + kind.settings) << filled(text, values);
    }
    peer.child = start_bounded(command);
    return peer;
}

} // namespace

RunningPeer start_peer(const std::string &name, ProxyAccess access, const std::string &folder,
                       std::uint16_t php_port)
{
    const PeerKind &kind = kind_named(name);
    const std::string &rules = kind.access[static_cast<std::size_t>(access)];
    const std::string program = installed_program(kind);
    std::string output;
    for (int i = 0; i < 4 && !program.empty(); ++i) {
        RunningPeer peer = try_to_start(kind, program, rules, folder, php_port);
        if (peer.child.process_id < 0)
            return {};
        if (is_ready(peer))
            return peer;
        const ChildResult result = stop(&peer.child);
        output = result.output + result.error;
    }
    if (!program.empty())
        ADD_FAILURE() << name << " does not start: " << output;
    return {};
}

int connected_socket(std::uint16_t port)
{
    const sockaddr_in address = loopback(port);
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    const timeval limit = {10, 0};
    setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    if (connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
        return descriptor;
    close(descriptor);
    return -1;
}

void stop_peers(std::vector<RunningPeer> *peers)
{
    for (RunningPeer &peer : *peers)
        child_signal(peer.child, SIGTERM);
    for (RunningPeer &peer : *peers) {
        const ChildResult result = child_wait(peer.child);
        EXPECT_FALSE(result.timed_out) << peer.name << ": " << result.output << result.error;
    }
    peers->clear();
}

} // namespace quintral::tests
