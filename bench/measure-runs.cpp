// Measures whole runs of programs: CPU time and peak memory, as the kernel accounts for each
// process.
//
//     quintral_measure_runs ROUNDS NAME COMMAND [ARGUMENT...] [-- NAME COMMAND [ARGUMENT...]]...
//
// Runs every command once to warm up, then ROUNDS times, interleaved in random order: what disturbs
// the machine for a while disturbs all commands alike. Prints one JSON object:
//
//     {"rounds": 200, "commands": [{"name": "ours", "cpu_us": {"median": ..., "low": ..., "high":
//      ...}, "peak_kib": {...}, "cpu_ratio": ..., "peak_ratio": ...}, ...]}
//
// cpu_us is user and system time together, from the run queue's clock in nanoseconds, so that runs
// of a millisecond are measured well (the split between user and system is not precise on most
// kernels). It includes the exec, not the fork's own work. The speed of a machine changes by more
// than the programs differ, so the times of each round are scaled until their geometric mean is
// that of all rounds. low and high are the quartiles. Ratios are the command's median divided by
// the first command's.
//
// A program's peak starts with that of its process before the exec, and fork gives the child only
// what this program has written to. So this program must stay smaller than what it measures, which
// a script cannot.
//
// Exit status: 0; 1 if a command fails; 2 for a usage error. Standard output and error of the
// commands are discarded.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <random>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Command {
    const char *name;
    char **arguments; // ends with a null pointer
    std::vector<double> cpu_us;
    std::vector<double> peak_kib;
};

struct Spread {
    double low;
    double median;
    double high;
};

// Splits the arguments at each "--", which becomes the null pointer that ends a command.
std::vector<Command> read_commands(int argument_count, char **arguments)
{
    std::vector<Command> commands;
    bool starts_command = true;
    for (int i = 2; i < argument_count; ++i) {
        const bool separates = std::strcmp(arguments[i], "--") == 0;
        if (starts_command && !separates)
            commands.push_back({arguments[i], arguments + i + 1, {}, {}});
        starts_command = separates;
        if (separates)
            arguments[i] = nullptr;
    }
    return commands;
}

[[noreturn]] void run_child(char **arguments)
{
    const int nothing = open("/dev/null", O_RDWR);
    dup2(nothing, STDOUT_FILENO);
    dup2(nothing, STDERR_FILENO);
    close(nothing);
    execv(arguments[0], arguments);
    _exit(127);
}

double microseconds(const timeval &time)
{
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
}

// Runs a command and adds its figures. Returns 0, or -1 if it fails.
int measure(Command *command)
{
    const pid_t child = fork();
    if (child == 0)
        run_child(command->arguments);
    int status = 0;
    rusage usage = {};
    if (child < 0 || wait4(child, &status, 0, &usage) != child || status != 0) {
        std::fprintf(stderr, "%s failed: wait status %d\n", command->name, status);
        return -1;
    }
    command->cpu_us.push_back(microseconds(usage.ru_utime) + microseconds(usage.ru_stime));
    command->peak_kib.push_back(static_cast<double>(usage.ru_maxrss));
    return 0;
}

// The mean of the logarithms of a round's times.
double level_of_round(const std::vector<Command> &commands, std::size_t round)
{
    double sum = 0;
    for (const Command &command : commands)
        sum += std::log(std::max(command.cpu_us[round], 1.0));
    return sum / static_cast<double>(commands.size());
}

void level_rounds(std::vector<Command> *commands)
{
    std::vector<double> levels;
    for (std::size_t round = 0; round < (*commands)[0].cpu_us.size(); ++round)
        levels.push_back(level_of_round(*commands, round));
    const double mean =
        std::accumulate(levels.begin(), levels.end(), 0.0) / static_cast<double>(levels.size());
    for (Command &command : *commands) {
        for (std::size_t round = 0; round < levels.size(); ++round)
            command.cpu_us[round] *= std::exp(mean - levels[round]);
    }
}

Spread spread_of(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const std::size_t count = values.size();
    return {values[count / 4], values[count / 2], values[count * 3 / 4]};
}

void print_spread(const char *name, const Spread &spread)
{
    std::printf("\"%s\": {\"median\": %.0f, \"low\": %.0f, \"high\": %.0f}", name, spread.median,
                spread.low, spread.high);
}

void print_figures(const std::vector<Command> &commands, int rounds)
{
    const double first_cpu = spread_of(commands[0].cpu_us).median;
    const double first_peak = spread_of(commands[0].peak_kib).median;
    std::printf("{\"rounds\": %d, \"commands\": [", rounds);
    for (const Command &command : commands) {
        const Spread cpu = spread_of(command.cpu_us);
        const Spread peak = spread_of(command.peak_kib);
        std::printf("%s\n  {\"name\": \"%s\", ", &command == &commands[0] ? "" : ",", command.name);
        print_spread("cpu_us", cpu);
        std::printf(", ");
        print_spread("peak_kib", peak);
        std::printf(", \"cpu_ratio\": %.3f, \"peak_ratio\": %.3f}", cpu.median / first_cpu,
                    peak.median / first_peak);
    }
    std::printf("\n]}\n");
}

// A command that follows a large program finds less of what it needs in the processor's caches, so
// every round has an order of its own.
int run_rounds(std::vector<Command> *commands, int rounds)
{
    std::vector<Command *> order;
    for (Command &command : *commands)
        order.push_back(&command);
    std::minstd_rand random; // NOLINT(cert-msc32-c,cert-msc51-cpp): the same orders in each run
    for (int round = 0; round <= rounds; ++round) {
        std::shuffle(order.begin(), order.end(), random);
        for (Command *command : order) {
            if (measure(command) != 0)
                return -1;
            if (round == 0) { // to warm up
                command->cpu_us.clear();
                command->peak_kib.clear();
            }
        }
    }
    return 0;
}

} // namespace

int main(int argument_count, char **arguments)
{
    const int rounds = argument_count > 1 ? std::atoi(arguments[1]) : 0;
    std::vector<Command> commands = read_commands(argument_count, arguments);
    bool usable = rounds > 0 && !commands.empty();
    for (const Command &command : commands)
        usable = usable && command.arguments[0] != nullptr;
    if (!usable) {
        std::fprintf(stderr, "Usage: %s ROUNDS NAME COMMAND [ARGUMENT...] [-- NAME COMMAND ...]\n",
                     arguments[0]);
        return 2;
    }
    if (run_rounds(&commands, rounds) != 0)
        return 1;
    level_rounds(&commands);
    print_figures(commands, rounds);
}
