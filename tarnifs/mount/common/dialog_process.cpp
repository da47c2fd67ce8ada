#include "tarnifs/mount/common/dialog_process.h"

#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>

#include "tarnifs/mount/host.h"
#include "util/log.h"

namespace
{

std::mutex dialog_lock;
std::condition_variable dialog_ended;
pid_t dialog_pid = 0;      // the program on the screen, 0: none
bool dialogs_over = false; // set for good by hostEndDialog

// Starts a program; its pid is then in dialog_pid. False when it can't be
// started, or none may be shown any more.
bool Start(const std::string &file, const Words &words, Spawner spawn)
{
    std::vector<char *> argv;
    for (const std::string &word : words) {
        argv.push_back(const_cast<char *>(word.c_str()));
    }
    argv.push_back(nullptr);

    const std::lock_guard<std::mutex> hold(dialog_lock);
    if (dialogs_over) {
        return false;
    }
    const pid_t pid = spawn(file.c_str(), argv.data());
    if (pid < 0) {
        QNLog(3, "%s starting %s failed. errno : %d", "hostShowDialog",
              file.c_str(), errno);
        return false;
    }
    dialog_pid = pid;
    return true;
}

// Waits for the program on the screen; its wait status. The number is given up
// only under the lock, so that nobody signals a stranger.
int Await()
{
    siginfo_t info{};
    while (waitid(P_PID, static_cast<id_t>(dialog_pid), &info,
                  WEXITED | WNOWAIT) != 0 &&
           errno == EINTR) {}
    const std::lock_guard<std::mutex> hold(dialog_lock);
    int status = 0;
    waitpid(dialog_pid, &status, 0);
    dialog_pid = 0;
    dialog_ended.notify_all();
    return status;
}

} // namespace

std::optional<int> RunDialogProgram(const std::string &file, const Words &words,
                                    Spawner spawn)
{
    if (!Start(file, words, spawn)) {
        return std::nullopt;
    }
    return Await();
}

bool DialogsOver()
{
    const std::lock_guard<std::mutex> hold(dialog_lock);
    return dialogs_over;
}

void hostEndDialog()
{
    std::unique_lock<std::mutex> hold(dialog_lock);
    dialogs_over = true;
    if (dialog_pid == 0) {
        return;
    }
    kill(dialog_pid, SIGTERM);
    if (!dialog_ended.wait_for(hold, std::chrono::milliseconds(500),
                               [] { return dialog_pid == 0; })) {
        kill(dialog_pid, SIGKILL);
    }
}
