// Prints the results of the bundle queries for itself. Tests copy it into installed trees:
//
//     bundle-paths CAPACITY NAME [REMOVED [REPLACEMENT]]
//
// It prints one line for each location, by number, one for the plug-in bundle ("plugin") and one
// for its resource NAME ("resource"): the path, or "-" if the result was null and the buffer
// untouched. NAME is also the resource of the main bundle; NULL means no name. Before the first
// query REMOVED is removed, or replaced by REPLACEMENT.
#include "platform/platform.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <unistd.h>

namespace {

constexpr std::size_t margin = 16; // bytes after the capacity, which must stay unchanged

struct Buffer {
    std::string bytes;
    std::size_t capacity;
};

Buffer make_buffer(std::size_t capacity)
{
    return {std::string(capacity + margin, '#'), capacity};
}

std::string text_of(const Buffer &buffer)
{
    const std::string text = buffer.bytes.substr(0, buffer.capacity);
    if (buffer.bytes.substr(buffer.capacity) != std::string(margin, '#'))
        return "WRITTEN PAST THE CAPACITY";
    if (text == std::string(buffer.capacity, '#'))
        return "-";
    if (text.find('\0') == std::string::npos)
        return "NO TERMINATOR";
    return text.c_str();
}

void print_answer(const std::string &key, const Buffer &buffer, const char *result)
{
    std::string text = text_of(buffer);
    if (result == nullptr && text != "-")
        text = "NULL, BUT THE BUFFER WAS CHANGED";
    if (result != nullptr && result != buffer.bytes.data())
        text = "ANOTHER POINTER";
    if (result != nullptr && text == "-")
        text = "NOT NULL, BUT THE BUFFER IS UNCHANGED";
    std::printf("%s %s\n", key.c_str(), text.c_str());
}

void print_answers(std::size_t capacity, const char *name)
{
    for (const unsigned location : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 9U, UINT_MAX}) {
        Buffer buffer = make_buffer(capacity);
        const char *result =
            quintral::platform_bundle_path(buffer.bytes.data(), capacity, location, name);
        print_answer(std::to_string(location), buffer, result);
    }
    Buffer plugin = make_buffer(capacity);
    print_answer("plugin", plugin,
                 quintral::platform_plugin_bundle_path(plugin.bytes.data(), capacity));
    Buffer resource = make_buffer(capacity);
    const int status =
        quintral::platform_plugin_resource_path(name, resource.bytes.data(), capacity);
    std::printf("resource %s\n", status == 0 ? text_of(resource).c_str() : "NOT 0");
}

} // namespace

int main(int argument_count, char **arguments)
{
    if (argument_count < 3)
        return 2;
    if (argument_count == 4 && unlink(arguments[3]) != 0)
        return 3;
    if (argument_count == 5 && std::rename(arguments[4], arguments[3]) != 0)
        return 4;
    const char *name = std::strcmp(arguments[2], "NULL") == 0 ? nullptr : arguments[2];
    print_answers(static_cast<std::size_t>(std::atol(arguments[1])), name);
    return 0;
}
