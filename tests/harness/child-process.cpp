#include "tests/harness/child-process.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

extern char **environ; // NOLINT(readability-redundant-declaration): glibc alone declares it

namespace quintral::tests {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int exec_limit_milliseconds = 10000;

// The ends of one of the child's streams; -1 for none.
struct StreamEnds {
    int parent = -1;  // receives what the child writes
    int child = -1;   // becomes the child's descriptor 1 or 2
    int stalled = -1; // the reading end of a full pipe, which the harness never reads
};

void close_descriptor(int *descriptor)
{
    if (*descriptor >= 0)
        close(*descriptor);
    *descriptor = -1;
}

// Moves a descriptor above the standard streams, so that placing one stream never overwrites the
// other (a test may run with its own descriptors 0 to 2 closed), and makes it close-on-exec.
int move_descriptor(int descriptor)
{
    if (descriptor < 0)
        return -1;
    const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, 3);
    close(descriptor);
    return moved;
}

bool open_pipe(int ends[2])
{
    if (pipe(ends) != 0)
        return false;
    ends[0] = move_descriptor(ends[0]);
    ends[1] = move_descriptor(ends[1]);
    return ends[0] >= 0 && ends[1] >= 0;
}

void fill_pipe(int writing_end)
{
    static const char block[4096] = {};
    const int flags = fcntl(writing_end, F_GETFL);
    fcntl(writing_end, F_SETFL, flags | O_NONBLOCK);
    while (write(writing_end, block, sizeof block) > 0) {
    }
    while (write(writing_end, block, 1) > 0) {
    }
    fcntl(writing_end, F_SETFL, flags);
}

// Both ends stay -1 on failure.
bool open_plain_terminal(StreamEnds *ends)
{
    ends->parent = move_descriptor(posix_openpt(O_RDWR | O_NOCTTY));
    if (ends->parent < 0 || grantpt(ends->parent) != 0 || unlockpt(ends->parent) != 0)
        return false;
    ends->child = move_descriptor(open(ptsname(ends->parent), O_RDWR | O_NOCTTY));
    return ends->child >= 0;
}

// A terminal that passes bytes as they are written.
bool open_terminal(StreamEnds *ends)
{
    termios settings;
    if (!open_plain_terminal(ends) || tcgetattr(ends->child, &settings) != 0)
        return false;
    cfmakeraw(&settings);
    return tcsetattr(ends->child, TCSANOW, &settings) == 0;
}

bool open_stream_pipe(ChildStream stream, StreamEnds *ends)
{
    int both[2] = {-1, -1};
    const bool opened = open_pipe(both);
    ends->child = both[1];
    if (stream == ChildStream::BrokenPipe)
        close_descriptor(&both[0]);
    if (stream == ChildStream::StalledPipe && opened)
        fill_pipe(both[1]);
    (stream == ChildStream::StalledPipe ? ends->stalled : ends->parent) = both[0];
    return opened;
}

bool open_stream(ChildStream stream, StreamEnds *ends)
{
    switch (stream) {
    case ChildStream::Closed:
        return true;
    case ChildStream::FullDisk:
        ends->child = move_descriptor(open("/dev/full", O_WRONLY));
        return ends->child >= 0;
    case ChildStream::Terminal:
        return open_terminal(ends);
    case ChildStream::Pipe:
    case ChildStream::BrokenPipe:
    case ChildStream::StalledPipe:
        break;
    }
    return open_stream_pipe(stream, ends);
}

