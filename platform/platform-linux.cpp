// The platform queries on Linux: uname for the version, the folders near the running program for
// the bundles, xdg-open for the desktop. See platform.h.
#include "platform/platform.h"

#include "platform/path-linux.h"
#include "platform/xdg-open-linux.h"
#include "support/ascii.h"
#include "support/c-utils/memory.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>

#include <sys/utsname.h>
#include <unistd.h>

namespace quintral {
namespace {

constexpr std::int32_t not_found = -43; // as on macOS
constexpr std::int32_t no_reference = -1;

// URLs

bool is_allowed_in_scheme(char c)
{
    return ascii_is_letter_or_digit(c) || c == '+' || c == '-' || c == '.';
}

// RFC 3986, section 2: the unreserved and the reserved characters, and '%'.
bool is_allowed_in_url(char c)
{
    static const char others[] = {'-', '.', '_',  '~', ':', '/', '?', '#', '[', ']', '@', '!',
                                  '$', '&', '\'', '(', ')', '*', '+', ',', ';', '=', '%'};
    return ascii_is_letter_or_digit(c) ||
           std::find(std::begin(others), std::end(others), c) != std::end(others);
}

// True for a scheme as in RFC 3986, section 3.1, a ':' and any allowed characters. A scheme begins
// with a letter, so xdg-open never takes a URL for an option.
bool is_url(const char *address, std::size_t count)
{
    const char *end = address + count;
    const char *colon = std::find_if_not(address, end, is_allowed_in_scheme);
    return colon != end && *colon == ':' && ascii_is_letter(*address) &&
           std::all_of(colon, end, is_allowed_in_url);
}

// Bundles

// Three paths of at most PATH_MAX bytes, terminators included.
struct ProgramPaths {
    char program[PATH_MAX];
    char folder[PATH_MAX]; // contains the program
    char bundle[PATH_MAX]; // the main bundle
};

// The system appends a mark to the path of a program whose file has been removed or replaced, as by
// an update, since it started; its bundle is still in the same place. A file really named that way
// still exists.
void drop_removal_mark(char *path)
{
    static const char mark[] = " (deleted)";
    const std::size_t mark_length = sizeof mark - 1;
    const std::size_t length = std::strlen(path);
    if (length <= mark_length || std::strcmp(path + length - mark_length, mark) != 0)
        return;
    if (access(path, F_OK) != 0)
        path[length - mark_length] = '\0';
}

// Returns false if the path is not available: if there is no /proc, or if the path is too long for
// it or, on systems with large pages, for the buffer. Everything below relies on the leading slash.
bool find_running_program(char *path, std::size_t capacity)
{
    const ssize_t length = readlink("/proc/self/exe", path, capacity);
    if (length <= 0 || static_cast<std::size_t>(length) >= capacity || path[0] != '/')
        return false;
    path[length] = '\0';
    drop_removal_mark(path);
    return true;
}

// Copies the folder part of an absolute path.
void copy_folder(const char *path, char *folder)
{
    const char *slash = std::strrchr(path, '/');
    const auto length = static_cast<std::size_t>(slash - path);
    copy_string_bounded(folder, path, std::max<std::size_t>(length, 1) + 1);
}

// Returns true, with the path of PREFIX/share/NAME.resources, if the program is PREFIX/bin/NAME and
// that folder exists.
bool find_installed_bundle(const ProgramPaths &paths, char *bundle, std::size_t capacity)
{
    const char *last = std::strrchr(paths.folder, '/');
    if (std::strcmp(last, "/bin") != 0)
        return false;
    const auto prefix_length = static_cast<int>(last - paths.folder);
    const char *name = std::strrchr(paths.program, '/') + 1;
    const int length = std::snprintf(bundle, capacity, "%.*s/share/%s.resources", prefix_length,
                                     paths.folder, name);
    return length >= 0 && static_cast<std::size_t>(length) < capacity && is_folder(bundle);
}

bool find_main_bundle(ProgramPaths *paths)
{
    if (!find_running_program(paths->program, sizeof paths->program))
        return false;
    copy_folder(paths->program, paths->folder);
    if (!find_installed_bundle(*paths, paths->bundle, sizeof paths->bundle))
        std::strcpy(paths->bundle, paths->folder);
    return true;
}

bool copy_path(char *path, std::size_t capacity, const char *source)
{
    copy_string_bounded(path, source, capacity);
    return true;
}

// True if a component of the name is "..".
bool leads_up(const char *name)
{
    for (;;) {
        const std::size_t length = ascii_length_before(name, "/");
        if (length == 2 && name[0] == '.' && name[1] == '.')
            return true;
        if (name[length] == '\0')
            return false;
        name += length + 1;
    }
}

bool find_resource(const char *folder, const char *name, char *path, std::size_t capacity)
{
    if (name == nullptr || name[0] == '\0' || name[0] == '/' || leads_up(name))
        return false;
    return join_path(path, capacity, folder, name) && access(path, F_OK) == 0;
}

bool find_plugin_bundle(const char *main_bundle, const char *identifier, char *path,
                        std::size_t capacity)
{
    char name[PATH_MAX];
    const int length = std::snprintf(name, sizeof name, "PlugIns/%s.bundle", identifier);
    return length >= 0 && static_cast<std::size_t>(length) < sizeof name &&
           join_path(path, capacity, main_bundle, name) && is_folder(path);
}

// Finds the bundle of the Quintral plug-in.
bool find_quintral_bundle(char *path, std::size_t capacity)
{
    ProgramPaths paths;
    return find_main_bundle(&paths) &&
           find_plugin_bundle(paths.bundle, QUINTRAL_PLUGIN_IDENTIFIER, path, capacity);
}

bool find_location(const ProgramPaths &paths, unsigned location, const char *resource_name,
                   char *path, std::size_t capacity)
{
    switch (location) {
    case MainExecutable:
        return copy_path(path, capacity, paths.program);
    case MainPlugIns:
        return join_path(path, capacity, paths.bundle, "PlugIns");
    case MainNamedResource:
        return find_resource(paths.bundle, resource_name, path, capacity);
    case SecondProductBundle:
        return find_plugin_bundle(paths.bundle, QUINTRAL_SECOND_PLUGIN_IDENTIFIER, path, capacity);
    case ConfigFolder:
        return copy_path(path, capacity, QUINTRAL_CONFIG_FOLDER);
    default: // support files and resources are in the bundle's folder itself
        return copy_path(path, capacity, paths.bundle);
    }
}

} // namespace

void platform_os_name(char *buffer)
{
    std::strcpy(buffer, "Linux");
}

char *platform_os_version(char *buffer, std::size_t capacity)
{
    utsname system = {};
    const bool known = uname(&system) == 0;
    // Fills the rest of the buffer with NULs, so its last byte is always a terminator.
    return copy_string_bounded(buffer, known ? system.release : "unknown", capacity);
}

std::int32_t platform_make_ref(const char *path, PlatformFileRef *ref)
{
    *ref = {};
    if (access(path, F_OK) != 0)
        return errno == ENOENT || errno == ENOTDIR ? not_found : no_reference;
    char folder[PATH_MAX] = "/";
    if (path[0] != '/' && getcwd(folder, sizeof folder) == nullptr)
        return no_reference;
    if (join_path(ref->path, sizeof ref->path, folder, path[0] == '/' ? path + 1 : path))
        return 0;
    *ref = {};
    return no_reference;
}

std::int32_t platform_open_ref(PlatformFileRef ref)
{
    const bool terminated = std::memchr(ref.path, '\0', sizeof ref.path) != nullptr;
    if (!terminated || ref.path[0] != '/')
        return no_reference;
    // xdg-open is a shell script that mangles these bytes: it would open another file or a URL.
    if (std::strpbrk(ref.path, "\\\n") != nullptr)
        return no_reference;
    return platform_xdg_open(ref.path);
}

std::int32_t platform_open_path(const char *path)
{
    PlatformFileRef ref;
    const std::int32_t status = platform_make_ref(path, &ref);
    return status == 0 ? platform_open_ref(ref) : status;
}

std::int32_t platform_open_url(const char *address, std::size_t count)
{
    if (!is_url(address, count))
        return PlatformNoAddress;
    return platform_xdg_open(std::string(address, count).c_str());
}

char *platform_bundle_path(char *buffer, std::size_t capacity, unsigned location,
                           const char *resource_name)
{
    ProgramPaths paths;
    char path[PATH_MAX];
    if (!find_main_bundle(&paths) ||
        !find_location(paths, location, resource_name, path, sizeof path))
        return nullptr;
    return copy_string_bounded(buffer, path, capacity);
}

char *platform_plugin_bundle_path(char *buffer, std::size_t capacity)
{
    char path[PATH_MAX];
    if (!find_quintral_bundle(path, sizeof path))
        return nullptr;
    return copy_string_bounded(buffer, path, capacity);
}

int platform_plugin_resource_path(const char *resource_name, char *buffer, std::size_t capacity)
{
    char folder[PATH_MAX];
    char path[PATH_MAX];
    if (find_quintral_bundle(folder, sizeof folder) &&
        find_resource(folder, resource_name, path, sizeof path))
        copy_string_bounded(buffer, path, capacity);
    return 0;
}

} // namespace quintral
