// Measures whole exchanges with a server on 127.0.0.1: the web client, libcurl, and a loop of the
// client's own system calls, interleaved in one process. Prints one JSON object for each case and
// side:
//
//     {"case": "body/10240", "side": "ours", "cpu_us_median": ..., "cpu_us_low": ...,
//      "cpu_us_high": ..., "peak_ratio": ...}
//
// case: "body/N", a reply of N body bytes and a header of 150 bytes; or "header/N", a reply of N
// header bytes and a body of 200 bytes. cpu_us: the processor time of this process for one
// exchange, without the server's, in microseconds: the median and the first and last tenth.
// peak_ratio: the highest memory use above that at the start, divided by the reply's size, measured
// in a child process; only for bodies of 1 MiB and more.
//
//     quintral_exchange_bench [TEXT]     every case, or those whose name contains TEXT

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <string>
#include <vector>

#include <curl/curl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/exchange-server.h"
#include "bench/exchange-sides.h"

namespace quintral {
namespace {

struct ExchangeCase {
    const char *name;
    std::size_t header_size;
    std::size_t body_size;
    int rounds; // so that each case takes a few seconds
    bool measures_memory;
};

constexpr std::size_t mebibyte = std::size_t{1024} * 1024;

constexpr ExchangeCase exchange_cases[] = {
    {"body/200", 150, 200, 2001, false},        {"body/10240", 150, 10240, 2001, false},
    {"body/1048576", 150, mebibyte, 301, true}, {"body/104857600", 150, 100 * mebibyte, 13, true},
    {"header/150", 150, 200, 2001, false},      {"header/1024", 1024, 200, 1001, false},
    {"header/8192", 8192, 200, 301, false},     {"header/65536", 65536, 200, 51, false},
};

[[noreturn]] void fail(const ExchangeSide &side, const char *name)
{
    std::fprintf(stderr, "%s: an exchange by %s failed\n", name, side.name);
    std::exit(1);
}

double processor_microseconds()
{
    timespec time = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

double measured_time(const ExchangeSide &side, const ExchangeCase &one, std::uint16_t port)
{
    ExchangeReply reply = {};
    const double start = processor_microseconds();
    const bool succeeded = side.run(port, one.header_size, one.body_size, &reply);
    const double end = processor_microseconds();
    if (!succeeded || received_body_size(reply) != one.body_size)
        fail(side, one.name);
    release_exchange_reply(&reply);
    return end - start;
}

// The highest memory use so far, in bytes.
double peak_memory()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) * 1024;
}

// In a child process: the peak above the memory in use after one small exchange.
[[noreturn]] void write_peak(const ExchangeSide &side, const ExchangeCase &one, std::uint16_t port,
                             int output)
{
    ExchangeReply reply = {};
    if (!side.run(port, 150, 200, &reply))
        _exit(1);
    release_exchange_reply(&reply);
    const double before = peak_memory();
    if (!side.run(port, one.header_size, one.body_size, &reply))
        _exit(1);
    const double peak = peak_memory() - before;
    _exit(write(output, &peak, sizeof peak) == sizeof peak ? 0 : 1);
}

double peak_ratio(const ExchangeSide &side, const ExchangeCase &one, std::uint16_t port)
{
    int ends[2];
    if (pipe(ends) != 0)
        fail(side, one.name);
    const pid_t child = fork();
    if (child == 0)
        write_peak(side, one, port, ends[1]);
    double peak = 0;
    close(ends[1]);
    const bool is_known = child > 0 && read(ends[0], &peak, sizeof peak) == sizeof peak;
    close(ends[0]);
    waitpid(child, nullptr, 0);
    if (!is_known)
        fail(side, one.name);
    return peak / static_cast<double>(one.header_size + one.body_size);
}

void print_result(const ExchangeSide &side, const ExchangeCase &one, std::vector<double> times,
                  double ratio)
{
    std::sort(times.begin(), times.end());
    const std::size_t last = times.size() - 1;
    std::printf("{\"case\": \"%s\", \"side\": \"%s\", \"cpu_us_median\": %.1f, "
                "\"cpu_us_low\": %.1f, \"cpu_us_high\": %.1f",
                one.name, side.name, times[last / 2], times[last / 10], times[last - last / 10]);
    if (one.measures_memory)
        std::printf(", \"peak_ratio\": %.3f", ratio);
    std::printf("}\n");
    std::fflush(stdout);
}

// The memory comes first: blocks that this process has used and released would serve a child
// without adding to its memory.
void measure(const ExchangeCase &one, std::uint16_t port, const std::vector<double> &ratios)
{
    std::vector<double> times[exchange_side_count];
    for (const ExchangeSide &side : exchange_sides)
        measured_time(side, one, port);
    // Each order in turn: a side finds the heap as the side before it has left it.
    std::size_t order[] = {0, 1, 2};
    static_assert(std::size(order) == exchange_side_count);
    for (int round = 0; round < one.rounds; ++round) {
        for (const std::size_t i : order)
            times[i].push_back(measured_time(exchange_sides[i], one, port));
        std::next_permutation(std::begin(order), std::end(order));
    }
    for (std::size_t i = 0; i < exchange_side_count; ++i)
        print_result(exchange_sides[i], one, times[i], ratios[i]);
}

int run(const std::string &wanted)
{
    const ExchangeServer server = start_exchange_server();
    curl_global_init(CURL_GLOBAL_DEFAULT);
    std::vector<const ExchangeCase *> chosen;
    std::vector<std::vector<double>> ratios;
    for (const ExchangeCase &one : exchange_cases) {
        if (std::string(one.name).find(wanted) == std::string::npos)
            continue;
        chosen.push_back(&one);
        std::vector<double> of_sides;
        for (const ExchangeSide &side : exchange_sides)
            of_sides.push_back(one.measures_memory ? peak_ratio(side, one, server.port) : 0);
        ratios.push_back(of_sides);
    }
    for (std::size_t i = 0; i < chosen.size(); ++i)
        measure(*chosen[i], server.port, ratios[i]);
    stop_exchange_server(server);
    return chosen.empty() ? 1 : 0;
}

} // namespace
} // namespace quintral

int main(int argument_count, char **arguments)
{
    return quintral::run(argument_count > 1 ? arguments[1] : "");
}
