#include "helper/tray_pipe.h"

#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace helper
{

namespace
{

constexpr mode_t OWNER_ONLY = 0600;
constexpr int TRIES = 10;

Result failed(const std::string &path, int error)
{
    return refuse(message::PIPE_FAILED, {path, strerrordesc_np(error)});
}

bool stillThere(const std::string &path, int fd)
{
    struct stat named {
    };
    struct stat opened {
    };
    return lstat(path.c_str(), &named) == 0 && fstat(fd, &opened) == 0 &&
           named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

// What is there must be a pipe before it is opened: opening a device may have
// effects.
Result checkKind(const std::string &path)
{
    struct stat st {
    };
    if (lstat(path.c_str(), &st) == 0 && !S_ISFIFO(st.st_mode)) {
        return refuse(message::PIPE_NOT_A_PIPE, {path});
    }
    return {};
}

} // namespace

std::string trayPipePath()
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
    const char *path = getenv("QUORVEL_NOTIFY_PIPE");
    return path != nullptr ? path : "/tmp/QNNOTIPIPE";
}

Result TrayPipe::open(const std::string &where)
{
    for (int i = 0; i < TRIES; ++i) {
        Result kind = checkKind(where);
        if (!kind.ok()) {
            return kind;
        }
        if (mkfifo(where.c_str(), OWNER_ONLY) != 0 && errno != EEXIST) {
            return failed(where, errno);
        }
        Descriptor opened(::open(where.c_str(),
                                 O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
        if (!opened.open()) {
            if (errno == ENOENT) {
                continue; // its owner ended just now
            }
            return failed(where, errno);
        }
        if (flock(opened.get(), LOCK_EX | LOCK_NB) != 0) {
            return refuse(message::PIPE_OWNED, {where});
        }
        if (stillThere(where, opened.get())) {
            path = where;
            pipe = std::move(opened);
            return checkKind(where);
        }
    }
    return failed(where, EAGAIN);
}

void TrayPipe::close()
{
    if (pipe.open() && stillThere(path, pipe.get())) {
        unlink(path.c_str());
    }
    pipe.reset();
}

bool trayPipeOwned(const std::string &path)
{
    if (!checkKind(path).ok()) {
        return false;
    }
    const Descriptor opened(
        ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
    return opened.open() && flock(opened.get(), LOCK_SH | LOCK_NB) != 0 &&
           errno == EWOULDBLOCK;
}

} // namespace helper
