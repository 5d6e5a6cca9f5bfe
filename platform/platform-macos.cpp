// The queries over CoreFoundation and CoreServices. Whatever a Create or Copy call gives is owned
// and released here; a bundle that a Get call gives stays the system's.
#include "platform/platform.h"

#include "support/c-utils/memory.h"

#include <cstring>
#include <limits>

#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>

// Gestalt and the file references are deprecated on later systems, though still there: the first
// systems that the suite runs on have nothing else that tells the version, and its programs pass
// file references.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace quintral {

namespace {

constexpr OSType system_version_selector = 0x73797376; // 'sysv'

const UInt8 *as_bytes(const char *text)
{
    return reinterpret_cast<const UInt8 *>(text);
}

// Owned; null for bytes that are no text in the system's encoding.
CFStringRef make_string(const char *text)
{
    return CFStringCreateWithCString(kCFAllocatorDefault, text, CFStringGetSystemEncoding());
}

// Owned; null where the bytes make no address.
CFURLRef make_address(const char *bytes, std::size_t count)
{
    if (count > static_cast<std::size_t>(std::numeric_limits<CFIndex>::max()))
        return nullptr;
    return CFURLCreateWithBytes(kCFAllocatorDefault, as_bytes(bytes), static_cast<CFIndex>(count),
                                CFStringGetSystemEncoding(), nullptr);
}

// Not owned; null where no such bundle is loaded.
CFBundleRef find_bundle(const char *identifier)
{
    CFStringRef text = make_string(identifier);
    if (text == nullptr)
        return nullptr;
    CFBundleRef bundle = CFBundleGetBundleWithIdentifier(text);
    CFRelease(text);
    return bundle;
}

// The addresses below are owned, and null where there is no such thing.

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
    CFURLRef address = CFBundleCopyResourceURL(bundle, text, nullptr, nullptr);
    CFRelease(text);
    return address;
}

CFURLRef make_folder_address(const char *path)
{
    CFStringRef text = make_string(path);
    if (text == nullptr)
        return nullptr;
    CFURLRef address =
        CFURLCreateWithFileSystemPath(kCFAllocatorDefault, text, kCFURLPOSIXPathStyle, true);
    CFRelease(text);
    return address;
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
        return make_folder_address(QUINTRAL_CONFIG_FOLDER);
    default: // MainBundle, and every number that names no location
        return CFBundleCopyBundleURL(main_bundle);
    }
}

// Writes the path of an address and releases the address. Returns the buffer, or null with the
// buffer untouched for a null address and for one without a path.
char *take_path(CFURLRef address, char *buffer, std::size_t capacity)
{
    if (address == nullptr)
        return nullptr;
    CFStringRef path = CFURLCopyFileSystemPath(address, kCFURLPOSIXPathStyle);
    CFRelease(address);
    if (path == nullptr)
        return nullptr;
    // Deliberately not looked at: a path that does not fit is an answer all the same.
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
    return copy_string_bounded(buffer, "unknown", capacity); // fills the rest with terminators
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
    // Where the path names nothing, the reference stays zero and the status is that of opening it.
    PlatformFileRef ref = {};
    static_cast<void>(platform_make_ref(path, &ref));
    return platform_open_ref(ref);
}

std::int32_t platform_open_url(const char *address, std::size_t count)
{
    CFURLRef url = make_address(address, count);
    if (url == nullptr)
        return PlatformNoAddress;
    const std::int32_t status = LSOpenCFURLRef(url, nullptr);
    CFRelease(url);
    return status;
}

char *platform_bundle_path(char *buffer, std::size_t capacity, unsigned location,
                           const char *resource_name)
{
    // Asked for every location, also for those that have nothing to do with the main bundle:
    // without one, no location has a path.
    CFBundleRef main_bundle = CFBundleGetMainBundle();
    if (main_bundle == nullptr)
        return nullptr;
    return take_path(copy_location(main_bundle, location, resource_name), buffer, capacity);
}

char *platform_plugin_bundle_path(char *buffer, std::size_t capacity)
{
    return take_path(copy_bundle_folder(QUINTRAL_PLUGIN_IDENTIFIER), buffer, capacity);
}

int platform_plugin_resource_path(const char *resource_name, char *buffer, std::size_t capacity)
{
    CFBundleRef bundle = find_bundle(QUINTRAL_PLUGIN_IDENTIFIER);
    if (bundle != nullptr)
        take_path(copy_resource(bundle, resource_name), buffer, capacity);
    return 0;
}

} // namespace quintral
