#include "tests/macos-frameworks/recording.h"

#include "tests/macos-frameworks/mac-roman.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <deque>
#include <iterator>

namespace quintral::tests {

Frameworks frameworks;

namespace {

enum class Kind : CFTypeID { Number = 1, Text, Url, Bundle, Dictionary };

// One record for each handle that a call returned. None is freed before the next reset, so that a
// handle used too late is recognised.
struct Object {
    Kind kind;
    std::string text; // in UTF-8; of a URL its string
    std::string path; // of a URL; empty if it has none
    int number;       // of a number
    bool is_readable; // of a number
    const LoadedBundle *bundle;
    const Object *keeper; // the owner of a borrowed object; null for the system
    bool is_owned;        // by the caller that made it
    bool is_released;
};

std::deque<Object> objects;

// The three keys of the proxy dictionary; their handles point here.
const char proxy_key_names[][11] = {"HTTPEnable", "HTTPProxy", "HTTPPort"};

Object new_object(Kind kind, const std::string &text)
{
    Object object = {};
    object.kind = kind;
    object.text = text;
    return object;
}

const void *give_owned(Object object)
{
    object.is_owned = true;
    return &objects.emplace_back(object);
}

const void *give_borrowed(Object object, const Object *keeper)
{
    object.keeper = keeper;
    return &objects.emplace_back(object);
}

void record_fault(const char *call, const char *what)
{
    frameworks.faults.push_back(std::string(call) + ": " + what);
}

void require(bool holds, const char *call, const char *what)
{
    if (!holds)
        record_fault(call, what);
}

// Records a call that can fail. True if this one must fail.
bool fails(const char *call)
{
    frameworks.calls.emplace_back(call);
    return frameworks.calls.size() == frameworks.failing_call;
}

bool is_gone(const Object &object)
{
    return object.is_released || (object.keeper != nullptr && object.keeper->is_released);
}

// The live object of a handle, or null with a fault recorded.
Object *live_object(const char *call, const void *handle)
{
    if (handle == nullptr) {
        record_fault(call, "null");
        return nullptr;
    }
    const auto found = std::find_if(objects.begin(), objects.end(),
                                    [&](const Object &object) { return &object == handle; });
    if (found == objects.end()) {
        record_fault(call, "not an object");
        return nullptr;
    }
    if (is_gone(*found)) {
        record_fault(call, "released object");
        return nullptr;
    }
    return &*found;
}

Object *live_object(const char *call, const void *handle, Kind kind)
{
    Object *object = live_object(call, handle);
    if (object == nullptr || object->kind == kind)
        return object;
    record_fault(call, "object of another type");
    return nullptr;
}

bool is_ascii(const std::string &text)
{
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// Writes the string's bytes in an encoding. False if it has a character that the encoding lacks.
bool encode(const char *call, const std::string &text, CFStringEncoding encoding,
            std::string *bytes)
{
    *bytes = text;
    if (encoding == kCFStringEncodingASCII)
        return is_ascii(text);
    require(encoding == recorded_system_encoding, call, "unexpected encoding");
    return mac_roman_from_utf8(text, bytes);
}

std::string decode(const char *call, const std::string &bytes, CFStringEncoding encoding)
{
    require(encoding == recorded_system_encoding, call, "unexpected encoding");
    return utf8_from_mac_roman(bytes);
}

// Escapes spaces and what is not ASCII. How the system treats other characters that URLs lack is
// not recorded.
std::string escape(const std::string &text)
{
    const char *digits = "0123456789ABCDEF";
    std::string escaped;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte > ' ' && byte < 0x80)
            escaped += c;
        else
            escaped += {'%', digits[byte / 16], digits[byte % 16]};
    }
    return escaped;
}

CFBundleRef give_bundle(const std::string &identifier)
{
    for (const LoadedBundle &bundle : frameworks.bundles) {
        if (bundle.identifier == identifier) {
            Object object = new_object(Kind::Bundle, "");
            object.bundle = &bundle;
            // Unlike all other objects, a bundle is a pointer to non-const.
            return static_cast<CFBundleRef>(const_cast<void *>(give_borrowed(object, nullptr)));
        }
    }
    return nullptr;
}

CFURLRef give_url(const std::string &path)
{
    Object url = new_object(Kind::Url, path);
    url.path = path;
    return static_cast<CFURLRef>(give_owned(url));
}

struct Place {
    bool is_absolute;
    const char *below; // the folder of the bundle
};

constexpr Place bundle_folder = {true, ""};

// The URL of something in a bundle, or of the same beside a bare program.
CFURLRef copy_bundle_url(const char *call, CFBundleRef handle, Place place, Place place_of_bare)
{
    const bool failing = fails(call);
    const Object *object = live_object(call, handle, Kind::Bundle);
    if (object == nullptr || failing)
        return nullptr;
    const Place chosen = object->bundle->is_bare ? place_of_bare : place;
    return give_url((chosen.is_absolute ? object->bundle->root : "") + chosen.below);
}

bool is_at_or_in(const std::string &path, const std::string &folder)
{
    return path == folder || path.compare(0, folder.size() + 1, folder + '/') == 0;
}

// The path of a resource in the resources folder; empty if it is not found.
std::string find_resource(const LoadedBundle &bundle, const std::string &name)
{
    if (name == "../Info.plist" && !bundle.is_bare)
        return name;
    for (const std::string &file : bundle.resources) {
        if (name.empty())
            return file;
        for (const std::string &path : {name, "en.lproj/" + name}) {
            if (is_at_or_in(file, path))
                return path;
        }
    }
    return "";
}

const void *give_proxy_entry(const ProxyEntry &entry, const Object *dictionary)
{
    if (entry.kind == ProxyEntryKind::Text)
        return give_borrowed(new_object(Kind::Text, entry.text), dictionary);
    Object number = new_object(Kind::Number, "");
    number.number = entry.number;
    number.is_readable = entry.kind == ProxyEntryKind::Number;
    return give_borrowed(number, dictionary);
}

// True if a reference ends in zeros only, at least one.
bool is_valid_reference(const UInt8 *first_zero, const UInt8 *end)
{
    return first_zero != end && std::all_of(first_zero, end, [](UInt8 byte) { return byte == 0; });
}

const char *find_proxy_key(const void *key)
{
    for (const char *name : proxy_key_names) {
        if (name == key)
            return name;
    }
    return nullptr;
}

} // namespace

