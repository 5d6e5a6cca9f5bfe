#include <quintral/web/version-update.h>

#include <cstdio>

using namespace quintral;

// The argument is the update service, host or host:port.
int main(int argument_count, char **arguments)
{
    if (argument_count == 2)
        web_service_host = arguments[1];
    char message[1024] = "", newest[1024] = "";
    const int result = web_version_update("Quintral Shapes", "Quintral", 5.0F, "5.0", "Linux",
                                          "6.1", "", "i386", sizeof newest, message, newest,
                                          nullptr, nullptr, nullptr, 0, nullptr, nullptr);
    if (result == 0)
        std::printf("%s\n%s", newest, message);
    return result == 0 ? 0 : 1;
}
