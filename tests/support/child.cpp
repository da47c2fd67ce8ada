#include "tests/support/child.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

namespace
{

// Reads a pipe to its end; false when `until` comes first.
bool Drain(int fd, double until, std::string *data)
{
    char piece[65536];
    for (;;) {
        pollfd waiting{fd, POLLIN, 0};
        const int left = static_cast<int>((until - Now()) * 1000);
        if (left <= 0 || poll(&waiting, 1, left) == 0) {
            return false;
        }
        const ssize_t n = read(fd, piece, sizeof(piece));
        if (n == 0) {
            return true;
        }
        if (n > 0) {
            data->append(piece, static_cast<size_t>(n));
        }
    }
}

int ExitStatus(int status)
{
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// A child that hangs in the volume can't be waited for; it is left to die.
int Reap(pid_t pid, double limit)
{
    int status = 0;
    const bool ended = Eventually(
        [&] { return waitpid(pid, &status, WNOHANG) == pid; }, limit);
    return ended ? ExitStatus(status) : -1;
}

void WriteAll(int fd, const void *data, size_t size)
{
    const auto *at = static_cast<const char *>(data);
    while (size > 0) {
        const ssize_t n = write(fd, at, size);
        if (n <= 0) {
            return;
        }
        at += n;
        size -= static_cast<size_t>(n);
    }
}

[[noreturn]] void Become(const Words &words, const Environment &environment,
                         int output)
{
    signal(SIGPIPE, SIG_DFL);
    for (const auto &[name, value] : environment) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    setenv("LC_ALL", "C.UTF-8", 1);
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    close_range(3, ~0U, 0);
    std::vector<char *> argv;
    for (const std::string &word : words) {
        argv.push_back(const_cast<char *>(word.c_str()));
    }
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    dprintf(STDERR_FILENO, "%s: %s\n", argv[0], strerror(errno));
    _exit(127);
}

// Runs `act`, which must not return, with a pipe to write to.
Finished RunChild(const std::function<void(int)> &act, double limit)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return {};
    }
    const double begin = Now();
    const pid_t pid = fork();
    if (pid == 0) {
        close(ends[0]);
        act(ends[1]);
    }
    close(ends[1]);
    Finished finished;
    const bool ended = Drain(ends[0], begin + limit, &finished.out);
    close(ends[0]);
    if (!ended) {
        kill(pid, SIGKILL);
    }
    const int status = Reap(pid, 5);
    finished.status = ended ? status : -1;
    finished.seconds = Now() - begin;
    return finished;
}

} // namespace

double Now()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) +
           static_cast<double>(now.tv_nsec) / 1e9;
}

bool Eventually(const std::function<bool()> &test, double seconds)
{
    const double until = Now() + seconds;
    while (!test()) {
        if (Now() > until) {
            return false;
        }
        usleep(5000);
    }
    return true;
}

Outcome Access(const std::function<int(std::string *)> &act, double limit)
{
    Finished child = RunChild(
        [&](int output) {
            std::string data;
            const int error = act(&data);
            WriteAll(output, &error, sizeof(error));
            WriteAll(output, data.data(), data.size());
            _exit(0);
        },
        limit);
    Outcome outcome{-1, "", child.seconds};
    if (child.status == 0 && child.out.size() >= sizeof(int)) {
        memcpy(&outcome.error, child.out.data(), sizeof(int));
        outcome.data = child.out.substr(sizeof(int));
    }
    return outcome;
}

Outcome Try(const std::function<int()> &call)
{
    return Access([&](std::string *) { return call() < 0 ? errno : 0; });
}

Outcome Stat(const std::string &path)
{
    struct stat st {
    };
    return Try([&] { return stat(path.c_str(), &st); });
}

Outcome ReadFile(const std::string &path)
{
    return Access([&](std::string *data) {
        const int fd = open(path.c_str(), O_RDONLY);
        if (fd < 0) {
            return errno;
        }
        std::string piece(1 << 20, '\0');
        ssize_t n = 0;
        while ((n = read(fd, piece.data(), piece.size())) > 0) {
            data->append(piece, 0, static_cast<size_t>(n));
        }
        return n < 0 ? errno : 0;
    });
}

Outcome List(const std::string &path)
{
    return Access([&](std::string *data) {
        DIR *folder = opendir(path.c_str());
        if (folder == nullptr) {
            return errno;
        }
        std::vector<std::string> names;
        errno = 0;
        while (const dirent *entry = readdir(folder)) {
            names.emplace_back(entry->d_name);
        }
        const int error = errno;
        std::sort(names.begin(), names.end());
        for (const std::string &name : names) {
            if (name != "." && name != "..") {
                *data += name + "\n";
            }
        }
        return error;
    });
}

Outcome WriteFile(const std::string &path, int flags, const std::string &data)
{
    return Access([&](std::string *) {
        const int fd = open(path.c_str(), flags, 0666);
        if (fd < 0) {
            return errno;
        }
        size_t done = 0;
        while (done < data.size()) {
            const ssize_t n = write(fd, data.data() + done, data.size() - done);
            if (n < 0) {
                return errno;
            }
            done += static_cast<size_t>(n);
        }
        return close(fd) == 0 ? 0 : errno;
    });
}

Finished RunProgram(const Words &words, const Environment &environment,
                    double limit)
{
    return RunChild([&](int output) { Become(words, environment, output); },
                    limit);
}

Process::Process(const Words &words, const Environment &environment,
                 std::string log_file)
    : pid(-1), log(std::move(log_file))
{
    const int output =
        open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    pid = fork();
    if (pid == 0) {
        Become(words, environment, output);
    }
    close(output);
}

Process::~Process()
{
    if (!Running()) {
        return;
    }
    Signal(SIGTERM);
    if (Wait(10) < 0) {
        Signal(SIGKILL);
        Wait(10);
    }
}

std::string Process::Output() const
{
    return Slurp(log);
}

bool Process::Running()
{
    return pid > 0 && Wait(0) < 0;
}

int Process::Wait(double limit)
{
    if (pid > 0) {
        status = Reap(pid, limit);
        if (status >= 0) {
            pid = -1;
        }
    }
    return status;
}

void Process::Signal(int number) const
{
    if (pid > 0) {
        kill(pid, number);
    }
}

std::string Slurp(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void Spill(const std::string &path, const std::string &data)
{
    std::ofstream(path, std::ios::binary) << data;
}
