// The body of an update reply: the result and every byte of the four buffers are compared with a
// second reader of the same body.
//
// An input: a byte that says which buffers are given (bits 0 to 2: version, address, button), a
// byte with their capacity, then the body.
#include "fuzz/fuzz.h"
#include "web/version-update.h"

#include <algorithm>
#include <map>
#include <string>

namespace {

using namespace quintral;
using namespace quintral::fuzz;

// The keys and values of the lines, up to the message. If a key occurs twice, the later value is
// used.
std::map<std::string, std::string> read_lines(const std::string &body)
{
    std::map<std::string, std::string> values;
    for (std::size_t line = 0; line < body.size();) {
        const std::size_t colon = body.find(':', line);
        if (colon == std::string::npos)
            break;
        const std::string key = body.substr(line, colon - line);
        const std::size_t value = std::min(colon + 2, body.size());
        if (key == "Message") {
            values[key] = body.substr(value);
            break;
        }
        const std::size_t end = body.find('\n', value);
        if (end == std::string::npos)
            break;
        values[key] = body.substr(value, end - value);
        line = end + 1;
    }
    return values;
}

// A buffer is untouched if its key does not occur; otherwise it contains the value, then NULs up to
// its end.
void check_buffer(const ExactBlock &buffer, const std::map<std::string, std::string> &values,
                  const char *key)
{
    const auto found = values.find(key);
    if (found == values.end() || buffer.size == 0) {
        FUZZ_CHECK(is_untouched_from(buffer, 0));
        return;
    }
    std::string expected = found->second.substr(0, buffer.size - 1);
    expected.resize(buffer.size, '\0');
    FUZZ_CHECK(std::memcmp(buffer.data, expected.data(), buffer.size) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    Input input = {bytes, size};
    const unsigned given = take_byte(&input);
    const unsigned capacity = take_byte(&input);
    const std::string text = take_text(&input);
    const ExactBlock body(text);
    const ExactBlock message(capacity);
    const ExactBlock version(capacity);
    const ExactBlock address(capacity);
    const ExactBlock button(capacity);
    const WebUpdateBuffers buffers = {
        capacity, message.data, (given & 1U) != 0 ? version.data : nullptr,
        (given & 2U) != 0 ? address.data : nullptr, (given & 4U) != 0 ? button.data : nullptr};
    const int result = web_read_update_body(body.data, &buffers);

    std::map<std::string, std::string> values = read_lines(text);
    FUZZ_CHECK(result == (values.count("Message") != 0 ? 0 : -1));
    if (buffers.newest_version == nullptr)
        values.erase("Version");
    if (buffers.web_address == nullptr)
        values.erase("URL");
    if (buffers.button == nullptr)
        values.erase("Button");
    check_buffer(message, values, "Message");
    check_buffer(version, values, "Version");
    check_buffer(address, values, "URL");
    check_buffer(button, values, "Button");
    return 0;
}
