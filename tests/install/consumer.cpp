// Uses a function of each installed library through the headers as a user includes them.
#include <cstdio>
#include <string>

#include <quintral/cmdline/long-options.h>
#include <quintral/platform/platform.h>
#include <quintral/support/c-utils.h>
#include <quintral/web/form-body.h>
#include <quintral/web/version-update.h>

int main()
{
    const quintral::WebField field = {"a b", "1.5"};
    std::string header;
    std::string body;
    quintral::web_form_body(1, &field, header, body);

    char program[] = "consumer";
    char *arguments[] = {program, nullptr};
    const int option = quintral::parse_long_only_options(1, arguments, "x", nullptr, nullptr);

    char system[16];
    quintral::platform_format_system_version(0x1049, system, sizeof system);

    char *line = quintral::alloc_printf("%s %d %s %s", body.c_str(), option, system,
                                        quintral::web_service_host != nullptr ? "host" : "none");
    std::puts(line);
    quintral::checked_free(line);
    return 0;
}
