#include "tests/platform/macos-operations.h"

#include "platform/platform.h"
#include "web/proxy-settings.h"

#include <algorithm>
#include <cstdint>

#include <gtest/gtest.h>

namespace quintral::tests {

std::string shown(std::string buffer)
{
    std::replace(buffer.begin(), buffer.end(), '\0', '$');
    const auto both_left = [](char a, char b) { return a == '!' && b == '!'; };
    buffer.erase(std::unique(buffer.begin(), buffer.end(), both_left), buffer.end());
    return buffer.substr(0, buffer.find_last_not_of('#') + 1);
}

std::string joined(const std::vector<std::string> &texts)
{
    std::string all;
    for (const std::string &text : texts)
        all += (all.empty() ? "" : ", ") + text;
    return all;
}

namespace {

std::string shown_result(const char *returned, const std::string &buffer)
{
    if (returned == nullptr)
        return "null " + shown(buffer);
    return (returned == buffer.data() ? "buffer " : "another pointer ") + shown(buffer);
}

std::string shown_opening(std::int32_t returned)
{
    return std::to_string(returned) + ' ' + joined(frameworks.opened);
}

// Fills the stack below the caller, so that an operation does not find zeros by luck.
void fill_stack()
{
    volatile unsigned char bytes[4096];
    for (volatile unsigned char &byte : bytes)
        byte = 0xa5;
}

void (*volatile dirty_stack)() = fill_stack; // a pointer, so that the call is never optimised away

} // namespace

ProxyEntry text_entry(const std::string &text)
{
    return {ProxyEntryKind::Text, text, 0};
}

ProxyEntry number_entry(int number)
{
    return {ProxyEntryKind::Number, "", number};
}

ProxyEntry unreadable_entry(int number)
{
    return {ProxyEntryKind::UnreadableNumber, "", number};
}

void set_up_machine()
{
    frameworks_reset();
    frameworks.system_version = 0x1049;
    frameworks.bundles = {
        {"",
         "/Applications/Caf\u00e9.app",
         {"welcome.txt", "caf\u00e9.txt", "pictures/sky.png", "en.lproj/hello.txt"}},
        {QUINTRAL_PLUGIN_IDENTIFIER, "/Library/First.plugin", {"tools.txt"}},
        {QUINTRAL_SECOND_PLUGIN_IDENTIFIER, "/Library/Second.plugin", {"brushes.txt"}},
    };
    frameworks.has_proxies = true;
    frameworks.proxies = {{"HTTPEnable", number_entry(1)},
                          {"HTTPProxy", text_entry("cache")},
                          {"HTTPPort", number_entry(3128)}};
}

void set_up_bare_program()
{
    set_up_machine();
    frameworks.bundles[0] = {"", "/opt/bin", {"welcome.txt"}, true};
}

void unload(const std::string &identifier)
{
    std::vector<LoadedBundle> &bundles = frameworks.bundles;
    bundles.erase(
        std::remove_if(bundles.begin(), bundles.end(),
                       [&](const LoadedBundle &bundle) { return bundle.identifier == identifier; }),
        bundles.end());
}

void expect_all_released()
{
    EXPECT_EQ(joined(frameworks.faults), "");
    EXPECT_EQ(frameworks_objects_left(), 0) << "of " << frameworks_objects_made();
}

std::string os_version(std::size_t capacity)
{
    std::string buffer(buffer_size, '#');
    const char *returned = platform_os_version(buffer.data(), capacity);
    return shown_result(returned, buffer);
}

std::string bundle_path(unsigned location, const char *name, std::size_t capacity)
{
    std::string buffer(buffer_size, '#');
    const char *returned = platform_bundle_path(buffer.data(), capacity, location, name);
    return shown_result(returned, buffer);
}

std::string plugin_bundle_path(std::size_t capacity)
{
    std::string buffer(buffer_size, '#');
    const char *returned = platform_plugin_bundle_path(buffer.data(), capacity);
    return shown_result(returned, buffer);
}

std::string plugin_resource_path(const char *name, std::size_t capacity)
{
    std::string buffer(buffer_size, '#');
    const int returned = platform_plugin_resource_path(name, buffer.data(), capacity);
    return std::to_string(returned) + ' ' + shown(buffer);
}

std::string open_path(const char *path)
{
    dirty_stack();
    return shown_opening(platform_open_path(path));
}

std::string open_url(const char *url, std::size_t count)
{
    return shown_opening(platform_open_url(url, count));
}

std::string open_document(const char *text)
{
    dirty_stack();
    return shown_opening(platform_open_document(text));
}

std::string make_and_open_ref(const char *path)
{
    FSRef ref = {};
    const std::int32_t made = platform_make_ref(path, &ref);
    return std::to_string(made) + ' ' + shown_opening(platform_open_ref(ref));
}

std::string http_proxy(std::size_t size)
{
    std::string host(buffer_size, '#');
    std::int32_t port = -1;
    const bool found = system_http_proxy(host.data(), size, &port);
    return (found ? "true " : "false ") + shown(host) + ' ' + std::to_string(port);
}

} // namespace quintral::tests
