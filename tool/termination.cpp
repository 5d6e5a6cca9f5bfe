#include "tool/termination.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <string>

#include <unistd.h>

#include "support/c-utils.h"
#include "support/error.h"
#include "tool/answer.h"
#include "tool/progress-indicator.h"
#include "tool/record.h"
#include "tool/streams.h"
#include "web/transaction.h"

namespace quintral {

namespace {

constexpr unsigned grace = 1; // seconds

// What one way to terminate writes. The lines are those that format_message builds at level Error;
// they are literals because formatting at every start would cost more than the rest of the start.
// The object is null until it is composed, and never freed. It is short enough for one atomic write
// to a pipe: the service has at most 261 bytes, the proxy 255 and a port, each at most six bytes
// long in JSON.
struct Report {
    const char *text;
    const char *line;
    const char *object;
};

constexpr char cancelled_text[] = "User canceled web transaction";
constexpr char cancelled_line[] = "Error: User canceled web transaction\a\n";

// "The time limit of 86400 s has passed" is the longest message.
char time_limit_message[48];
char time_limit_line[64];

// For an exception before the command line has been read.
constexpr char early_object[] =
    "{\"status\":\"failed\",\"exit_status\":1,\"newer\":null,\"version\":null,\"url\":null,"
    "\"button\":null,\"message\":null,\"error\":\"Out of memory\",\"reason\":\"internal\","
    "\"http_status\":null,\"service\":null,\"proxy\":null}\n";

Report interrupt_report = {cancelled_text, cancelled_line, nullptr};
Report terminate_report = {cancelled_text, cancelled_line, nullptr};
Report hangup_report = {cancelled_text, cancelled_line, nullptr};
Report time_limit_report = {time_limit_message, time_limit_line, nullptr};
Report memory_report = {"Out of memory", "Error: Out of memory\a\n", early_object};
Report abort_report = {"Aborted by an internal fault", "Error: Aborted by an internal fault\a\n",
                       nullptr};
Report fault_report = {"Ended by an internal fault", "Error: Ended by an internal fault\a\n",
                       nullptr};

enum Phase : int { Starting, Exchange, AnswerHeld, Output, Finished };

// Global because signal handlers read and change them.
volatile std::sig_atomic_t phase = Starting;
volatile std::sig_atomic_t first_interrupt = 0; // the signal that cancelled or was deferred
volatile std::sig_atomic_t limit_has_passed = 0;
volatile std::sig_atomic_t line_is_due = 1;
volatile std::sig_atomic_t object_is_due = 0;
volatile std::sig_atomic_t final_status = 0;

sigset_t mask_before_block;

void compose_time_limit(int max_time)
{
    const std::string text = "The time limit of " + std::to_string(max_time) + " s has passed";
    copy_string_bounded(time_limit_message, text.c_str(), sizeof time_limit_message);
    copy_string_bounded(time_limit_line, ("Error: " + text + "\a\n").c_str(),
                        sizeof time_limit_line);
}

void compose_object(Report *report, const char *status, int exit_status, const char *reason,
                    const RunTarget &target)
{
    const RunOutcome outcome = {status, exit_status, nullptr, report->text, reason, 0};
    report->object = copy_string_with_room(outcome_json(outcome, target).c_str(), 0);
}

// Async-signal-safe, and allocates nothing. Never blocks.
void write_report(const Report &report, bool with_line)
{
    clear_progress();
    discard_record();
    if (with_line)
        write_if_possible(STDERR_FILENO, report.line, std::strlen(report.line));
    if (object_is_due != 0 && report.object != nullptr)
        write_if_possible(STDOUT_FILENO, report.object, std::strlen(report.object));
    object_is_due = 0;
}

const Report &report_of_signal(int signal_number)
{
    switch (signal_number) {
    case SIGINT:
        return interrupt_report;
    case SIGHUP:
        return hangup_report;
    default:
        return terminate_report;
    }
}

[[noreturn]] void report_and_end_by(int signal_number)
{
    write_report(report_of_signal(signal_number), line_is_due != 0);
    end_by_signal(signal_number);
}

[[noreturn]] void report_time_limit_and_exit()
{
    write_report(time_limit_report, line_is_due != 0);
    _exit(3);
}

void cancel_exchange()
{
    web_cancel_requested = 1;
    alarm(grace);
}

[[noreturn]] void end_as_stated()
{
    if (first_interrupt != 0)
        end_by_signal(first_interrupt);
    _exit(final_status);
}

void on_interrupt(int signal_number)
{
    if (phase == Finished)
        end_as_stated();
    if (first_interrupt != 0)
        report_and_end_by(signal_number);
    switch (phase) {
    case Exchange:
        first_interrupt = signal_number;
        cancel_exchange();
        break;
    case AnswerHeld:
        first_interrupt = signal_number;
        break;
    default:
        report_and_end_by(signal_number);
    }
}

// A SIGALRM that another process sends is ignored: it says nothing about the time. On Linux the
// codes of what processes send are not positive, on macOS they are.
bool is_own_alarm(const siginfo_t *info)
{
    return info->si_code >= 0 && info->si_code != SI_USER && info->si_code != SI_QUEUE;
}

void on_alarm(int, siginfo_t *info, void *)
{
    if (!is_own_alarm(info))
        return;
    switch (phase) {
    case Exchange:
        if (first_interrupt != 0)
            report_and_end_by(first_interrupt);
        if (limit_has_passed != 0)
            report_time_limit_and_exit();
        limit_has_passed = 1;
        cancel_exchange();
        break;
    case AnswerHeld:
        alarm(grace);
        break;
    case Finished:
        end_as_stated();
    default:
        if (first_interrupt != 0)
            report_and_end_by(first_interrupt);
        report_time_limit_and_exit();
    }
}

// True if there is no memory for an exception either, so that none is current.
bool is_memory_exhausted()
{
    void *volatile block = std::malloc(256); // or the compiler may leave the allocation out
    std::free(block);
    return block == nullptr;
}

// Rethrows the exception, since nothing else can identify it. This is the only place that catches.
const Report &report_of_exception()
{
    if (std::current_exception() == nullptr)
        return is_memory_exhausted() ? memory_report : fault_report;
    try {
        throw;
    } catch (const std::bad_alloc &) {
        return memory_report;
    } catch (const QuintralAbortException &) {
        return abort_report;
    } catch (...) {
        return fault_report;
    }
}

[[noreturn]] void on_terminate()
{
    write_report(report_of_exception(), true);
    _exit(1);
}

sigset_t terminating_signals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal_number : {SIGINT, SIGTERM, SIGHUP, SIGALRM})
        sigaddset(&signals, signal_number);
    return signals;
}

