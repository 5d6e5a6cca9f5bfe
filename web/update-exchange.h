// What the two forms of the update query share: sending the eight fields and finding the values in
// a reply. For web/update-check.cpp and web/version-update.cpp only.
#ifndef QUINTRAL_WEB_UPDATE_EXCHANGE_H
#define QUINTRAL_WEB_UPDATE_EXCHANGE_H

#include <string>

#include "web/form-body.h"
#include "web/proxy-settings.h"

namespace quintral {

// The number of fields.
constexpr int update_field_count = 8;

// The values of one query. A null string counts as empty.
struct UpdateFields {
    const char *product;
    const char *product_line;
    float version;
    const char *version_name;
    const char *os;
    const char *os_version;
    const char *machine_id;
    const char *processor_arch;
};

// The form of a query. It points into the query's strings and into its own version string.
struct UpdateForm {
    char version[64];
    WebField fields[update_field_count];
};

// Fills *form, which must not be copied afterwards.
void web_fill_update_form(const UpdateFields &query, UpdateForm *form);

// Returns the URL that the form is posted to.
std::string web_update_url(const char *service);

// The values of a reply, which point into its body; null if not given.
struct UpdateValues {
    const char *version;
    const char *url;
    const char *button;
    const char *message;
};

// Finds the values in a body in place: colons and line feeds are replaced by terminators. See
// web_read_update_body in web/version-update.h.
void web_find_update_values(char *body, UpdateValues *values);

} // namespace quintral

#endif
