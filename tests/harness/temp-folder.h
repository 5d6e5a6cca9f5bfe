// Temporary folders for tests, and functions that make and examine files.
#ifndef QUINTRAL_TESTS_HARNESS_TEMP_FOLDER_H
#define QUINTRAL_TESTS_HARNESS_TEMP_FOLDER_H

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

#include <dirent.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

namespace quintral::tests {

// An empty folder, removed with its contents when the object is destroyed. If it cannot be made,
// the test fails and the path is empty.
class TempFolder {
public:
    TempFolder()
    {
        std::string pattern = testing::TempDir() + "quintral-files-XXXXXX";
        if (mkdtemp(pattern.data()) != nullptr)
            path_ = pattern;
        else
            ADD_FAILURE() << "can't make a folder " << pattern;
    }

    ~TempFolder()
    {
        std::error_code ignored;
        if (!path_.empty())
            std::filesystem::remove_all(path_, ignored);
    }

    TempFolder(const TempFolder &) = delete;
    TempFolder &operator=(const TempFolder &) = delete;

    const std::string &path() const
    {
        return path_;
    }

    // The path of an entry of the folder.
    std::string path(const std::string &name) const
    {
        return path_ + "/" + name;
    }

private:
    std::string path_;
};

inline void make_file(const std::string &path, const std::string &content = "content\n")
{
    std::ofstream stream(path, std::ios::binary);
    stream << content;
    stream.close();
    EXPECT_TRUE(stream.good()) << path;
}

// Returns the bytes of a file; none if it cannot be read.
inline std::string file_content(const std::string &path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

inline void make_directory(const std::string &path)
{
    EXPECT_EQ(mkdir(path.c_str(), 0755), 0) << path;
}

inline void make_link(const std::string &target, const std::string &path)
{
    std::error_code error;
    std::filesystem::create_symlink(target, path, error);
    EXPECT_FALSE(error) << path;
}

// Returns the permission bits of a file, symbolic links followed.
inline mode_t permissions_of(const std::string &path)
{
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

// Returns the relative paths of everything below a folder, sorted. Links are not followed.
inline std::vector<std::string> entries_below(const std::string &folder)
{
    std::vector<std::string> entries;
    std::error_code error;
    for (std::filesystem::recursive_directory_iterator entry(folder, error), end; entry != end;
         entry.increment(error))
        entries.push_back(entry->path().string().substr(folder.size() + 1));
    EXPECT_FALSE(error) << folder << ": " << error.message();
    std::sort(entries.begin(), entries.end());
    return entries;
}

// Returns the names in a folder in the order in which readdir returns them.
inline std::vector<std::string> names_in_system_order(const std::string &folder)
{
    std::vector<std::string> names;
    DIR *stream = opendir(folder.c_str());
    EXPECT_NE(stream, nullptr) << folder;
    while (const dirent *entry = stream == nullptr ? nullptr : readdir(stream)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    if (stream != nullptr)
        closedir(stream);
    return names;
}

} // namespace quintral::tests

#endif
