// Moves across the areas when the device fails: what is said and logged, and that
// nothing is lost.
#include "tests/handlers/move_fixture.h"

namespace
{

TEST_F(Move, EachFailureHasItsLine)
{
    const std::string storage = "movetostorage ";
    const std::string apps = "movetoapps ";
    struct Case {
        const char *from;
        const char *to;
        const char *call;
        int nth;
        std::string line;
        int ret;
    };
    const char *song = "/Media/Music/song.mp3";
    const char *doc = "/Storage/doc.txt";
    const char *note = "/Apps/Notes/note.txt";
    const char *open = "libiusb_afc_file_open";
    const char *info = "libiusb_afc_file_get_info";
    const char *make = "libiusb_afc_make_directory";
    const char *remove = "libiusb_afc_file_remove";
    const char *init = "libiusb_housearrest_init";
    const char *app = "libiusb_housearrest_openapp";
    const char *exit = "libiusb_housearrest_exit";
    const char *names = "libiusb_afc_file_read_directory";
    const Case cases[] = {
        {song, "/Storage/n", open, 1,
         storage + "libiusb_afc_file_open failed, ret : -212", -ECANCELED},
        {song, "/Storage/n", info, 1,
         storage + "get file info failed. ret : -212", -ECANCELED},
        {song, "/Storage/n", open, 2,
         storage + "libiusb_afc_file_open failed, ret : -212", -ECANCELED},
        {song, "/Storage/n", "libiusb_afc_file_read", 2,
         storage + "libiusb_afc_file_read failed. from : "
                   "/Media/Music/song.mp3, to : /Storage/n, ret : -212",
         -ECANCELED},
        {song, "/Storage/n", "libiusb_afc_file_write", 2,
         storage + "libiusb_afc_file_write failed. from : "
                   "/Media/Music/song.mp3, to : /Storage/n, ret : -212",
         -ECANCELED},
        {song, "/Storage/n", "libiusb_afc_file_drain", 1,
         storage + "libiusb_afc_file_write failed. from : "
                   "/Media/Music/song.mp3, to : /Storage/n, ret : -212",
         -ECANCELED},
        {"/Media/Music/Album", "/Storage/n", make, 1,
         storage + "libiusb_afc_make_directory failed. "
                   "to(/general_storage/n), ret : -212",
         -ECANCELED},
        {"/Media/Music/Album", "/Storage/n", open, 1,
         storage + " failed. ret : -212, from : /Media/Music/Album/zero.mp3, "
                   "to : /Storage/n/zero.mp3",
         -ECANCELED},
        {note, "/Storage/n", init, 1,
         storage + "libiusb_housearrest_init failed, ret : -212", -ECANCELED},
        {note, "/Storage/n", app, 1,
         storage + "libiusb_housearrest_openapp failed, ret : -212",
         -ECANCELED},
        {note, "/Storage/n", info, 1,
         storage + "get file info failed. ret : -212", -ECANCELED},
        {note, "/Storage/n", open, 2,
         storage + " libiusb_afc_file_open failed, ret : -212", -ECANCELED},
        {note, "/Storage/n", open, 1,
         storage + "libiusb_afc_file_open failed, ret : -212", -ECANCELED},
        {"/Apps/Notes/dir", "/Storage/n", make, 1,
         storage + "libiusb_afc_make_directory failed. "
                   "path(/general_storage/n), ret : -212",
         -ECANCELED},
        {note, "/Storage/n", exit, 1, "", -ECANCELED},
        {song, "/Apps/Notes/n", open, 2,
         apps + "libiusb_afc_file_open failed, ret : -212", -ECANCELED},
        {song, "/Apps/Notes/n", open, 1,
         apps + " libiusb_afc_file_open failed, ret : -212", -ECANCELED},
        {"/Media/Music/Album", "/Apps/Notes/n", make, 1,
         apps + "libiusb_afc_make_directory failed. to(/Documents/n). ret : "
                "-212",
         -ECANCELED},
        {doc, "/Apps/Notes/n", info, 1,
         apps + "get file info failed. ret : -212", -ECANCELED},
        {doc, "/Apps/Notes/n", open, 2,
         apps + "libiusb_afc_file_open failed, ret : -212", -ECANCELED},
        {doc, "/Apps/Notes/n", remove, 1,
         apps + "libiusb_afc_file_remove failed, ret : -212", 0},
        {"/Storage/dir", "/Apps/Notes/n", make, 1,
         apps + "libiusb_afc_make_directory failed, path(/Documents/n), ret : "
                "-212",
         -ECANCELED},
        {"/Storage/dir", "/Apps/Notes/n", names, 2,
         apps + "libiusb_afc_file_read_directory failed. "
                "from(/general_storage/dir). ret : -212",
         -ECANCELED},
        {"/Storage/dir", "/Apps/Notes/n", info, 2,
         apps + " failed. ret : -212, from : /Storage/dir/a, to : "
                "/Apps/Notes/n/a",
         -ECANCELED},
        {note, "/Apps/Other/n", init, 2,
         apps + "libiusb_housearrest_init failed. error : -212", -ECANCELED},
        {note, "/Apps/Other/n", app, 2,
         apps + "libiusb_housearrest_openapp failed. error : -212", -ECANCELED},
        {note, "/Apps/Other/n", info, 1,
         apps + "libiusb_afc_file_get_info failed. path(/Documents/note.txt), "
                "error : -212",
         -ECANCELED},
        {note, "/Apps/Other/n", open, 1,
         apps + "libiusb_afc_file_open failed. path(/Documents/note.txt), "
                "error : -212",
         -ECANCELED},
        {note, "/Apps/Other/n", open, 2,
         apps + "libiusb_afc_file_open failed. path(/Documents/n), error : "
                "-212",
         -ECANCELED},
        {note, "/Apps/Other/n", "libiusb_afc_file_close", 2,
         apps + "from handle libiusb_afc_file_close failed. error : -212", 0},
        {note, "/Apps/Other/n", remove, 1,
         apps + "libiusb_afc_file_remove failed. path(/Documents/note.txt), "
                "error : -212",
         0},
        {note, "/Apps/Other/n", exit, 1,
         apps + "from libiusb_housearrest_exit failed. error : -212",
         -ECANCELED},
    };
    unmount();
    for (const Case &each : cases) {
        SCOPED_TRACE(each.line);
        freshDevice();
        prepare();
        memoryWorld.failNamed(each.call, each.nth, -212);
        EXPECT_EQ(rename(each.from, each.to), each.ret);
        EXPECT_TRUE(memoryWorld.fired());
        if (!each.line.empty()) {
            expectLogged(each.line);
        }
        EXPECT_EQ(raised().text,
                  each.ret == 0 ? ""
                                : "Could not rename or move the contents.\n"
                                  "Error Code : -212");
        unmount();
        EXPECT_EQ(memoryWorld.open(), "");
    }
    freshDevice();
    prepare();
    memoryWorld.failNamed(remove, 1, -212);
    EXPECT_EQ(rename(note, "/Storage/n"), 0);
    EXPECT_EQ(log()[0].rfind("movetostorage  libiusb_afc_file_remove failed, "
                             "ret : -212, hhandle : 0x",
                             0),
              0U);
    EXPECT_TRUE(exists(note));
}

// Byte for byte: each file of the source is whole in one place or the other.
TEST_F(Move, NoFailureLosesAnything)
{
    unmount();
    for (const Kind &each : KINDS) {
        SCOPED_TRACE(each.from + " to " + each.to);
        for (const uint32_t confirmed : {0U, 1000U}) {
            forEachDeviceFailure(
                {confirmed == 0 ? -32 : -62}, // no other code is told apart
                [this, &each] {
                    prepare();
                    look(each);
                },
                [this, &each, confirmed](int) {
                    const std::map<std::string, std::string> before =
                        onDevice(each.from);
                    const bool song = each.from.rfind("/Media", 0) == 0;
                    memoryWorld.confirmBeforeFailing = confirmed;
                    const int ret = rename(each.from, each.to);
                    memoryWorld.heal();
                    EXPECT_EQ(ret == -ECANCELED, !raised().text.empty());
                    const std::map<std::string, std::string> left =
                        onDevice(each.from);
                    const std::map<std::string, std::string> arrived =
                        onDevice(each.to);
                    for (const auto &[name, data] : before) {
                        const auto kept = left.find(name);
                        const bool whole =
                            kept != left.end() && kept->second == data;
                        EXPECT_TRUE(whole || !song) << name;
                        EXPECT_TRUE(whole || (arrived.count(name) == 1 &&
                                              arrived.at(name) == data))
                            << name << " is lost";
                    }
                    expectAllAgree();
                    EXPECT_EQ(memoryWorld.houses(), 0);
                    EXPECT_EQ(memoryWorld.announced(), 0);
                    // What failed can be done again.
                    if (ret != 0 && exists(each.from)) {
                        rename(each.from, each.to);
                        raised();
                        expectAllAgree();
                    }
                });
        }
    }
    ASSERT_TRUE(mount());
}

} // namespace
