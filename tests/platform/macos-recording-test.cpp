// The recording frameworks themselves: their declarations, and that they notice every misuse.
#include "platform/platform.h"
#include "tests/macos-frameworks/recording.h"
#include "tests/platform/macos-operations.h"

#include <cstring>
#include <type_traits>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using namespace tests;

// The declarations

TEST(MacosDeclarations, AreThoseOfTheSystem)
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

// The recording itself

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

struct MisuseRow {
    const char *fault;
    void (*misuse)();
};

TEST(RecordingFrameworks, NoteEveryMisuse)
{
    const MisuseRow rows[] = {
        {"CFRelease: null", [] { CFRelease(nullptr); }},
        {"CFRelease: no object", [] { CFRelease("text"); }},
        {"CFRelease: borrowed object", [] { CFRelease(CFBundleGetMainBundle()); }},
        {"CFRelease: released object", [] { CFRelease(released_string()); }},
        {"CFBundleGetBundleWithIdentifier: released object",
         [] { CFBundleGetBundleWithIdentifier(released_string()); }},
        {"CFGetTypeID: released object",
         [] {
             CFDictionaryRef proxies = SCDynamicStoreCopyProxies(nullptr);
             const void *host = CFDictionaryGetValue(proxies, kSCPropNetProxiesHTTPProxy);
             CFRelease(proxies);
             CFGetTypeID(host);
         }},
        {"CFBundleCopyBundleURL: null", [] { CFBundleCopyBundleURL(nullptr); }},
        {"CFBundleGetBundleWithIdentifier: object of another type",
         [] {
             CFURLRef address = CFBundleCopyBundleURL(CFBundleGetMainBundle());
             CFBundleGetBundleWithIdentifier(reinterpret_cast<CFStringRef>(address));
             CFRelease(address);
         }},
        {"CFStringCreateWithCString: null", [] { new_string(nullptr); }},
        {"CFStringCreateWithCString: unexpected encoding",
         [] { CFRelease(CFStringCreateWithCString(kCFAllocatorDefault, "text", 0)); }},
        {"CFStringGetCString: no room",
         [] {
             char byte = '#';
             CFStringRef string = new_string("");
             CFStringGetCString(string, &byte, 0, recorded_system_encoding);
             CFRelease(string);
         }},
        {"CFURLCreateWithFileSystemPath: not marked as a folder",
         [] {
             CFStringRef path = new_string("/folder");
             CFRelease(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, path,
                                                     kCFURLPOSIXPathStyle, false));
             CFRelease(path);
         }},
        {"LSOpenFSRef: reference that nobody filled",
         [] {
             FSRef ref;
             std::memset(&ref, 0xa5, sizeof ref);
             platform_open_ref(ref);
         }},
        {"LSOpenFSRef: reference that nobody filled",
         [] {
             FSRef ref = {};
             ref.hidden[sizeof ref.hidden - 1] = 1;
             platform_open_ref(ref);
         }},
    };
    for (const MisuseRow &row : rows) {
        set_up_machine();
        row.misuse();
        EXPECT_EQ(joined(frameworks.faults), row.fault);
        EXPECT_EQ(frameworks_objects_left(), 0) << row.fault;
    }
}

TEST(RecordingFrameworks, CountWhatNobodyReleased)
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
