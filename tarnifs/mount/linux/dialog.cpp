// Notices on the screen: a dialog program with the text among its arguments,
// waited for. Which program: QUORVEL_DIALOG, else the first of the usual ones
// that is there and can reach a display, else the system log.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "tarnifs/mount/common/dialog_process.h"
#include "tarnifs/mount/host.h"
#include "util/log.h"

namespace
{

// Null when it is not set, or empty.
const char *Setting(const char *name)
{
    const char *value = getenv(name); // NOLINT(concurrency-mt-unsafe): nobody
                                      // changes the environment
    return value != nullptr && *value != '\0' ? value : nullptr;
}

// The file to run for a program's name, searched in PATH; "" without one.
std::string ProgramFile(const std::string &name)
{
    if (name.find('/') != std::string::npos) {
        return name;
    }
    const char *path = Setting("PATH");
    std::string rest = path == nullptr ? "/usr/bin:/bin" : path;
    while (!rest.empty()) {
        const size_t colon = rest.find(':');
        std::string file = rest.substr(0, colon) + "/" + name;
        if (access(file.c_str(), X_OK) == 0) {
            return file;
        }
        rest = colon == std::string::npos ? "" : rest.substr(colon + 1);
    }
    return "";
}

// zenity reads escapes in its text.
std::string WithoutEscapes(const std::string &text)
{
    std::string plain;
    for (const char c : text) {
        plain += c == '\\' ? "\\\\" : std::string(1, c);
    }
    return plain;
}

// notify-send reads the body as markup.
std::string WithoutMarkup(const std::string &text)
{
    std::string plain;
    for (const char c : text) {
        plain += c == '&'   ? "&amp;"
                 : c == '<' ? "&lt;"
                 : c == '>' ? "&gt;"
                            : std::string(1, c);
    }
    return plain;
}

// The commands to try, in this order.
std::vector<Words> Commands(const std::string &title, const std::string &text,
                            const std::string &button)
{
    const char *chosen = Setting("QUORVEL_DIALOG");
    if (chosen != nullptr) {
        return {{chosen, title, text, button}};
    }
    std::vector<Words> commands;
    if (Setting("DISPLAY") != nullptr ||
        Setting("WAYLAND_DISPLAY") != nullptr) {
        commands.push_back(
            {"zenity", "--warning", "--no-markup", "--title=" + title,
             "--text=" + WithoutEscapes(text), "--ok-label=" + button});
        commands.push_back({"kdialog", "--title", title, "--sorry", text});
    }
    if (Setting("DISPLAY") != nullptr) {
        commands.push_back({"xmessage", "-center", "-title", title, "-buttons",
                            button + ":0", text});
    }
    if (Setting("DBUS_SESSION_BUS_ADDRESS") != nullptr) {
        commands.push_back({"notify-send", "--", title, WithoutMarkup(text)});
    }
    return commands;
}

// In the child, between fork and exec: only calls that are safe there. The
// program starts as one from a shell does: nothing blocked, broken pipes end
// it, the usual mask, no descriptor of the volume's.
[[noreturn]] void Become(const char *file, char *const *argv)
{
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    umask(022);
    close_range(3, ~0U, 0);
    execv(file, argv);
    _exit(127);
}

// A file-creation mask can't be given to posix_spawn.
pid_t ForkAndExec(const char *file, char *const *argv)
{
    const pid_t pid = fork();
    if (pid == 0) {
        Become(file, argv);
    }
    return pid;
}

// Runs a command to its end. False when nobody can have seen it: it did not
// start, or failed at once, as these programs do without a display.
bool Show(const Words &command, bool chosen_by_user)
{
    const std::string file = ProgramFile(command[0]);
    if (file.empty() || access(file.c_str(), X_OK) != 0) {
        return false;
    }
    const auto begin = std::chrono::steady_clock::now();
    const std::optional<int> status =
        RunDialogProgram(file, command, ForkAndExec);
    if (!status) {
        return false;
    }
    if (!WIFEXITED(*status) || WEXITSTATUS(*status) == 0) {
        return true;
    }
    if (WEXITSTATUS(*status) == 127) {
        return false;
    }
    return chosen_by_user || std::chrono::steady_clock::now() - begin >
                                 std::chrono::milliseconds(500);
}

} // namespace

void hostShowDialog(const char *title, const char *text, const char *button)
{
    const bool chosen_by_user = Setting("QUORVEL_DIALOG") != nullptr;
    for (const Words &command : Commands(title, text, button)) {
        if (Show(command, chosen_by_user) || DialogsOver()) {
            return;
        }
        if (chosen_by_user) {
            QNLog(3, "%s dialog program can't be started : %s",
                  "hostShowDialog", command[0].c_str());
        }
    }
    syslog(LOG_USER | LOG_WARNING, "%s: %s", title, text);
}
