// An argument vector as main gets one.
#ifndef QUINTRAL_TESTS_TOOL_COMMAND_LINE_H
#define QUINTRAL_TESTS_TOOL_COMMAND_LINE_H

#include <string>
#include <vector>

namespace quintral::tests::tool {

// A vector as main gets one; the texts may be written to.
struct CommandLine {
    std::vector<std::string> texts;
    std::vector<char *> elements; // null behind the last
};

inline void fill_command_line(CommandLine *line, const std::vector<std::string> &texts)
{
    line->texts = texts;
    line->elements.clear();
    for (std::string &text : line->texts)
        line->elements.push_back(text.data());
    line->elements.push_back(nullptr);
}

inline std::vector<std::string> texts_of(int count, char **arguments)
{
    return std::vector<std::string>(arguments, arguments + count);
}

} // namespace quintral::tests::tool

#endif
