#include <quintral/support/c-utils/files.h>

#include <cstdio>

using namespace quintral;

static int print_name(const char *path, void *)
{
    std::printf("%s\n", path_basename(path));
    return 0;
}

int main()
{
    if (open_file("no-such-folder/waves", "r", 0) == nullptr)
        std::printf("not there\n");
    std::FILE *preset = open_file("waves", "w", OpenReport);
    if (preset == nullptr)
        return 1; // already reported
    std::fputs("height 3\n", preset);
    if (close_file(preset) != 0)
        return 1;
    for_each_file(".", print_name, nullptr);
    return remove_path("waves") == 0 && file_exists("waves") == 0 ? 0 : 1;
}
