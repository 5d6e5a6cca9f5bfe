#include "tool/options.h"

#include <cstring>
#include <string_view>

#include "support/ascii.h"
#include "support/c-utils.h"
#include "web/update-check.h"

namespace quintral {

namespace {

constexpr int longest_max_time = 86400;
constexpr std::size_t longest_service = 261; // a host name of 255 bytes, ':' and a port

// The readers: each takes an option's argument, and returns null or the message of a usage error.

const char *read_password(ToolOptions *options, char *argument)
{
    copy_string_bounded(options->password_copy, argument, sizeof options->password_copy);
    options->proxy_password = options->password_copy;
    return nullptr;
}

const char *read_version(ToolOptions *options, char *argument)
{
    float version = 0;
    int order = 0;
    options->product_version = argument;
    if (web_read_product_version(argument, &version) == 0)
        return nullptr;
    if (web_compare_versions(argument, argument, &order) != 0)
        return "-product-version takes a number such as 5.2";
    const char *point = std::strchr(argument, '.');
    if (point != nullptr && std::strchr(point + 1, '.') != nullptr)
        return "-product-version takes a number with one decimal point, such as 5.2";
    return "-product-version takes a number with at most three decimal places that a float "
           "represents exactly";
}

bool names_a_scheme(const char *text)
{
    return std::string_view(text).find("://") != std::string_view::npos;
}

const char *read_proxy(ToolOptions *options, char *argument)
{
    if (names_a_scheme(argument))
        return "-proxy takes host:port; leave out the part up to ://";
    options->proxy = argument;
    return nullptr;
}

bool is_service_address(const char *text)
{
    const char *end = text;
    while (ascii_is_letter_or_digit(*end) || *end == '.' || *end == '-')
        ++end;
    if (end == text || std::strlen(text) > longest_service)
        return false;
    return *end == '\0' || (*end == ':' && ascii_read_digits(end + 1, 65535) > 0);
}

const char *read_service(ToolOptions *options, char *argument)
{
    if (names_a_scheme(argument))
        return "-service takes a host name, or host:port; leave out the part up to ://";
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
    return {group, false, name, argument, string, nullptr, nullptr, help};
}

constexpr OptionRow read(OptionGroup group, const char *name, const char *argument,
                         const char *(*reader)(O *, char *), const char *help)
{
    return {group, false, name, argument, nullptr, nullptr, reader, help};
}

// The same for an argument that must not stay visible in the process list.
constexpr OptionRow read_secret(OptionGroup group, const char *name, const char *argument,
                                const char *(*reader)(O *, char *), const char *help)
{
    return {group, true, name, argument, nullptr, nullptr, reader, help};
}

constexpr OptionRow set(OptionGroup group, const char *name, bool O::*flag, const char *help)
{
    return {group, false, name, nullptr, nullptr, flag, nullptr, help};
}

constexpr OptionGroup ask = OptionGroup::Query;
constexpr OptionGroup net = OptionGroup::Connection;
constexpr OptionGroup answer = OptionGroup::Answer;
constexpr OptionGroup look = OptionGroup::Inspection;
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
    set(about, "V", &O::show_version, "The same as -version."),
    keep(ask, "version-name", "text", &O::version_name, "Name of that version."),
    keep(ask, "machine-id", "text", &O::machine_id, "Identifier of this machine (default: empty)."),
    keep(ask, "os", "name", &O::os, "Operating system (default: detected)."),
    keep(ask, "os-version", "text", &O::os_version, "Its version (default: detected)."),
    keep(ask, "processor-arch", "name", &O::processor_arch, "Processor (default: detected)."),

    read(net, "service", "host[:port]", read_service, "Ask this update service."),
    read(net, "proxy", "host:port", read_proxy, "Use a proxy server to connect to the internet."),
    keep(net, "proxy-user", "", &O::proxy_user, "Username for proxy authentication."),
    read_secret(net, "proxy-pass", "", read_password, "Password for proxy authentication."),
    keep(net, "password-file", "file", &O::password_file, "Read the password from a file."),
    read(net, "max-time", "seconds", read_seconds, "Overall time limit, 1 to 86400 (default: 60)."),

    set(answer, "json", &O::json, "Print one JSON object instead of text."),
    set(answer, "quiet", &O::quiet, "Suppress the progress indicator and notes."),
    set(answer, "exit-code", &O::exit_code, "Exit with status 10 if newer, 11 if unknown."),
    set(answer, "open", &O::open, "Open the URL of a newer version in the browser."),

    set(look, "show-request", &O::show_request, "Print the request instead of sending it."),
    set(look, "explain-proxy", &O::explain_proxy, "Say which proxy is used and why; send nothing."),
    keep(look, "record", "file", &O::record, "Keep the request and the reply in a file."),
    keep(look, "parse", "file", &O::parse, "Read a recorded or saved reply; send nothing."),
};
// clang-format on

constexpr std::size_t option_count = sizeof option_rows / sizeof option_rows[0];

namespace {

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

std::string usage_text()
{
    return "Usage: quintral [options]\n"
           "Asks the web service whether a newer version of a product exists.\n"
           "\n"
           "The product and the computer, as they are sent:\n" +
           usage_lines(OptionGroup::Query) + "\nThe connection:\n" +
           usage_lines(OptionGroup::Connection) + "\nThe answer:\n" +
           usage_lines(OptionGroup::Answer) + "\nSee before you send:\n" +
           usage_lines(OptionGroup::Inspection) + "\nAbout this program:\n" +
           usage_lines(OptionGroup::Program) +
           "\nExit status: 0 answered, 1 failure, 2 usage error, 3 time limit passed.\n";
}

const char *version_line()
{
    return "quintral " QUINTRAL_VERSION_NAME "\n";
}

} // namespace quintral
