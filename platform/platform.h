// Queries of the operating system and the desktop: the system's name and version, the folders of
// the running program's bundle and of the Quintral plug-in bundles, and opening files, folders and
// URLs as a double click or a click on a link would.
//
// Results are NUL-terminated strings in the caller's buffer; no platform objects are exposed, and
// every object that a function creates is released before it returns. Nothing is reported through
// the diagnostics: failures show only in the result and the buffer. No state is kept; a function
// may be called from any thread that may call the platform's services.
//
// Strings are plain bytes on Linux. On macOS the paths to open are UTF-8, while URLs, resource
// names and the paths that a function returns are in the system encoding, which is Mac Roman on a
// system for a western language. A path that is not expressible in it is returned as an empty
// string, and a returned path that is not ASCII must be converted before it is opened.
//
//     char path[1024];
//     if (platform_bundle_path(path, sizeof path, MainNamedResource, "welcome.txt") != nullptr)
//         platform_open_document(path);
#ifndef QUINTRAL_PLATFORM_PLATFORM_H
#define QUINTRAL_PLATFORM_PLATFORM_H

#include "file-ref.h"

#include <cstddef>
#include <cstdint>

#pragma GCC visibility push(default) // exported from a shared library
namespace quintral {

// Operating system

// Writes the operating system's name, "Mac OS X" or "Linux".
// Requires: buffer is at least 9 bytes long.
void platform_os_name(char *buffer);

// Writes the operating system's version: on macOS the system's version number formatted by
// platform_format_system_version (which cannot represent 10.4.11 or any current version), on Linux
// the kernel release; or "unknown" if it is not available. What does not fit is cut off; the
// buffer's last byte is always a terminator. Returns the buffer.
// Requires: buffer is at least capacity bytes long; capacity is at least 1.
char *platform_os_version(char *buffer, std::size_t capacity);

// Formats a Mac OS X version number, in which each of the low four hex digits is a decimal digit:
// the two highest are the major number, the other two follow after dots, so 0x1049 gives "10.4.9".
// What does not fit is cut off; the buffer's last byte is always a terminator. Returns the buffer.
// Requires: buffer is at least capacity bytes long; capacity is at least 1.
char *platform_format_system_version(std::uint32_t system_version, char *buffer,
                                     std::size_t capacity);

// Opening in the desktop
//
// A status of 0 means that the desktop accepted the request, not that anything is visible yet. On
// macOS the call waits for Launch Services without a time limit; any other status comes from Launch
// Services. On Linux the request is passed to xdg-open, and the call waits at most one second: the
// status is the exit status of xdg-open, 0 if it is still running, or -1 if it cannot be started or
// was killed by a signal. The launched program is never a child of the caller and leaves no zombie;
// a process that adopts orphans (PID 1 in a container, a subreaper) adopts this one too. The caller
// gets one SIGCHLD.

// Status for input that is not a valid URL.
constexpr std::int32_t PlatformNoAddress = -30773;

// Makes a reference to an existing file or folder from its POSIX path. Returns 0, with *ref filled;
// or a negative status (-43 if the path does not exist). On failure *ref is an empty reference on
// Linux, which opens nothing, and undefined on macOS.
std::int32_t platform_make_ref(const char *path, PlatformFileRef *ref);

// Opens a file with its application, or a folder in the file browser. Returns the status; on Linux
// -1 for a path that contains a backslash or a line feed, because xdg-open would open something
// else.
// Requires: ref was filled by platform_make_ref.
std::int32_t platform_open_ref(PlatformFileRef ref);

// Does the same for a POSIX path. Opens nothing if there is no file or folder at the path.
std::int32_t platform_open_path(const char *path);

// Opens a URL with the desktop's handler for its scheme. Returns the status, or PlatformNoAddress:
// on macOS if the system cannot create a URL from the bytes, such as when they contain a NUL (it
// escapes spaces and characters that are not ASCII); on Linux if they do not begin with a scheme (a
// letter, then letters, digits, '+', '-' and '.', up to a ':') or contain a byte that RFC 3986 does
// not allow, such as a space or a byte above 0x7E. Any scheme is accepted; validate URLs from
// untrusted sources first. Throws std::bad_alloc when memory runs out.
// Requires: address is count bytes long; it need not be terminated.
std::int32_t platform_open_url(const char *address, std::size_t count);

// Opens a path if the string begins with '/', otherwise a URL, so a relative path is treated as a
// URL. Returns 0 if the desktop accepted the request, otherwise -1. Throws std::bad_alloc when
// memory runs out.
int platform_open_document(const char *text);

// Bundles
//
// On macOS a bundle is what the system considers one. On Linux the main bundle of a program
// PREFIX/bin/NAME is the folder PREFIX/share/NAME.resources if that exists, otherwise the folder
// that contains the program. The main bundle contains the resources and support files, and a folder
// PlugIns, in which each plug-in bundle is a folder IDENTIFIER.bundle that contains the plug-in's
// resources. Paths are absolute on Linux. On macOS those of the support files, the resources folder
// and the plug-ins are relative to the bundle's folder; for a program that is not in a bundle the
// support files and the resources folder are absolute. The two plug-in bundle identifiers and the
// fixed folder are build settings (QUINTRAL_PLUGIN_IDENTIFIER, QUINTRAL_SECOND_PLUGIN_IDENTIFIER,
// QUINTRAL_CONFIG_FOLDER).

// What platform_bundle_path can find.
enum BundleLocation : unsigned {
    MainBundle,          // the folder of the main bundle
    MainExecutable,      // the program
    MainSupportFiles,    // the folder of the support files
    MainResources,       // the folder of the resources
    MainPlugIns,         // the folder of the built-in plug-ins; on Linux even if it does not exist
    MainNamedResource,   // a resource by name
    SecondProductBundle, // the folder of the second product's plug-in bundle
    ConfigFolder         // the fixed configuration folder, even if it does not exist
};

// Writes the path of a location; a value above ConfigFolder counts as MainBundle. resource_name is
// used only for MainNamedResource.
//
// Returns the buffer; or null, with the buffer unchanged, if the location does not exist or if
// there is no main bundle, which every location requires. If the path does not fit, it is cut and
// terminated on Linux, while on macOS the system leaves an empty string in the buffer; the buffer
// is returned on both. On Linux a resource name that is null, empty, begins with '/' or has a
// component ".." is never found. On macOS a name also finds folders, files in them, files of the
// user's language and even "../Info.plist"; check names from untrusted sources first.
// Requires: buffer is at least capacity bytes long; capacity is at least 1; on macOS resource_name
// is neither null nor empty for MainNamedResource (an empty name finds some file).
char *platform_bundle_path(char *buffer, std::size_t capacity, unsigned location,
                           const char *resource_name);

// Writes the path of the Quintral plug-in bundle's folder; otherwise the same as
// platform_bundle_path.
char *platform_plugin_bundle_path(char *buffer, std::size_t capacity);

// Writes the path of a named resource of the Quintral plug-in bundle. Always returns 0; if the
// resource is not found, the buffer is unchanged. To detect that, set the buffer's first byte to a
// terminator before the call and check it afterwards, as existing programs do.
// Requires: see platform_bundle_path; on macOS resource_name is neither null nor empty.
int platform_plugin_resource_path(const char *resource_name, char *buffer, std::size_t capacity);

} // namespace quintral
#pragma GCC visibility pop

#endif
