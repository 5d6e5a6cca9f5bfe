// What the tests of support/c-utils/files.h share: recorded reports, unusual files, long paths, and
// children without special rights.
#ifndef QUINTRAL_TESTS_SUPPORT_FILES_CHECKS_H
#define QUINTRAL_TESTS_SUPPORT_FILES_CHECKS_H

#include "support/error.h"
#include "tests/harness/child-process.h"
#include "tests/harness/message-handler-guard.h"
#include "tests/harness/temp-folder.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace quintral::tests {

// Names and paths

using Names = std::vector<std::string>;

inline bool holds(const Names &names, const std::string &name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

inline std::string last_component(const std::string &path)
{
    return path.substr(path.rfind('/') + 1);
}

// Reports

struct Report {
    MessageLevel level;
    std::string text;
};

inline bool operator==(const Report &one, const Report &other)
{
    return one.level == other.level && one.text == other.text;
}

inline std::ostream &operator<<(std::ostream &out, const Report &report)
{
    return out << "{" << report.level << ", \"" << report.text << "\"}";
}

inline std::vector<Report> reports;

// Changes errno too, as a handler may.
inline void record_report(MessageLevel level, const char *text)
{
    reports.push_back({level, text});
    errno = ERANGE;
}

// For the length of a scope, reports are recorded and not shown.
struct RecordedReports {
    RecordedReports()
    {
        reports.clear();
    }

    MessageHandlerGuard guard{record_report};
};

// Files

inline bool exists(const std::string &path)
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

// Binds a socket to a name in the folder. It is bound from inside the folder, because the path of a
// socket must be short.
inline void make_socket(const TempFolder &folder, const std::string &name)
{
    const int working_folder = open(".", O_RDONLY | O_DIRECTORY);
    ASSERT_EQ(chdir(folder.path().c_str()), 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_LT(name.size(), sizeof address.sun_path);
    std::memcpy(address.sun_path, name.c_str(), name.size());
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    EXPECT_EQ(bind(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof address), 0) << name;
    close(descriptor);
    EXPECT_EQ(fchdir(working_folder), 0);
    close(working_folder);
}

// False if this user may not make devices.
inline bool make_device(const std::string &path, mode_t type)
{
    constexpr dev_t some_device = 0x103; // never opened
    return mknod(path.c_str(), type | 0600, some_device) == 0;
}

// Makes one entry of every kind, and a folder `outside` that links lead to.
inline void make_one_of_each(const TempFolder &folder)
{
    make_directory(folder.path("outside"));
    make_file(folder.path("outside/kept"));
    make_file(folder.path("file"));
    make_directory(folder.path("empty"));
    make_directory(folder.path("full"));
    make_file(folder.path("full/file"));
    make_link("outside/kept", folder.path("file-link"));
    make_link("outside", folder.path("folder-link"));
    make_link("nowhere", folder.path("dangling"));
    make_link("circle", folder.path("circle"));
    ASSERT_EQ(mkfifo(folder.path("fifo").c_str(), 0600), 0);
    make_socket(folder, "socket");
}

// Long paths

// The longest path that the walks form, without its terminator.
constexpr std::size_t longest_path = 1023;

// A name of `length` characters.
inline std::string long_name(std::size_t length)
{
    return std::string(length, 'n');
}

// Makes tree/nnn.../nnn... in the folder and returns the path from the folder, `length` characters.
inline std::string make_long_path(const TempFolder &folder, std::size_t length)
{
    std::string path = "tree";
    make_directory(folder.path(path));
    while (path.size() < length) {
        const std::size_t left = length - path.size() - 1;
        path += "/" + long_name(left > 250 ? 200 : left);
        make_directory(folder.path(path));
    }
    return path;
}

// Children

// The exit status of a child that could not set up its case.
constexpr int set_up_failed = 99;

// Runs body in a child that has `folder` as its working folder and no special rights.
inline ChildResult run_without_rights(const TempFolder &folder, const std::function<int()> &body)
{
    chmod(folder.path().c_str(), 0777);
    return run_child_function([&] {
        if (chdir(folder.path().c_str()) != 0)
            return set_up_failed;
        if (geteuid() == 0 &&
            (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0))
            return set_up_failed;
        return body();
    });
}

// Visits of for_each_file

struct Visits {
    Names paths;
    int result = 0; // of each call
};

// A FileCallback; the user value is the Visits.
inline int record_visit(const char *path, void *user_value)
{
    auto *visits = static_cast<Visits *>(user_value);
    visits->paths.push_back(path);
    return visits->result;
}

} // namespace quintral::tests

#endif
