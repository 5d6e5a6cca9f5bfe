// Reads back what tests/platform/recorder.cpp wrote.
#ifndef QUINTRAL_TESTS_PLATFORM_RECORD_H
#define QUINTRAL_TESTS_PLATFORM_RECORD_H

#include <fstream>
#include <sstream>
#include <string>

#include <poll.h>
#include <unistd.h>

namespace quintral::tests {

// The whole record; empty where there is none.
inline std::string read_record(const std::string &path)
{
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

// The same once it exists; empty where that takes too long.
inline std::string wait_for_record(const std::string &path)
{
    for (int i = 0; i < 2000 && access(path.c_str(), F_OK) != 0; ++i)
        poll(nullptr, 0, 10);
    return read_record(path);
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

} // namespace quintral::tests

#endif
