// The example check-for-update as a process, against a scripted update service.
#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/harness/child-process.h"
#include "tests/harness/loopback-peer.h"

namespace quintral::tests {
namespace {

const std::string ok_header = "HTTP/1.0 200 OK\r\n\r\n";

ChildResult check(const std::string &address)
{
    return run_child({QUINTRAL_CHECK_FOR_UPDATE, address});
}

PeerScript replying(const std::string &reply)
{
    return {{PeerAct::ReadRequest}, {PeerAct::Send, reply}};
}

TEST(CheckForUpdate, PrintsTheAnswer)
{
    const LoopbackPeer peer({replying(ok_header + "Version: 5.2\nURL: http://h/shapes\n"
                                                  "Message: Faster.\nAnd smaller.")});
    const ChildResult result = check(peer.address());
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.output,
              "Version: 5.2\nURL: http://h/shapes\nMessage: Faster.\nAnd smaller.\n");
    EXPECT_EQ(result.error, "");
}

TEST(CheckForUpdate, SendsTheProductAndTheSystem)
{
    const LoopbackPeer peer({replying(ok_header + "Message: m")});
    EXPECT_EQ(check(peer.address()).exit_status, 0);
    const std::string request = peer.received(0);
    const std::string line = "POST http://" + peer.address() + "/version-update.php HTTP/1.0\r\n";
    EXPECT_EQ(request.substr(0, line.size()), line);
    const std::string fields = "product=Quintral%20Shapes&productline=Quintral&version=5%2e100"
                               "&version%5fname=5%2e1%20beta&os=";
    EXPECT_NE(request.find(fields), request.npos) << request;
    EXPECT_EQ(request.find("os%5fversion=&"), request.npos) << request;
}

TEST(CheckForUpdate, PrintsNoControlCharacterOfTheReply)
{
    const LoopbackPeer peer({replying(ok_header + "Version: \x1b[2J\r\nMessage: \x9b\x7f\tx")});
    EXPECT_EQ(check(peer.address()).output, "Version:  [2J\nURL: \nMessage:    x\n");
}

TEST(CheckForUpdate, GivesUpOnASilentServiceAfterThreeSeconds)
{
    const LoopbackPeer peer({{{PeerAct::ReadRequest}, {PeerAct::Hold}}});
    const auto start = std::chrono::steady_clock::now();
    const ChildResult result = check(peer.address());
    const auto lived = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.error, "Error: User canceled web transaction\n");
    EXPECT_GE(lived, std::chrono::seconds(2));
    EXPECT_LT(lived, std::chrono::seconds(9)) << "the client's own limit is ten seconds";
}

TEST(CheckForUpdate, ReportsWhyThereIsNoAnswer)
{
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"HTTP/1.0 404 Not Found\r\n\r\n", "Bad HTTP status 404 from web site: Not Found"},
        {ok_header + "Version: 5.2\n", "The web site's answer is not an update reply"},
        {ok_header + "Message: " + std::string(8 * 1024 * 1024, 'x'),
         "Reply body from web site is longer than 8388608 bytes"},
    };
    for (const auto &[reply, why] : rows) {
        const LoopbackPeer peer({replying(reply)});
        const ChildResult result = check(peer.address());
        EXPECT_EQ(result.exit_status, 1) << why;
        EXPECT_TRUE(result.output.empty()) << why;
        EXPECT_EQ(result.error, "Error: " + why + "\n");
    }
    const std::string refused = "127.0.0.1:" + std::to_string(refused_port());
    const ChildResult result = check(refused);
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_NE(result.error.find("Error: Can't connect to web server '127.0.0.1'"),
              result.error.npos)
        << result.error;
}

TEST(CheckForUpdate, RefusesAWrongCommandLine)
{
    for (const std::vector<std::string> &command :
         {std::vector<std::string>{QUINTRAL_CHECK_FOR_UPDATE},
          std::vector<std::string>{QUINTRAL_CHECK_FOR_UPDATE, "a", "b"}}) {
        const ChildResult result = run_child(command);
        EXPECT_EQ(result.exit_status, 2);
        EXPECT_EQ(result.error, "Usage: check-for-update HOST[:PORT]\n");
    }
}

} // namespace
} // namespace quintral::tests
