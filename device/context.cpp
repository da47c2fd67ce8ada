#include "device/context.h"

#include <cerrno>
#include <cstdlib>

#include <libimobiledevice/libimobiledevice.h>

#include "device/afc_file.h"
#include "device/device.h"

namespace iusb
{

static long numberFrom(const char *name, long least, long most, long otherwise)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
    const char *text = getenv(name);
    if (!text || !*text)
        return otherwise;
    char *end = nullptr;
    errno = 0;
    long value = strtol(text, &end, 10);
    bool good = errno == 0 && *end == '\0' && value >= least && value <= most;
    return good ? value : otherwise;
}

Settings readSettings()
{
    Settings settings;
    settings.timeout_ms = static_cast<int>(
        numberFrom("QUORVEL_TIMEOUT_MS", 50, 600'000, settings.timeout_ms));
    settings.afc_window = static_cast<size_t>(numberFrom(
        "QUORVEL_AFC_WINDOW", 1, 4096, static_cast<long>(settings.afc_window)));
    return settings;
}

} // namespace iusb

libiusb_context::libiusb_context() = default;
libiusb_context::~libiusb_context() = default;

int libiusb_init_ex(const char *, int)
{
    idevice_set_debug_level(0);
    return LIBIUSB_SUCCESS;
}

int libiusb_context_init(libiusb_context **out)
{
    if (!out)
        return LIBIUSB_ERROR_INVALID_ARG;
    *out = nullptr;
    return iusb::guarded([&] {
        auto context = std::make_unique<libiusb_context>();
        context->settings = iusb::readSettings();
        *out = context.release();
        return LIBIUSB_SUCCESS;
    });
}

int libiusb_context_exit(libiusb_context *context)
{
    delete context;
    return LIBIUSB_SUCCESS;
}
