#include "tests/mounted/fixture.h"

#include <sys/statvfs.h>

MountedTest::~MountedTest()
{
    volume.reset();
    if (simulator == nullptr) {
        return;
    }
    try {
        EXPECT_TRUE(Eventually(
            [this] { return simulator->Number("device_connections") == 0; }, 5))
            << simulator->Control("stats");
        EXPECT_EQ(simulator->Number("open_files"), 0);
        EXPECT_EQ(simulator->Number("house_arrest_connections"), 0);
        EXPECT_EQ(simulator->End(), 0);
    } catch (const std::exception &error) {
        ADD_FAILURE() << error.what();
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

double MountedTest::Free() const
{
    const Outcome outcome = Access([&](std::string *data) {
        struct statvfs st {
        };
        *data = statvfs(volume->Path("Storage").c_str(), &st) == 0
                    ? std::to_string(st.f_bavail * st.f_frsize)
                    : "-1";
        return 0;
    });
    return std::stod(outcome.data);
}

void MountedTest::ExpectNothingOpen() const
{
    EXPECT_TRUE(
        Eventually([this] { return simulator->Number("open_files") == 0; }, 5));
}
