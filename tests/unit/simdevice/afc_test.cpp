// AFC as devices have it: status codes, the jail, limits, links.

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "sim_process.h"

using namespace simtest;

namespace
{

namespace fs = std::filesystem;

enum Op : uint64_t {
    kReadDir = 0x03,
    kReadFile = 0x04,
    kTruncate = 0x07,
    kRemove = 0x08,
    kMakeDir = 0x09,
    kInfo = 0x0A,
    kOpen = 0x0D,
    kRead = 0x0F,
    kWrite = 0x10,
    kSeek = 0x11,
    kTell = 0x12,
    kClose = 0x14,
    kSetSize = 0x15,
    kRename = 0x18,
    kLock = 0x1B,
    kLink = 0x1C,
    kHash = 0x1D,
    kRemoveTree = 0x22,
};

std::string z(const std::string &text)
{
    return text + '\0';
}

class Afc : public ::testing::Test
{
  protected:
    TempFolder folder;
    std::string device = makeDevice(folder, "device");
    SimProcess sim{
        folder,
        {device},
        {"--tls", "off", "--max-files", "3", "--max-house-arrest", "2"}};
    RawAfc afc{sim};
    std::string media = device + "/Media/";

    void SetUp() override { ASSERT_TRUE(afc.connected()); }
    uint64_t status(uint64_t op, const std::string &fixed)
    {
        return afc.call(op, fixed).status();
    }
};

TEST_F(Afc, StatusCodesAreThoseOfDevices)
{
    EXPECT_EQ(status(kInfo, "/nosuch"), 8U);
    EXPECT_EQ(status(kInfo, "/general_storage/Welcome.txt/x"), 4U);
    EXPECT_EQ(status(kReadDir, "/general_storage/Welcome.txt"), 4U);
    EXPECT_EQ(status(kOpen, u64(1) + "/nosuch"), 8U);
    EXPECT_EQ(status(kOpen, u64(3) + "/nosuch/x"), 8U);
    EXPECT_EQ(status(kOpen, u64(1) + "/general_storage"), 9U);
    EXPECT_EQ(status(kOpen, u64(3) + "/general_storage"), 9U);
    EXPECT_EQ(status(kOpen, u64(0) + "/x"), 7U);
    EXPECT_EQ(status(kMakeDir, "/general_storage/Projects"), 0U);
    EXPECT_EQ(status(kMakeDir, "/a/b/c/"), 0U);
    EXPECT_TRUE(fs::is_directory(media + "a/b/c"));
    EXPECT_EQ(status(kMakeDir, "/general_storage/Welcome.txt/x"), 16U);
    EXPECT_EQ(status(kMakeDir, "/general_storage/Welcome.txt"), 16U);
    EXPECT_EQ(status(kRemove, "/a"), 1U);
    EXPECT_EQ(status(kRemove, "/nosuch"), 8U);
    EXPECT_EQ(status(kRemove, "/a/b/c"), 0U);
    EXPECT_EQ(status(kRemoveTree, "/general_storage/Projects"), 0U);
    EXPECT_FALSE(fs::exists(media + "general_storage/Projects"));
    EXPECT_EQ(status(kRead, u64(77) + u64(1)), 7U);
    EXPECT_EQ(status(kClose, u64(77)), 7U);
    EXPECT_EQ(status(0x27, u64(1) + u64(0) + u64(1)), 15U);
    EXPECT_EQ(status(0x99, ""), 6U);
}

TEST_F(Afc, RenameFollowsThePosixRules)
{
    const auto rename = [&](const std::string &from, const std::string &to) {
        return status(kRename, z(from) + z(to));
    };
    EXPECT_EQ(rename("/nosuch", "/x"), 8U);
    EXPECT_EQ(
        rename("/general_storage/Welcome.txt", "/general_storage/Empty.txt/x"),
        4U);
    EXPECT_EQ(
        rename("/general_storage/Welcome.txt", "/general_storage/Welcome.txt"),
        0U);
    EXPECT_EQ(
        rename("/general_storage/Welcome.txt", "/general_storage/Empty.txt"),
        0U);
    EXPECT_EQ(fs::file_size(media + "general_storage/Empty.txt"), 30U);
    EXPECT_EQ(
        rename("/general_storage/Empty folder", "/general_storage/Projects"),
        1U);
    EXPECT_EQ(rename("/", "/x"), 10U);
}

TEST_F(Afc, NothingLeadsOutOfTheRoot)
{
    std::ofstream(device + "/outside") << "secret";
    fs::create_symlink("../outside", media + "file-link");
    fs::create_directory_symlink("..", media + "folder-link");
    fs::create_symlink("general_storage/Welcome.txt", media + "inside-link");
    EXPECT_EQ(status(kOpen, u64(1) + "/file-link"), 10U);
    EXPECT_EQ(status(kInfo, "/folder-link/outside"), 10U);
    EXPECT_EQ(status(kReadDir, "/folder-link"), 10U);
    EXPECT_EQ(status(kOpen, u64(3) + "/folder-link/new"), 10U);
    EXPECT_EQ(status(kInfo, "/../outside"), 8U);
    EXPECT_EQ(status(kRemove, "/general_storage/.."), 10U);
    EXPECT_FALSE(fs::exists(device + "/new"));
    // Links inside are followed for reading, and described as links.
    EXPECT_EQ(afc.call(kReadFile, "/inside-link").bulk.size(), 30U);
    const std::string info = afc.call(kInfo, "/inside-link").bulk;
    EXPECT_NE(info.find(z("S_IFLNK")), std::string::npos);
    EXPECT_NE(info.find(z("LinkTarget") + z("general_storage/Welcome.txt")),
              std::string::npos);
}

TEST_F(Afc, HandlesHaveOnePositionAndAreFew)
{
    const uint64_t file = afc.open("/general_storage/f", 2);
    EXPECT_EQ(afc.call(kWrite, u64(file), "0123456789").status(), 0U);
    EXPECT_EQ(
        status(kSeek, u64(file) + u64(1) + u64(static_cast<uint64_t>(-4))), 0U);
    EXPECT_EQ(afc.call(kTell, u64(file)).value(), 6U);
    EXPECT_EQ(afc.call(kRead, u64(file) + u64(2)).bulk, "67");
    EXPECT_EQ(status(kSeek, u64(file) + u64(0) + u64(12)), 0U);
    EXPECT_EQ(afc.call(kWrite, u64(file), "x").status(), 0U);
    EXPECT_EQ(fs::file_size(media + "general_storage/f"), 13U);

    const uint64_t appended = afc.open("/general_storage/f", 5);
    status(kSeek, u64(appended) + u64(0) + u64(0));
    afc.call(kWrite, u64(appended), "end");
    EXPECT_EQ(fs::file_size(media + "general_storage/f"), 16U);
    EXPECT_EQ(status(kRead, u64(appended) + u64(1)), 7U);

    EXPECT_EQ(afc.open("/general_storage/f", 1), 3U);
    EXPECT_EQ(status(kOpen, u64(1) + "/general_storage/f"), 3U);
    EXPECT_EQ(status(kClose, u64(appended)), 0U);
    EXPECT_EQ(afc.open("/general_storage/f", 3), 4U);
    EXPECT_EQ(fs::file_size(media + "general_storage/f"), 0U);
    // Locks are between handles; another connection's count too.
    EXPECT_EQ(status(kLock, u64(file) + u64(6)), 0U);
    RawAfc other(sim);
    const uint64_t others = other.open("/general_storage/f", 1);
    EXPECT_EQ(others, 1U);
    EXPECT_EQ(other.call(kLock, u64(others) + u64(5)).status(), 19U);
    EXPECT_EQ(status(kLock, u64(file) + u64(12)), 0U);
    EXPECT_EQ(other.call(kLock, u64(others) + u64(5)).status(), 0U);
}

TEST_F(Afc, SparseFilesBeyondFourGigabytes)
{
    const uint64_t far = uint64_t{5} << 30;
    const uint64_t file = afc.open("/general_storage/sparse", 2);
    EXPECT_EQ(status(kSetSize, u64(file) + u64(far + 4)), 0U);
    EXPECT_EQ(status(kSeek, u64(file) + u64(0) + u64(far)), 0U);
    EXPECT_EQ(afc.call(kWrite, u64(file), "tail").status(), 0U);
    EXPECT_EQ(status(kSeek, u64(file) + u64(0) + u64(far - 2)), 0U);
    EXPECT_EQ(afc.call(kRead, u64(file) + u64(100)).bulk,
              std::string("\0\0tail", 6));
    const std::string info = afc.call(kInfo, "/general_storage/sparse").bulk;
    EXPECT_TRUE(info.starts_with(z("st_size") + z("5368709124")));
    // More than the device has.
    EXPECT_EQ(
        status(kTruncate, u64(uint64_t{1} << 40) + "/general_storage/sparse"),
        18U);
}

TEST_F(Afc, LinksAndDigests)
{
    EXPECT_EQ(status(kLink, u64(2) + z("../x") + z("/general_storage/sym")),
              0U);
    EXPECT_EQ(fs::read_symlink(media + "general_storage/sym"), "../x");
    EXPECT_EQ(status(kLink, u64(1) + z("/general_storage/Welcome.txt") +
                                z("/general_storage/hard")),
              0U);
    EXPECT_EQ(fs::hard_link_count(media + "general_storage/hard"), 2U);
    const std::string digest =
        afc.call(kHash, "/general_storage/Empty.txt").bulk;
    EXPECT_EQ(digest.substr(0, 4), "\xDA\x39\xA3\xEE"); // SHA-1 of nothing
}

TEST_F(Afc, ManyNamesComeInOneAnswer)
{
    fs::create_directory(media + "many");
    for (int i = 0; i < 3000; i++) {
        std::ofstream(media + "many/" + std::string(200, 'n') +
                      std::to_string(i));
    }
    const std::string names = afc.call(kReadDir, "/many").bulk;
    EXPECT_TRUE(names.starts_with(z(".") + z("..")));
    EXPECT_EQ(std::count(names.begin(), names.end(), '\0'), 3002);
}

TEST_F(Afc, HouseArrestIsLimited)
{
    RawAfc first(sim, 1, "com.example.notes");
    ASSERT_TRUE(first.connected());
    {
        const RawAfc second(sim, 1, "org.example.quicknotes");
        EXPECT_TRUE(second.connected());
        EXPECT_FALSE(RawAfc(sim, 1, "com.example.reader").connected());
    }
    EXPECT_TRUE(sim.waitFor("house_arrest_connections", 1));
    EXPECT_TRUE(RawAfc(sim, 1, "com.example.reader").connected());
    EXPECT_EQ(first.call(kInfo, "/Documents/../../../device.plist").status(),
              10U);
}

} // namespace
