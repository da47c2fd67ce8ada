// What the views of a large library cost: the first listing, a later one, and
// memory.
//
// The first listing of a folder asks the device about each of its N rows; the
// share says how much that takes of N round trips one after the other. The
// listing of "Media" fetches the databases; its floor is their bytes at the
// link's rate. The rows without a link tell what this machine does itself.
#include <sys/stat.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "bench/fixture.h"

namespace
{

using bench::Device;
using bench::Link;
using bench::Now;
using bench::Server;
using bench::Volume;

constexpr const char *ROLL = "/Media/Photo/Camera Roll";
constexpr const char *MUSIC = "/Media/Music";

std::string Name(const Link &link)
{
    return link.rtt_us == 0 ? "none"
                            : std::to_string(link.rtt_us) + " us, " +
                                  std::to_string(link.mb_per_s) + " MB/s";
}

double List(const std::string &folder)
{
    const double begin = Now();
    if (!bench::Run({"/bin/ls", "-l", folder})) {
        fprintf(stderr, "benchmark: %s can't be listed\n", folder.c_str());
        exit(1);
    }
    return Now() - begin;
}

uint64_t BytesOfDatabases(const Device &device)
{
    uint64_t bytes = 0;
    for (const char *name :
         {"iTunes_Control/iTunes/MediaLibrary.sqlitedb",
          "PhotoData/Photos.sqlite", "Recordings/Recordings.db"}) {
        for (const char *suffix : {"", "-shm", "-wal"}) {
            struct stat st {
            };
            const std::string path = device.sample.folder + "/Media/" + name;
            if (stat((path + suffix).c_str(), &st) == 0) {
                bytes += static_cast<uint64_t>(st.st_size);
            }
        }
    }
    return bytes;
}

void Databases(const Device &device, const Link &link, const std::string &ios,
               const Volume &volume)
{
    const uint64_t bytes = BytesOfDatabases(device);
    const double took = List(volume.path + "/Media");
    const double floor = bench::Floor(link, bytes, 1);
    printf("| %s: first ls -l of Media, %.1f MB of databases | %s | %.3f | "
           "%.3f | | |\n",
           ios.c_str(), static_cast<double>(bytes) / 1e6, Name(link).c_str(),
           took, floor);
}

void Folder(const Server &server, const Volume &volume, const Link &link,
            const std::string &what, const std::string &folder)
{
    server.Control("stats reset");
    const double cold = List(volume.path + folder);
    const auto rows = static_cast<double>(server.Requests("GetFileInfo"));
    const double trips = rows * link.rtt_us / 1e6;
    char share[64];
    if (link.rtt_us == 0) {
        snprintf(share, sizeof(share), "%.1f us each", cold * 1e6 / rows);
    } else {
        snprintf(share, sizeof(share), "%.1f %% of N round trips",
                 100 * cold / trips);
    }
    printf("| %s | %s | %.3f | %.3f | %s | GetFileInfo %.0f |\n", what.c_str(),
           Name(link).c_str(), cold, trips, share, rows);
    server.Control("stats reset");
    const double warm = List(volume.path + folder);
    printf("| ... once more | %s | %.3f | 0 | | GetFileInfo %lu, ReadDir %lu "
           "|\n",
           Name(link).c_str(), warm, server.Requests("GetFileInfo"),
           server.Requests("ReadDir"));
    fflush(stdout);
}

void Generation(const std::string &ios)
{
    const Device device({"--ios", ios, "--photos", "10000", "--songs", "5000"});
    for (const Link &link : {Link{1000, 40}, Link{}}) {
        const Server server(device, link);
        const Volume volume(device, server);
        Databases(device, link, ios, volume);
        List(volume.path + "/Media/Photo");
        Folder(server, volume, link,
               ios + ": first ls -l of a Camera Roll of 10,000", ROLL);
        Folder(server, volume, link, ios + ": first ls -l of 5,000 songs",
               MUSIC);
    }
}

// Resident memory of a process in MB.
double Memory(pid_t pid, const std::string &field)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.starts_with(field + ":")) {
            return std::strtod(line.c_str() + field.size() + 1, nullptr) / 1e3;
        }
    }
    return 0;
}

void MemoryOf(const std::string &photos)
{
    const Device device({"--photos", photos});
    const Server server(device, Link{});
    const Volume volume(device, server);
    const double before = Memory(volume.Pid(), "VmRSS");
    const double took = List(volume.path + ROLL);
    printf("| memory before, after listing %s photos, at most | none | %.3f | "
           "| %.1f, %.1f, %.1f MB | |\n",
           photos.c_str(), took, before, Memory(volume.Pid(), "VmRSS"),
           Memory(volume.Pid(), "VmHWM"));
    fflush(stdout);
}

} // namespace

int main()
try {
    signal(SIGPIPE, SIG_IGN);
    printf("| what | link | time s | floor or N round trips s | share | "
           "requests |\n|---|---|---:|---:|---:|---|\n");
    for (const char *ios : {"9.3", "18.3"}) {
        Generation(ios);
    }
    MemoryOf("50000");
    return 0;
} catch (const std::exception &error) {
    fprintf(stderr, "benchmark: %s\n", error.what());
    return 1;
}
