// mount and unmount: every refusal with its sentence and exit status, and what
// comes before and after a mount.
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <tuple>

#include <nlohmann/json.hpp>

#include "helper/launch.h"
#include "helper/mount_point.h"
#include "helper/mounts.h"
#include "tests/helper/fixture.h"

namespace fs = std::filesystem;

namespace
{

constexpr size_t NPOS = std::string::npos;

} // namespace

class MountTest : public HelperTest
{
  protected:
    // The command must be refused with this status and sentence, and leave
    // nothing behind.
    void Refused(const Words &words, int status, const std::string &sentence)
    {
        const bool mounted_before = Mounted(work);
        Words all = {"mount"};
        all.insert(all.end(), words.begin(), words.end());
        const Finished done = Quorvel(all);
        EXPECT_EQ(done.status, status) << done.out;
        EXPECT_NE(done.out.find("quorvel: "), std::string::npos) << done.out;
        EXPECT_NE(done.out.find(sentence), std::string::npos) << done.out;
        EXPECT_EQ(Mounted(work), mounted_before) << sentence;
        if (!mounted_before) {
            EXPECT_TRUE(fs::is_empty(work + "/home")) << sentence;
        }
    }
};

TEST_F(MountTest, refusals_about_devices)
{
    Refused({}, 8, "usbmuxd does not answer");
    Add("Anna's iPhone");
    Add("Bert");
    Serve({"--unplugged"});
    Refused({}, 3, "No device is attached");
    simulator->Control("plug 0");
    Refused({"Nobody"}, 3, "No attached device is called \"Nobody\"");
    simulator->Control("trust locked 0");
    Refused({"--wait", "0"}, 5, "Anna's iPhone is locked. Unlock it");
    simulator->Control("trust pending 1000 0");
    Refused({"--wait", "0"}, 6, "Anna's iPhone still does not trust");
    simulator->Control("trust deny 0");
    Refused({"--wait", "30"}, 7, "\"Don't Trust\" on Anna's iPhone");
    simulator->Control("plug 1");
    Refused({}, 4, "Several devices are attached");
    Refused({"0000"}, 4, "Bert (");
    simulator->Control("fail GetFileInfo 1 1");
    Refused({"Bert", "-o", "ro", "-o", "bogus_option"}, 2, "bogus_option");
    EXPECT_EQ(Quorvel({"mount", "--bogus"}).status, 2);
    const Finished typo = Quorvel({"monut", "Bert"});
    EXPECT_EQ(typo.status, 2);
    EXPECT_NE(typo.out.find("no command \"monut\""), std::string::npos)
        << typo.out;
}

TEST_F(MountTest, refusals_about_places)
{
    const SampleDevice &anna = Add("Anna's iPhone");
    Add("Bert");
    Serve();
    fs::create_directories(work + "/full/x");
    Spill(work + "/file", "x");
    Refused({"Bert", work + "/full"}, 12, "is not empty");
    Refused({"Bert", work + "/file"}, 13, "is not a folder");
    Refused({"Bert", work + "/no/such"}, 13, "could not be made: No such file");
    if (geteuid() != 0) {
        fs::create_directory(work + "/theirs");
        chmod((work + "/theirs").c_str(), 0555);
        Refused({"Bert", work + "/theirs"}, 10, "You may not mount");
    }
    // Somebody else has what the volume needs.
    const std::string taken = "/tmp/" + std::to_string(devices[1]->location);
    Spill(taken, "not yours");
    Refused({"Bert"}, 15, "could not start; the file system's log says why");
    EXPECT_EQ(Slurp(taken), "not yours");
    fs::remove(taken);

    ASSERT_EQ(Quorvel({"mount", "Anna's iPhone"}).status, 0);
    Refused({std::to_string(anna.location)}, 11,
            "Anna's iPhone is already mounted at " + Point("Anna's iPhone"));
    Refused({"Bert", Point("Anna's iPhone")}, 12, "Something else is mounted");
    EXPECT_EQ(Quorvel({"unmount", "Bert"}).status, 17);
    EXPECT_EQ(Quorvel({"unmount", "Anna's iPhone"}).status, 0);
    EXPECT_EQ(Quorvel({"unmount", "Anna's iPhone"}).status, 17);
    // Alone in a folder, it finds no file system to start.
    fs::copy(Program("quorvel"), work + "/quorvel");
    const Finished alone =
        RunProgram({work + "/quorvel", "mount", "Bert"}, [&] {
            Environment changed = environment;
            changed["PATH"] = "/usr/bin:/bin";
            return changed;
        }());
    EXPECT_EQ(alone.status, 14) << alone.out;
}

