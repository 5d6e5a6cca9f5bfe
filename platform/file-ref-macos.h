// On macOS a file reference is that of the File Manager.
#ifndef QUINTRAL_PLATFORM_FILE_REF_MACOS_H
#define QUINTRAL_PLATFORM_FILE_REF_MACOS_H

#include <CoreServices/CoreServices.h>

namespace quintral {

// A reference to a file, as the system knows it.
using PlatformFileRef = FSRef;

} // namespace quintral

#endif
