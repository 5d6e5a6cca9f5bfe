#include "tool/run.h"

#include <csignal>

#include <unistd.h>

#include "tool/notes.h"
#include "tool/open-address.h"
#include "tool/output.h"
#include "tool/progress-indicator.h"
#include "tool/record.h"
#include "tool/streams.h"
#include "tool/termination.h"

namespace quintral {

namespace {

bool is_terminated()
{
    return interrupt_received() != 0 || time_limit_passed();
}

// The outcome of a failed exchange. An interrupt or the time limit cancels it. One that came too
// late for that, after the last byte, still counts.
RunOutcome failed_outcome(int result, const WebUpdateReply &reply)
{
    const int http_status = reply.http_status;
    if (interrupt_received() != 0)
        return {"cancelled", 128 + interrupt_received(),
                nullptr,     "User canceled web transaction",
                "cancelled", http_status};
    if (time_limit_passed())
        return {"timeout", TimeLimitStatus, nullptr, time_limit_text(), "timeout", http_status};
    const char *reason = web_update_failure_name(reply.failure);
    if (result == WebTimedOut)
        return {"timeout", TimeLimitStatus, nullptr, reply.error, reason, http_status};
    return {"failed", FailureStatus, nullptr, reply.error, reason, http_status};
}

// Opens the URL of a newer version for -open.
void open_url(const ToolOptions &options, const WebUpdateReply &reply, LocalError *local)
{
    if (!options.open || reply.newer != WebNewer || reply.url == nullptr)
        return;
    hold_answer();
    if (open_web_address(reply.url, &local->error) != 0)
        local->reason = "open";
    release_answer();
}

int answered_status(const ToolOptions &options, WebUpdateNewer newer)
{
    if (!options.exit_code || newer == WebNotNewer)
        return AnsweredStatus;
    return newer == WebNewer ? NewerStatus : UnknownStatus;
}

RunOutcome answered_outcome(const Run &run, const WebUpdateReply &reply, const LocalError &local,
                            int interrupted_status)
{
    RunOutcome outcome = {};
    outcome.status = "answered";
    outcome.exit_status = answered_status(run.options, reply.newer);
    outcome.reply = &reply;
    outcome.http_status = reply.http_status;
    if (!local.error.empty()) {
        outcome.exit_status = FailureStatus;
        outcome.error = local.error.c_str();
        outcome.reason = local.reason;
    }
    if (interrupted_status != 0)
        outcome.exit_status = interrupted_status;
    return outcome;
}

// Prints the answer or the object. Returns the exit status.
int print_output(const Run &run, const RunOutcome &outcome)
{
    std::string output;
    collect_printed_text(&output);
    if (run.options.json)
        output = outcome_json(outcome, run.target);
    else if (outcome.reply != nullptr)
        print_answer(*outcome.reply);
    begin_output();
    return finish_output(output, outcome.exit_status) == 0 ? outcome.exit_status : FailureStatus;
}

// A user at a terminal is told whether the version is newer; scripts look at the answer.
void show_newer_note(const Run &run, const WebUpdateReply &reply)
{
    if (reply.newer == WebNewerUnknown || run.options.quiet || run.options.json)
        return;
    if (isatty(STDERR_FILENO) != 0)
        show_note(newer_note(reply, own_version(run.query)).c_str());
}

std::string recorded_request(const Run &run)
{
    const WebUpdateQuery query = update_query(run.query, &run.proxy.settings);
    std::string request;
    web_compose_update_request(&query, request);
    return mask_credentials(request);
}

// Writes the record that -record asks for. Returns 0, or -1 with the reason in *error.
int write_record(const Run &run, const RunOutcome &outcome, const WebUpdateReply &reply,
                 RecordFile *file, std::string *error)
{
    if (run.options.record == nullptr)
        return 0;
    const RecordContent content = {outcome,
                                   run.target,
                                   own_version(run.query),
                                   ignored_setting_notes(run.proxy),
                                   is_terminated() && outcome.reply == nullptr,
                                   recorded_request(run),
                                   reply};
    return finish_record(file, record_text(content), error);
}

// Creates the temporary file that -record asks for. Termination is blocked meanwhile, or a signal
// could end the process before the file is known to discard_record.
int begin_record(const Run &run, RecordFile *file, std::string *error)
{
    if (run.options.record == nullptr)
        return 0;
    block_termination();
    const int result = create_record(run.options.record, file, error);
    unblock_termination();
    return result;
}

int finish_failed(const Run &run, int result, const WebUpdateReply &reply, RecordFile *file)
{
    const RunOutcome outcome = failed_outcome(result, reply);
    std::string error;
    if (write_record(run, outcome, reply, file, &error) != 0)
        show_failure(error.c_str());
    if (!is_terminated())
        return print_failure(run, outcome, &reply);
    show_termination_line();
    return print_output(run, outcome);
}

int finish_answered(const Run &run, WebUpdateReply *reply, RecordFile *file)
{
    LocalError local = {};
    open_url(run.options, *reply, &local);
    const int interrupted = interrupt_received() != 0 ? 128 + interrupt_received() : 0;
    std::string error;
    const RunOutcome outcome = answered_outcome(run, *reply, local, interrupted);
    if (write_record(run, outcome, *reply, file, &error) != 0) {
        if (!local.error.empty())
            show_failure(local.error.c_str());
        local = {error, "file"};
    }
    return print_answered(run, reply, local, interrupted);
}

} // namespace

int run_exchange(const Run &run)
{
    if (!run.options.quiet && isatty(STDERR_FILENO) != 0)
        web_set_idle_hook(show_progress, nullptr);
    const WebUpdateQuery query = update_query(run.query, &run.proxy.settings);
    WebUpdateReply reply;
    web_update_reply_init(&reply);
    RecordFile file = {};
    std::string error;

    begin_exchange(run.options.max_time); // the time limit applies to the notes too
    show_notes(run, ignored_setting_notes(run.proxy));
    if (begin_record(run, &file, &error) != 0) {
        end_exchange();
        return print_file_failure(run, error);
    }
    const int result = web_check_for_update(&query, &reply);
    end_exchange();
    clear_progress();

    const bool failed = result != WebOk || is_terminated();
    const int status =
        failed ? finish_failed(run, result, reply, &file) : finish_answered(run, &reply, &file);
    web_update_reply_free(&reply);
    if (interrupt_received() != 0)
        end_by_signal(interrupt_received());
    return status;
}

int print_failure(const Run &run, const RunOutcome &outcome, const WebUpdateReply *reply)
{
    show_failure(outcome.error);
    if (reply != nullptr && !run.options.quiet)
        show_failure_notes(*reply, run.target);
    return print_output(run, outcome);
}

int print_file_failure(const Run &run, const std::string &error)
{
    return print_failure(run, {"failed", FailureStatus, nullptr, error.c_str(), "file", 0},
                         nullptr);
}

void show_notes(const Run &run, const std::vector<std::string> &notes)
{
    for (const std::string &note : notes) {
        if (!run.options.quiet)
            show_note(note.c_str());
    }
}

int print_answered(const Run &run, WebUpdateReply *reply, const LocalError &local,
                   int interrupted_status)
{
    truncate_values(reply, !run.options.quiet);
    if (!run.options.quiet && reply->newer == WebNewerUnknown)
        show_unknown_note(*reply);
    if (!local.error.empty())
        show_failure(local.error.c_str());
    const int status = print_output(run, answered_outcome(run, *reply, local, interrupted_status));
    show_newer_note(run, *reply);
    return status;
}

} // namespace quintral
