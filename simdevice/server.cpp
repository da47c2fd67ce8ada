#include "simdevice/server.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "simdevice/control.h"
#include "simdevice/usbmux.h"

namespace sim
{

namespace
{

constexpr int kBacklog = 100;

void complain(const std::string &text)
{
    std::fprintf(stderr, "quorvel-simdevice: %s\n", text.c_str());
}

bool fillAddress(const std::string &path, sockaddr_un &address)
{
    address = {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        complain(path + ": not usable as a socket path (1 to " +
                 std::to_string(sizeof address.sun_path - 1) + " characters)");
        return false;
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    return true;
}

int connectTo(const sockaddr_un &address)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && connect(fd, reinterpret_cast<const sockaddr *>(&address),
                           sizeof address) != 0) {
        const int error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

// A listening socket that removes its file at the end.
class ListenSocket
{
  public:
    ListenSocket() = default;
    ListenSocket(const ListenSocket &) = delete;
    ListenSocket &operator=(const ListenSocket &) = delete;
    ~ListenSocket()
    {
        if (m_fd >= 0) {
            close(m_fd);
            unlink(m_path.c_str());
        }
    }

    // Takes the place of a socket that nobody serves any more; anything else
    // at the path is refused.
    bool open(const std::string &path)
    {
        sockaddr_un address{};
        if (!fillAddress(path, address) || !clearPath(path, address)) {
            return false;
        }
        const int fd =
            socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (fd < 0 ||
            bind(fd, reinterpret_cast<const sockaddr *>(&address),
                 sizeof address) != 0 ||
            listen(fd, kBacklog) != 0) {
            complain(path + ": " + errorText(errno));
            close(fd);
            return false;
        }
        m_fd = fd;
        m_path = path;
        return true;
    }

    int fd() const { return m_fd; }

  private:
    static bool clearPath(const std::string &path, const sockaddr_un &address)
    {
        struct stat info = {};
        if (lstat(path.c_str(), &info) != 0) {
            return true; // binding tells if there is another reason
        }
        if (!S_ISSOCK(info.st_mode)) {
            complain(path + ": exists and is no socket");
            return false;
        }
        const int fd = connectTo(address);
        if (fd >= 0) {
            close(fd);
            complain(path + ": in use by another process");
            return false;
        }
        unlink(path.c_str());
        return true;
    }

    int m_fd = -1;
    std::string m_path;
};

// SIGINT and SIGTERM as a descriptor; blocked for every thread made later.
class SignalFd
{
  public:
    SignalFd()
    {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGINT);
        sigaddset(&set, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &set, &m_before);
        m_fd = signalfd(-1, &set, SFD_CLOEXEC);
    }
    ~SignalFd()
    {
        close(m_fd);
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    SignalFd(const SignalFd &) = delete;
    SignalFd &operator=(const SignalFd &) = delete;
    int fd() const { return m_fd; }

    // Takes a signal that came, so that it is not delivered after all.
    void consume() const
    {
        pollfd entry{m_fd, POLLIN, 0};
        signalfd_siginfo info{};
        while (poll(&entry, 1, 0) > 0 &&
               read(m_fd, &info, sizeof info) == sizeof info) {}
    }

  private:
    sigset_t m_before{};
    int m_fd = -1;
};

void acceptClient(Simulator &simulator, int listenFd,
                  void (*serve)(Simulator &, int))
{
    const int fd = accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
        if (errno == EMFILE || errno == ENFILE) {
            // The client stays in the backlog; trying at once would only spin.
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return;
    }
    simulator.workers.start([&simulator, fd, serve] { serve(simulator, fd); });
}

void serveControl(Simulator &simulator, int fd)
{
    {
        const std::lock_guard lock(simulator.mutex);
        if (simulator.quitting) {
            close(fd);
            return;
        }
        simulator.clients.push_back(fd);
    }
    serveControlClient(simulator, fd);
}

void acceptLoop(Simulator &simulator, int usbmuxFd, int controlFd, int signalFd)
{
    pollfd entries[] = {{usbmuxFd, POLLIN, 0},
                        {controlFd, POLLIN, 0},
                        {signalFd, POLLIN, 0},
                        {simulator.quitFd, POLLIN, 0}};
    for (;;) {
        if (poll(entries, std::size(entries), -1) < 0 && errno != EINTR) {
            return;
        }
        if (entries[2].revents != 0 || entries[3].revents != 0) {
            return;
        }
        if (entries[0].revents != 0) {
            acceptClient(simulator, usbmuxFd, serveUsbmuxClient);
        }
        if (entries[1].revents != 0) {
            acceptClient(simulator, controlFd, serveControl);
        }
    }
}

// Hundreds of open files per connection want more descriptors than the usual
// soft limit; timers are wanted as exact as the kernel can.
void prepareProcess()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 65536);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    prctl(PR_SET_TIMERSLACK, 1, 0, 0, 0);
    std::signal(SIGPIPE, SIG_IGN);
}

} // namespace

int runSimulator(const RunOptions &options)
{
    prepareProcess();
    const SignalFd signals;
    Simulator simulator;
    simulator.options = options;
    const std::string problem = loadDevices(simulator);
    if (!problem.empty()) {
        complain(problem);
        return 1;
    }
    ListenSocket usbmux;
    ListenSocket control;
    if (!usbmux.open(options.socketPath) ||
        (!options.controlPath.empty() && !control.open(options.controlPath))) {
        return 1;
    }
    simulator.quitFd = eventfd(0, EFD_CLOEXEC);
    std::puts("ready");
    std::fflush(stdout);
    acceptLoop(simulator, usbmux.fd(), control.fd(), signals.fd());
    signals.consume();
    cutEverything(simulator);
    simulator.workers.joinAll();
    close(simulator.quitFd);
    return 0;
}

int sendControlCommand(const std::string &path, const std::string &line)
{
    sockaddr_un address{};
    if (!fillAddress(path, address)) {
        return 1;
    }
    const int fd = connectTo(address);
    if (fd < 0) {
        complain(path + ": " + errorText(errno));
        return 1;
    }
    const std::string request = line + "\n";
    std::string answer;
    if (send(fd, request.data(), request.size(), MSG_NOSIGNAL) ==
        static_cast<ssize_t>(request.size())) {
        char piece[4096];
        ssize_t n = 0;
        while (answer.find('\n') == std::string::npos &&
               (n = recv(fd, piece, sizeof piece, 0)) > 0) {
            answer.append(piece, static_cast<size_t>(n));
        }
    }
    close(fd);
    if (answer.empty() && line == "quit") {
        return 0; // it was faster than its answer
    }
    if (answer.empty()) {
        complain(path + ": no answer");
        return 1;
    }
    std::fputs(answer.c_str(), stdout);
    return answer.starts_with("ok") ? 0 : 1;
}

} // namespace sim
