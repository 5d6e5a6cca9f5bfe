// Queries of the operating system and the desktop: its name and version, the folders of the running
// program's bundle and of the suite's plug-in bundles, and opening files, folders and addresses as
// a double click or a click on a link would.
//
// Answers are NUL-terminated texts in a buffer of the caller's; no platform object escapes, and
// every object that an operation makes is released before it returns. Texts are in the system's
// default encoding on macOS and plain bytes on Linux. Nothing is reported through the diagnostics:
// the result and the buffer tell all. No state is kept; an operation may be called from any thread
// that may call the platform's services.
//
//     char path[1024];
//     if (platform_bundle_path(path, sizeof path, MainNamedResource, "welcome.txt") != nullptr)
//         platform_open_document(path);
#ifndef QUINTRAL_PLATFORM_PLATFORM_H
#define QUINTRAL_PLATFORM_PLATFORM_H

#include "file-ref.h"

#include <cstddef>
#include <cstdint>

namespace quintral {

// Operating system

// Writes the operating system's name, "Mac OS X" or "Linux".
// Requires: buffer has room for 9 bytes.
void platform_os_name(char *buffer);

// Writes the operating system's version: on macOS what platform_format_system_version makes of the
// system's own number (whose four digits can tell neither 10.4.11 nor a system of today), on Linux
// the kernel's release. "unknown" where the system does not say. What does not fit is cut; the
// buffer's last byte is always a terminator. Returns the buffer.
// Requires: buffer has room for capacity bytes, capacity is at least 1.
char *platform_os_version(char *buffer, std::size_t capacity);

// Writes the text of a system version number of Mac OS X, in which each of the low four half bytes
// is a decimal digit: the two highest make the major number, the others follow behind points, so
// 0x1049 gives "10.4.9". What does not fit is cut; the buffer's last byte is always a terminator.
// Returns the buffer.
// Requires: buffer has room for capacity bytes, capacity is at least 1.
char *platform_format_system_version(std::uint32_t system_version, char *buffer,
                                     std::size_t capacity);

// Opening in the desktop
//
// A status of 0 says that the desktop accepted the request, not that anything can be seen yet. On
// macOS any other status is that of the system's launch services. On Linux the desktop is asked
// through xdg-open, for at most a second: the status is the one it ended with by then, 0 where it
// is still at work, -1 where it cannot be started or was ended by a signal. What is opened never is
// the caller's child and leaves no zombie; a process that gets the orphans of others (the first of
// a container, a subreaper) gets this one too. The caller sees one SIGCHLD.

// The status for bytes of which no address can be made.
constexpr std::int32_t PlatformNoAddress = -30773;

// Makes a reference to an existing file or folder from its POSIX path. Returns 0 with *ref filled;
// otherwise a negative status (-43 where nothing stands at the path) and on Linux an empty
// reference, which opens nothing; on macOS *ref is then undefined.
std::int32_t platform_make_ref(const char *path, PlatformFileRef *ref);

// Opens a file with its application, or a folder in the file browser. Returns the status; on Linux
// -1 for a path with a backslash or a line feed, which xdg-open would take for another one.
// Requires: platform_make_ref filled ref.
std::int32_t platform_open_ref(PlatformFileRef ref);

// The same for a POSIX path. Nothing that has no file at the path is opened.
std::int32_t platform_open_path(const char *path);

// Opens an address with the desktop's handler for its scheme. Returns the status, or
// PlatformNoAddress: on macOS where the system makes no address of the bytes; on Linux where they
// do not begin with a scheme (a letter, then letters, digits, '+', '-' and '.', up to a ':') or
// hold a byte that RFC 3986 knows no place for, a blank or a byte above 0x7E among them.
// Whatever the scheme: who opens addresses from outside checks them first. Throws std::bad_alloc
// when memory runs out.
// Requires: address holds count bytes; a terminator is not needed.
std::int32_t platform_open_url(const char *address, std::size_t count);

// Opens a text that is a path where it begins with '/', otherwise an address, so that a relative
// path is taken for an address. Returns 0 where the desktop accepted it, otherwise -1. Throws
// std::bad_alloc when memory runs out.
int platform_open_document(const char *text);

// Bundles
//
// On macOS a bundle is what the system takes for one. On Linux the main bundle of a program
// PREFIX/bin/NAME is the folder PREFIX/share/NAME.resources where that exists, otherwise the folder
// that holds the program; its resources and support files are in it, its plug-ins in its folder
// PlugIns, each plug-in bundle being a folder IDENTIFIER.bundle there, with its resources in it.
// Paths on Linux are absolute; on macOS they are what the system gives, relative where it gives a
// relative one. The two plug-in bundle identifiers and the fixed folder are settings of the build
// (QUINTRAL_PLUGIN_IDENTIFIER, QUINTRAL_SECOND_PLUGIN_IDENTIFIER, QUINTRAL_CONFIG_FOLDER).

enum BundleLocation : unsigned {
    MainBundle,          // the main bundle's own folder
    MainExecutable,      // the program
    MainSupportFiles,    // the folder of the support files
    MainResources,       // the folder of the resources
    MainPlugIns,         // the folder of the built-in plug-ins; on Linux whether it exists or not
    MainNamedResource,   // a resource by its name
    SecondProductBundle, // the folder of the second product's plug-in bundle
    ConfigFolder         // the fixed folder of the configuration, whether it exists or not
};

// Writes the path of a location; one above ConfigFolder counts as MainBundle. resource_name is used
// for MainNamedResource alone.
//
// Returns the buffer; or null with the buffer untouched where there is no such thing, or no main
// bundle at all, which every location needs. A path that does not fit is cut and terminated on
// Linux; on macOS the buffer then holds whatever the system leaves there. Both return the buffer.
// On Linux a resource name that is null, empty or leads out of the folder ("..", a leading '/')
// names nothing.
// Requires: buffer has room for capacity bytes, capacity is at least 1; on macOS a name for
// MainNamedResource.
char *platform_bundle_path(char *buffer, std::size_t capacity, unsigned location,
                           const char *resource_name);

// Writes the path of the folder of the suite's plug-in bundle; all else as platform_bundle_path.
char *platform_plugin_bundle_path(char *buffer, std::size_t capacity);

// Writes the path of a named resource of the suite's plug-in bundle. Returns 0 whether it was found
// or not; the buffer is untouched where it was not. A caller who needs to know makes the buffer's
// first byte a terminator beforehand and looks at it afterwards: programs of the suite do so.
// Requires: as platform_bundle_path.
int platform_plugin_resource_path(const char *resource_name, char *buffer, std::size_t capacity);

} // namespace quintral

#endif
