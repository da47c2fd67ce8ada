// Devices that are served, and `quorvel` used on them as a person would.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/child.h"
#include "tests/support/simulator.h"

// A folder, a home and a state folder of the test's own. In the end nothing may
// be mounted below it.
class HelperTest : public ::testing::Test
{
  protected:
    HelperTest();
    ~HelperTest() override;
    HelperTest(const HelperTest &) = delete;
    HelperTest &operator=(const HelperTest &) = delete;

    // A sample device more, called `name`.
    SampleDevice &Add(const std::string &name, const Words &options = {});
    // Serves all devices.
    void Serve(const Words &options = {});

    Finished Quorvel(const Words &words, double limit = PATIENCE) const;
    std::unique_ptr<Process> Start(const Words &words,
                                   const std::string &log) const;
    // Where a device of that name is mounted by itself.
    std::string Point(const std::string &name) const;
    // Kills the file system that is mounted there.
    void KillServer(const std::string &point) const;
    // Whether anything is mounted below `path`.
    static bool Mounted(const std::string &path);

    std::string work;
    Environment environment;
    std::vector<std::unique_ptr<SampleDevice>> devices;
    std::unique_ptr<Simulator> simulator;
};
