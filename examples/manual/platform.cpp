#include <quintral/platform/platform.h>

#include <cstdio>

using namespace quintral;

int main()
{
    char name[16], version[64], path[1024];
    platform_os_name(name);
    platform_os_version(version, sizeof version);
    std::printf("%s\n", name[0] != '\0' && version[0] != '\0' ? "named" : "unnamed");
    std::printf("%s\n", platform_format_system_version(0x1049, version, sizeof version));
    if (platform_bundle_path(path, sizeof path, MainNamedResource, "welcome.txt") == nullptr)
        std::printf("no welcome.txt\n");
    PlatformFileRef ref;
    std::printf("%d\n", static_cast<int>(platform_make_ref("/no/such/file", &ref)));
    return 0;
}
