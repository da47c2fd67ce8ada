// The apps area: its folders, and what lies in them.
#include <cstring>

#include "tarnifs/listing/apps.h"
#include "tarnifs/notify/tray_pipe.h"
#include "tests/handlers/fixture.h"

namespace
{

using Names = std::vector<std::string>;

class AppsListing : public MountTest
{
  protected:
    void SetUp() override { ASSERT_TRUE(mount()); }
    MemoryTree &addToDevice(const std::string &name,
                            const std::string &bundleId)
    {
        memoryWorld.devices[0].apps.push_back({name, bundleId, {}});
        MemoryTree &tree = memoryWorld.devices[0].apps.back().tree;
        tree.addFolder("/Documents");
        return tree;
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
}

TEST_F(AppsListing, NumbersEndAtNineHundredNinetyNine)
{
    for (int i = 0; i < 1002; ++i) {
        addToDevice("N", "com." + std::to_string(i));
    }
    list("/Apps");
    const Names names = list("/Apps");
    EXPECT_EQ(names.size(), 2U + 999U);
    EXPECT_EQ(names.back(), "N (999)");
    EXPECT_STREQ(object("/Apps/N (999)")->app_id, "com.1001");
}

TEST_F(AppsListing, NamesThatCannotBeShown)
{
    for (const std::string &bad :
         {std::string(), std::string(".."), std::string(512, 'x')}) {
        unmount();
        freshDevice();
        ASSERT_TRUE(mount());
        addToDevice(bad, "com.bad");
        addToDevice("After", "com.after");
        EXPECT_EQ(list("/Apps"), (Names{".", "..", "After"}));
        expectLogged("enumApps app left out for its name : com.bad");
        expectNothingRaised();
    }
    for (const std::string &bad : {std::string("\xff")}) {
        unmount();
        freshDevice();
        ASSERT_TRUE(mount());
        addToDevice(std::string(511, 'y'), "com.long");
        addToDevice(bad, "com.bad");
        addToDevice("After", "com.after");
        EXPECT_EQ(list("/Apps"), (Names{".", "..", std::string(511, 'y')}));
        expectLogged("enumApps getUTF8MACName failed. target App Name : " +
                     bad);
        expectNothingRaised();
    }
}

TEST_F(AppsListing, FailuresOfTheListAreTold)
{
    TrayReader tray(trayPipePath);
    addToDevice("Notes", "com.a");
    memoryWorld.failNamed("libiusb_instproxy_getAppId", 1, -332);
    int ret = 0;
    list("/Apps", &ret);
    EXPECT_EQ(ret, -ECANCELED);
    expectLogged("enumApps libiusb_instproxy_getAppId failed. error : -332");
    expectError("Could not read directory.\nError Code : -332");
    EXPECT_EQ(tray.read(), "-neon-neoff");
    memoryWorld.failNamed("libiusb_instproxy_getAppId", 1, -32);
    list("/Apps", &ret);
    expectError("Lost USB Connection.\nDirectory reading aborted.");
    EXPECT_EQ(list("/Apps"), (Names{".", "..", "Notes"}));
    unmount();
    freshDevice();
    ASSERT_TRUE(mount());
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

TEST_F(AppsListing, ASandboxThatCannotBeReadIsEmptyForNow)
{
    struct Case {
        const char *call;
        int n;
        const char *line;
    };
    const Case cases[] = {
        {"libiusb_housearrest_openapp", 1,
         "enumApps libiusb_housearrest_openapp failed. error : -331"},
        {"libiusb_afc_file_read_directory", 1,
         "enumApps libiusb_afc_file_read_directory failed. from(/Documents). "
         "ret : -331"},
        {"libiusb_afc_file_read_directory", 2,
         "enumApps libiusb_afc_file_read_directory failed. error : -331"},
    };
    addToDevice("Notes", "com.a").addFile("/Documents/a.txt");
    list("/Apps");
    for (const Case &each : cases) {
        memoryWorld.failNamed(each.call, each.n, -331);
        EXPECT_EQ(list("/Apps/Notes"), (Names{".", ".."}));
        expectLogged(each.line);
        EXPECT_EQ(memoryWorld.houses(), 0);
    }
    EXPECT_EQ(list("/Apps/Notes"), (Names{".", "..", "a.txt"}));
    expectNothingRaised();
}

TEST_F(AppsListing, TheServiceAndItsEndAreTold)
{
    addToDevice("Notes", "com.a").addFile("/Documents/a.txt");
    list("/Apps");
    int ret = 0;
    memoryWorld.failNamed("libiusb_housearrest_init", 1, -321);
    list("/Apps/Notes", &ret);
    EXPECT_EQ(ret, -ECANCELED);
    expectLogged("enumApps libiusb_housearrest_init failed. error : -321");
    expectError("Could not read directory.\nError Code : -321");
    // Ended at the second try: nobody is told.
    memoryWorld.failNamed("libiusb_housearrest_exit", 1, -212);
    EXPECT_EQ(list("/Apps/Notes"), (Names{".", "..", "a.txt"}));
    expectLogged("enumApps libiusb_housearrest_exit failed. error : -212");
    EXPECT_EQ(memoryWorld.houses(), 0);
    expectNothingRaised();
}

TEST_F(AppsListing, AnEntryThatCannotBeAskedAboutIsLeftOut)
{
    MemoryTree &tree = addToDevice("Notes", "com.a");
    for (const char *name : {"a", "b", "c"}) {
        tree.addFile(std::string("/Documents/") + name);
    }
    list("/Apps");
    // Lost with the connection: what is there, and all of it the next time.
    memoryWorld.failNamed("libiusb_afc_file_get_info", 2, -32);
    EXPECT_EQ(list("/Apps/Notes"), (Names{".", "..", "a", "c"}));
    expectLogged("enumApps libiusb_afc_file_get_info failed. error : -32");
    EXPECT_EQ(list("/Apps/Notes"), (Names{".", "..", "a", "b", "c"}));
    unmount();
    ASSERT_TRUE(mount());
    list("/Apps");
    memoryWorld.failNamed("libiusb_afc_file_get_info", 2, -210);
    EXPECT_EQ(list("/Apps/Notes"), (Names{".", "..", "a", "c"}));
    EXPECT_EQ(list("/Apps/Notes"), (Names{".", "..", "a", "c"}));
    expectNothingRaised();
}

TEST_F(AppsListing, AVeryLargeFolderIsAnnounced)
{
    MemoryTree &tree = addToDevice("Notes", "com.a");
    for (int i = 0; i < 30000; ++i) {
        tree.addFile("/Documents/fits/" + std::to_string(i));
        tree.addFile("/Documents/big/" + std::to_string(i));
    }
    tree.addFile("/Documents/big/last");
    list("/Apps");
    list("/Apps/Notes");
    TrayReader tray(trayPipePath);
    EXPECT_EQ(list("/Apps/Notes/fits").size(), 30002U);
    EXPECT_EQ(tray.read(), "");
    EXPECT_EQ(list("/Apps/Notes/big").size(), 30003U);
    EXPECT_EQ(tray.read(), "-neon-neoff");
    unmount();
    ASSERT_TRUE(mount());
    list("/Apps");
    list("/Apps/Notes");
    tray.read();
    memoryWorld.failNamed("libiusb_afc_file_read_directory", 2, -212);
    EXPECT_EQ(list("/Apps/Notes/big").size(), 2U);
    EXPECT_EQ(tray.read(), "-neon-neoff");
}

TEST_F(AppsListing, OtherPathsListNothing)
{
    const TarniLock lock;
    memoryWorld.forgetCalls();
    EXPECT_EQ(enumApps(context(), "/Storage/x", nullptr, nullptr), 0);
    EXPECT_EQ(enumApps(context(), "/Apps/NoApp", nullptr, nullptr), 0);
    EXPECT_EQ(memoryWorld.calls, Names());
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
            for (const char *path :
                 {"/Apps", "/Apps/Notes", "/Apps/Notes/sub"}) {
                if (strcmp(path, "/Apps") != 0 && object(path) == nullptr) {
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
                MemoryTree &tree = memoryWorld.devices[0].apps[0].tree;
                expectShown("/Apps/Notes", tree, "/Documents");
                expectShown("/Apps/Notes/sub", tree, "/Documents/sub");
            }
            EXPECT_EQ(memoryWorld.houses(), 0);
        });
}

} // namespace
