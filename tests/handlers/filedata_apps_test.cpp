// Open files inside apps, and the house-arrest connection that their folder
// keeps for them.
#include "tests/handlers/fixture.h"

namespace
{

class AppFiles : public MountTest
{
  protected:
    void SetUp() override { prepare(); }
    void prepare()
    {
        ASSERT_TRUE(mount());
        addApp("Notes", "com.example.notes", {"a.txt", "b.txt"});
        memoryWorld.forgetCalls();
    }
    uint64_t house() { return object("/Apps/Notes")->hhandle; }
};

TEST_F(AppFiles, ShareTheirFoldersConnection)
{
    tarni_file_info one;
    tarni_file_info two;
    ASSERT_EQ(open("/Apps/Notes/a.txt", &one), 0);
    ASSERT_EQ(open("/Apps/Notes/b.txt", &two), 0);
    EXPECT_EQ(memoryWorld.calls,
              (std::vector<std::string>{
                  "libiusb_housearrest_init",
                  "libiusb_housearrest_openapp com.example.notes",
                  "libiusb_afc_file_open /Documents/a.txt:6",
                  "libiusb_afc_file_open /Documents/b.txt:6"}));
    EXPECT_EQ(Value(object("/Apps/Notes")->open_count), 2U);
    EXPECT_EQ(read("/Apps/Notes/a.txt", &one, 100, 0), "contents of a.txt");
    EXPECT_EQ(write("/Apps/Notes/b.txt", &two, "CON", 0), 3);
    EXPECT_EQ(release("/Apps/Notes/a.txt", &one), 0);
    EXPECT_NE(house(), 0U);
    EXPECT_EQ(read("/Apps/Notes/b.txt", &two, 100, 0), "CONtents of b.txt");
    EXPECT_EQ(release("/Apps/Notes/b.txt", &two), 0);
    EXPECT_EQ(house(), 0U);
    EXPECT_EQ(memoryWorld.count("libiusb_housearrest_exit"), 1);
}

TEST_F(AppFiles, FailuresOfTheServiceTellWhatHappened)
{
    struct Case {
        const char *call;
        int code;
        const char *line;
        const char *text;
    };
    const Case cases[] = {
        {"libiusb_housearrest_init", -32,
         "tarnifs_open libiusb_housearrest_init failed. error : -32",
         "Lost USB connection.\nService opening aborted."},
        {"libiusb_housearrest_init", -321,
         "tarnifs_open libiusb_housearrest_init failed. error : -321",
         "Could not open the Device with Arrest Service.\nError Code : -321"},
        {"libiusb_housearrest_openapp", -32,
         "tarnifs_open libiusb_housearrest_openapp failed. error : -32, App ID "
         ": com.example.notes",
         "Lost USB connection.\nOpening App(Notes) aborted."},
        {"libiusb_housearrest_openapp", -331,
         "tarnifs_open libiusb_housearrest_openapp failed. error : -331, App ID "
         ": com.example.notes",
         "Could not open the App(Notes).\nError Code : -331"},
        {"libiusb_afc_file_open", -30,
         "tarnifs_open libiusb_afc_file_open failed. path(/Documents/a.txt) ret "
         ": -30",
         "Lost USB connection.\nOpening file(a.txt) aborted."},
    };
    for (const Case &each : cases) {
        SCOPED_TRACE(each.line);
        forgetLog();
        memoryWorld.failNamed(each.call, 1, each.code);
        tarni_file_info fi;
        EXPECT_EQ(open("/Apps/Notes/a.txt", &fi), -ECANCELED);
        expectLogged(each.line);
        expectError(each.text);
        EXPECT_EQ(house(), 0U);
        EXPECT_EQ(Value(object("/Apps/Notes")->open_count), 0U);
        EXPECT_EQ(Value(object("/Apps/Notes/a.txt")->open_count), 0U);
    }
}

TEST_F(AppFiles, AFailedOpenEndsTheConnectionOfOthersToo)
{
    tarni_file_info fi;
    ASSERT_EQ(open("/Apps/Notes/a.txt", &fi), 0);
    memoryWorld.failNamed("libiusb_afc_file_open", 1, -203);
    tarni_file_info other;
    EXPECT_EQ(open("/Apps/Notes/b.txt", &other), -ECANCELED);
    expectError("Could not open a file(b.txt).\nError Code : -203");
    EXPECT_EQ(house(), 0U);
    // The first file's handle went with it: it is opened anew when it is used,
    // once the device lets it.
    int ret = 0;
    memoryWorld.failNamed("libiusb_housearrest_init", 1, -32);
    read("/Apps/Notes/a.txt", &fi, 5, 0, &ret);
    EXPECT_EQ(ret, -ECANCELED);
    expectError("Lost USB connection.\nService opening aborted.");
    read("/Apps/Notes/a.txt", &fi, 5, 0, &ret);
    EXPECT_EQ(ret, 5);
    EXPECT_EQ(write("/Apps/Notes/a.txt", &fi, "x", 0), 1);
    expectNothingRaised();
    EXPECT_EQ(release("/Apps/Notes/a.txt", &fi), 0);
    EXPECT_EQ(house(), 0U);
}

TEST_F(AppFiles, ReleaseHandsTheLastCodeOn)
{
    tarni_file_info fi;
    ASSERT_EQ(open("/Apps/Notes/a.txt", &fi), 0);
    memoryWorld.failNamed("libiusb_housearrest_exit", 1, -32);
    EXPECT_EQ(release("/Apps/Notes/a.txt", &fi), -32);
    expectLogged("tarnifs_release libiusb_housearrest_exit failed. ret : -32");
    EXPECT_EQ(house(), 0U);
    ASSERT_EQ(open("/Apps/Notes/a.txt", &fi), 0);
    memoryWorld.failNamed("libiusb_afc_file_close", 1, -212);
    EXPECT_EQ(release("/Apps/Notes/a.txt", &fi), 0); // the exit came after
    expectLogged("tarnifs_release libiusb_afc_file_close failed. "
                 "path(/Apps/Notes/a.txt). ret : -212");
}

TEST_F(AppFiles, EveryFailingCallLeavesAVolumeThatWorks)
{
    unmount();
    forEachDeviceFailure(
        {-32, -30, -62, -212}, [this] { prepare(); },
        [this](int) {
            tarni_file_info fi;
            int ret = open("/Apps/Notes/a.txt", &fi);
            bool failed = ret != 0;
            if (!failed) {
                read("/Apps/Notes/a.txt", &fi, 100, 0, &ret);
                failed = ret < 0;
                failed = write("/Apps/Notes/a.txt", &fi, "x", 0) < 0 || failed;
            }
            EXPECT_EQ(failed, !raised().text.empty());
            release("/Apps/Notes/a.txt", &fi);
            EXPECT_EQ(house(), 0U);
            memoryWorld.heal();
            ASSERT_EQ(open("/Apps/Notes/b.txt", &fi), 0);
            EXPECT_EQ(read("/Apps/Notes/b.txt", &fi, 8, 0), "contents");
            EXPECT_EQ(release("/Apps/Notes/b.txt", &fi), 0);
            EXPECT_EQ(house(), 0U);
        });
}

} // namespace