// Writes the text into a pipe before the child starts, and closes the writing end.
bool open_text(const std::string &text, StreamEnds *ends)
{
    int both[2] = {-1, -1};
    const bool opened = open_pipe(both);
    ends->child = both[0];
    bool written = opened && fcntl(both[1], F_SETFL, O_NONBLOCK) == 0;
    written =
        written && write(both[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close_descriptor(&both[1]);
    return written;
}

bool open_input(const ChildOptions &options, StreamEnds *ends)
{
    switch (options.input) {
    case ChildInput::Text:
        return open_text(options.input_text, ends);
    case ChildInput::Terminal:
        return open_plain_terminal(ends);
    case ChildInput::NullDevice:
        break;
    }
    ends->child = move_descriptor(open("/dev/null", O_RDONLY));
    return ends->child >= 0;
}

void close_ends(StreamEnds *ends)
{
    close_descriptor(&ends->parent);
    close_descriptor(&ends->child);
    close_descriptor(&ends->stalled);
}

// From here to run_function: code that runs in the child before exec. Async-signal-safe calls only.

void place_stream(StreamEnds *ends, int target)
{
    if (ends->child >= 0)
        dup2(ends->child, target); // the copy is not close-on-exec
    else
        close(target);
    close_ends(ends);
}

void set_signals(const ChildOptions &options)
{
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number)
        sigaction(number, &action, nullptr); // fails for SIGKILL and SIGSTOP, which is fine
    action.sa_handler = SIG_IGN;
    for (int number : options.ignored_signals)
        sigaction(number, &action, nullptr);
    sigset_t blocked;
    sigemptyset(&blocked);
    for (int number : options.blocked_signals)
        sigaddset(&blocked, number);
    sigprocmask(SIG_SETMASK, &blocked, nullptr);
}

void prepare_child(StreamEnds *input, StreamEnds *output, StreamEnds *error,
                   const ChildOptions &options)
{
    place_stream(input, 0);
    if (options.input == ChildInput::Terminal) {
        setsid();
        ioctl(0, TIOCSCTTY, 0);
    }
    place_stream(output, 1);
    place_stream(error, 2);
    set_signals(options);
    if (options.prepare)
        options.prepare();
}

// noexcept, because an exception must end the child and not reach its copy of the test.
[[noreturn]] void run_function(const std::function<int()> &body,
                               const ChildOptions &options) noexcept
{
    for (const auto &[name, value] : options.environment)
        setenv(name.c_str(), value.c_str(), 1);
    const int status = body();
    std::fflush(stdout);
    std::fflush(stderr);
    _exit(status);
}

// Strings for exec, allocated before the fork because the child must not allocate.
struct ExecTexts {
    std::vector<std::string> settings;
    std::vector<char *> environment;
    std::vector<char *> arguments;
};

void collect_environment(const ChildOptions &options, std::vector<std::string> *settings)
{
    for (char **setting = environ; *setting != nullptr; ++setting) {
        const std::string text = *setting;
        const std::string name = text.substr(0, text.find('='));
        const auto replaces = [&](const auto &added) { return added.first == name; };
        if (std::none_of(options.environment.begin(), options.environment.end(), replaces))
            settings->push_back(text);
    }
    for (const auto &[name, value] : options.environment)
        settings->push_back(name + "=" + value);
}

void fill_exec_texts(ExecTexts *texts, const std::vector<std::string> &arguments,
                     const ChildOptions &options)
{
    collect_environment(options, &texts->settings);
    for (std::string &setting : texts->settings)
        texts->environment.push_back(setting.data());
    texts->environment.push_back(nullptr);
    for (const std::string &argument : arguments)
        texts->arguments.push_back(const_cast<char *>(argument.c_str()));
    texts->arguments.push_back(nullptr);
}

[[noreturn]] void run_program(ExecTexts &texts, int failure_pipe)
{
    environ = texts.environment.data();
    execvp(texts.arguments[0], texts.arguments.data());
    const int error = errno;
    // If this write fails, the status is all that the child can report.
    if (write(failure_pipe, &error, sizeof error) != sizeof error)
        _exit(126);
    _exit(127);
}

// Returns the errno of a failed exec, or 0: a successful exec closes the pipe without a byte.
int exec_error(int failure_pipe)
{
    pollfd polled = {failure_pipe, POLLIN, 0};
    int error = 0;
    if (poll(&polled, 1, exec_limit_milliseconds) != 1)
        return ETIMEDOUT;
    return read(failure_pipe, &error, sizeof error) == sizeof error ? error : 0;
}

// Waits in short sleeps, so as to notice soon that the child has ended. False if it has not ended
// in time.
bool wait_until_ended(pid_t process_id, Clock::time_point deadline, int *status)
{
    for (;;) {
        const pid_t ended = waitpid(process_id, status, WNOHANG);
        if (ended == process_id)
            return true;
        if (Clock::now() >= deadline)
            return false;
        poll(nullptr, 0, 2);
    }
}

void kill_and_wait(pid_t process_id, int *status)
{
    kill(process_id, SIGKILL);
    while (waitpid(process_id, status, 0) < 0 && errno == EINTR) {
    }
}

void keep_parent_ends(Child *child, StreamEnds *input, StreamEnds *output, StreamEnds *error)
{
    close_descriptor(&input->child);
    child->input_descriptor = input->parent;
    close_descriptor(&output->child);
    close_descriptor(&error->child);
    child->output_descriptor = output->parent;
    child->error_descriptor = error->parent;
    child->stalled_descriptors[0] = output->stalled;
    child->stalled_descriptors[1] = error->stalled;
}

void release_descriptors(Child *child)
{
    close_descriptor(&child->input_descriptor);
    close_descriptor(&child->output_descriptor);
    close_descriptor(&child->error_descriptor);
    close_descriptor(&child->stalled_descriptors[0]);
    close_descriptor(&child->stalled_descriptors[1]);
}

// Opens the streams and forks; in_child runs in the child and does not return.
template <typename Function>
Child start_child(const ChildOptions &options, const Function &in_child)
{
    Child child;
    StreamEnds input;
    StreamEnds output;
    StreamEnds error;
    child.limit_seconds = options.limit_seconds;
    child.deadline = Clock::now() + std::chrono::seconds(options.limit_seconds);
    const bool opened = open_input(options, &input) && open_stream(options.output, &output) &&
                        open_stream(options.error, &error);
    std::fflush(stdout); // or the child would print the buffered output again
    std::fflush(stderr);
    if (opened)
        child.process_id = fork();
    if (child.process_id == 0) {
        prepare_child(&input, &output, &error, options);
        in_child();
    }
    if (child.process_id < 0)
        ADD_FAILURE() << "can't start a child: " << std::strerror(errno);
    keep_parent_ends(&child, &input, &output, &error);
    if (child.process_id < 0)
        release_descriptors(&child);
    return child;
}

// Appends what has arrived. Closes the descriptor at the end of its data, which for a terminal is
// the error EIO.
void collect_from(int *descriptor, std::string *text)
{
    char chunk[16384];
    const ssize_t count = read(*descriptor, chunk, sizeof chunk);
    if (count > 0)
        text->append(chunk, static_cast<std::size_t>(count));
    else if (count == 0 || (errno != EINTR && errno != EAGAIN))
        close_descriptor(descriptor);
}

// Waits once for both streams. False if both have ended or the deadline has passed.
bool collect_some(Child *child, Clock::time_point deadline)
{
    if (child->output_descriptor < 0 && child->error_descriptor < 0)
        return false;
    pollfd polled[2] = {{child->output_descriptor, POLLIN, 0},
                        {child->error_descriptor, POLLIN, 0}};
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    const int count = poll(polled, 2, static_cast<int>(std::max<long long>(0, left.count())));
    if (count > 0 && polled[0].revents != 0)
        collect_from(&child->output_descriptor, &child->output);
    if (count > 0 && polled[1].revents != 0)
        collect_from(&child->error_descriptor, &child->error);
    return Clock::now() < deadline;
}

bool holds_text(const Child &child, const std::string &text)
{
    return child.output.find(text) != std::string::npos ||
           child.error.find(text) != std::string::npos;
}

void end_late_child(Child *child, ChildResult *result, int *status)
{
    result->timed_out = true;
    kill_and_wait(child->process_id, status);
    const auto deadline = Clock::now() + std::chrono::seconds(1);
    while (collect_some(child, deadline)) {
    }
    ADD_FAILURE() << "the child ran longer than " << child->limit_seconds
                  << " s\nstandard output so far: " << child->output
                  << "\nstandard error so far: " << child->error;
}

} // namespace

