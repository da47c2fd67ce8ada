// What the benchmarks over a link share: a sample device whose link is emulated,
// and a mounted volume. Everything a record started it ends; what goes wrong is
// an exception.
#pragma once

#include <cstdint>
#include <string>

#include "tests/support/simulator.h"

namespace bench
{

using ::Now;

// A link to emulate. 0 means without a limit.
struct Link {
    unsigned rtt_us = 0;
    unsigned mb_per_s = 0;
};

// The least time that a transfer can take on a link: its bytes at the link's
// rate, and the round trips that must follow one another. In seconds.
double Floor(const Link &link, uint64_t bytes, unsigned round_trips);

// Runs a program to its end with its output thrown away; false unless it ended
// with status 0.
bool Run(const Words &words);

// A sample device in a folder of its own.
struct Device {
    // `options` go to the maker.
    explicit Device(const Words &options = {}) : sample(work.path, options) {}

    // Puts files into the device's storage folder: one of random bytes, or
    // `count` small ones in a folder.
    void AddFile(const std::string &name, uint64_t bytes) const;
    void AddFolder(const std::string &name, unsigned count) const;

    TempFolder work;
    SampleDevice sample;
};

// The device served with a link.
class Server
{
  public:
    Server(const Device &device, const Link &link);

    std::string Control(const std::string &line) const
    {
        return simulator.Control(line);
    }
    uint64_t Requests(const std::string &operation) const
    {
        return simulator.Requests(operation);
    }

    TempFolder work;

  private:
    Simulator simulator;

  public:
    const std::string socket = simulator.socket;
};

// The device mounted; unmounts with the record.
class Volume
{
  public:
    Volume(const Device &device, const Server &server);
    ~Volume();
    Volume(const Volume &) = delete;
    Volume &operator=(const Volume &) = delete;

    pid_t Pid() const { return process.Pid(); }

    std::string path;

  private:
    Process process;
};

} // namespace bench
