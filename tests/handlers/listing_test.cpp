// Listing: the layout, the catalogue's answers, the storage area.
#include <sqlite3.h>

#include "tarnifs/notify/tray_pipe.h"
#include "tests/handlers/fixture.h"

namespace
{

class Listing : public MountTest
{
  protected:
    void SetUp() override { ASSERT_TRUE(mount()); }
};

void execute(sqlite3 *database, const char *sql)
{
    EXPECT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, nullptr),
              SQLITE_OK);
}

TEST_F(Listing, TheLayoutIsTheSameFromTheCatalogue)
{
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(list("/"), (Names{".", "..", "Media", "Apps", "Storage"}));
        EXPECT_EQ(list("/Media"),
                  (Names{".", "..", "Music", "Movies", "Photo"}));
    }
    EXPECT_EQ(countLogged("tarnifs_readdir for meidadb : (nil), ret : 0 "
                          "errormsg(out of memory)"),
              2);
    for (const char *path : {"/Media", "/Apps", "/Storage"}) {
        EXPECT_EQ(attributes(path).st_mode, 040777U);
        EXPECT_NEAR(static_cast<double>(attributes(path).st_mtime),
                    static_cast<double>(time(nullptr)), 5);
    }
    EXPECT_EQ(memoryWorld.count("libiusb_afc_file_read_directory"), 0);
    media().addFolder("/general_storagex"); // a prefix decides
    for (const char *path : {"/Media/Music", "/Apps", "/Storagex", "/Appsx"}) {
        EXPECT_EQ(list(path), (Names{".", ".."})) << path;
    }
    expectNothingRaised();
    int ret = 0;
    list("/100%s%n", &ret);
    EXPECT_EQ(ret, -ECANCELED);
    expectError("Unexpected path.\n/100%s%n");
    expectLogged("tarnifs_readdir Unexpected path(/100%s%n)");
}

TEST_F(Listing, MediaShowsPodcastsAndMemosThatAreThere)
{
    ASSERT_EQ(sqlite3_open(":memory:", &context()->media_db), SQLITE_OK);
    ASSERT_EQ(sqlite3_open(":memory:", &context()->record_db), SQLITE_OK);
    execute(context()->media_db, "create table item_extra (media_kind int)");
    fill("/Media");
    EXPECT_EQ(object("/Media/Podcast"), nullptr);
    EXPECT_EQ(object("/Media/Voice Memos"), nullptr);
    char line[200];
    // Of the memos' failure, but with the other database's handle and message.
    snprintf(line, sizeof(line),
             "tarnifs_readdir for meidadb : %p, ret : 1 errormsg(not an error)",
             static_cast<void *>(context()->media_db));
    expectLogged(line);
    unmount();
    ASSERT_TRUE(mount());
    ASSERT_EQ(sqlite3_open(":memory:", &context()->media_db), SQLITE_OK);
    ASSERT_EQ(sqlite3_open(":memory:", &context()->record_db), SQLITE_OK);
    execute(context()->media_db, "create table item_extra (media_kind int);"
                                 "insert into item_extra values (1), (6)");
    execute(context()->record_db,
            "create table ZRECORDING (Z_PK int, ZPATH text);"
            "insert into ZRECORDING values (1, '/a.m4a')");
    EXPECT_EQ(list("/Media"), (Names{".", "..", "Podcast", "Voice Memos",
                                     "Music", "Movies", "Photo"}));
    EXPECT_EQ(list("/Media"), (Names{".", "..", "Music", "Movies", "Photo",
                                     "Podcast", "Voice Memos"}));
}

TEST_F(Listing, StorageShowsWhatTheDeviceHas)
{
    media().addFile("/general_storage/b", "hello");
    media().addFile("/general_storage/.DS_Store");
    media().addFile("/general_storage/._a");
    for (const char *impossible : {"", "../evil", "a/b"}) {
        media().addFolder("/general_storage").names.emplace_back(impossible);
    }
    MemoryNode &dir = media().addFolder("/general_storage/dir");
    dir.birth = 1500000000999999999;
    dir.modify = -1;
    media().addFile("/general_storage/link").type = LIBIUSB_FILE_LINK;
    EXPECT_EQ(fill("/Storage"), 0); // the catalogue only
    EXPECT_EQ(memoryWorld.count("libiusb_afc_file_get_info"), 4);
    EXPECT_EQ(memoryWorld.count("libiusb_afc_file_read_directory"), 2);
    EXPECT_EQ(list("/Storage"), (Names{".", "..", "b", "dir", "link"}));
    EXPECT_EQ(attributes("/Storage/b").st_size, 5);
    EXPECT_EQ(attributes("/Storage/b").st_mode, 0100777U);
    EXPECT_EQ(attributes("/Storage/dir").st_mode, 040777U);
    EXPECT_EQ(Value(object("/Storage/dir")->birth_time), 1500000000);
    EXPECT_EQ(Value(object("/Storage/dir")->modify_time), 0);
    EXPECT_EQ(attributes("/Storage/link").st_mode, 0100777U);
    EXPECT_EQ(list("/Storage/dir"), (Names{".", ".."}));
    EXPECT_EQ(list("/Storage/dir"), (Names{".", ".."})); // known to be empty
    EXPECT_EQ(memoryWorld.count("libiusb_afc_file_read_directory"), 4);
}

