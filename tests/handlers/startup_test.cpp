// Start-up and shut-down, against devices in every state.
#include "tarnifs/mount/startup.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "device/libiusb.h"
#include "tarnifs/notify/tray_pipe.h"
#include "tests/handlers/fixture.h"

namespace
{

const std::vector<int> CODES = {-32, -30, -62, -212};

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
};

TEST_F(Startup, ConnectsAndTakesEverythingDownAgain)
{
    TrayReader tray(trayPipePath);
    ASSERT_TRUE(start());
    EXPECT_EQ(tray.readBytes(6), "-neoff");
    EXPECT_STREQ(context()->pLocationId, std::to_string(locationId).c_str());
    EXPECT_STREQ(context()->device_info.device_name, "Device 1");
    EXPECT_EQ(memoryWorld.calls.front(),
              "libiusb_init_ex /opt/quorvel/Contents/Resources");
    struct stat st {
    };
    ASSERT_EQ(lstat(privateFolder().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777U, 0700U);
    expectLogged("device_init Connected device 0 : " +
                 testing::PrintToString(reinterpret_cast<void *>(
                     static_cast<uintptr_t>(locationId))));
    expectLogged("device_init Device Name : Device 1");
    expectLogged("device_init Device iOS Version : 17.5");
    EXPECT_EQ(pauses, std::vector<unsigned>{100000});

    std::ofstream(privateFolder() + "/leftover") << "x";
    list("/");
    list("/Storage");
    unmount();
    EXPECT_EQ(memoryWorld.open(), "");
    EXPECT_TRUE(Object_list.empty());
    EXPECT_EQ(gEncodedPath, nullptr);
}

TEST_F(Startup, FindsADeviceThatShowsUpLate)
{
    memoryWorld.devices[0].hiddenLists = 5;
    EXPECT_TRUE(start());
    EXPECT_EQ(countLogged("device_init no devices."), 5);
    EXPECT_EQ(pauses.size(), 6U);
    EXPECT_EQ(memoryWorld.count("libiusb_context_exit"), 5);
}

TEST_F(Startup, GivesUpAfterElevenLooks)
{
    TrayReader tray(trayPipePath);
    memoryWorld.devices[0].hiddenLists = 100;
    EXPECT_FALSE(start());
    EXPECT_EQ(countLogged("device_init no devices."), 11);
    EXPECT_EQ(memoryWorld.count("libiusb_context_init"), 11);
    EXPECT_EQ(tray.readBytes(6), "-neoff");
}

TEST_F(Startup, AFailedStartLeavesHandlersThatRefuse)
{
    memoryWorld.devices.clear();
    ASSERT_FALSE(start());
    struct stat st {
    };
    struct statvfs volume {
    };
    tarni_file_info fi;
    const tarni_setattr attr;
    char buffer[8];
    EXPECT_EQ(tarni_opers.getattr("/", &st), -ENOSYS);
    EXPECT_EQ(tarni_opers.fgetattr("/", &st, &fi), -ENOSYS);
    EXPECT_EQ(tarni_opers.setattr_x("/x", &attr), -ENOSYS);
    EXPECT_EQ(tarni_opers.fsetattr_x("/x", &attr, &fi), -ENOSYS);
    EXPECT_EQ(tarni_opers.statfs("/", &volume), -ENOSYS);
    EXPECT_EQ(tarni_opers.readdir("/", nullptr, nullptr, 0, &fi), -ENOSYS);
    EXPECT_EQ(tarni_opers.open("/x", &fi), -ENOSYS);
    EXPECT_EQ(tarni_opers.read("/x", buffer, 8, 0, &fi), -ENOSYS);
    EXPECT_EQ(tarni_opers.write("/x", buffer, 8, 0, &fi), -ENOSYS);
    EXPECT_EQ(tarni_opers.release("/x", &fi), -ENOSYS);
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
    EXPECT_TRUE(start());
    const std::vector<unsigned> waited = {100000, 3000000, 3000000, 200000};
    EXPECT_EQ(pauses, waited);
    expectLogged("device_init libiusb fail cause trust dialog. retry(0/10)");
    expectLogged("device_init libiusb fail cause trust dialog. retry(1/10)");
    EXPECT_EQ(memoryWorld.count("libiusb_device_get_list"), 2);
    EXPECT_EQ(memoryWorld.count("libiusb_device_open"), 4);
    EXPECT_EQ(memoryWorld.count("libiusb_device_close"), 1);
}

TEST_F(Startup, StopsWaitingForTrustAfterTenPrompts)
{
    memoryWorld.devices[0].openResults.assign(50, -45);
    EXPECT_FALSE(start());
    EXPECT_EQ(memoryWorld.count("libiusb_device_open"), 10);
    expectLogged("device_init libiusb_device_open failed. code : -45");
}

TEST_F(Startup, ADeviceThatKeepsAskingDoesNotHoldTheMountForEver)
{
    for (int i = 0; i < 100; ++i) {
        memoryWorld.devices[0].openResults.push_back(i % 2 == 0 ? -45 : 0);
    }
    EXPECT_FALSE(start());
    EXPECT_LE(memoryWorld.count("libiusb_device_open"), 20);
}

TEST_F(Startup, ADeviceUnpluggedDuringThePromptIsNotThere)
{
    memoryWorld.devices[0].openResults = {-45, 0};
    // Gone from the second list on.
    tarniPause = [](unsigned microseconds) {
        if (microseconds == 200000) {
            memoryWorld.devices[0].hiddenLists = 1000;
        }
    };
    EXPECT_FALSE(start());
    EXPECT_EQ(countLogged("device_init no devices."), 11);
}

TEST_F(Startup, TheLocationDecidesAmongDevices)
{
    for (const size_t place : {0U, 1U, 2U}) {
        freshDevice();
        testHost.reset();
        memoryWorld.devices[0].info.location_id = 0; // over Wi-Fi
        memoryWorld.addDevice(17);
        memoryWorld.addDevice(18);
        memoryWorld.devices[place].info.location_id = locationId;
        ASSERT_TRUE(start());
        EXPECT_EQ(context()->device_info.device_name,
                  "Device " + std::to_string(place + 1));
        unmount();
    }
}

TEST_F(Startup, NoIdMatchesNoDevice)
{
    memoryWorld.devices[0].info.location_id = 0;
    locationId = 0;
    EXPECT_FALSE(start());
    EXPECT_EQ(countLogged("device_init no devices."), 11);
}

TEST_F(Startup, ANeighbourWhoseInformationFailsEndsTheStart)
{
    memoryWorld.devices[0].info.location_id = 17;
    memoryWorld.devices[0].infoResult = -304;
    memoryWorld.addDevice(locationId);
    EXPECT_FALSE(start());
    expectLogged("device_init libiusb_device_get_info failed. -304");
    EXPECT_EQ(memoryWorld.count("libiusb_context_init"), 1);
}

TEST_F(Startup, AnyOtherCodeEndsTheStartAtOnce)
{
    const std::vector<std::pair<std::string, std::string>> steps = {
        {"libiusb_init_ex", "tarnifs_init libiusb_init failed. code : -303"},
        {"libiusb_context_init",
         "tarnifs_init libiusb_context_init failed. code : -303"},
        {"libiusb_device_get_list",
         "device_init libiusb_device_get_list failed. code : -303"},
        {"libiusb_device_open",
         "device_init libiusb_device_open failed. code : -303"},
        {"libiusb_afc_init",
         "device_init libiusb_afc_init failed. code : -303"},
        {"libiusb_instproxy_init",
         "device_init libiusb_instproxy_int failed. code : -303"},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(step.first);
        freshDevice();
        forgetLog();
        memoryWorld.failNamed(step.first, 1, -303);
        EXPECT_FALSE(start());
        expectLogged(step.second);
        EXPECT_EQ(memoryWorld.count(step.first), 1);
        EXPECT_EQ(memoryWorld.open(), "");
        EXPECT_FALSE(std::filesystem::exists(privateFolder()));
    }
    // The second question is the one after opening.
    freshDevice();
    forgetLog();
    memoryWorld.failNamed("libiusb_device_get_info", 2, -303);
    EXPECT_FALSE(start());
    expectLogged("device_init libiusb_device_get_info failed. code : -303");
}

TEST_F(Startup, ASuccessWithoutAHandleIsAFailure)
{
    const std::vector<std::pair<std::string, std::string>> steps = {
        {"libiusb_context_init",
         "tarnifs_init libiusb_context_init succeed, but libiusb_context is "
         "null. code : 0"},
        {"libiusb_afc_init", "device_init libiusb_afc_init succeed, but "
                             "afc_handle is invalid. code : 0"},
        {"libiusb_instproxy_init",
         "device_init libiusb_instproxy_int succeed, but instproxy_handle is "
         "invalid. code : 0"},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(step.first);
        freshDevice();
        forgetLog();
        memoryWorld.givesNull = step.first;
        EXPECT_FALSE(start());
        expectLogged(step.second);
        EXPECT_EQ(memoryWorld.open(), "");
    }
}

TEST_F(Startup, ARefusedPrivateFolderEndsTheStart)
{
    testHost.refuseFolder = true;
    testHost.failBundlePath = true;
    EXPECT_FALSE(start());
    expectLogged("tarnifs_init getBundlePath failed");
    expectLogged("tarnifs_init private folder refused. path(" +
                 privateFolder() + ")");
    EXPECT_EQ(memoryWorld.calls, std::vector<std::string>());
}

TEST_F(Startup, AFailedStartLeavesAFolderThatWasThereBefore)
{
    std::filesystem::create_directory(privateFolder());
    memoryWorld.devices.clear();
    EXPECT_FALSE(start());
    EXPECT_TRUE(std::filesystem::remove(privateFolder()));
}

TEST_F(Startup, EveryFailingCallLeavesNothingBehind)
{
    forEachDeviceFailure(
        CODES, [] {}, [this](int) { start(); });
}

TEST_F(Startup, ShutDownClosesWhatOperationsLeftOpen)
{
    memoryWorld.devices[0].media.addFile("/general_storage/a", "1");
    ASSERT_TRUE(start());
    addApp("Notes", "com.example.notes", {"n.txt"});
    list("/Storage");
    tarni_file_info one;
    tarni_file_info two;
    EXPECT_EQ(open("/Storage/a", &one), 0);
    EXPECT_EQ(open("/Apps/Notes/n.txt", &two), 0);
    EXPECT_EQ(tarni_opers.setxattr("/Storage/a", "tag", "v", 1, 0, 0), 0);
    QueueTransfer(TRANSFER_READ, 1, "x");
    unmount();
    EXPECT_EQ(memoryWorld.open(), "");
    EXPECT_TRUE(gQueue.empty());
}

TEST_F(Startup, ShutDownEndsADialogThatIsOnTheScreen)
{
    ASSERT_TRUE(start());
    testHost.holdDialogs();
    int ret = 0;
    list("/Nowhere", &ret);
    EXPECT_EQ(ret, -ECANCELED);
    EXPECT_EQ(testHost.waitForDialogs(1).size(), 1U);
    unmount();
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
