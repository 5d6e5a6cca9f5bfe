#include "tool/endings.h"

#include <csignal>
#include <cstring>
#include <exception>
#include <new>
#include <string>

#include <unistd.h>

#include "support/c-utils.h"
#include "support/error.h"
#include "tool/answer.h"
#include "tool/sign-of-life.h"
#include "tool/streams.h"
#include "web/transaction.h"

namespace quintral {

namespace {

constexpr unsigned grace = 1; // seconds for the exchange to see the cancel flag

// What one ending writes. An object stays within a pipe's atomic write.
struct Ending {
    char text[128];
    char line[192];
    char object[512];
};

Ending interrupted_ending;
Ending terminated_ending;
Ending time_limit_ending;
Ending memory_ending;
Ending abort_ending;
Ending fault_ending;

volatile std::sig_atomic_t object_is_due = 0;
volatile std::sig_atomic_t exchange_is_running = 0;
volatile std::sig_atomic_t first_interrupt = 0;
volatile std::sig_atomic_t limit_has_passed = 0;
volatile std::sig_atomic_t endings_are_held = 0;
volatile std::sig_atomic_t interrupt_was_held = 0;

void compose_line(Ending *ending, const char *text)
{
    copy_string_bounded(ending->text, text, sizeof ending->text);
    const int length = format_message(Error, text, ending->line, sizeof ending->line - 1);
    ending->line[length] = '\n';
    ending->line[length + 1] = '\0';
}

void compose_object(Ending *ending, const char *status, int exit_status)
{
    const RunOutcome outcome = {status, exit_status, Newer::Unknown, nullptr, ending->text};
    copy_string_bounded(ending->object, outcome_json(outcome).c_str(), sizeof ending->object);
}

// True when the exchange came back with an interrupt or the time limit, which the run itself tells
// of: what ends it now is that its output hangs. Of an interrupt that was held it tells nothing.
bool run_has_told()
{
    return exchange_is_running == 0 && interrupt_was_held == 0 &&
           (first_interrupt != 0 || limit_has_passed != 0);
}

// Async-signal-safe, and allocates nothing. Waits for nobody: an ending that hangs is none.
void write_ending(const Ending &ending, bool with_line)
{
    clear_sign_of_life();
    if (with_line)
        write_if_possible(STDERR_FILENO, ending.line, std::strlen(ending.line));
    if (object_is_due != 0) {
        object_is_due = 0;
        write_if_possible(STDOUT_FILENO, ending.object, std::strlen(ending.object));
    }
}

const Ending &ending_of(int signal_number)
{
    return signal_number == SIGINT ? interrupted_ending : terminated_ending;
}

[[noreturn]] void end_now_by_signal(int signal_number)
{
    write_ending(ending_of(signal_number), !run_has_told());
    end_by_signal(signal_number);
}

void on_interrupt(int signal_number)
{
    if (endings_are_held != 0 && first_interrupt == 0) {
        first_interrupt = signal_number;
        interrupt_was_held = 1;
        alarm(grace);
        return;
    }
    if (exchange_is_running == 0 || first_interrupt != 0)
        end_now_by_signal(signal_number);
    first_interrupt = signal_number;
    web_cancel_requested = 1;
    alarm(grace);
}

void on_alarm(int)
{
    if (endings_are_held != 0) {
        alarm(grace);
        return;
    }
    if (first_interrupt != 0)
        end_now_by_signal(first_interrupt);
    if (exchange_is_running == 0 || limit_has_passed != 0) {
        write_ending(time_limit_ending, !run_has_told());
        _exit(3);
    }
    limit_has_passed = 1;
    web_cancel_requested = 1;
    alarm(grace);
}

// Calls that a signal breaks off are restarted, so that no piece of the request is lost; the waits
// of the exchange come back all the same.
void handle_signal(int signal_number, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaddset(&action.sa_mask, SIGINT);
    sigaddset(&action.sa_mask, SIGTERM);
    sigaddset(&action.sa_mask, SIGALRM);
    sigaction(signal_number, &action, nullptr);
}

void handle_unless_ignored(int signal_number)
{
    struct sigaction action = {};
    sigaction(signal_number, nullptr, &action);
    if (action.sa_handler != SIG_IGN)
        handle_signal(signal_number, on_interrupt);
}

void unblock(int signal_number)
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, signal_number);
    sigprocmask(SIG_UNBLOCK, &signals, nullptr);
}

// Tells what the exception is, which only rethrowing it can. This is the one place that catches.
const Ending &ending_of_exception()
{
    if (std::current_exception() == nullptr)
        return fault_ending;
    try {
        throw;
    } catch (const std::bad_alloc &) {
        return memory_ending;
    } catch (const QuintralAbortException &) {
        return abort_ending;
    } catch (...) {
        return fault_ending;
    }
}

[[noreturn]] void on_terminate()
{
    write_ending(ending_of_exception(), true);
    _exit(1);
}

} // namespace

void install_terminate_handler()
{
    compose_line(&memory_ending, "Out of memory");
    compose_line(&abort_ending, "Aborted by an internal fault");
    compose_line(&fault_ending, "Ended by an internal fault");
    std::set_terminate(on_terminate);
}

void prepare_endings(bool json, int max_time)
{
    const std::string limit = "The time limit of " + std::to_string(max_time) + " s has passed";
    compose_line(&interrupted_ending, "User canceled web transaction");
    compose_line(&terminated_ending, "User canceled web transaction");
    compose_line(&time_limit_ending, limit.c_str());
    if (!json)
        return;
    compose_object(&interrupted_ending, "cancelled", 128 + SIGINT);
    compose_object(&terminated_ending, "cancelled", 128 + SIGTERM);
    compose_object(&time_limit_ending, "timeout", 3);
    compose_object(&memory_ending, "failed", 1);
    compose_object(&abort_ending, "failed", 1);
    compose_object(&fault_ending, "failed", 1);
    object_is_due = 1;
}

void watch_for_endings(int max_time)
{
    exchange_is_running = 1;
    handle_signal(SIGALRM, on_alarm);
    unblock(SIGALRM);
    alarm(static_cast<unsigned>(max_time));
    handle_unless_ignored(SIGINT);
    handle_unless_ignored(SIGTERM);
}

void stop_watching()
{
    exchange_is_running = 0;
}

void hold_endings()
{
    endings_are_held = 1;
}

void release_endings()
{
    endings_are_held = 0;
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
    return time_limit_ending.text;
}

void begin_output()
{
    object_is_due = 0;
}

void end_by_signal(int signal_number)
{
    std::signal(signal_number, SIG_DFL);
    unblock(signal_number);
    std::raise(signal_number);
    _exit(128 + signal_number);
}

} // namespace quintral
