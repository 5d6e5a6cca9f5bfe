// The utility's options: the table that defines them, reading the command line, the usage text.
#ifndef QUINTRAL_TOOL_OPTIONS_H
#define QUINTRAL_TOOL_OPTIONS_H

#include <cstddef>
#include <string>

namespace quintral {

// What the command line asks for. The strings point into the argument vector, into constants, or
// into the record's own buffers, so the record must not be copied.
struct ToolOptions {
    const char *product;
    const char *product_line;
    const char *version_text; // the product version as typed
    float version;            // the same as a number
    const char *version_name;
    const char *machine_id;
    const char *os;
    const char *os_version;
    const char *processor_arch;
    const char *service;        // host or host:port, null for the one set at build time
    const char *proxy;          // as typed, null if not given
    const char *proxy_user;     // as typed, null if not given
    const char *proxy_password; // null if not given, otherwise points to password_copy
    int max_time;               // seconds
    bool json;
    bool quiet;
    bool exit_code;
    bool open;
    bool help;
    bool show_version;

    char password_copy[256];
    char os_name_buffer[16];
    char os_version_buffer[256];
    char processor_buffer[256];
};

// Where the usage text lists an option.
enum class OptionGroup { Query, Connection, Answer, Program };

// One option. It fills one member of ToolOptions: `string` with its argument as typed, `given` with
// true, or what `read` checks and converts.
struct OptionRow {
    OptionGroup group;
    const char *name;
    const char *argument; // as the usage text shows it: "" for one without a name, null for none
    const char *ToolOptions::*string;
    bool ToolOptions::*given;
    // Returns null, or the message of a usage error. May overwrite the argument.
    const char *(*read)(ToolOptions *options, char *argument);
    const char *help; // one line, a sentence
};

// All options, in the order in which the parser looks for them.
extern const OptionRow option_rows[];
extern const std::size_t option_count;

// Reads the command line into *options, starting from the defaults: the utility's own product,
// version and names, the operating system and processor as the system reports them, an empty
// machine identifier, 60 seconds.
//
// Every proxy password is overwritten in the argument vector as soon as it is read, so that it does
// not stay visible in the process list. A copy of its first 255 bytes (all that ProxySettings
// holds) stays in the record.
//
// Returns 0, or -1 for a usage error, which has been reported on standard error as one line. The
// line never shows the value after a '=', except for an ambiguous option, where the parser's own
// message repeats the word as typed.
int read_options(int argument_count, char **arguments, ToolOptions *options);

// Returns the usage text, which ends in a line feed.
std::string usage_text();

// Returns the line that -version prints.
const char *version_line();

} // namespace quintral

#endif
