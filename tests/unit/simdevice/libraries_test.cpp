// The libraries of sample devices, read as somebody who copies the databases
// off the device does.

#include <algorithm>
#include <filesystem>
#include <memory>
#include <set>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "sim_process.h"

using namespace simtest;

namespace
{

namespace fs = std::filesystem;

// A copy of a database in a folder of its own, so that the device is not
// changed by reading it.
class Copy
{
  public:
    Copy(const std::string &media, const std::string &path, bool with_log)
    {
        const std::string target = m_folder.path() + "/copy.db";
        for (const char *tail : {"", "-wal", "-shm"}) {
            std::string source = media;
            source.append("/").append(path).append(tail);
            if (fs::exists(source) && (*tail == '\0' || with_log)) {
                fs::copy_file(source, target + tail);
            }
        }
        sqlite3 *handle = nullptr;
        sqlite3_open_v2(target.c_str(), &handle, SQLITE_OPEN_READWRITE,
                        nullptr);
        m_handle.reset(handle);
        EXPECT_EQ(first("PRAGMA integrity_check"), "ok") << path;
    }

    // The first column of all rows; a failure is a row of its own.
    std::vector<std::string> column(const std::string &sql) const
    {
        std::vector<std::string> rows;
        sqlite3_stmt *prepared = nullptr;
        sqlite3_prepare_v2(m_handle.get(), sql.c_str(), -1, &prepared, nullptr);
        const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt *)> statement(
            prepared, sqlite3_finalize);
        int status = SQLITE_ERROR;
        while (prepared != nullptr &&
               (status = sqlite3_step(prepared)) == SQLITE_ROW) {
            const auto *text = sqlite3_column_text(prepared, 0);
            rows.emplace_back(text != nullptr
                                  ? reinterpret_cast<const char *>(text)
                                  : "(null)");
        }
        if (status != SQLITE_DONE) {
            rows.emplace_back(sqlite3_errmsg(m_handle.get()));
        }
        return rows;
    }
    std::string first(const std::string &sql) const
    {
        const std::vector<std::string> rows = column(sql);
        return rows.empty() ? "(no row)" : rows[0];
    }

  private:
    TempFolder m_folder;
    std::unique_ptr<sqlite3, int (*)(sqlite3 *)> m_handle{nullptr,
                                                          sqlite3_close};
};

struct Generation {
    const char *ios;
    bool cloud;
    const char *asset_table;
    const char *join;   // table and its column of assets
    const char *entity; // of photos
    bool saved_photos;  // has an album of kind 1000
    int photos;         // rows, with five plain ones
    const char *memos;
    int memo_rows;
};

const Generation kGenerations[] = {
    {"8.4", false, "ZGENERICASSET", "Z_15ASSETS.Z_22ASSETS", "23", true, 56,
     "Recordings.db", 12},
    {"9.2", true, "ZGENERICASSET", "Z_15ASSETS.Z_22ASSETS", "23", true, 58,
     "Recordings.db", 12},
    {"9.3.5", true, "ZGENERICASSET", "Z_15ASSETS.Z_22ASSETS", "23", true, 58,
     "Recordings.db", 12},
    {"10.2", false, "ZGENERICASSET", "Z_19ASSETS.Z_26ASSETS", "27", true, 56,
     "Recordings.db", 12},
    {"10.3", false, "ZGENERICASSET", "Z_20ASSETS.Z_27ASSETS", "28", true, 56,
     "Recordings.db", 12},
    {"11.4", false, "ZGENERICASSET", "Z_20ASSETS.Z_27ASSETS", "28", true, 59,
     "Recordings.db", 12},
    {"12.4", true, "ZGENERICASSET", "Z_23ASSETS.Z_30ASSETS", "31", false, 61,
     "CloudRecordings.db", 12},
    {"13.7", false, "ZGENERICASSET", "Z_26ASSETS.Z_34ASSETS", "35", false, 58,
     "CloudRecordings.db", 12},
    {"14.8", false, "ZASSET", "Z_26ASSETS.Z_3ASSETS", "3", false, 58,
     "CloudRecordings.db", 13},
    {"15.7", false, "ZASSET", "Z_27ASSETS.Z_3ASSETS", "3", false, 58,
     "CloudRecordings.db", 13},
    {"16.7", true, "ZASSET", "Z_28ASSETS.Z_3ASSETS", "3", false, 60,
     "CloudRecordings.db", 13},
    {"17.5.1", false, "ZASSET", "Z_28ASSETS.Z_3ASSETS", "3", false, 58, nullptr,
     0},
    {"17.6", false, "ZASSET", "Z_29ASSETS.Z_3ASSETS", "3", false, 58, nullptr,
     0},
    {"18.3", false, "ZASSET", "Z_30ASSETS.Z_3ASSETS", "3", false, 58, nullptr,
     0},
    {"26.1", false, "ZASSET", "Z_33ASSETS.Z_3ASSETS", "3", false, 58, nullptr,
     0},
};

