// The utility's options: their table, their checks and the usage text.
#ifndef QUINTRAL_TOOL_OPTIONS_H
#define QUINTRAL_TOOL_OPTIONS_H

namespace quintral {

// What the command line asks for. Texts point into the argument vector, into constants or into what
// the system said of itself; all live as long as the process.
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
    const char *service; // host or host:port, null for the build's own
    const char *proxy;   // as typed, null when not given; so are the next two
    const char *proxy_user;
    const char *proxy_password; // points to password_copy
    char password_copy[256];
    int max_time; // seconds
    bool json;
    bool quiet;
    bool exit_code;
    bool open;
    bool help;
    bool show_version;
};

// Reads the command line into *options, defaults first: the utility's own product, version and
// names, what the system says of itself, an empty machine identifier, 60 seconds.
//
// Every proxy password is overwritten in the argument vector as soon as it is read, so that it does
// not stay visible in the process list; a copy of its first 255 bytes (all that ProxySettings
// holds) stays in the record.
//
// Returns 0, or -1 for a usage error, which has been shown on standard error as one line. The line
// never shows what stands behind a '=', but for that of an ambiguous word, which is the parser's
// own and shows the word as typed.
int read_options(int argument_count, char **arguments, ToolOptions *options);

// The lines that explain the options, the last one ended by a line feed.
const char *usage_text();

// The line that -version prints.
const char *version_line();

} // namespace quintral

#endif
