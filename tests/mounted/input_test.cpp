// What is wrong from the beginning gets a clear end.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "tests/mounted/fixture.h"

namespace
{

class InputTest : public MountedTest
{
  protected:
    // A mount whose start-up fails: it stays, says ENOSYS, and goes away.
    void ExpectNoContext(const std::string &why)
    {
        volume->ExpectTrouble();
        EXPECT_EQ(Stat(volume->Path()).error, ENOSYS);
        EXPECT_EQ(List(volume->Path()).error, ENOSYS);
        EXPECT_GE(volume->CountInLog(why), 1U);
        EXPECT_TRUE(volume->Dialogs().empty());
    }
};

TEST_F(InputTest, ArgumentsAreAnsweredBeforeMounting)
{
    const std::string folder = work + "/here";
    std::filesystem::create_directory(folder);
    Spill(work + "/file", "x");
    const struct {
        Words arguments;
        int status;
        const char *text;
    } cases[] = {
        {{}, 2, "usage: "},
        {{"--help"}, 0, "usage: "},
        {{"--version"}, 0, "quorvelfs "},
        {{folder}, 2, "usage: "},
        {{folder, "-f", "-devopt", "12x"}, 2, "usage: "},
        {{work + "/missing", "-f", "-devopt", "12"}, 3, "/missing"},
        {{work + "/file", "-f", "-devopt", "12"}, 3, "/file: not a folder"},
        {{folder, "-o", "bogus", "-devopt", "12"}, 2, "bogus"},
        {{folder, "-o", "timeout_ms=3", "-devopt", "12"}, 2, "50 to 600000"},
        {{folder, "-o", "location_id=x", "-devopt", "0"}, 2, "location id: x"},
    };
    for (const auto &one : cases) {
        Words words = {Program("quorvelfs")};
        words.insert(words.end(), one.arguments.begin(), one.arguments.end());
        const Finished run =
            RunProgram(words, {{"USBMUXD_SOCKET_ADDRESS", "UNIX:/no"},
                               {"XDG_STATE_HOME", work + "/state"}});
        EXPECT_EQ(run.status, one.status) << run.out;
        EXPECT_NE(run.out.find(one.text), std::string::npos) << run.out;
    }
}

TEST_F(InputTest, NoDaemonOrNone)
{
    MakeDevice();
    volume = std::make_unique<Volume>(work, work + "/no", device->location);
    ExpectNoContext("device_init libiusb_device_get_list failed. code : -303");
    EXPECT_EQ(volume->CountInLog("usbmux daemon not reachable"), 1U);
    volume.reset();
    Serve();
    simulator->Control("usbmux-nonsense on");
    Mount();
    ExpectNoContext("device_init libiusb_device_get_list failed. code : -304");
    simulator->Control("usbmux-nonsense off");
}

// Start-up fails, and what stands where the private folder should be is left
// alone.
TEST_F(InputTest, PrivateFolderOfSomebodyElse)
{
    MakeDevice();
    Serve();
    const std::string name = "/tmp/" + std::to_string(device->location);
    const std::string target = work + "/target";
    std::filesystem::create_directory(target);
    Spill(target + "/precious", "kept");
    ASSERT_EQ(symlink(target.c_str(), name.c_str()), 0);
    Mount();
    ExpectNoContext("private folder refused");
    EXPECT_EQ(unlink(name.c_str()), 0) << "the link is gone";
    EXPECT_EQ(Slurp(target + "/precious"), "kept");
    volume.reset();
    // Another user's for root; for anybody else a file does.
    if (geteuid() == 0) {
        ASSERT_EQ(mkdir(name.c_str(), 0777), 0);
        ASSERT_EQ(chown(name.c_str(), 65534, 65534), 0);
    } else {
        Spill(name, "kept");
    }
    Mount();
    ExpectNoContext("private folder refused");
    EXPECT_EQ(remove(name.c_str()), 0) << "it is gone";
}

} // namespace
