// On Linux a file reference is an absolute path.
#ifndef QUINTRAL_PLATFORM_FILE_REF_LINUX_H
#define QUINTRAL_PLATFORM_FILE_REF_LINUX_H

namespace quintral {

// Filled by platform_make_ref; an empty path refers to nothing.
struct PlatformFileRef {
    char path[4096]; // PATH_MAX, the longest path that the system accepts
};

} // namespace quintral

#endif
