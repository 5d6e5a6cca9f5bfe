// The calls that the macOS sources make, over the recording frameworks: each call fails in turn,
// and every object must be released.
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

struct Operation {
    const char *name;
    std::string (*run)();
};

const Operation operations[] = {
    {"version", [] { return os_version(12); }},
    {"reference", [] { return make_and_open_ref("/a"); }},
    {"path", [] { return open_path("/a"); }},
    {"URL", [] { return open_url("http://a", 8); }},
    {"document path", [] { return open_document("/a"); }},
    {"document URL", [] { return open_document("http://a"); }},
    {"MainBundle", [] { return bundle_path(MainBundle, nullptr); }},
    {"MainExecutable", [] { return bundle_path(MainExecutable, nullptr); }},
    {"MainSupportFiles", [] { return bundle_path(MainSupportFiles, nullptr); }},
    {"MainResources", [] { return bundle_path(MainResources, nullptr); }},
    {"MainPlugIns", [] { return bundle_path(MainPlugIns, nullptr); }},
    {"named resource", [] { return bundle_path(MainNamedResource, "welcome.txt"); }},
    {"SecondProductBundle", [] { return bundle_path(SecondProductBundle, nullptr); }},
    {"ConfigFolder", [] { return bundle_path(ConfigFolder, nullptr); }},
    {"plug-in bundle", [] { return plugin_bundle_path(); }},
    {"plug-in resource", [] { return plugin_resource_path("tools.txt"); }},
    {"proxy", [] { return http_proxy(); }},
};

// The calls of an operation in order, each with the result if it fails. The first row of an
// operation names no call and has the result if none fails.
struct CallRow {
    std::string operation;
    std::string call;
    const char *result;
};

