// All low-level C utilities in one header: checked allocation, formatted, growable and bounded
// strings, files and directories, string transforms.
#ifndef QUINTRAL_SUPPORT_C_UTILS_H
#define QUINTRAL_SUPPORT_C_UTILS_H

#include "c-utils/files.h"
#include "c-utils/memory.h"
#include "c-utils/transforms.h"

#endif