void frameworks_reset()
{
    frameworks = {};
    objects.clear();
}

int frameworks_objects_left()
{
    return static_cast<int>(std::count_if(objects.begin(), objects.end(), [](const Object &object) {
        return object.is_owned && !object.is_released;
    }));
}

int frameworks_objects_made()
{
    return static_cast<int>(std::count_if(objects.begin(), objects.end(),
                                          [](const Object &object) { return object.is_owned; }));
}

} // namespace quintral::tests

using namespace quintral::tests;

extern "C" {

const CFAllocatorRef kCFAllocatorDefault = nullptr;

const CFStringRef kSCPropNetProxiesHTTPEnable = reinterpret_cast<CFStringRef>(proxy_key_names[0]);
const CFStringRef kSCPropNetProxiesHTTPProxy = reinterpret_cast<CFStringRef>(proxy_key_names[1]);
const CFStringRef kSCPropNetProxiesHTTPPort = reinterpret_cast<CFStringRef>(proxy_key_names[2]);

CFTypeID CFGetTypeID(CFTypeRef cf)
{
    const Object *object = live_object(__func__, cf);
    return object != nullptr ? static_cast<CFTypeID>(object->kind) : 0;
}

void CFRelease(CFTypeRef cf)
{
    Object *object = live_object(__func__, cf);
    if (object == nullptr)
        return;
    require(object->is_owned, __func__, "borrowed object");
    object->is_released = true;
}

CFTypeID CFStringGetTypeID(void)
{
    return static_cast<CFTypeID>(Kind::Text);
}

CFStringEncoding CFStringGetSystemEncoding(void)
{
    return recorded_system_encoding;
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef alloc, const char *cStr,
                                      CFStringEncoding encoding)
{
    require(alloc == kCFAllocatorDefault, __func__, "unexpected allocator");
    require(cStr != nullptr, __func__, "null");
    if (fails(__func__) || cStr == nullptr)
        return nullptr;
    const std::string text = decode(__func__, cStr, encoding);
    return static_cast<CFStringRef>(give_owned(new_object(Kind::Text, text)));
}

// After a failure the first byte is 0 and the rest may be anything, here '!'.
Boolean CFStringGetCString(CFStringRef theString, char *buffer, CFIndex bufferSize,
                           CFStringEncoding encoding)
{
    const bool failing = fails(__func__);
    const Object *string = live_object(__func__, theString, Kind::Text);
    require(bufferSize > 0, __func__, "no space");
    if (string == nullptr || bufferSize <= 0)
        return false;
    const auto size = static_cast<std::size_t>(bufferSize);
    std::string bytes;
    if (!encode(__func__, string->text, encoding, &bytes) || failing || bytes.size() >= size) {
        std::memset(buffer, '!', size);
        buffer[0] = '\0';
        return false;
    }
    std::memcpy(buffer, bytes.c_str(), bytes.size() + 1);
    return true;
}

CFTypeID CFNumberGetTypeID(void)
{
    return static_cast<CFTypeID>(Kind::Number);
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void *valuePtr)
{
    const bool failing = fails(__func__);
    const Object *object = live_object(__func__, number, Kind::Number);
    require(theType == kCFNumberIntType, __func__, "unexpected type of number");
    if (object == nullptr || theType != kCFNumberIntType)
        return false;
    std::memcpy(valuePtr, &object->number, sizeof object->number);
    return !failing && object->is_readable;
}

const void *CFDictionaryGetValue(CFDictionaryRef theDict, const void *key)
{
    const bool failing = fails(__func__);
    const Object *dictionary = live_object(__func__, theDict, Kind::Dictionary);
    const char *name = find_proxy_key(key);
    require(name != nullptr, __func__, "unexpected key");
    if (dictionary == nullptr || name == nullptr || failing)
        return nullptr;
    const auto found = frameworks.proxies.find(name);
    return found != frameworks.proxies.end() ? give_proxy_entry(found->second, dictionary)
                                             : nullptr;
}

// No URL contains a NUL. Every other byte is a character of the system encoding.
CFURLRef CFURLCreateWithBytes(CFAllocatorRef allocator, const UInt8 *URLBytes, CFIndex length,
                              CFStringEncoding encoding, CFURLRef baseURL)
{
    require(allocator == kCFAllocatorDefault, __func__, "unexpected allocator");
    require(baseURL == nullptr, __func__, "unexpected base");
    require(length >= 0, __func__, "negative length");
    if (fails(__func__) || length < 0)
        return nullptr;
    const std::string bytes(reinterpret_cast<const char *>(URLBytes),
                            static_cast<std::size_t>(length));
    if (bytes.find('\0') != std::string::npos)
        return nullptr;
    const std::string text = escape(decode(__func__, bytes, encoding));
    return static_cast<CFURLRef>(give_owned(new_object(Kind::Url, text)));
}

CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef filePath,
                                       CFURLPathStyle pathStyle, Boolean isDirectory)
{
    const bool failing = fails(__func__);
    const Object *path = live_object(__func__, filePath, Kind::Text);
    require(allocator == kCFAllocatorDefault, __func__, "unexpected allocator");
    require(pathStyle == kCFURLPOSIXPathStyle, __func__, "unexpected style");
    require(isDirectory, __func__, "not marked as a folder");
    return path != nullptr && !failing ? give_url(path->text) : nullptr;
}

