// The operations of the macOS sources over the recording frameworks. Each returns a string with the
// result and the buffer, which is filled with '#' before the call. A NUL is shown as '$', and the
// '#'s at the end are left out, so an unchanged buffer is shown as an empty string. The '!'s that a
// failed call leaves are shown as one. Paths are in Mac Roman, in which an e with an acute accent
// is the byte 0x8e.
//
//     set_up_machine();
//     EXPECT_EQ(plugin_bundle_path(), "buffer /Library/First.plugin$");
//     expect_all_released();
#ifndef QUINTRAL_TESTS_PLATFORM_MACOS_OPERATIONS_H
#define QUINTRAL_TESTS_PLATFORM_MACOS_OPERATIONS_H

#include "tests/macos-frameworks/recording.h"

#include <cstddef>
#include <string>
#include <vector>

namespace quintral::tests {

constexpr std::size_t buffer_size = 80; // whatever capacity the operation is given

// A machine on which everything works: three bundles and a proxy.
void set_up_machine();

// Makes the main bundle that of the program /opt/bin/program, which is not in a bundle.
void set_up_bare_program();

// Removes a loaded bundle by its identifier, the main one by "".
void unload(const std::string &identifier);

// Checks that no fault was recorded and that every object was released.
void expect_all_released();

// Entries of the proxy dictionary.
ProxyEntry text_entry(const std::string &text);
ProxyEntry number_entry(int number);
ProxyEntry unreadable_entry(int number);

// Strings joined with ", ".
std::string joined(const std::vector<std::string> &texts);

std::string shown(std::string buffer);

std::string os_version(std::size_t capacity);
std::string bundle_path(unsigned location, const char *name, std::size_t capacity = buffer_size);
std::string plugin_bundle_path(std::size_t capacity = buffer_size);
std::string plugin_resource_path(const char *name, std::size_t capacity = buffer_size);
std::string open_path(const char *path);
std::string open_url(const char *url, std::size_t count);
std::string open_document(const char *text);
std::string make_and_open_ref(const char *path);
std::string http_proxy(std::size_t size = buffer_size);

} // namespace quintral::tests

#endif