TEST_F(MountTest, refusals_on_the_way)
{
    const SampleDevice &anna =
        Add("Anna's iPhone", {"--trust", "pending:1000"});
    Serve();
    if (geteuid() == 0) {
        // As in a container that was not given the device.
        const Finished bare =
            RunProgram({"unshare", "-m", "sh", "-c",
                        "mount -t tmpfs none /dev && exec \"$0\" mount",
                        Program("quorvel")},
                       environment);
        EXPECT_EQ(bare.status, 9) << bare.out;
        EXPECT_NE(bare.out.find("/dev/fuse is missing."), NPOS) << bare.out;
    }
    for (const auto &[unplugged, status, sentence] :
         {std::tuple(true, 3, "Anna's iPhone was unplugged."),
          std::tuple(false, 130, "")}) {
        const auto mount = Start({"mount"}, "mount.log");
        EXPECT_TRUE(Eventually(
            [&] { return mount->Output().find("Tap Trust on") != NPOS; }));
        if (unplugged) {
            simulator->Control("unplug");
        } else {
            mount->Signal(SIGINT);
        }
        EXPECT_EQ(mount->Wait(20), status) << mount->Output();
        EXPECT_NE(mount->Output().find(sentence), NPOS) << mount->Output();
        EXPECT_TRUE(fs::is_empty(work + "/home"));
        fs::remove(work + "/mount.log");
        if (unplugged) {
            simulator->Control("plug");
        }
    }

    // The device falls silent while the volume starts.
    simulator->Control("trust accept");
    EXPECT_EQ(Quorvel({"apps"}).status, 0);
    environment["QUORVEL_TIMEOUT_MS"] = "4000";
    for (const auto &[name, value] : environment) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    simulator->Control("stall on");
    helper::Device device;
    device.name = "Anna's iPhone";
    device.location = anna.location;
    fs::create_directory(work + "/point");
    const helper::Result result = helper::launchVolume(
        device, work + "/point", "", 1, [] { return false; });
    EXPECT_EQ(static_cast<int>(result.status), 16);
    EXPECT_EQ(result.sentence,
              "The volume of Anna's iPhone did not answer within 1.0 s.");
    EXPECT_FALSE(Mounted(work));
    simulator->Control("stall off");

    // Another one is mounting.
    helper::Descriptor turn;
    EXPECT_TRUE(helper::takeMountTurn(turn, 0));
    helper::Descriptor second;
    EXPECT_FALSE(helper::takeMountTurn(second, 0.1));
}

// A file system that was killed leaves a folder in which everything fails.
TEST_F(MountTest, a_dead_volume_makes_way)
{
    const SampleDevice &anna = Add("Anna's iPhone");
    Serve();
    ASSERT_EQ(Quorvel({"mount"}).status, 0);
    // Processes that end while they are looked at do not hide it.
    const Process others({"sh", "-c", "while :; do /bin/true; done"}, {},
                         work + "/others.log");
    for (int i = 0; i < 300; ++i) {
        const std::vector<helper::Mount> mounts = helper::readMounts();
        ASSERT_NE(helper::findMount(mounts, anna.location), nullptr);
    }
    EXPECT_NE(Quorvel({"status"}).out.find(" works "), NPOS);
    simulator->Control("unplug");
    EXPECT_NE(Quorvel({"status"}).out.find(" unplugged "), NPOS);
    simulator->Control("plug");
    KillServer(Point("Anna's iPhone"));
    EXPECT_TRUE(Eventually(
        [&] { return Stat(Point("Anna's iPhone")).error == ENOTCONN; }));
    EXPECT_NE(Quorvel({"status"}).out.find("broken"), NPOS);
    EXPECT_EQ(Quorvel({"mount"}).out,
              "Anna's iPhone is mounted at " + Point("Anna's iPhone") + ".\n");
    EXPECT_EQ(Quorvel({"unmount", "Anna's iPhone"}).status, 0);
    EXPECT_TRUE(fs::is_empty(work + "/home"));
}

TEST_F(MountTest, a_silent_device_holds_nobody_for_long)
{
    environment["QUORVEL_TIMEOUT_MS"] = "500";
    Add("Anna's iPhone");
    Serve();
    simulator->Control("stall on");
    const Finished done = Quorvel({"mount"});
    EXPECT_EQ(done.status, 19) << done.out;
    EXPECT_LT(done.seconds, 15);
    const Finished list = Quorvel({"list"});
    EXPECT_EQ(list.status, 0) << list.out;
    simulator->Control("stall off");
}

TEST_F(MountTest, waits_for_trust_and_cleans_up)
{
    Add("Anna's iPhone");
    Serve();
    simulator->Control("trust pending 3");
    using Json = nlohmann::json;
    Json list = Json::parse(Quorvel({"list", "--json"}).out);
    EXPECT_EQ(list[0]["trust"], "waiting for trust");
    const Finished mount = Quorvel({"mount"});
    EXPECT_EQ(mount.status, 0);
    EXPECT_EQ(mount.out, "Tap Trust on Anna's iPhone.\nAnna's iPhone is "
                         "mounted at " +
                             Point("Anna's iPhone") + ".\n");
    EXPECT_EQ(List(Point("Anna's iPhone")).data, "Apps\nMedia\nStorage\n");
    list = Json::parse(Quorvel({"list", "--json"}).out);
    EXPECT_EQ(list[0]["trust"], "trusted");
    EXPECT_EQ(list[0]["mounted"], Point("Anna's iPhone"));
    EXPECT_EQ(list[0]["name"], "Anna's iPhone");
    const Json status = Json::parse(Quorvel({"status", "--json"}).out);
    EXPECT_NE(status.dump().find("\"state\":\"works\""), std::string::npos);
    const Json apps = Json::parse(Quorvel({"apps", "--json"}).out);
    EXPECT_EQ(apps[0]["bundle"], "com.example.notes") << apps;

    // A program that stands in the folder.
    Process sleeper({"/bin/sh", "-c", "cd \"$0\" && echo in && exec sleep 60",
                     Point("Anna's iPhone") + "/Storage"},
                    {}, work + "/sleeper");
    ASSERT_TRUE(Eventually([&] { return sleeper.Output() == "in\n"; }));
    EXPECT_EQ(Quorvel({"unmount", "Anna's iPhone"}).status, 18);
    EXPECT_EQ(Quorvel({"unmount", "--force", "Anna's iPhone"}).status, 0);
    EXPECT_FALSE(fs::exists(Point("Anna's iPhone")));
    sleeper.Signal(SIGKILL);

    // A folder that was there stays.
    fs::create_directory(work + "/mine");
    EXPECT_EQ(Quorvel({"mount", "Anna's iPhone", work + "/mine"}).status, 0);
    EXPECT_EQ(Quorvel({"unmount", work + "/mine"}).status, 0);
    EXPECT_TRUE(fs::is_directory(work + "/mine"));
}
