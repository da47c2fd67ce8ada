// Photos: the root's folders, the three families of queries, the entries.
#include <algorithm>
#include <map>

#include "tarnifs/media/library.h"
#include "tarnifs/media/naming.h"
#include "tarnifs/media/sql.h"
#include "tarnifs/names/encoding.h"
#include "tarnifs/notify/tray_pipe.h"
#include "tests/handlers/media_fixture.h"

namespace
{

class Photos : public MediaTest
{
};

const Names ROOT = {"Camera Roll",     "Trip",        "Trip (2)",
                    "My Photo Stream", "A:B",         "My Panoramas",
                    "Panoramas",       "Screenshots", "Recorded Videos",
                    "Slo-mo",          "Time-lapse"};

struct Expected {
    SampleGeneration generation;
    bool probes; // selfies and bursts are looked for
    std::map<std::string, Names> folders;
};

// The films of live photos come from the second request; "live.png" has none
// and is listed twice; 14 is gone, 17 has no name, 18 leads out, 21 is no UTF-8.
const Names LIVE = {"IMG_0005.JPG", "IMG_0005.MOV"};
const std::vector<Expected> GENERATIONS = {
    {IOS_8,
     false,
     {{"Camera Roll",
       {"IMG_0001.JPG", "IMG_0003.JPG", "IMG_0004.PNG", "IMG_0005.JPG",
        "IMG_0005.MOV", "IMG_0008.JPG", "IMG_0009.JPG", "IMG_0011.JPG",
        "IMG_0001 (2).JPG", "IMG_0015.JPG", "IMG_0016.HEIC", "IMG_0016.MOV",
        "IMG_0019.JPG", "live.png", "live (2).png"}},
      {"Trip",
       {"IMG_0001.JPG", "IMG_0002.MOV", "IMG_0005.JPG", "IMG_0005.MOV",
        "IMG_0011.JPG"}}}},
    {IOS_9_CLOUD,
     true,
     {{"Camera Roll",
       {"IMG_0001.JPG", "IMG_0004.PNG", "IMG_0005.JPG", "IMG_0008.JPG",
        "IMG_0009.JPG", "IMG_0011.JPG", "IMG_0001 (2).JPG", "IMG_0016.HEIC",
        "IMG_0019.JPG", "live.png"}},
      {"Panoramas", {}},
      {"My Panoramas", {}},
      {"Trip",
       {"IMG_0001.JPG", "IMG_0002.MOV", "IMG_0005.JPG", "IMG_0011.JPG"}}}},
    {IOS_13, true, {}},
    {IOS_17, true, {}},
};
const std::map<std::string, Names> FOLDERS = {
    {"Camera Roll",
     {"IMG_0001.JPG", "IMG_0003.JPG", "IMG_0004.PNG", "IMG_0005.JPG",
      "IMG_0005.MOV", "IMG_0008.JPG", "IMG_0009.JPG", "IMG_0001 (2).JPG",
      "IMG_0015.JPG", "IMG_0016.HEIC", "IMG_0016.MOV", "live.png",
      "live (2).png"}},
    {"Recorded Videos", {"IMG_0002.MOV", "IMG_0006.MOV", "IMG_0007.MOV"}},
    {"Panoramas", {"IMG_0003.JPG"}},
    {"My Panoramas", {"IMG_0003.JPG"}}, // by its name
    {"Screenshots", {"IMG_0004.PNG"}},
    {"Slo-mo", {"IMG_0006.MOV"}},
    {"Time-lapse", {"IMG_0007.MOV"}},
    {"Selfies", {"IMG_0008.JPG"}},
    {"Bursts", {"IMG_0009.JPG"}},
    {"Trip",
     {"IMG_0001.JPG", "IMG_0002.MOV", "IMG_0005.JPG", "IMG_0005.MOV",
      "IMG_0011.JPG"}},
    {"Trip (2)", {}},
    {"A:B", {"IMG_0008.JPG"}},
    {"My Photo Stream", {"IMG_0009.JPG"}},
};

TEST_F(Photos, EveryFolderOfEveryGeneration)
{
    for (const Expected &expected : GENERATIONS) {
        SCOPED_TRACE(expected.generation.version);
        unmount();
        freshDevice();
        addPhotos(expected.generation);
        Names root = ROOT;
        // Kinds come in the order of their subtypes; a table's first rows with
        // subtype 0 decide where the videos' folder stands.
        root.erase(std::find(root.begin(), root.end(), "Recorded Videos"));
        root.insert(std::find(root.begin(), root.end(), "Panoramas"),
                    "Recorded Videos");
        if (expected.probes) {
            root.insert(root.end(), {"Selfies", "Bursts"});
        }
        EXPECT_EQ(shownAfterMount("/Media/Photo"), root);
        EXPECT_EQ(shown("/Media/Photo"), root); // from the catalogue
        for (const auto &[kind, names] : FOLDERS) {
            SCOPED_TRACE(kind);
            const bool isProbed = kind == "Selfies" || kind == "Bursts";
            if (isProbed && !expected.probes) {
                continue;
            }
            const auto special = expected.folders.find(kind);
            EXPECT_EQ(shown("/Media/Photo/" + kind),
                      special == expected.folders.end() ? names
                                                        : special->second);
        }
        expectNothingRaised();
    }
}

TEST_F(Photos, EntriesSayWhatTheDeviceHas)
{
    addPhotos(IOS_17);
    shownAfterMount("/Media/Photo");
    shown("/Media/Photo/Camera Roll");
    const struct {
        const char *name;
        const char *devicePath;
        off_t size;
        int64_t birth;
        int64_t modify; // 0: now
    } cases[] = {
        {"IMG_0001.JPG", "/DCIM/100APPLE/A001.JPG", 100, 1578307200,
         1478307300},
        {"IMG_0001 (2).JPG", "/DCIM/101APPLE/A013.JPG", 100, 1578307200,
         1478307300},
        {"IMG_0005.MOV", "/DCIM/100APPLE/A005.MOV", 4, 1578307200, 1478307300},
        {"IMG_0016.MOV", "/DCIM/101APPLE/A016.MOV", 4, 1578307200, 1478307300},
        {"live (2).png", "/DCIM/101APPLE/A020.png", 100, 1578307200,
         1478307300},
        {"IMG_0015.JPG", "/DCIM/101APPLE/A015.JPG", 99, 1478307200, 0},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.name);
        const std::string path =
            std::string("/Media/Photo/Camera Roll/") + each.name;
        const _KTL_OBJECT *record = object(path);
        ASSERT_NE(record, nullptr);
        EXPECT_STREQ(Value(record->device_path), each.devicePath);
        EXPECT_EQ(Value(record->type), KTL_DEVICE_FILE);
        EXPECT_EQ(attributes(path).st_size, each.size);
        EXPECT_EQ(Value(record->birth_time), each.birth);
        EXPECT_NEAR(
            static_cast<double>(Value(record->modify_time)),
            static_cast<double>(each.modify != 0 ? each.modify : time(nullptr)),
            each.modify != 0 ? 0 : 5);
    }
    EXPECT_EQ(Value(object("/Media/Photo/Camera Roll")->sub_type), 200U);
    EXPECT_EQ(Value(object("/Media/Photo/Trip (2)")->sub_type), 202U);
    for (const char *line :
         {"GetPhotoFromDevice file : (gone.JPG) get info failed. ret ; -70",
          "GetPhotoFromDevice file : (A015.JPG), database file size : 100, "
          "local file size : 99",
          "GetPhotoFromDevice getUTF8MACName failed.",
          "GetPhotoFromDevice path leads out of the media folder. "
          "path(/DCIM/../../etc/A018.JPG)"}) {
        expectLogged(line);
    }
    tarni_file_info fi;
    const std::string film = "/Media/Photo/Camera Roll/IMG_0005.MOV";
    ASSERT_EQ(open(film, &fi), 0);
    EXPECT_EQ(read(film, &fi, 10, 0), "film");
    EXPECT_EQ(release(film, &fi), 0);
}

