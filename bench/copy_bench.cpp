// `quorvel copy` against `cp -r`, over the same emulated link in the same run.
//
// Both copy the same things with the volume freshly mounted, one after the
// other, beginning with one and the other in turns; a row gives the median of
// all pairs, and the median of the pairs' ratios. What came over is compared
// with what was to come, outside of the time.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/fixture.h"

namespace
{

namespace fs = std::filesystem;

using bench::Device;
using bench::Link;
using bench::Now;
using bench::Server;
using bench::Volume;

constexpr unsigned PAIRS = 5;
constexpr unsigned FILES = 2000;
constexpr uint64_t FILE_BYTES = 20'000;
constexpr uint64_t LARGE_BYTES = 64U << 20;

enum class Way { Out, In };

struct Case {
    const char *what;
    std::string name; // of the file or folder that is copied
    Way way;
};

// What is copied lies in the device's storage and, the same, in `local`.
class Bench
{
  public:
    Bench()
    {
        fs::create_directory(local);
        device.AddFile("film.mp4", LARGE_BYTES);
        const std::string piece(FILE_BYTES, 'q');
        for (unsigned i = 0; i < FILES; ++i) {
            device.sample.Put("trip/IMG_" + std::to_string(i) + ".JPG", piece);
        }
        for (const char *name : {"film.mp4", "trip"}) {
            fs::copy(device.sample.Storage(name), local + "/" + name,
                     fs::copy_options::recursive);
        }
    }

    void Row(const Case &one, const Link &link)
    {
        std::vector<double> with_cp;
        std::vector<double> with_ours;
        std::vector<double> ratios;
        for (unsigned i = 0; i < PAIRS; ++i) {
            const bool ours_first = i % 2 == 1;
            const double first = Copy(one, link, ours_first);
            const double second = Copy(one, link, !ours_first);
            with_ours.push_back(ours_first ? first : second);
            with_cp.push_back(ours_first ? second : first);
            ratios.push_back(with_ours.back() / with_cp.back());
        }
        printf("| %s | %u us, %u MB/s | %.3f | %.3f | %.2f | %.2f to %.2f |\n",
               one.what, link.rtt_us, link.mb_per_s, Median(with_cp),
               Median(with_ours), Median(ratios),
               *std::min_element(ratios.begin(), ratios.end()),
               *std::max_element(ratios.begin(), ratios.end()));
        fflush(stdout);
    }

  private:
    static double Median(std::vector<double> values)
    {
        std::sort(values.begin(), values.end());
        return values[values.size() / 2];
    }

    // The seconds that one copy takes, to the end of the program that does it.
    double Copy(const Case &one, const Link &link, bool ours)
    {
        const std::string home = device.work.path + "/home";
        fs::remove_all(home);
        fs::create_directory(home);
        fs::remove_all(device.sample.Storage("new"));
        fs::create_directory(device.sample.Storage("new"));
        const bool out = one.way == Way::Out;
        double took = 0;
        {
            const Server server(device, link);
            const Volume volume(device, server);
            const std::string storage = volume.path + "/Storage/";
            const std::string from = (out ? storage : local + "/") + one.name;
            const std::string to = out ? home : storage + "new";
            const Words words =
                ours ? Words{Program("quorvel"), "copy", "-q", from, to + "/"}
                     : Words{"/bin/cp", "-r", from, to + "/"};
            const double begin = Now();
            const Finished done = RunProgram(
                words, {{"USBMUXD_SOCKET_ADDRESS", "UNIX:" + server.socket}},
                600);
            took = Now() - begin;
            if (done.status != 0) {
                throw std::runtime_error(words[0] + ": " + done.out);
            }
        }
        Compare(one, out ? home : device.sample.Storage("new"));
        return took;
    }

    void Compare(const Case &one, const std::string &copied) const
    {
        if (!bench::Run({"/usr/bin/diff", "-r", local + "/" + one.name,
                         copied + "/" + one.name})) {
            throw std::runtime_error(one.name + " was not copied whole");
        }
    }

    Device device;
    std::string local = device.work.path + "/local";
};

} // namespace

int main()
try {
    signal(SIGPIPE, SIG_IGN);
    Bench all;
    const Case cases[] = {
        {"2,000 files of 20 kB out of the device", "trip", Way::Out},
        {"64 MiB out of the device", "film.mp4", Way::Out},
        {"2,000 files of 20 kB into the device", "trip", Way::In},
        {"64 MiB into the device", "film.mp4", Way::In},
    };
    printf("| what | link | cp -r s | quorvel copy s | ratio | of %u pairs "
           "|\n|---|---|---:|---:|---:|---|\n",
           PAIRS);
    for (const Link &link : {Link{1000, 40}, Link{300, 400}}) {
        for (const Case &one : cases) {
            all.Row(one, link);
        }
    }
    return 0;
} catch (const std::exception &error) {
    fprintf(stderr, "benchmark: %s\n", error.what());
    return 1;
}