CFStringRef CFURLCopyFileSystemPath(CFURLRef anURL, CFURLPathStyle pathStyle)
{
    const bool failing = fails(__func__);
    const Object *url = live_object(__func__, anURL, Kind::Url);
    require(pathStyle == kCFURLPOSIXPathStyle, __func__, "unexpected style");
    if (url == nullptr || url->path.empty() || failing)
        return nullptr;
    return static_cast<CFStringRef>(give_owned(new_object(Kind::Text, url->path)));
}

CFBundleRef CFBundleGetMainBundle(void)
{
    return fails(__func__) ? nullptr : give_bundle("");
}

CFBundleRef CFBundleGetBundleWithIdentifier(CFStringRef bundleID)
{
    const bool failing = fails(__func__);
    const Object *identifier = live_object(__func__, bundleID, Kind::Text);
    return identifier != nullptr && !failing ? give_bundle(identifier->text) : nullptr;
}

CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle)
{
    return copy_bundle_url(__func__, bundle, bundle_folder, bundle_folder);
}

CFURLRef CFBundleCopyExecutableURL(CFBundleRef bundle)
{
    return copy_bundle_url(__func__, bundle, {true, "/Contents/MacOS/program"}, {true, "/program"});
}

CFURLRef CFBundleCopySupportFilesDirectoryURL(CFBundleRef bundle)
{
    return copy_bundle_url(__func__, bundle, {false, "Contents"}, bundle_folder);
}

