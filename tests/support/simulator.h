// Sample devices and the simulator that serves them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "tests/support/child.h"

// A sample device in a folder.
class SampleDevice
{
  public:
    // `options` go to the maker. The location id is this process's own, unless
    // one is given or `options` have one.
    SampleDevice(const std::string &work, const Words &options = {},
                 uint32_t location = 0);

    // The device's side of a path below "/Storage".
    std::string Storage(const std::string &path) const;
    // Puts a file, with the folders above it, into the storage.
    void Put(const std::string &path, const std::string &data) const;
    // What the device holds there.
    std::string Get(const std::string &path) const;

    std::string folder;
    uint32_t location;
};

// The simulator; ends with the record. What it refuses is an exception.
class Simulator
{
  public:
    Simulator(const std::string &work, const std::vector<std::string> &devices,
              const Words &options = {});

    // Sends a line to the control socket; the answer, which must begin "ok".
    std::string Control(const std::string &line) const;
    nlohmann::json Statistics() const;
    // Requests of an AFC operation since the last "stats reset".
    uint64_t Requests(const std::string &operation) const;
    // All AFC requests.
    uint64_t AllRequests() const;
    // A number of the statistics, such as "open_files".
    int64_t Number(const std::string &name) const;
    std::string Output() const { return process->Output(); }
    // Ends it; its status.
    int End();

    std::string socket;

  private:
    std::string control;
    std::unique_ptr<Process> process;
};

// The folder with the programs under test.
std::string Program(const std::string &name);
