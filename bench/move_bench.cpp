// The speed of moves across the areas, which are copies inside the device:
// every byte comes over the link and goes back. Both directions are busy at the
// same time, so that the floor is one way's bytes, and the round trips that must
// follow one another.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "bench/fixture.h"

namespace
{

using bench::Device;
using bench::Link;
using bench::Now;

constexpr uint64_t MIB = 1U << 20;
constexpr uint64_t LARGE = 256 * MIB;
constexpr uint64_t SMALL = 20 << 10;
constexpr unsigned MANY = 1000;

const std::string NOTES = "/Apps/Caf\xC3\xA9 Reader";
const std::string ROLL = "/Media/Photo/Camera Roll";
const std::string OTHER = "/Apps/Notes";

[[noreturn]] void Fail(const std::string &what)
{
    perror(what.c_str());
    exit(1);
}

void Fill(const std::filesystem::path &path, uint64_t bytes)
{
    std::filesystem::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    std::vector<char> block(MIB);
    for (uint64_t done = 0; done < bytes; done += block.size()) {
        for (size_t i = 0; i < block.size(); ++i) {
            block[i] = static_cast<char>((done + i) * 2654435761U >> 13);
        }
        const uint64_t rest = bytes - done;
        file.write(block.data(), static_cast<std::streamsize>(
                                     rest < block.size() ? rest : MIB));
    }
}

// One move and what it must take at least.
struct Move {
    std::string what;
    std::string from;
    std::string to;
    unsigned files;
    uint64_t bytes;  // altogether
    unsigned follow; // round trips of each file that follow one another
};

void Measure(const bench::Volume &volume, const bench::Server &server,
             const Link &link, const Move &move)
{
    // As somebody has seen both places before.
    bench::Run({"/bin/ls", "-l", volume.path + move.from});
    bench::Run(
        {"/bin/ls",
         std::filesystem::path(volume.path + move.to).parent_path().string()});
    server.Control("stats reset");
    const double begin = Now();
    if (rename((volume.path + move.from).c_str(),
               (volume.path + move.to).c_str()) != 0) {
        Fail(move.from + " to " + move.to);
    }
    const double took = Now() - begin;
    const double floor =
        bench::Floor(link, move.bytes, move.files * move.follow);
    const double trips =
        (took - static_cast<double>(move.bytes) / (link.mb_per_s * 1e6)) /
        (link.rtt_us / 1e6) / move.files;
    printf("| %s | %u us, %u MB/s | %.3f | %.3f | %.1f %% | %.1f | %lu |\n",
           move.what.c_str(), link.rtt_us, link.mb_per_s, took, floor,
           100 * floor / took, trips, server.Requests("FileRefWrite"));
    fflush(stdout);
}

// Makes the pictures of a sample device larger.
void EnlargePictures(const Device &device, uint64_t bytes)
{
    for (const auto &picture : std::filesystem::directory_iterator(
             device.sample.folder + "/Media/DCIM/100APPLE")) {
        Fill(picture.path(), bytes);
    }
}

void MediaMoves(const Link &link)
{
    const unsigned follow = 3; // open, read, write
    const Device device({"--photos", std::to_string(1)});
    EnlargePictures(device, LARGE);
    {
        const bench::Server server(device, link);
        const bench::Volume volume(device, server);
        Measure(volume, server, link,
                {"256 MiB from media to storage", ROLL + "/IMG_0001.JPG",
                 "/Storage/large.bin", 1, LARGE, follow});
    }
    const Device many({"--photos", std::to_string(MANY)});
    EnlargePictures(many, SMALL);
    const bench::Server server(many, link);
    const bench::Volume volume(many, server);
    unsigned files = 0;
    uint64_t bytes = 0;
    for (const auto &entry :
         std::filesystem::directory_iterator(volume.path + ROLL)) {
        ++files;
        bytes += entry.file_size();
    }
    Measure(volume, server, link,
            {std::to_string(files) + " files of 20 KiB from media to storage",
             ROLL, "/Storage/small", files, bytes, follow});
}

void Moves(const Link &link)
{
    const Device device;
    const std::filesystem::path storage = device.sample.Storage("");
    Fill(storage / "large.bin", LARGE);
    for (unsigned i = 0; i < MANY; ++i) {
        Fill(storage / "small" / std::to_string(i), SMALL);
    }
    const bench::Server server(device, link);
    const bench::Volume volume(device, server);
    const unsigned move = 4; // ask and open, read, write, remove
    const uint64_t small = MANY * SMALL;
    for (const Move &each : {
             Move{"256 MiB from storage to an app", "/Storage/large.bin",
                  NOTES + "/large.bin", 1, LARGE, move},
             Move{"256 MiB from app to app", NOTES + "/large.bin",
                  OTHER + "/large.bin", 1, LARGE, move},
             Move{"256 MiB from an app to storage", OTHER + "/large.bin",
                  "/Storage/large.bin", 1, LARGE, move},
             Move{"1,000 files of 20 KiB from storage to an app",
                  "/Storage/small", NOTES + "/small", MANY, small, move},
             Move{"1,000 files of 20 KiB from app to app", NOTES + "/small",
                  OTHER + "/small", MANY, small, move},
             Move{"1,000 files of 20 KiB from an app to storage",
                  OTHER + "/small", "/Storage/small", MANY, small, move},
         }) {
        Measure(volume, server, link, each);
    }
}

} // namespace

int main()
try {
    signal(SIGPIPE, SIG_IGN);
    printf("| what | link | time s | floor s | floor/time | round trips a file "
           "| writes |\n|---|---|---:|---:|---:|---:|---:|\n");
    for (const Link &link : {Link{1000, 40}, Link{300, 400}}) {
        MediaMoves(link);
        Moves(link);
    }
    return 0;
} catch (const std::exception &error) {
    fprintf(stderr, "benchmark: %s\n", error.what());
    return 1;
}