// Each information request that a listing makes was sent ahead, in that order.
TEST_F(Photos, RequestsAreSentAheadInTheirOrder)
{
    addPhotos(IOS_17);
    shownAfterMount("/Media/Photo");
    memoryWorld.forgetCalls();
    shown("/Media/Photo/Camera Roll");
    std::vector<std::string> asked;
    const std::string call = "libiusb_afc_file_get_info ";
    for (const std::string &each : memoryWorld.calls) {
        if (each.rfind(call, 0) == 0) {
            asked.push_back(each.substr(call.size()));
        }
    }
    EXPECT_EQ(asked, memoryWorld.prefetched);
    EXPECT_EQ(asked.size(), 15U); // no second one for what was passed over
    EXPECT_EQ(memoryWorld.count("libiusb_afc_prefetch_info"), 1);
    memoryWorld.forgetCalls();
    shown("/Media/Photo/Camera Roll");
    EXPECT_EQ(memoryWorld.calls, std::vector<std::string>());
}

TEST_F(Photos, LongListingsAreAnnounced)
{
    std::string sql =
        "CREATE TABLE ZGENERICASSET (Z_PK INTEGER PRIMARY KEY, Z_ENT, ZKIND,"
        " ZKINDSUBTYPE, ZTRASHEDSTATE, ZVISIBILITYSTATE, ZMOMENT,"
        " ZADDITIONALATTRIBUTES, ZDIRECTORY, ZFILENAME);"
        "CREATE TABLE ZADDITIONALASSETATTRIBUTES (Z_PK INTEGER PRIMARY KEY,"
        " ZORIGINALFILESIZE, ZORIGINALFILENAME);"
        "CREATE TABLE ZMOMENT (Z_PK INTEGER PRIMARY KEY, ZREPRESENTATIVEDATE);"
        "CREATE TABLE Z_PRIMARYKEY (Z_ENT, Z_NAME);"
        "INSERT INTO Z_PRIMARYKEY VALUES (8, 'GenericAsset');"
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n WHERE"
        " i<501) INSERT INTO ZGENERICASSET SELECT i, 9, 0, CASE WHEN i<501 THEN"
        " 10 END, 0, 0, NULL, i, 'd', i FROM n;"
        "INSERT INTO ZADDITIONALASSETATTRIBUTES SELECT Z_PK, 1, 'same' FROM"
        " ZGENERICASSET;";
    setVersion("12.4");
    media().addFile(PHOTOS, BuildDatabase(sql));
    for (int i = 1; i <= 501; ++i) {
        media().addFile("/d/" + std::to_string(i), "x");
    }
    TrayReader tray(trayPipePath);
    shownAfterMount("/Media/Photo");
    tray.read();
    Names names = shown("/Media/Photo/Screenshots");
    EXPECT_EQ(tray.read(), "");
    ASSERT_EQ(names.size(), 500U);
    EXPECT_EQ(names.front(), "same"); // without a dot: the number goes last
    EXPECT_EQ(names.back(), "same (500)");
    EXPECT_EQ(shown("/Media/Photo/Camera Roll").size(), 501U);
    EXPECT_EQ(tray.read(), "-neon-neoff");
    // Columns that only other folders need were NULL, and named.
    expectLogged("InstallPhotoViews column is missing. table : ZGENERICASSET, "
                 "column : ZAVALANCHEPICKTYPE");
    expectLogged("InstallPhotoViews table is missing. table : ZGENERICALBUM");
}

