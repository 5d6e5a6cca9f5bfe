#include <fcntl.h>

int open_beside(int folder, const char *name)
{
    return openat(folder, name, O_RDONLY);
}
