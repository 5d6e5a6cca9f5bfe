// The utility: asks the update service whether a newer version of a product exists, and prints the
// answer. Exit status: 0 answered, 1 failure, 2 usage error, 3 time limit, 10 newer and 11 unknown
// (-exit-code).
#include <string>

#include <unistd.h>

#include "support/error.h"
#include "tool/command-line.h"
#include "tool/inspect.h"
#include "tool/read-file.h"
#include "tool/run.h"
#include "tool/start-up.h"
#include "tool/streams.h"
#include "tool/termination.h"

namespace quintral {

namespace {

// Reports a usage error and explains the options. On a terminal the error is repeated as the last
// line, so that it stays in view.
int usage_error(const UsageError &error)
{
    show_usage_error(error);
    show_usage_text(usage_text());
    if (isatty(STDERR_FILENO) != 0)
        show_usage_error(error);
    return UsageStatus;
}

int print_and_exit(const std::string &text)
{
    return print_usage_text(text) == 0 ? AnsweredStatus : FailureStatus;
}

// Reads the password of -password-file into the record of options.
int read_password_file(ToolOptions *options, std::string *error)
{
    if (options->password_file == nullptr || options->parse != nullptr) // which sends nothing
        return 0;
    options->proxy_password = options->password_copy;
    return read_secret_line(options->password_file, options->password_copy,
                            sizeof options->password_copy, error);
}

// Does what the options ask for. Returns the exit status.
int run_mode(Run *run)
{
    if (run->options.explain_proxy)
        return print_and_exit(explain_proxy(run->proxy));
    if (run->options.show_request)
        return show_request(*run);
    if (run->options.parse != nullptr)
        return parse_record(run);
    return run_exchange(*run);
}

int run_utility(int argument_count, char **arguments)
{
    drop_launch_argument(&argument_count, &arguments);
    Run run;
    UsageError usage;
    if (read_options(argument_count, arguments, &run.options, &usage) != 0)
        return usage_error(usage);
    if (run.options.help)
        return print_and_exit(usage_text());
    if (run.options.show_version)
        return print_and_exit(version_line());
    std::string error;
    const int password = read_password_file(&run.options, &error);
    fill_query(run.options, &run.query);
    if (choose_proxy(run.options, run.query.service, &run.proxy, &usage.message) != 0)
        return usage_error(usage);
    run.target = run_target(run.query.service, run.proxy);
    prepare_termination(run.options.json, run.target, run.options.max_time);
    return password == 0 ? run_mode(&run) : print_file_failure(run, error);
}

} // namespace

} // namespace quintral

int main(int argument_count, char **arguments)
{
    quintral::install_terminate_handler();
    quintral::expect_object(argument_count, arguments);
    quintral::prepare_streams();
    quintral::set_message_handler(quintral::show_message);
    return quintral::run_utility(argument_count, arguments);
}
