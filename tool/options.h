// The utility's options: the table that defines them and the usage text made from it.
#ifndef QUINTRAL_TOOL_OPTIONS_H
#define QUINTRAL_TOOL_OPTIONS_H

#include <cstddef>
#include <string>

namespace quintral {

// What the command line asks for. Strings that were not given are null; the others point into the
// argument vector or into the record's own buffer, so the record must not be copied.
struct ToolOptions {
    const char *product;
    const char *product_line;
    const char *product_version;
    const char *version_name;
    const char *machine_id;
    const char *os;
    const char *os_version;
    const char *processor_arch;

    const char *service; // host or host:port
    const char *proxy;
    const char *proxy_user;
    const char *proxy_password; // points to password_copy
    const char *password_file;
    int max_time; // seconds, 60 if not given

    bool json;
    bool quiet;
    bool exit_code;
    bool open;

    bool show_request;
    bool explain_proxy;
    const char *record;
    const char *parse;

    bool help;
    bool show_version;

    char password_copy[256];
};

// Where the usage text lists an option.
enum class OptionGroup { Query, Connection, Answer, Inspection, Program };

// One option. It fills one member of ToolOptions: `string` with its argument as typed, `given` with
// true, or what `read` checks and converts.
struct OptionRow {
    OptionGroup group;
    bool secret; // the argument is overwritten once it has been read
    const char *name;
    const char *argument; // as the usage text shows it: "" for one without a name, null for none
    const char *ToolOptions::*string;
    bool ToolOptions::*given;
    const char *(*read)(ToolOptions *options, char *argument); // null, or a usage error's message
    const char *help;                                          // one line, a sentence
};

// All options, in the order in which the parser looks for them.
extern const OptionRow option_rows[];
extern const std::size_t option_count;

// Returns the usage text, which ends in a line feed.
std::string usage_text();

// Returns the line that -version prints.
const char *version_line();

} // namespace quintral

#endif
