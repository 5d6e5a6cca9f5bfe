// Replaces the framework's header on machines without it. It declares what the macOS sources use;
// recording.cpp defines the functions for the tests.
//
// The headers of the three frameworks here were compared by hand with those of the systems 10.6,
// 11.3 and 12.0: all 25 functions, 24 types, 4 variables and 3 constants agree. On 10.6 the three
// enumerations are typedefs of an integer.
#ifndef QUINTRAL_TESTS_MACOS_FRAMEWORKS_CORE_FOUNDATION_H
#define QUINTRAL_TESTS_MACOS_FRAMEWORKS_CORE_FOUNDATION_H

// The system's own header of the scalars, if there is one: declarations that differ are errors.
#if __has_include(<MacTypes.h>)
#include <MacTypes.h>
#endif

extern "C" {

// Scalars. The 32-bit integers are longs if longs have 32 bits.

typedef unsigned char Boolean;
typedef unsigned char UInt8;
typedef signed short SInt16;
#if __LP64__
typedef signed int SInt32;
typedef unsigned int UInt32;
#else
typedef signed long SInt32;
typedef unsigned long UInt32;
#endif
typedef SInt16 OSErr;
typedef SInt32 OSStatus;
typedef UInt32 FourCharCode;
typedef FourCharCode OSType;

typedef signed long CFIndex;
typedef unsigned long CFTypeID;
typedef UInt32 CFStringEncoding;

// Objects

typedef const void *CFTypeRef;
typedef const struct __CFAllocator *CFAllocatorRef;
typedef struct __CFBundle *CFBundleRef;
typedef const struct __CFDictionary *CFDictionaryRef;
typedef const struct __CFNumber *CFNumberRef;
typedef const struct __CFString *CFStringRef;
typedef const struct __CFURL *CFURLRef;

extern const CFAllocatorRef kCFAllocatorDefault;

CFTypeID CFGetTypeID(CFTypeRef cf);
void CFRelease(CFTypeRef cf);

// Strings

enum CFStringBuiltInEncodings : CFStringEncoding { kCFStringEncodingASCII = 0x0600 };

CFTypeID CFStringGetTypeID(void);
CFStringEncoding CFStringGetSystemEncoding(void);
CFStringRef CFStringCreateWithCString(CFAllocatorRef alloc, const char *cStr,
                                      CFStringEncoding encoding);
Boolean CFStringGetCString(CFStringRef theString, char *buffer, CFIndex bufferSize,
                           CFStringEncoding encoding);

// Numbers

enum CFNumberType : CFIndex { kCFNumberIntType = 9 };

CFTypeID CFNumberGetTypeID(void);
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void *valuePtr);

// Dictionaries

const void *CFDictionaryGetValue(CFDictionaryRef theDict, const void *key);

// URLs

enum CFURLPathStyle : CFIndex { kCFURLPOSIXPathStyle = 0 };

CFURLRef CFURLCreateWithBytes(CFAllocatorRef allocator, const UInt8 *URLBytes, CFIndex length,
                              CFStringEncoding encoding, CFURLRef baseURL);
CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef filePath,
                                       CFURLPathStyle pathStyle, Boolean isDirectory);
CFStringRef CFURLCopyFileSystemPath(CFURLRef anURL, CFURLPathStyle pathStyle);

// Bundles

CFBundleRef CFBundleGetMainBundle(void);
CFBundleRef CFBundleGetBundleWithIdentifier(CFStringRef bundleID);
CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle);
CFURLRef CFBundleCopyExecutableURL(CFBundleRef bundle);
CFURLRef CFBundleCopySupportFilesDirectoryURL(CFBundleRef bundle);
CFURLRef CFBundleCopyResourcesDirectoryURL(CFBundleRef bundle);
CFURLRef CFBundleCopyBuiltInPlugInsURL(CFBundleRef bundle);
CFURLRef CFBundleCopyResourceURL(CFBundleRef bundle, CFStringRef resourceName,
                                 CFStringRef resourceType, CFStringRef subDirName);

} // extern "C"

#endif
