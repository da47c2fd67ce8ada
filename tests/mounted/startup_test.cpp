// Finding the device: late, untrusted, one of several, never.
#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "tests/mounted/fixture.h"

namespace
{

class StartupTest : public MountedTest
{
  protected:
    // Sends a control line a little later, from another process.
    std::unique_ptr<Process> Later(double seconds, const Words &line)
    {
        std::string command = "sleep " + std::to_string(seconds) + "; '" +
                              Program("quorvel-simdevice") + "' ctl '" + work +
                              "/control'";
        for (const std::string &word : line) {
            command += " " + word;
        }
        return std::make_unique<Process>(Words{"sh", "-c", command},
                                         Environment(), work + "/later.log");
    }

    void ExpectWorks()
    {
        const Outcome list = List(volume->Path("Storage"));
        EXPECT_EQ(list.error, 0);
        EXPECT_NE(list.data, "");
    }
};

TEST_F(StartupTest, DeviceThatComesLateIsFound)
{
    MakeDevice();
    Serve({"--unplugged"});
    const auto plug = Later(0.5, {"plug"});
    Mount();
    ExpectWorks();
    EXPECT_GE(volume->CountInLog("device_init no devices."), 2U);
}

TEST_F(StartupTest, DeviceThatNeverComes)
{
    MakeDevice();
    Serve({"--unplugged"});
    Mount();
    volume->ExpectTrouble();
    EXPECT_EQ(volume->CountInLog("device_init no devices."), 11U);
    EXPECT_EQ(Stat(volume->Path()).error, ENOSYS);
    EXPECT_EQ(List(volume->Path()).error, ENOSYS);
    EXPECT_EQ(Stat(volume->Path("Storage")).error, ENOSYS);
    EXPECT_EQ(ReadFile(volume->Path("Storage/f")).error, ENOSYS);
    // Nothing of it is remembered for good, as the kernel would ENOSYS of these.
    const std::string root = volume->Path();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(Access([&](std::string *) {
                      return access(root.c_str(), R_OK) == 0 ? 0 : errno;
                  }).error,
                  EIO);
        EXPECT_EQ(Access([&](std::string *) {
                      char value[8];
                      return getxattr(root.c_str(), "user.a", value, 8) >= 0
                                 ? 0
                                 : errno;
                  }).error,
                  EIO);
    }
    EXPECT_EQ(RunProgram({"df", volume->Path()}).status, 1);
    EXPECT_EQ(List(volume->Path()).error, ENOSYS);
    EXPECT_TRUE(volume->Dialogs().empty());
}

TEST_F(StartupTest, TrustPromptIsWaitedFor)
{
    MakeDevice({"--trust", "pending:2"});
    Serve();
    Mount();
    volume->ExpectTrouble();
    ExpectWorks();
    EXPECT_GE(volume->CountInLog(
                  "device_init libiusb fail cause trust dialog. retry(0/10)"),
              1U);
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
    const SampleDevice two(work, {"--udid", "00008030-00AAAABBBBCCCCDD"});
    const SampleDevice locked(
        work, {"--trust", "locked", "--udid", "00008030-00AAAABBBBCCCCEE"});
    one.Put("which", "one");
    two.Put("which", "two");
    for (const bool turned : {false, true}) {
        std::vector<std::string> folders = {locked.folder, one.folder,
                                            two.folder};
        if (turned) {
            std::swap(folders[1], folders[2]);
        }
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

TEST_F(StartupTest, LocationAboveTheSignedRange)
{
    device = std::make_unique<SampleDevice>(
        work, Words(), 3000000000U + static_cast<uint32_t>(getpid()));
    Serve();
    Mount();
    ExpectWorks();
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

TEST_F(StartupTest, SignalsEndItCleanlyOrNotAtAll)
{
    Start();
    volume->Server().Signal(SIGUSR1); // the dialog thread's own
    volume->Server().Signal(SIGPIPE);
    usleep(200000);
    ExpectWorks();
    volume->Server().Signal(SIGTERM);
    EXPECT_EQ(volume->Server().Wait(10), 0);
    volume->Unmount(); // finds it unmounted, and nothing left
}

TEST_F(StartupTest, WithoutDashFItGoesToTheBackground)
{
    MakeDevice();
    Serve();
    Volume::Options options;
    options.background = true;
    Mount(options);
    EXPECT_EQ(volume->Server().Wait(10), 0);
    ExpectWorks();
    volume->Unmount();
}

} // namespace
