#include "web/version-update.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/ascii.h"
#include "support/c-utils.h"
#include "web/transaction.h"
#include "web/update-exchange.h"

namespace quintral {

const char *web_service_host = QUINTRAL_SERVICE_HOST;

namespace {

constexpr std::size_t version_size = 64;

// The reply's strings, released however the query ends.
struct ReplyTexts {
    char *header = nullptr;
    char *body = nullptr;
    ~ReplyTexts()
    {
        std::free(header);
        std::free(body);
    }
};

void store(char *buffer, const char *value, unsigned capacity)
{
    if (buffer != nullptr && value != nullptr)
        copy_string_bounded(buffer, value, capacity);
}

} // namespace

int web_version_update(const char *product, const char *product_line, float version,
                       const char *version_name, const char *os, const char *os_version,
                       const char *machine_id, const char *processor_arch, unsigned capacity,
                       char *message, char *newest_version, char *web_address, char *button,
                       const char *proxy_host, int proxy_port, const char *proxy_user,
                       const char *proxy_password)
{
    UpdateForm form;
    web_fill_update_form(
        {product, product_line, version, version_name, os, os_version, machine_id, processor_arch},
        &form);
    const std::string url = web_update_url(web_service_host);
    ReplyTexts reply;
    const int result =
        web_request(url.c_str(), "POST", update_field_count, form.fields, &reply.header,
                    &reply.body, proxy_host, proxy_port, proxy_user, proxy_password);
    if (result != WebOk)
        return result;
    if (web_check_reply(reply.header) != 0)
        return -1;
    const WebUpdateBuffers buffers = {capacity, message, newest_version, web_address, button};
    return web_read_update_body(reply.body, &buffers);
}

// The values are stored after the whole body has been parsed: each store fills its buffer to the
// capacity, so storing at each of many short lines would take seconds with a large buffer.
int web_read_update_body(char *body, const WebUpdateBuffers *buffers)
{
    UpdateValues values;
    web_find_update_values(body, &values);
    store(buffers->newest_version, values.version, buffers->capacity);
    store(buffers->web_address, values.url, buffers->capacity);
    store(buffers->button, values.button, buffers->capacity);
    if (values.message == nullptr)
        return -1;
    store(buffers->message, values.message, buffers->capacity);
    return 0;
}

// The C library writes the host program's decimal point, of one byte or several, and then exactly
// three digits. A result without a decimal point (inf, nan) is kept.
char *web_format_version(float version, char *buffer, std::size_t size)
{
    char text[version_size];
    std::snprintf(text, sizeof text, "%.3f", static_cast<double>(version));
    const std::size_t length = std::strlen(text);
    std::size_t whole = text[0] == '-' ? 1 : 0;
    while (ascii_is_digit(text[whole]))
        ++whole;
    if (ascii_is_digit(text[length - 1])) {
        text[whole] = '.';
        std::memmove(text + whole + 1, text + length - 3, 4);
    }
    return copy_string_bounded(buffer, text, size);
}

} // namespace quintral
