// Finding the device: late, untrusted, one of several, never.
#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>

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
}

class BackgroundTest : public MountedTest
{
  protected:
    Finished Start(const std::string &options, const std::string &id) const
    {
        return RunProgram(
            {Program("quorvelfs"), point, "-o", options, "-devopt", id},
            {{"XDG_STATE_HOME", work + "/state"}});
    }
    std::string Mounted() const
    {
        const Finished found =
            RunProgram({"findmnt", "-no", "FSTYPE,SOURCE,OPTIONS", point});
        return found.status == 0 ? found.out : "";
    }
    void Unmount() const
    {
        EXPECT_EQ(RunProgram({"fusermount3", "-u", point}).status, 0);
    }

    const std::string point = work + "/point";
};

// The settings come as options, and all is well once the command has ended.
TEST_F(BackgroundTest, EndsWhenTheVolumeAnswers)
{
    std::filesystem::create_directory(point);
    MakeDevice({"--trust", "pending:1"});
    Serve();
    const std::string usbmux = "usbmux=UNIX:" + simulator->socket;
    const Finished done = Start(usbmux + ",ro,fsname=Anna\\,s iPhone",
                                std::to_string(device->location));
    EXPECT_EQ(done.status, 0) << done.out;
    EXPECT_GT(done.seconds, 2) << "trust was waited for";
    EXPECT_LT(Stat(point).seconds, 0.5 * SLOWNESS);
    EXPECT_EQ(WriteFile(point + "/Storage/n", O_WRONLY | O_CREAT, "x").error,
              EROFS);
    EXPECT_EQ(Mounted().rfind("fuse.quorvelfs Anna,s iPhone ro,", 0), 0U)
        << Mounted();
    const Finished second = Start(usbmux, std::to_string(device->location));
    EXPECT_EQ(second.status, 6) << second.out;
    Unmount();
    // The location id among the options.
    EXPECT_EQ(
        Start(usbmux + ",location_id=" + std::to_string(device->location), "0")
            .status,
        0);
    EXPECT_EQ(List(point).data, "Apps\nMedia\nStorage\n");
    Unmount();
}

TEST_F(BackgroundTest, TellsThatStartUpFailed)
{
    std::filesystem::create_directory(point);
    const Finished done = Start("usbmux=UNIX:" + work + "/no", "12");
    EXPECT_EQ(done.status, 7) << done.out;
    EXPECT_NE(done.out.find("the log says why"), std::string::npos);
    EXPECT_EQ(Stat(point).error, ENOSYS) << "the volume stays";
    EXPECT_EQ(Start("ro", "12").status, 6);
    Unmount();
}

// Whoever interrupts the command gets no volume later, and nobody has to wait
// until a device's user would have been waited for long enough.
TEST_F(BackgroundTest, InterruptedIsGivenUp)
{
    std::filesystem::create_directory(point);
    MakeDevice({"--trust", "pending:1000"});
    Serve();
    const std::string there = std::to_string(device->location);
    struct {
        std::string device;
        bool foreground;
        int signal;
        int status;
    } const cases[] = {{"12", false, SIGINT, 128 + SIGINT},
                       {there, false, SIGINT, 128 + SIGINT},
                       {there, false, SIGKILL, 128 + SIGKILL},
                       {there, true, SIGTERM, 0}};
    for (const auto &one : cases) {
        std::vector<std::string> words = {Program("quorvelfs"),
                                          point,
                                          "-o",
                                          "usbmux=UNIX:" + simulator->socket,
                                          "-devopt",
                                          one.device};
        if (one.foreground) {
            words.insert(words.begin() + 2, "-f");
        }
        Process starting(words, {{"XDG_STATE_HOME", work + "/state"}},
                         work + "/log");
        ASSERT_TRUE(Eventually([&] { return !Mounted().empty(); }));
        starting.Signal(one.signal);
        EXPECT_EQ(starting.Wait(5 * SLOWNESS), one.status);
        EXPECT_TRUE(Eventually([&] { return Mounted().empty(); }));
    }
}

} // namespace
