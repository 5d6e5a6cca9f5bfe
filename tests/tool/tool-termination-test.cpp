// How the utility terminates when it does not reach the end of main: tool/termination.h.
#include "support/error.h"
#include "tool/streams.h"
#include "tool/termination.h"
#include "web/transaction.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <exception>
#include <iterator>
#include <new>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/harness/allocation.h"
#include "tests/tool/hanging-server.h"
#include "tests/tool/interrupts.h"
#include "tests/tool/json-line.h"
#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {
namespace {

// The table of phases and events in the header. A child process calls the functions as main does.
// Each cell is a test of its own name, since some take seconds.

enum class Phase { Starting, Exchange, AnswerHeld, Output, Finished };
enum class Event { FirstInterrupt, SecondInterrupt, TimeLimit, Exception };

const char *const phase_names[] = {"Starting", "Exchange", "AnswerHeld", "Output", "Finished"};
const char *const event_names[] = {"FirstInterrupt", "SecondInterrupt", "TimeLimit", "Exception"};

// How a process ends and what it reports. A status above 128 means a signal, as in a shell.
struct Report {
    const char *status;
    int exit_status;
    const char *text;
    const char *reason;
};

constexpr Report interrupted = {"cancelled", 128 + SIGINT, cancelled_text, "cancelled"};
constexpr Report terminated = {"cancelled", 128 + SIGTERM, cancelled_text, "cancelled"};
constexpr Report hung_up = {"cancelled", 128 + SIGHUP, cancelled_text, "cancelled"};
constexpr Report limit_passed = {"timeout", 3, "The time limit of 1 s has passed", "timeout"};
constexpr Report out_of_memory = {"failed", 1, "Out of memory", "internal"};
constexpr Report none = {"", 0, "", ""};

constexpr int stated = 10; // the status that the output states in Finished
constexpr Report as_stated = {"answered", stated, "", ""};

const RunTarget target = {"update.quintral.example", "cache:3128", "-proxy"};

std::string object_of(const std::string &status, int exit_status, const std::string &error,
                      const std::string &reason)
{
    return unanswered_json(status, exit_status, error,
                           {reason, 0, "update.quintral.example", "cache:3128"});
}

enum Written { Nothing, Line, Object, LineAndObject };

// If an event does not end the process, main either hangs after it or continues to its end. The
// report is what ends a process that hangs.
struct Cell {
    Phase phase;
    Event event;
    Report report;
    Written written;
    int milliseconds = 0;   // minimum time until the report
    const char *state = ""; // after the event; empty if the event ends the process
};

const Cell cells[] = {
    {Phase::Starting, Event::FirstInterrupt, interrupted, Nothing},
    {Phase::Starting, Event::SecondInterrupt, interrupted, Nothing},
    {Phase::Starting, Event::TimeLimit, none, Nothing, 0, "unchanged"},
    {Phase::Starting, Event::Exception, out_of_memory, LineAndObject},
    {Phase::Exchange, Event::FirstInterrupt, interrupted, LineAndObject, 1000, "cancel, signal 2"},
    {Phase::Exchange, Event::SecondInterrupt, terminated, LineAndObject},
    {Phase::Exchange, Event::TimeLimit, limit_passed, LineAndObject, 2000, "cancel, limit"},
    {Phase::Exchange, Event::Exception, out_of_memory, LineAndObject},
    {Phase::AnswerHeld, Event::FirstInterrupt, interrupted, LineAndObject, 2500, "signal 2"},
    {Phase::AnswerHeld, Event::SecondInterrupt, terminated, LineAndObject},
    {Phase::AnswerHeld, Event::TimeLimit, limit_passed, LineAndObject, 2500, "unchanged"},
    {Phase::AnswerHeld, Event::Exception, out_of_memory, LineAndObject},
    {Phase::Output, Event::FirstInterrupt, interrupted, LineAndObject},
    {Phase::Output, Event::SecondInterrupt, terminated, LineAndObject},
    {Phase::Output, Event::TimeLimit, limit_passed, LineAndObject, 1000},
    {Phase::Output, Event::Exception, out_of_memory, LineAndObject},
    {Phase::Finished, Event::FirstInterrupt, as_stated, Nothing},
    {Phase::Finished, Event::SecondInterrupt, interrupted, Nothing}, // states the first one
    {Phase::Finished, Event::TimeLimit, as_stated, Nothing, 1000},
    {Phase::Finished, Event::Exception, out_of_memory, Line},
};

bool continues(const Cell &cell)
{
    return *cell.state != '\0';
}

bool ends_early(const Cell &cell)
{
    return *cell.report.status != '\0';
}

std::vector<Cell> cells_if(bool (*condition)(const Cell &))
{
    std::vector<Cell> chosen;
    std::copy_if(std::begin(cells), std::end(cells), std::back_inserter(chosen), condition);
    return chosen;
}

std::string name_of(const Cell &cell)
{
    return std::string(phase_names[static_cast<int>(cell.phase)]) +
           event_names[static_cast<int>(cell.event)];
}

// A failure, and the list of tests, show the cell by its name.
void PrintTo(const Cell &cell, std::ostream *stream)
{
    *stream << name_of(cell);
}

std::string label(const testing::TestParamInfo<Cell> &cell)
{
    return name_of(cell.param);
}

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds hold_time(1500); // longer than the time limit

// Functions that run in the child, up to run_cell.

// Signals do not end the wait, but cancelling the exchange does if `or_cancelled` is set.
void wait_until(Clock::time_point time, bool or_cancelled)
{
    while (Clock::now() < time && !(or_cancelled && web_cancel_requested != 0))
        poll(nullptr, 0, 10);
}

void hang()
{
    wait_until(Clock::now() + std::chrono::seconds(10), false);
}

void start(int max_time)
{
    install_terminate_handler();
    prepare_termination(true, target, max_time);
}

// The output of a run whose URL was opened: the object states the interrupt that was deferred.
void finish_output(const Cell &cell)
{
    hold_answer();
    if (cell.event == Event::SecondInterrupt)
        std::raise(SIGINT);
    release_answer();
    begin_output();
    set_final_status(interrupt_received() != 0 ? 128 + interrupt_received() : stated);
}

// The first of two interrupts in Output or Finished is raised before, since it would end the
// process there.
void enter_phase(const Cell &cell)
{
    const int max_time = cell.event == Event::TimeLimit ? 1 : 60;
    start(max_time);
    if (cell.phase == Phase::Starting)
        return;
    begin_exchange(max_time);
    if (cell.phase == Phase::Exchange)
        return;
    if (cell.phase == Phase::Output && cell.event == Event::SecondInterrupt)
        std::raise(SIGINT);
    end_exchange();
    if (cell.phase == Phase::AnswerHeld)
        hold_answer();
    if (cell.phase == Phase::Finished)
        finish_output(cell);
}

void cause_event(const Cell &cell)
{
    switch (cell.event) {
    case Event::FirstInterrupt:
        std::raise(SIGINT);
        break;
    case Event::SecondInterrupt:
        if (cell.phase != Phase::Output && cell.phase != Phase::Finished)
            std::raise(SIGINT);
        std::raise(SIGTERM);
        break;
    case Event::TimeLimit:
        wait_until(Clock::now() + hold_time, true);
        break;
    case Event::Exception:
        throw std::bad_alloc();
    }
}

std::string state()
{
    std::string text = web_cancel_requested != 0 ? ", cancel" : "";
    if (interrupt_received() != 0)
        text += ", signal " + std::to_string(interrupt_received());
    if (time_limit_passed())
        text += ", limit";
    return text.empty() ? "unchanged" : text.substr(2);
}

// Writes the state to both streams, so that their bytes show whether a report came before it.
void write_state()
{
    const std::string text = state();
    write_all(STDOUT_FILENO, text.data(), text.size());
    write_all(STDERR_FILENO, text.data(), text.size());
}

int run_cell(const Cell &cell, bool hangs)
{
    const Clock::time_point start_time = Clock::now();
    enter_phase(cell);
    cause_event(cell);
    if (cell.phase == Phase::AnswerHeld)
        wait_until(start_time + hold_time, false);
    write_state();
    if (cell.phase == Phase::AnswerHeld)
        release_answer();
    if (hangs)
        hang();
    if (cell.phase == Phase::Exchange)
        end_exchange();
    begin_output();
    if (interrupt_received() != 0)
        end_by_signal(interrupt_received());
    return 0;
}

void expect_report(const ChildResult &result, const Report &report, Written written,
                   const std::string &state_before = "")
{
    std::string output = state_before;
    std::string error = state_before;
    if (written == Line || written == LineAndObject)
        error += error_line(report.text);
    if (written == Object || written == LineAndObject)
        output += object_of(report.status, report.exit_status, report.text, report.reason);
    if (report.exit_status > 128)
        expect_ended_by(result, report.exit_status - 128, output, error);
    else
        expect_ended(result, report.exit_status, output, error);
}

class HangingRun : public testing::TestWithParam<Cell> {};
class ContinuingRun : public testing::TestWithParam<Cell> {};

INSTANTIATE_TEST_SUITE_P(Cells, HangingRun, testing::ValuesIn(cells_if(ends_early)), label);
INSTANTIATE_TEST_SUITE_P(Cells, ContinuingRun, testing::ValuesIn(cells_if(continues)), label);

TEST_P(HangingRun, IsEndedAndReportedAsTheTableSays)
{
    const Cell &cell = GetParam();
    const Clock::time_point start_time = Clock::now();
    const ChildResult result = run_child_function([&cell] { return run_cell(cell, true); });
    const auto elapsed = Clock::now() - start_time;
    expect_report(result, cell.report, cell.written, cell.state);
    EXPECT_GE(elapsed, std::chrono::milliseconds(cell.milliseconds));
    EXPECT_LT(elapsed, std::chrono::milliseconds(cell.milliseconds + 5000));
}

TEST_P(ContinuingRun, EndsAtTheEndOfMainWithoutAReport)
{
    const Cell &cell = GetParam();
    const Report &end = cell.event == Event::FirstInterrupt ? interrupted : none;
    expect_report(run_child_function([&cell] { return run_cell(cell, false); }), end, Nothing,
                  cell.state);
}

// Whether a report in Output has a line and an object. Each function below ends in Output.

void nothing_cancelled()
{
    start(1);
    begin_exchange(1);
    end_exchange();
}

void interrupt_cancelled()
{
    start(60);
    begin_exchange(60);
    std::raise(SIGINT);
    end_exchange();
}

void time_limit_cancelled()
{
    start(1);
    begin_exchange(1);
    wait_until(Clock::now() + hold_time, true);
    end_exchange();
}

void interrupt_deferred()
{
    nothing_cancelled();
    hold_answer();
    std::raise(SIGINT);
    release_answer();
}

void interrupt_reported()
{
    interrupt_cancelled();
    show_termination_line();
}

void time_limit_reported()
{
    time_limit_cancelled();
    show_termination_line();
}

struct OutputRow {
    const char *name;
    void (*enter_output)();
    void (*event)(); // ends the process, or waits for the alarm that does
    Report report;
};

const auto interrupt = [] { std::raise(SIGINT); };
const auto terminate = [] { std::raise(SIGTERM); };
const auto hang_up = [] { std::raise(SIGHUP); };
const auto run_out_of_memory = [] { throw std::bad_alloc(); };

const OutputRow output_rows[] = {
    {"FirstInterrupt", nothing_cancelled, interrupt, interrupted},
    {"FirstInterruptBySigterm", nothing_cancelled, terminate, terminated},
    {"FirstInterruptBySighup", nothing_cancelled, hang_up, hung_up},
    {"TimeLimit", nothing_cancelled, hang, limit_passed},
    {"Exception", nothing_cancelled, run_out_of_memory, out_of_memory},
    {"InterruptThatCancelled", interrupt_cancelled, hang, interrupted},
    {"InterruptThatWasReported", interrupt_reported, hang, interrupted},
    {"SecondInterruptAfterOneThatCancelled", interrupt_cancelled, terminate, terminated},
    {"SecondInterruptAfterOneThatWasReported", interrupt_reported, terminate, terminated},
    {"ExceptionAfterAnInterrupt", interrupt_cancelled, run_out_of_memory, out_of_memory},
    {"TimeLimitThatCancelled", time_limit_cancelled, hang, limit_passed},
    {"TimeLimitThatWasReported", time_limit_reported, hang, limit_passed},
    {"ExceptionAfterTheTimeLimit", time_limit_cancelled, run_out_of_memory, out_of_memory},
    {"DeferredInterrupt", interrupt_deferred, hang, interrupted},
    {"SecondInterruptAfterADeferredOne", interrupt_deferred, terminate, terminated},
};

void PrintTo(const OutputRow &row, std::ostream *stream)
{
    *stream << row.name;
}

std::string label_of_row(const testing::TestParamInfo<OutputRow> &row)
{
    return row.param.name;
}

class ReportInOutput : public testing::TestWithParam<OutputRow> {};

INSTANTIATE_TEST_SUITE_P(Rows, ReportInOutput, testing::ValuesIn(output_rows), label_of_row);

TEST_P(ReportInOutput, HasTheObjectUntilTheOutputBegins)
{
    const OutputRow &row = GetParam();
    const auto body = [&row] {
        row.enter_output();
        row.event();
        return 0;
    };
    expect_report(run_child_function(body), row.report, LineAndObject);
}

TEST_P(ReportInOutput, HasNoObjectAfterTheOutputBegins)
{
    const OutputRow &row = GetParam();
    const auto body = [&row] {
        row.enter_output();
        begin_output();
        row.event();
        return 0;
    };
    expect_report(run_child_function(body), row.report, Line);
}

TEST(ToolTermination, ReleasingAnAnswerDoesNotShortenTheTimeLimit)
{
    const auto body = [] {
        start(3);
        begin_exchange(3);
        end_exchange();
        hold_answer();
        release_answer();
        hang();
        return 0;
    };
    const Clock::time_point start_time = Clock::now();
    expect_ended(run_child_function(body), 3, object_of("timeout", 3, limit_text(3), "timeout"),
                 error_line(limit_text(3)));
    EXPECT_GE(Clock::now() - start_time, std::chrono::seconds(3));
}

// The object is written in one piece, so that nothing can come between two parts of it.

// A socket for the child's standard output that keeps its writes separate.
struct MessageSocket {
    int ends[2] = {-1, -1};