Child child_start(const std::vector<std::string> &arguments, const ChildOptions &options)
{
    ExecTexts texts;
    fill_exec_texts(&texts, arguments, options);
    int failure_pipe[2] = {-1, -1};
    if (!open_pipe(failure_pipe)) {
        ADD_FAILURE() << "can't make a pipe: " << std::strerror(errno);
        return {};
    }
    Child child = start_child(options, [&] { run_program(texts, failure_pipe[1]); });
    close_descriptor(&failure_pipe[1]);
    const int error = child.process_id < 0 ? 0 : exec_error(failure_pipe[0]);
    close_descriptor(&failure_pipe[0]);
    if (error == 0)
        return child;
    ADD_FAILURE() << "can't run " << arguments[0] << ": " << std::strerror(error);
    int status = 0;
    kill_and_wait(child.process_id, &status);
    release_descriptors(&child);
    child.process_id = -1;
    return child;
}

Child child_start_function(const std::function<int()> &body, const ChildOptions &options)
{
    return start_child(options, [&] { run_function(body, options); });
}

bool child_wait_for_text(Child &child, const std::string &text, int limit_milliseconds)
{
    const auto deadline = Clock::now() + std::chrono::milliseconds(limit_milliseconds);
    while (!holds_text(child, text) && collect_some(&child, deadline)) {
    }
    return holds_text(child, text);
}

void child_signal(Child &child, int signal_number)
{
    if (child.process_id > 0)
        kill(child.process_id, signal_number);
}

ChildResult child_wait(Child &child)
{
    ChildResult result;
    int status = 0;
    if (child.process_id > 0) {
        while (collect_some(&child, child.deadline)) {
        }
        if (!wait_until_ended(child.process_id, child.deadline, &status))
            end_late_child(&child, &result, &status);
        result.exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }
    release_descriptors(&child);
    child.process_id = -1;
    result.output = std::move(child.output);
    result.error = std::move(child.error);
    return result;
}

ChildResult run_child(const std::vector<std::string> &arguments, const ChildOptions &options)
{
    Child child = child_start(arguments, options);
    return child_wait(child);
}

ChildResult run_child_function(const std::function<int()> &body, const ChildOptions &options)
{
    Child child = child_start_function(body, options);
    return child_wait(child);
}

} // namespace quintral::tests
