// What the benchmarks over a link share: child processes, a sample device whose
// link is emulated, and a mounted volume. Everything a record started it ends.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace bench
{

// A link to emulate. 0 means without a limit.
struct Link {
    unsigned rtt_us = 0;
    unsigned mb_per_s = 0;
};

// The least time that a transfer can take on a link: its bytes at the link's
// rate, and the round trips that must follow one another. In seconds.
double Floor(const Link &link, uint64_t bytes, unsigned round_trips);

// Seconds on a clock that only goes forward.
double Now();

// A program started with these words; its pid, or the end of the benchmark.
pid_t Start(const std::vector<std::string> &words, const std::string &socket);

// Runs a program to its end with its output thrown away; false unless it ended
// with status 0.
bool Run(const std::vector<std::string> &words);

// A sample device in a folder of its own.
class Device
{
  public:
    // `options` go to the maker.
    explicit Device(const std::vector<std::string> &options = {});
    ~Device();
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;

    // Puts files into the device's storage folder: one of random bytes, or
    // `count` small ones in a folder.
    void AddFile(const std::string &name, uint64_t bytes) const;
    void AddFolder(const std::string &name, unsigned count) const;

    std::string folder;
    uint32_t location_id;
};

// The device served with a link; ends with the record.
class Server
{
  public:
    Server(const Device &device, const Link &link);
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    // The answer to a line on the control socket.
    std::string Control(const std::string &line) const;
    // Requests of one kind since the last "stats reset".
    uint64_t Requests(const std::string &operation) const;

    std::string folder;
    std::string socket;

  private:
    pid_t pid;
};

// The device mounted; unmounts with the record.
class Volume
{
  public:
    Volume(const Device &device, const Server &server);
    ~Volume();
    Volume(const Volume &) = delete;
    Volume &operator=(const Volume &) = delete;

    pid_t Pid() const { return pid; }

    std::string path;

  private:
    pid_t pid;
};

} // namespace bench
