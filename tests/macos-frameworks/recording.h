// Frameworks of macOS that answer as a test sets them up and note what is done to them: every
// object made and released, every misuse, everything opened. Each call that can fail can be made
// to, in turn. Link recording.cpp with the macOS sources, unchanged and compiled with this folder
// in the include path and QUINTRAL_PLATFORM_MACOS defined:
//
//     frameworks_reset();
//     frameworks.bundles = {{"", "/Applications/Some.app", {}}};
//     ... call the operation under test ...
//     EXPECT_EQ(frameworks_objects_left(), 0);
//     EXPECT_EQ(frameworks.faults, std::vector<std::string>());
//
// Stricter than the system: what would crash there, or only sometimes, is a fault here, and so is
// an argument that none of the sources has a reason to pass.
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

// A loaded bundle. Its own folder, its executable (Contents/MacOS/program) and its resources
// (Contents/Resources/NAME) have absolute paths, its support files (Contents), resources
// (Contents/Resources) and plug-ins (Contents/PlugIns) relative ones, as the system gives them.
struct LoadedBundle {
    std::string identifier; // empty for the main bundle
    std::string root;
    std::vector<std::string> resources; // names
};

enum class ProxyEntryKind { Text, Number, UnreadableNumber };

struct ProxyEntry {
    ProxyEntryKind kind;
    std::string text;
    int number; // an unreadable one is written too, but the reading fails
};

// The system encoding: UTF-8 under a number that no system uses, so that a source that does not ask
// for it is found out. The byte 0xFF stands in no text.
constexpr CFStringEncoding recorded_system_encoding = 0x0badc0de;

// What calls that were made to fail return.
constexpr OSErr recorded_gestalt_failure = -5551;
constexpr OSStatus recorded_no_such_file = -43;
constexpr OSStatus recorded_no_application = -10814;

struct Frameworks {
    // Set by the test.
    SInt32 system_version; // what Gestalt answers
    OSErr gestalt_status;  // 0 for success
    OSStatus make_status;  // of FSPathMakeRef; anything but 0 leaves the reference as it was
    OSStatus open_status;  // of the two opening calls
    bool has_proxies;      // whether the system gives a proxy dictionary
    std::vector<LoadedBundle> bundles;
    std::map<std::string, ProxyEntry> proxies; // by key: "HTTPEnable", "HTTPProxy", "HTTPPort"
    std::size_t failing_call; // the number of the call that fails, from 1; 0 for none

    // Noted for the test.
    std::vector<std::string> calls;  // those that can fail
    std::vector<std::string> opened; // "file PATH", "address TEXT"
    std::vector<std::string> faults; // "CALL: what is wrong"
};

extern Frameworks frameworks;

// Success everywhere, no bundle, no proxy; nothing noted, every object forgotten.
void frameworks_reset();

// The objects made that their owner has not released.
int frameworks_objects_left();

// The objects made so far.
int frameworks_objects_made();

} // namespace quintral::tests

#endif