TEST_F(Listing, AMissingStorageFolderIsMade)
{
    media().remove("/general_storage");
    EXPECT_EQ(list("/Storage"), (Names{".", ".."}));
    expectLogged("enumStorage libiusb_afc_file_get_info failed ret : -70");
    EXPECT_NE(media().find("/general_storage"), nullptr);
    // A fault of the check hides nothing.
    unmount();
    ASSERT_TRUE(mount());
    media().addFile("/general_storage/a");
    memoryWorld.failNamed("libiusb_afc_file_get_info", 1, -212);
    EXPECT_EQ(list("/Storage"), (Names{".", "..", "a"}));
    expectNothingRaised();
    unmount();
    ASSERT_TRUE(mount());
    memoryWorld.failAll(-62);
    int ret = 0;
    list("/Storage", &ret);
    memoryWorld.heal();
    EXPECT_EQ(ret, -ECANCELED);
    expectLogged("enumStorage libiusb_afc_make_directory error. ret : -62");
    expectError("Could not read directory.\nError Code : -62");
}

TEST_F(Listing, AnUnfinishedListingStartsAfresh)
{
    for (const char *name : {"a", "b", "c", "d"}) {
        media().addFile(std::string("/general_storage/") + name);
    }
    memoryWorld.failNamed("libiusb_afc_file_get_info", 4, -212);
    int ret = 0;
    EXPECT_EQ(list("/Storage", &ret), (Names{".", "..", "a", "b"}));
    EXPECT_EQ(ret, -ECANCELED);
    EXPECT_EQ(object("/Storage")->enumerated, 0);
    // One of what was found is open; the other has vanished meanwhile.
    tarni_file_info fi;
    ASSERT_EQ(open("/Storage/b", &fi), 0);
    media().remove("/general_storage/a");
    EXPECT_EQ(list("/Storage"), (Names{".", "..", "b", "c", "d"}));
    EXPECT_EQ(object("/Storage/a"), nullptr);
    EXPECT_EQ(list("/Storage"), (Names{".", "..", "b", "c", "d"}));
    EXPECT_EQ(CheckCatalogue(), "");
    EXPECT_EQ(release("/Storage/b", &fi), 0);
}

TEST_F(Listing, BigFoldersAreAnnounced)
{
    TrayReader tray(trayPipePath);
    MemoryTree &app = addToDevice("Notes", "com.a");
    for (MemoryTree *tree : {&media(), &app}) {
        const bool first = tree == &media();
        const std::string there = first ? "/general_storage" : "/Documents";
        const std::string shown = first ? "/Storage" : "/Apps/Notes";
        for (int i = 0; i < 30000; ++i) {
            tree->addFile(there + "/fits/" + std::to_string(i));
            tree->addFile(there + "/big/" + std::to_string(i));
        }
        tree->addFile(there + "/big/last");
        list("/Apps");
        list(shown);
        tray.read();
        EXPECT_EQ(list(shown + "/fits").size(), 30002U);
        EXPECT_EQ(tray.read(), "");
        EXPECT_EQ(list(shown + "/big").size(), 30003U);
        EXPECT_EQ(tray.read(), "-neon-neoff");
    }
    // A failure ends the listing, but not the signal.
    unmount();
    ASSERT_TRUE(mount());
    list("/Apps");
    list("/Apps/Notes");
    tray.read();
    int ret = 0;
    memoryWorld.failNamed("libiusb_afc_file_get_info", 9, -212);
    list("/Storage/big", &ret);
    EXPECT_EQ(ret, -ECANCELED);
    EXPECT_EQ(tray.read(), "-neon-neoff");
    memoryWorld.failNamed("libiusb_afc_file_read_directory", 2, -212);
    EXPECT_EQ(list("/Apps/Notes/big").size(), 2U);
    EXPECT_EQ(tray.read(), "-neon-neoff");
}

TEST_F(Listing, EndsTheIdleConnectionOfAnAppFolder)
{
    addApp("Notes", "com.example.notes", {"a.txt", "b.txt"});
    tarni_file_info fi;
    ASSERT_EQ(open("/Apps/Notes/a.txt", &fi), 0);
    EXPECT_EQ(list("/Apps/Notes"), (Names{".", "..", "a.txt", "b.txt"}));
    EXPECT_NE(Value(object("/Apps/Notes")->hhandle), 0U); // a file is open
    ASSERT_EQ(release("/Apps/Notes/a.txt", &fi), 0);
    libiusb_afc *house = nullptr;
    ASSERT_EQ(libiusb_housearrest_init(context()->device_handle, &house), 0);
    object("/Apps/Notes")->hhandle = reinterpret_cast<uint64_t>(house);
    memoryWorld.failNamed("libiusb_housearrest_exit", 1, -32);
    EXPECT_EQ(list("/Apps/Notes").size(), 4U);
    EXPECT_EQ(Value(object("/Apps/Notes")->hhandle), 0U);
    expectLogged("tarnifs_readdir libiusb_housearrest_exit failed. "
                 "path(/Apps/Notes). ret : -32");
    expectNothingRaised();
}

} // namespace
