// The macOS sources of platform/ over the recording frameworks, on every machine: names, opening,
// bundles.
#include "platform/platform.h"
#include "tests/macos-frameworks/recording.h"
#include "tests/platform/macos-operations.h"

#include <cstddef>
#include <limits>
#include <string>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using namespace tests;

// The operating system

TEST(PlatformMacosOsName, IsWrittenIntoNineBytes)
{
    std::string buffer(buffer_size, '#');
    platform_os_name(buffer.data());
    EXPECT_EQ(shown(buffer), "Mac OS X$");
}

TEST(PlatformMacosOsVersion, IsMadeOfTheLowSixteenBitsOfTheSystemsNumber)
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
        set_up_machine();
        frameworks.system_version = row.number;
        EXPECT_EQ(os_version(row.capacity), row.answer) << "number " << row.number;
        expect_all_released();
    }
}

TEST(PlatformMacosOsVersion, IsUnknownIfGestaltFails)
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
        set_up_machine();
        frameworks.gestalt_status = row.status;
        EXPECT_EQ(os_version(row.capacity), row.answer) << "status " << row.status;
        expect_all_released();
    }
}

// Opening

TEST(PlatformMacosMakeRef, ReturnsTheStatusOfTheFileManager)
{
    for (const OSStatus status : {0, -43, -1, 1}) {
        set_up_machine();
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
        set_up_machine();
        frameworks.open_status = status;
        EXPECT_EQ(make_and_open_ref("/a/b.txt"), "0 " + prefix + " file /a/b.txt");
        frameworks.opened.clear();
        EXPECT_EQ(open_path("/caf\u00e9"), prefix + " file /caf\u00e9");
        frameworks.opened.clear();
        EXPECT_EQ(open_url("http://a/b", 10), prefix + " URL http://a/b");
        expect_all_released();
    }
}

TEST(PlatformMacosOpenPath, OpensAnEmptyReferenceForAMissingPath)
{
    set_up_machine();
    frameworks.make_status = -43;
    frameworks.open_status = -10814;
    EXPECT_EQ(open_path("/missing"), "-43 ");
    EXPECT_EQ(joined(frameworks.calls), "FSPathMakeRef, LSOpenFSRef");
    expect_all_released();
}

TEST(PlatformMacosOpenUrl, ReadsOnlyUpToTheCountAndEscapesWhatUrlsLack)
{
    const struct {
        const char *bytes;
        std::size_t count;
        const char *answer;
    } rows[] = {
        {"http://a/bcd", 10, "0 URL http://a/b"},
        {"http://a b", 10, "0 URL http://a%20b"},
        {"http://a b", 8, "0 URL http://a"},
        {"http://a/\xff", 10, "0 URL http://a/%CB%87"}, // a caron, in the system encoding
        {"http://a/\u00e9", 11, "0 URL http://a/%E2%88%9A%C2%A9"}, // UTF-8 is two characters in it
        {"http://a/\0b", 11, "-30773 "},
        {"\0", 1, "-30773 "},
        {"http://a", std::numeric_limits<std::size_t>::max(), "-30773 "},
        {"http://a", std::numeric_limits<std::size_t>::max() / 2 + 1, "-30773 "},
    };
    for (const auto &row : rows) {
        set_up_machine();
        EXPECT_EQ(open_url(row.bytes, row.count), row.answer);
        expect_all_released();
    }
}

TEST(PlatformMacosOpenDocument, OpensAPathIfItBeginsWithASlashOtherwiseAUrl)
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
        {"a/b.txt", 0, "0 URL a/b.txt"},
        {"http://a/b", 0, "0 URL http://a/b"},
        {"", 0, "0 URL "},
        {"a b", 0, "0 URL a%20b"},
        {"/a/b.txt", -10814, "-1 file /a/b.txt"},
        {"/a/b.txt", 1, "-1 file /a/b.txt"},
        {"http://a/b", -10814, "-1 URL http://a/b"},
        {"http://a/b", 1, "-1 URL http://a/b"},
    };
    for (const auto &row : rows) {
        set_up_machine();
        frameworks.open_status = row.status;
        EXPECT_EQ(open_document(row.text), row.answer) << row.text;
        expect_all_released();
    }
}

TEST(PlatformMacosOpenDocument, FailsForAMissingPath)
{
    set_up_machine();
    frameworks.make_status = -43;
    EXPECT_EQ(open_document("/missing"), "-1 ");
    expect_all_released();
}

// Bundles

TEST(PlatformMacosBundlePath, IsTheSystemsPathForEachLocation)
{
    const std::string app = "buffer /Applications/Caf\x8e.app";
    const std::string resources = app + "/Contents/Resources/";
    const struct {
        unsigned location;
        const char *name;
        std::string answer;
    } rows[] = {
        {MainBundle, nullptr, app + "$"},
        {MainExecutable, nullptr, app + "/Contents/MacOS/program$"},
        {MainSupportFiles, nullptr, "buffer Contents$"},
        {MainResources, nullptr, "buffer Contents/Resources$"},
        {MainPlugIns, nullptr, "buffer Contents/PlugIns$"},
        {MainNamedResource, "welcome.txt", resources + "welcome.txt$"},
        {MainNamedResource, "caf\x8e.txt", resources + "caf\x8e.txt$"},
        {MainNamedResource, "caf\u00e9.txt", "null "}, // UTF-8 is another name
        {MainNamedResource, "missing.txt", "null "},
        {SecondProductBundle, nullptr, "buffer /Library/Second.plugin$"},
        {ConfigFolder, nullptr, "buffer " QUINTRAL_CONFIG_FOLDER "$"},
        {ConfigFolder + 1, nullptr, app + "$"},
        {9, nullptr, app + "$"},
        {std::numeric_limits<unsigned>::max(), nullptr, app + "$"},
    };
    for (const auto &row : rows) {
        set_up_machine();
        EXPECT_EQ(bundle_path(row.location, row.name), row.answer) << "location " << row.location;
        expect_all_released();
    }
}

