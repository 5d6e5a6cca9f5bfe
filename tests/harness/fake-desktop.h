// A fake desktop: desktop-recorder.cpp as xdg-open, and the record that it writes.
// QUINTRAL_RECORDER is the path of its program.
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

// Waits for the record and returns it; empty if it does not appear within 20 s.
inline std::string wait_for_record(const std::string &path)
{
    for (int i = 0; i < 2000 && access(path.c_str(), F_OK) != 0; ++i)
        poll(nullptr, 0, 10);
    return file_content(path);
}

// Returns the value of a key in the record, the first one if there are several.
inline std::string record_value(const std::string &record, const std::string &key)
{
    const std::string text = "\n" + record;
    const std::size_t start = text.find("\n" + key + ": ");
    if (start == std::string::npos)
        return "missing";
    const std::size_t value = start + key.size() + 3;
    return text.substr(value, text.find('\n', value) - value);
}

// Returns the argument, which may contain line feeds. It must be the only one.
inline std::string record_argument(const std::string &record)
{
    if (record_value(record, "arguments") != "1")
        return "NOT ONE ARGUMENT: " + record;
    const std::string key = "\nargument: ";
    const std::size_t start = record.find(key) + key.size();
    return record.substr(start, record.size() - start - 1);
}

// A folder with the recorder as xdg-open, which PATH then consists of, and with its record.
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

    // Empty until the recorder has run.
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

// Kills the recorder that wrote the desktop's record. True if it was still running.
template <typename Desktop> bool end_recorder(const Desktop &desktop)
{
    const std::string record = wait_for_record(desktop.path("record"));
    const int process = std::atoi(record_value(record, "process").c_str());
    return process > 1 && kill(process, SIGKILL) == 0;
}

} // namespace quintral::tests

#endif
