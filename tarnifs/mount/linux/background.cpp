#include "tarnifs/mount/linux/background.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <initializer_list>

#include "tarnifs/mount/exit_status.h"

namespace
{

constexpr char WORKS = '+';
constexpr char FAILED = '-';

int waiting_command = -1; // our end of the pipe; -1: nobody waits
sigset_t signals_before;

ExitStatus AwaitStart(int fd)
{
    char word = 0;
    ssize_t n = 0;
    while ((n = read(fd, &word, 1)) < 0 && errno == EINTR) {}
    if (n == 1 && word == WORKS) {
        return ExitStatus::Ok;
    }
    if (n == 1) {
        fputs("quorvelfs: the device can't be used; the volume stays mounted "
              "and answers nothing, and the log says why (in /var/log or "
              "~/.local/state/quorvel)\n",
              stderr);
        return ExitStatus::NoDevice;
    }
    fputs("quorvelfs: ended before the volume answered\n", stderr);
    return ExitStatus::Failed;
}

// Nothing of the terminal, or of a folder that others want to unmount, is kept.
void LeaveTerminal()
{
    setsid();
    if (chdir("/") != 0) {
        perror("quorvelfs: /");
    }
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int fd = 0; fd <= 2 && nothing >= 0; ++fd) {
        dup2(nothing, fd);
    }
    if (nothing > 2) {
        close(nothing);
    }
}

} // namespace

bool EnterBackground()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        perror("quorvelfs: pipe");
        return false;
    }
    const pid_t server = fork();
    if (server > 0) {
        close(ends[1]);
        ReleaseEndingSignals();
        // The mount belongs to the other process: nothing is undone here.
        _exit(static_cast<int>(AwaitStart(ends[0])));
    }
    close(ends[0]);
    if (server < 0) {
        perror("quorvelfs: fork");
        close(ends[1]);
        return false;
    }
    waiting_command = ends[1];
    LeaveTerminal();
    return true;
}

bool TellStarted(bool works)
{
    if (waiting_command < 0) {
        return true;
    }
    const bool heard = write(waiting_command, works ? &WORKS : &FAILED, 1) == 1;
    close(waiting_command);
    waiting_command = -1;
    return heard;
}

bool StarterGone()
{
    pollfd end{waiting_command, 0, 0}; // ignored while it is -1
    return poll(&end, 1, 0) > 0 && (end.revents & POLLERR) != 0;
}

void HoldEndingSignals()
{
    sigset_t ending;
    sigemptyset(&ending);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&ending, number);
    }
    pthread_sigmask(SIG_BLOCK, &ending, &signals_before);
}

void ReleaseEndingSignals()
{
    pthread_sigmask(SIG_SETMASK, &signals_before, nullptr);
}
