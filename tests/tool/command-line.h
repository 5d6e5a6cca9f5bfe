// An argument vector for the functions that change one.
#ifndef QUINTRAL_TESTS_TOOL_COMMAND_LINE_H
#define QUINTRAL_TESTS_TOOL_COMMAND_LINE_H

#include <string>
#include <vector>

namespace quintral::tests::tool {

// The strings, program name included, and pointers to them as main receives them.
struct CommandLine {
    std::vector<std::string> strings;
    std::vector<char *> arguments; // null after the last

    explicit CommandLine(const std::vector<std::string> &given) : strings(given)
    {
        for (std::string &string : strings)
            arguments.push_back(string.data());
        arguments.push_back(nullptr);
    }

    CommandLine(const CommandLine &) = delete;
    CommandLine &operator=(const CommandLine &) = delete;
};

} // namespace quintral::tests::tool

#endif
