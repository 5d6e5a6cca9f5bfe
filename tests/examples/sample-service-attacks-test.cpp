// The sample update service under attack: a thousand clients that connect again whenever they are
// closed. A client on a slow line, which pauses half a second after it has connected and half-way
// through its request, must be answered within the ten seconds that the web client waits.
#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/examples/sample-service.h"

namespace quintral::tests {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int attacker_count = 1000;

// What an attacker does once it has connected, and every `pause` after that.
struct Attack {
    std::string first;  // sent at once
    std::string repeat; // sent after each pause; empty: look only whether the connection is closed
    milliseconds pause;
    bool reset; // close the connection, with a reset, after each pause
};

struct Attacker {
    int descriptor = -1;
    Clock::time_point next = {};
};

// Does not wait: the system's queue may be full.
int connect_at_once(std::uint16_t port)
{
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    fcntl(descriptor, F_SETFL, O_NONBLOCK);
    const sockaddr_in address = loopback(port);
    (void)connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    return descriptor;
}

bool is_open(int descriptor)
{
    char byte = 0;
    const ssize_t count = recv(descriptor, &byte, 1, MSG_DONTWAIT | MSG_PEEK);
    return count > 0 || (count < 0 && errno == EAGAIN);
}

void act(const Attack &attack, std::uint16_t port, Attacker *attacker)
{
    const bool is_new = attacker->descriptor < 0;
    if (is_new)
        attacker->descriptor = connect_at_once(port);
    const std::string &bytes = is_new ? attack.first : attack.repeat;
    const ssize_t sent =
        send(attacker->descriptor, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    const bool broken = sent < 0 && errno != EAGAIN;
    if (broken || (attack.reset && !is_new) || !is_open(attacker->descriptor)) {
        const linger reset = {1, 0};
        setsockopt(attacker->descriptor, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
        close(attacker->descriptor);
        attacker->descriptor = -1;
    }
}

void attack_until(const Attack &attack, std::uint16_t port, const std::atomic<bool> &stop)
{
    std::vector<Attacker> attackers(attacker_count);
    while (!stop) {
        for (Attacker &attacker : attackers) {
            if (attacker.next > Clock::now())
                continue;
            act(attack, port, &attacker);
            const bool open = attacker.descriptor >= 0;
            attacker.next = Clock::now() + (open ? attack.pause : milliseconds(0));
        }
        std::this_thread::sleep_for(milliseconds(2));
    }
    for (const Attacker &attacker : attackers) {
        if (attacker.descriptor >= 0)
            close(attacker.descriptor);
    }
}

// What a client on a slow line receives. Fails the test if it has to wait ten seconds for it.
std::string ask_slowly(std::uint16_t port)
{
    const std::string request = post(good_form);
    const int client = connect_to(port);
    std::this_thread::sleep_for(milliseconds(500));
    EXPECT_TRUE(send_bytes(client, request.substr(0, request.size() / 2)));
    std::this_thread::sleep_for(milliseconds(500));
    EXPECT_TRUE(send_bytes(client, request.substr(request.size() / 2)));
    const auto asked = Clock::now();
    std::string reply = receive_to_end(client);
    EXPECT_LT(Clock::now() - asked, std::chrono::seconds(10));
    close(client);
    return reply;
}

// The log would be long; nobody reads it.
Service start_under_attack()
{
    rlimit limit{};
    EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = limit.rlim_max;
    EXPECT_GE(limit.rlim_max, 2 * attacker_count) << "too few descriptors for the attack";
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    ChildOptions options;
    options.error = ChildStream::BrokenPipe;
    return start_service(options);
}

void expect_answers_under(const Attack &attack)
{
    Service started = start_under_attack();
    std::atomic<bool> stop = false;
    std::thread attacking([&] { attack_until(attack, started.port, stop); });
    std::this_thread::sleep_for(milliseconds(1000));
    std::vector<std::future<std::string>> replies;
    for (int i = 0; i < 4; ++i) {
        replies.push_back(std::async(std::launch::async, ask_slowly, started.port));
        std::this_thread::sleep_for(milliseconds(200));
    }
    for (std::future<std::string> &reply : replies)
        EXPECT_EQ(reply.get(), shapes_answer);
    stop = true;
    attacking.join();
    EXPECT_EQ(ask(started.port, post(good_form)), shapes_answer);
    stop_service(started);
}

constexpr milliseconds fast(20);
constexpr milliseconds slow(1000);
const std::string header_start = good_line + "\r\n";
const std::string refused_length = request_with(good_line, length_line(2000000000), "");
const std::string longest_length = request_with(good_line, length_line(32768), "");

TEST(SampleServiceUnderAttack, OfClientsThatSendNothing)
{
    expect_answers_under({"", "", fast, false});
}

TEST(SampleServiceUnderAttack, OfOneBytePerSecond)
{
    expect_answers_under({"", "P", slow, false});
}

TEST(SampleServiceUnderAttack, OfEndlessHeaders)
{
    expect_answers_under({header_start, "X: " + std::string(500, 'x') + "\r\n", fast, false});
}

TEST(SampleServiceUnderAttack, OfSlowHeaders)
{
    expect_answers_under({header_start, "X: y\r\n", slow, false});
}

TEST(SampleServiceUnderAttack, OfHugeBodies)
{
    expect_answers_under({refused_length, std::string(500, 'x'), fast, false});
}

TEST(SampleServiceUnderAttack, OfSlowBodies)
{
    expect_answers_under({longest_length, std::string(100, 'x'), slow, false});
}

TEST(SampleServiceUnderAttack, OfClientsThatNeverReadTheAnswer)
{
    expect_answers_under({post(good_form), "x", fast, false});
}

TEST(SampleServiceUnderAttack, OfClientsThatConnectAndReset)
{
    expect_answers_under({"", "", fast, true});
}

TEST(SampleServiceUnderAttack, OfClientsThatAskAndReset)
{
    expect_answers_under({post(good_form), "", fast, true});
}

} // namespace
} // namespace quintral::tests
