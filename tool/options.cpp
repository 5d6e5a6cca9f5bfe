#include "tool/options.h"

#include <cstring>
#include <string>

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

// The parser's answer for a word that it passes over in silence: what option_code held before.
constexpr int unknown_word = 0x100;

enum : std::int32_t {
    ProductOption = 0x200, // clear of the parser's own answers, which are characters
    ProductLineOption,
    ProductVersionOption,
    VersionNameOption,
    MachineIdOption,
    OsOption,
    OsVersionOption,
    ProcessorArchOption,
    ServiceOption,
    ProxyOption,
    ProxyUserOption,
    ProxyPassOption,
    MaxTimeOption,
    JsonOption,
    QuietOption,
    ExitCodeOption,
    OpenOption,
    HelpOption,
    VersionOption
};

// A name that begins others stands before them: two longer names met first would make it ambiguous.
const LongOption option_table[] = {
    {"product", RequiredArgument, nullptr, ProductOption},
    {"productline", RequiredArgument, nullptr, ProductLineOption},
    {"product-version", RequiredArgument, nullptr, ProductVersionOption},
    {"version", NoArgument, nullptr, VersionOption},
    {"version-name", RequiredArgument, nullptr, VersionNameOption},
    {"machine-id", RequiredArgument, nullptr, MachineIdOption},
    {"os", RequiredArgument, nullptr, OsOption},
    {"os-version", RequiredArgument, nullptr, OsVersionOption},
    {"processor-arch", RequiredArgument, nullptr, ProcessorArchOption},
    {"service", RequiredArgument, nullptr, ServiceOption},
    {"proxy", RequiredArgument, nullptr, ProxyOption},
    {"proxy-user", RequiredArgument, nullptr, ProxyUserOption},
    {"proxy-pass", RequiredArgument, nullptr, ProxyPassOption},
    {"max-time", RequiredArgument, nullptr, MaxTimeOption},
    {"json", NoArgument, nullptr, JsonOption},
    {"quiet", NoArgument, nullptr, QuietOption},
    {"exit-code", NoArgument, nullptr, ExitCodeOption},
    {"open", NoArgument, nullptr, OpenOption},
    {"help", NoArgument, nullptr, HelpOption},
    {nullptr, NoArgument, nullptr, 0},
};

// An element as a message may show it: what stands behind a '=' could be a password.
std::string without_value(const char *element)
{
    return std::string(element, std::strcspn(element, "="));
}

void set_defaults(ToolOptions *options)
{
    static utsname system; // zero-filled, so the processor is empty should uname fail
    static char os_name[16];
    static char os_version[sizeof system.release];
    uname(&system);
    platform_os_name(os_name);
    *options = {};
    options->product = "Quintral";
    options->product_line = "Quintral";
    options->version_text = QUINTRAL_VERSION;
    read_product_version(QUINTRAL_VERSION, &options->version);
    options->version_name = QUINTRAL_VERSION_NAME;
    options->machine_id = "";
    options->os = os_name;
    options->os_version = platform_os_version(os_version, sizeof os_version);
    options->processor_arch = system.machine;
    options->max_time = default_max_time;
}

// Digits alone, from 1 to the highest value. Returns 0 for anything else.
std::int32_t read_count(const char *text, std::int32_t highest)
{
    for (const char *c = text; *c != '\0'; ++c) {
        if (!ascii_is_digit(*c))
            return 0;
    }
    const std::int32_t count = ascii_to_int(text);
    return count <= highest ? count : 0;
}

bool is_service_address(const char *text)
{
    const char *end = text;
    while (ascii_is_letter_or_digit(*end) || *end == '.' || *end == '-')
        ++end;
    if (end == text)
        return false;
    return *end == '\0' || (*end == ':' && read_count(end + 1, 65535) != 0);
}

void overwrite(char *text)
{
    std::memset(text, 0, std::strlen(text));
}

// The next functions take an option's argument, and return null or what is wrong with it.

const char *take_password(ToolOptions *options)
{
    copy_string_bounded(options->password_copy, option_argument, sizeof options->password_copy);
    options->proxy_password = options->password_copy;
    overwrite(option_argument);
    return nullptr;
}

const char *take_product_version(ToolOptions *options)
{
    if (read_product_version(option_argument, &options->version) != 0)
        return "-product-version takes a number with at most three digits behind the point, which "
               "single precision can send as itself";
    options->version_text = option_argument;
    return nullptr;
}

const char *take_service(ToolOptions *options)
{
    if (!is_service_address(option_argument))
        return "-service takes a host name, or host:port with a port from 1 to 65535";
    options->service = option_argument;
    return nullptr;
}

const char *take_max_time(ToolOptions *options)
{
    options->max_time = read_count(option_argument, longest_max_time);
    if (options->max_time == 0)
        return "-max-time takes a whole number of seconds from 1 to 86400";
    return nullptr;
}

