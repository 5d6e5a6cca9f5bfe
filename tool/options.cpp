#include "tool/options.h"

#include <array>
#include <cstring>

#include <sys/utsname.h>

#include "cmdline/long-options.h"
#include "platform/platform.h"
#include "support/ascii.h"
#include "support/c-utils.h"
#include "tool/streams.h"
#include "tool/version-number.h"

namespace quintral {

namespace {

constexpr int default_max_time = 60;
constexpr int longest_max_time = 86400;

// The readers: each takes an option's argument, and returns null or the message of a usage error.

void overwrite(char *text)
{
    std::memset(text, 0, std::strlen(text));
}

const char *read_password(ToolOptions *options, char *argument)
{
    copy_string_bounded(options->password_copy, argument, sizeof options->password_copy);
    options->proxy_password = options->password_copy;
    overwrite(argument);
    return nullptr;
}

const char *read_version(ToolOptions *options, char *argument)
{
    if (read_product_version(argument, &options->version) != 0)
        return "-product-version takes a number with at most three decimal places that a float "
               "represents exactly";
    options->version_text = argument;
    return nullptr;
}

bool is_service_address(const char *text)
{
    const char *end = text;
    while (ascii_is_letter_or_digit(*end) || *end == '.' || *end == '-')
        ++end;
    if (end == text)
        return false;
    return *end == '\0' || (*end == ':' && ascii_read_digits(end + 1, 65535) > 0);
}

const char *read_service(ToolOptions *options, char *argument)
{
    if (!is_service_address(argument))
        return "-service takes a host name, or host:port with a port from 1 to 65535";
    options->service = argument;
    return nullptr;
}

const char *read_seconds(ToolOptions *options, char *argument)
{
    options->max_time = ascii_read_digits(argument, longest_max_time);
    if (options->max_time <= 0)
        return "-max-time takes a whole number of seconds from 1 to 86400";
    return nullptr;
}

// Rows that keep the argument as typed, read it with a reader, or set a flag.

using O = ToolOptions; // short, so that a row fits on a line

constexpr OptionRow keep(OptionGroup group, const char *name, const char *argument,
                         const char *O::*string, const char *help)
{
    return {group, name, argument, string, nullptr, nullptr, help};
}

constexpr OptionRow read(OptionGroup group, const char *name, const char *argument,
                         const char *(*reader)(O *, char *), const char *help)
{
    return {group, name, argument, nullptr, nullptr, reader, help};
}

constexpr OptionRow set(OptionGroup group, const char *name, bool O::*flag, const char *help)
{
    return {group, name, nullptr, nullptr, flag, nullptr, help};
}

constexpr OptionGroup ask = OptionGroup::Query;
constexpr OptionGroup net = OptionGroup::Connection;
constexpr OptionGroup answer = OptionGroup::Answer;
constexpr OptionGroup about = OptionGroup::Program;

} // namespace

// A name that begins others comes before them: after two longer names the parser would call it
// ambiguous, and the message for an ambiguous word names the first two in this order.
// clang-format off
constexpr OptionRow option_rows[] = {
    keep(ask, "product", "name", &O::product, "Product to ask about."),
    keep(ask, "productline", "name", &O::product_line, "Product line it belongs to."),
    read(ask, "product-version", "n", read_version, "Its version, a number such as 5.2."),
    set(about, "help", &O::help, "Print this text."),
    set(about, "version", &O::show_version, "Print the version of this program."),
    keep(ask, "version-name", "text", &O::version_name, "Name of that version."),
    keep(ask, "machine-id", "text", &O::machine_id, "Identifier of this machine (default: empty)."),
    keep(ask, "os", "name", &O::os, "Operating system (default: detected)."),
    keep(ask, "os-version", "text", &O::os_version, "Its version (default: detected)."),
    keep(ask, "processor-arch", "name", &O::processor_arch, "Processor (default: detected)."),

    read(net, "service", "host[:port]", read_service, "Ask this update service."),
    keep(net, "proxy", "host:port", &O::proxy, "Use a proxy server to connect to the internet."),
    keep(net, "proxy-user", "", &O::proxy_user, "Username for proxy authentication."),
    read(net, "proxy-pass", "", read_password, "Password for proxy authentication."),
    read(net, "max-time", "seconds", read_seconds, "Overall time limit, 1 to 86400 (default: 60)."),

    set(answer, "json", &O::json, "Print one JSON object instead of text."),
    set(answer, "quiet", &O::quiet, "Suppress the progress indicator and notes."),
    set(answer, "exit-code", &O::exit_code, "Exit with status 10 if a newer version exists."),
    set(answer, "open", &O::open, "Open the URL of a newer version in the browser."),
};
// clang-format on

constexpr std::size_t option_count = sizeof option_rows / sizeof option_rows[0];

namespace {

// The parser's result for a row is its index plus this, clear of the parser's own results, which
// are characters.
constexpr std::int32_t first_result = 0x200;

// Preset in option_code so that an unknown word, which the parser skips silently, can be
// recognised.
constexpr int unknown_word = 0x100;

using ParserTable = std::array<LongOption, option_count + 1>; // ends with a null name

constexpr ParserTable make_parser_table()
{
    ParserTable table = {};
    for (std::size_t i = 0; i < option_count; ++i) {
        const OptionRow &row = option_rows[i];
        const std::int32_t takes = row.argument != nullptr ? RequiredArgument : NoArgument;
        table[i] = {row.name, takes, nullptr, first_result + static_cast<std::int32_t>(i)};
    }
    return table;
}

constexpr ParserTable parser_table = make_parser_table();

// An element as a message may show it: a value after '=' could be a password.
std::string without_value(const char *element)
{
    return std::string(element, std::strcspn(element, "="));
}

void set_defaults(ToolOptions *options)
{
    *options = {};
    utsname system = {}; // so the processor is empty should uname fail
    uname(&system);
    copy_string_bounded(options->processor_buffer, system.machine,
                        sizeof options->processor_buffer);
    platform_os_name(options->os_name_buffer);
    options->product = "Quintral";
    options->product_line = "Quintral";
    options->version_text = QUINTRAL_VERSION;
    read_product_version(QUINTRAL_VERSION, &options->version);
    options->version_name = QUINTRAL_VERSION_NAME;
    options->machine_id = "";
    options->os = options->os_name_buffer;
    options->os_version =
        platform_os_version(options->os_version_buffer, sizeof options->os_version_buffer);
    options->processor_arch = options->processor_buffer;
    options->max_time = default_max_time;
}

int next_option(int argument_count, char **arguments)
{
    option_code = unknown_word;
    return parse_long_only_options(argument_count, arguments, nullptr, parser_table.data(),
                                   nullptr);
}

// The row of a result that is an option of ours.
const OptionRow &row_of(int result)
{
    return option_rows[result - first_result];
}

// Fills the row's member. Returns null, or the message of a usage error.
const char *apply(const OptionRow &row, ToolOptions *options, char *argument)
{
    if (row.read != nullptr)
        return row.read(options, argument);
    if (row.string != nullptr)
        options->*row.string = argument;
    else
        options->*row.given = true;
    return nullptr;
}

// The unknown word itself: already consumed if it had one dash, still in its place if it had two.
const char *unknown_word_of(char **arguments)
{
    return arguments[option_position == 1 ? option_index - 1 : option_index];
}

// Reads all options. Returns 0, or -1 with the message in *error, which stays empty if the parser
// has printed one.
int read_all(int argument_count, char **arguments, ToolOptions *options, std::string *error)
{
    int result = next_option(argument_count, arguments);
    for (; result != -1; result = next_option(argument_count, arguments)) {
        if (result == '?' || result == ':')
            return -1;
        if (result == unknown_word) {
            *error = "Unknown option " + without_value(unknown_word_of(arguments));
            return -1;
        }
        if (const char *message = apply(row_of(result), options, option_argument)) {
            *error = message;
            return -1;
        }
    }
    if (option_index >= argument_count)
        return 0;
    *error = "Unexpected argument " + without_value(arguments[option_index]);
    return -1;
}

// Continues silently after a usage error, skipping whatever stops the parser, so that no password
// stays visible while the message waits for somebody to read it.
void overwrite_other_passwords(int argument_count, char **arguments)
{
    option_errors = 0;
    while (option_index < argument_count) {
        const int index = option_index;
        const int result = next_option(argument_count, arguments);
        if (result >= first_result && row_of(result).read == read_password)
            overwrite(option_argument);
        if (option_index == index) {
            ++option_index;
            option_position = 1;
        }
    }
}

// One line of the usage text: the help begins at column 24, after tabs.
std::string usage_line(const OptionRow &row)
{
    std::string line = std::string("  -") + row.name;
    if (row.argument != nullptr && row.argument[0] != '\0')
        line += std::string(" ") + row.argument;
    for (std::size_t column = line.size(); column < 24; column = column / 8 * 8 + 8)
        line += '\t';
    return line + row.help + "\n";
}

std::string usage_lines(OptionGroup group)
{
    std::string lines;
    for (const OptionRow &row : option_rows) {
        if (row.group == group)
            lines += usage_line(row);
    }
    return lines;
}

} // namespace

int read_options(int argument_count, char **arguments, ToolOptions *options)
{
    set_defaults(options);
    option_index = 0;
    std::string error;
    if (read_all(argument_count, arguments, options, &error) == 0)
        return 0;
    overwrite_other_passwords(argument_count, arguments);
    if (!error.empty())
        show_failure(error.c_str());
    return -1;
}

std::string usage_text()
{
    return "Usage: quintral [options]\n"
           "Asks the web service whether a newer version of a product exists.\n"
           "\n"
           "The product and the computer, as they are sent:\n" +
           usage_lines(OptionGroup::Query) + "\nThe connection:\n" +
           usage_lines(OptionGroup::Connection) + "\nThe answer:\n" +
           usage_lines(OptionGroup::Answer) + "\nAbout this program:\n" +
           usage_lines(OptionGroup::Program) +
           "\nExit status: 0 answered, 1 failure, 2 wrong usage, 3 time limit passed.\n";
}

const char *version_line()
{
    return "quintral " QUINTRAL_VERSION_NAME "\n";
}

} // namespace quintral
