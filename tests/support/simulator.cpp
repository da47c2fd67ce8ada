#include "tests/support/simulator.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include <nlohmann/json.hpp>

namespace
{

// A number no other test that runs now has, nor any other device of this one.
uint32_t FreeLocation()
{
    static uint32_t used = 0;
    return 1500000000U + static_cast<uint32_t>(getpid()) * 16U + used++;
}

std::string Ask(const std::string &path, const std::string &line)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    timeval limit{10, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    std::string answer;
    const std::string text = line + "\n";
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) ==
            0 &&
        write(fd, text.data(), text.size()) ==
            static_cast<ssize_t>(text.size())) {
        char c = 0;
        while (read(fd, &c, 1) == 1 && c != '\n') {
            answer += c;
        }
    }
    close(fd);
    return answer;
}

} // namespace

std::string Program(const std::string &name)
{
    return std::string(QUORVEL_BIN) + "/" + name;
}

SampleDevice::SampleDevice(const std::string &work, const Words &options,
                           uint32_t given)
    : location(given != 0 ? given : FreeLocation())
{
    folder = work + "/device" + std::to_string(location);
    Words words = {Program("quorvel-simdevice"), "make", folder};
    words.insert(words.end(), options.begin(), options.end());
    if (std::find(words.begin(), words.end(), "--location-id") == words.end()) {
        words.insert(words.end(), {"--location-id", std::to_string(location)});
    }
    const Finished made = RunProgram(words);
    if (made.status != 0) {
        throw std::runtime_error("no sample device: " + made.out);
    }
}

std::string SampleDevice::Storage(const std::string &path) const
{
    return folder + "/Media/general_storage/" + path;
}

void SampleDevice::Put(const std::string &path, const std::string &data) const
{
    const std::filesystem::path file = Storage(path);
    std::filesystem::create_directories(file.parent_path());
    Spill(file, data);
}

std::string SampleDevice::Get(const std::string &path) const
{
    return Slurp(Storage(path));
}

Simulator::Simulator(const std::string &work,
                     const std::vector<std::string> &devices,
                     const Words &options)
    : socket(work + "/usbmuxd"), control(work + "/control")
{
    Words words = {Program("quorvel-simdevice"), "run", "--socket", socket};
    words.insert(words.end(), {"--control", control});
    for (const std::string &device : devices) {
        words.insert(words.end(), {"--device", device});
    }
    words.insert(words.end(), options.begin(), options.end());
    process = std::make_unique<Process>(words, Environment(),
                                        work + "/simulator.log");
    if (!Eventually(
            [&] { return Output().find("ready") != std::string::npos; })) {
        throw std::runtime_error("the simulator did not start: " + Output());
    }
}

std::string Simulator::Control(const std::string &line) const
{
    std::string answer = Ask(control, line);
    if (!answer.starts_with("ok")) {
        throw std::runtime_error(line + ": " + answer);
    }
    return answer;
}

nlohmann::json Simulator::Statistics() const
{
    return nlohmann::json::parse(Control("stats").substr(3));
}

uint64_t Simulator::Requests(const std::string &operation) const
{
    return Statistics()["afc"].value(operation, uint64_t{0});
}

uint64_t Simulator::AllRequests() const
{
    uint64_t all = 0;
    const nlohmann::json statistics = Statistics();
    for (const auto &entry : statistics["afc"]) {
        all += entry.get<uint64_t>();
    }
    return all;
}

int64_t Simulator::Number(const std::string &name) const
{
    return Statistics().value(name, int64_t{-1});
}

int Simulator::End()
{
    process->Signal(SIGTERM);
    return process->Wait(PATIENCE);
}
