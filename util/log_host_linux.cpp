#include <cerrno>
#include <cstdlib>

#include "util/log_host.h"

int32_t LogHostLevel(int32_t otherwise)
{
    const char *text =
        getenv("QUORVEL_LOGLEVEL"); // NOLINT(concurrency-mt-unsafe)
    if (text == nullptr || *text == '\0') {
        return otherwise;
    }
    char *end = nullptr;
    errno = 0;
    const long value = strtol(text, &end, 10);
    if (errno != 0 || *end != '\0' || value < INT32_MIN || value > INT32_MAX) {
        return otherwise;
    }
    return static_cast<int32_t>(value);
}

std::string LogHostFolder()
{
    const char *state =
        getenv("XDG_STATE_HOME"); // NOLINT(concurrency-mt-unsafe)
    if (state != nullptr && *state == '/') {
        return std::string(state) + "/quorvel";
    }
    const char *home = getenv("HOME"); // NOLINT(concurrency-mt-unsafe)
    if (home != nullptr && *home == '/') {
        return std::string(home) + "/.local/state/quorvel";
    }
    return {};
}
