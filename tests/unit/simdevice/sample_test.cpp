// Sample devices, and the small pieces that only code can reach.

#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "sim_process.h"
#include "simdevice/device_folder.h"
#include "simdevice/jpeg.h"
#include "simdevice/keys.h"
#include "simdevice/plist.h"
#include "simdevice/sample_maker.h"

using namespace simtest;

namespace
{

namespace fs = std::filesystem;

// Names, times and bytes of everything in a folder.
std::string describe(const std::string &folder)
{
    std::vector<std::string> lines;
    for (const auto &entry : fs::recursive_directory_iterator(folder)) {
        std::string text;
        if (entry.is_regular_file()) {
            sim::readFile(entry.path().string(), text);
        }
        const std::string name = entry.path().string().substr(folder.size());
        const auto time = fs::last_write_time(entry).time_since_epoch();
        lines.push_back(
            name +
            (name == "/device.plist" ? "" : std::to_string(time.count())) +
            text);
    }
    std::sort(lines.begin(), lines.end());
    std::string all;
    for (const std::string &line : lines) {
        all += line + "\n";
    }
    return all;
}

TEST(Sample, TheSameOptionsGiveTheSameDevice)
{
    const TempFolder folder;
    const std::vector<std::string> options = {
        "--ios",    "15.2.1", "--name",  "Fr\xC3\xB6hlich",
        "--apps",   "6",      "--free",  "1000000",
        "--photos", "3",      "--trust", "pending:2",
        "--songs",  "2",      "--cloud"};
    const auto make = [&](const std::string &name) {
        std::vector<std::string> arguments = {SIM_PROGRAM, "make",
                                              folder.path() + "/" + name};
        arguments.insert(arguments.end(), options.begin(), options.end());
        EXPECT_EQ(runProgram(arguments).status, 0);
        return folder.path() + "/" + name;
    };
    const std::string one = make("one");
    EXPECT_EQ(describe(one), describe(make("two")));

    sim::Identity identity;
    EXPECT_EQ(sim::readIdentity(one, identity), "");
    EXPECT_EQ(identity.iosVersion, "15.2.1");
    EXPECT_EQ(identity.name, "Fr\xC3\xB6hlich");
    EXPECT_EQ(identity.freeSpace, 1000000U);
    EXPECT_EQ(identity.trust.pending, 2U);
    EXPECT_EQ(std::count_if(identity.apps.begin(), identity.apps.end(),
                            [](const sim::App &app) { return app.user; }),
              6);
    EXPECT_TRUE(fs::exists(one + "/Media/DCIM/100APPLE/IMG_0003.JPG"));
    // Never over something that is there.
    EXPECT_EQ(runProgram({SIM_PROGRAM, "make", one}).status, 1);
}

TEST(Sample, BadOptionsAreRefused)
{
    const TempFolder folder;
    const std::string path = folder.path() + "/x";
    const std::vector<std::vector<std::string>> bad = {
        {"--ios", "seventeen"}, {"--ios", "17"},      {"--trust", "perhaps"},
        {"--trust", "pending"}, {"--photos", "many"}, {"--free", "64000000001"},
        {"--songs", "100000"},
    };
    for (const auto &options : bad) {
        std::vector<std::string> arguments = {SIM_PROGRAM, "make", path};
        arguments.insert(arguments.end(), options.begin(), options.end());
        EXPECT_NE(runProgram(arguments).status, 0) << options[1];
    }
    EXPECT_FALSE(fs::exists(path));
}

TEST(Sample, PicturesAreWholeAndDifferent)
{
    // Walks the segments: lengths must lead from one marker to the next.
    for (const uint32_t number : {1U, 2U, 255U, 5000U}) {
        const std::string picture = sim::makeJpeg(number);
        ASSERT_TRUE(picture.starts_with("\xFF\xD8"));
        ASSERT_TRUE(picture.ends_with("\xFF\xD9"));
        size_t at = 2;
        while (static_cast<uint8_t>(picture.at(at + 1)) != 0xDA) {
            ASSERT_EQ(picture.at(at), '\xFF');
            at += 2 + static_cast<size_t>(
                          static_cast<uint8_t>(picture.at(at + 2)) << 8 |
                          static_cast<uint8_t>(picture.at(at + 3)));
        }
        for (size_t i = at + 10; i + 2 < picture.size(); i++) {
            if (picture[i] == '\xFF') {
                EXPECT_EQ(picture[i + 1], '\0');
            }
        }
    }
    EXPECT_NE(sim::makeJpeg(1), sim::makeJpeg(2));
}

TEST(Sample, KeysDependOnTheSeedAlone)
{
    const std::string key = sim::makeDeviceKey("seed");
    EXPECT_EQ(key, sim::makeDeviceKey("seed"));
    EXPECT_NE(key, sim::makeDeviceKey("other"));
    EXPECT_TRUE(
        sim::publicKeyPem(key).starts_with("-----BEGIN RSA PUBLIC KEY-----"));
    EXPECT_EQ(sim::publicKeyPem("no key"), "");
}

TEST(Sample, PropertyListsFromOutsideAreNotTrusted)
{
    const std::string head = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
    EXPECT_FALSE(sim::fromXml(""));
    EXPECT_FALSE(sim::fromXml("bplist00"));
    EXPECT_FALSE(sim::fromXml("junk"));
    std::string deep = head;
    for (int i = 0; i < 200000; i++) {
        deep += "<array>";
    }
    EXPECT_FALSE(sim::fromXml(deep));
    const sim::Plist list = sim::fromXml(
        head + "<dict><key>n</key><string>text</string></dict></plist>");
    ASSERT_TRUE(list);
    EXPECT_EQ(sim::getString(list.get(), "n"), "text");
    EXPECT_FALSE(sim::getUint(list.get(), "n"));
    EXPECT_FALSE(sim::getString(list.get(), "missing"));
}

} // namespace
