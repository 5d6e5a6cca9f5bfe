// The utility: asks the update service whether a newer version of a product exists, and prints the
// answer. Exit status: 0 answered, 1 failure, 2 usage error, 3 time limit, 10 newer (-exit-code).
#include <memory>
#include <string>

#include <unistd.h>

#include "support/error.h"
#include "tool/answer.h"
#include "tool/open-address.h"
#include "tool/options.h"
#include "tool/progress-indicator.h"
#include "tool/proxy-exceptions.h"
#include "tool/start-up.h"
#include "tool/streams.h"
#include "tool/termination.h"
#include "web/proxy-settings.h"
#include "web/transaction.h"
#include "web/version-update.h"

namespace quintral {

namespace {

enum : int {
    AnsweredStatus = 0,
    FailureStatus = 1,
    UsageStatus = 2,
    TimeLimitStatus = 3,
    NewerStatus = 10
};

// A server cannot make the utility use up all memory.
constexpr std::size_t header_limit = std::size_t{256} * 1024;
constexpr std::size_t body_limit = std::size_t{8} * 1024 * 1024;

int show_usage()
{
    show_usage_text(usage_text());
    return UsageStatus;
}

int print_and_exit(const std::string &text)
{
    return print_usage_text(text) == 0 ? AnsweredStatus : FailureStatus;
}

std::string service_host()
{
    const std::string service = web_service_host;
    return service.substr(0, service.find(':'));
}

int choose_proxy(const ToolOptions &options, ProxySettings *proxy)
{
    if (options.proxy == nullptr && system_proxy_is_bypassed(service_host().c_str()))
        return 0;
    return settle_proxy(proxy, options.proxy, options.proxy_user, options.proxy_password);
}

int ask(const ToolOptions &options, const ProxySettings &proxy, UpdateAnswer *answer)
{
    return web_version_update(options.product, options.product_line, options.version,
                              options.version_name, options.os, options.os_version,
                              options.machine_id, options.processor_arch, answer_capacity,
                              answer->message, answer->version, answer->address, answer->button,
                              null_if_empty(proxy.host), proxy.port, null_if_empty(proxy.user),
                              null_if_empty(proxy.password));
}

// The outcome of a failed run. An interrupt or the time limit cancels the exchange. One that came
// too late for that, after the last byte, still counts.
RunOutcome failed_outcome(int result)
{
    if (interrupt_received() != 0)
        return {"cancelled", 128 + interrupt_received(), Newer::Unknown, nullptr,
                "User canceled web transaction"};
    if (time_limit_passed())
        return {"timeout", TimeLimitStatus, Newer::Unknown, nullptr, time_limit_text()};
    const char *error = null_if_empty(web_last_error());
    if (error == nullptr)
        error = "The web site's answer is not an update reply";
    if (result == WebTimedOut)
        return {"timeout", TimeLimitStatus, Newer::Unknown, nullptr, error};
    return {"failed", FailureStatus, Newer::Unknown, nullptr, error};
}

// Opens the URL of the answer, if it has one. Returns 0, or -1 with the reason in *error.
int open_url_of(const UpdateAnswer &answer, std::string *error)
{
    if (answer.address[0] == '\0')
        return 0;
    hold_answer();
    const int opened = open_web_address(answer.address, error);
    release_answer();
    return opened;
}

// The outcome of a run that was answered. *error holds the text that the outcome points to.
RunOutcome answered_outcome(const ToolOptions &options, const UpdateAnswer &answer,
                            std::string *error)
{
    const Newer newer = compare_answer(answer, options.version_text);
    const bool is_newer = newer == Newer::Yes;
    const bool failed = options.open && is_newer && open_url_of(answer, error) != 0;
    int status = options.exit_code && is_newer ? NewerStatus : AnsweredStatus;
    if (failed)
        status = FailureStatus;
    if (interrupt_received() != 0) // while the URL was opened
        status = 128 + interrupt_received();
    return {"answered", status, newer, &answer, failed ? error->c_str() : nullptr};
}

// Prints the outcome of a run. Returns the exit status.
int print_outcome(const ToolOptions &options, const RunOutcome &outcome)
{
    std::string output;
    collect_printed_text(&output);
    if (outcome.error != nullptr)
        show_failure(outcome.error);
    if (options.json)
        output = outcome_json(outcome);
    else if (outcome.answer != nullptr)
        print_answer(*outcome.answer);
    begin_output();
    return finish_output(output) == 0 ? outcome.exit_status : FailureStatus;
}

// Prints the outcome of an exchange. Returns the exit status.
int finish_run(const ToolOptions &options, int result, UpdateAnswer *answer)
{
    if (result != WebOk || interrupt_received() != 0 || time_limit_passed())
        return print_outcome(options, failed_outcome(result));
    if (!options.quiet)
        note_truncated_values(*answer);
    clean_answer(answer);
    std::string error;
    return print_outcome(options, answered_outcome(options, *answer, &error));
}

int run_query(const ToolOptions &options, const ProxySettings &proxy)
{
    // Zero-filled, so that values that the service does not give are empty.
    const auto answer = std::make_unique<UpdateAnswer>();
    web_set_reply_limits(header_limit, body_limit);
    if (!options.quiet && isatty(STDERR_FILENO) != 0)
        web_set_idle_hook(show_progress, nullptr);

    begin_exchange(options.max_time);
    const int result = ask(options, proxy, answer.get());
    end_exchange();
    clear_progress();

    const int status = finish_run(options, result, answer.get());
    if (interrupt_received() != 0)
        end_by_signal(interrupt_received());
    return status;
}

int run(int argument_count, char **arguments)
{
    drop_launch_argument(&argument_count, &arguments);
    ToolOptions options;
    if (read_options(argument_count, arguments, &options) != 0)
        return show_usage();
    if (options.help)
        return print_and_exit(usage_text());
    if (options.show_version)
        return print_and_exit(version_line());
    if (options.service != nullptr)
        web_service_host = options.service;
    ProxySettings proxy = {};
    if (choose_proxy(options, &proxy) != 0) {
        show_failure("-proxy takes host:port with a port that is not 0");
        return show_usage();
    }
    prepare_termination(options.json, options.max_time);
    return run_query(options, proxy);
}

} // namespace

} // namespace quintral

int main(int argument_count, char **arguments)
{
    quintral::install_terminate_handler();
    quintral::prepare_streams();
    quintral::set_message_handler(quintral::show_message);
    return quintral::run(argument_count, arguments);
}
