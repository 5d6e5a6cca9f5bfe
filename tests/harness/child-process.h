// Child processes for the tests: arguments in, the bytes of both streams and the status out. Every
// wait is bounded. A child that exceeds its limit is killed by its process id and fails the test.
#ifndef QUINTRAL_TESTS_HARNESS_CHILD_PROCESS_H
#define QUINTRAL_TESTS_HARNESS_CHILD_PROCESS_H

#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

namespace quintral::tests {

enum class ChildStream {
    Pipe,       // recorded
    Terminal,   // a pseudo-terminal, recorded (as raw bytes: no output processing)
    Closed,     // the descriptor is closed in the child
    FullDisk,   // /dev/full
    BrokenPipe, // a pipe whose reading end is closed before the child starts
    StalledPipe // a full pipe that the harness never reads
};

// What the child reads from its standard input.
enum class ChildInput {
    NullDevice, // /dev/null
    Text,       // a pipe that holds input_text, then ends
    Terminal // a pseudo-terminal with echo and signals, the child's controlling terminal; its other
             // end is Child::input_descriptor
};

struct ChildOptions {
    ChildStream output = ChildStream::Pipe;
    ChildStream error = ChildStream::Pipe;
    std::vector<std::pair<std::string, std::string>> environment = {}; // added to that of the test
    std::vector<int> ignored_signals = {};                             // SIG_IGN in the child
    std::vector<int> blocked_signals = {};                             // blocked in the child
    int limit_seconds = 30;
    ChildInput input = ChildInput::NullDevice;
    std::string input_text = {}; // at most 64 KiB, as much as a pipe holds
    // Runs in the child between fork and exec, to set limits and the like: async-signal-safe calls
    // only.
    std::function<void()> prepare = nullptr;
};

struct ChildResult {
    int exit_status = -1; // the argument of exit, or -1
    int signal = 0;       // the signal that killed the child, or 0
    bool timed_out = false;
    std::string output; // bytes of standard output
    std::string error;  // bytes of standard error
};

// A running child. child_wait releases it.
struct Child {
    pid_t process_id = -1;
    int output_descriptor = -1;
    int error_descriptor = -1;
    int input_descriptor = -1; // only with ChildInput::Terminal
    std::string output;
    std::string error;
    int limit_seconds = 30; // from the start of the child
    std::chrono::steady_clock::time_point deadline = {};
    int stalled_descriptors[2] = {-1, -1}; // reading ends that keep stalled pipes from breaking
};

// Starts the program arguments[0], which is searched for in PATH if it contains no slash. Standard
// input is that of the options. Every signal has its default action and is unblocked, except those
// that the options name. A failure to start fails the test, and process_id is then -1.
Child child_start(const std::vector<std::string> &arguments, const ChildOptions &options = {});

// Forks and runs `body` in the child instead of a program. When body returns, the child flushes
// standard output and standard error and calls _exit with the result. An exception that leaves body
// ends the child by std::terminate.
Child child_start_function(const std::function<int()> &body, const ChildOptions &options = {});

// Collects output until the child's standard output or standard error contains the text, for at
// most `limit_milliseconds`. Returns whether it does.
bool child_wait_for_text(Child &child, const std::string &text, int limit_milliseconds);

// Sends a signal to the child by its process id.
void child_signal(Child &child, int signal_number);

// Collects both streams to their ends, waits for the child and releases its descriptors.
ChildResult child_wait(Child &child);

// child_start or child_start_function, then child_wait.
ChildResult run_child(const std::vector<std::string> &arguments, const ChildOptions &options = {});
ChildResult run_child_function(const std::function<int()> &body, const ChildOptions &options = {});

} // namespace quintral::tests

#endif
