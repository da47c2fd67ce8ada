// New files, in the storage area and inside apps.
#include "tests/handlers/fixture.h"

namespace
{

class Create : public MountTest
{
  protected:
    void SetUp() override { populate(); }
};

TEST_F(Create, AStorageFileIsThereAtOnceAndOpen)
{
    tarni_file_info fi;
    ASSERT_EQ(create("/Storage/new.txt", &fi), 0);
    EXPECT_EQ(memoryWorld.calls,
              Names{"libiusb_afc_file_open /general_storage/new.txt:6"});
    EXPECT_EQ(fi.fh, reinterpret_cast<uint64_t>(object("/Storage/new.txt")));
    EXPECT_EQ(attributes("/Storage/new.txt").st_mode, 0100777U);
    EXPECT_NEAR(static_cast<double>(attributes("/Storage/new.txt").st_mtime),
                static_cast<double>(time(nullptr)), 5);
    expectAllShown();
    const uint64_t space = freeSpace();
    EXPECT_EQ(write("/Storage/new.txt", &fi, "hello", 0), 5);
    EXPECT_EQ(media().find("/general_storage/new.txt")->data, "hello");
    EXPECT_EQ(freeSpace(), space - 5);
    EXPECT_EQ(attributes("/Storage/new.txt").st_size, 5);
    EXPECT_EQ(release("/Storage/new.txt", &fi), 0);
    EXPECT_EQ(Value(object("/Storage/new.txt")->open_count), 0U);
    // A storage folder's count only grows.
    EXPECT_EQ(Value(object("/Storage")->open_count), 1U);
    EXPECT_EQ(unlink("/Storage/new.txt"), 0);
    EXPECT_EQ(freeSpace(), space);
}

TEST_F(Create, AnAppsFileGoesThroughItsFoldersConnection)
{
    tarni_file_info fi;
    ASSERT_EQ(create("/Apps/Notes/new.txt", &fi), 0);
    EXPECT_EQ(memoryWorld.calls,
              (Names{"libiusb_housearrest_init",
                     "libiusb_housearrest_openapp com.example.notes",
                     "libiusb_afc_file_open /Documents/new.txt:6"}));
    EXPECT_STREQ(object("/Apps/Notes/new.txt")->app_id, "com.example.notes");
    EXPECT_EQ(Value(object("/Apps/Notes")->open_count), 1U);
    EXPECT_EQ(write("/Apps/Notes/new.txt", &fi, "hello", 0), 5);
    // A second file shares the connection, which outlives the first.
    tarni_file_info other;
    ASSERT_EQ(create("/Apps/Notes/other", &other), 0);
    EXPECT_EQ(release("/Apps/Notes/new.txt", &fi), 0);
    EXPECT_EQ(write("/Apps/Notes/other", &other, "more", 0), 4);
    EXPECT_EQ(release("/Apps/Notes/other", &other), 0);
    EXPECT_EQ(sandbox().find("/Documents/new.txt")->data, "hello");
    EXPECT_EQ(sandbox().find("/Documents/other")->data, "more");
    EXPECT_EQ(memoryWorld.count("libiusb_housearrest_init"), 1);
    EXPECT_EQ(memoryWorld.houses(), 0);
}

TEST_F(Create, SomePlacesAreRefusedAndSomeFilesNotMade)
{
    const struct {
        const char *path;
        const char *end;
        const char *folder;
    } cases[] = {{"/Apps/x.txt", " ", "/Apps"},
                 {"/x.txt", "", "/"},
                 {"/Media/Music/x", "", "/Media/Music"}};
    tarni_file_info fi;
    for (const auto &each : cases) {
        EXPECT_EQ(create(each.path, &fi), -ECANCELED);
        EXPECT_EQ(fi.fh, 0U);
        expectLogged(
            std::string("tarnifs_create create not supported. path : ") +
            each.path + each.end);
        expectRefusal(std::string("This folder is read only. You can not write "
                                  "or modify.\n") +
                      each.folder);
        EXPECT_EQ(object(each.path), nullptr);
    }
    EXPECT_EQ(create("/Storage/.Spotlight-V100", &fi), 0);
    EXPECT_EQ(fi.fh, 0U);
    EXPECT_EQ(write("/Storage/.Spotlight-V100", &fi, "x", 0), 0);
    EXPECT_EQ(release("/Storage/.Spotlight-V100", &fi), 0);
    // Folders that nobody knows are not there.
    EXPECT_EQ(create("/Storage/unknown/x", &fi), -ENOENT);
    EXPECT_EQ(create("/Apps/Gone/x", &fi), -ENOENT);
    {
        const TarniLock lock;
        GetObjectWithFileName("/Apps/NoApp")->mode = KTL_MODE_FOLDER;
    }
    EXPECT_EQ(create("/Apps/NoApp/x", &fi), -ECANCELED);
    expectLogged("CreateFileHandle Invalid File handle!");
    EXPECT_EQ(memoryWorld.calls, Names());
    void *kept = testHost.privateData;
    testHost.privateData = nullptr;
    EXPECT_EQ(create("/Storage/x", &fi), -ENOSYS);
    testHost.privateData = kept;
}

TEST_F(Create, TwoSpellingsAreOneFile)
{
    const std::string apart = "/Storage/e\xcc\x81.txt"; // e, combining acute
    const std::string composed = "/Storage/\xc3\xa9.txt";
    const size_t before = list("/Storage").size();
    tarni_file_info fi;
    ASSERT_EQ(create(apart, &fi), 0);
    EXPECT_EQ(write(composed, &fi, "hello", 0), 5);
    EXPECT_EQ(release(composed, &fi), 0);
    EXPECT_EQ(object(apart), object(composed));
    // Renamed to its other spelling: one file, of the new spelling.
    EXPECT_EQ(rename(apart, composed), 0);
    EXPECT_EQ(attributes(apart).st_size, 5);
    expectAllShown();
    // A target in another spelling is the one that is replaced.
    ASSERT_EQ(create("/Storage/x", &fi), 0);
    EXPECT_EQ(release("/Storage/x", &fi), 0);
    EXPECT_EQ(rename("/Storage/x", apart), 0);
    EXPECT_EQ(list("/Storage").size(), before + 1);
    EXPECT_EQ(attributes(composed).st_size, 0);
}

} // namespace
