// Feeds a fuzz target one empty input and then, in the order of their names, the files in the
// folders given on the command line. Each name is printed first, so that the last line names the
// input that caused a crash. A folder that is missing, unreadable or empty is an error, since a
// replay without inputs checks nothing.
#include "fuzz/fuzz.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <vector>

namespace {

namespace files = std::filesystem;

std::vector<files::path> files_of(const char *folder)
{
    std::vector<files::path> paths;
    std::error_code error;
    for (const files::directory_entry &entry : files::directory_iterator(folder, error)) {
        if (entry.is_regular_file())
            paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

// Feeds one file, in a block of its exact size, as libFuzzer does. Returns false if the file is
// unreadable.
bool feed_file(const files::path &path)
{
    std::fprintf(stderr, "%s\n", path.c_str());
    std::ifstream stream(path, std::ios::binary);
    if (!stream)
        return false;
    const std::vector<char> bytes{std::istreambuf_iterator<char>(stream),
                                  std::istreambuf_iterator<char>()};
    const quintral::fuzz::ExactBlock block(bytes.size());
    std::copy(bytes.begin(), bytes.end(), block.data);
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(block.data), block.size);
    return true;
}

// Returns the number of inputs fed, or -1 if there are none or one is unreadable.
int feed_folder(const char *folder)
{
    const std::vector<files::path> paths = files_of(folder);
    if (paths.empty()) {
        std::fprintf(stderr, "%s: no inputs there\n", folder);
        return -1;
    }
    for (const files::path &path : paths) {
        if (!feed_file(path)) {
            std::fprintf(stderr, "%s: cannot be read\n", path.c_str());
            return -1;
        }
    }
    return static_cast<int>(paths.size());
}

} // namespace

int main(int argument_count, char **arguments)
{
    if (argument_count < 2) {
        std::fprintf(stderr, "Usage: %s FOLDER...\n", arguments[0]);
        return 2;
    }
    const std::uint8_t nothing = 0;
    LLVMFuzzerTestOneInput(&nothing, 0);
    int total = 0;
    for (int i = 1; i < argument_count; ++i) {
        const int fed = feed_folder(arguments[i]);
        if (fed < 0)
            return 1;
        total += fed;
    }
    std::fprintf(stderr, "%d inputs replayed\n", total);
    return 0;
}