// The texts, put together here from the conditions that each folder has.
TEST(PhotoQueries, AreTheTextsOfOld)
{
    const std::map<char, std::string> conditions = {
        {'T', "@A.ZTRASHEDSTATE like 0"},
        {'v', "@A.ZVISIBILITYSTATE like 0"},
        {'V', "@A.ZVISIBILITYSTATE is not 1"},
        {'0', "@A.ZKIND like 0"},
        {'1', "@A.ZKIND like 1"},
        {'p', "@A.ZKINDSUBTYPE like 1"},
        {'s', "@A.ZKINDSUBTYPE like 10"},
        {'m', "@A.ZKINDSUBTYPE like 101"},
        {'l', "@A.ZKINDSUBTYPE like 102"},
        {'c', "@D.ZCAMERACAPTUREDEVICE like 1"},
        {'b',
         "(@A.ZAVALANCHEPICKTYPE like 52 or @A.ZAVALANCHEPICKTYPE like 16 or"
         " @A.ZAVALANCHEPICKTYPE like 20)"},
        {'E', "@A.Z_ENT like 35"},
        {'R', "ZGENERICALBUM.ZKIND like 1000"},
        {'K', "ZGENERICALBUM.Z_PK=7"},
        {'L', "ZCLOUDRESOURCE.ZISLOCALLYAVAILABLE like 1"},
        {'w', "ZCLOUDRESOURCE.ZISLOCALLYAVAILABLE like 1 "},
        {'M', "ZCLOUDRESOURCE.ZCLOUDMASTER is not NULL order by"
              " ZCLOUDRESOURCE.ZCLOUDMASTER, ZCLOUDRESOURCE.ZTYPE"},
    };
    const struct {
        const char *folder;
        const char *ten;
        const char *nonCloud;
        const char *cloud;
    } cases[] = {
        {"Camera Roll", "0TvE", "0TVR", "RTVL0M"},
        {"Recorded Videos", "Tv1E", "TV1R", "TVL1M"},
        {"Panoramas", "Tv0pE", "TV0pR", "TVL0pM"},
        {"Screenshots", "Tv0sE", "TV0sR", "TVw0sM"},
        {"Slo-mo", "Tv1mE", "TV1mR", "TVL1mM"},
        {"Time-lapse", "Tv1lE", "TV1lR", "TVL1lM"},
        {"Selfies", "Tv0cE", "TV0cR", "TVL0cM"},
        {"Bursts", "Tv0bE", "TV0bR", "TVL0bM"},
        {"An album", "KTV", "KTV", "KTVLM"},
    };
    const std::string details =
        " left outer join ZMOMENT on @A.ZMOMENT=ZMOMENT.Z_PK left outer join @D "
        "on @A.ZADDITIONALATTRIBUTES=@D.Z_PK";
    const std::string album =
        " from ZGENERICALBUM left outer join Z_26ASSETS on ZGENERICALBUM.Z_PK="
        "Z_26ASSETS.Z_26ALBUMS left outer join @A on Z_26ASSETS.Z_34ASSETS="
        "@A.Z_PK" +
        details;
    const std::string cloud =
        album + " left outer join ZCLOUDMASTER on @A.ZMASTER=ZCLOUDMASTER.Z_PK "
                "left outer join ZCLOUDRESOURCE on ZCLOUDRESOURCE.ZASSETUUID "
                "like @A.ZUUID";
    const std::string dates =
        "ZMOMENT.ZREPRESENTATIVEDATE+978307200, @A.ZMODIFICATIONDATE+978307200, ";
    const std::string columns =
        "select ZDIRECTORY, ZFILENAME, " + dates +
        "@D.ZORIGINALFILESIZE, @A.ZDATECREATED+978307200, @A.ZCLOUDASSETGUID, "
        "@D.ZORIGINALFILENAME, @A.ZKINDSUBTYPE";
    const std::string cloudColumns =
        "select ZCLOUDRESOURCE.ZFILEPATH, ZCLOUDMASTER.ZORIGINALFILENAME, " +
        dates +
        "ZCLOUDRESOURCE.ZFILESIZE, ZCLOUDRESOURCE.ZCLOUDMASTER, "
        "ZCLOUDRESOURCE.ZTYPE";
    const auto check = [&](PHOTO_FAMILY family, const std::string &folder,
                           const std::string &list, const std::string &count,
                           const std::string &from, const char *letters) {
        std::string tail = from;
        const char *word = " where ";
        for (const char *at = letters; *at != '\0'; ++at, word = " and ") {
            tail += word + conditions.at(*at);
        }
        const auto full = [](const std::string &text) {
            return replaceAll(replaceAll(text, "@A", "ZGENERICASSET"), "@D",
                              "ZADDITIONALASSETATTRIBUTES");
        };
        const PHOTO_QUERY query{
            family, &PhotoFolderOf("/Media/Photo/" + folder), 26, 34, 35, 7,
            true};
        EXPECT_EQ(PhotoRowsQuery(query), full(list + tail));
        EXPECT_EQ(PhotoCountQuery(query), full(count + tail));
    };
    const std::string count = "select count(@A.Z_PK)";
    for (const auto &each : cases) {
        SCOPED_TRACE(each.folder);
        const std::string folder = each.folder;
        check(PHOTO_FAMILY::TEN, folder, columns, count,
              folder == "An album" ? album : " from @A" + details, each.ten);
        check(PHOTO_FAMILY::NON_CLOUD, folder, columns,
              folder == "Camera Roll" ? count + " " : count, album,
              each.nonCloud);
        check(PHOTO_FAMILY::CLOUD, folder,
              folder == "Recorded Videos" ? cloudColumns
                                          : cloudColumns + ", @A.ZKINDSUBTYPE",
              count, cloud, each.cloud);
    }
    const PHOTO_QUERY old{
        PHOTO_FAMILY::CLOUD, &PhotoFolderOf("Slo-mo"), 1, 2, 3, 4, false};
    EXPECT_NE(PhotoRowsQuery(old).find("join ZCLOUDMASTER on "
                                       "ZADDITIONALASSETATTRIBUTES.ZCLOUDMASTER"
                                       "=ZCLOUDMASTER.Z_PK"),
              std::string::npos);
}

