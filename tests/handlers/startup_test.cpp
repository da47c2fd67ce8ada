// Start-up and shut-down, against devices in every state.
#include "tarnifs/mount/startup.h"

#include <filesystem>
#include <fstream>

#include "tarnifs/notify/tray_pipe.h"
#include "tests/handlers/fixture.h"

namespace
{

class Startup : public MountTest
{
  protected:
    // As mount(), but keeps what was logged.
    bool start()
    {
        auto id = static_cast<int32_t>(locationId);
        testHost.privateData = &id;
        testHost.privateData = tarni_opers.init(nullptr);
        return testHost.privateData != nullptr;
    }
    // A start with a fresh device.
    bool startAfresh()
    {
        forgetLog();
        const bool started = start();
        EXPECT_EQ(started ? "" : memoryWorld.open(), "");
        EXPECT_EQ(std::filesystem::exists(privateFolder()), started);
        return started;
    }
};

TEST_F(Startup, ConnectsAndTakesEverythingDownAgain)
{
    TrayReader tray(trayPipePath);
    media().addFile("/general_storage/a", "1");
    ASSERT_TRUE(start());
    EXPECT_EQ(tray.readBytes(6), "-neoff");
    EXPECT_STREQ(context()->pLocationId, std::to_string(locationId).c_str());
    EXPECT_STREQ(context()->device_info.device_name, "Device 1");
    EXPECT_EQ(memoryWorld.calls.front(),
              "libiusb_init_ex /opt/quorvel/Contents/Resources");
    EXPECT_EQ(std::filesystem::status(privateFolder()).permissions(),
              std::filesystem::perms(0700));
    expectLogged("device_init Connected device 0 : " +
                 testing::PrintToString(reinterpret_cast<void *>(
                     static_cast<uintptr_t>(locationId))));
    expectLogged("device_init Device Name : Device 1");
    expectLogged("device_init Device iOS Version : 17.5");
    EXPECT_EQ(pauses, std::vector<unsigned>{100000});
    // What operations left open goes too.
    std::ofstream(privateFolder() + "/leftover") << "x";
    addApp("Notes", "com.example.notes", {"n.txt"});
    list("/Storage");
    tarni_file_info fi;
    EXPECT_EQ(open("/Storage/a", &fi), 0);
    EXPECT_EQ(open("/Apps/Notes/n.txt", &fi), 0);
    EXPECT_EQ(tarni_opers.setxattr("/Storage/a", "tag", "v", 1, 0, 0), 0);
    QueueTransfer(TRANSFER_READ, 1, "x");
    testHost.holdDialogs();
    int ret = 0;
    list("/Nowhere", &ret);
    EXPECT_EQ(ret, -ECANCELED);
    EXPECT_EQ(testHost.waitForDialogs(1).size(), 1U); // on the screen
    unmount();
    EXPECT_EQ(memoryWorld.open(), "");
    EXPECT_TRUE(gQueue.empty());
    EXPECT_TRUE(Object_list.empty());
    EXPECT_EQ(gEncodedPath, nullptr);
}

TEST_F(Startup, LooksElevenTimesForTheDevice)
{
    memoryWorld.devices[0].hiddenLists = 5;
    EXPECT_TRUE(startAfresh());
    EXPECT_EQ(countLogged("device_init no devices."), 5);
    EXPECT_EQ(pauses.size(), 6U);
    EXPECT_EQ(memoryWorld.count("libiusb_context_exit"), 5);
    unmount();
    TrayReader tray(trayPipePath);
    freshDevice().hiddenLists = 100;
    EXPECT_FALSE(startAfresh());
    EXPECT_EQ(countLogged("device_init no devices."), 11);
    EXPECT_EQ(memoryWorld.count("libiusb_context_init"), 11);
    EXPECT_EQ(tray.readBytes(6), "-neoff");
    // A device without a location is not the one without an id.
    freshDevice().info.location_id = 0;
    locationId = 0;
    EXPECT_FALSE(startAfresh());
    EXPECT_EQ(countLogged("device_init no devices."), 11);
}

TEST_F(Startup, AFailedStartLeavesHandlersThatRefuse)
{
    // And a folder that was there before.
    std::filesystem::create_directory(privateFolder());
    memoryWorld.devices.clear();
    ASSERT_FALSE(start());
    EXPECT_TRUE(std::filesystem::remove(privateFolder()));
    struct stat st {
    };
    struct statvfs volume {
    };
    tarni_file_info fi;
    const tarni_setattr attr;
    char buffer[8];
    const int results[] = {tarni_opers.getattr("/", &st),
                           tarni_opers.fgetattr("/", &st, &fi),
                           tarni_opers.setattr_x("/x", &attr),
                           tarni_opers.fsetattr_x("/x", &attr, &fi),
                           tarni_opers.statfs("/", &volume),
                           tarni_opers.readdir("/", nullptr, nullptr, 0, &fi),
                           tarni_opers.open("/x", &fi),
                           tarni_opers.read("/x", buffer, 8, 0, &fi),
                           tarni_opers.write("/x", buffer, 8, 0, &fi),
                           tarni_opers.release("/x", &fi)};
    for (const int ret : results) {
        EXPECT_EQ(ret, -ENOSYS) << &ret - results;
    }
    EXPECT_EQ(tarni_opers.access("/", 0), 0);
    EXPECT_EQ(tarni_opers.access("/x", 0), -1);
    EXPECT_EQ(tarni_opers.getxattr("/x", "a", nullptr, 0, 0), -TARNI_ENOATTR);
    EXPECT_EQ(tarni_opers.setxattr("/x", "a", "b", 1, 0, 0), -TARNI_ENOATTR);
    EXPECT_EQ(tarni_opers.removexattr("/x", "a"), -TARNI_ENOATTR);
    expectLogged("getContext pContext is NULL!!");
    expectLogged("tarnifs_statfs pContext is NULL!");
    testHost.haveFuseContext = false;
    EXPECT_EQ(tarni_opers.getattr("/", &st), -ENOSYS);
    expectLogged("getContext FUSE_CONTEXT is NULL!!");
}

TEST_F(Startup, WaitsForTrustAndOpensAfresh)
{
    memoryWorld.devices[0].openResults = {-45, -44, 0};
    EXPECT_TRUE(startAfresh());
    EXPECT_EQ(pauses,
              (std::vector<unsigned>{100000, 3000000, 3000000, 200000}));
    expectLogged("device_init libiusb fail cause trust dialog. retry(0/10)");
    expectLogged("device_init libiusb fail cause trust dialog. retry(1/10)");
    EXPECT_EQ(memoryWorld.count("libiusb_device_get_list"), 2);
    EXPECT_EQ(memoryWorld.count("libiusb_device_open"), 4);
    EXPECT_EQ(memoryWorld.count("libiusb_device_close"), 1);
    unmount();
    freshDevice().openResults.assign(50, -45);
    EXPECT_FALSE(startAfresh());
    EXPECT_EQ(memoryWorld.count("libiusb_device_open"), 10);
    expectLogged("device_init libiusb_device_open failed. code : -45");
    // One that keeps asking does not hold the mount for ever.
    MemoryDevice &device = freshDevice();
    for (int i = 0; i < 100; ++i) {
        device.openResults.push_back(i % 2 == 0 ? -45 : 0);
    }
    EXPECT_FALSE(startAfresh());
    EXPECT_LE(memoryWorld.count("libiusb_device_open"), 20);
    // Gone from the second list on.
    freshDevice().openResults = {-45, 0};
    tarniPause = [](unsigned microseconds) {
        if (microseconds == 200000) {
            memoryWorld.devices[0].hiddenLists = 1000;
        }
    };
    EXPECT_FALSE(startAfresh());
    EXPECT_EQ(countLogged("device_init no devices."), 11);
}

TEST_F(Startup, TheLocationDecidesAmongDevices)
{
    for (const size_t place : {0U, 1U, 2U}) {
        freshDevice().info.location_id = 0; // over Wi-Fi
        testHost.reset();
        memoryWorld.addDevice(17);
        memoryWorld.addDevice(18);
        memoryWorld.devices[place].info.location_id = locationId;
        ASSERT_TRUE(startAfresh());
        EXPECT_EQ(context()->device_info.device_name,
                  "Device " + std::to_string(place + 1));
        unmount();
    }
    // A neighbour whose information fails ends the start.
    freshDevice().info.location_id = 17;
    memoryWorld.devices[0].infoResult = -304;
    memoryWorld.addDevice(locationId);
    EXPECT_FALSE(startAfresh());
    expectLogged("device_init libiusb_device_get_info failed. -304");
    EXPECT_EQ(memoryWorld.count("libiusb_context_init"), 1);
}

TEST_F(Startup, AnyOtherFailureEndsTheStartAtOnce)
{
    const struct {
        const char *call;
        int n; // 0: success, but no handle
        const char *line;
    } steps[] = {
        {"libiusb_init_ex", 1, "tarnifs_init libiusb_init failed. code : -303"},
        {"libiusb_context_init", 1,
         "tarnifs_init libiusb_context_init failed. code : -303"},
        {"libiusb_device_get_list", 1,
         "device_init libiusb_device_get_list failed. code : -303"},
        {"libiusb_device_open", 1,
         "device_init libiusb_device_open failed. code : -303"},
        {"libiusb_afc_init", 1,
         "device_init libiusb_afc_init failed. code : -303"},
        {"libiusb_instproxy_init", 1,
         "device_init libiusb_instproxy_int failed. code : -303"},
        // The second question is the one after opening.
        {"libiusb_device_get_info", 2,
         "device_init libiusb_device_get_info failed. code : -303"},
        {"libiusb_context_init", 0,
         "tarnifs_init libiusb_context_init succeed, but libiusb_context is "
         "null. code : 0"},
        {"libiusb_afc_init", 0,
         "device_init libiusb_afc_init succeed, but afc_handle is invalid. "
         "code : 0"},
        {"libiusb_instproxy_init", 0,
         "device_init libiusb_instproxy_int succeed, but instproxy_handle is "
         "invalid. code : 0"},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(step.line);
        freshDevice();
        if (step.n == 0) {
            memoryWorld.givesNull = step.call;
        } else {
            memoryWorld.failNamed(step.call, step.n, -303);
        }
        EXPECT_FALSE(startAfresh());
        expectLogged(step.line);
        EXPECT_EQ(memoryWorld.count(step.call), std::max(step.n, 1));
    }
    freshDevice();
    testHost.refuseFolder = true;
    testHost.failBundlePath = true;
    EXPECT_FALSE(startAfresh());
    expectLogged("tarnifs_init getBundlePath failed");
    expectLogged("tarnifs_init private folder refused. path(" +
                 privateFolder() + ")");
    EXPECT_EQ(memoryWorld.calls, Names());
}

TEST_F(Startup, EveryFailingCallLeavesNothingBehind)
{
    forEachDeviceFailure(
        {-32, -30, -62, -212}, [] {}, [this](int) { start(); });
}

using StartupDeathTest = Startup;

TEST_F(StartupDeathTest, AnIncompleteConnectionStopsTheProcess)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    ASSERT_TRUE(start());
    EXPECT_DEATH(
        {
            // The child is a process of its own and has to tidy up itself.
            std::filesystem::remove_all(folder.path);
            context()->afc_handle = nullptr;
            tarni_opers.destroy(context());
        },
        "pContext->afc_handle");
}

} // namespace
