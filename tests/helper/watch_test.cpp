// A whole day of `quorvel watch`, and several devices at once.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <regex>

#include "helper/tray_pipe.h"
#include "tests/helper/desktop.h"
#include "tests/helper/fixture.h"

namespace
{

constexpr const char *PIPE = "/tmp/QNNOTIPIPE";

// The pipe is one for the whole machine: other tests like this one may be
// running.
bool PipeIsFree()
{
    struct stat st {
    };
    return lstat(PIPE, &st) != 0 ||
           (st.st_uid == geteuid() && !helper::trayPipeOwned(PIPE));
}

size_t Count(const std::string &text, const std::string &part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos;
         at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

} // namespace

class WatchTest : public HelperTest
{
  protected:
    static bool Says(const Process &watch, const std::string &text,
                     size_t times = 1)
    {
        return Eventually([&] { return Count(watch.Output(), text) >= times; },
                          20);
    }
};

TEST_F(WatchTest, from_plug_to_the_end)
{
    const SampleDevice &device = Add("Anna's iPhone");
    device.Put("a.txt", "contents");
    Serve({"--unplugged"});
    const std::string point = Point("Anna's iPhone");
    ASSERT_TRUE(Eventually(PipeIsFree, 60));
    const auto watch = Start({"watch"}, "watch.log");
    ASSERT_TRUE(Says(*watch, "Watching")) << watch->Output();

    simulator->Control("plug");
    ASSERT_TRUE(Says(*watch, "Anna's iPhone is mounted at " + point))
        << watch->Output();
    EXPECT_EQ(ReadFile(point + "/Storage/a.txt").data, "contents");
    EXPECT_EQ(WriteFile(point + "/Storage/new.bin", O_CREAT | O_WRONLY,
                        std::string(5000, 'x'))
                  .error,
              0);
    EXPECT_TRUE(Eventually([&] {
        return std::regex_search(watch->Output(),
                                 std::regex("[Rr]ead [0-9,]+ file")) &&
               std::regex_search(watch->Output(),
                                 std::regex("[Ww]ritten [0-9,]+ file"));
    })) << watch->Output();

    // A file is still open when the device goes.
    const int held = open((point + "/Storage/a.txt").c_str(), O_RDONLY);
    EXPECT_GE(held, 0);
    simulator->Control("unplug");
    EXPECT_TRUE(Eventually([&] { return !Mounted(point); }));
    EXPECT_TRUE(Says(*watch, "Anna's iPhone is unmounted"));
    EXPECT_FALSE(std::filesystem::exists(point));
    close(held);

    simulator->Control("plug");
    ASSERT_TRUE(Says(*watch, "is mounted at " + point, 2)) << watch->Output();
    EXPECT_EQ(Stat(point + "/Storage/new.bin").error, 0);

    // A file system that dies makes way for another one.
    KillServer(point);
    EXPECT_TRUE(Says(*watch, "The volume of Anna's iPhone has died"));
    ASSERT_TRUE(Says(*watch, "is mounted at " + point, 3)) << watch->Output();
    EXPECT_EQ(ReadFile(point + "/Storage/a.txt").data, "contents");

    // Nonsense and a dead writer do it no harm.
    const int pipe = open(PIPE, O_WRONLY | O_NONBLOCK);
    EXPECT_EQ(write(pipe, "\x01-ncdat\0\0-neon", 14), 14);
    close(pipe);
    EXPECT_TRUE(Says(*watch, "Busy."));
    const auto second = Start({"watch", "--no-mount"}, "second.log");
    EXPECT_TRUE(Says(*second, "Another quorvel watch already reads"));
    second->Signal(SIGINT);
    EXPECT_EQ(second->Wait(20), 0);

    watch->Signal(SIGTERM);
    EXPECT_EQ(watch->Wait(30), 0) << watch->Output();
    EXPECT_FALSE(Mounted(work));
    EXPECT_FALSE(std::filesystem::exists(point));
    EXPECT_FALSE(
        std::filesystem::exists("/tmp/" + std::to_string(device.location)));
}

TEST_F(WatchTest, several_devices)
{
    environment["QUORVEL_NOTIFY_PIPE"] = work + "/pipe";
    Add("Anna", {"--trust", "pending:1000"});
    Add("Bert");
    Add("Bert");
    Serve();
    // Two devices of one name get two folders; one that waits holds up nobody.
    const auto watch = Start({"watch", "--keep"}, "watch.log");
    EXPECT_TRUE(Says(*watch, "Tap Trust on Anna.")) << watch->Output();
    EXPECT_TRUE(Says(*watch, "is mounted at " + Point("Bert") + "."));
    EXPECT_TRUE(Says(*watch, "is mounted at " + Point("Bert 2") + "."));
    simulator->Control("trust accept 0");
    EXPECT_TRUE(Says(*watch, "is mounted at " + Point("Anna") + "."));
    // Unmounted by hand it stays so; unplugged while it waits it is forgotten.
    EXPECT_EQ(Quorvel({"unmount", "Anna"}).status, 0);
    watch->Signal(SIGINT);
    EXPECT_EQ(watch->Wait(30), 0) << watch->Output();
    EXPECT_FALSE(Mounted(Point("Anna")));
    EXPECT_FALSE(std::filesystem::exists(work + "/pipe"));
    for (const char *name : {"Bert", "Bert 2"}) {
        EXPECT_EQ(List(Point(name)).data, "Apps\nMedia\nStorage\n");
        EXPECT_EQ(Quorvel({"unmount", Point(name)}).status, 0);
    }
}

// Every text of a device takes the place of its last one, names are no markup,
// and a desktop that does not answer holds nothing up.
TEST_F(WatchTest, tells_the_desktop)
{
    environment["QUORVEL_NOTIFY_PIPE"] = work + "/pipe";
    environment["DISPLAY"] = ":0"; // nothing is drawn there
    Add("A <b> & B", {"--trust", "pending:1000"});
    Serve();
    for (const bool answers : {true, false}) {
        Desktop desktop(work, answers);
        environment["DBUS_SESSION_BUS_ADDRESS"] = desktop.Address();
        const auto watch =
            Start({"watch"}, answers ? "watch.log" : "silent.log");
        if (answers) { // from then on the device is trusted
            EXPECT_TRUE(Says(*watch, "Tap Trust on A <b> & B."));
            EXPECT_TRUE(
                Eventually([&] { return desktop.Shown().size() == 1; }));
            simulator->Control("trust accept");
        }
        EXPECT_TRUE(Says(*watch, "is mounted at")) << watch->Output();
        if (answers) {
            EXPECT_TRUE(
                Eventually([&] { return desktop.Shown().size() == 2; }));
            const std::vector<Notification> shown = desktop.Shown();
            ASSERT_EQ(shown.size(), 2U);
            EXPECT_EQ(shown[0].title, "A <b> & B");
            EXPECT_EQ(shown[0].text, "Tap Trust on A &lt;b&gt; &amp; B.");
            EXPECT_EQ(shown[1].replaces, 1U);
        }
        watch->Signal(SIGINT);
        const double begin = Now();
        EXPECT_EQ(watch->Wait(30), 0) << watch->Output();
        EXPECT_LT(Now() - begin, 10);
    }
}
