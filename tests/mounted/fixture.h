// The usual case: one sample device, served, and its volume.
#pragma once

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "tests/mounted/child.h"
#include "tests/mounted/simulator.h"
#include "tests/mounted/volume.h"

// A folder of the test's own; nothing is made in it.
class MountedTest : public ::testing::Test
{
  protected:
    MountedTest();
    // Unmounts, checks that the device is left with nothing open, and removes
    // the folder.
    ~MountedTest() override;
    MountedTest(const MountedTest &) = delete;
    MountedTest &operator=(const MountedTest &) = delete;

    void MakeDevice(const Words &options = {});
    void Serve(const Words &options = {});
    void Mount(const Volume::Options &options = Volume::Options());
    // All three, for tests that need nothing special. Put files between
    // MakeDevice and Start.
    void Start();

    // On the volume, below "/Storage".
    std::string Storage(const std::string &path) const;

    std::string work;
    std::unique_ptr<SampleDevice> device;
    std::unique_ptr<Simulator> simulator;
    std::unique_ptr<Volume> volume;
};
