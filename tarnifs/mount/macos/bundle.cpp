// What CoreFoundation and the stat record tell.
#include <cstring>
#include <memory>
#include <type_traits>

#include <CoreFoundation/CoreFoundation.h>

#include "tarnifs/mount/host.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "getBundlePath";
constexpr size_t LONGEST = 512; // bytes, the end's NUL among them

struct Release {
    void operator()(CFTypeRef object) const { CFRelease(object); }
};
template <typename Reference>
using Owned = std::unique_ptr<std::remove_pointer_t<Reference>, Release>;

int Missing(const char *call)
{
    QNLog(3, "%s %s failed", SELF, call);
    return -1;
}

// The pointer into the text is there only when the text happens to be stored in
// that encoding; "é" in a folder's name is enough for it not to be.
bool CopyText(CFStringRef text, char *dst)
{
    const char *bytes =
        CFStringGetCStringPtr(text, CFStringGetSystemEncoding());
    if (bytes != nullptr && strlen(bytes) < LONGEST) {
        memcpy(dst, bytes, strlen(bytes) + 1);
        return true;
    }
    return CFStringGetCString(text, dst, LONGEST, kCFStringEncodingUTF8) != 0;
}

} // namespace

int hostBundlePath(char *dst)
{
    CFBundleRef bundle = CFBundleGetMainBundle();
    if (bundle == nullptr) {
        return Missing("CFBundleGetMainBundle");
    }
    const Owned<CFURLRef> url(CFBundleCopyBundleURL(bundle));
    if (url == nullptr) {
        return Missing("CFBundleCopyBundleURL");
    }
    const Owned<CFStringRef> path(
        CFURLCopyFileSystemPath(url.get(), kCFURLPOSIXPathStyle));
    if (path == nullptr) {
        return Missing("CFURLCopyFileSystemPath");
    }
    if (!CopyText(path.get(), dst)) {
        return Missing("CFStringGetCStringPtr");
    }
    QNLog(3, "%s Bundle path is %s\n", SELF, dst);
    return 0;
}

void hostSetBirthTime(struct stat *st, time_t seconds)
{
    st->st_birthtimespec = {.tv_sec = seconds, .tv_nsec = 0};
}
