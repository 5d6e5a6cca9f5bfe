// The recording frameworks themselves: their declarations and their record of misuse.
#include "platform/platform.h"
#include "tests/macos-frameworks/mac-roman.h"
#include "tests/macos-frameworks/recording.h"
#include "tests/platform/macos-operations.h"

#include <cstring>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using namespace tests;

TEST(MacosDeclarations, MatchThoseOfTheSystem)
{
    EXPECT_TRUE((std::is_same_v<SInt32, std::conditional_t<sizeof(long) == 4, long, int>>));
    EXPECT_TRUE((std::is_same_v<UInt32, std::make_unsigned_t<SInt32>>));
    EXPECT_TRUE((std::is_same_v<OSStatus, SInt32>));
    EXPECT_TRUE((std::is_same_v<OSErr, short>));
    EXPECT_TRUE((std::is_same_v<CFIndex, long>));
    EXPECT_TRUE((std::is_same_v<std::underlying_type_t<CFNumberType>, CFIndex>));
    EXPECT_TRUE((std::is_same_v<std::underlying_type_t<CFURLPathStyle>, CFIndex>));
    EXPECT_TRUE((std::is_same_v<PlatformFileRef, FSRef>));
    EXPECT_EQ(sizeof(SInt32), 4u);
    EXPECT_EQ(sizeof(Boolean), 1u);
    EXPECT_EQ(sizeof(FSRef), 80u);
    EXPECT_EQ(alignof(FSRef), 1u);
    EXPECT_EQ(static_cast<CFStringEncoding>(kCFStringEncodingASCII), 0x0600u);
    EXPECT_EQ(static_cast<CFIndex>(kCFNumberIntType), 9);
    EXPECT_EQ(static_cast<CFIndex>(kCFURLPOSIXPathStyle), 0);
}

TEST(MacRoman, HasACharacterForEveryByteAndOnlyThose)
{
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte)
        bytes += static_cast<char>(byte);
    std::string read_back;
    EXPECT_TRUE(mac_roman_from_utf8(utf8_from_mac_roman(bytes), &read_back));
    EXPECT_EQ(read_back, bytes);
    EXPECT_EQ(utf8_from_mac_roman("a\x8e\xff"), "a\u00e9\u02c7");
    EXPECT_FALSE(mac_roman_from_utf8("a\u65e5", &read_back));
}

// The recording

CFStringRef new_string(const char *text)
{
    return CFStringCreateWithCString(kCFAllocatorDefault, text, recorded_system_encoding);
}

CFStringRef released_string()
{
    CFStringRef string = new_string("text");
    CFRelease(string);
    return string;
}

void release_twice()
{
    CFRelease(released_string());
}

void use_released_string()
{
    CFBundleGetBundleWithIdentifier(released_string());
}

void use_entry_of_released_dictionary()
{
    CFDictionaryRef proxies = SCDynamicStoreCopyProxies(nullptr);
    const void *host = CFDictionaryGetValue(proxies, kSCPropNetProxiesHTTPProxy);
    CFRelease(proxies);
    CFGetTypeID(host);
}

void use_url_as_string()
{
    CFURLRef url = CFBundleCopyBundleURL(CFBundleGetMainBundle());
    CFBundleGetBundleWithIdentifier(reinterpret_cast<CFStringRef>(url));
    CFRelease(url);
}

void make_string_in_other_encoding()
{
    CFRelease(CFStringCreateWithCString(kCFAllocatorDefault, "text", 0));
}

void get_string_into_empty_buffer()
{
    char byte = '#';
    CFStringRef string = new_string("");
    CFStringGetCString(string, &byte, 0, recorded_system_encoding);
    CFRelease(string);
}

void make_path_that_is_not_a_folder()
{
    CFStringRef path = new_string("/folder");
    CFRelease(
        CFURLCreateWithFileSystemPath(kCFAllocatorDefault, path, kCFURLPOSIXPathStyle, false));
    CFRelease(path);
}

void open_garbage()
{
    FSRef ref;
    std::memset(&ref, 0xa5, sizeof ref);
    platform_open_ref(ref);
}

void open_reference_with_last_byte_set()
{
    FSRef ref = {};
    ref.hidden[sizeof ref.hidden - 1] = 1;
    platform_open_ref(ref);
}

TEST(RecordingFrameworks, RecordEveryMisuse)
{
    const struct {
        const char *fault;
        void (*misuse)();
    } rows[] = {
        {"CFRelease: null", [] { CFRelease(nullptr); }},
        {"CFRelease: not an object", [] { CFRelease("text"); }},
        {"CFRelease: borrowed object", [] { CFRelease(CFBundleGetMainBundle()); }},
        {"CFRelease: released object", release_twice},
        {"CFBundleGetBundleWithIdentifier: released object", use_released_string},
        {"CFGetTypeID: released object", use_entry_of_released_dictionary},
        {"CFBundleCopyBundleURL: null", [] { CFBundleCopyBundleURL(nullptr); }},
        {"CFBundleGetBundleWithIdentifier: object of another type", use_url_as_string},
        {"CFStringCreateWithCString: null", [] { new_string(nullptr); }},
        {"CFStringCreateWithCString: unexpected encoding", make_string_in_other_encoding},
        {"CFStringGetCString: no space", get_string_into_empty_buffer},
        {"CFURLCreateWithFileSystemPath: not marked as a folder", make_path_that_is_not_a_folder},
        {"LSOpenFSRef: invalid reference", open_garbage},
        {"LSOpenFSRef: invalid reference", open_reference_with_last_byte_set},
    };
    for (const auto &row : rows) {
        set_up_machine();
        row.misuse();
        EXPECT_EQ(joined(frameworks.faults), row.fault);
        EXPECT_EQ(frameworks_objects_left(), 0) << row.fault;
    }
}

TEST(RecordingFrameworks, CountUnreleasedObjects)
{
    set_up_machine();
    CFStringRef first = new_string("first");
    CFStringRef second = new_string("second");
    EXPECT_EQ(frameworks_objects_left(), 2);
    CFRelease(first);
    EXPECT_EQ(frameworks_objects_left(), 1);
    CFRelease(second);
    EXPECT_EQ(frameworks_objects_left(), 0);
    EXPECT_EQ(frameworks_objects_made(), 2);
    EXPECT_EQ(joined(frameworks.faults), "");
}

} // namespace
} // namespace quintral
