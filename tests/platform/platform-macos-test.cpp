// The macOS sources of platform/ and web/ over recording frameworks, on every machine: each answer,
// each call failing in turn, every object released.
//
// Buffers hold '#'s at first. An answer is shown as what was returned and the buffer's bytes: '$'
// for a zero byte, without the '#'s at the end, so that an untouched buffer shows as nothing.
#include "platform/platform.h"
#include "web/proxy-settings.h"

#include "tests/macos-frameworks/recording.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using namespace quintral::tests;

using Texts = std::vector<std::string>;
using Entries = std::map<std::string, ProxyEntry>;

constexpr std::size_t room = 80;

std::string shown(std::string buffer)
{
    std::replace(buffer.begin(), buffer.end(), '\0', '$');
    return buffer.substr(0, buffer.find_last_not_of('#') + 1);
}

std::string shown_answer(const char *returned, const std::string &buffer)
{
    if (returned == nullptr)
        return "null " + shown(buffer);
    return (returned == buffer.data() ? "buffer " : "another pointer ") + shown(buffer);
}

std::string joined(const Texts &texts)
{
    std::string all;
    for (const std::string &text : texts)
        all += (all.empty() ? "" : ", ") + text;
    return all;
}

ProxyEntry text(const std::string &value)
{
    return {ProxyEntryKind::Text, value, 0};
}

ProxyEntry number(int value)
{
    return {ProxyEntryKind::Number, "", value};
}

ProxyEntry unreadable(int value)
{
    return {ProxyEntryKind::UnreadableNumber, "", value};
}

// A machine on which everything works.
void start()
{
    frameworks_reset();
    frameworks.system_version = 0x1049;
    frameworks.bundles = {
        {"", "/Applications/Caf\xc3\xa9.app", {"welcome.txt", "caf\xc3\xa9.txt"}},
        {QUINTRAL_PLUGIN_IDENTIFIER, "/Library/First.plugin", {"tools.txt"}},
        {QUINTRAL_SECOND_PLUGIN_IDENTIFIER, "/Library/Second.plugin", {"brushes.txt"}},
    };
    frameworks.has_proxies = true;
    frameworks.proxies = {
        {"HTTPEnable", number(1)}, {"HTTPProxy", text("cache")}, {"HTTPPort", number(3128)}};
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

// What lies on the stack when an operation begins: no zeros that nobody put there.
void fill_stack()
{
    volatile unsigned char bytes[4096];
    for (volatile unsigned char &byte : bytes)
        byte = 0xa5;
}

void (*volatile soil_stack)() = fill_stack; // through a pointer: never inlined, never dropped

// The operations, each shown with its answer

std::string os_version(std::size_t capacity)
{
    std::string buffer(room, '#');
    const char *returned = platform_os_version(buffer.data(), capacity);
    return shown_answer(returned, buffer);
}

std::string bundle_path(unsigned location, const char *name, std::size_t capacity = room)
{
    std::string buffer(room, '#');
    const char *returned = platform_bundle_path(buffer.data(), capacity, location, name);
    return shown_answer(returned, buffer);
}

std::string plugin_bundle_path(std::size_t capacity = room)
{
    std::string buffer(room, '#');
    const char *returned = platform_plugin_bundle_path(buffer.data(), capacity);
    return shown_answer(returned, buffer);
}

std::string plugin_resource_path(const char *name, std::size_t capacity = room)
{
    std::string buffer(room, '#');
    const int returned = platform_plugin_resource_path(name, buffer.data(), capacity);
    return std::to_string(returned) + ' ' + shown(buffer);
}

std::string shown_opening(std::int32_t returned)
{
    return std::to_string(returned) + ' ' + joined(frameworks.opened);
}

std::string open_path(const char *path)
{
    soil_stack();
    return shown_opening(platform_open_path(path));
}

std::string open_url(const char *address, std::size_t count)
{
    return shown_opening(platform_open_url(address, count));
}

std::string open_document(const char *text)
{
    soil_stack();
    return shown_opening(platform_open_document(text));
}

std::string make_and_open_ref(const char *path)
{
    FSRef ref = {};
    const std::int32_t made = platform_make_ref(path, &ref);
    return std::to_string(made) + ' ' + shown_opening(platform_open_ref(ref));
}

std::string http_proxy(std::size_t size = room)
{
    std::string host(room, '#');
    std::int32_t port = -1;
    const bool found = system_http_proxy(host.data(), size, &port);
    return (found ? "true " : "false ") + shown(host) + ' ' + std::to_string(port);
}

// ---- The declarations ---------------------------------------------------------------------------

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

// ---- The recording itself -----------------------------------------------------------------------

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
        start();
        row.misuse();
        EXPECT_EQ(joined(frameworks.faults), row.fault);
        EXPECT_EQ(frameworks_objects_left(), 0) << row.fault;
    }
}

