#include "helper/process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>

#include "helper/clock.h"
#include "helper/descriptor.h"

namespace helper
{

namespace
{

constexpr double KILL_SECONDS = 0.1;
constexpr int ASK_MS = 100; // how often it is asked whether to stop

struct SpawnActions {
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;

    SpawnActions()
    {
        posix_spawn_file_actions_init(&files);
        posix_spawnattr_init(&attributes);
    }
    ~SpawnActions()
    {
        posix_spawn_file_actions_destroy(&files);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnActions(const SpawnActions &) = delete;
    SpawnActions &operator=(const SpawnActions &) = delete;

    // This program blocks and ignores signals that others must get.
    void usualSignals()
    {
        sigset_t none;
        sigset_t usual;
        sigemptyset(&none);
        sigemptyset(&usual);
        for (const int number : {SIGPIPE, SIGINT, SIGTERM, SIGHUP}) {
            sigaddset(&usual, number);
        }
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setsigdefault(&attributes, &usual);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK |
                                                  POSIX_SPAWN_SETSIGDEF);
    }
};

// A child that has not ended by then is killed, and left behind if even that
// does not help: one that hangs in a volume may not hear it.
int reapOrKill(pid_t pid, double until)
{
    const int status = reap(pid, until);
    if (status < 0) {
        kill(pid, SIGKILL);
        reap(pid, now() + KILL_SECONDS);
    }
    return status;
}

bool executable(const std::string &path)
{
    return access(path.c_str(), X_OK) == 0;
}

} // namespace

std::string ownProgram()
{
    char path[PATH_MAX] = {};
    const ssize_t n = readlink("/proc/self/exe", path, sizeof(path) - 1);
    return n > 0 ? std::string(path, static_cast<size_t>(n)) : "";
}

std::string findProgram(const std::string &name)
{
    const std::string self = ownProgram();
    const std::string folder_of_ours = self.substr(0, self.rfind('/') + 1);
    // mount(8)'s helper is installed beside the folder of the others.
    for (const char *where : {"", "../bin/"}) {
        std::string file = folder_of_ours;
        file.append(where).append(name);
        if (executable(file)) {
            return file;
        }
    }
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
    const char *path = getenv("PATH");
    const std::string folders = path != nullptr ? path : "/usr/bin:/bin";
    size_t from = 0;
    while (from <= folders.size()) {
        const size_t end = std::min(folders.find(':', from), folders.size());
        std::string file = folders.substr(from, end - from);
        const bool absolute = file.starts_with("/");
        file.append("/").append(name);
        if (absolute && executable(file)) {
            return file;
        }
        from = end + 1;
    }
    return "";
}

bool readUntil(int fd, double until, std::string &data,
               const std::function<bool()> &stopped)
{
    char piece[65536];
    for (;;) {
        const int left = static_cast<int>((until - now()) * 1000);
        pollfd waiting{fd, POLLIN, 0};
        if (left <= 0 || stopped()) {
            return false;
        }
        if (poll(&waiting, 1, std::min(left, ASK_MS)) <= 0) {
            continue;
        }
        const ssize_t n = read(fd, piece, sizeof(piece));
        if (n == 0) {
            return true;
        }
        if (n > 0) {
            data.append(piece, static_cast<size_t>(n));
        }
    }
}

int reap(pid_t pid, double until)
{
    int status = 0;
    pid_t ended = 0;
    while ((ended = waitpid(pid, &status, WNOHANG)) == 0 && now() < until) {
        usleep(1000);
    }
    if (ended != pid) {
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

pid_t startProgram(const Words &words, int output)
{
    std::vector<char *> argv;
    for (const std::string &word : words) {
        argv.push_back(const_cast<char *>(word.c_str()));
    }
    argv.push_back(nullptr);
    SpawnActions actions;
    actions.usualSignals();
    posix_spawn_file_actions_addopen(&actions.files, STDIN_FILENO, "/dev/null",
                                     O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions.files, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions.files, output, STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&actions.files, 3);
    pid_t pid = -1;
    errno = posix_spawn(&pid, argv[0], &actions.files, &actions.attributes,
                        argv.data(), environ);
    return errno == 0 ? pid : -1;
}

Ran runProgram(const Words &words, double seconds,
               const std::function<bool()> &stopped)
{
    Ran ran;
    Pipe pipe;
    if (!pipe.open()) {
        return ran;
    }
    const double until = now() + seconds;
    const pid_t pid = startProgram(words, pipe.in.get());
    pipe.in.reset();
    if (pid < 0) {
        return ran;
    }
    const bool ended = readUntil(pipe.out.get(), until, ran.output, stopped);
    ran.status = reapOrKill(pid, ended ? until : 0);
    return ran;
}

bool askInChild(const std::function<void(int answer)> &act, double seconds,
                std::string &answer)
{
    answer.clear();
    Pipe pipe;
    if (!pipe.open()) {
        return false;
    }
    const double until = now() + seconds;
    const pid_t pid = fork();
    if (pid == 0) {
        act(pipe.in.get());
        _exit(0);
    }
    pipe.in.reset();
    const bool ended = pid > 0 && readUntil(pipe.out.get(), until, answer);
    return pid > 0 && reapOrKill(pid, ended ? until : 0) == 0;
}

} // namespace helper
