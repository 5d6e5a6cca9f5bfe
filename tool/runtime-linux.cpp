// Keeps the demangler out of a utility that is linked with the C++ runtime. The runtime's own
// terminate handler prints the type of an exception, and for that brings 50 KiB of code and tables
// that the loader relocates at every start. main installs its own handler first
// (tool/termination.h), so this one never runs. Because it is defined here, the linker does not
// take the archive's.
#include <cstdlib>

namespace __gnu_cxx {

void __verbose_terminate_handler();

void __verbose_terminate_handler()
{
    std::abort();
}

} // namespace __gnu_cxx
