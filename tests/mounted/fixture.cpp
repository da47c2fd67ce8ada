#include "tests/mounted/fixture.h"

#include <stdlib.h>

#include <filesystem>

MountedTest::MountedTest()
{
    work = (std::filesystem::temp_directory_path() / "quorvel-mnt.XXXXXX")
               .string();
    if (mkdtemp(work.data()) == nullptr) {
        ADD_FAILURE() << "no temporary folder";
    }
}

MountedTest::~MountedTest()
{
    volume.reset();
    if (simulator != nullptr) {
        EXPECT_TRUE(Eventually(
            [this] { return simulator->Number("device_connections") == 0; }, 5))
            << simulator->Control("stats");
        EXPECT_EQ(simulator->Number("open_files"), 0);
        EXPECT_EQ(simulator->Number("house_arrest_connections"), 0);
        simulator.reset();
    }
    // A mount that is left would lose its files here.
    std::error_code error;
    if (Slurp("/proc/self/mountinfo").find(" " + work + "/") ==
        std::string::npos) {
        std::filesystem::remove_all(work, error);
    }
}

void MountedTest::MakeDevice(const Words &options)
{
    device = std::make_unique<SampleDevice>(work, options);
}

void MountedTest::Serve(const Words &options)
{
    simulator = std::make_unique<Simulator>(
        work, std::vector<std::string>{device->folder}, options);
}

void MountedTest::Mount(const Volume::Options &options)
{
    volume = std::make_unique<Volume>(work, simulator->socket, device->location,
                                      options);
}

void MountedTest::Start()
{
    if (device == nullptr) {
        MakeDevice();
    }
    if (simulator == nullptr) {
        Serve();
    }
    Mount();
}

std::string MountedTest::Storage(const std::string &path) const
{
    return volume->Path("Storage/" + path);
}
