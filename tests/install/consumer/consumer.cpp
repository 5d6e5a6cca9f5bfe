// Uses functions of each library through the headers as a user includes them.
#include <cstdio>
#include <string>

#include <quintral/cmdline/long-options.h>
#include <quintral/platform/platform.h>
#include <quintral/support/c-utils.h>
#include <quintral/support/clocks.h>
#include <quintral/support/dates.h>
#include <quintral/support/error.h>
#include <quintral/web/form-body.h>
#include <quintral/web/version-update.h>

// The code of an abort that the library throws and the program catches.
static int caught_code()
{
    try {
        quintral::throw_abort(7, "consumer", 1);
    } catch (const quintral::QuintralAbortException &abort) {
        return abort.code;
    }
}

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

    char folder[4096];
    const bool has_folder = quintral::platform_bundle_path(folder, sizeof folder,
                                                           quintral::MainBundle, nullptr) == folder;
    char date[quintral::date_text_size];
    quintral::format_date_compact(2454106, date);
    const bool slept = quintral::sleep_seconds(0) == 0;
    char camel[16];
    quintral::snake_to_camel("has_host", camel);

    const int standard = __cplusplus >= 202002 ? 20 : 17;
    char *line =
        quintral::alloc_printf("C++%d %s %d %s %s %s %s %d", standard, body.c_str(), option, system,
                               date, quintral::web_service_host != nullptr ? camel : "none",
                               has_folder && slept ? "HasFolder" : "none", caught_code());
    std::puts(line);
    quintral::checked_free(line);
    return 0;
}