TEST(MediaNames, AreCutAtACharacterAndKeepWhatTellsThemApart)
{
    const auto numbered = [](const std::string &name, const char *number,
                             NUMBER_PLACE place) {
        return NumberedName(name, number, place);
    };
    const NUMBER_PLACE dot = NUMBER_PLACE::BEFORE_EXTENSION;
    const std::string letters(300, 'a');
    EXPECT_EQ(numbered("a.b.c", " (2)", dot), "a.b (2).c");
    EXPECT_EQ(numbered("a.b", " (2)", NUMBER_PLACE::AT_END), "a.b (2)");
    EXPECT_EQ(numbered("ab", " (12345)", dot), "ab (12345)");
    EXPECT_EQ(numbered(letters + ".jpeg", " (2)", dot),
              letters.substr(0, 246) + " (2).jpeg");
    EXPECT_EQ(numbered("a." + letters, "", dot),
              ("a." + letters).substr(0, 255));
    // Each of these is 3 bytes, and 9 when it is taken apart.
    std::string hangul;
    for (int i = 0; i < 40; ++i) {
        hangul += "\uAC01";
    }
    EXPECT_EQ(numbered(hangul + ".m", " (2)", dot),
              hangul.substr(0, 27 * 3) + " (2).m");
    std::string album;
    ASSERT_TRUE(AlbumName("test", hangul, &album)); // decomposed
    EXPECT_EQ(album.size(), hangul.size() * 3);
    EXPECT_EQ(numbered(album, " (2)", NUMBER_PLACE::AT_END),
              album.substr(0, 27 * 9) + " (2)");
    EXPECT_EQ(FilmOf("/DCIM/JPG/A.JPG"), "/DCIM/MOV/A.MOV");
    EXPECT_EQ(FilmOf("/DCIM/JPG/A.Heic"), "/DCIM/JPG/A.MOV");
    EXPECT_EQ(FilmOf("A.heic.png"), "A.heic.png");
    EXPECT_TRUE(LeadsOut("..") && LeadsOut("a/../b") && !LeadsOut("a/..b/c"));
    std::string cut = "ab\xED\x95";
    DropBrokenTail(&cut);
    EXPECT_EQ(cut, "ab");
    cut = "\xC3\xA9";
    DropBrokenTail(&cut);
    EXPECT_EQ(cut, "\xC3\xA9");
}

TEST(IosVersion, IsComparedByItsFirstTwoNumbers)
{
    const struct {
        const char *version;
        int nine, nineThree, ten;
    } cases[] = {{"9.3.5", 0, 0, -1}, {"9.2", 0, -1, -1},    {"10", -1, -1, -1},
                 {"10.0", 0, 0, 0},   {"8.4.1", -1, -1, -1}, {"", -1, -1, -1},
                 {"17.6", 0, 0, 0}};
    for (const auto &each : cases) {
        SCOPED_TRACE(each.version);
        EXPECT_EQ(checkiOSVersion(each.version, 9, 0), each.nine);
        EXPECT_EQ(checkiOSVersion(each.version, 9, 3), each.nineThree);
        EXPECT_EQ(checkiOSVersion(each.version, 10, 0), each.ten);
    }
}

} // namespace
