#include "tests/support/failing-calls.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quintral::tests {

std::vector<Call> calls;
std::size_t failing_call = 0;
std::function<void(const Call &call)> before_call;
bool type_bits_hidden = false;
bool entry_types_hidden = false;
std::string forged_name;

namespace {

bool watching = false;
int failing_error = 0;

// Records the call. True if it is the one to fail; errno is set then.
bool call_fails(const char *function, const char *name)
{
    if (!watching)
        return false;
    watching = false;
    calls.push_back({function, name == nullptr ? "" : name});
    const std::size_t number = calls.size();
    if (before_call)
        before_call(calls.back());
    watching = true;
    if (number == failing_call)
        errno = failing_error;
    return number == failing_call;
}

// Returns the C library's own function. The headers rename some functions by the size of their file
// offsets and times: stat becomes stat64, or __stat64_time64 on 32 bits. The definitions below are
// renamed alike, so they replace what the helpers call, and the widest name that the library has is
// the one that the headers chose.
template <typename Function> Function *system_call(const char *name, Function *)
{
    static const char *const patterns[] = {"__%s64_time64", "__%s_time64", "%s64", "%s"};
    void *found = nullptr;
    for (const char *pattern : patterns) {
        char candidate[64]; // not a string, because tests count allocations
        std::snprintf(candidate, sizeof candidate, pattern, name);
        if (found == nullptr)
            found = dlsym(RTLD_NEXT, candidate);
    }
    return reinterpret_cast<Function *>(found);
}

int without_type(int result, struct stat *status)
{
    if (result == 0 && watching && type_bits_hidden)
        status->st_mode &= static_cast<mode_t>(~S_IFMT);
    return result;
}

dirent *with_settings(dirent *entry)
{
    if (entry != nullptr && watching && entry_types_hidden)
        entry->d_type = DT_UNKNOWN;
    if (entry != nullptr && watching && !forged_name.empty() &&
        std::strcmp(entry->d_name, "forged") == 0)
        std::snprintf(entry->d_name, sizeof entry->d_name, "%s", forged_name.c_str());
    return entry;
}

// The result of a call that releases its argument even if it fails.
int released(int result, bool fails)
{
    if (fails)
        errno = failing_error;
    return fails ? -1 : result;
}

} // namespace

void watch_calls(std::size_t call_to_fail, int error)
{
    calls.clear();
    failing_call = call_to_fail;
    failing_error = error;
    watching = true;
}

void stop_watching()
{
    watching = false;
    failing_call = 0;
    before_call = nullptr;
    type_bits_hidden = false;
    entry_types_hidden = false;
    forged_name.clear();
}

} // namespace quintral::tests

using quintral::tests::call_fails;
using quintral::tests::released;
using quintral::tests::system_call;
using quintral::tests::with_settings;
using quintral::tests::without_type;

extern "C" int stat(const char *path, struct stat *status) noexcept
{
    if (call_fails("stat", path))
        return -1;
    static const auto real = system_call("stat", &stat);
    return without_type(real(path, status), status);
}

extern "C" int lstat(const char *path, struct stat *status) noexcept
{
    if (call_fails("lstat", path))
        return -1;
    static const auto real = system_call("lstat", &lstat);
    return without_type(real(path, status), status);
}

extern "C" int fstat(int descriptor, struct stat *status) noexcept
{
    if (call_fails("fstat", nullptr))
        return -1;
    static const auto real = system_call("fstat", &fstat);
    return real(descriptor, status);
}

extern "C" int fstatat(int folder, const char *name, struct stat *status, int flags) noexcept
{
    if (call_fails("fstatat", name))
        return -1;
    static const auto real = system_call("fstatat", &fstatat);
    return without_type(real(folder, name, status, flags), status);
}

extern "C" int openat(int folder, const char *name, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (call_fails("openat", name))
        return -1;
    static const auto real = system_call("openat", &openat);
    return real(folder, name, flags, mode);
}

extern "C" int fcntl(int descriptor, int command, ...)
{
    std::va_list arguments;
    va_start(arguments, command);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if (call_fails("fcntl", nullptr))
        return -1;
    static const auto real = system_call("fcntl", &fcntl);
    return real(descriptor, command, argument);
}

extern "C" dirent *readdir(DIR *stream)
{
    if (call_fails("readdir", nullptr))
        return nullptr;
    static const auto real = system_call("readdir", &readdir);
    return with_settings(real(stream));
}

extern "C" FILE *fopen(const char *path, const char *mode)
{
    if (call_fails("fopen", path))
        return nullptr;
    static const auto real = system_call("fopen", &fopen);
    return real(path, mode);
}

extern "C" int unlinkat(int folder, const char *name, int flags) noexcept
{
    if (call_fails("unlinkat", name))
        return -1;
    static const auto real = system_call("unlinkat", &unlinkat);
    return real(folder, name, flags);
}

extern "C" int unlink(const char *path) noexcept
{
    if (call_fails("unlink", path))
        return -1;
    static const auto real = system_call("unlink", &unlink);
    return real(path);
}

extern "C" int rmdir(const char *path) noexcept
{
    if (call_fails("rmdir", path))
        return -1;
    static const auto real = system_call("rmdir", &rmdir);
    return real(path);
}

extern "C" int chmod(const char *path, mode_t mode) noexcept
{
    if (call_fails("chmod", path))
        return -1;
    static const auto real = system_call("chmod", &chmod);
    return real(path, mode);
}

extern "C" int fchmod(int descriptor, mode_t mode) noexcept
{
    if (call_fails("fchmod", nullptr))
        return -1;
    static const auto real = system_call("fchmod", &fchmod);
    return real(descriptor, mode);
}

extern "C" DIR *opendir(const char *path)
{
    if (call_fails("opendir", path))
        return nullptr;
    static const auto real = system_call("opendir", &opendir);
    return real(path);
}

extern "C" DIR *fdopendir(int descriptor)
{
    if (call_fails("fdopendir", nullptr))
        return nullptr;
    static const auto real = system_call("fdopendir", &fdopendir);
    return real(descriptor);
}

extern "C" int closedir(DIR *stream)
{
    const bool fails = call_fails("closedir", nullptr);
    static const auto real = system_call("closedir", &closedir);
    return released(real(stream), fails);
}

extern "C" int close(int descriptor)
{
    const bool fails = call_fails("close", nullptr);
    static const auto real = system_call("close", &close);
    return released(real(descriptor), fails);
}

extern "C" int fclose(FILE *stream)
{
    const bool fails = call_fails("fclose", nullptr);
    static const auto real = system_call("fclose", &fclose);
    return released(real(stream), fails);
}

extern "C" std::size_t fread(void *buffer, std::size_t size, std::size_t count, FILE *stream)
{
    if (call_fails("fread", nullptr))
        return 0;
    static const auto real = system_call("fread", &fread);
    return real(buffer, size, count, stream);
}
