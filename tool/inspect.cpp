#include "tool/inspect.h"

#include "support/c-utils.h"
#include "support/error.h"
#include "tool/output.h"
#include "tool/record.h"
#include "tool/safe-text.h"

namespace quintral {

namespace {

void show_line(const std::string &text)
{
    report_message(Plain, "%s", safe_line(text.c_str()).c_str());
}

// The constant for a status in a record.
const char *status_of(const std::string &word)
{
    for (const char *status : {"timeout", "cancelled"}) {
        if (word == status)
            return status;
    }
    return "failed";
}

// A run that failed: its outcome again. The reply is what notes are about; a run that was
// interrupted showed none.
int print_recorded_failure(const Run &run, const Record &record)
{
    WebUpdateReply reply;
    web_update_reply_init(&reply);
    if (record.has_header)
        reply.header = copy_string_with_room(record.header.c_str(), 0);
    if (record.has_body)
        reply.body = copy_string_with_room(record.body.c_str(), 0);
    reply.failure = failure_named(record.reason);
    reply.http_status = record.http_status;
    const RunOutcome outcome = {
        status_of(record.status), record.exit_status,    nullptr,
        record.error.c_str(),     record.reason.c_str(), record.http_status};
    const int status = print_failure(run, outcome, record.interrupted ? nullptr : &reply);
    web_update_reply_free(&reply);
    return status;
}

// The bytes of an answered run's reply. A header that was cut at a NUL lacks its empty line.
std::string reply_bytes(const Record &record)
{
    if (record.is_bare_reply)
        return record.header;
    const std::string &header = record.header;
    const std::size_t last = header.find_last_not_of('\r');
    const bool is_whole = last == std::string::npos || header[last] == '\n';
    return header + (is_whole ? "\n" : "\n\n") + record.body;
}

int print_recorded_reply(const Run &run, const Record &record)
{
    WebUpdateReply reply;
    web_update_reply_init(&reply);
    const std::string bytes = reply_bytes(record);
    const int result =
        web_read_update_reply(bytes.data(), bytes.size(), own_version(run.query), &reply);
    int status = AnsweredStatus;
    if (result == 0) {
        const int interrupted = record.exit_status > 128 ? record.exit_status : 0;
        status = print_answered(run, &reply, {record.error, record.reason.c_str()}, interrupted);
    } else {
        const RunOutcome outcome = {"failed",
                                    FailureStatus,
                                    nullptr,
                                    reply.error,
                                    web_update_failure_name(reply.failure),
                                    reply.http_status};
        status = print_failure(run, outcome, &reply);
    }
    web_update_reply_free(&reply);
    return status;
}

// What the record says about the run replaces what this process found out.
void apply_record(const Record &record, Run *run)
{
    if (!record.version.empty() && run->options.product_version == nullptr)
        set_own_version(&run->query, record.version);
    run->target.proxy = record.proxy;
    run->target.proxy_origin = record.proxy_origin;
    if (!record.service.empty())
        run->target.service = record.service;
    if (record.exit_status == NewerStatus || record.exit_status == UnknownStatus)
        run->options.exit_code = true;
}

} // namespace

int show_request(const Run &run)
{
    for (const QueryValue &value : run.query.values)
        show_line(describe_value(value));
    show_line("proxy: " + describe_proxy(run.proxy));
    const WebUpdateQuery query = update_query(run.query, &run.proxy.settings);
    std::string request;
    web_compose_update_request(&query, request);
    const int written = finish_output(mask_credentials(request), AnsweredStatus);
    return written == 0 ? AnsweredStatus : FailureStatus;
}

int parse_record(Run *run)
{
    Record record;
    std::string error;
    if (read_record(run->options.parse, &record, &error) != 0)
        return print_file_failure(*run, error);
    apply_record(record, run);
    show_notes(*run, record.notes);
    if (record.is_bare_reply || record.status == "answered")
        return print_recorded_reply(*run, record);
    return print_recorded_failure(*run, record);
}

} // namespace quintral
