#include "web/update-exchange.h"

#include <cstring>

#include "web/version-update.h"

namespace quintral {

namespace {

void remember(const char *key, const char *value, UpdateValues *values)
{
    if (std::strcmp(key, "Version") == 0)
        values->version = value;
    else if (std::strcmp(key, "URL") == 0)
        values->url = value;
    else if (std::strcmp(key, "Button") == 0)
        values->button = value;
}

} // namespace

void web_fill_update_form(const UpdateFields &query, UpdateForm *form)
{
    const WebField fields[update_field_count] = {
        {"product", query.product},
        {"productline", query.product_line},
        {"version", web_format_version(query.version, form->version, sizeof form->version)},
        {"version_name", query.version_name},
        {"os", query.os},
        {"os_version", query.os_version},
        {"machine_id", query.machine_id},
        {"processor_arch", query.processor_arch},
    };
    std::memcpy(form->fields, fields, sizeof fields);
}

std::string web_update_url(const char *service)
{
    return std::string("http://") + service + "/version-update.php";
}

void web_find_update_values(char *body, UpdateValues *values)
{
    *values = {};
    const char *const end = body + std::strlen(body);
    char *key = body;
    while (key != end) {
        char *colon = std::strchr(key, ':');
        if (colon == nullptr)
            return;
        *colon = '\0';
        char *value = colon + 1 == end ? colon + 1 : colon + 2;
        if (std::strcmp(key, "Message") == 0) {
            values->message = value;
            return;
        }
        char *line_feed = std::strchr(value, '\n');
        if (line_feed == nullptr)
            return;
        *line_feed = '\0';
        remember(key, value, values);
        key = line_feed + 1;
    }
}

} // namespace quintral
