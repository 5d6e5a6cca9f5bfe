// Asks an update service whether a newer version exists, as a plug-in does while its host runs.
// Usage: check-for-update HOST[:PORT]
#include "platform/platform.h"
#include "web/update-check.h"

#include <cstdio>

using namespace quintral;

namespace {

// The client calls this about ten times a second while it waits for the reply. A plug-in lets its
// host handle events here and cancels when the user asks for it; this program waits three seconds.
void on_idle(void *user_data)
{
    if (++*static_cast<int *>(user_data) == 30)
        web_cancel_requested = 1;
}

// The reply may have been altered in transit: control characters must not reach a terminal.
void print_value(const char *label, const char *value)
{
    std::fputs(label, stdout);
    for (; value != nullptr && *value != '\0'; ++value)
        std::putchar((*value >= ' ' && *value <= '~') || *value == '\n' ? *value : ' ');
    std::putchar('\n');
}

} // namespace

int main(int argument_count, char **arguments)
{
    if (argument_count != 2) {
        std::fprintf(stderr, "Usage: check-for-update HOST[:PORT]\n");
        return 2;
    }
    char os[16], os_version[64];
    platform_os_name(os);
    WebUpdateQuery query = {"Quintral Shapes", "Quintral", "5.1",  "5.1 beta",   os,
                            nullptr,           "",         "i386", arguments[1], nullptr};
    query.os_version = platform_os_version(os_version, sizeof os_version);
    int idle_calls = 0;
    web_set_idle_hook(on_idle, &idle_calls);
    WebUpdateReply reply;
    web_update_reply_init(&reply);
    const int result = web_check_for_update(&query, &reply);
    web_set_idle_hook(nullptr, nullptr);
    web_cancel_requested = 0; // a request that came too late would cancel the next check
    if (result == WebOk) {
        print_value("Version: ", reply.version);
        print_value("URL: ", reply.url);
        print_value("Message: ", reply.message);
    } else {
        std::fprintf(stderr, "Error: %s\n", reply.error);
    }
    web_update_reply_free(&reply);
    return result == WebOk ? 0 : 1;
}
