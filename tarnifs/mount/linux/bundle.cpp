// The small rest of what the host gives to the shared code.
#include <unistd.h>

#include <climits>
#include <cstring>
#include <string>

#include "tarnifs/mount/host.h"
#include "util/log.h"

namespace
{

constexpr const char *SELF = "getBundlePath";

} // namespace

// The folder above the one that the program lies in: "/usr" for
// "/usr/bin/quorvelfs".
int hostBundlePath(char *dst)
{
    char program[PATH_MAX] = {};
    const ssize_t length =
        readlink("/proc/self/exe", program, sizeof(program) - 1);
    if (length <= 0) {
        QNLog(3, "%s readlink failed. errno : %d", SELF, errno);
        return -1;
    }
    std::string path(program, static_cast<size_t>(length));
    for (int level = 0; level < 2; ++level) {
        path.erase(path.rfind('/'));
        if (path.empty()) {
            path = "/";
        }
    }
    if (path.size() > 511) {
        QNLog(3, "%s path is too long : %s", SELF, path.c_str());
        return -1;
    }
    QNLog(3, "%s Bundle path is %s\n", SELF, path.c_str());
    memcpy(dst, path.c_str(), path.size() + 1);
    return 0;
}

void hostSetBirthTime(struct stat * /*st*/, time_t /*seconds*/)
{
    // Linux's stat record has no creation time.
}

void hostRefreshFileManager()
{
    // File managers here watch folders themselves and can't be asked.
}
