#include "tests/support/failing-calls.h"

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
std::string forged_name;

namespace {

bool watching = false;
int failing_error = 0;

std::string without_offset_size(std::string function)
{
    const std::size_t length = function.size();
    const bool sized = length > 2 && function.compare(length - 2, 2, "64") == 0;
    return sized ? function.substr(0, length - 2) : function;
}

// True where this call is the one to fail; errno is set then.
bool call_fails(const char *function, const char *name)
{
    if (!watching)
        return false;
    watching = false;
    calls.push_back({without_offset_size(function), name == nullptr ? "" : name});
    const std::size_t number = calls.size();
    if (before_call)
        before_call(calls.back());
    watching = true;
    if (number == failing_call)
        errno = failing_error;
    return number == failing_call;
}

template <typename Function> Function system_call(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

template <typename Record> Record *forge_name(Record *entry)
{
    if (entry != nullptr && watching && !forged_name.empty() &&
        std::strcmp(entry->d_name, "forged") == 0)
        std::snprintf(entry->d_name, sizeof entry->d_name, "%s", forged_name.c_str());
    return entry;
}

template <typename Status> int hide_type(int result, Status *status)
{
    if (result == 0 && watching && type_bits_hidden)
        status->st_mode &= static_cast<mode_t>(~S_IFMT);
    return result;
}

// For calls that release what they were given even when they fail.
int released(int result, bool fails)
{
    if (fails)
        errno = failing_error;
    return fails ? -1 : result;
}

} // namespace

void stop_watching()
{
    watching = false;
    failing_call = 0;
    type_bits_hidden = false;
    before_call = nullptr;
    forged_name.clear();
}

void watch_calls(std::size_t call_to_fail, int error)
{
    calls.clear();
    failing_call = call_to_fail;
    failing_error = error;
    watching = true;
}

} // namespace quintral::tests

using quintral::tests::call_fails;
using quintral::tests::failing_error;
using quintral::tests::forge_name;
using quintral::tests::hide_type;
using quintral::tests::released;
using quintral::tests::system_call;

