#include "tests/support/child.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

#include "helper/clock.h"
#include "helper/descriptor.h"
#include "helper/process.h"

namespace
{

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

// The words that start a program in a changed environment.
helper::Words InEnvironment(const Words &words, const Environment &environment)
{
    helper::Words all = {"/usr/bin/env", "LC_ALL=C.UTF-8"};
    for (const auto &[name, value] : environment) {
        all.push_back(name + "=" + value);
    }
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

} // namespace

double Now()
{
    return helper::now();
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
    const double begin = Now();
    std::string answer;
    const bool ended = helper::askInChild(
        [&](int output) {
            std::string data;
            const int error = act(&data);
            WriteAll(output, &error, sizeof(error));
            WriteAll(output, data.data(), data.size());
        },
        limit, answer);
    Outcome outcome{-1, "", Now() - begin};
    if (ended && answer.size() >= sizeof(int)) {
        memcpy(&outcome.error, answer.data(), sizeof(int));
        outcome.data = answer.substr(sizeof(int));
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
    const double begin = Now();
    helper::Ran ran =
        helper::runProgram(InEnvironment(words, environment), limit);
    return {ran.status, std::move(ran.output), Now() - begin};
}

Process::Process(const Words &words, const Environment &environment,
                 std::string log_file)
    : pid(-1), log(std::move(log_file))
{
    const helper::Descriptor output(
        open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    pid = helper::startProgram(InEnvironment(words, environment), output.get());
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
        status = helper::reap(pid, Now() + limit);
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