// Interrupted calls are restarted, so that no piece of the request is lost; the waits of the
// exchange return anyway.
struct sigaction handling_action(int flags)
{
    struct sigaction action = {};
    action.sa_flags = SA_RESTART | flags;
    action.sa_mask = terminating_signals();
    return action;
}

void handle_alarm()
{
    struct sigaction action = handling_action(SA_SIGINFO);
    action.sa_sigaction = on_alarm;
    sigaction(SIGALRM, &action, nullptr);
}

void handle_unless_ignored(int signal_number)
{
    struct sigaction action = {};
    sigaction(signal_number, nullptr, &action);
    if (action.sa_handler == SIG_IGN)
        return;
    action = handling_action(0);
    action.sa_handler = on_interrupt;
    sigaction(signal_number, &action, nullptr);
}

void unblock(int signal_number)
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, signal_number);
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

} // namespace

void install_terminate_handler()
{
    std::set_terminate(on_terminate);
}

void expect_object(int argument_count, char **arguments)
{
    for (int i = 1; i < argument_count; ++i) {
        if (std::strcmp(arguments[i], "-json") == 0 || std::strcmp(arguments[i], "--json") == 0)
            object_is_due = 1;
    }
}

void prepare_termination(bool json, const RunTarget &target, int max_time)
{
    compose_time_limit(max_time);
    if (!json) {
        object_is_due = 0;
        return;
    }
    compose_object(&interrupt_report, "cancelled", 128 + SIGINT, "cancelled", target);
    compose_object(&terminate_report, "cancelled", 128 + SIGTERM, "cancelled", target);
    compose_object(&hangup_report, "cancelled", 128 + SIGHUP, "cancelled", target);
    compose_object(&time_limit_report, "timeout", 3, "timeout", target);
    compose_object(&memory_report, "failed", 1, "internal", target);
    compose_object(&abort_report, "failed", 1, "internal", target);
    compose_object(&fault_report, "failed", 1, "internal", target);
    object_is_due = 1;
}

void begin_exchange(int max_time)
{
    phase = Exchange;
    handle_alarm();
    unblock(SIGALRM);
    alarm(static_cast<unsigned>(max_time));
    handle_unless_ignored(SIGINT);
    handle_unless_ignored(SIGTERM);
    handle_unless_ignored(SIGHUP);
}

void end_exchange()
{
    phase = Output;
}

void show_termination_line()
{
    const Report &report =
        first_interrupt != 0 ? report_of_signal(first_interrupt) : time_limit_report;
    wait_for_reader(STDERR_FILENO);
    block_termination();
    write_if_possible(STDERR_FILENO, report.line, std::strlen(report.line));
    line_is_due = 0;
    unblock_termination();
}

void hold_answer()
{
    phase = AnswerHeld;
}

void release_answer()
{
    const unsigned left = alarm(0);
    alarm(first_interrupt != 0 || left < grace ? grace : left);
    phase = Output;
}

void begin_output()
{
    object_is_due = 0;
}

void set_final_status(int exit_status)
{
    final_status = exit_status;
    phase = Finished;
}

void block_termination()
{
    const sigset_t signals = terminating_signals();
    pthread_sigmask(SIG_BLOCK, &signals, &mask_before_block);
}

void unblock_termination()
{
    pthread_sigmask(SIG_SETMASK, &mask_before_block, nullptr);
}

int interrupt_received()
{
    return first_interrupt;
}

bool time_limit_passed()
{
    return limit_has_passed != 0;
}

const char *time_limit_text()
{
    return time_limit_report.text;
}

void end_by_signal(int signal_number)
{
    set_signal_action(signal_number, SIG_DFL);
    unblock(signal_number);
    std::raise(signal_number);
    _exit(128 + signal_number);
}

} // namespace quintral
