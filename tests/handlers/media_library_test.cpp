// Music, podcasts, movies and voice memos.
#include "tarnifs/names/encoding.h"
#include "tarnifs/notify/tray_pipe.h"
#include "tests/handlers/media_fixture.h"

namespace
{

class Library : public MediaTest
{
};

std::string repeated(const std::string &text, int times)
{
    std::string all;
    for (int i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

TEST_F(Library, ItemsAreNamedAfterArtistAndTitle)
{
    const std::string ascii = repeated("x", 200);
    const std::string kana = repeated("\u3042", 50);            // 3 bytes each
    const std::string shifted = "ab" + repeated("\u00E9", 100); // 2 bytes each
    struct Case {
        SampleSong song;
        std::string music; // "": not listed
        std::string movie;
    };
    const std::vector<Case> cases = {
        {{"A", "T", "ABCD.mp3"}, "A-T.mp3", "A-T.mp3"},
        {{"A", "T", "EFGH.mp3"}, "A-T (2).mp3", "A-T (2).mp3"},
        {{"A", "T", "IJKL.mp3"}, "A-T (3).mp3", "A-T (3).mp3"},
        {{nullptr, "Alone", "a.b.mp3"}, "Alone.b.mp3", "Alone.b.mp3"},
        {{"A", nullptr, "b.mp3"}, "A-.mp3", "A-.mp3"},
        {{"AC/DC", "e\u0301", "c.mp3"}, "AC:DC-\u00E9.mp3", "AC:DC-\u00E9.mp3"},
        {{nullptr, "My Songwlrtitdb 1 ", "d.mp3"},
         "My Song.mp3",
         "My Songwlrtitdb 1 .mp3"},
        {{nullptr, "wlrtitdb wlrtitdb 2", "e.mp3"},
         "wlrtitdb.mp3",
         "wlrtitdb wlrtitdb 2.mp3"},
        {{nullptr, "twice", "noext"}, "twice", "twice"},
        {{nullptr, "twice", "noext2"}, "twice (2)", "twice (2)"},
        {{nullptr, ascii.c_str(), "f.mp3"},
         ascii.substr(0, 132) + ".mp3",
         ascii.substr(0, 132) + ".mp3"},
        {{nullptr, kana.c_str(), "g.mp3"},
         kana.substr(0, 126) + ".mp3",
         kana.substr(0, 129) + ".mp3"},
        {{nullptr, shifted.c_str(), "h.mp3"},
         shifted.substr(0, 126) + ".mp3",
         shifted.substr(0, 132) + ".mp3"},
        {{"A", "stale", "i.mp3", "F1", 6}, "", ""},
        {{"A", "empty", "j.mp3", "F1", 0}, "", ""},
        {{"A", "no base", "k.mp3", nullptr}, "", ""},
        {{"A", "no location", nullptr}, "", ""},
        {{"A", "cloud", "", ""}, "", ""},
        {{"A", "out", "../../l.mp3"}, "", ""},
        {{"A", "bad\xFF", "m.mp3"}, "", ""},
        {{nullptr, "", "noname"}, "", ""},
    };
    std::vector<SampleSong> songs;
    Names music;
    Names movies;
    for (const int kind : {1, 4, 6, 1024}) {
        for (const Case &each : cases) {
            songs.push_back(each.song);
            songs.back().kind = kind;
            if (kind == 1 && !each.music.empty()) {
                music.push_back(each.music);
            }
            if (kind > 10 && !each.movie.empty()) {
                movies.push_back(each.movie);
            }
        }
    }
    songs.push_back({"A", "film", "n.mp4", "F1", 5, 2});
    addSongs(songs);
    ASSERT_TRUE(mount());
    EXPECT_EQ(shown("/Media"), (Names{"Podcast", "Music", "Movies", "Photo"}));
    EXPECT_EQ(shown("/Media/Music"), music);
    EXPECT_EQ(shown("/Media/Movies"), movies);
    EXPECT_EQ(shown("/Media/Podcast").size(), movies.size() * 2);
    const _KTL_OBJECT *song = object("/Media/Music/A-T (2).mp3");
    EXPECT_STREQ(Value(song->device_path),
                 "/iTunes_Control/Music/F00/EFGH.mp3");
    EXPECT_EQ(Value(song->type), KTL_ORDINARY);
    EXPECT_EQ(Value(song->size), 5U);
    EXPECT_EQ(Value(song->birth_time), 1500000000);
    EXPECT_EQ(Value(song->access_time), 1600000000);
    for (const std::string &line : std::vector<std::string>{
             "enumMedia file : (i.mp3), database file size : 6, local file "
             "size : 5",
             "enumMedia file : (j.mp3) size 0",
             "enumMedia getUTF8MACName failed.",
             "enumMedia " + ascii + " filename length is over 200."}) {
        expectLogged(line);
    }
    EXPECT_EQ(countLogged("enumMedia " + ascii +
                          " filename length is over "
                          "200."),
              1);
    tarni_file_info fi;
    ASSERT_EQ(open("/Media/Music/A-T.mp3", &fi), 0);
    EXPECT_EQ(read("/Media/Music/A-T.mp3", &fi, 10, 0), "music");
    EXPECT_EQ(release("/Media/Music/A-T.mp3", &fi), 0);
}

TEST_F(Library, MemosComeFromTheOlderOrTheNewerDatabase)
{
    const std::string root = "/var/mobile/Media/Recordings/";
    const SampleMemos memos = {
        {"Talk", root + "rec1.m4a"},   {"Talk", root + "rec1.m4a"},
        {"Talk_rec1", root + "2.m4a"}, {"Talk", root + "rec1_2.m4a"},
        {"a/b", "rec3.m4a"},           {"", root + "rec1.m4a"},
        {"Short", "/a.m4a"},           {"Gone", root + "gone.m4a"},
        {"Empty", root + "empty.m4a"}, {"Out", root + "../x.m4a"}};
    Names expected = {"Talk_rec1.m4a", "Talk_rec1_2.m4a", "Talk_rec1_2 (2).m4a",
                      "a:b_rec3.m4a"};
    const struct {
        const char *what;
        std::string older; // "": none
        std::string newer;
    } cases[] = {
        {"older", RecordingsDatabase(memos), CloudRecordingsDatabase({})},
        {"newer", "", CloudRecordingsDatabase(memos)},
        {"newer beside an empty one", RecordingsDatabase({}),
         CloudRecordingsDatabase(memos)},
        {"newer beside one without a table", BuildDatabase("CREATE TABLE x(y)"),
         CloudRecordingsDatabase(memos)},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.what);
        if (expected.size() == 4 && each.what != std::string("older")) {
            // There a recording without a title has a date instead.
            expected.emplace_back("2019-04-16T00:01:01Z_rec1.m4a");
        }
        unmount();
        freshDevice();
        for (const char *name :
             {"rec1.m4a", "2.m4a", "rec1_2.m4a", "rec3.m4a", "../x.m4a"}) {
            media().addFile(std::string("/Recordings/") + name, "sound");
        }
        media().addFile("/Recordings/empty.m4a");
        if (!each.older.empty()) {
            media().addFile(RECORDINGS, each.older);
        }
        media().addFile(CLOUD_RECORDINGS, each.newer);
        ASSERT_TRUE(mount());
        EXPECT_EQ(shown("/Media"),
                  (Names{"Voice Memos", "Music", "Movies", "Photo"}));
        EXPECT_EQ(shown("/Media/Voice Memos"), expected);
        const _KTL_OBJECT *memo = object("/Media/Voice Memos/Talk_rec1.m4a");
        EXPECT_STREQ(Value(memo->device_path), "/Recordings/rec1.m4a");
        EXPECT_EQ(Value(memo->birth_time), 1678307200);
        EXPECT_EQ(Value(memo->size), 5U);
        expectLogged("enumMedia libiusb_afc_file_get_info failed. "
                     "path(/Recordings/gone.m4a). ret : -70");
    }
}

TEST_F(Library, ThreeHundredAndOneItemsAreAnnounced)
{
    std::vector<SampleSong> songs(300, {nullptr, "same", "a.mp3"});
    songs.resize(601, {nullptr, "same", "a.mp3", "F00", 5, 1024});
    addSongs(songs);
    TrayReader tray(trayPipePath);
    ASSERT_TRUE(mount());
    list("/Media");
    tray.read();
    EXPECT_EQ(shown("/Media/Music").size(), 300U);
    EXPECT_EQ(tray.read(), "");
    EXPECT_EQ(shown("/Media/Movies").back(), "same (301).mp3");
    EXPECT_EQ(tray.read(), "-neon-neoff");
}

TEST_F(Library, WhatCannotBeAskedIsLoggedAndTold)
{
    media().addFile(LIBRARY, BuildDatabase("CREATE TABLE x (y)"));
    media().addFile(PHOTOS, std::string(4096, 'n')); // no database
    ASSERT_TRUE(mount());
    EXPECT_EQ(shown("/Media"), (Names{"Music", "Movies", "Photo"}));
    const struct {
        const char *path;
        int code;
        const char *line;
    } cases[] = {
        {"/Media/Music", 1,
         "enumMedia for music meidadb : %p, ret : 1 errormsg(no such table: "
         "item)"},
        {"/Media/Podcast", 1,
         "enumMedia for Podcast meidadb : %p, ret : 1 errormsg(no such table: "
         "item)"},
        {"/Media/Movies", 1,
         "enumMedia for Movies meidadb : %p, ret : 1, errormsg(no such table: "
         "item)"},
        {"/Media/Photo", 26,
         "enumMedia photodb : %p, ret : 26, errormsg(file is not a database)"},
        {"/Media/Photo/Camera Roll", -1,
         "EnumContentsForiOS_TEN photodb : %p, ret : 26, errormsg(file is not "
         "a database)"},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.path);
        int ret = 0;
        shown(each.path, &ret);
        EXPECT_EQ(ret, -ECANCELED);
        const void *database =
            std::string(each.path).find("Photo") == std::string::npos
                ? context()->media_db
                : context()->photo_db;
        char handle[30];
        snprintf(handle, sizeof(handle), "%p", database);
        expectLogged(replaceAll(each.line, "%p", handle));
        expectError("Could not read directory.\nError Code : " +
                    std::to_string(each.code));
    }
    EXPECT_EQ(shown("/Media/Voice Memos"), Names{}); // no database at all
    EXPECT_EQ(shown("/Media/Elsewhere"), Names{});
    expectLogged("enumMedia recorddb : (nil), ret : 0, errormsg(out of "
                 "memory)");
    expectNothingRaised();
}

} // namespace
