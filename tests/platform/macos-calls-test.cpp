// Which calls the macOS sources make, over the recording frameworks: each call fails in turn, and
// every object is released.
#include "platform/platform.h"
#include "tests/macos-frameworks/recording.h"
#include "tests/platform/macos-operations.h"

#include <cstddef>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using namespace tests;

using Texts = std::vector<std::string>;

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
        set_up_machine();
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
            set_up_machine();
            frameworks.failing_call = i + 1;
            EXPECT_EQ(row.run(), row.calls[i].answer);
            EXPECT_GE(frameworks.calls.size(), i + 1);
            expect_all_released();
        }
    }
}

} // namespace
} // namespace quintral
