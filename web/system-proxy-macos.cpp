#include <CoreFoundation/CoreFoundation.h>
#include <SystemConfiguration/SystemConfiguration.h>

#include "web/proxy-settings.h"

namespace quintral {

namespace {

// Reads a number of the proxy dictionary. False if it is missing or not a number.
bool read_number(CFDictionaryRef proxies, CFStringRef key, int *number)
{
    const void *value = CFDictionaryGetValue(proxies, key);
    if (value == nullptr || CFGetTypeID(value) != CFNumberGetTypeID())
        return false;
    return CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberIntType, number);
}

// Reads the proxy's name. False if it is missing, not a string, not ASCII or too long.
bool read_host(CFDictionaryRef proxies, char *host, std::size_t size)
{
    const void *value = CFDictionaryGetValue(proxies, kSCPropNetProxiesHTTPProxy);
    if (value == nullptr || CFGetTypeID(value) != CFStringGetTypeID())
        return false;
    return CFStringGetCString(static_cast<CFStringRef>(value), host, static_cast<CFIndex>(size),
                              kCFStringEncodingASCII);
}

bool read_proxy(CFDictionaryRef proxies, char *host, std::size_t size, std::int32_t *port)
{
    int enabled = 0;
    if (!read_number(proxies, kSCPropNetProxiesHTTPEnable, &enabled) || enabled == 0)
        return false;
    int number = 0;
    if (!read_host(proxies, host, size) ||
        !read_number(proxies, kSCPropNetProxiesHTTPPort, &number))
        return false;
    *port = static_cast<std::uint16_t>(number);
    return true;
}

} // namespace

// Only the three keys of the HTTP proxy matter; entries for other protocols and automatic
// configuration are not consulted.
bool system_http_proxy(char *host, std::size_t size, std::int32_t *port)
{
    CFDictionaryRef proxies = SCDynamicStoreCopyProxies(nullptr);
    const bool found = proxies != nullptr && read_proxy(proxies, host, size, port);
    if (proxies != nullptr)
        CFRelease(proxies);
    if (!found) {
        host[0] = '\0';
        *port = 0;
    }
    return found;
}

} // namespace quintral
