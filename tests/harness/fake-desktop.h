// The desktop as a test has it: an xdg-open that is desktop-recorder.cpp, and what that wrote.
// QUINTRAL_RECORDER is the recorder's program.
#ifndef QUINTRAL_TESTS_HARNESS_FAKE_DESKTOP_H
#define QUINTRAL_TESTS_HARNESS_FAKE_DESKTOP_H

#include "tests/harness/temp-folder.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <poll.h>
#include <unistd.h>

namespace quintral::tests {

// The whole record once it exists; empty where that takes too long.
inline std::string wait_for_record(const std::string &path)
{
    for (int i = 0; i < 2000 && access(path.c_str(), F_OK) != 0; ++i)
        poll(nullptr, 0, 10);
    return file_content(path);
}

// The rest of the first line that begins with the key.
inline std::string record_value(const std::string &record, const std::string &key)
{
    const std::string text = "\n" + record;
    const std::size_t start = text.find("\n" + key + ": ");
    if (start == std::string::npos)
        return "missing";
    const std::size_t value = start + key.size() + 3;
    return text.substr(value, text.find('\n', value) - value);
}

// The one argument, which may hold line feeds; another text where there were more or fewer.
inline std::string record_argument(const std::string &record)
{
    if (record_value(record, "arguments") != "1")
        return "NOT ONE ARGUMENT: " + record;
    const std::string key = "\nargument: ";
    const std::size_t start = record.find(key) + key.size();
    return record.substr(start, record.size() - start - 1);
}

// A folder with the recorder as xdg-open, alone in PATH, and a place for its record.
class FakeDesktop {
public:
    FakeDesktop() : root_(std::filesystem::canonical(folder_.path()).string())
    {
        make_directory(path("bin"));
        make_link(QUINTRAL_RECORDER, path("bin/xdg-open"));
    }

    std::string path(const std::string &name) const
    {
        return root_ + "/" + name;
    }

    // Empty where nothing has been started, or is not yet.
    std::string record() const
    {
        return file_content(path("record"));
    }

    std::vector<std::pair<std::string, std::string>> environment() const
    {
        return {{"PATH", path("bin")}, {"FAKE_RECORD", path("record")}, {"FAKE_MARK", "own mark"}};
    }

private:
    TempFolder folder_;
    std::string root_;
};

// Ends the recorder that the desktop's record tells of. True where it was still at work.
template <typename Desktop> bool end_recorder(const Desktop &desktop)
{
    const std::string record = wait_for_record(desktop.path("record"));
    const int process = std::atoi(record_value(record, "process").c_str());
    return process > 1 && kill(process, SIGKILL) == 0;
}

} // namespace quintral::tests

#endif