class Libraries : public testing::TestWithParam<Generation>
{
  protected:
    Libraries()
    {
        std::vector<std::string> options = {"--ios", GetParam().ios, "--photos",
                                            "5",     "--songs",      "3"};
        if (GetParam().cloud) {
            options.emplace_back("--cloud");
        }
        m_media = makeDevice(m_folder, "device", options) + "/Media";
    }
    void checkPhotos() const;
    void checkFiles() const;
    void checkMemos() const;
    void checkLogs() const;

    int64_t fileSize(const std::string &path) const
    {
        std::error_code error;
        const auto size = fs::file_size(m_media + "/" + path, error);
        return error ? -1 : static_cast<int64_t>(size);
    }

    TempFolder m_folder;
    std::string m_media;
};

// The tables and numbers are those of the version.
void Libraries::checkPhotos() const
{
    const Generation &want = GetParam();
    const std::string assets = want.asset_table;
    const Copy database(m_media, "PhotoData/Photos.sqlite", true);
    EXPECT_EQ(database.first("SELECT count(*) FROM " + assets),
              std::to_string(want.photos));
    EXPECT_EQ(database.first("SELECT Z_ENT FROM " + assets + " ORDER BY Z_PK"),
              want.entity);
    // The numbers that lead to the join are those of the list of entities.
    const std::string join = want.join;
    const size_t dot = join.find('.');
    const std::string album =
        database.first("SELECT Z_ENT FROM Z_PRIMARYKEY WHERE Z_NAME='Album'");
    EXPECT_EQ(join.substr(0, dot), "Z_" + album + "ASSETS");
    EXPECT_EQ(database.column("SELECT " + join.substr(dot + 1) + " FROM " +
                              join.substr(0, dot) + " WHERE Z_" + album +
                              "ALBUMS=10 ORDER BY 1"),
              (std::vector<std::string>{"1", "2", "24", "25", "30", "57"}));
    EXPECT_EQ(database
                  .column("SELECT ZKIND FROM ZGENERICALBUM WHERE ZKIND IN "
                          "(1000, 1500, 1505) ORDER BY 1")
                  .size(),
              want.saved_photos ? 3U : 2U);
    // Only before 12 are there rows of what a cloud device has of each.
    const bool resources = want.memos != nullptr && want.cloud &&
                           std::string(want.memos) == "Recordings.db";
    EXPECT_EQ(database.first("SELECT count(*)>0 FROM ZCLOUDMASTER"),
              want.cloud ? "1" : "0");
    EXPECT_EQ(database.first("SELECT ZFILEPATH FROM ZCLOUDRESOURCE"),
              resources ? "/var/mobile/Media/DCIM/900APPLE/IMG_9001.JPG"
                        : "(no row)");
}

