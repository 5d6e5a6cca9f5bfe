// The suite's low-level C utilities in one header: allocation that never fails silently, and
// formatted, growable and bounded strings.
#ifndef QUINTRAL_SUPPORT_C_UTILS_H
#define QUINTRAL_SUPPORT_C_UTILS_H

#include "c-utils/memory.h"

#endif
