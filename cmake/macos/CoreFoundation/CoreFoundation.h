// What is used of CoreFoundation, for compiling where there is no macOS SDK
// (scripts/test macos). On a Mac the framework's own header takes its place.
#pragma once

#include <cstdint>

extern "C" {

typedef const void *CFTypeRef;
typedef const struct __CFBundle *CFBundleRef;
typedef const struct __CFDictionary *CFDictionaryRef;
typedef const struct __CFNumber *CFNumberRef;
typedef const struct __CFString *CFStringRef;
typedef const struct __CFURL *CFURLRef;
typedef long CFIndex;
typedef unsigned long CFTypeID;
typedef unsigned char Boolean;
typedef uint32_t CFStringEncoding;

enum CFNumberType : CFIndex { kCFNumberIntType = 9 };
enum CFURLPathStyle : CFIndex { kCFURLPOSIXPathStyle = 0 };
enum : CFStringEncoding { kCFStringEncodingUTF8 = 0x08000100 };

#define CFSTR(text)                                                            \
    (reinterpret_cast<CFStringRef>(                                            \
        __builtin___CFStringMakeConstantString(text)))

CFBundleRef CFBundleGetMainBundle();
CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle);
CFDictionaryRef CFBundleGetInfoDictionary(CFBundleRef bundle);
const void *CFDictionaryGetValue(CFDictionaryRef dictionary, const void *key);
CFTypeID CFGetTypeID(CFTypeRef object);
CFTypeID CFNumberGetTypeID();
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void *value);
void CFRelease(CFTypeRef object);
Boolean CFStringGetCString(CFStringRef text, char *buffer, CFIndex size,
                           CFStringEncoding encoding);
const char *CFStringGetCStringPtr(CFStringRef text, CFStringEncoding encoding);
CFStringEncoding CFStringGetSystemEncoding();
CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle style);
}