TEST(PlatformMacosBundlePath, IsAbsoluteForTheFilesOfABareProgram)
{
    const struct {
        unsigned location;
        const char *answer;
    } rows[] = {
        {MainBundle, "buffer /opt/bin$"},
        {MainExecutable, "buffer /opt/bin/program$"},
        {MainSupportFiles, "buffer /opt/bin$"},
        {MainResources, "buffer /opt/bin$"},
        {MainNamedResource, "buffer /opt/bin/welcome.txt$"},
    };
    for (const auto &row : rows) {
        set_up_bare_program();
        EXPECT_EQ(bundle_path(row.location, "welcome.txt"), row.answer) << row.location;
        expect_all_released();
    }
}

TEST(PlatformMacosBundlePath, IsThatOfAnythingThatTheSystemFindsByTheName)
{
    const struct {
        const char *name;
        const char *found;
    } rows[] = {
        {"pictures", "pictures"},
        {"pictures/sky.png", "pictures/sky.png"},
        {"hello.txt", "en.lproj/hello.txt"},
        {"../Info.plist", "../Info.plist"},
        {"", "welcome.txt"}, // some file
    };
    for (const auto &row : rows) {
        set_up_machine();
        EXPECT_EQ(bundle_path(MainNamedResource, row.name),
                  std::string("buffer /Applications/Caf\x8e.app/Contents/Resources/") + row.found +
                      '$');
        expect_all_released();
    }
}

TEST(PlatformMacosBundlePath, IsEmptyIfTheEncodingLacksACharacterOfIt)
{
    set_up_machine();
    frameworks.bundles[0].root = "/Applications/\u65e5.app";
    EXPECT_EQ(bundle_path(MainBundle, nullptr), "buffer $!");
    EXPECT_EQ(bundle_path(MainSupportFiles, nullptr), "buffer Contents$");
    expect_all_released();
}

TEST(PlatformMacosBundlePath, IsNullForEveryLocationWithoutAMainBundle)
{
    for (unsigned location = MainBundle; location <= ConfigFolder + 1; ++location) {
        set_up_machine();
        unload("");
        EXPECT_EQ(bundle_path(location, "welcome.txt"), "null ") << "location " << location;
        EXPECT_EQ(joined(frameworks.calls), "CFBundleGetMainBundle") << "location " << location;
        expect_all_released();
    }
}

TEST(PlatformMacosBundlePath, IsNullForASecondProductThatIsNotLoaded)
{
    set_up_machine();
    unload(QUINTRAL_SECOND_PLUGIN_IDENTIFIER);
    EXPECT_EQ(bundle_path(SecondProductBundle, nullptr), "null ");
    expect_all_released();
}

TEST(PlatformMacosBundlePath, ReturnsTheBufferEvenIfThePathDoesNotFit)
{
    const struct {
        std::size_t capacity;
        const char *answer;
    } rows[] = {{9, "buffer Contents$"}, {8, "buffer $!"}, {1, "buffer $"}};
    for (const auto &row : rows) {
        set_up_machine();
        EXPECT_EQ(bundle_path(MainSupportFiles, nullptr, row.capacity), row.answer);
        expect_all_released();
    }
}

TEST(PlatformMacosPluginBundlePath, IsThatOfThePlugInBundleEvenWithoutAMainBundle)
{
    set_up_machine();
    unload("");
    EXPECT_EQ(plugin_bundle_path(), "buffer /Library/First.plugin$");
    expect_all_released();
}

TEST(PlatformMacosPluginBundlePath, IsNullForABundleThatIsNotLoaded)
{
    set_up_machine();
    unload(QUINTRAL_PLUGIN_IDENTIFIER);
    EXPECT_EQ(plugin_bundle_path(), "null ");
    expect_all_released();
}

TEST(PlatformMacosPluginBundlePath, ReturnsTheBufferEvenIfThePathDoesNotFit)
{
    set_up_machine();
    EXPECT_EQ(plugin_bundle_path(22), "buffer /Library/First.plugin$");
    EXPECT_EQ(plugin_bundle_path(21), "buffer $!");
    expect_all_released();
}

TEST(PlatformMacosPluginResourcePath, Returns0AndWritesOnlyAResourceOfTheBundle)
{
    const struct {
        const char *name;
        std::size_t capacity;
        const char *answer;
    } rows[] = {
        {"tools.txt", buffer_size, "0 /Library/First.plugin/Contents/Resources/tools.txt$"},
        {"tools.txt", 51, "0 /Library/First.plugin/Contents/Resources/tools.txt$"},
        {"tools.txt", 50, "0 $!"},
        {"welcome.txt", buffer_size, "0 "},
        {"brushes.txt", buffer_size, "0 "},
        {"", buffer_size, "0 /Library/First.plugin/Contents/Resources/tools.txt$"}, // some file
    };
    for (const auto &row : rows) {
        set_up_machine();
        EXPECT_EQ(plugin_resource_path(row.name, row.capacity), row.answer) << row.name;
        expect_all_released();
    }
}

TEST(PlatformMacosPluginResourcePath, DoesNotSearchABundleThatIsNotLoaded)
{
    set_up_machine();
    unload(QUINTRAL_PLUGIN_IDENTIFIER);
    EXPECT_EQ(plugin_resource_path("tools.txt"), "0 ");
    EXPECT_EQ(joined(frameworks.calls),
              "CFStringCreateWithCString, CFBundleGetBundleWithIdentifier");
    expect_all_released();
}

} // namespace
} // namespace quintral
