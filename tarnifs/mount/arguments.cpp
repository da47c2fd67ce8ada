#include "tarnifs/mount/arguments.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "tarnifs/mount/exit_status.h"

namespace
{

constexpr int CUT = 2;         // "-devopt" and its value
constexpr int FEWEST_LEFT = 2; // the program's name and a mount point
constexpr int USAGE_STATUS = static_cast<int>(ExitStatus::Usage);

const char *const USAGE =
    "usage: quorvelfs MOUNTPOINT [-f] [-o OPTIONS] -devopt LOCATION_ID\n";

const char *const HELP =
    "Mounts the iOS device at a USB location as a volume.\n"
    "\n"
    "  MOUNTPOINT            an empty folder\n"
    "  -f                    stay in the foreground\n"
    "  -o OPTIONS            options of the volume (below) and of the FUSE\n"
    "                        library (ro, allow_other, uid=N, ...), with commas\n"
    "  -devopt LOCATION_ID   where the device is plugged in, in decimal; always\n"
    "                        the last two arguments\n"
    "  -h, --help            this text\n"
    "  -V, --version         the program's version\n"
    "\n"
    "  -o usbmux=ADDRESS     the usbmux socket: UNIX:/path or host:port\n"
    "  -o dialog=PROGRAM     shows messages; called with title, text, button\n"
    "  -o log_level=N        what is logged (3: all, -1: nothing)\n"
    "  -o timeout_ms=N       longest wait for a silent device\n"
    "  -o afc_window=N       most requests in flight\n"
    "  -o location_id=N      the device, when -devopt gives 0\n"
    "\n"
    "Without -f the command ends when the volume answers. Exit status: 0 done,\n"
    "1 failed, 2 wrong usage, 3 bad mount point, 4 no FUSE, 5 not allowed,\n"
    "6 something is mounted there, 7 mounted but the device can't be used.\n";

bool isOneOf(const char *text, const char *brief, const char *full)
{
    return strcmp(text, brief) == 0 || strcmp(text, full) == 0;
}

bool contains(int argc, char **argv, const char *brief, const char *full)
{
    for (int i = 1; i < argc; ++i) {
        if (isOneOf(argv[i], brief, full)) {
            return true;
        }
    }
    return false;
}

ARGUMENTS answer(int status, const std::string &message)
{
    ARGUMENTS result;
    result.status = status;
    result.message = message;
    result.toError = status != 0;
    return result;
}

ARGUMENTS refuse(const std::string &why)
{
    return answer(USAGE_STATUS, "quorvelfs: " + why + "\n" + USAGE);
}

// Index of "-devopt", or argc.
int findDevopt(int argc, char **argv)
{
    int at = 0;
    while (at < argc && strcmp(argv[at], "-devopt") != 0) {
        ++at;
    }
    return at;
}

ARGUMENTS goOn(int argc)
{
    ARGUMENTS result;
    result.goOn = true;
    result.fuseCount = argc - CUT;
    return result;
}

ARGUMENTS takeDevopt(int argc, char **argv, int at)
{
    if (at == argc - 1) {
        return refuse("-devopt needs a location id");
    }
    if (at != argc - CUT) {
        return refuse("-devopt and its location id must come last");
    }
    ARGUMENTS result = goOn(argc);
    if (!ParseLocationId(argv[at + 1], &result.locationId)) {
        return refuse(std::string("not a location id: ") + argv[at + 1]);
    }
    argv[at] = nullptr;
    argv[at + 1] = nullptr;
    return result;
}

ARGUMENTS warnWithoutDevopt(int argc)
{
    ARGUMENTS result = goOn(argc);
    result.message = "quorvelfs: no -devopt: the last two arguments are "
                     "dropped, and no device will be found\n";
    result.toError = true;
    return result;
}

} // namespace

// Ids are unsigned; a negative number is how some programs print one above
// INT_MAX.
bool ParseLocationId(const char *text, int32_t *id)
{
    const char *digits = *text == '-' ? text + 1 : text;
    if (*digits < '0' || *digits > '9') {
        return false;
    }
    char *end = nullptr;
    errno = 0;
    const long long value = strtoll(text, &end, 10);
    if (errno != 0 || *end != '\0' || value < INT_MIN || value > UINT_MAX) {
        return false;
    }
    *id = static_cast<int32_t>(static_cast<uint32_t>(value));
    return true;
}

ARGUMENTS ParseArguments(int argc, char **argv)
{
    if (contains(argc, argv, "-h", "--help")) {
        return answer(0, std::string(USAGE) + "\n" + HELP);
    }
    if (contains(argc, argv, "-V", "--version")) {
        return answer(0, "quorvelfs " QUORVEL_VERSION "\n");
    }
    const int at = findDevopt(argc, argv);
    const bool found = at < argc;
    if (found && at >= argc - CUT + 1) {
        return takeDevopt(argc, argv, at);
    }
    if (argc - CUT < FEWEST_LEFT) {
        return refuse("a mount point and a location id are needed");
    }
    return found ? takeDevopt(argc, argv, at) : warnWithoutDevopt(argc);
}
