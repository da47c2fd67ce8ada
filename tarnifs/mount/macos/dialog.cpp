// What the Finder does for the volume: dialogs, and bringing its windows up to
// date. The scripts are handed to osascript as an argument; no shell sees them.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>

#include "tarnifs/mount/common/dialog_process.h"
#include "tarnifs/mount/host.h"
#include "tarnifs/mount/macos/applescript.h"
#include "util/log.h"

extern char **environ;

namespace
{

constexpr const char *OSASCRIPT = "/usr/bin/osascript";

// How the program starts: as one from a shell does, with nothing blocked, broken
// pipes ending it, and no descriptor of the volume's.
struct Start {
    posix_spawnattr_t attributes{};
    posix_spawn_file_actions_t actions{};
    bool ready = false;

    Start();
    ~Start();
    Start(const Start &) = delete;
    Start &operator=(const Start &) = delete;
};

bool SetSignals(posix_spawnattr_t *attributes)
{
    sigset_t none;
    sigemptyset(&none);
    sigset_t usual;
    sigemptyset(&usual);
    sigaddset(&usual, SIGPIPE);
    return posix_spawnattr_setsigmask(attributes, &none) == 0 &&
           posix_spawnattr_setsigdefault(attributes, &usual) == 0 &&
           posix_spawnattr_setflags(
               attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                               POSIX_SPAWN_CLOEXEC_DEFAULT) == 0;
}

bool SetStreams(posix_spawn_file_actions_t *actions)
{
    for (int fd = 0; fd <= 2; ++fd) {
        if (posix_spawn_file_actions_addopen(actions, fd, "/dev/null", O_RDWR,
                                             0) != 0) {
            return false;
        }
    }
    return true;
}

Start::Start()
{
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_init(&actions);
    ready = SetSignals(&attributes) && SetStreams(&actions);
}

Start::~Start()
{
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
}

pid_t Spawn(const char *file, char *const *argv)
{
    const Start start;
    pid_t pid = -1;
    const int error = start.ready
                          ? posix_spawn(&pid, file, &start.actions,
                                        &start.attributes, argv, environ)
                          : ENOMEM;
    errno = error;
    return error == 0 ? pid : -1;
}

void RunScript(const std::string &script)
{
    int status = RunDialogProgram(OSASCRIPT, {"osascript", "-e", script}, Spawn)
                     .value_or(0);
    if (WIFEXITED(status) && WEXITSTATUS(status) != 0) {
        QNLog(3, "%s osascript failed. status : %d", "RunScript",
              WEXITSTATUS(status));
    }
}

} // namespace

void hostShowDialog(const char *title, const char *text, const char *button)
{
    RunScript(DialogScript(title, text, button));
}

void hostRefreshFileManager()
{
    RunScript(RefreshScript());
}
