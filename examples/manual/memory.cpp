#include <quintral/support/c-utils/memory.h>

#include <cstdio>

using namespace quintral;

int main()
{
    StringBuffer lines;
    string_buffer_init(&lines);
    for (int i = 1; i <= 3; ++i)
        string_buffer_printf(&lines, "layer %d\n", i);
    std::fputs(string_buffer_text(&lines), stdout);
    string_buffer_free(&lines);

    char *name = alloc_printf("%s-%02d", "frame", 7);
    char shown[6];
    std::printf("%s %s\n", name, copy_string_bounded(shown, name, sizeof shown));
    checked_free(name);
    return 0;
}
