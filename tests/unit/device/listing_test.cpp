// Listings and information: how many requests they cost, and what is believed.
#include <algorithm>

#include "sim.h"

class Listing : public DeviceTest
{
  protected:
    void makeFolder(int files) const
    {
        for (int i = 0; i < files; i++) {
            std::string name = "file " + std::to_string(i);
            writeFile(sim->media() / "general_storage/many" / name,
                      pattern(static_cast<size_t>(i)));
        }
    }
    // What the file system does for one folder.
    void listWithInfo(const std::string &path) const
    {
        uint32_t count = 0;
        ASSERT_EQ(info("/general_storage"), 0);
        ASSERT_EQ(
            libiusb_afc_file_read_directory(afc, path.c_str(), nullptr, &count),
            0);
        std::vector<std::string> names = list(path);
        ASSERT_EQ(names.size(), count);
        for (const std::string &name : names) {
            libiusb_afc_file_info found;
            ASSERT_EQ(info(path + "/" + name, &found), 0) << name;
            ASSERT_EQ(found.file_type, LIBIUSB_FILE_REGULAR);
            ASSERT_EQ(std::to_string(found.size), name.substr(5));
            ASSERT_GT(found.modify_time, 1'000'000'000'000'000'000);
            ASSERT_GT(found.birth_time, 1'000'000'000'000'000'000);
        }
    }
};

TEST_F(Listing, OneRequestForTheFolderAndOneForEachEntry)
{
    start();
    makeFolder(3000);
    listWithInfo("/general_storage/many");
    EXPECT_EQ(sim->afc("ReadDir"), 1);
    EXPECT_EQ(sim->afc("GetFileInfo"), 3001);
}

TEST_F(Listing, FewRoundTrips)
{
    constexpr int rtt_ms = 20, files = 1000;
    start({"--rtt-us", std::to_string(rtt_ms * 1000)});
    makeFolder(files);
    int64_t took = duration([&] { listWithInfo("/general_storage/many"); });
    EXPECT_LT(took, files * rtt_ms / 10);
}

TEST_F(Listing, SmallWindowsAndNone)
{
    for (const char *window : {"1", "2", "7"}) {
        Setting setting("QUORVEL_AFC_WINDOW", window);
        start();
        makeFolder(100);
        listWithInfo("/general_storage/many");
        EXPECT_EQ(sim->afc("ReadDir"), 1);
        EXPECT_EQ(sim->afc("GetFileInfo"), 101) << window;
        TearDown();
        afc = nullptr;
    }
}

TEST_F(Listing, TheCountIsForgottenWhenAnythingElseHappens)
{
    start();
    makeFolder(3);
    const char *path = "/general_storage/many";
    uint32_t count = 0;
    ASSERT_EQ(libiusb_afc_file_read_directory(afc, path, nullptr, &count), 0);
    EXPECT_EQ(count, 3U);
    makeFolder(4);
    ASSERT_EQ(info("/general_storage"), 0);
    EXPECT_EQ(list(path).size(), 4U);
    // Also a list is not taken twice.
    makeFolder(5);
    EXPECT_EQ(list(path).size(), 5U);
    EXPECT_EQ(sim->afc("ReadDir"), 3);
}

TEST_F(Listing, SkippedAndForeignPathsGetTheirOwnAnswers)
{
    start();
    makeFolder(300);
    std::vector<std::string> names = list("/general_storage/many");
    libiusb_afc_file_info found;
    for (size_t i = 0; i < names.size(); i += i % 5 + 1) {
        ASSERT_EQ(info("/general_storage/many/" + names[i], &found), 0);
        EXPECT_EQ(std::to_string(found.size), names[i].substr(5));
        if (i % 7 == 0) {
            ASSERT_EQ(info("/DCIM", &found), 0);
            EXPECT_EQ(found.file_type, LIBIUSB_FILE_FOLDER);
        }
    }
    EXPECT_EQ(info("/general_storage/many/nosuch"),
              LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND);
    EXPECT_EQ(info("/general_storage/many/" + names[0] + "/below"),
              LIBIUSB_ERROR_AFC_READ);
}

