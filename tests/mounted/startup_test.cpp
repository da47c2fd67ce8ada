// Finding the device: late, untrusted, one of several, never.
#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "tests/mounted/fixture.h"

namespace
{

class StartupTest : public MountedTest
{
  protected:
    void ExpectWorks() { EXPECT_NE(List(volume->Path("Storage")).data, ""); }
};

TEST_F(StartupTest, DeviceThatComesLateAndHasToTrust)
{
    MakeDevice({"--trust", "pending:2"});
    Serve({"--unplugged"});
    const Process plug({"sh", "-c",
                        "sleep 0.5; '" + Program("quorvel-simdevice") +
                            "' ctl '" + work + "/control' plug"},
                       {}, work + "/later.log");
    Mount();
    volume->ExpectTrouble();
    ExpectWorks();
    EXPECT_GE(volume->CountInLog("device_init no devices."), 2U);
    EXPECT_GE(volume->CountInLog(
                  "device_init libiusb fail cause trust dialog. retry(0/10)"),
              1U);
}

TEST_F(StartupTest, DeviceThatNeverComes)
{
    MakeDevice();
    Serve({"--unplugged"});
    Mount();
    volume->ExpectTrouble();
    EXPECT_EQ(volume->CountInLog("device_init no devices."), 11U);
    const std::string root = volume->Path();
    // Nothing of it is remembered for good, as the kernel would ENOSYS of these.
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(Stat(root).error, ENOSYS);
        EXPECT_EQ(List(root).error, ENOSYS);
        EXPECT_EQ(ReadFile(volume->Path("Storage/f")).error, ENOSYS);
        EXPECT_EQ(Try([&] { return access(root.c_str(), R_OK); }).error, EIO);
        EXPECT_EQ(Try([&] {
                      char value[8];
                      return getxattr(root.c_str(), "user.a", value, 8) < 0 ? -1
                                                                            : 0;
                  }).error,
                  EIO);
    }
    EXPECT_EQ(RunProgram({"df", root}).status, 1);
    EXPECT_TRUE(volume->Dialogs().empty());
}

TEST_F(StartupTest, RefusedTrustIsNamedInTheLog)
{
    MakeDevice({"--trust", "denied"});
    Serve();
    Mount();
    volume->ExpectTrouble();
    EXPECT_EQ(Stat(volume->Path()).error, ENOSYS);
    EXPECT_EQ(
        volume->CountInLog("device_init libiusb_device_open failed. code"), 1U);
}

TEST_F(StartupTest, LocationDecidesWhateverTheOrder)
{
    const SampleDevice one(work);
    // Above the signed range.
    const SampleDevice two(work, {"--udid", "00008030-00AAAABBBBCCCCDD"},
                           3000000000U + static_cast<uint32_t>(getpid()));
    const SampleDevice locked(
        work, {"--trust", "locked", "--udid", "00008030-00AAAABBBBCCCCEE"});
    one.Put("which", "one");
    two.Put("which", "two");
    for (const auto &folders :
         {std::vector{locked.folder, one.folder, two.folder},
          std::vector{two.folder, one.folder, locked.folder}}) {
        simulator = std::make_unique<Simulator>(work, folders);
        {
            const Volume first(work, simulator->socket, one.location);
            const Volume second(work, simulator->socket, two.location);
            EXPECT_EQ(ReadFile(first.Path("Storage/which")).data, "one");
            EXPECT_EQ(ReadFile(second.Path("Storage/which")).data, "two");
        }
        simulator.reset();
    }
}

TEST_F(StartupTest, DeviceThatEncryptsEverything)
{
    MakeDevice();
    const std::string data(3 * 1024 * 1024, 't');
    device->Put("f", data);
    Serve({"--tls", "all"});
    Mount();
    EXPECT_TRUE(ReadFile(Storage("f")).data == data);
    EXPECT_EQ(WriteFile(Storage("f"), O_WRONLY | O_TRUNC, data + "!").error, 0);
    EXPECT_TRUE(device->Get("f") == data + "!");
}

TEST_F(StartupTest, SignalsAndTheBackground)
{
    Start();
    volume->Server().Signal(SIGUSR1); // the dialog thread's own
    volume->Server().Signal(SIGPIPE);
    usleep(200000);
    ExpectWorks();
    volume->Server().Signal(SIGTERM);
    EXPECT_EQ(volume->Server().Wait(10), 0);
    volume->Unmount(); // finds it unmounted, and nothing left
    volume.reset();
    Volume::Options options;
    options.background = true; // without -f
    Mount(options);
    EXPECT_EQ(volume->Server().Wait(10), 0);
    ExpectWorks();
}

} // namespace
