// Asks an update service whether a newer version exists, as a plug-in does while its host runs.
// Usage: check-for-update HOST[:PORT]
#include "platform/platform.h"
#include "web/transaction.h"
#include "web/version-update.h"

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
    for (; *value != '\0'; ++value)
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
    platform_os_version(os_version, sizeof os_version);
    int idle_calls = 0;
    web_service_host = arguments[1];
    web_set_idle_hook(on_idle, &idle_calls);
    web_set_reply_limits(8192, 65536);
    char version[1024] = "", address[1024] = "", message[1024] = "";
    const int result = web_version_update("Quintral Shapes", "Quintral", 5.1F, "5.1 beta", os,
                                          os_version, "", "i386", sizeof message, message, version,
                                          address, nullptr, nullptr, 0, nullptr, nullptr);
    web_set_idle_hook(nullptr, nullptr);
    web_cancel_requested = 0; // a request that came too late would cancel the next check
    if (result != WebOk) {
        const char *why = web_last_error(); // empty for a reply without a message
        std::fprintf(stderr, "Error: %s\n", *why != '\0' ? why : "The reply has no message");
        return 1;
    }
    print_value("Version: ", version);
    print_value("URL: ", address);
    print_value("Message: ", message);
}
