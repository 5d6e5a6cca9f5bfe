#include "web/version-update.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/ascii.h"
#include "support/c-utils.h"
#include "web/transaction.h"

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

// One of the optional values: its destination, and the value of its key's last line so far.
struct OptionalValue {
    const char *key;
    char *buffer;
    const char *text;
};

using OptionalValues = OptionalValue[3];

void remember_value(const char *key, const char *text, OptionalValues &values)
{
    for (OptionalValue &value : values) {
        if (std::strcmp(key, value.key) == 0)
            value.text = text;
    }
}

// Finds the value of the "Message" line and the optional values before it. Returns null if there is
// no such line.
const char *find_message(char *body, OptionalValues &values)
{
    const char *const end = body + std::strlen(body);
    char *key = body;
    while (key != end) {
        char *colon = std::strchr(key, ':');
        if (colon == nullptr)
            return nullptr;
        *colon = '\0';
        char *value = colon + 1 == end ? colon + 1 : colon + 2;
        if (std::strcmp(key, "Message") == 0)
            return value;
        char *line_feed = std::strchr(value, '\n');
        if (line_feed == nullptr)
            return nullptr;
        *line_feed = '\0';
        remember_value(key, value, values);
        key = line_feed + 1;
    }
    return nullptr;
}

} // namespace

int web_version_update(const char *product, const char *product_line, float version,
                       const char *version_name, const char *os, const char *os_version,
                       const char *machine_id, const char *processor_arch, unsigned capacity,
                       char *message, char *newest_version, char *web_address, char *button,
                       const char *proxy_host, int proxy_port, const char *proxy_user,
                       const char *proxy_password)
{
    char version_text[version_size];
    const WebField fields[] = {
        {"product", product},
        {"productline", product_line},
        {"version", web_format_version(version, version_text, sizeof version_text)},
        {"version_name", version_name},
        {"os", os},
        {"os_version", os_version},
        {"machine_id", machine_id},
        {"processor_arch", processor_arch},
    };
    const std::string url = std::string("http://") + web_service_host + "/version-update.php";
    ReplyTexts reply;
    const int result = web_request(url.c_str(), "POST", 8, fields, &reply.header, &reply.body,
                                   proxy_host, proxy_port, proxy_user, proxy_password);
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
    OptionalValues values = {
        {"Version", buffers->newest_version, nullptr},
        {"URL", buffers->web_address, nullptr},
        {"Button", buffers->button, nullptr},
    };
    const char *const message = find_message(body, values);
    for (const OptionalValue &value : values) {
        if (value.text != nullptr && value.buffer != nullptr)
            copy_string_bounded(value.buffer, value.text, buffers->capacity);
    }
    if (message == nullptr)
        return -1;
    copy_string_bounded(buffers->message, message, buffers->capacity);
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
