// The emulated cable: latency is latency, bandwidth is bandwidth, both are
// shared and exact. Lower bounds are strict (nothing is faster than the cable);
// upper bounds leave room for a busy machine.

#include <chrono>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>

#include "sim_process.h"

using namespace simtest;

namespace
{

using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point begin)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - begin)
        .count();
}

void makeFile(const std::string &device, size_t size)
{
    std::ofstream file(device + "/Media/general_storage/big", std::ios::binary);
    const std::string piece(1 << 20, 'x');
    for (size_t done = 0; done < size; done += piece.size()) {
        file << piece;
    }
}

// Reads `total` bytes with requests of `piece`, `window` of them in flight;
// returns the milliseconds it took.
double readAll(RawAfc &afc, uint64_t handle, size_t total, size_t piece,
               size_t window)
{
    const auto begin = Clock::now();
    size_t asked = 0;
    size_t got = 0;
    while (got < total) {
        while (asked < total && asked - got < window * piece) {
            afc.post(0x0F, u64(handle) + u64(piece));
            asked += piece;
        }
        const AfcPacket packet = afc.next();
        if (packet.bulk.empty()) {
            ADD_FAILURE() << "read ended at " << got;
            break;
        }
        got += packet.bulk.size();
    }
    return millisecondsSince(begin);
}

class Link : public ::testing::Test
{
  protected:
    TempFolder folder;
    std::string device = makeDevice(folder, "device");

    std::vector<std::string> cable(int rttUs, int mbPerS)
    {
        return {"--tls",      "off",
                "--rtt-us",   std::to_string(rttUs),
                "--mb-per-s", std::to_string(mbPerS)};
    }
};

TEST_F(Link, RoundTripsAddUpOneByOneAndOverlapInAPipeline)
{
    const SimProcess sim(folder, {device}, cable(10000, 0));
    RawAfc afc(sim);
    ASSERT_TRUE(afc.connected());
    const std::string path("/general_storage\0", 17);

    auto begin = Clock::now();
    for (int i = 0; i < 10; i++) {
        EXPECT_TRUE(afc.call(0x0A, path).valid);
    }
    const double oneByOne = millisecondsSince(begin);
    EXPECT_GE(oneByOne, 100);

    begin = Clock::now();
    for (int i = 0; i < 500; i++) {
        afc.post(0x0A, path);
    }
    for (int i = 0; i < 500; i++) {
        EXPECT_TRUE(afc.next().valid);
    }
    const double pipelined = millisecondsSince(begin);
    EXPECT_GE(pipelined, 10);
    EXPECT_LT(pipelined, 500 * 10.0 / 2); // far from one by one
}

TEST_F(Link, BandwidthLimitsEachDirection)
{
    makeFile(device, 8 << 20);
    const SimProcess sim(folder, {device}, cable(1000, 40));
    RawAfc afc(sim);
    ASSERT_TRUE(afc.connected());
    const double floor = 8.388608e6 / 40e6 * 1000;

    const uint64_t source = afc.open("/general_storage/big", 1);
    const double reading = readAll(afc, source, 8 << 20, 1 << 20, 4);
    EXPECT_GE(reading, floor);

    const uint64_t target = afc.open("/general_storage/copy", 3);
    const std::string piece(1 << 20, 'y');
    const auto begin = Clock::now();
    for (int i = 0; i < 8; i++) {
        ASSERT_TRUE(afc.post(0x10, u64(target), piece));
    }
    for (int i = 0; i < 8; i++) {
        EXPECT_EQ(afc.next().status(), 0U);
    }
    const double writing = millisecondsSince(begin);
    EXPECT_GE(writing, floor);
}

TEST_F(Link, ConnectionsOfOneDeviceShareItsBandwidth)
{
    makeFile(device, 4 << 20);
    const SimProcess sim(folder, {device}, cable(1000, 40));
    RawAfc first(sim);
    RawAfc second(sim);
    ASSERT_TRUE(first.connected() && second.connected());
    const uint64_t one = first.open("/general_storage/big", 1);
    const uint64_t two = second.open("/general_storage/big", 1);
    const auto begin = Clock::now();
    double otherEnd = 0;
    std::thread other([&] {
        readAll(first, one, 4 << 20, 1 << 20, 4);
        otherEnd = millisecondsSince(begin);
    });
    readAll(second, two, 4 << 20, 1 << 20, 4);
    const double end = millisecondsSince(begin);
    other.join();
    const double floor = 2 * 4.194304e6 / 40e6 * 1000;
    EXPECT_GE(std::max(end, otherEnd), floor);
    // Fair: the one that ends first had to share nearly to its end.
    EXPECT_GE(std::min(end, otherEnd), floor * 0.8);
}

TEST_F(Link, LatencyTimesBandwidthIsNotCapped)
{
    // 20 ms at 200 MB/s: 4 MB under way.
    makeFile(device, 32 << 20);
    const SimProcess sim(folder, {device}, cable(20000, 200));
    RawAfc afc(sim);
    ASSERT_TRUE(afc.connected());
    const uint64_t source = afc.open("/general_storage/big", 1);
    const double reading = readAll(afc, source, 32 << 20, 1 << 20, 8);
    const double floor = 33.554432e6 / 200e6 * 1000 + 20;
    EXPECT_GE(reading, floor);
    EXPECT_LT(reading, floor * 8);
}

TEST_F(Link, ConnectingCostsARoundTrip)
{
    const SimProcess sim(folder, {device}, cable(30000, 0));
    const RawSocket lockdown(sim.socketPath());
    const auto begin = Clock::now();
    ASSERT_TRUE(muxConnect(lockdown, 1, 62078));
    EXPECT_GE(millisecondsSince(begin), 30);
    ASSERT_TRUE(startSession(lockdown));
    EXPECT_GE(millisecondsSince(begin), 60);
}

TEST_F(Link, UnpluggingEndsWhatIsUnderWay)
{
    makeFile(device, 8 << 20);
    const SimProcess sim(folder, {device}, cable(1000, 10));
    RawAfc afc(sim);
    const uint64_t source = afc.open("/general_storage/big", 1);
    afc.post(0x0F, u64(source) + u64(8 << 20));
    const auto begin = Clock::now();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(sim.control("unplug"), "ok");
    const AfcPacket packet = afc.next();
    EXPECT_LT(packet.bulk.size(), size_t{8} << 20);
    EXPECT_LT(millisecondsSince(begin), 5000);
    EXPECT_TRUE(sim.waitFor("device_connections", 0));
    EXPECT_EQ(sim.stats()["open_files"], 0);
}

} // namespace
