// The speed of a mounted volume against the least time that its link allows.
//
// Every row is measured over the emulated link in this run, and compared with a
// floor that is computed, not measured: bytes over the link's rate, and the
// round trips that must follow one another. The machine's own speed is in the
// rows without a link, so that a slow machine can be told from a slow program.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/fixture.h"
#include "device/libiusb.h"

namespace
{

using bench::Device;
using bench::Floor;
using bench::Link;
using bench::Now;
using bench::Server;
using bench::Volume;

constexpr uint64_t MIB = 1U << 20;

void Header()
{
    printf("| what | link | time s | floor s | floor/time | requests |\n"
           "|---|---|---:|---:|---:|---|\n");
}

std::string Name(const Link &link)
{
    char text[64];
    if (link.mb_per_s == 0 && link.rtt_us == 0) {
        return "none";
    }
    snprintf(text, sizeof(text), "%u us, %u MB/s", link.rtt_us, link.mb_per_s);
    return text;
}

void Row(const std::string &what, const Link &link, double seconds,
         double floor, const std::string &requests)
{
    printf("| %s | %s | %.3f | %.3f | %.1f %% | %s |\n", what.c_str(),
           Name(link).c_str(), seconds, floor, 100 * floor / seconds,
           requests.c_str());
    fflush(stdout);
}

[[noreturn]] void Fail(const char *what)
{
    perror(what);
    exit(1);
}

double ReadWhole(const std::string &path, uint64_t bytes)
{
    std::vector<char> buffer(MIB);
    const double begin = Now();
    const int fd = open(path.c_str(), O_RDONLY);
    uint64_t done = 0;
    ssize_t got = 0;
    while (fd >= 0 && (got = read(fd, buffer.data(), buffer.size())) > 0) {
        done += static_cast<uint64_t>(got);
    }
    if (fd < 0 || got < 0 || done != bytes) {
        Fail(path.c_str());
    }
    close(fd);
    return Now() - begin;
}

double WriteWhole(const std::string &path, uint64_t bytes)
{
    std::vector<char> buffer(MIB, 'q');
    const double begin = Now();
    const int fd = open(path.c_str(), O_WRONLY);
    for (uint64_t done = 0; fd >= 0 && done < bytes; done += buffer.size()) {
        if (write(fd, buffer.data(), buffer.size()) !=
            static_cast<ssize_t>(buffer.size())) {
            Fail(path.c_str());
        }
    }
    if (fd < 0 || close(fd) != 0) {
        Fail(path.c_str());
    }
    return Now() - begin;
}

std::string Count(const Server &server, const std::vector<std::string> &names)
{
    std::string text;
    for (const std::string &name : names) {
        text += (text.empty() ? "" : ", ") + name + " " +
                std::to_string(server.Requests(name));
    }
    return text;
}

void Transfers(const Device &device, const Link &link)
{
    Server server(device, link);
    Volume volume(device, server);
    server.Control("stats reset");
    double took = ReadWhole(volume.path + "/Storage/read.bin", 128 * MIB);
    Row("read 128 MiB", link, took, Floor(link, 128 * MIB, 2),
        Count(server, {"FileRefRead", "FileRefSeek"}));
    server.Control("stats reset");
    took = WriteWhole(volume.path + "/Storage/write.bin", 64 * MIB);
    // Opening, one confirmation for each call of 1 MiB, closing.
    Row("write 64 MiB", link, took, Floor(link, 64 * MIB, 66),
        Count(server, {"FileRefWrite", "FileRefSeek"}));
}

void Listings(const Device &device, const Link &link, unsigned count)
{
    const std::string name = "folder " + std::to_string(count);
    Server server(device, link);
    Volume volume(device, server);
    server.Control("stats reset");
    double begin = Now();
    if (!bench::Run({"/bin/ls", "-l", volume.path + "/Storage/" + name})) {
        Fail("ls");
    }
    double took = Now() - begin;
    // As if each entry cost a round trip: what the share is measured against.
    const double one_by_one = count * (link.rtt_us / 1e6);
    printf("| cold ls -l of %u files | %s | %.3f | %.3f | %.1f %% of N round "
           "trips | %s |\n",
           count, Name(link).c_str(), took, one_by_one, 100 * took / one_by_one,
           Count(server, {"ReadDir", "GetFileInfo"}).c_str());
    server.Control("stats reset");
    begin = Now();
    if (!bench::Run({"/bin/ls", "-l", volume.path + "/Storage/" + name})) {
        Fail("ls");
    }
    took = Now() - begin;
    printf("| warm ls -l of %u files | %s | %.3f | 0 | | %s |\n", count,
           Name(link).c_str(), took,
           Count(server, {"ReadDir", "GetFileInfo"}).c_str());
    fflush(stdout);
}

// Making, filling, closing and removing small files.
void SmallFiles(const Device &device, const Link &link, unsigned count)
{
    Server server(device, link);
    Volume volume(device, server);
    const std::string folder = volume.path + "/Storage/small";
    if (!bench::Run({"/bin/mkdir", folder})) {
        Fail("mkdir");
    }
    const std::vector<char> bytes(4096, 'q');
    server.Control("stats reset");
    double begin = Now();
    for (unsigned i = 0; i < count; ++i) {
        const std::string path = folder + "/" + std::to_string(i);
        const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0666);
        if (fd < 0 ||
            write(fd, bytes.data(), bytes.size()) !=
                static_cast<ssize_t>(bytes.size()) ||
            close(fd) != 0) {
            Fail(path.c_str());
        }
    }
    // Each must be made, written and confirmed one after the other; closing is
    // the kernel's to wait for or not.
    Row("make " + std::to_string(count) + " files of 4 KiB", link,
        Now() - begin, Floor(link, count * bytes.size(), 3 * count),
        Count(server, {"FileRefOpen", "FileRefWrite", "FileRefClose",
                       "FileRefSetFileSize", "GetFileInfo", "ReadDir"}));
    server.Control("stats reset");
    begin = Now();
    for (unsigned i = 0; i < count; ++i) {
        if (unlink((folder + "/" + std::to_string(i)).c_str()) != 0) {
            Fail("unlink");
        }
    }
    Row("remove " + std::to_string(count) + " files", link, Now() - begin,
        Floor(link, 0, count),
        Count(server, {"RemovePath", "GetFileInfo", "ReadDir"}));
}

