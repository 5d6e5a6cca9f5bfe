#include "web/version-update.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

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

// A count of thousandths: number * 2^doublings.
struct Thousandths {
    std::uint64_t number;
    int doublings;
};

// Rounds to the nearest count, a tie to the even one. From 2^24 on a float is a whole number: 24
// bits times a power of two. Below that, a thousand times its 24 bits is exact in a double.
Thousandths count_thousandths(float version)
{
    if (version < 16777216.0F) {
        const double exact = static_cast<double>(version) * 1000;
        const auto number = static_cast<std::uint64_t>(exact);
        const double rest = exact - static_cast<double>(number);
        const bool up = rest > 0.5 || (rest == 0.5 && number % 2 == 1);
        return {number + (up ? 1 : 0), 0};
    }
    std::uint32_t bits = 0;
    std::memcpy(&bits, &version, sizeof bits);
    const std::uint32_t mantissa = (bits & 0x7FFFFFU) | 0x800000U;
    return {std::uint64_t{mantissa} * 1000, static_cast<int>(bits >> 23) - 150};
}

// Writes the decimal digits of a count, the last one first, and at least four. Returns how many.
std::size_t write_digits(Thousandths count, char *digits)
{
    std::size_t length = 0;
    for (; count.number > 0 || length < 4; count.number /= 10)
        digits[length++] = static_cast<char>('0' + count.number % 10);
    for (; count.doublings > 0; --count.doublings) {
        int carry = 0;
        for (std::size_t i = 0; i < length; ++i) {
            const int twice = (digits[i] - '0') * 2 + carry;
            digits[i] = static_cast<char>('0' + twice % 10);
            carry = twice / 10;
        }
        if (carry > 0)
            digits[length++] = '1';
    }
    return length;
}

// Writes a finite number that is not negative as "%.3f" does in the "C" locale, at most 44 bytes.
// Not snprintf: it writes the host program's decimal point, and this is the only number that most
// checks format.
void write_decimal(float version, char *out)
{
    char digits[version_size];
    std::size_t left = write_digits(count_thousandths(version), digits);
    while (left > 0) {
        if (left == 3)
            *out++ = '.';
        *out++ = digits[--left];
    }
    *out = '\0';
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

char *web_format_version(float version, char *buffer, std::size_t size)
{
    char text[version_size];
    char *end = text;
    if (std::signbit(version))
        *end++ = '-';
    if (std::isfinite(version))
        write_decimal(std::fabs(version), end);
    else
        std::strcpy(end, std::isnan(version) ? "nan" : "inf");
    return copy_string_bounded(buffer, text, size);
}

} // namespace quintral
