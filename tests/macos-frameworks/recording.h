// Mock frameworks of macOS. They return what a test sets up, and record every object that is
// made or released, every misuse and everything that is opened. A test can make each call fail in
// turn. Link recording.cpp with the unchanged macOS sources, compiled with this folder in the
// include path and QUINTRAL_PLATFORM_MACOS defined:
//
//     frameworks_reset();
//     frameworks.bundles = {{"", "/Applications/Some.app", {}}};
//     ... call the operation under test ...
//     EXPECT_EQ(frameworks_objects_left(), 0);
//     EXPECT_EQ(frameworks.faults, std::vector<std::string>());
//
// They are stricter than the system. A misuse that might crash there is a fault here, and so is an
// argument that the sources have no reason to pass.
#ifndef QUINTRAL_TESTS_MACOS_FRAMEWORKS_RECORDING_H
#define QUINTRAL_TESTS_MACOS_FRAMEWORKS_RECORDING_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>
#include <SystemConfiguration/SystemConfiguration.h>

namespace quintral::tests {

// A loaded bundle. As on the system, the paths of its folder, its executable
// (Contents/MacOS/program) and its resources (in Contents/Resources) are absolute; those of its
// support files (Contents), resources folder (Contents/Resources) and plug-ins (Contents/PlugIns)
// are relative. A bare program, which has no bundle, lies beside its resources in the folder that
// counts as its bundle, and these paths are absolute, except that of its plug-ins: it was never
// tried and is PlugIns here.
//
// A resource is found by its path in the resources folder, if that is a file, a folder or even
// ../Info.plist, or without its language folder en.lproj. The empty name finds some file.
struct LoadedBundle {
    std::string identifier; // empty for the main bundle
    std::string root;
    std::vector<std::string> resources; // paths of files in the resources folder
    bool is_bare = false;               // a program without a bundle
};

enum class ProxyEntryKind { Text, Number, UnreadableNumber };

struct ProxyEntry {
    ProxyEntryKind kind;
    std::string text;
    int number; // an unreadable number is written too, but the call fails
};

// The system encoding: Mac Roman under a number that no system uses, so that a source must ask for
// it. What tests set and read below is UTF-8; paths and URLs that an operation takes or returns are
// Mac Roman, except for paths to open, which are not converted.
constexpr CFStringEncoding recorded_system_encoding = 0x0badc0de;

// What calls return if they are made to fail.
constexpr OSErr recorded_gestalt_failure = -5551;
constexpr OSStatus recorded_no_such_file = -43;
constexpr OSStatus recorded_no_application = -10814;

struct Frameworks {
    // Set by the test.
    SInt32 system_version; // from Gestalt
    OSErr gestalt_status;  // 0 for success
    OSStatus make_status;  // of FSPathMakeRef; if not 0, the reference is not changed
    OSStatus open_status;  // of the two opening calls
    bool has_proxies;      // whether the system has a proxy dictionary
    std::vector<LoadedBundle> bundles;
    std::map<std::string, ProxyEntry> proxies; // by key: "HTTPEnable", "HTTPProxy", "HTTPPort"
    std::size_t failing_call; // the number of the call that fails, from 1; 0 for none

    // Recorded for the test.
    std::vector<std::string> calls;  // the calls that can fail
    std::vector<std::string> opened; // "file PATH", "URL TEXT", escaped
    std::vector<std::string> faults; // "CALL: what is wrong"
};

extern Frameworks frameworks;

// Every call succeeds; there is no bundle and no proxy; all records and objects are gone.
void frameworks_reset();

// The number of objects that their owner has not released.
int frameworks_objects_left();

// The number of objects made so far.
int frameworks_objects_made();

} // namespace quintral::tests

#endif
