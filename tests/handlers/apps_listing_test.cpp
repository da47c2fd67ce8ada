// The apps area: its folders, and what lies in them.
#include "tarnifs/listing/apps.h"
#include "tarnifs/notify/tray_pipe.h"
#include "tests/handlers/fixture.h"

namespace
{

class AppsListing : public MountTest
{
  protected:
    void SetUp() override { ASSERT_TRUE(mount()); }
    void again()
    {
        unmount();
        freshDevice();
        ASSERT_TRUE(mount());
    }
};

TEST_F(AppsListing, EveryAppHasAFolderOfItsOwnName)
{
    TrayReader tray(trayPipePath);
    addToDevice("Notes", "com.a").addFile("/Documents/first");
    addToDevice("AC/DC", "com.b");
    addToDevice("Notes", "com.c").addFile("/Documents/second");
    addToDevice("Notes", "com.d");
    addToDevice("100%s", "com.e");
    const Names names = {".",         "..",        "Notes", "AC:DC",
                         "Notes (2)", "Notes (3)", "100%s"};
    EXPECT_EQ(list("/Apps"), names);
    EXPECT_EQ(tray.read(), "-neon-neoff");
    EXPECT_EQ(list("/Apps"), names);
    EXPECT_EQ(tray.read(), "");
    EXPECT_EQ(attributes("/Apps/AC:DC").st_mode, 040777U);
    EXPECT_EQ(Value(object("/Apps/Notes")->type), KTL_DEVICE_FOLDER);
    EXPECT_STREQ(object("/Apps/Notes (2)")->app_id, "com.c");
    EXPECT_EQ(list("/Apps/Notes"), (Names{".", "..", "first"}));
    EXPECT_EQ(list("/Apps/Notes (2)"), (Names{".", "..", "second"}));
    EXPECT_EQ(list("/Apps/AC:DC"), (Names{".", ".."}));
    EXPECT_EQ(memoryWorld.houses(), 0);
    const TarniLock lock;
    memoryWorld.forgetCalls();
    EXPECT_EQ(enumApps(context(), "/Storage/x", nullptr, nullptr), 0);
    EXPECT_EQ(enumApps(context(), "/Apps/NoApp", nullptr, nullptr), 0);
    EXPECT_EQ(memoryWorld.calls, Names());
}

TEST_F(AppsListing, NamesHaveLimits)
{
    for (int i = 0; i < 1002; ++i) {
        addToDevice("N", "com." + std::to_string(i));
    }
    list("/Apps");
    const Names names = list("/Apps");
    EXPECT_EQ(names.size(), 2U + 999U);
    EXPECT_EQ(names.back(), "N (999)");
    EXPECT_STREQ(object("/Apps/N (999)")->app_id, "com.1001");
    for (const std::string &bad :
         {std::string(), std::string(".."), std::string(512, 'x')}) {
        again();
        addToDevice(bad, "com.bad");
        addToDevice("After", "com.after");
        EXPECT_EQ(list("/Apps"), (Names{".", "..", "After"}));
        expectLogged("enumApps app left out for its name : com.bad");
    }
    again();
    addToDevice(std::string(511, 'y'), "com.long");
    addToDevice("\xff", "com.bad");
    addToDevice("After", "com.after");
    EXPECT_EQ(list("/Apps"), (Names{".", "..", std::string(511, 'y')}));
    expectLogged("enumApps getUTF8MACName failed. target App Name : \xff");
    expectNothingRaised();
    again();
    EXPECT_EQ(list("/Apps"), (Names{".", ".."}));
    expectLogged("enumApps applist is NULL!");
}

TEST_F(AppsListing, AFolderShowsWhatTheAppHas)
{
    MemoryTree &tree = addToDevice("Notes", "com.a");
    tree.addFile("/Documents/.hidden");
    MemoryNode &file = tree.addFile("/Documents/a.txt", "hello");
    file.birth = 1500000000999999999;
    file.modify = 1600000000999999999;
    tree.addFile("/Documents/link").type = LIBIUSB_FILE_LINK;
    tree.addFile("/Documents/sub/deep/b.txt", "x");
    tree.addFolder("/Documents").names.emplace_back("../evil");
    list("/Apps");
    EXPECT_EQ(list("/Apps/Notes"), (Names{".", "..", "a.txt", "link", "sub"}));
    EXPECT_EQ(list("/Apps/Notes/sub"), (Names{".", "..", "deep"}));
    EXPECT_EQ(list("/Apps/Notes/sub/deep"), (Names{".", "..", "b.txt"}));
    const _KTL_OBJECT *record = object("/Apps/Notes/a.txt");
    EXPECT_EQ(Value(record->type), KTL_DEVICE_FILE);
    EXPECT_EQ(Value(record->size), 5U);
    EXPECT_EQ(Value(record->birth_time), 1500000000);
    EXPECT_EQ(Value(record->access_time), 1600000000);
    EXPECT_EQ(Value(object("/Apps/Notes/link")->mode), KTL_MODE_FILE);
    EXPECT_EQ(Value(object("/Apps/Notes/sub")->type), KTL_DEVICE_FOLDER);
    EXPECT_STREQ(object("/Apps/Notes/sub/deep/b.txt")->app_id, "com.a");
    memoryWorld.forgetCalls();
    list("/Apps/Notes");
    EXPECT_EQ(memoryWorld.calls, Names());
}

TEST_F(AppsListing, FailuresAreLoggedAndSomeAreTold)
{
    const std::string other = "Could not read directory.\nError Code : ";
    const struct {
        const char *path;
        const char *call;
        int n;
        int code;
        const char *line;
        std::string text; // none: listed, with what can be had
        Names listed;
    } cases[] = {
        {"/Apps",
         "libiusb_instproxy_getAppId",
         1,
         -332,
         "enumApps libiusb_instproxy_getAppId failed. error : -332",
         other + "-332",
         {}},
        {"/Apps",
         "libiusb_instproxy_getAppId",
         1,
         -32,
         "enumApps libiusb_instproxy_getAppId failed. error : -32",
         "Lost USB Connection.\nDirectory reading aborted.",
         {}},
        {"/Apps/Notes",
         "libiusb_housearrest_init",
         1,
         -321,
         "enumApps libiusb_housearrest_init failed. error : -321",
         other + "-321",
         {}},
        {"/Apps/Notes",
         "libiusb_housearrest_openapp",
         1,
         -331,
         "enumApps libiusb_housearrest_openapp failed. error : -331",
         "",
         {}},
        {"/Apps/Notes",
         "libiusb_afc_file_read_directory",
         1,
         -331,
         "enumApps libiusb_afc_file_read_directory failed. from(/Documents). "
         "ret : -331",
         "",
         {}},
        {"/Apps/Notes",
         "libiusb_afc_file_read_directory",
         2,
         -331,
         "enumApps libiusb_afc_file_read_directory failed. error : -331",
         "",
         {}},
        // Lost with the connection: what is there, and all of it next time.
        {"/Apps/Notes",
         "libiusb_afc_file_get_info",
         2,
         -32,
         "enumApps libiusb_afc_file_get_info failed. error : -32",
         "",
         {"a", "c"}},
        // Ended at the second try.
        {"/Apps/Notes",
         "libiusb_housearrest_exit",
         1,
         -212,
         "enumApps libiusb_housearrest_exit failed. error : -212",
         "",
         {"a", "b", "c"}},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.line);
        again();
        TrayReader tray(trayPipePath);
        for (const char *name : {"a", "b", "c"}) {
            memoryWorld.devices[0].apps.empty()
                ? addToDevice("Notes", "com.a").addFile("/Documents/a")
                : sandbox().addFile(std::string("/Documents/") + name);
        }
        if (each.path != std::string("/Apps")) {
            list("/Apps");
            tray.read();
        }
        memoryWorld.failNamed(each.call, each.n, each.code);
        int ret = 0;
        Names listed = {".", ".."};
        listed.insert(listed.end(), each.listed.begin(), each.listed.end());
        EXPECT_EQ(list(each.path, &ret), listed);
        EXPECT_EQ(ret, each.text.empty() ? 0 : -ECANCELED);
        expectLogged(each.line);
        EXPECT_EQ(raised().text, each.text);
        EXPECT_EQ(memoryWorld.houses(), 0);
        if (each.path == std::string("/Apps")) {
            EXPECT_EQ(tray.read(), "-neon-neoff");
        }
        EXPECT_EQ(list("/Apps"), (Names{".", "..", "Notes"}));
        EXPECT_EQ(list("/Apps/Notes"), (Names{".", "..", "a", "b", "c"}));
    }
    // An entry that the device refuses to tell of is left out for good.
    again();
    addToDevice("Notes", "com.a").addFile("/Documents/a");
    list("/Apps");
    memoryWorld.failNamed("libiusb_afc_file_get_info", 1, -210);
    EXPECT_EQ(list("/Apps/Notes"), (Names{".", ".."}));
    EXPECT_EQ(list("/Apps/Notes"), (Names{".", ".."}));
    expectNothingRaised();
}