const CallRow rows[] = {
    {"version", "", "buffer 10.4.9$####$"},
    {"version", "Gestalt", "buffer unknown$$$$$"},

    {"reference", "", "0 0 file /a"},
    {"reference", "FSPathMakeRef", "-43 -43 "},
    {"reference", "LSOpenFSRef", "0 -10814 file /a"},

    {"path", "", "0 file /a"},
    {"path", "FSPathMakeRef", "-43 "},
    {"path", "LSOpenFSRef", "-10814 file /a"},

    {"URL", "", "0 URL http://a"},
    {"URL", "CFURLCreateWithBytes", "-30773 "},
    {"URL", "LSOpenCFURLRef", "-10814 URL http://a"},

    {"document path", "", "0 file /a"},
    {"document path", "FSPathMakeRef", "-1 "},
    {"document path", "LSOpenFSRef", "-1 file /a"},

    {"document URL", "", "0 URL http://a"},
    {"document URL", "CFURLCreateWithBytes", "-1 "},
    {"document URL", "LSOpenCFURLRef", "-1 URL http://a"},

    {"MainBundle", "", "buffer /Applications/Caf\x8e.app$"},
    {"MainBundle", "CFBundleGetMainBundle", "null "},
    {"MainBundle", "CFBundleCopyBundleURL", "null "},
    {"MainBundle", "CFURLCopyFileSystemPath", "null "},
    {"MainBundle", "CFStringGetCString", "buffer $!"},

    {"MainExecutable", "", "buffer /Applications/Caf\x8e.app/Contents/MacOS/program$"},
    {"MainExecutable", "CFBundleGetMainBundle", "null "},
    {"MainExecutable", "CFBundleCopyExecutableURL", "null "},
    {"MainExecutable", "CFURLCopyFileSystemPath", "null "},
    {"MainExecutable", "CFStringGetCString", "buffer $!"},

    {"MainSupportFiles", "", "buffer Contents$"},
    {"MainSupportFiles", "CFBundleGetMainBundle", "null "},
    {"MainSupportFiles", "CFBundleCopySupportFilesDirectoryURL", "null "},
    {"MainSupportFiles", "CFURLCopyFileSystemPath", "null "},
    {"MainSupportFiles", "CFStringGetCString", "buffer $!"},

    {"MainResources", "", "buffer Contents/Resources$"},
    {"MainResources", "CFBundleGetMainBundle", "null "},
    {"MainResources", "CFBundleCopyResourcesDirectoryURL", "null "},
    {"MainResources", "CFURLCopyFileSystemPath", "null "},
    {"MainResources", "CFStringGetCString", "buffer $!"},

    {"MainPlugIns", "", "buffer Contents/PlugIns$"},
    {"MainPlugIns", "CFBundleGetMainBundle", "null "},
    {"MainPlugIns", "CFBundleCopyBuiltInPlugInsURL", "null "},
    {"MainPlugIns", "CFURLCopyFileSystemPath", "null "},
    {"MainPlugIns", "CFStringGetCString", "buffer $!"},

    {"named resource", "", "buffer /Applications/Caf\x8e.app/Contents/Resources/welcome.txt$"},
    {"named resource", "CFBundleGetMainBundle", "null "},
    {"named resource", "CFStringCreateWithCString", "null "},
    {"named resource", "CFBundleCopyResourceURL", "null "},
    {"named resource", "CFURLCopyFileSystemPath", "null "},
    {"named resource", "CFStringGetCString", "buffer $!"},

    {"SecondProductBundle", "", "buffer /Library/Second.plugin$"},
    {"SecondProductBundle", "CFBundleGetMainBundle", "null "},
    {"SecondProductBundle", "CFStringCreateWithCString", "null "},
    {"SecondProductBundle", "CFBundleGetBundleWithIdentifier", "null "},
    {"SecondProductBundle", "CFBundleCopyBundleURL", "null "},
    {"SecondProductBundle", "CFURLCopyFileSystemPath", "null "},
    {"SecondProductBundle", "CFStringGetCString", "buffer $!"},

    {"ConfigFolder", "", "buffer " QUINTRAL_CONFIG_FOLDER "$"},
    {"ConfigFolder", "CFBundleGetMainBundle", "null "},
    {"ConfigFolder", "CFStringCreateWithCString", "null "},
    {"ConfigFolder", "CFURLCreateWithFileSystemPath", "null "},
    {"ConfigFolder", "CFURLCopyFileSystemPath", "null "},
    {"ConfigFolder", "CFStringGetCString", "buffer $!"},

    {"plug-in bundle", "", "buffer /Library/First.plugin$"},
    {"plug-in bundle", "CFStringCreateWithCString", "null "},
    {"plug-in bundle", "CFBundleGetBundleWithIdentifier", "null "},
    {"plug-in bundle", "CFBundleCopyBundleURL", "null "},
    {"plug-in bundle", "CFURLCopyFileSystemPath", "null "},
    {"plug-in bundle", "CFStringGetCString", "buffer $!"},

    {"plug-in resource", "", "0 /Library/First.plugin/Contents/Resources/tools.txt$"},
    {"plug-in resource", "CFStringCreateWithCString", "0 "},
    {"plug-in resource", "CFBundleGetBundleWithIdentifier", "0 "},
    {"plug-in resource", "CFStringCreateWithCString", "0 "},
    {"plug-in resource", "CFBundleCopyResourceURL", "0 "},
    {"plug-in resource", "CFURLCopyFileSystemPath", "0 "},
    {"plug-in resource", "CFStringGetCString", "0 $!"},

    {"proxy", "", "true cache$ 3128"},
    {"proxy", "SCDynamicStoreCopyProxies", "false $ 0"},
    {"proxy", "CFDictionaryGetValue", "false $ 0"},
    {"proxy", "CFNumberGetValue", "false $ 0"},
    {"proxy", "CFDictionaryGetValue", "false $ 0"},
    {"proxy", "CFStringGetCString", "false $! 0"},
    {"proxy", "CFDictionaryGetValue", "false $ache$ 0"},
    {"proxy", "CFNumberGetValue", "false $ache$ 0"},
};

std::vector<CallRow> rows_of(const Operation &operation)
{
    std::vector<CallRow> found;
    for (const CallRow &row : rows) {
        if (row.operation == operation.name)
            found.push_back(row);
    }
    return found;
}

// Runs the operation with its call of this number failing, counted from 1; 0 for none.
void check_result(const Operation &operation, const CallRow &row, std::size_t failing_call)
{
    set_up_machine();
    frameworks.failing_call = failing_call;
    EXPECT_EQ(operation.run(), row.result) << operation.name << ": " << row.call;
    expect_all_released();
}

TEST(MacosSources, MakeTheseCallsAndReleaseEverything)
{
    for (const Operation &operation : operations) {
        SCOPED_TRACE(operation.name);
        const std::vector<CallRow> calls = rows_of(operation);
        ASSERT_GT(calls.size(), 1u);
        std::vector<std::string> names;
        for (std::size_t i = 1; i < calls.size(); ++i)
            names.push_back(calls[i].call);
        check_result(operation, calls[0], 0);
        EXPECT_EQ(joined(frameworks.calls), joined(names));
    }
}

TEST(MacosSources, AnswerAndReleaseEverythingWhicheverCallFails)
{
    for (const Operation &operation : operations) {
        const std::vector<CallRow> calls = rows_of(operation);
        for (std::size_t i = 1; i < calls.size(); ++i) {
            check_result(operation, calls[i], i);
            EXPECT_GE(frameworks.calls.size(), i) << operation.name << ": " << calls[i].call;
        }
    }
}

} // namespace
} // namespace quintral
