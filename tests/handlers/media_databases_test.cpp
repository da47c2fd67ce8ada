// Fetching and opening the databases; databases that are not as they should be.
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <sqlite3.h>

#include "tarnifs/media/databases.h"
#include "tarnifs/media/download.h"
#include "tarnifs/media/statement.h"
#include "tarnifs/notify/tray_pipe.h"
#include "tests/handlers/media_fixture.h"

namespace
{

class Databases : public MediaTest
{
  protected:
    std::string localCopy(const std::string &name)
    {
        std::ifstream file(privateFolder() + name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
};

TEST_F(Databases, AreCopiedOnceAndOpened)
{
    addPhotos(IOS_17);
    addSongs({{"A", "T", "a.mp3"}});
    media().addFile("/PhotoData/Photos.sqlite-shm", std::string(65536, 's'));
    ASSERT_TRUE(mount());
    memoryWorld.forgetCalls();
    EXPECT_EQ(DownloadDBandOpen(context()), 0); // there are no recordings
    EXPECT_NE(context()->media_db, nullptr);
    EXPECT_NE(context()->photo_db, nullptr);
    EXPECT_EQ(context()->record_db, nullptr);
    for (const char *line :
         {"DownloadDBandOpen libiusb_afc_file_get_info failed. code : -70, "
          "path : Recoddb",
          "downloadfile libiusb_afc_file_get_info failed. code : -70, path : "
          "/Recordings/Recordings.db",
          "opendb target db not exist"}) {
        expectLogged(line);
    }
    EXPECT_EQ(localCopy("/Photos.sqlite"), media().find(PHOTOS)->data);
    struct stat st {
    };
    ASSERT_EQ(stat((privateFolder() + "/Photos.sqlite").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777U, 0600U);
    memoryWorld.forgetCalls();
    EXPECT_EQ(shown("/Media").size(), 3U);
    EXPECT_EQ(memoryWorld.calls.size(), 0U);
}

TEST_F(Databases, DownloadsInPiecesOfTheBuffer)
{
    ASSERT_TRUE(mount());
    for (const size_t size : {0U, 1U, 65535U, 65536U, 200000U}) {
        SCOPED_TRACE(size);
        std::string data(size, '\0');
        for (size_t i = 0; i < size; ++i) {
            data[i] = static_cast<char>(i * 7 / 3);
        }
        media().addFile("/file", data);
        memoryWorld.forgetCalls();
        EXPECT_EQ(downloadfile(context(), "/file", "/copy"), 0);
        EXPECT_EQ(memoryWorld.count("libiusb_afc_file_read"),
                  static_cast<int>((size + 65534) / 65535));
        EXPECT_TRUE(localCopy("/copy") == data);
    }
}

TEST_F(Databases, AnnouncesThreeMillionBytesAndMore)
{
    ASSERT_TRUE(mount());
    TrayReader tray(trayPipePath);
    media().addFile(LIBRARY, std::string(1000000, 'x'));
    media().addFile(PHOTOS, std::string(1000000, 'x'));
    media().addFile("/PhotoData/Photos.sqlite-wal", std::string(1000000, 'x'));
    media().addFile(RECORDINGS, std::string(1000000, 'x'));
    DownloadDBandOpen(context());
    EXPECT_EQ(tray.read(), "");
    media().addFile(RECORDINGS, std::string(1000001, 'x'));
    DownloadDBandOpen(context());
    EXPECT_EQ(tray.read(), "-neon-neoff");
}

// What an earlier mount left must not be taken for a part of the fresh copy.
TEST_F(Databases, OldCopiesAreGone)
{
    const Names leftovers = {"/Photos.sqlite", "/Photos.sqlite-wal",
                             "/MediaLibrary.sqlitedb-shm",
                             "/CloudRecordings.db"};
    const auto leave = [&] {
        for (const std::string &name : leftovers) {
            std::ofstream(privateFolder() + name) << "old";
        }
    };
    const auto expectGone = [&] {
        for (const std::string &name : leftovers) {
            EXPECT_FALSE(std::filesystem::exists(privateFolder() + name))
                << name;
        }
    };
    std::filesystem::create_directory(privateFolder());
    chmod(privateFolder().c_str(), 0700);
    leave();
    std::ofstream(privateFolder() + "/staged") << "new";
    ASSERT_TRUE(mount());
    expectGone();
    EXPECT_EQ(localCopy("/staged"), "new");
    leave();
    DownloadDBandOpen(context());
    expectGone();
}

TEST_F(Databases, AFullDiskLeavesNoHalfCopies)
{
    addPhotos(IOS_17);
    media().find(PHOTOS)->data += std::string(400000, '\0');
    ASSERT_TRUE(mount());
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    const rlimit little{200000, old.rlim_max};
    signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &little);
    EXPECT_EQ(shown("/Media").size(), 3U);
    setrlimit(RLIMIT_FSIZE, &old);
    expectLogged("downloadfile topath write failed. errno : " +
                 std::to_string(EFBIG));
    EXPECT_EQ(context()->photo_db, nullptr);
    EXPECT_FALSE(std::filesystem::exists(privateFolder() + "/Photos.sqlite"));
    EXPECT_EQ(shown("/Media/Photo"), Names{"Camera Roll"});

    // A file that can't be made at all.
    std::filesystem::create_directory(privateFolder() + "/copy");
    EXPECT_EQ(downloadfile(context(), PHOTOS, "/copy"), 0);
    expectLogged("downloadfile topath open failed. errno : " +
                 std::to_string(EISDIR));
}

TEST_F(Databases, AFileThatEndsEarlyIsNoCopy)
{
    addPhotos(IOS_17);
    ASSERT_TRUE(mount());
    MemoryNode &node = *media().find(PHOTOS);
    node.data.resize(1000);
    node.promised = 1010;
    memoryWorld.forgetCalls();
    EXPECT_EQ(downloadfile(context(), PHOTOS, "/copy"), 0);
    EXPECT_EQ(memoryWorld.count("libiusb_afc_file_read"), 5);
    EXPECT_FALSE(std::filesystem::exists(privateFolder() + "/copy"));
    expectLogged("downloadfile libiusb_afc_file_read failed. code : -220");
}

TEST_F(Databases, DamagedOnesCostTheirViewsOnly)
{
    const std::string good = PhotoDatabase(IOS_17);
    std::vector<std::string> damaged = {"", "x", std::string(5000, 'x'),
                                        good.substr(0, good.size() / 2)};
    // Every page in turn is overwritten, with zeros and with nonsense.
    for (size_t page = 0; page < good.size() / 512; ++page) {
        damaged.push_back(good);
        damaged.back().replace(page * 512 + 100, 412, 412,
                               page % 2 == 0 ? '\0' : '\xA5');
    }
    for (size_t i = 0; i < damaged.size(); ++i) {
        SCOPED_TRACE(i);
        unmount();
        freshDevice();
        addPhotos(IOS_17);
        addSongs({{"A", "T", "a.mp3"}});
        media().addFile(PHOTOS, damaged[i]);
        media().addFile("/PhotoData/Photos.sqlite-wal",
                        good.substr(i * 100 % good.size()));
        ASSERT_TRUE(mount());
        int ret = 0;
        for (const char *path :
             {"/", "/Media", "/Media/Photo", "/Media/Photo/Camera Roll",
              "/Media/Photo/Trip", "/Media/Photo/Recorded Videos"}) {
            list(path, &ret);
            EXPECT_TRUE(ret == 0 || ret == -ECANCELED) << ret;
            raised();
        }
        EXPECT_EQ(shown("/Media/Music"), Names{"A-T.mp3"});
        if (HasFailure()) {
            return;
        }
    }
}

// Neither a view of the file's own nor a table that is code takes part.
TEST_F(Databases, SchemasThatDoThingsAreNotRun)
{
    setVersion("17.0");
    media().addFile(
        PHOTOS, BuildDatabase(
                    "CREATE VIEW ZGENERICASSET AS WITH RECURSIVE n(i) AS "
                    "(SELECT 1 UNION ALL SELECT i+1 FROM n) SELECT i AS "
                    "ZKINDSUBTYPE, 1 AS ZKIND, 0 AS ZTRASHEDSTATE FROM n;"
                    "CREATE TABLE ZGENERICALBUM (Z_PK, ZTITLE, ZKIND,"
                    " ZCACHEDCOUNT, ZTRASHEDSTATE);"
                    "INSERT INTO ZGENERICALBUM VALUES (1, 'Shown', 2, 1, 0);"));
    EXPECT_EQ(shownAfterMount("/Media/Photo"), (Names{"Camera Roll", "Shown"}));
    expectLogged("InstallPhotoViews table is missing. table : ZGENERICASSET");
}

// A database after some statements more.
std::string Changed(const std::string &bytes, const std::string &sql)
{
    const std::string path = testing::TempDir() + "/changed.db";
    std::ofstream(path, std::ios::binary) << bytes;
    sqlite3 *database = nullptr;
    EXPECT_EQ(sqlite3_open(path.c_str(), &database), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr),
              SQLITE_OK)
        << sqlite3_errmsg(database);
    sqlite3_close(database);
    std::ifstream file(path, std::ios::binary);
    std::string changed{std::istreambuf_iterator<char>(file), {}};
    std::filesystem::remove(path);
    return changed;
}

TEST_F(Databases, GenerationsNobodyHasSeenShowWhatTheyCan)
{
    addPhotos(IOS_17);
    const Names roll = shownAfterMount("/Media/Photo/Camera Roll");
    const std::pair<const char *, const char *> cases[] = {
        {"DROP TABLE ZMOMENT", "table is missing. table : ZMOMENT"},
        {"ALTER TABLE ZASSET RENAME COLUMN ZTRASHEDSTATE TO ZBINNED",
         "column is missing. table : ZASSET, column : ZTRASHEDSTATE"},
        {"ALTER TABLE ZADDITIONALASSETATTRIBUTES RENAME COLUMN "
         "ZCAMERACAPTUREDEVICE TO ZCAMERA",
         "column is missing. table : ZADDITIONALASSETATTRIBUTES, column : "
         "ZCAMERACAPTUREDEVICE"},
    };
    for (const auto &[sql, line] : cases) {
        SCOPED_TRACE(sql);
        unmount();
        freshDevice();
        addPhotos(IOS_17);
        media().addFile(PHOTOS, Changed(PhotoDatabase(IOS_17), sql));
        const Names names = shownAfterMount("/Media/Photo/Camera Roll");
        EXPECT_GE(names.size(), roll.size());
        expectLogged(std::string("InstallPhotoViews ") + line);
        expectNothingRaised();
    }
}

TEST_F(Databases, QueriesHaveBounds)
{
    ASSERT_TRUE(mount());
    sqlite3 *database = nullptr;
    ASSERT_EQ(sqlite3_open(":memory:", &database), SQLITE_OK);
    const std::string endless = "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL "
                                "SELECT i+1 FROM n) SELECT ";
    const auto usual = longestQuery;
    longestQuery = std::chrono::milliseconds(20);
    {
        Statement query("test", database, endless + "count(i) FROM n");
        EXPECT_FALSE(query.next());
        expectLogged("test sqlite3_step failed. code : 9, msg(interrupted)");
    }
    longestQuery = usual;
    mostRows = 1000;
    {
        Statement query("test", database, endless + "i FROM n");
        size_t rows = 0;
        while (query.next()) {
            ++rows;
        }
        EXPECT_EQ(rows, 1000U);
        expectLogged("test query ended after 1000 rows.");
    }
    mostRows = 500000;
    sqlite3_close(database);
    // A name or path of 16 KiB is the longest that is looked at.
    addSongs(
        {{"A", "T", "a.mp3"}, {"A", std::string(20000, 'x').c_str(), "b.mp3"}});
    EXPECT_EQ((list("/"), list("/Media"), shown("/Media/Music")),
              Names{"A-T.mp3"});
    expectLogged(
        "enumMedia text is too long, row left out. path(/Media/Music)");
}

TEST_F(Databases, OneThatWasLostComesBack)
{
    addPhotos(IOS_17);
    addSongs({{"A", "T", "a.mp3"}});
    ASSERT_TRUE(mount());
    list("/");
    memoryWorld.failNamed("libiusb_afc_file_open", 2,
                          LIBIUSB_ERROR_LOST_CONNECTION);
    list("/Media");
    EXPECT_EQ(context()->photo_db, nullptr);
    EXPECT_EQ(shown("/Media/Music"), Names{"A-T.mp3"});
    EXPECT_GT(shown("/Media/Photo").size(), 1U);
    EXPECT_NE(context()->photo_db, nullptr);
    expectNothingRaised();
}

TEST_F(Databases, ALostConnectionIsMadeUpForLater)
{
    addPhotos(IOS_17);
    addSongs({{"A", "T", "a.mp3"}, {"A", "U", "b.mp3"}});
    ASSERT_TRUE(mount());
    list("/");
    memoryWorld.failAll(LIBIUSB_ERROR_LOST_CONNECTION);
    memoryWorld.forgetCalls();
    EXPECT_EQ(shown("/Media").size(), 3U);
    EXPECT_LE(memoryWorld.calls.size(), 3U); // and no wait for each file
    memoryWorld.heal();
    EXPECT_EQ(shown("/Media").size(), 3U);
    EXPECT_NE(context()->photo_db, nullptr);
    const Names complete = {"A-T.mp3", "A-U.mp3"};
    memoryWorld.failNamed("libiusb_afc_file_get_info", 1,
                          LIBIUSB_ERROR_LOST_CONNECTION, 2);
    int ret = 0;
    EXPECT_EQ(shown("/Media/Music", &ret), Names{"A-U.mp3"});
    EXPECT_EQ(ret, -ECANCELED); // part of a folder is not all of it
    expectError("Lost USB Connection.\nDirectory reading aborted.");
    tarni_file_info fi; // what is open meanwhile is the same file afterwards
    ASSERT_EQ(open("/Media/Music/A-U.mp3", &fi), 0);
    EXPECT_EQ(shown("/Media/Music"), complete);
    EXPECT_EQ(read("/Media/Music/A-U.mp3", &fi, 10, 0), "music");
    EXPECT_EQ(release("/Media/Music/A-U.mp3", &fi), 0);

    list("/Media/Photo");
    memoryWorld.failAll(LIBIUSB_ERROR_LOST_CONNECTION);
    memoryWorld.forgetCalls();
    shown("/Media/Photo/Camera Roll", &ret);
    EXPECT_EQ(ret, -ECANCELED);
    EXPECT_EQ(memoryWorld.count("libiusb_afc_file_get_info"), 3);
    expectError("Lost USB Connection.\nDirectory reading aborted.");
    memoryWorld.heal();
    EXPECT_EQ(shown("/Media/Photo/Camera Roll").size(), 13U);
}

TEST_F(Databases, EveryFailingCallLeavesAVolumeThatWorks)
{
    const std::vector<const char *> folders = {
        "/Media", "/Media/Music", "/Media/Photo", "/Media/Photo/Camera Roll",
        "/Media/Voice Memos"};
    forEachDeviceFailure(
        FAILURE_CODES,
        [this] {
            addPhotos(IOS_17);
            addSongs({{"A", "T", "a.mp3"}});
            media().addFile(RECORDINGS,
                            RecordingsDatabase({{"Talk", "a.m4a"}}));
            media().addFile("/Recordings/a.m4a", "sound");
            ASSERT_TRUE(mount());
            list("/");
        },
        [&](int code) {
            for (const char *path : folders) {
                int ret = 0;
                list(path, &ret);
                // A folder of a database that could not be had.
                const bool isUnknown = context()->photo_db == nullptr &&
                                       strstr(path, "Roll") != nullptr;
                expectTold(ret, isUnknown ? -1 : code);
            }
            memoryWorld.heal();
            if (code == LIBIUSB_ERROR_LOST_CONNECTION &&
                context()->photo_db != nullptr) {
                list("/Media/Photo");
                EXPECT_EQ(shown("/Media/Photo/Camera Roll").size(), 13U);
            }
        });
}

} // namespace
