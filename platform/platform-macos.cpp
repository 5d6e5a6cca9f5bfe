// The platform queries on macOS, with CoreFoundation and CoreServices. Objects returned by Create
// and Copy calls are owned and released here; bundles returned by Get calls belong to the system.
#include "platform/platform.h"

#include "support/c-utils/memory.h"

#include <cstring>
#include <limits>

#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>

// Gestalt and file references are deprecated on later systems but still available. The oldest
// supported systems have no other way to get the version, and existing programs pass file
// references.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace quintral {

namespace {

constexpr OSType system_version_selector = 0x73797376; // 'sysv'

const UInt8 *as_bytes(const char *text)
{
    return reinterpret_cast<const UInt8 *>(text);
}

// Returns an owned object; null for bytes that are not valid in the system's encoding.
CFStringRef make_string(const char *text)
{
    return CFStringCreateWithCString(kCFAllocatorDefault, text, CFStringGetSystemEncoding());
}

// Returns an owned object; null for bytes that are not a valid URL.
CFURLRef make_url(const char *bytes, std::size_t count)
{
    if (count > static_cast<std::size_t>(std::numeric_limits<CFIndex>::max()))
        return nullptr;
    return CFURLCreateWithBytes(kCFAllocatorDefault, as_bytes(bytes), static_cast<CFIndex>(count),
                                CFStringGetSystemEncoding(), nullptr);
}

// Returns an object that is not owned; null if no such bundle is loaded.
CFBundleRef find_bundle(const char *identifier)
{
    CFStringRef text = make_string(identifier);
    if (text == nullptr)
        return nullptr;
    CFBundleRef bundle = CFBundleGetBundleWithIdentifier(text);
    CFRelease(text);
    return bundle;
}

// The URLs returned below are owned, and null if the item does not exist.

CFURLRef copy_bundle_folder(const char *identifier)
{
    CFBundleRef bundle = find_bundle(identifier);
    return bundle != nullptr ? CFBundleCopyBundleURL(bundle) : nullptr;
}

CFURLRef copy_resource(CFBundleRef bundle, const char *name)
{
    CFStringRef text = make_string(name);
    if (text == nullptr)
        return nullptr;
    CFURLRef url = CFBundleCopyResourceURL(bundle, text, nullptr, nullptr);
    CFRelease(text);
    return url;
}

CFURLRef make_folder_url(const char *path)
{
    CFStringRef text = make_string(path);
    if (text == nullptr)
        return nullptr;
    CFURLRef url =
        CFURLCreateWithFileSystemPath(kCFAllocatorDefault, text, kCFURLPOSIXPathStyle, true);
    CFRelease(text);
    return url;
}

CFURLRef copy_location(CFBundleRef main_bundle, unsigned location, const char *resource_name)
{
    switch (location) {
    case MainExecutable:
        return CFBundleCopyExecutableURL(main_bundle);
    case MainSupportFiles:
        return CFBundleCopySupportFilesDirectoryURL(main_bundle);
    case MainResources:
        return CFBundleCopyResourcesDirectoryURL(main_bundle);
    case MainPlugIns:
        return CFBundleCopyBuiltInPlugInsURL(main_bundle);
    case MainNamedResource:
        return copy_resource(main_bundle, resource_name);
    case SecondProductBundle:
        return copy_bundle_folder(QUINTRAL_SECOND_PLUGIN_IDENTIFIER);
    case ConfigFolder:
        return make_folder_url(QUINTRAL_CONFIG_FOLDER);
    default: // MainBundle, and every value that is not a location
        return CFBundleCopyBundleURL(main_bundle);
    }
}

// Writes the path of a URL and releases the URL. Returns the buffer; or null, with the buffer
// unchanged, if the URL is null or has no path.
char *write_path(CFURLRef url, char *buffer, std::size_t capacity)
{
    if (url == nullptr)
        return nullptr;
    CFStringRef path = CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle);
    CFRelease(url);
    if (path == nullptr)
        return nullptr;
    // The result is deliberately ignored: a path that does not fit is a success too.
    static_cast<void>(CFStringGetCString(path, buffer, static_cast<CFIndex>(capacity),
                                         CFStringGetSystemEncoding()));
    CFRelease(path);
    return buffer;
}

} // namespace

void platform_os_name(char *buffer)
{
    std::strcpy(buffer, "Mac OS X");
}

char *platform_os_version(char *buffer, std::size_t capacity)
{
    SInt32 version = 0;
    if (Gestalt(system_version_selector, &version) == 0)
        return platform_format_system_version(static_cast<std::uint32_t>(version), buffer,
                                              capacity);
    return copy_string_bounded(buffer, "unknown", capacity); // fills the rest with NULs
}

std::int32_t platform_make_ref(const char *path, PlatformFileRef *ref)
{
    return FSPathMakeRef(as_bytes(path), ref, nullptr);
}

std::int32_t platform_open_ref(PlatformFileRef ref)
{
    return LSOpenFSRef(&ref, nullptr);
}

std::int32_t platform_open_path(const char *path)
{
    // If the path does not exist, the reference stays zero, and the status is that of opening it.
    PlatformFileRef ref = {};
    static_cast<void>(platform_make_ref(path, &ref));
    return platform_open_ref(ref);
}

std::int32_t platform_open_url(const char *address, std::size_t count)
{
    CFURLRef url = make_url(address, count);
    if (url == nullptr)
        return PlatformNoAddress;
    const std::int32_t status = LSOpenCFURLRef(url, nullptr);
    CFRelease(url);
    return status;
}

char *platform_bundle_path(char *buffer, std::size_t capacity, unsigned location,
                           const char *resource_name)
{
    // Required for every location, even those outside the main bundle: without one, no location has
    // a path.
    CFBundleRef main_bundle = CFBundleGetMainBundle();
    if (main_bundle == nullptr)
        return nullptr;
    return write_path(copy_location(main_bundle, location, resource_name), buffer, capacity);
}

char *platform_plugin_bundle_path(char *buffer, std::size_t capacity)
{
    return write_path(copy_bundle_folder(QUINTRAL_PLUGIN_IDENTIFIER), buffer, capacity);
}

int platform_plugin_resource_path(const char *resource_name, char *buffer, std::size_t capacity)
{
    CFBundleRef bundle = find_bundle(QUINTRAL_PLUGIN_IDENTIFIER);
    if (bundle != nullptr)
        write_path(copy_resource(bundle, resource_name), buffer, capacity);
    return 0;
}

} // namespace quintral
