#include "bench/fixture.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>

#include <nlohmann/json.hpp>

namespace bench
{

namespace
{

[[noreturn]] void Stop(const std::string &why)
{
    fprintf(stderr, "benchmark: %s\n", why.c_str());
    exit(1);
}

std::string TempFolder()
{
    std::string name =
        (std::filesystem::temp_directory_path() / "quorvel-bench.XXXXXX")
            .string();
    if (mkdtemp(name.data()) == nullptr) {
        Stop("no temporary folder can be made");
    }
    return name;
}

std::string Program(const char *name)
{
    return std::string(QUORVEL_BIN) + "/" + name;
}

int WaitFor(pid_t pid)
{
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
}

// Tries every 10 ms for 15 s.
template <typename Test>
bool Eventually(Test test)
{
    for (int i = 0; i < 1500; ++i) {
        if (test()) {
            return true;
        }
        usleep(10000);
    }
    return false;
}

} // namespace

double Floor(const Link &link, uint64_t bytes, unsigned round_trips)
{
    double seconds = round_trips * (link.rtt_us / 1e6);
    if (link.mb_per_s != 0) {
        seconds += static_cast<double>(bytes) / (link.mb_per_s * 1e6);
    }
    return seconds;
}

double Now()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) +
           static_cast<double>(now.tv_nsec) / 1e9;
}

pid_t Start(const std::vector<std::string> &words, const std::string &socket)
{
    std::vector<char *> argv;
    for (const std::string &word : words) {
        argv.push_back(const_cast<char *>(word.c_str()));
    }
    argv.push_back(nullptr);
    if (!socket.empty()) {
        setenv("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + socket).c_str(), 1);
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null",
                                     O_WRONLY, 0);
    pid_t pid = 0;
    const int error =
        posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        Stop(words[0] + ": " + strerror(error));
    }
    return pid;
}

bool Run(const std::vector<std::string> &words)
{
    return WaitFor(Start(words, "")) == 0;
}

Device::Device(const std::vector<std::string> &options)
    : folder(TempFolder()), location_id(80000000 + getpid())
{
    std::vector<std::string> words = {Program("quorvel-simdevice"), "make",
                                      folder + "/device", "--location-id",
                                      std::to_string(location_id)};
    words.insert(words.end(), options.begin(), options.end());
    if (!Run(words)) {
        Stop("no sample device could be made");
    }
}

Device::~Device()
{
    std::filesystem::remove_all(folder);
}

void Device::AddFile(const std::string &name, uint64_t bytes) const
{
    std::ofstream file(folder + "/device/Media/general_storage/" + name,
                       std::ios::binary);
    std::mt19937_64 random(bytes);
    std::vector<uint64_t> block(131072);
    for (uint64_t done = 0; done < bytes; done += block.size() * 8) {
        for (uint64_t &word : block) {
            word = random();
        }
        const uint64_t piece =
            std::min<uint64_t>(bytes - done, block.size() * 8);
        file.write(reinterpret_cast<const char *>(block.data()),
                   static_cast<std::streamsize>(piece));
    }
    if (!file.flush()) {
        Stop("the sample device's folder is full");
    }
}

void Device::AddFolder(const std::string &name, unsigned count) const
{
    const std::string path = folder + "/device/Media/general_storage/" + name;
    std::filesystem::create_directory(path);
    for (unsigned i = 0; i < count; ++i) {
        std::ofstream(path + "/file " + std::to_string(i) + ".txt") << i;
    }
}

Server::Server(const Device &device, const Link &link)
    : folder(TempFolder()), socket(folder + "/usbmuxd"), pid(0)
{
    std::vector<std::string> words = {Program("quorvel-simdevice"),
                                      "run",
                                      "--socket",
                                      socket,
                                      "--device",
                                      device.folder + "/device",
                                      "--control",
                                      folder + "/ctl"};
    if (link.rtt_us != 0) {
        words.insert(words.end(), {"--rtt-us", std::to_string(link.rtt_us)});
    }
    if (link.mb_per_s != 0) {
        words.insert(words.end(),
                     {"--mb-per-s", std::to_string(link.mb_per_s)});
    }
    pid = Start(words, "");
    if (!Eventually([&] {
            return access((folder + "/ctl").c_str(), F_OK) == 0 &&
                   access(socket.c_str(), F_OK) == 0;
        })) {
        Stop("the simulated device did not start");
    }
}

Server::~Server()
{
    kill(pid, SIGTERM);
    WaitFor(pid);
    std::filesystem::remove_all(folder);
}

std::string Server::Control(const std::string &line) const
{
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "%s",
             (folder + "/ctl").c_str());
    if (fd < 0 || connect(fd, reinterpret_cast<sockaddr *>(&address),
                          sizeof(address)) != 0) {
        Stop("the simulated device's control socket can't be reached");
    }
    const std::string request = line + "\n";
    std::string answer;
    if (write(fd, request.data(), request.size()) ==
        static_cast<ssize_t>(request.size())) {
        char piece[4096];
        ssize_t got = 0;
        while (answer.find('\n') == std::string::npos &&
               (got = read(fd, piece, sizeof(piece))) > 0) {
            answer.append(piece, static_cast<size_t>(got));
        }
    }
    close(fd);
    return answer;
}

uint64_t Server::Requests(const std::string &operation) const
{
    const std::string answer = Control("stats");
    const size_t begin = answer.find('{');
    if (begin == std::string::npos) {
        Stop("no statistics from the simulated device: " + answer);
    }
    const auto stats = nlohmann::json::parse(answer.substr(begin));
    return stats.at("afc").value(operation, uint64_t{0});
}

Volume::Volume(const Device &device, const Server &server)
    : path(server.folder + "/volume"), pid(0)
{
    std::filesystem::create_directory(path);
    pid = Start({Program("quorvelfs"), path, "-f", "-devopt",
                 std::to_string(device.location_id)},
                server.socket);
    struct stat st {
    };
    if (!Eventually([&] {
            return stat((path + "/Storage").c_str(), &st) == 0 &&
                   S_ISDIR(st.st_mode);
        })) {
        Stop("the volume could not be mounted");
    }
}

Volume::~Volume()
{
    Run({"/usr/bin/fusermount3", "-u", path});
    WaitFor(pid);
}

} // namespace bench
