#include "helper/watched_device.h"

#include <sys/wait.h>

#include <cerrno>
#include <csignal>

namespace helper
{

namespace
{

constexpr int END_TRIES = 2000; // of 10 ms

} // namespace

bool Worker::start(const Words &words)
{
    Pipe pipe;
    if (!pipe.open()) {
        return false;
    }
    pid = startProgram(words, pipe.in.get());
    if (pid < 0) {
        return false;
    }
    fcntl(pipe.out.get(), F_SETFL, O_NONBLOCK);
    output = std::move(pipe.out);
    text.clear();
    closed = false;
    return true;
}

Worker::~Worker()
{
    stop();
    for (int i = 0; i < END_TRIES && running() && !ended(); ++i) {
        usleep(10'000);
    }
}

void Worker::fetch()
{
    char piece[4096];
    ssize_t n = 0;
    while (!closed && (n = read(output.get(), piece, sizeof(piece))) > 0) {
        text.append(piece, static_cast<size_t>(n));
    }
    if (n == 0) {
        closed = true;
        output.reset();
    }
}

std::optional<std::string> Worker::line()
{
    fetch();
    const size_t end = text.find('\n');
    if (end == std::string::npos) {
        return {};
    }
    const std::string first = text.substr(0, end);
    text.erase(0, end + 1);
    return first;
}

std::optional<int> Worker::ended()
{
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, WNOHANG) != pid) {
        return {};
    }
    pid = -1;
    fetch();
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void Worker::stop() const
{
    if (pid > 0) {
        kill(pid, SIGTERM);
    }
}

} // namespace helper