    MessageSocket()
    {
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
            ADD_FAILURE() << "no socket pair: " << std::strerror(errno);
    }

    ~MessageSocket()
    {
        close(ends[0]);
        close(ends[1]);
    }

    MessageSocket(const MessageSocket &) = delete;
    MessageSocket &operator=(const MessageSocket &) = delete;
};

ChildOptions with_output_on(const MessageSocket &socket)
{
    const int descriptor = socket.ends[1];
    ChildOptions options;
    options.prepare = [descriptor] { dup2(descriptor, STDOUT_FILENO); };
    return options;
}

Strings messages_on(const MessageSocket &socket)
{
    Strings messages;
    char buffer[4096];
    for (;;) {
        const ssize_t count = recv(socket.ends[0], buffer, sizeof buffer, MSG_DONTWAIT);
        if (count <= 0)
            return messages;
        messages.emplace_back(buffer, static_cast<std::size_t>(count));
    }
}

TEST(ToolTermination, TheObjectOfAnInterruptIsOneWrite)
{
    const HangingServer server;
    const MessageSocket output;
    Child child = start_tool({"-service", server.address(), "-json"}, with_output_on(output));
    ASSERT_TRUE(wait_for_handlers(child));
    child_signal(child, SIGINT);
    child_signal(child, SIGTERM);
    EXPECT_EQ(child_wait(child).signal, SIGTERM);
    EXPECT_EQ(messages_on(output), Strings{cancelled_json(SIGTERM, server.address())});
}

TEST(ToolTermination, TheObjectOfTheTimeLimitIsOneWrite)
{
    const HangingServer server;
    const MessageSocket output;
    const ChildResult result =
        run_tool({"-service", server.address(), "-json", "-max-time", "1"}, with_output_on(output));
    EXPECT_EQ(result.exit_status, 3);
    EXPECT_EQ(messages_on(output), Strings{unanswered_json("timeout", 3, limit_text(1),
                                                           {"timeout", 0, server.address()})});
}

// Exceptions

const char memory_text[] = "Out of memory";
const char abort_text[] = "Aborted by an internal fault";
const char fault_text[] = "Ended by an internal fault";

struct FaultRow {
    const char *name;
    void (*fault)();
    const char *error;
};

const FaultRow faults[] = {
    {"bad_alloc", [] { throw std::bad_alloc(); }, memory_text},
    {"bad_array_new_length", [] { throw std::bad_array_new_length(); }, memory_text},
    {"abort exception", [] { throw_abort(1, "support/c-utils", 369); }, abort_text},
    {"another exception", [] { throw std::runtime_error("never shown"); }, fault_text},
    {"an int", [] { throw 5; }, fault_text},
    {"no exception", [] { std::terminate(); }, fault_text},
};

// Runs the fault in a child, after the preparation.
ChildResult run_fault(const FaultRow &row, void (*prepare)(), const ChildOptions &options = {})
{
    const auto body = [&row, prepare] {
        install_terminate_handler();
        prepare();
        row.fault();
        return 0;
    };
    return run_child_function(body, options);
}

TEST(ToolTermination, AnUncaughtExceptionIsReportedByOneLineAndAnObjectInOneWrite)
{
    for (const FaultRow &row : faults) {
        const MessageSocket output;
        const ChildResult result = run_fault(
            row, [] { prepare_termination(true, target, 60); }, with_output_on(output));
        expect_ended(result, 1, "", error_line(row.error), row.name);
        EXPECT_EQ(messages_on(output), Strings{object_of("failed", 1, row.error, "internal")})
            << row.name;
    }
}

TEST(ToolTermination, AnExceptionIsReportedWithoutAllocating)
{
    const FaultRow rows[] = {
        {"bad_alloc", [] { throw std::bad_alloc(); }, memory_text},
        {"abort exception", [] { throw_abort(5, "support/error", 419); }, abort_text},
        {"an int", [] { throw 5; }, fault_text},
    };
    const auto prepare = [] {
        prepare_termination(true, target, 60);
        allow_allocation = exit_on_allocation;
    };
    for (const FaultRow &row : rows)
        expect_ended(run_fault(row, prepare), 1, object_of("failed", 1, row.error, "internal"),
                     error_line(row.error), row.name);
}

TEST(ToolTermination, AnExceptionPrintsNoObjectUnlessOneIsDue)
{
    void (*const preparations[])() = {
        [] {}, // before the options are read
        [] { prepare_termination(false, target, 60); },
        [] {
            prepare_termination(true, target, 60);
            begin_output();
        },
    };
    for (const FaultRow &row : faults) {
        for (const auto prepare : preparations)
            expect_ended(run_fault(row, prepare), 1, "", error_line(row.error), row.name);
    }
}

} // namespace
} // namespace quintral::tests::tool
