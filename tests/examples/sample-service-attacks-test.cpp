// The sample update service under attack: a thousand clients that connect again whenever they are
// closed. A client on a slow line, which pauses half a second after it has connected and halfway
// through its request, must be answered within the ten seconds that the web client waits.
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/examples/sample-service.h"
#include "tests/harness/descriptors.h"

namespace quintral::tests {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int attacker_count = 1000;
constexpr int service_connections = 512; // that the service has at the same time

// What an attacker does once it has connected, and every `pause` after that.
struct Attack {
    std::string first;  // sent at once
    std::string repeat; // sent after each pause; empty: look only whether the connection is closed
    milliseconds pause;
    bool reset; // close the connection, with a reset, after each pause
};

struct Attacker {
    int descriptor = -1;
    bool connected = false; // not only asked to
    Clock::time_point next = {};
};

// What shows that an attack took place.
struct AttackCounts {
    int most_connected = 0; // at once
    int connections = 0;
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

bool is_connected(int descriptor)
{
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    return getpeername(descriptor, reinterpret_cast<sockaddr *>(&peer), &size) == 0;
}

void act(const Attack &attack, std::uint16_t port, Attacker *attacker, AttackCounts *counts)
{
    const bool is_new = attacker->descriptor < 0;
    if (is_new)
        attacker->descriptor = connect_at_once(port);
    const std::string &bytes = is_new ? attack.first : attack.repeat;
    const ssize_t sent =
        send(attacker->descriptor, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    const bool broken = sent < 0 && errno != EAGAIN;
    if (!attacker->connected && is_connected(attacker->descriptor)) {
        attacker->connected = true;
        ++counts->connections;
    }
    if (broken || (attack.reset && !is_new) || !is_open(attacker->descriptor)) {
        const linger reset = {1, 0};
        setsockopt(attacker->descriptor, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
        close(attacker->descriptor);
        attacker->descriptor = -1;
        attacker->connected = false;
    }
}

AttackCounts attack_until(const Attack &attack, std::uint16_t port, const std::atomic<bool> &stop)
{
    AttackCounts counts;
    std::vector<Attacker> attackers(attacker_count);
    while (!stop) {
        for (Attacker &attacker : attackers) {
            if (attacker.next > Clock::now())
                continue;
            act(attack, port, &attacker, &counts);
            const bool open = attacker.descriptor >= 0;
            attacker.next = Clock::now() + (open ? attack.pause : milliseconds(0));
        }
        const auto connected =
            std::count_if(attackers.begin(), attackers.end(),
                          [](const Attacker &attacker) { return attacker.connected; });
        counts.most_connected = std::max(counts.most_connected, static_cast<int>(connected));
        std::this_thread::sleep_for(milliseconds(2));
    }
    for (const Attacker &attacker : attackers) {
        if (attacker.descriptor >= 0)
            close(attacker.descriptor);
    }
    return counts;
}

// What a client on a slow line receives.
struct SlowAnswer {
    std::string reply;
    Clock::duration asking;  // from its connection to the end of its request
    Clock::duration waiting; // from there to the end of the reply
};

SlowAnswer ask_slowly(std::uint16_t port)
{
    SlowAnswer answer{};
    const std::string request = post(good_form);
    const int client = connect_to(port);
    const auto connected = Clock::now();
    std::this_thread::sleep_for(milliseconds(500));
    (void)send_bytes(client, request.substr(0, request.size() / 2)); // the reply shows a failure
    std::this_thread::sleep_for(milliseconds(500));
    (void)send_bytes(client, request.substr(request.size() / 2));
    const auto asked = Clock::now();
    (void)receive_all(client, &answer.reply);
    answer.asking = asked - connected;
    answer.waiting = Clock::now() - asked;
    close(client);
    return answer;
}

// Whether the machine delayed the client so much that the service may close its connection.
bool asked_late(const SlowAnswer &answer)
{
    return answer.asking > milliseconds(1500);
}

bool was_answered_late(const SlowAnswer &answer)
{
    return answer.waiting >= std::chrono::seconds(10);
}

std::vector<SlowAnswer> ask_four_times(std::uint16_t port)
{
    std::vector<std::future<SlowAnswer>> asking;
    for (int i = 0; i < 4; ++i) {
        asking.push_back(std::async(std::launch::async, ask_slowly, port));
        std::this_thread::sleep_for(milliseconds(200));
    }
    std::vector<SlowAnswer> answers;
    for (std::future<SlowAnswer> &answer : asking)
        answers.push_back(answer.get());
    return answers;
}

// A busy machine may delay any attempt, but not each of three.
void expect_slow_clients_are_answered(std::uint16_t port)
{
    const auto is_late = [](const SlowAnswer &answer) {
        return asked_late(answer) || was_answered_late(answer);
    };
    std::vector<SlowAnswer> answers = ask_four_times(port);
    for (int i = 0; i < 2 && std::any_of(answers.begin(), answers.end(), is_late); ++i)
        answers = ask_four_times(port);
    for (const SlowAnswer &answer : answers) {
        EXPECT_EQ(answer.reply, shapes_answer);
        EXPECT_FALSE(asked_late(answer)) << "the machine is too busy for this test";
        EXPECT_FALSE(was_answered_late(answer));
    }
}

// The log is discarded.
Service start_under_attack()
{
    EXPECT_TRUE(allow_descriptors(2 * attacker_count)) << too_few_descriptors;
    ChildOptions options;
    options.error = ChildStream::BrokenPipe;
    return start_service(options);
}

void expect_answers_under(const Attack &attack)
{
    Service started = start_under_attack();
    std::atomic<bool> stop = false;
    AttackCounts counts;
    std::thread attacking([&] { counts = attack_until(attack, started.port, stop); });
    std::this_thread::sleep_for(milliseconds(1000));
    expect_slow_clients_are_answered(started.port);
    stop = true;
    attacking.join();
    EXPECT_GT(counts.most_connected, service_connections);
    const int least_connections = attack.reset ? 2 * attacker_count : attacker_count;
    EXPECT_GE(counts.connections, least_connections);
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
