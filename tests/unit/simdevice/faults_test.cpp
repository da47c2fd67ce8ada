// Each command of the control socket does what it says, seen from the wire.

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>

#include "sim_process.h"

using namespace simtest;

namespace
{

constexpr uint64_t kGetFileInfo = 0x0A;
constexpr uint64_t kReadDir = 0x03;
constexpr uint64_t kRead = 0x0F;
constexpr uint64_t kData = 0x02;

const std::string kWelcome = std::string("/general_storage/Welcome.txt") + '\0';
const std::string kWelcomeText = "Hello from the sample device.\n";

// Without an emulated cable, and over one.
class Faults : public ::testing::TestWithParam<const char *>
{
  protected:
    TempFolder folder;
    std::string device = makeDevice(folder, "device");
    SimProcess sim{
        folder,
        {device},
        {"--tls", "off", "--rtt-us", GetParam(), "--mb-per-s", GetParam()}};
    RawAfc afc{sim};

    void SetUp() override { ASSERT_TRUE(afc.connected()); }

    void order(const std::string &command)
    {
        ASSERT_EQ(sim.control(command), "ok") << command;
    }
};

TEST_P(Faults, FailAnswersWithAStatusAfterNAndForCountRequests)
{
    order("fail GetFileInfo 2 20 after=1");
    EXPECT_EQ(afc.call(kGetFileInfo, kWelcome).operation, kData);
    EXPECT_EQ(afc.call(kReadDir, "/").operation, kData); // another kind
    EXPECT_EQ(afc.call(kGetFileInfo, kWelcome).status(), 20U);
    EXPECT_EQ(afc.call(kGetFileInfo, kWelcome).status(), 20U);
    EXPECT_EQ(afc.call(kGetFileInfo, kWelcome).operation, kData);
    EXPECT_EQ(sim.control("faults"), "ok 0");
}

TEST_P(Faults, AFailedWriteTakesItsDataOffTheStream)
{
    const uint64_t file = afc.open("/general_storage/new", 3);
    order("fail FileRefWrite 1 18");
    EXPECT_EQ(afc.call(0x10, u64(file), std::string(300000, 'x')).status(),
              18U);
    EXPECT_EQ(afc.call(0x10, u64(file), "abc").status(), 0U);
    EXPECT_EQ(std::filesystem::file_size(device + "/Media/general_storage/new"),
              3U);
}

TEST_P(Faults, LockdownAndUsbmuxFailWithTheirOwnErrors)
{
    const RawSocket lockdown(sim.socketPath());
    ASSERT_TRUE(muxConnect(lockdown, 1, 62078));
    order("fail StartSession 1 InvalidHostID");
    EXPECT_FALSE(startSession(lockdown));
    EXPECT_TRUE(startSession(lockdown));
    order("fail StartService 1 ServiceLimit");
    EXPECT_EQ(startService(lockdown, "com.apple.afc"), 0);
    EXPECT_NE(startService(lockdown, "com.apple.afc"), 0);
    order("fail Connect 1 3");
    const RawSocket refused(sim.socketPath());
    EXPECT_FALSE(muxConnect(refused, 1, 62078));
    EXPECT_TRUE(muxConnect(refused, 1, 62078));
}

TEST_P(Faults, ServicesFailWithTheirOwnErrors)
{
    order("fail VendDocuments 1 InstallationLookupFailed");
    EXPECT_FALSE(RawAfc(sim, 1, "com.example.notes").connected());
    EXPECT_TRUE(RawAfc(sim, 1, "com.example.notes").connected());
}

TEST_P(Faults, DropClosesInsteadOfAnswering)
{
    order("drop after=2");
    for (int i = 0; i < 3; i++) {
        afc.post(kGetFileInfo, kWelcome);
    }
    EXPECT_TRUE(afc.next().valid);
    EXPECT_TRUE(afc.next().valid);
    EXPECT_TRUE(afc.socket().ended());
    EXPECT_TRUE(RawAfc(sim).connected()); // the device is still there
}

TEST_P(Faults, UnplugAfterRequestsAndAfterBytesEndsEverything)
{
    order("unplug after=1");
    EXPECT_TRUE(afc.call(kGetFileInfo, kWelcome).valid);
    EXPECT_FALSE(afc.call(kGetFileInfo, kWelcome).valid);
    order("plug");
    RawAfc again(sim, 2);
    ASSERT_TRUE(again.connected());
    order("unplug after-bytes=100");
    again.post(kRead, u64(1) + u64(1)); // 56 bytes, answered with 48
    EXPECT_EQ(again.socket().receive(48).size(), 44U);
    EXPECT_TRUE(again.socket().ended());
    order("plug");
    EXPECT_TRUE(RawAfc(sim, 3).connected());
}

TEST_P(Faults, StalledAnswersComeLate)
{
    const std::string requests[] = {"stall on", "stall GetFileInfo 1"};
    for (const std::string &command : requests) {
        order(command);
        afc.post(kGetFileInfo, kWelcome);
        EXPECT_EQ(afc.socket().receiveSome(1, 200), "");
        order("stall off");
        EXPECT_EQ(afc.next().number, afc.lastNumber());
    }
    EXPECT_TRUE(afc.call(kGetFileInfo, kWelcome).valid);
    // A client that gives up while stalled is noticed.
    order("stall on device=0");
    {
        RawSocket impatient(sim.socketPath());
        ASSERT_TRUE(muxConnect(impatient, 1, 62078));
        impatient.send(plistMessage("<key>Request</key>"
                                    "<string>QueryType</string>"));
        EXPECT_TRUE(sim.waitFor("device_connections", 2));
    }
    EXPECT_TRUE(sim.waitFor("device_connections", 1));
}

TEST_P(Faults, DelayAnswersLate)
{
    order("delay GetFileInfo 1 150");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(afc.call(kGetFileInfo, kWelcome).valid);
    EXPECT_GE(std::chrono::steady_clock::now() - begin,
              std::chrono::milliseconds(150));
}

TEST_P(Faults, TruncateCutsAReplyAndClosesOrNot)
{
    order("truncate GetFileInfo 1 50 keep");
    afc.post(kGetFileInfo, kWelcome);
    EXPECT_EQ(afc.socket().receive(50).size(), 50U);
    EXPECT_EQ(afc.socket().receiveSome(1, 100), "");
    EXPECT_TRUE(afc.call(kGetFileInfo, kWelcome).valid);
    order("truncate GetFileInfo 1 17");
    afc.post(kGetFileInfo, kWelcome);
    EXPECT_EQ(afc.socket().receive(40).size(), 17U);
    EXPECT_TRUE(afc.socket().ended());
}

TEST_P(Faults, CorruptSpoilsTheHeader)
{
    const auto corrupted = [&](const std::string &kind) {
        EXPECT_EQ(sim.control("corrupt GetFileInfo 1 " + kind), "ok");
        RawAfc fresh(sim);
        fresh.post(kGetFileInfo, kWelcome);
        const AfcPacket packet = fresh.next();
        return std::pair(packet, fresh.lastNumber());
    };
    EXPECT_FALSE(corrupted("magic").first.valid);
    EXPECT_LT(corrupted("length").first.entire, 40U);
    EXPECT_GE(corrupted("huge").first.entire, uint64_t{1} << 40);
    EXPECT_LT(corrupted("short").first.fixedEnd, 40U);
    EXPECT_NE(corrupted("wrongop").first.operation, kData);
    const auto [packet, number] = corrupted("packetnum");
    EXPECT_NE(packet.number, number);
}

TEST_P(Faults, CorruptRepeatsReordersAndSplits)
{
    order("corrupt GetFileInfo 1 duplicate");
    const AfcPacket first = afc.call(kGetFileInfo, kWelcome);
    EXPECT_EQ(afc.next().bulk, first.bulk);

    order("corrupt GetFileInfo 1 reorder");
    afc.post(kGetFileInfo, kWelcome);
    afc.post(kGetFileInfo, kWelcome);
    const uint64_t swapped = afc.next().number;
    EXPECT_EQ(swapped, afc.lastNumber());
    EXPECT_EQ(afc.next().number, afc.lastNumber() - 1);
    // Without a successor the reply still comes.
    order("corrupt GetFileInfo 1 reorder");
    const uint64_t alone = afc.call(kGetFileInfo, kWelcome).number;
    EXPECT_EQ(alone, afc.lastNumber());

    order("corrupt GetFileInfo 1 splitreply");
    afc.post(kGetFileInfo, kWelcome);
    EXPECT_LT(afc.socket().receiveSome(4096, 1000).size(), 64U);
}

TEST_P(Faults, ShortAndEmptyReadsLeaveThePosition)
{
    const uint64_t file = afc.open("/general_storage/Welcome.txt", 1);
    const std::string request = u64(file) + u64(1000);
    order("zero-read 1");
    EXPECT_EQ(afc.call(kRead, request).bulk, "");
    order("short-read 1");
    const std::string part = afc.call(kRead, request).bulk;
    EXPECT_EQ(part, kWelcomeText.substr(0, kWelcomeText.size() / 2));
    EXPECT_EQ(part + afc.call(kRead, request).bulk, kWelcomeText);
    EXPECT_EQ(afc.call(kRead, request).entire, 40U); // the end
}

TEST_P(Faults, RawNamesAreInListings)
{
    order("names add 612f62"); // a/b
    order("names add fffe");
    order("names raw on");
    const std::string with = afc.call(kReadDir, "/general_storage").bulk;
    EXPECT_NE(with.find(std::string("a/b\0\xFF\xFE\0", 7)), std::string::npos);
    order("names raw off");
    const std::string without = afc.call(kReadDir, "/general_storage").bulk;
    EXPECT_EQ(without.find("a/b"), std::string::npos);
    order("names clear");
}

TEST_P(Faults, SpaceIsTakenGivenBackAndRefused)
{
    order("space 8192");
    const uint64_t file = afc.open("/general_storage/new", 3);
    EXPECT_EQ(afc.call(0x10, u64(file), std::string(8193, 'x')).status(), 18U);
    EXPECT_EQ(afc.call(0x10, u64(file), std::string(8192, 'x')).status(), 0U);
    EXPECT_EQ(afc.call(0x10, u64(file), "x").status(), 18U);
    const std::string info = afc.call(0x0B, "").bulk;
    EXPECT_NE(info.find(std::string("FSFreeBytes\0"
                                    "0\0",
                                    14)),
              std::string::npos);
    EXPECT_EQ(afc.call(0x15, u64(file) + u64(0)).status(), 0U);
    EXPECT_EQ(afc.call(0x11, u64(file) + u64(0) + u64(0)).status(), 0U);
    EXPECT_EQ(afc.call(0x10, u64(file), "x").status(), 0U);
}

TEST_P(Faults, NonsenseOfTheDaemonAndOfLockdown)
{
    // What each kind looks like to a client that believes it.
    order("usbmux-nonsense on");
    const RawSocket text(sim.socketPath());
    text.send(muxRequest("ListDevices"));
    EXPECT_EQ(text.receive(4), "HTTP");
    EXPECT_TRUE(RawSocket(sim.socketPath()).send(muxRequest("ListDevices")));
    for (const char *kind : {"length", "huge", "plist", "types"}) {
        order(std::string("usbmux-nonsense ") + kind);
        const RawSocket socket(sim.socketPath());
        socket.send(muxRequest("ListDevices"));
        EXPECT_EQ(socket.receive(16).size(), 16U) << kind;
    }
    order("usbmux-nonsense silent");
    const RawSocket silent(sim.socketPath());
    silent.send(muxRequest("ListDevices"));
    EXPECT_EQ(silent.receiveSome(1, 100), "");
    order("usbmux-nonsense off");

    const RawSocket lockdown(sim.socketPath());
    ASSERT_TRUE(muxConnect(lockdown, 1, 62078));
    const std::string query =
        plistMessage("<key>Request</key><string>QueryType</string>");
    for (const char *kind : {"garbage", "array", "types"}) {
        order(std::string("lockdown-nonsense ") + kind);
        lockdown.send(query);
        const std::string answer = readPlistMessage(lockdown);
        EXPECT_EQ(answer.find("com.apple.mobile.lockdown"), std::string::npos);
        EXPECT_FALSE(answer.empty());
    }
    order("lockdown-nonsense empty");
    lockdown.send(query);
    EXPECT_EQ(lockdown.receive(4), std::string(4, '\0'));
    order("lockdown-nonsense length");
    lockdown.send(query);
    EXPECT_EQ(lockdown.receive(4), "\xFF\xFF\xFF\xF0");
    order("lockdown-nonsense off");
    lockdown.send(query);
    EXPECT_NE(readPlistMessage(lockdown).find("com.apple.mobile.lockdown"),
              std::string::npos);
}

TEST_P(Faults, StatisticsCountAndForget)
{
    const uint64_t file = afc.open("/general_storage/Welcome.txt", 1);
    afc.call(kRead, u64(file) + u64(7));
    nlohmann::json stats = sim.stats();
    EXPECT_EQ(stats["afc"]["FileRefOpen"], 1);
    EXPECT_EQ(stats["afc"]["FileRefRead"], 1);
    EXPECT_EQ(stats["bytes_read"], 7);
    EXPECT_EQ(stats["open_files"], 1);
    EXPECT_EQ(stats["connections"]["com.apple.afc"], 1);
    EXPECT_EQ(stats["lockdown"]["StartService"], 1);
    EXPECT_EQ(stats["usbmux"]["Connect"], 2);
    order("stats reset");
    stats = sim.stats();
    EXPECT_TRUE(stats["afc"].empty());
    EXPECT_EQ(stats["bytes_read"], 0);
    EXPECT_EQ(stats["open_files"], 1);
}

TEST_P(Faults, RulesCanBeForOneDeviceAndBeForgotten)
{
    EXPECT_EQ(sim.control("fail any 1 20 device=7"), "error no such device");
    order("fail any 1 20 device=0");
    EXPECT_EQ(afc.call(kGetFileInfo, kWelcome).status(), 20U);
    order("fail any 1000 20");
    order("faults clear");
    EXPECT_TRUE(afc.call(kGetFileInfo, kWelcome).valid);
}

TEST_P(Faults, BadCommandsAreRefusedInWords)
{
    for (const char *command :
         {"", "nonsense", "fail", "fail ReadDir x 1", "fail Readdir 1 1",
          "fail ReadDir 0 1", "corrupt any 1 strange", "trust maybe",
          "trust pending", "plug", "plug 9", "plug location=99999999999",
          "names add 6", "names add zz", "space lots", "unplug after-bytes=x",
          "date 5", "delay any 1 -1", "usbmux-nonsense sometimes"}) {
        const std::string answer = sim.control(command);
        EXPECT_TRUE(answer.starts_with("error ")) << command << ": " << answer;
    }
    EXPECT_TRUE(afc.call(kGetFileInfo, kWelcome).valid);
}

TEST_P(Faults, TheShellCommandReportsTheAnswer)
{
    const RunResult good =
        runProgram({SIM_PROGRAM, "ctl", sim.controlPath(), "date", "+3600"});
    EXPECT_EQ(good.status, 0);
    EXPECT_TRUE(good.output.starts_with("ok "));
    EXPECT_GT(std::stoll(good.output.substr(3)), time(nullptr) + 3500);
    EXPECT_EQ(
        runProgram({SIM_PROGRAM, "ctl", sim.controlPath(), "rubbish"}).status,
        1);
    EXPECT_EQ(runProgram({SIM_PROGRAM, "ctl", folder.path() + "/none", "stats"})
                  .status,
              1);
}

std::string cableName(const ::testing::TestParamInfo<const char *> &cable)
{
    return cable.param[0] == '0' ? "direct" : "cable";
}

// 0: none; 200: 200 microseconds and 200 MB/s.
INSTANTIATE_TEST_SUITE_P(Wire, Faults, ::testing::Values("0", "200"),
                         cableName);

} // namespace
