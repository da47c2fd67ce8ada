// Listings and information: how many requests they cost, and what is believed.
#include "sim.h"

static const std::string kMany = "/general_storage/many";

class Listing : public DeviceTest
{
  protected:
    void makeFolder(int files) const
    {
        for (int i = 0; i < files; i++)
            makeFile("many/file " + std::to_string(i), static_cast<size_t>(i));
    }
    // What the file system does for one folder.
    void listWithInfo() const
    {
        uint32_t count = 0;
        ASSERT_EQ(info("/general_storage"), 0);
        ASSERT_EQ(libiusb_afc_file_read_directory(afc, kMany.c_str(), nullptr,
                                                  &count),
                  0);
        std::vector<std::string> names = list(kMany);
        ASSERT_EQ(names.size(), count);
        for (const std::string &name : names) {
            libiusb_afc_file_info found;
            ASSERT_EQ(info(kMany + "/" + name, &found), 0) << name;
            ASSERT_EQ(found.file_type, LIBIUSB_FILE_REGULAR);
            ASSERT_EQ(std::to_string(found.size), name.substr(5));
            ASSERT_GT(found.modify_time, 1'000'000'000'000'000'000);
            ASSERT_GT(found.birth_time, 1'000'000'000'000'000'000);
        }
    }
};

TEST_F(Listing, OneRequestForEachEntryAndFewRoundTrips)
{
    constexpr int rtt_ms = 20;
    for (const char *window : {"", "1", "2", "7"}) {
        Setting setting("QUORVEL_AFC_WINDOW", window);
        bool usual = *window == 0;
        int files = usual ? 1000 : 50;
        if (usual)
            unsetenv("QUORVEL_AFC_WINDOW");
        start({"--rtt-us", usual ? std::to_string(rtt_ms * 1000) : "0"});
        makeFolder(files);
        expectWithin(usual ? files * rtt_ms / 10 : 5000,
                     [&] { listWithInfo(); });
        EXPECT_EQ(sim->afc("ReadDir"), 1);
        EXPECT_EQ(sim->afc("GetFileInfo"), files + 1) << window;
    }
}

TEST_F(Listing, TheCountIsForgottenWhenAnythingElseHappens)
{
    start();
    makeFolder(3);
    uint32_t count = 0;
    ASSERT_EQ(
        libiusb_afc_file_read_directory(afc, kMany.c_str(), nullptr, &count),
        0);
    EXPECT_EQ(count, 3U);
    makeFolder(4);
    ASSERT_EQ(info("/general_storage"), 0);
    EXPECT_EQ(list(kMany).size(), 4U);
    // Also a list is not taken twice.
    makeFolder(5);
    EXPECT_EQ(list(kMany).size(), 5U);
    EXPECT_EQ(sim->afc("ReadDir"), 3);
}

TEST_F(Listing, SkippedAndForeignPathsGetTheirOwnAnswers)
{
    start();
    makeFolder(300);
    std::vector<std::string> names = list(kMany);
    libiusb_afc_file_info found;
    for (size_t i = 0; i < names.size(); i += i % 5 + 1) {
        ASSERT_EQ(info(kMany + "/" + names[i], &found), 0);
        EXPECT_EQ(std::to_string(found.size), names[i].substr(5));
        if (i % 7 == 0) {
            ASSERT_EQ(info("/DCIM", &found), 0);
            EXPECT_EQ(found.file_type, LIBIUSB_FILE_FOLDER);
        }
    }
    EXPECT_EQ(info(kMany + "/nosuch"), LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND);
    EXPECT_EQ(info(kMany + "/" + names[0] + "/below"), LIBIUSB_ERROR_AFC_READ);
}

TEST_F(Listing, AChangeDropsAnswersSentAhead)
{
    start();
    makeFolder(10);
    std::vector<std::string> names = list(kMany);
    std::string path = kMany + "/" + names[0];
    libiusb_file file = openFile(path, LIBIUSB_MODE_WRITE);
    libiusb_afc_file_info found;
    ASSERT_EQ(info(path, &found), 0);
    EXPECT_EQ(found.size, 0U);
    EXPECT_EQ(libiusb_afc_file_close(afc, file), 0);
    // Also a change that came through another connection.
    libiusb_afc *other = nullptr;
    ASSERT_EQ(libiusb_afc_init(opened->device, &other), 0);
    names = list(kMany);
    ASSERT_EQ(info(kMany + "/" + names[0]), 0);
    path = kMany + "/" + names[1];
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
    for (int i = 0; i < 500; i++)
        paths.push_back(kMany + "/file " + std::to_string(i));
    paths[77] = "/general_storage/nosuch";
    std::vector<const char *> pointers;
    for (const std::string &path : paths)
        pointers.push_back(path.c_str());
    ASSERT_EQ(libiusb_afc_prefetch_info(afc, pointers.data(), pointers.size()),
              0);
    expectWithin(500 * rtt_ms / 10, [&] {
        for (size_t i = 0; i < paths.size(); i++) {
            libiusb_afc_file_info found;
            int expected = i == 77 ? LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND : 0;
            ASSERT_EQ(info(paths[i], &found), expected);
            EXPECT_EQ(found.size, i == 77 ? 0 : i);
        }
    });
    EXPECT_EQ(sim->afc("GetFileInfo"), 500);
}

TEST_F(Listing, NamesKindsAndFailures)
{
    start();
    makeFolder(1);
    // "a/b", "/etc", "..", an invalid one that is only strange, "."
    for (const char *name : {"612f62", "2f657463", "2e2e", "626164fffe", "2e"})
        sim->control(std::string("names add ") + name);
    sim->control("names raw on");
    std::vector<std::string> names = list(kMany);
    sim->control("names raw off");
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"bad\xff\xfe", "file 0"}));
    create_directory_symlink("many", sim->storage() / "link");
    libiusb_afc_file_info found;
    EXPECT_EQ(info("/general_storage/link", &found), 0);
    EXPECT_EQ(found.file_type, LIBIUSB_FILE_LINK);
    char **none = nullptr;
    uint32_t count = 9;
    EXPECT_EQ(libiusb_afc_file_read_directory(afc, (kMany + "/file 0").c_str(),
                                              &none, &count),
              LIBIUSB_ERROR_AFC_READ);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(count, 0U);
    sim->control("fail ReadDir 1 10");
    EXPECT_EQ(libiusb_afc_file_read_directory(afc, "/DCIM", &none, &count),
              LIBIUSB_ERROR_AFC_PERM_DENIED);
    // One entry whose information fails does not disturb the others.
    makeFolder(20);
    sim->control("fail GetFileInfo 1 20");
    int failures = 0;
    for (const std::string &name : list(kMany))
        failures += info(kMany + "/" + name) != 0;
    EXPECT_LE(failures, 1);
}