TEST(RecordingFrameworks, CountWhatNobodyReleased)
{
    start();
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

// ---- The operating system -----------------------------------------------------------------------

TEST(PlatformMacosOsName, IsWrittenIntoNineBytes)
{
    std::string buffer(room, '#');
    platform_os_name(buffer.data());
    EXPECT_EQ(shown(buffer), "Mac OS X$");
}

TEST(PlatformMacosOsVersion, IsTheLowSixteenBitsOfWhatTheSystemSays)
{
    const struct {
        SInt32 number;
        std::size_t capacity;
        const char *answer;
    } rows[] = {
        {0x1049, 12, "buffer 10.4.9$####$"},
        {0x1058, 7, "buffer 10.5.8$"},
        {0x1049, 6, "buffer 10.4.$"},
        {0x1049, 1, "buffer $"},
        {0x7fff1068, 7, "buffer 10.6.8$"},
        {-1, 11, "buffer 1515.15.15$"},
        {-0x10000 + 0x1049, 7, "buffer 10.4.9$"},
    };
    for (const auto &row : rows) {
        start();
        frameworks.system_version = row.number;
        EXPECT_EQ(os_version(row.capacity), row.answer) << "number " << row.number;
        expect_all_released();
    }
}

TEST(PlatformMacosOsVersion, IsUnknownWhereTheSystemDoesNotSay)
{
    const struct {
        OSErr status;
        std::size_t capacity;
        const char *answer;
    } rows[] = {
        {-5551, 8, "buffer unknown$"}, {1, 8, "buffer unknown$"}, {-1, 10, "buffer unknown$$$"},
        {-5551, 7, "buffer unknow$"},  {-5551, 1, "buffer $"},
    };
    for (const auto &row : rows) {
        start();
        frameworks.gestalt_status = row.status;
        EXPECT_EQ(os_version(row.capacity), row.answer) << "status " << row.status;
        expect_all_released();
    }
}

// ---- Opening ------------------------------------------------------------------------------------

TEST(PlatformMacosMakeRef, ReturnsTheStatusOfTheFileManager)
{
    for (const OSStatus status : {0, -43, -1, 1}) {
        start();
        frameworks.make_status = status;
        FSRef ref = {};
        EXPECT_EQ(platform_make_ref("/a", &ref), status);
        EXPECT_STREQ(reinterpret_cast<const char *>(ref.hidden), status == 0 ? "/a" : "");
        expect_all_released();
    }
}

TEST(PlatformMacosOpen, ReturnsTheStatusOfTheLaunchServices)
{
    for (const OSStatus status : {0, -10814, -1, 1}) {
        const std::string prefix = std::to_string(status);
        start();
        frameworks.open_status = status;
        EXPECT_EQ(make_and_open_ref("/a/b.txt"), "0 " + prefix + " file /a/b.txt");
        frameworks.opened.clear();
        EXPECT_EQ(open_path("/caf\xc3\xa9"), prefix + " file /caf\xc3\xa9");
        frameworks.opened.clear();
        EXPECT_EQ(open_url("http://a/b", 10), prefix + " address http://a/b");
        expect_all_released();
    }
}

TEST(PlatformMacosOpenPath, OpensAnEmptyReferenceWhereThePathNamesNothing)
{
    start();
    frameworks.make_status = -43;
    frameworks.open_status = -10814;
    EXPECT_EQ(open_path("/missing"), "-43 ");
    EXPECT_EQ(joined(frameworks.calls), "FSPathMakeRef, LSOpenFSRef");
    expect_all_released();
}

TEST(PlatformMacosOpenUrl, TakesAsManyBytesAsItIsTold)
{
    const struct {
        const char *bytes;
        std::size_t count;
        const char *answer;
    } rows[] = {
        {"http://a/bcd", 10, "0 address http://a/b"},
        {"http://caf\xc3\xa9/", 13, "0 address http://caf\xc3\xa9/"},
        {"http://a b", 10, "-30773 "},
        {"http://a b", 8, "0 address http://a"},
        {"http://a/\xff", 10, "-30773 "},
        {"http://a", std::numeric_limits<std::size_t>::max(), "-30773 "},
        {"http://a", std::numeric_limits<std::size_t>::max() / 2 + 1, "-30773 "},
    };
    for (const auto &row : rows) {
        start();
        EXPECT_EQ(open_url(row.bytes, row.count), row.answer);
        expect_all_released();
    }
}

TEST(PlatformMacosOpenDocument, TakesATextForAPathWhereItBeginsWithASlash)
{
    const struct {
        const char *text;
        OSStatus status;
        const char *answer;
    } rows[] = {
        {"/a/b.txt", 0, "0 file /a/b.txt"},
        {"/a b", 0, "0 file /a b"},
        {"/", 0, "0 file /"},
        {"//a", 0, "0 file //a"},
        {"a/b.txt", 0, "0 address a/b.txt"},
        {"http://a/b", 0, "0 address http://a/b"},
        {"", 0, "0 address "},
        {"a b", 0, "-1 "},
        {"/a/b.txt", -10814, "-1 file /a/b.txt"},
        {"/a/b.txt", 1, "-1 file /a/b.txt"},
        {"http://a/b", -10814, "-1 address http://a/b"},
        {"http://a/b", 1, "-1 address http://a/b"},
    };
    for (const auto &row : rows) {
        start();
        frameworks.open_status = row.status;
        EXPECT_EQ(open_document(row.text), row.answer) << row.text;
        expect_all_released();
    }
}

TEST(PlatformMacosOpenDocument, FailsForAPathThatNamesNothing)
{
    start();
    frameworks.make_status = -43;
    EXPECT_EQ(open_document("/missing"), "-1 ");
    expect_all_released();
}

// ---- Bundles ------------------------------------------------------------------------------------

TEST(PlatformMacosBundlePath, IsWhatTheSystemGivesForEachLocation)
{
    const struct {
        unsigned location;
        const char *name;
        const char *answer;
    } rows[] = {
        {MainBundle, nullptr, "buffer /Applications/Caf\xc3\xa9.app$"},
        {MainExecutable, nullptr, "buffer /Applications/Caf\xc3\xa9.app/Contents/MacOS/program$"},
        {MainSupportFiles, nullptr, "buffer Contents$"},
        {MainResources, nullptr, "buffer Contents/Resources$"},
        {MainPlugIns, nullptr, "buffer Contents/PlugIns$"},
        {MainNamedResource, "welcome.txt",
         "buffer /Applications/Caf\xc3\xa9.app/Contents/Resources/welcome.txt$"},
        {MainNamedResource, "caf\xc3\xa9.txt",
         "buffer /Applications/Caf\xc3\xa9.app/Contents/Resources/caf\xc3\xa9.txt$"},
        {MainNamedResource, "missing.txt", "null "},
        {MainNamedResource, "\xff", "null "},
        {SecondProductBundle, nullptr, "buffer /Library/Second.plugin$"},
        {ConfigFolder, nullptr, "buffer " QUINTRAL_CONFIG_FOLDER "$"},
        {ConfigFolder + 1, nullptr, "buffer /Applications/Caf\xc3\xa9.app$"},
        {9, nullptr, "buffer /Applications/Caf\xc3\xa9.app$"},
        {std::numeric_limits<unsigned>::max(), nullptr, "buffer /Applications/Caf\xc3\xa9.app$"},
    };
    for (const auto &row : rows) {
        start();
        EXPECT_EQ(bundle_path(row.location, row.name), row.answer) << "location " << row.location;
        expect_all_released();
    }
}

TEST(PlatformMacosBundlePath, IsNullForEveryLocationWithoutAMainBundle)
{
    for (unsigned location = MainBundle; location <= ConfigFolder + 1; ++location) {
        start();
        unload("");
        EXPECT_EQ(bundle_path(location, "welcome.txt"), "null ") << "location " << location;
        EXPECT_EQ(joined(frameworks.calls), "CFBundleGetMainBundle") << "location " << location;
        expect_all_released();
    }
}

TEST(PlatformMacosBundlePath, IsNullForASecondProductThatIsNotLoaded)
{
    start();
    unload(QUINTRAL_SECOND_PLUGIN_IDENTIFIER);
    EXPECT_EQ(bundle_path(SecondProductBundle, nullptr), "null ");
    expect_all_released();
}

// The system leaves a '!' where a path does not fit.
TEST(PlatformMacosBundlePath, ReturnsTheBufferAlsoWhereThePathDoesNotFit)
{
    const struct {
        std::size_t capacity;
        const char *answer;
    } rows[] = {{9, "buffer Contents$"}, {8, "buffer !"}, {1, "buffer !"}};
    for (const auto &row : rows) {
        start();
        EXPECT_EQ(bundle_path(MainSupportFiles, nullptr, row.capacity), row.answer);
        expect_all_released();
    }
}

TEST(PlatformMacosPluginBundlePath, IsThatOfTheSuitesBundleWhateverTheMainOne)
{
    start();
    unload("");
    EXPECT_EQ(plugin_bundle_path(), "buffer /Library/First.plugin$");
    expect_all_released();
}

TEST(PlatformMacosPluginBundlePath, IsNullForABundleThatIsNotLoaded)
{
    start();
    unload(QUINTRAL_PLUGIN_IDENTIFIER);
    EXPECT_EQ(plugin_bundle_path(), "null ");
    expect_all_released();
}

TEST(PlatformMacosPluginBundlePath, ReturnsTheBufferAlsoWhereThePathDoesNotFit)
{
    start();
    EXPECT_EQ(plugin_bundle_path(22), "buffer /Library/First.plugin$");
    EXPECT_EQ(plugin_bundle_path(21), "buffer !");
    expect_all_released();
}

TEST(PlatformMacosPluginResourcePath, Is0AndTouchesTheBufferOnlyForAResourceOfTheBundle)
{
    const struct {
        const char *name;
        std::size_t capacity;
        const char *answer;
    } rows[] = {
        {"tools.txt", room, "0 /Library/First.plugin/Contents/Resources/tools.txt$"},
        {"tools.txt", 51, "0 /Library/First.plugin/Contents/Resources/tools.txt$"},
        {"tools.txt", 50, "0 !"},
        {"welcome.txt", room, "0 "},
        {"brushes.txt", room, "0 "},
        {"\xff", room, "0 "},
    };
    for (const auto &row : rows) {
        start();
        EXPECT_EQ(plugin_resource_path(row.name, row.capacity), row.answer) << row.name;
        expect_all_released();
    }
}

TEST(PlatformMacosPluginResourcePath, LooksForNothingInABundleThatIsNotLoaded)
{
    start();
    unload(QUINTRAL_PLUGIN_IDENTIFIER);
    EXPECT_EQ(plugin_resource_path("tools.txt"), "0 ");
    EXPECT_EQ(joined(frameworks.calls),
              "CFStringCreateWithCString, CFBundleGetBundleWithIdentifier");
    expect_all_released();
}

// ---- The system's proxy -------------------------------------------------------------------------

struct ProxyRow {
    const char *rule;
    Entries entries;
    const char *answer;
};

TEST(SystemProxyMacos, NeedsEachOfTheThreeEntries)
{
    const ProxyEntry on = number(1);
    const ProxyEntry host = text("cache");
    const ProxyEntry port = number(3128);
    const char *none = "false $ 0";
    const char *emptied = "false $ache$ 0"; // the host had been copied
    const ProxyRow rows[] = {
        {"complete",
         {{"HTTPEnable", on}, {"HTTPProxy", host}, {"HTTPPort", port}},
         "true cache$ 3128"},
        {"enabled by any number but 0",
         {{"HTTPEnable", number(-2)}, {"HTTPProxy", host}, {"HTTPPort", port}},
         "true cache$ 3128"},
        {"empty", {}, none},
        {"enable missing", {{"HTTPProxy", host}, {"HTTPPort", port}}, none},
        {"enable a text",
         {{"HTTPEnable", text("1")}, {"HTTPProxy", host}, {"HTTPPort", port}},
         none},
        {"enable unreadable",
         {{"HTTPEnable", unreadable(1)}, {"HTTPProxy", host}, {"HTTPPort", port}},
         none},
        {"disabled", {{"HTTPEnable", number(0)}, {"HTTPProxy", host}, {"HTTPPort", port}}, none},
        {"host missing", {{"HTTPEnable", on}, {"HTTPPort", port}}, none},
        {"host a number", {{"HTTPEnable", on}, {"HTTPProxy", number(1)}, {"HTTPPort", port}}, none},
        {"host not ASCII",
         {{"HTTPEnable", on}, {"HTTPProxy", text("caf\xc3\xa9")}, {"HTTPPort", port}},
         none},
        {"port missing", {{"HTTPEnable", on}, {"HTTPProxy", host}}, emptied},
        {"port a text",
         {{"HTTPEnable", on}, {"HTTPProxy", host}, {"HTTPPort", text("3128")}},
         emptied},
        {"port unreadable",
         {{"HTTPEnable", on}, {"HTTPProxy", host}, {"HTTPPort", unreadable(3128)}},
         emptied},
        {"other protocols alone",
         {{"HTTPSEnable", on}, {"HTTPSProxy", host}, {"HTTPSPort", port}, {"SOCKSEnable", on}},
         none},
    };
    for (const ProxyRow &row : rows) {
        start();
        frameworks.proxies = row.entries;
        EXPECT_EQ(http_proxy(), row.answer) << row.rule;
        EXPECT_EQ(frameworks_objects_made(), 1) << row.rule;
        expect_all_released();
    }
}

TEST(SystemProxyMacos, IsNoneWithoutADictionary)
{
    start();
    frameworks.has_proxies = false;
    EXPECT_EQ(http_proxy(), "false $ 0");
    EXPECT_EQ(joined(frameworks.calls), "SCDynamicStoreCopyProxies");
    expect_all_released();
}

TEST(SystemProxyMacos, TakesTheLowSixteenBitsOfThePort)
{
    const struct {
        int number;
        const char *answer;
    } rows[] = {
        {1, "true cache$ 1"},         {65535, "true cache$ 65535"}, {65536, "true cache$ 0"},
        {0, "true cache$ 0"},         {70000, "true cache$ 4464"},  {-1, "true cache$ 65535"},
        {-3128, "true cache$ 62408"},
    };
    for (const auto &row : rows) {
        start();
        frameworks.proxies["HTTPPort"] = number(row.number);
        EXPECT_EQ(http_proxy(), row.answer) << row.number;
        expect_all_released();
    }
}

TEST(SystemProxyMacos, TakesAHostThatFitsWithItsTerminator)
{
    const struct {
        const char *host;
        std::size_t size;
        const char *answer;
    } rows[] = {
        {"cache", 6, "true cache$ 3128"},
        {"cache", 5, "false $ 0"},
        {"cache", 1, "false $ 0"},
        {"", 1, "true $ 3128"},
    };
    for (const auto &row : rows) {
        start();
        frameworks.proxies["HTTPProxy"] = text(row.host);
        EXPECT_EQ(http_proxy(row.size), row.answer) << row.size;
        expect_all_released();
    }
}

TEST(SystemProxyMacos, TakesAHostOf255BytesIntoTheSettingsAndNoneOf256)
{
    start();
    frameworks.proxies["HTTPProxy"] = text(std::string(255, 'h'));
    ProxySettings settings = {};
    EXPECT_TRUE(system_http_proxy(settings.host, sizeof settings.host, &settings.port));
    EXPECT_EQ(settings.host, std::string(255, 'h'));
    EXPECT_EQ(settings.port, 3128);

    frameworks.proxies["HTTPProxy"] = text(std::string(256, 'h'));
    EXPECT_FALSE(system_http_proxy(settings.host, sizeof settings.host, &settings.port));
    EXPECT_STREQ(settings.host, "");
    EXPECT_EQ(settings.port, 0);
    expect_all_released();
}

// ---- Each call failing in turn ------------------------------------------------------------------

struct FailingCall {
    const char *call;
    const char *answer; // where it fails
};

struct OperationRow {
    const char *operation;
    std::string (*run)();
    const char *answer; // where nothing fails
    std::vector<FailingCall> calls;
};

const OperationRow operation_rows[] = {
    {"platform_os_version",
     [] { return os_version(12); },
     "buffer 10.4.9$####$",
     {{"Gestalt", "buffer unknown$$$$$"}}},
    {"platform_make_ref and platform_open_ref",
     [] { return make_and_open_ref("/a"); },
     "0 0 file /a",
     {{"FSPathMakeRef", "-43 -43 "}, {"LSOpenFSRef", "0 -10814 file /a"}}},
    {"platform_open_path",
     [] { return open_path("/a"); },
     "0 file /a",
     {{"FSPathMakeRef", "-43 "}, {"LSOpenFSRef", "-10814 file /a"}}},
    {"platform_open_url",
     [] { return open_url("http://a", 8); },
     "0 address http://a",
     {{"CFURLCreateWithBytes", "-30773 "}, {"LSOpenCFURLRef", "-10814 address http://a"}}},
    {"platform_open_document for a path",
     [] { return open_document("/a"); },
     "0 file /a",
     {{"FSPathMakeRef", "-1 "}, {"LSOpenFSRef", "-1 file /a"}}},
    {"platform_open_document for an address",
     [] { return open_document("http://a"); },
     "0 address http://a",
     {{"CFURLCreateWithBytes", "-1 "}, {"LSOpenCFURLRef", "-1 address http://a"}}},
    {"platform_bundle_path of MainBundle",
     [] { return bundle_path(MainBundle, nullptr); },
     "buffer /Applications/Caf\xc3\xa9.app$",
     {{"CFBundleGetMainBundle", "null "},
      {"CFBundleCopyBundleURL", "null "},
      {"CFURLCopyFileSystemPath", "null "},
      {"CFStringGetCString", "buffer !"}}},
    {"platform_bundle_path of MainExecutable",
     [] { return bundle_path(MainExecutable, nullptr); },
     "buffer /Applications/Caf\xc3\xa9.app/Contents/MacOS/program$",
     {{"CFBundleGetMainBundle", "null "},
      {"CFBundleCopyExecutableURL", "null "},
      {"CFURLCopyFileSystemPath", "null "},
      {"CFStringGetCString", "buffer !"}}},
    {"platform_bundle_path of MainSupportFiles",
     [] { return bundle_path(MainSupportFiles, nullptr); },
     "buffer Contents$",
     {{"CFBundleGetMainBundle", "null "},
      {"CFBundleCopySupportFilesDirectoryURL", "null "},
      {"CFURLCopyFileSystemPath", "null "},
      {"CFStringGetCString", "buffer !"}}},
    {"platform_bundle_path of MainResources",
     [] { return bundle_path(MainResources, nullptr); },
     "buffer Contents/Resources$",
     {{"CFBundleGetMainBundle", "null "},
      {"CFBundleCopyResourcesDirectoryURL", "null "},
      {"CFURLCopyFileSystemPath", "null "},
      {"CFStringGetCString", "buffer !"}}},
    {"platform_bundle_path of MainPlugIns",
     [] { return bundle_path(MainPlugIns, nullptr); },
     "buffer Contents/PlugIns$",
     {{"CFBundleGetMainBundle", "null "},
      {"CFBundleCopyBuiltInPlugInsURL", "null "},
      {"CFURLCopyFileSystemPath", "null "},
      {"CFStringGetCString", "buffer !"}}},
    {"platform_bundle_path of MainNamedResource",
     [] { return bundle_path(MainNamedResource, "welcome.txt"); },
     "buffer /Applications/Caf\xc3\xa9.app/Contents/Resources/welcome.txt$",
     {{"CFBundleGetMainBundle", "null "},
      {"CFStringCreateWithCString", "null "},
      {"CFBundleCopyResourceURL", "null "},
      {"CFURLCopyFileSystemPath", "null "},
      {"CFStringGetCString", "buffer !"}}},
    {"platform_bundle_path of SecondProductBundle",
     [] { return bundle_path(SecondProductBundle, nullptr); },
     "buffer /Library/Second.plugin$",
     {{"CFBundleGetMainBundle", "null "},
      {"CFStringCreateWithCString", "null "},
      {"CFBundleGetBundleWithIdentifier", "null "},
      {"CFBundleCopyBundleURL", "null "},
      {"CFURLCopyFileSystemPath", "null "},
      {"CFStringGetCString", "buffer !"}}},
    {"platform_bundle_path of ConfigFolder",
     [] { return bundle_path(ConfigFolder, nullptr); },
     "buffer " QUINTRAL_CONFIG_FOLDER "$",
     {{"CFBundleGetMainBundle", "null "},
      {"CFStringCreateWithCString", "null "},
      {"CFURLCreateWithFileSystemPath", "null "},
      {"CFURLCopyFileSystemPath", "null "},
      {"CFStringGetCString", "buffer !"}}},
    {"platform_plugin_bundle_path",
     [] { return plugin_bundle_path(); },
     "buffer /Library/First.plugin$",
     {{"CFStringCreateWithCString", "null "},
      {"CFBundleGetBundleWithIdentifier", "null "},
      {"CFBundleCopyBundleURL", "null "},
      {"CFURLCopyFileSystemPath", "null "},
      {"CFStringGetCString", "buffer !"}}},
    {"platform_plugin_resource_path",
     [] { return plugin_resource_path("tools.txt"); },
     "0 /Library/First.plugin/Contents/Resources/tools.txt$",
     {{"CFStringCreateWithCString", "0 "},
      {"CFBundleGetBundleWithIdentifier", "0 "},
      {"CFStringCreateWithCString", "0 "},
      {"CFBundleCopyResourceURL", "0 "},
      {"CFURLCopyFileSystemPath", "0 "},
      {"CFStringGetCString", "0 !"}}},
    {"system_http_proxy",
     [] { return http_proxy(); },
     "true cache$ 3128",
     {{"SCDynamicStoreCopyProxies", "false $ 0"},
      {"CFDictionaryGetValue", "false $ 0"},
      {"CFNumberGetValue", "false $ 0"},
      {"CFDictionaryGetValue", "false $ 0"},
      {"CFStringGetCString", "false $ 0"},
      {"CFDictionaryGetValue", "false $ache$ 0"},
      {"CFNumberGetValue", "false $ache$ 0"}}},
};

TEST(MacosSources, MakeTheseCallsAndReleaseEverything)
{
    for (const OperationRow &row : operation_rows) {
        SCOPED_TRACE(row.operation);
        Texts calls;
        for (const FailingCall &failing : row.calls)
            calls.emplace_back(failing.call);
        start();
        EXPECT_EQ(row.run(), row.answer);
        EXPECT_EQ(joined(frameworks.calls), joined(calls));
        expect_all_released();
    }
}

TEST(MacosSources, AnswerAndReleaseEverythingWhicheverCallFails)
{
    for (const OperationRow &row : operation_rows) {
        for (std::size_t i = 0; i < row.calls.size(); ++i) {
            SCOPED_TRACE(std::string(row.operation) + " with " + row.calls[i].call + " failing");
            start();
            frameworks.failing_call = i + 1;
            EXPECT_EQ(row.run(), row.calls[i].answer);
            EXPECT_GE(frameworks.calls.size(), i + 1);
            expect_all_released();
        }
    }
}

} // namespace
} // namespace quintral
