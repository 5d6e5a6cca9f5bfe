// Replaces the framework's header on machines without it, like CoreFoundation/CoreFoundation.h.
#ifndef QUINTRAL_TESTS_MACOS_FRAMEWORKS_SYSTEM_CONFIGURATION_H
#define QUINTRAL_TESTS_MACOS_FRAMEWORKS_SYSTEM_CONFIGURATION_H

#include <CoreFoundation/CoreFoundation.h>

extern "C" {

typedef const struct __SCDynamicStore *SCDynamicStoreRef;

extern const CFStringRef kSCPropNetProxiesHTTPEnable;
extern const CFStringRef kSCPropNetProxiesHTTPProxy;
extern const CFStringRef kSCPropNetProxiesHTTPPort;

CFDictionaryRef SCDynamicStoreCopyProxies(SCDynamicStoreRef store);

} // extern "C"

#endif
