// How a plug-in uses the diagnostics: messages that its host shows, aborts caught in the plug-in's
// entry point, tagged text, indented output, and the output that a test harness captures.
#include "support/error.h"

#include <cstdio>

using namespace quintral;

namespace {

// Replace this with the host's way to show a message.
void show_in_host(MessageLevel level, const char *text)
{
    char line[256];
    format_message(level, text, line, sizeof line);
    std::printf("[host] %s\n", line);
}

void set_layer_width(int width)
{
    QUINTRAL_ASSERT(width > 0);
    report_message(Note, "The layer is now %d pixels wide.", width);
}

// Called by the host. No abort exception may leave the plug-in. Returns 0, or -1 on failure.
int entry_point(int width)
{
    try {
        set_layer_width(width);
        return 0;
    } catch (const QuintralAbortException &abort) {
        std::printf("[host] abort %d at %s:%d\n", abort.code, abort.file, abort.line);
        return -1;
    }
}

void list_layers()
{
    set_output_stream(stdout);
    output_printf("Layers:\n");
    set_output_indent(2);
    output_printf("%s\n%s\n", "background", "title");
    set_output_indent(0);
}

// Around the code under test, a test harness installs the test handlers.
void report_to_harness()
{
    set_message_handler(test_message_handler);
    set_print_handler(test_print_handler);
    report_message(Warning, "low disk");
    print_text("hello", "status");
    set_message_handler(nullptr);
    set_print_handler(nullptr);
}

} // namespace

int main()
{
    const MessageHandler previous = set_message_handler(show_in_host);
    entry_point(640);
    entry_point(-1);
    set_message_handler(previous);

    list_layers();
    report_to_harness();

    // The default handlers write to standard error.
    report_message(Error, "Close file failed.");
    print_text("Saved.\n", "status");
    std::printf("%d messages\n", message_count());
    return 0;
}
