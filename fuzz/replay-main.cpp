// Feeds a fuzz target the inputs of the folders on the command line, in the order of their names,
// after one empty input. Each input is named before it is fed, so that the last line tells which
// one a crash came from. A folder that is missing, cannot be read or holds no file is a failure: a
// replay that finds nothing to replay checks nothing.
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

// The bytes lie in a block of their exact size, as libFuzzer's do.
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

// Returns the number of inputs fed, or -1 for a folder that gives none or a file that cannot be
// read.
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
