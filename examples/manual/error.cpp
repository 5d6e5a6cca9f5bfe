#include <quintral/support/error.h>

#include <cstdio>

using namespace quintral;

// A host shows messages in its own way.
static void show_in_host(MessageLevel level, const char *text)
{
    char line[512];
    format_message(level, text, line, sizeof line);
    std::printf("[host] %s\n", line);
}

int main()
{
    const MessageHandler previous = set_message_handler(show_in_host);
    report_message(Info, "%s: %d of %d frames", "waves", 12, 24);
    set_message_handler(previous);
    try {
        QUINTRAL_ASSERT(message_count() == 0);
    } catch (const QuintralAbortException &abort) {
        std::printf("abort %d at %s:%d\n", abort.code, abort.file, abort.line);
    }
    return 0;
}