// The first file of an app's folder: in round trips, since nothing else costs.
void FirstOfApp(const Device &device, const Link &link)
{
    Server server(device, link);
    Volume volume(device, server);
    const std::string folder = volume.path + "/Apps/Caf\xC3\xA9 Reader";
    double begin = Now();
    if (!bench::Run({"/bin/ls", volume.path + "/Apps"})) {
        Fail("ls");
    }
    const double apps = Now() - begin;
    begin = Now();
    if (!bench::Run({"/bin/ls", folder})) {
        Fail("ls");
    }
    const double listed = Now() - begin;
    begin = Now();
    const int fd = open((folder + "/Manual.epub").c_str(), O_RDONLY);
    const double opened = Now() - begin;
    if (fd < 0) {
        Fail("open");
    }
    close(fd);
    const double trip = link.rtt_us / 1e6;
    printf("| list the apps; first listing of an app; open a file in it | %s | "
           "%.3f; %.3f; %.3f | | %.1f; %.1f; %.1f round trips | |\n",
           Name(link).c_str(), apps, listed, opened, apps / trip, listed / trip,
           opened / trip);
    fflush(stdout);
}

// The same read without FUSE, through the device layer alone.
void RawRead(const Device &device, const Link &link, uint32_t piece)
{
    Server server(device, link);
    setenv("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + server.socket).c_str(), 1);
    libiusb_context *context = nullptr;
    libiusb_device **list = nullptr;
    libiusb_device *opened = nullptr;
    libiusb_afc *afc = nullptr;
    libiusb_file file = 0;
    if (libiusb_context_init(&context) != 0 ||
        libiusb_device_get_list(context, &list) != 0 || list[0] == nullptr ||
        libiusb_device_open(list[0], &opened) != 0 ||
        libiusb_afc_init(opened, &afc) != 0 ||
        libiusb_afc_file_open(afc, "/general_storage/read.bin",
                              LIBIUSB_MODE_READ, &file) != 0) {
        fprintf(stderr, "benchmark: the device can't be opened\n");
        exit(1);
    }
    std::vector<char> buffer(piece);
    uint64_t offset = 0;
    uint32_t got = 0;
    const double begin = Now();
    while (libiusb_afc_file_read(afc, file, buffer.data(), piece, offset,
                                 &got) == 0 &&
           got > 0) {
        offset += got;
    }
    const double took = Now() - begin;
    if (offset != 128 * MIB) {
        fprintf(stderr, "benchmark: %lu bytes read\n", offset);
        exit(1);
    }
    Row("device layer: read 128 MiB by " + std::to_string(piece / 1024) +
            " KiB",
        link, took, Floor(link, offset, 1),
        Count(server, {"FileRefRead", "FileRefSeek"}));
    libiusb_afc_file_close(afc, file);
    libiusb_afc_exit(afc);
    libiusb_device_close(opened);
    libiusb_context_exit(context);
}

} // namespace

int main()
try {
    signal(SIGPIPE, SIG_IGN);
    const Link slow{1000, 40};
    const Link fast{300, 400};
    const Link none{};
    Device device;
    device.AddFile("read.bin", 128 * MIB);
    device.AddFile("write.bin", 64 * MIB);
    device.AddFolder("folder 3000", 3000);
    device.AddFolder("folder 10000", 10000);

    Header();
    for (const Link &link : {slow, fast, none}) {
        RawRead(device, link, 128 * 1024);
        Transfers(device, link);
    }
    for (const unsigned count : {3000U, 10000U}) {
        Listings(device, Link{1000, 40}, count);
    }
    SmallFiles(device, slow, 200);
    FirstOfApp(device, Link{20000, 40});
    return 0;
} catch (const std::exception &error) {
    fprintf(stderr, "benchmark: %s\n", error.what());
    return 1;
}