TEST_F(AppsListing, EveryFailingCallLeavesAVolumeThatWorks)
{
    unmount();
    forEachDeviceFailure(
        FAILURE_CODES,
        [this] {
            ASSERT_TRUE(mount());
            MemoryTree &tree = addToDevice("Notes", "com.a");
            tree.addFile("/Documents/a");
            tree.addFile("/Documents/sub/b");
            addToDevice("Other", "com.b");
        },
        [this](int code) {
            for (const std::string path :
                 {"/Apps", "/Apps/Notes", "/Apps/Notes/sub"}) {
                if (path != "/Apps" && object(path) == nullptr) {
                    break; // nobody lists what was not shown
                }
                int ret = 0;
                list(path, &ret);
                expectTold(ret, code);
            }
            const bool left =
                code != -32 && memoryWorld.fired() &&
                countLogged("enumApps libiusb_afc_file_get_info failed. error "
                            ": " +
                            std::to_string(code)) == 1;
            memoryWorld.heal();
            EXPECT_EQ(list("/Apps").size(), 4U);
            if (!left) {
                expectShown("/Apps/Notes", sandbox(), "/Documents");
                expectShown("/Apps/Notes/sub", sandbox(), "/Documents/sub");
            }
            EXPECT_EQ(memoryWorld.houses(), 0);
        });
}

} // namespace
