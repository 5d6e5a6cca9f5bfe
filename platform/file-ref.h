// PlatformFileRef: the system's own reference to a file or folder.
//
// This is the only header that tests for the operating system. QUINTRAL_PLATFORM_MACOS selects
// macOS when its sources are built for a test on another system.
#ifndef QUINTRAL_PLATFORM_FILE_REF_H
#define QUINTRAL_PLATFORM_FILE_REF_H

#if defined(__APPLE__) || defined(QUINTRAL_PLATFORM_MACOS)
#include "file-ref-macos.h"
#else
#include "file-ref-linux.h"
#endif

#endif
