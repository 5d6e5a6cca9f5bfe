// Folders with paths near and beyond the system's length limit.
#ifndef QUINTRAL_TESTS_PLATFORM_DEEP_FOLDER_H
#define QUINTRAL_TESTS_PLATFORM_DEEP_FOLDER_H

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace quintral::tests {

// In a child process: makes new folders in the working folder and enters them until the working
// folder's path has the length. Exits with status 9 on failure.
inline void descend(std::size_t length)
{
    std::size_t here = std::filesystem::current_path().string().size();
    while (here + 1 < length) {
        const std::string name(std::min<std::size_t>(200, length - here - 1), 'd');
        if (mkdir(name.c_str(), 0755) != 0 || chdir(name.c_str()) != 0)
            _exit(9);
        here += 1 + name.size();
    }
}

} // namespace quintral::tests

#endif
