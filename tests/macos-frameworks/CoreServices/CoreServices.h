// Replaces the framework's header on machines without it, like CoreFoundation/CoreFoundation.h.
#ifndef QUINTRAL_TESTS_MACOS_FRAMEWORKS_CORE_SERVICES_H
#define QUINTRAL_TESTS_MACOS_FRAMEWORKS_CORE_SERVICES_H

#include <CoreFoundation/CoreFoundation.h>

// Later systems deprecate these calls. A compiler without system versions always warns, so that a
// source that would not build there without a warning does not build here either.
// NOLINTBEGIN(bugprone-macro-parentheses): a version takes none
#if __has_attribute(availability)
#define QUINTRAL_TESTS_DEPRECATED_IN(version)                                                      \
    __attribute__((availability(macosx, introduced = 10.0, deprecated = version)))
#else
#define QUINTRAL_TESTS_DEPRECATED_IN(version) __attribute__((deprecated))
#endif
// NOLINTEND(bugprone-macro-parentheses)

extern "C" {

struct FSRef {
    UInt8 hidden[80];
};

OSErr Gestalt(OSType selector, SInt32 *response) QUINTRAL_TESTS_DEPRECATED_IN(10.8);
OSStatus FSPathMakeRef(const UInt8 *path, FSRef *ref, Boolean *isDirectory)
    QUINTRAL_TESTS_DEPRECATED_IN(10.8);
OSStatus LSOpenFSRef(const FSRef *inRef, FSRef *outLaunchedRef) QUINTRAL_TESTS_DEPRECATED_IN(10.10);
OSStatus LSOpenCFURLRef(CFURLRef inURL, CFURLRef *outLaunchedURL);

} // extern "C"

#endif
