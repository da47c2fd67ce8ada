#include "bench/fixture.h"

#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>

namespace bench
{

namespace
{

Words Options(const Link &link)
{
    Words words;
    if (link.rtt_us != 0) {
        words.insert(words.end(), {"--rtt-us", std::to_string(link.rtt_us)});
    }
    if (link.mb_per_s != 0) {
        words.insert(words.end(),
                     {"--mb-per-s", std::to_string(link.mb_per_s)});
    }
    return words;
}

std::string NewFolder(const std::string &path)
{
    std::filesystem::create_directory(path);
    return path;
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

bool Run(const Words &words)
{
    return RunProgram(words, {}, 600).status == 0;
}

void Device::AddFile(const std::string &name, uint64_t bytes) const
{
    std::ofstream file(sample.Storage(name), std::ios::binary);
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
        throw std::runtime_error("the sample device's folder is full");
    }
}

void Device::AddFolder(const std::string &name, unsigned count) const
{
    for (unsigned i = 0; i < count; ++i) {
        sample.Put(name + "/file " + std::to_string(i) + ".txt",
                   std::to_string(i));
    }
}

Server::Server(const Device &device, const Link &link)
    : simulator(work.path, {device.sample.folder}, Options(link))
{
}

Volume::Volume(const Device &device, const Server &server)
    : path(NewFolder(server.work.path + "/volume")),
      process({Program("quorvelfs"), path, "-f", "-devopt",
               std::to_string(device.sample.location)},
              {{"USBMUXD_SOCKET_ADDRESS", "UNIX:" + server.socket}},
              server.work.path + "/volume.log")
{
    if (!Eventually(
            [&] { return std::filesystem::is_directory(path + "/Storage"); },
            15)) {
        throw std::runtime_error("the volume could not be mounted: " +
                                 process.Output());
    }
}

Volume::~Volume()
{
    Run({"fusermount3", "-u", path});
    process.Wait(PATIENCE);
}

} // namespace bench