// Each row leads to its file and attributes, except where it is meant not to.
void Libraries::checkFiles() const
{
    const std::string assets = GetParam().asset_table;
    const Copy photos(m_media, "PhotoData/Photos.sqlite", true);
    std::set<std::string> odd;
    const std::string from =
        " FROM " + assets +
        " p JOIN ZADDITIONALASSETATTRIBUTES a ON "
        "p.ZADDITIONALATTRIBUTES=a.Z_PK AND a.ZASSET=p.Z_PK"
        " ORDER BY p.Z_PK";
    const auto paths =
        photos.column("SELECT ZDIRECTORY||'/'||ZFILENAME" + from);
    const auto names = photos.column("SELECT ZORIGINALFILENAME" + from);
    const auto sizes = photos.column("SELECT ZORIGINALFILESIZE" + from);
    ASSERT_EQ(paths.size(), static_cast<size_t>(GetParam().photos));
    for (size_t i = 0; i < paths.size(); i++) {
        if (std::to_string(fileSize(paths[i])) != sizes[i]) {
            odd.insert(names[i]);
        }
    }
    std::set<std::string> expected = {"Stale size.JPG", "Size zero.JPG",
                                      "Empty file.JPG", "Missing.JPG",
                                      "Shared unknown size.JPG"};
    if (GetParam().cloud) {
        expected.merge(std::set<std::string>{
            "Cloud only.JPG", "Cloud preview.JPG", "IMG_0004.JPG"});
    }
    EXPECT_EQ(odd, expected);

    const Copy music(m_media, "iTunes_Control/iTunes/MediaLibrary.sqlitedb",
                     true);
    odd.clear();
    const char *rows =
        " FROM item LEFT JOIN item_extra USING (item_pid)"
        " LEFT JOIN base_location USING (base_location_id) ORDER BY item_pid";
    const auto places =
        music.column("SELECT path||'/'||location" + std::string(rows));
    const auto titles = music.column("SELECT title" + std::string(rows));
    const auto bytes = music.column("SELECT file_size" + std::string(rows));
    for (size_t i = 0; i < places.size(); i++) {
        if (std::to_string(fileSize(places[i])) != bytes[i]) {
            odd.insert(titles[i]);
        }
    }
    EXPECT_EQ(titles.size(), 22U + 8U + 2U + 2U + 3U);
    EXPECT_EQ(titles.back(), "Song 00003");
    EXPECT_EQ(odd,
              (std::set<std::string>{"Off by one", "Size zero", "Elsewhere",
                                     "Missing", "No location"}));
}

// Memos are where the version keeps them.
void Libraries::checkMemos() const
{
    const Generation &want = GetParam();
    EXPECT_EQ(fs::exists(m_media + "/Recordings"), want.memos != nullptr);
    if (want.memos == nullptr) {
        return;
    }
    const bool old = std::string(want.memos) == "Recordings.db";
    EXPECT_EQ(fs::exists(m_media + "/Recordings/Recordings.db"), old);
    const Copy database(m_media, std::string("Recordings/") + want.memos, true);
    const std::string table = old ? "ZRECORDING" : "ZCLOUDRECORDING";
    EXPECT_EQ(database.first("SELECT count(*) FROM " + table),
              std::to_string(want.memo_rows));
    const std::string path = database.first("SELECT ZPATH FROM " + table);
    EXPECT_EQ(path, old ? "/var/mobile/Media/Recordings/20200201 100000.m4a"
                        : "20200201 100000-4FA30001.m4a");
    EXPECT_EQ(fileSize("Recordings/" + path.substr(path.rfind('/') + 1)), 2100);
}

// Whoever leaves the log behind sees yesterday's library, and a sound one.
void Libraries::checkLogs() const
{
    const std::string photos =
        "SELECT count(*) FROM " + std::string(GetParam().asset_table);
    const std::string albums =
        "SELECT count(*) FROM ZGENERICALBUM WHERE ZTITLE='New this week'";
    const std::string songs = "SELECT count(*) FROM item";
    const auto counts = [&](bool with_log) {
        const Copy photo_copy(m_media, "PhotoData/Photos.sqlite", with_log);
        const Copy music_copy(
            m_media, "iTunes_Control/iTunes/MediaLibrary.sqlitedb", with_log);
        return std::vector<int>{std::stoi(photo_copy.first(photos)),
                                std::stoi(photo_copy.first(albums)),
                                std::stoi(music_copy.first(songs))};
    };
    EXPECT_EQ(counts(true), (std::vector<int>{GetParam().photos, 1, 37}));
    EXPECT_EQ(counts(false), (std::vector<int>{GetParam().photos - 4, 0, 35}));
}

TEST_P(Libraries, AreThoseOfTheVersion)
{
    checkPhotos();
    checkFiles();
    checkMemos();
    checkLogs();
}

INSTANTIATE_TEST_SUITE_P(Ios, Libraries, testing::ValuesIn(kGenerations),
                         [](const testing::TestParamInfo<Generation> &one) {
                             std::string name = one.param.ios;
                             std::replace(name.begin(), name.end(), '.', '_');
                             return name + (one.param.cloud ? "cloud" : "");
                         });

} // namespace