// Where the argument of an option is kept as it is, or null for the other options.
const char **text_slot(int option, ToolOptions *options)
{
    switch (option) {
    case ProductOption:
        return &options->product;
    case ProductLineOption:
        return &options->product_line;
    case VersionNameOption:
        return &options->version_name;
    case MachineIdOption:
        return &options->machine_id;
    case OsOption:
        return &options->os;
    case OsVersionOption:
        return &options->os_version;
    case ProcessorArchOption:
        return &options->processor_arch;
    case ProxyOption:
        return &options->proxy;
    case ProxyUserOption:
        return &options->proxy_user;
    default:
        return nullptr;
    }
}

// Where an option without an argument is noted, or null for the other options.
bool *switch_slot(int option, ToolOptions *options)
{
    switch (option) {
    case JsonOption:
        return &options->json;
    case QuietOption:
        return &options->quiet;
    case ExitCodeOption:
        return &options->exit_code;
    case OpenOption:
        return &options->open;
    case HelpOption:
        return &options->help;
    case VersionOption:
        return &options->show_version;
    default:
        return nullptr;
    }
}

const char *take_option(int option, ToolOptions *options)
{
    if (const char **text = text_slot(option, options)) {
        *text = option_argument;
        return nullptr;
    }
    if (bool *given = switch_slot(option, options)) {
        *given = true;
        return nullptr;
    }
    switch (option) {
    case ProductVersionOption:
        return take_product_version(options);
    case ServiceOption:
        return take_service(options);
    case MaxTimeOption:
        return take_max_time(options);
    default:
        return take_password(options);
    }
}

// The unknown word itself: consumed when it had one dash, still in its place when it had two.
const char *unknown_word_of(char **arguments)
{
    return arguments[option_position == 1 ? option_index - 1 : option_index];
}

int next_option(int argument_count, char **arguments)
{
    option_code = unknown_word;
    return parse_long_only_options(argument_count, arguments, nullptr, option_table, nullptr);
}

// Reads all options. Returns 0, or -1 with what is wrong in *error; that stays empty where the
// parser has said it.
int take_options(int argument_count, char **arguments, ToolOptions *options, std::string *error)
{
    int option = next_option(argument_count, arguments);
    for (; option != -1; option = next_option(argument_count, arguments)) {
        if (option == '?' || option == ':')
            return -1;
        if (option == unknown_word) {
            *error = "Unknown option " + without_value(unknown_word_of(arguments));
            return -1;
        }
        if (const char *wrong = take_option(option, options)) {
            *error = wrong;
            return -1;
        }
    }
    if (option_index >= argument_count)
        return 0;
    *error = "Unexpected argument " + without_value(arguments[option_index]);
    return -1;
}

// Goes on behind a usage error, in silence and over everything that stops the parser, so that no
// password stays visible while the message waits for somebody to read it.
void overwrite_other_passwords(int argument_count, char **arguments)
{
    option_errors = 0;
    while (option_index < argument_count) {
        const int index = option_index;
        if (next_option(argument_count, arguments) == ProxyPassOption)
            overwrite(option_argument);
        if (option_index == index) {
            ++option_index;
            option_position = 1;
        }
    }
}

} // namespace

int read_options(int argument_count, char **arguments, ToolOptions *options)
{
    set_defaults(options);
    option_index = 0;
    std::string error;
    if (take_options(argument_count, arguments, options, &error) == 0)
        return 0;
    overwrite_other_passwords(argument_count, arguments);
    if (!error.empty())
        show_failure(error.c_str());
    return -1;
}

const char *usage_text()
{
    return "Usage: quintral [options]\n"
           "Asks the web service whether a newer version of a product exists.\n"
           "\n"
           "The product and the computer, as they are sent:\n"
           "  -product name\t\tProduct to ask about.\n"
           "  -productline name\tProduct line it belongs to.\n"
           "  -product-version n\tIts version, a number such as 5.2.\n"
           "  -version-name text\tName of that version.\n"
           "  -machine-id text\tIdentifier of this machine, empty unless given.\n"
           "  -os name\t\tOperating system, instead of what the system says.\n"
           "  -os-version text\tIts version, instead of what the system says.\n"
           "  -processor-arch name\tProcessor, instead of what the system says.\n"
           "\n"
           "The connection:\n"
           "  -service host[:port]\tAsk this update service.\n"
           "  -proxy host:port\tUse a proxy server to connect to the internet.\n"
           "  -proxy-user\t\tUsername for proxy authentication.\n"
           "  -proxy-pass\t\tPassword for proxy authentication.\n"
           "  -max-time seconds\tEnd after this time, 1 to 86400; 60 unless given.\n"
           "\n"
           "The answer:\n"
           "  -json\t\t\tPrint one JSON object instead of text.\n"
           "  -quiet\t\tNo sign of life and no remarks.\n"
           "  -exit-code\t\tEnd with status 10 when a newer version exists.\n"
           "  -open\t\t\tOpen the web address when a newer version exists.\n"
           "  -help\t\t\tPrint this text.\n"
           "  -version\t\tPrint the version of this program.\n"
           "\n"
           "Exit status: 0 answered, 1 failure, 2 wrong usage, 3 time limit passed.\n";
}

const char *version_line()
{
    return "quintral " QUINTRAL_VERSION_NAME "\n";
}

} // namespace quintral
