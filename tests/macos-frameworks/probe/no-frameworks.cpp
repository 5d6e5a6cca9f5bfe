#include <CoreFoundation/CoreFoundation.h>

int main()
{
    return CFBundleGetMainBundle() == nullptr;
}
