#include "tool/start-up.h"

#include <cstring>

namespace quintral {

void drop_launch_argument(int *argument_count, char ***arguments)
{
    static const char mark[] = "-psn_";
    char **vector = *arguments;
    if (*argument_count < 2 || std::strncmp(vector[1], mark, sizeof mark - 1) != 0)
        return;
    vector[1] = vector[0];
    *arguments = vector + 1;
    --*argument_count;
}

} // namespace quintral
