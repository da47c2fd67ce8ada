#include <cstdlib>

#include <CoreFoundation/CoreFoundation.h>

#include "util/log_host.h"

// The key "LogLevel" of the application bundle's information dictionary.
int32_t LogHostLevel(int32_t otherwise)
{
    CFBundleRef bundle = CFBundleGetMainBundle();
    CFDictionaryRef information =
        bundle == nullptr ? nullptr : CFBundleGetInfoDictionary(bundle);
    if (information == nullptr) {
        return otherwise;
    }
    const void *value = CFDictionaryGetValue(information, CFSTR("LogLevel"));
    if (value == nullptr || CFGetTypeID(value) != CFNumberGetTypeID()) {
        return otherwise;
    }
    int32_t level = 0;
    const bool converted = CFNumberGetValue(static_cast<CFNumberRef>(value),
                                            kCFNumberIntType, &level) != 0;
    return converted ? level : otherwise;
}

std::string LogHostFolder()
{
    const char *home = getenv("HOME"); // NOLINT(concurrency-mt-unsafe)
    return home != nullptr && *home == '/'
               ? std::string(home) + "/Library/Logs/Quorvelfs"
               : std::string();
}
