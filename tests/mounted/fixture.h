// The usual case: one sample device, served, and its volume.
#pragma once

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "tests/mounted/volume.h"
#include "tests/support/child.h"
#include "tests/support/simulator.h"

// A folder of the test's own; nothing is made in it.
class MountedTest : public ::testing::Test
{
  protected:
    MountedTest() = default;
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
    // The volume's free bytes.
    double Free() const;
    // The kernel tells of a close a little later.
    void ExpectNothingOpen() const;

  private:
    TempFolder own_folder;

  protected:
    const std::string work = own_folder.path;
    std::unique_ptr<SampleDevice> device;
    std::unique_ptr<Simulator> simulator;
    std::unique_ptr<Volume> volume;
};
