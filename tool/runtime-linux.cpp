// Keeps the demangler out of a utility that is linked with the C++ runtime. The runtime's own
// terminate handler prints the type of an exception, and for that brings 50 KiB of code and tables
// that the loader relocates at every start. main replaces that handler first thing
// (tool/termination.h), so nobody misses it. Being defined here, it is not taken from the archive.
#include <cstdlib>

namespace __gnu_cxx {

void __verbose_terminate_handler();

void __verbose_terminate_handler()
{
    std::abort();
}

} // namespace __gnu_cxx
