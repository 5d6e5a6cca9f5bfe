#include "tool/start-up.h"

#include <string_view>

namespace quintral {

void drop_launch_argument(int *argument_count, char ***arguments)
{
    constexpr std::string_view mark = "-psn_";
    char **vector = *arguments;
    if (*argument_count < 2 || std::string_view(vector[1]).substr(0, mark.size()) != mark)
        return;
    vector[1] = vector[0];
    *arguments = vector + 1;
    --*argument_count;
}

} // namespace quintral