TEST_F(Listing, AChangeDropsAnswersSentAhead)
{
    start();
    makeFolder(10);
    std::vector<std::string> names = list("/general_storage/many");
    std::string path = "/general_storage/many/" + names[0];
    libiusb_file file = openFile(path, LIBIUSB_MODE_WRITE);
    libiusb_afc_file_info found;
    ASSERT_EQ(info(path, &found), 0);
    EXPECT_EQ(found.size, 0U);
    EXPECT_EQ(libiusb_afc_file_close(afc, file), 0);
    // Also a change that came through another connection.
    libiusb_afc *other = nullptr;
    ASSERT_EQ(libiusb_afc_init(opened->device, &other), 0);
    names = list("/general_storage/many");
    ASSERT_EQ(info("/general_storage/many/" + names[0]), 0);
    path = "/general_storage/many/" + names[1];
    ASSERT_EQ(libiusb_afc_file_remove(other, path.c_str()), 0);
    EXPECT_EQ(info(path), LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND);
    libiusb_afc_exit(other);
}

TEST_F(Listing, PathsThatTheCallerKnows)
{
    constexpr int rtt_ms = 20;
    start({"--rtt-us", std::to_string(rtt_ms * 1000)});
    makeFolder(500);
    std::vector<std::string> paths;
    std::vector<const char *> pointers;
    paths.reserve(500);
    for (int i = 0; i < 500; i++)
        paths.push_back("/general_storage/many/file " + std::to_string(i));
    paths[77] = "/general_storage/nosuch";
    pointers.reserve(paths.size());
    for (const std::string &path : paths)
        pointers.push_back(path.c_str());
    ASSERT_EQ(libiusb_afc_prefetch_info(afc, pointers.data(), pointers.size()),
              0);
    int64_t took = duration([&] {
        for (size_t i = 0; i < paths.size(); i++) {
            libiusb_afc_file_info found;
            if (i == 77) {
                EXPECT_EQ(info(paths[i], &found),
                          LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND);
                continue;
            }
            ASSERT_EQ(info(paths[i], &found), 0);
            EXPECT_EQ(found.size, i);
        }
    });
    EXPECT_LT(took, 500 * rtt_ms / 10);
    EXPECT_EQ(sim->afc("GetFileInfo"), 500);
}

TEST_F(Listing, NamesThatCannotBeEntriesAreLeftOut)
{
    auto hex = [](const std::string &name) {
        std::string text;
        for (char c : name) {
            auto byte = static_cast<unsigned char>(c);
            text += "0123456789abcdef"[byte >> 4];
            text += "0123456789abcdef"[byte & 15];
        }
        return text;
    };
    start();
    makeFolder(1);
    for (const char *name : {"a/b", "/etc/passwd", "..", "bad\xff\xfe", "."})
        sim->control("names add " + hex(name));
    sim->control("names raw on");
    std::vector<std::string> names = list("/general_storage/many");
    sim->control("names raw off");
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"bad\xff\xfe", "file 0"}));
}

TEST_F(Listing, KindsAndFailures)
{
    start();
    makeFolder(1);
    create_directory_symlink("many", sim->media() / "general_storage/link");
    libiusb_afc_file_info found;
    EXPECT_EQ(info("/general_storage/link", &found), 0);
    EXPECT_EQ(found.file_type, LIBIUSB_FILE_LINK);
    char **names = nullptr;
    uint32_t count = 9;
    EXPECT_EQ(libiusb_afc_file_read_directory(
                  afc, "/general_storage/many/file 0", &names, &count),
              LIBIUSB_ERROR_AFC_READ);
    EXPECT_EQ(names, nullptr);
    EXPECT_EQ(count, 0U);
    sim->control("fail ReadDir 1 10");
    EXPECT_EQ(libiusb_afc_file_read_directory(afc, "/DCIM", &names, &count),
              LIBIUSB_ERROR_AFC_PERM_DENIED);
    // One entry whose information fails does not disturb the others.
    makeFolder(20);
    std::vector<std::string> entries = list("/general_storage/many");
    sim->control("fail GetFileInfo 1 20");
    int failures = 0;
    for (const std::string &name : list("/general_storage/many"))
        failures += info("/general_storage/many/" + name) != 0;
    EXPECT_LE(failures, 1);
    EXPECT_TRUE(list("/Photos").empty());
}
