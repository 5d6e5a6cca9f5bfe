// How a plug-in uses the diagnostics: messages shown by its host, aborts caught where the host
// calls in, text with a tag, indented output, and the capture that a test harness reads.
#include "support/error.h"

#include <cstdio>

using namespace quintral;

namespace {

// Stands for the host's own way to show a message.
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

// What the host calls: no abort leaves the plug-in. 0 for success, -1 for failure.
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

// What a test harness does around the code under test.
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

    // The default handlers, which write to standard error.
    report_message(Error, "Close file failed.");
    print_text("Saved.\n", "status");
    std::printf("%d messages\n", message_count());
    return 0;
}
