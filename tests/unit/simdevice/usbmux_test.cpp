// The simulated usbmux daemon: list, events, pair records, several devices,
// and clients that talk nonsense.

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "sim_process.h"

using namespace simtest;

namespace
{

std::string listDevices(const SimProcess &sim)
{
    const RawSocket socket(sim.socketPath());
    socket.send(muxRequest("ListDevices"));
    return readMux(socket);
}

size_t countOf(const std::string &text, const std::string &piece)
{
    size_t count = 0;
    for (size_t at = text.find(piece); at != std::string::npos;
         at = text.find(piece, at + 1)) {
        count++;
    }
    return count;
}

uint64_t resultOf(const RawSocket &socket)
{
    return integerOf(readMux(socket), "Number").value_or(999);
}

std::vector<std::string> twoDevices(const TempFolder &folder)
{
    return {
        makeDevice(folder, "one", {"--udid", "00008101-AAAA"}),
        makeDevice(folder, "two",
                   {"--udid", "00008101-BBBB", "--location-id", "4294967295"})};
}

TEST(Usbmux, DevicesComeAndGoWithNewNumbersAndLocations)
{
    const TempFolder folder;
    const SimProcess sim(folder, twoDevices(folder), {"--unplugged"});
    EXPECT_EQ(countOf(listDevices(sim), "SerialNumber"), 0U);
    EXPECT_EQ(sim.control("plug 1"), "ok");
    EXPECT_EQ(sim.control("plug 00008101-AAAA"), "ok");
    std::string list = listDevices(sim);
    EXPECT_LT(list.find("BBBB"), list.find("AAAA")); // the order of plugging
    EXPECT_EQ(integerOf(list, "DeviceID"), 1U);
    EXPECT_EQ(integerOf(list, "LocationID"), 4294967295U);
    EXPECT_EQ(sim.control("unplug 1"), "ok");
    EXPECT_EQ(sim.control("plug 1 location=17"), "ok");
    list = listDevices(sim);
    EXPECT_LT(list.find("AAAA"), list.find("BBBB"));
    EXPECT_EQ(integerOf(list.substr(list.find("AAAA")), "DeviceID"), 2U);
    EXPECT_EQ(integerOf(list.substr(list.find("BBBB")), "DeviceID"), 3U);
    EXPECT_NE(list.find("<integer>17</integer>"), std::string::npos);
    EXPECT_EQ(sim.control("unplug all"), "ok");
    EXPECT_EQ(sim.control("unplug"), "error not plugged");
}

TEST(Usbmux, ListenersHearOfDevices)
{
    const TempFolder folder;
    const SimProcess sim(folder, {makeDevice(folder, "one")}, {});
    const RawSocket listener(sim.socketPath());
    listener.send(muxRequest("Listen"));
    EXPECT_EQ(resultOf(listener), 0U);
    EXPECT_NE(readMux(listener).find("Attached"), std::string::npos);
    EXPECT_EQ(sim.control("unplug"), "ok");
    const std::string gone = readMux(listener);
    EXPECT_NE(gone.find("Detached"), std::string::npos);
    EXPECT_EQ(integerOf(gone, "DeviceID"), 1U);
    EXPECT_EQ(sim.control("plug"), "ok");
    EXPECT_EQ(integerOf(readMux(listener), "DeviceID"), 2U);
}

TEST(Usbmux, PairRecordsAreKeptOverARestart)
{
    const TempFolder folder;
    const std::string device = makeDevice(folder, "one");
    const std::string id = "<key>PairRecordID</key><string>"
                           "00008110-000A1C2E3F40801E</string>";
    const std::string data = "<key>PairRecordData</key><data>AQID</data>";
    {
        const SimProcess sim(folder, {device}, {});
        const RawSocket socket(sim.socketPath());
        socket.send(muxRequest("ReadPairRecord", id));
        EXPECT_EQ(resultOf(socket), 2U); // never 0: clients crash on it
        const RawSocket listener(sim.socketPath());
        listener.send(muxRequest("Listen"));
        resultOf(listener);
        readMux(listener);
        socket.send(muxRequest("SavePairRecord", id + data));
        EXPECT_EQ(resultOf(socket), 0U);
        EXPECT_NE(readMux(listener).find("Paired"), std::string::npos);
    }
    const SimProcess sim(folder, {device}, {});
    const RawSocket socket(sim.socketPath());
    socket.send(muxRequest("ReadPairRecord", id));
    EXPECT_NE(readMux(socket).find("AQID"), std::string::npos);
    socket.send(muxRequest("DeletePairRecord", id));
    EXPECT_EQ(resultOf(socket), 0U);
    socket.send(muxRequest("DeletePairRecord", id));
    EXPECT_EQ(resultOf(socket), 2U);
}

TEST(Usbmux, WifiEntriesHaveNoLocationAndOutliveTheCable)
{
    const TempFolder folder;
    const SimProcess sim(folder, {makeDevice(folder, "one")},
                         {"--wifi", "--tls", "off"});
    std::string list = listDevices(sim);
    EXPECT_EQ(countOf(list, "SerialNumber"), 2U);
    EXPECT_EQ(countOf(list, "LocationID"), 1U);
    EXPECT_EQ(countOf(list, "NetworkAddress"), 1U);
    EXPECT_EQ(sim.control("unplug"), "ok");
    list = listDevices(sim);
    EXPECT_EQ(countOf(list, "SerialNumber"), 1U);
    EXPECT_NE(list.find("Network"), std::string::npos);
    EXPECT_TRUE(RawAfc(sim, 2).connected());
}

TEST(Usbmux, UnknownNumbersAndPortsAreRefused)
{
    const TempFolder folder;
    const SimProcess sim(folder, {makeDevice(folder, "one")}, {"--tls", "off"});
    const RawSocket socket(sim.socketPath());
    const auto connect = [&](int device, int port) {
        socket.send(muxRequest(
            "Connect", "<key>DeviceID</key><integer>" + std::to_string(device) +
                           "</integer><key>PortNumber</key><integer>" +
                           std::to_string(port) + "</integer>"));
        return resultOf(socket);
    };
    EXPECT_EQ(connect(9, 32498), 2U);
    EXPECT_EQ(connect(1, 1234), 3U);
    socket.send(muxRequest("Dance"));
    EXPECT_EQ(resultOf(socket), 1U);
    // A service port is good for one connection.
    const RawSocket lockdown(sim.socketPath());
    ASSERT_TRUE(muxConnect(lockdown, 1, 62078));
    ASSERT_TRUE(startSession(lockdown));
    const uint16_t port = startService(lockdown, "com.apple.afc");
    const RawSocket first(sim.socketPath());
    const RawSocket second(sim.socketPath());
    EXPECT_TRUE(muxConnect(first, 1, port));
    EXPECT_FALSE(muxConnect(second, 1, port));
}

// Clients that talk nonsense lose their connection, nobody else does.
TEST(Usbmux, NonsenseCostsOnlyItsOwnConnection)
{
    const TempFolder folder;
    const SimProcess sim(folder, {makeDevice(folder, "one")}, {"--tls", "off"});
    RawAfc bystander(sim);
    ASSERT_TRUE(bystander.connected());

    std::string deep;
    for (int i = 0; i < 6000; i++) {
        deep += "<array>";
    }
    const std::string mux[] = {
        "GET / HTTP/1.0\r\n\r\n",
        std::string(16, '\xFF'),
        std::string(16, '\0'),
        usbmuxFrame("<key>x</key>" + deep),
        usbmuxFrame("<key>DeviceID</key><string>1</string>"),
        muxRequest("Connect"),
        muxRequest("SavePairRecord"),
    };
    for (const std::string &bytes : mux) {
        const RawSocket socket(sim.socketPath());
        socket.send(bytes);
        socket.receiveSome(4096, 50);
    }
    const std::string lockdown[] = {
        std::string(4, '\xFF'),
        std::string("\0\0\0\4junk", 8),
        plistMessage("<key>Request</key><array/>"),
        plistMessage("<key>Request</key><string>Pair</string>"
                     "<key>PairRecord</key><dict/>"),
        plistMessage("<key>Request</key><string>StartSession</string>"
                     "<key>HostID</key><string>nobody</string>"),
    };
    for (const std::string &bytes : lockdown) {
        const RawSocket socket(sim.socketPath());
        ASSERT_TRUE(muxConnect(socket, 1, 62078));
        socket.send(bytes);
        socket.receiveSome(4096, 50);
    }
    const std::string afc[] = {
        std::string(40, 'x'),
        "CFA6LPAA" + u64(39) + u64(40) + u64(1) + u64(3),
        "CFA6LPAA" + u64(UINT64_MAX) + u64(40) + u64(1) + u64(3),
        "CFA6LPAA" + u64(1 << 20) + u64(1 << 20) + u64(1) + u64(3),
        afcRequest(1, 0x0D, "short"),
        afcRequest(1, 0x11, u64(1)),
        afcRequest(1, 0x0D, u64(99) + "/x"),
        afcRequest(1, 0xFFFF, ""),
        afcRequest(1, 0x10, u64(7), std::string(100000, 'x')),
        afcRequest(1, 0x0F, u64(1) + u64(UINT64_MAX)),
        afcRequest(1, 0x18, "no-nul"),
    };
    for (const std::string &bytes : afc) {
        RawAfc client(sim);
        ASSERT_TRUE(client.connected());
        client.socket().send(bytes);
        client.socket().receiveSome(4096, 50);
    }
    EXPECT_TRUE(bystander.call(0x03, "/").valid);
    EXPECT_TRUE(sim.waitFor("device_connections", 1));
}

TEST(Usbmux, TwoSimulatorsDoNotShareASocket)
{
    const TempFolder folder;
    const std::string device = makeDevice(folder, "one");
    const SimProcess sim(folder, {device}, {});
    const RunResult second = runProgram(
        {SIM_PROGRAM, "run", "--socket", sim.socketPath(), "--device", device});
    EXPECT_EQ(second.status, 1);
    EXPECT_NE(second.output.find("in use"), std::string::npos);
    std::ofstream(folder.path() + "/file") << "precious";
    const RunResult third =
        runProgram({SIM_PROGRAM, "run", "--socket", folder.path() + "/file",
                    "--device", device});
    EXPECT_EQ(third.status, 1);
    EXPECT_TRUE(std::filesystem::exists(folder.path() + "/file"));
}

TEST(Usbmux, BadDeviceFoldersAreNamed)
{
    const TempFolder folder;
    const std::string device = makeDevice(folder, "one");
    const auto run = [&](const std::string &path) {
        return runProgram({SIM_PROGRAM, "run", "--socket",
                           folder.path() + "/mux", "--device", path})
            .output;
    };
    EXPECT_NE(run(folder.path() + "/none").find("/none/device.plist"),
              std::string::npos);
    std::ofstream(device + "/device.plist") << "rubbish";
    EXPECT_NE(run(device).find("not an XML property list"), std::string::npos);
}

} // namespace
