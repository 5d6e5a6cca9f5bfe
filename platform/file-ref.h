// PlatformFileRef: the system's own reference to a file or folder.
//
// The one place that asks which system it is built for. QUINTRAL_PLATFORM_MACOS stands for macOS
// where its sources are built for a test elsewhere.
#ifndef QUINTRAL_PLATFORM_FILE_REF_H
#define QUINTRAL_PLATFORM_FILE_REF_H

#if defined(__APPLE__) || defined(QUINTRAL_PLATFORM_MACOS)
#include "file-ref-macos.h"
#else
#include "file-ref-linux.h"
#endif

#endif
