// Removes a tree that exists already, for counting the system calls:
//
//     quintral_remove_tree_bench TREE ours|filesystem
//
// The status is 0 if the tree is gone.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "support/c-utils/files.h"

int main(int argument_count, char **arguments)
{
    if (argument_count != 3) {
        std::fputs("usage: quintral_remove_tree_bench TREE ours|filesystem\n", stderr);
        return 2;
    }
    const char *tree = arguments[1];
    std::error_code error;
    if (std::strcmp(arguments[2], "ours") == 0)
        quintral::remove_tree(tree);
    else
        std::filesystem::remove_all(tree, error);
    return quintral::file_exists(tree);
}