#define DEFINE_STAT(function, record)                                                              \
    extern "C" int function(const char *path, struct record *status) noexcept                      \
    {                                                                                              \
        if (call_fails(#function, path))                                                           \
            return -1;                                                                             \
        static const auto real = system_call<int (*)(const char *, struct record *)>(#function);   \
        return hide_type(real(path, status), status);                                              \
    }

#define DEFINE_FSTAT(function, record)                                                             \
    extern "C" int function(int descriptor, struct record *status) noexcept                        \
    {                                                                                              \
        if (call_fails(#function, nullptr))                                                        \
            return -1;                                                                             \
        static const auto real = system_call<int (*)(int, struct record *)>(#function);            \
        return real(descriptor, status);                                                           \
    }

#define DEFINE_FSTATAT(function, record)                                                           \
    extern "C" int function(int folder, const char *name, struct record *status,                   \
                            int flags) noexcept                                                    \
    {                                                                                              \
        if (call_fails(#function, name))                                                           \
            return -1;                                                                             \
        static const auto real =                                                                   \
            system_call<int (*)(int, const char *, struct record *, int)>(#function);              \
        return hide_type(real(folder, name, status, flags), status);                               \
    }

#define DEFINE_OPENAT(function)                                                                    \
    extern "C" int function(int folder, const char *name, int flags, ...)                          \
    {                                                                                              \
        std::va_list arguments;                                                                    \
        va_start(arguments, flags);                                                                \
        const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;                \
        va_end(arguments);                                                                         \
        if (call_fails(#function, name))                                                           \
            return -1;                                                                             \
        static const auto real = system_call<int (*)(int, const char *, int, ...)>(#function);     \
        return real(folder, name, flags, mode);                                                    \
    }

#define DEFINE_FCNTL(function)                                                                     \
    extern "C" int function(int descriptor, int command, ...)                                      \
    {                                                                                              \
        std::va_list arguments;                                                                    \
        va_start(arguments, command);                                                              \
        void *argument = va_arg(arguments, void *);                                                \
        va_end(arguments);                                                                         \
        if (call_fails(#function, nullptr))                                                        \
            return -1;                                                                             \
        static const auto real = system_call<int (*)(int, int, ...)>(#function);                   \
        return real(descriptor, command, argument);                                                \
    }

#define DEFINE_READDIR(function, record)                                                           \
    extern "C" struct record *function(DIR *stream)                                                \
    {                                                                                              \
        if (call_fails(#function, nullptr))                                                        \
            return nullptr;                                                                        \
        static const auto real = system_call<struct record *(*)(DIR *)>(#function);                \
        return forge_name(real(stream));                                                           \
    }

#define DEFINE_FOPEN(function)                                                                     \
    extern "C" FILE *function(const char *path, const char *mode)                                  \
    {                                                                                              \
        if (call_fails(#function, path))                                                           \
            return nullptr;                                                                        \
        static const auto real = system_call<FILE *(*)(const char *, const char *)>(#function);    \
        return real(path, mode);                                                                   \
    }

DEFINE_STAT(stat, stat)
DEFINE_STAT(stat64, stat64)
DEFINE_STAT(lstat, stat)
DEFINE_STAT(lstat64, stat64)
DEFINE_FSTAT(fstat, stat)
DEFINE_FSTAT(fstat64, stat64)
DEFINE_FSTATAT(fstatat, stat)
DEFINE_FSTATAT(fstatat64, stat64)
DEFINE_OPENAT(openat)
DEFINE_OPENAT(openat64)
DEFINE_FCNTL(fcntl)
DEFINE_FCNTL(fcntl64)
DEFINE_READDIR(readdir, dirent)
DEFINE_READDIR(readdir64, dirent64)
DEFINE_FOPEN(fopen)
DEFINE_FOPEN(fopen64)

extern "C" int unlinkat(int folder, const char *name, int flags) noexcept
{
    if (call_fails("unlinkat", name))
        return -1;
    static const auto real = system_call<int (*)(int, const char *, int)>("unlinkat");
    return real(folder, name, flags);
}

extern "C" int unlink(const char *path) noexcept
{
    if (call_fails("unlink", path))
        return -1;
    static const auto real = system_call<int (*)(const char *)>("unlink");
    return real(path);
}

extern "C" int rmdir(const char *path) noexcept
{
    if (call_fails("rmdir", path))
        return -1;
    static const auto real = system_call<int (*)(const char *)>("rmdir");
    return real(path);
}

extern "C" int chmod(const char *path, mode_t mode) noexcept
{
    if (call_fails("chmod", path))
        return -1;
    static const auto real = system_call<int (*)(const char *, mode_t)>("chmod");
    return real(path, mode);
}

extern "C" DIR *opendir(const char *path)
{
    if (call_fails("opendir", path))
        return nullptr;
    static const auto real = system_call<DIR *(*)(const char *)>("opendir");
    return real(path);
}

extern "C" DIR *fdopendir(int descriptor)
{
    if (call_fails("fdopendir", nullptr))
        return nullptr;
    static const auto real = system_call<DIR *(*)(int)>("fdopendir");
    return real(descriptor);
}

extern "C" int closedir(DIR *stream)
{
    const bool fails = call_fails("closedir", nullptr);
    static const auto real = system_call<int (*)(DIR *)>("closedir");
    return released(real(stream), fails);
}

extern "C" int close(int descriptor)
{
    const bool fails = call_fails("close", nullptr);
    static const auto real = system_call<int (*)(int)>("close");
    return released(real(descriptor), fails);
}

extern "C" int fclose(FILE *stream)
{
    const bool fails = call_fails("fclose", nullptr);
    static const auto real = system_call<int (*)(FILE *)>("fclose");
    return released(real(stream), fails);
}

extern "C" std::size_t fread(void *buffer, std::size_t size, std::size_t count, FILE *stream)
{
    if (call_fails("fread", nullptr))
        return 0;
    static const auto real =
        system_call<std::size_t (*)(void *, std::size_t, std::size_t, FILE *)>("fread");
    return real(buffer, size, count, stream);
}
