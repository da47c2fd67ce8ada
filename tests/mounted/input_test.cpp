// What is wrong from the beginning gets a clear end.
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "tests/mounted/fixture.h"

namespace
{

class InputTest : public MountedTest
{
  protected:
    Finished Call(const Words &arguments)
    {
        Words words = {Program("quorvelfs")};
        words.insert(words.end(), arguments.begin(), arguments.end());
        return RunProgram(words,
                          {{"USBMUXD_SOCKET_ADDRESS", "UNIX:" + work + "/no"},
                           {"XDG_STATE_HOME", work + "/state"}});
    }

    // A mount whose start-up fails: it stays, says ENOSYS, and goes away.
    void ExpectNoContext(const std::string &why)
    {
        volume->ExpectTrouble();
        EXPECT_EQ(Stat(volume->Path()).error, ENOSYS);
        EXPECT_EQ(List(volume->Path()).error, ENOSYS);
        EXPECT_GE(volume->CountInLog(why), 1U);
    }
};

TEST_F(InputTest, ArgumentsAreAnsweredBeforeMounting)
{
    const std::string folder = work + "/here";
    std::filesystem::create_directory(folder);
    const struct {
        Words arguments;
        int status;
        const char *text;
    } cases[] = {
        {{}, 2, "usage: "},
        {{"--help"}, 0, "usage: "},
        {{"--version"}, 0, "quorvelfs "},
        {{folder}, 2, "usage: "},
        {{folder, "-devopt"}, 2, "usage: "},
        {{folder, "-f", "-devopt", "12x"}, 2, "usage: "},
        {{"-devopt", "12", folder, "-f"}, 2, "usage: "},
        {{work + "/missing", "-f", "-devopt", "12"}, 1, "/missing"},
    };
    for (const auto &one : cases) {
        const Finished run = Call(one.arguments);
        EXPECT_EQ(run.status, one.status) << run.out;
        EXPECT_NE(run.out.find(one.text), std::string::npos) << run.out;
    }
}

TEST_F(InputTest, MountPointThatIsNoFolder)
{
    Spill(work + "/file", "x");
    const Finished run = Call({work + "/file", "-f", "-devopt", "12"});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.out.find("/file: not a folder"), std::string::npos)
        << run.out;
}

TEST_F(InputTest, NoSocket)
{
    volume =
        std::make_unique<Volume>(work, work + "/no-socket",
                                 1400000000U + static_cast<uint32_t>(getpid()));
    ExpectNoContext("device_init libiusb_device_get_list failed. code : -303");
}

TEST_F(InputTest, SocketThatTalksNonsense)
{
    const std::string path = work + "/nonsense";
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)),
              0);
    ASSERT_EQ(listen(fd, 10), 0);
    const pid_t talker = fork();
    if (talker == 0) {
        signal(SIGPIPE, SIG_IGN);
        for (;;) {
            const int peer = accept(fd, nullptr, nullptr);
            const std::string noise(4096, '\xA5');
            if (write(peer, noise.data(), noise.size()) < 0) {
                continue;
            }
        }
    }
    close(fd);
    volume = std::make_unique<Volume>(
        work, path, 1400000000U + static_cast<uint32_t>(getpid()));
    ExpectNoContext("device_init libiusb_device_get_list failed. code : -304");
    volume.reset();
    kill(talker, SIGKILL);
    waitpid(talker, nullptr, 0);
}

// Start-up fails, and what stands where the private folder should be is left
// alone.
TEST_F(InputTest, PrivateFolderThatIsALink)
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
}

TEST_F(InputTest, PrivateFolderOfSomebodyElse)
{
    MakeDevice();
    Serve();
    const std::string name = "/tmp/" + std::to_string(device->location);
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