CFURLRef CFBundleCopyResourcesDirectoryURL(CFBundleRef bundle)
{
    return copy_bundle_url(__func__, bundle, {false, "Contents/Resources"}, bundle_folder);
}

CFURLRef CFBundleCopyBuiltInPlugInsURL(CFBundleRef bundle)
{
    return copy_bundle_url(__func__, bundle, {false, "Contents/PlugIns"}, {false, "PlugIns"});
}

CFURLRef CFBundleCopyResourceURL(CFBundleRef bundle, CFStringRef resourceName,
                                 CFStringRef resourceType, CFStringRef subDirName)
{
    const bool failing = fails(__func__);
    const Object *owner = live_object(__func__, bundle, Kind::Bundle);
    const Object *name = live_object(__func__, resourceName, Kind::Text);
    require(resourceType == nullptr, __func__, "unexpected type of resource");
    require(subDirName == nullptr, __func__, "unexpected sub-folder");
    if (owner == nullptr || name == nullptr || failing)
        return nullptr;
    const std::string found = find_resource(*owner->bundle, name->text);
    if (found.empty())
        return nullptr;
    return give_url(owner->bundle->root + (owner->bundle->is_bare ? "/" : "/Contents/Resources/") +
                    found);
}

OSErr Gestalt(OSType selector, SInt32 *response)
{
    require(selector == 0x73797376, __func__, "unexpected selector"); // 'sysv'
    const bool failing = fails(__func__);
    *response = frameworks.system_version;
    return failing ? recorded_gestalt_failure : frameworks.gestalt_status;
}

// A reference contains the path, padded with zeros.
OSStatus FSPathMakeRef(const UInt8 *path, FSRef *ref, Boolean *isDirectory)
{
    require(isDirectory == nullptr, __func__, "unexpected out value");
    if (fails(__func__))
        return recorded_no_such_file;
    if (frameworks.make_status != 0)
        return frameworks.make_status;
    *ref = {};
    const char *text = reinterpret_cast<const char *>(path);
    std::memcpy(ref->hidden, text, std::min(std::strlen(text), sizeof ref->hidden - 1));
    return 0;
}

OSStatus LSOpenFSRef(const FSRef *inRef, FSRef *outLaunchedRef)
{
    require(outLaunchedRef == nullptr, __func__, "unexpected out reference");
    const bool failing = fails(__func__);
    const UInt8 *end = std::find(inRef->hidden, std::end(inRef->hidden), 0);
    const std::string path(inRef->hidden, end);
    require(is_valid_reference(end, std::end(inRef->hidden)), __func__, "invalid reference");
    if (path.empty())
        return recorded_no_such_file;
    frameworks.opened.push_back("file " + path);
    return failing ? recorded_no_application : frameworks.open_status;
}

OSStatus LSOpenCFURLRef(CFURLRef inURL, CFURLRef *outLaunchedURL)
{
    require(outLaunchedURL == nullptr, __func__, "unexpected out URL");
    const bool failing = fails(__func__);
    const Object *url = live_object(__func__, inURL, Kind::Url);
    if (url == nullptr)
        return recorded_no_application;
    frameworks.opened.push_back("URL " + url->text);
    return failing ? recorded_no_application : frameworks.open_status;
}

CFDictionaryRef SCDynamicStoreCopyProxies(SCDynamicStoreRef store)
{
    require(store == nullptr, __func__, "unexpected store");
    if (fails(__func__) || !frameworks.has_proxies)
        return nullptr;
    return static_cast<CFDictionaryRef>(give_owned(new_object(Kind::Dictionary, "")));
}

} // extern "C"
