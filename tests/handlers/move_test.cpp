// Moves across the areas: what is copied, what goes, what stays after failures.
#include <fstream>
#include <set>

#include "tarnifs/notify/tray_pipe.h"
#include "tests/handlers/fixture.h"

namespace
{

const std::string SONG(100000, 's'); // two pieces
constexpr uint64_t PIECES = 2;
const std::string FULL = "Not enough space on device.";

// Every kind of source and target; `free` is what the free capacity loses.
struct Kind {
    std::string from;
    std::string to;
    bool stays;
    uint64_t free;
};
const std::vector<Kind> KINDS = {
    {"/Media/Music/song.mp3", "/Storage/new", true, 100000},
    {"/Media/Music/song.mp3", "/Storage/old.txt", true, 100000},
    {"/Media/Music/Album", "/Storage/new", true, 100000},
    {"/Media/Music/song.mp3", "/Apps/Notes/old.txt", true, 100000},
    {"/Media/Music/song.mp3", "/Apps/Notes/dir/new", true, 100000},
    {"/Media/Music/Album", "/Apps/Notes/new", true, 100000},
    {"/Storage/doc.txt", "/Apps/Notes/new", false, 0},
    {"/Storage/doc.txt", "/Apps/Notes/old.txt", false, 0},
    {"/Storage/dir", "/Apps/Notes/new", false, 0},
    {"/Storage/empty", "/Apps/Notes/new", false, 0},
    {"/Apps/Notes/note.txt", "/Storage/new", false, 0},
    {"/Apps/Notes/note.txt", "/Storage/old.txt", false, 0},
    {"/Apps/Notes/dir", "/Storage/new", false, 0},
    {"/Apps/Notes/note.txt", "/Apps/Other/new", false, 0},
    {"/Apps/Notes/note.txt", "/Apps/Other/other.txt", false, 0},
    {"/Apps/Notes/dir", "/Apps/Other/new", false, 0},
    {"/Apps/Notes/dir/sub", "/Apps/Notes/new", false, 0},
};

class Move : public MountTest
{
  protected:
    void SetUp() override { prepare(); }
    void prepare()
    {
        ASSERT_TRUE(mount());
        media().addFile("/iTunes_Control/ABCD.mp3", SONG);
        media().addFile("/iTunes_Control/zero.mp3");
        media().addFile("/general_storage/doc.txt", "storage document");
        media().addFile("/general_storage/old.txt", "what was there");
        media().addFile("/general_storage/dir/a", "in a");
        media().addFile("/general_storage/dir/sub/b", SONG);
        media().addFolder("/general_storage/dir/none");
        media().addFolder("/general_storage/empty");
        fill("/");
        fill("/Storage");
        fill("/Media");
        addApp("Notes", "com.example.notes", {"note.txt", "old.txt"});
        addApp("Other", "com.example.other", {"other.txt"});
        MemoryTree &notes = sandbox(0);
        notes.addFile("/Documents/dir/a", "app a");
        notes.addFile("/Documents/dir/sub/b", SONG);
        addFolder("/Apps/Notes/dir");
        object("/Apps/Notes/dir")->app_id =
            ReplaceString(nullptr, "com.example.notes");
        addFolder("/Media/Music/Album");
        addSong("/Media/Music/song.mp3", "/iTunes_Control/ABCD.mp3");
        addSong("/Media/Music/Album/zero.mp3", "/iTunes_Control/zero.mp3");
        addSong("/Media/Music/Album/two.mp3", "/iTunes_Control/ABCD.mp3");
        memoryWorld.forgetCalls();
        forgetLog();
    }
    void addFolder(const std::string &path)
    {
        const TarniLock lock;
        _KTL_OBJECT *made = GetObjectWithFileName(path.c_str());
        made->mode = KTL_MODE_FOLDER;
        made->type = KTL_DEVICE_FOLDER;
        LinkChild(GetParentObject(path.c_str()), made);
    }
    void addSong(const std::string &path, const std::string &devicePath)
    {
        addMediaItem(path, devicePath)->size =
            media().find(devicePath)->data.size();
    }
    MemoryTree &media() { return memoryWorld.devices[0].media; }
    MemoryTree &sandbox(size_t app)
    {
        return memoryWorld.devices[0].apps[app].tree;
    }
    uint64_t freeSpace() { return context()->device_info.free_capacity; }
    bool exists(const std::string &path)
    {
        const _KTL_OBJECT *record = object(path);
        return record != nullptr && IsLinked(record);
    }

    // The folders of both names are listed, as hosts see to.
    void look(const Kind &kind)
    {
        fill(kind.from.substr(0, kind.from.rfind('/')));
        fill(kind.to.substr(0, kind.to.rfind('/')));
    }
    // Every file below a volume path on the device, with its contents; a folder
    // ends in "/".
    std::map<std::string, std::string> onDevice(const std::string &path)
    {
        std::map<std::string, std::string> all;
        collect(path, "", all);
        return all;
    }
    void collect(const std::string &path, const std::string &name,
                 std::map<std::string, std::string> &all)
    {
        std::string at = path + name;
        if (path.rfind("/Media", 0) == 0) {
            const char *item = object(path)->device_path;
            at = item == nullptr ? "" : item;
        }
        const MemoryNode *node = nodeAt(at);
        if (node == nullptr) {
            return;
        }
        if (node->type != LIBIUSB_FILE_FOLDER) {
            all[name] = node->data;
            return;
        }
        all[name + "/"] = "";
        for (const std::string &entry : node->names) {
            collect(path, name + "/" + entry, all);
        }
    }
    MemoryNode *nodeAt(const std::string &path)
    {
        for (size_t i = 0; i < 2; ++i) {
            const std::string app = i == 0 ? "/Apps/Notes" : "/Apps/Other";
            if (path.rfind(app, 0) == 0) {
                return sandbox(i).find("/Documents" + path.substr(app.size()));
            }
        }
        return path.rfind("/Storage", 0) == 0
                   ? media().find("/general_storage" + path.substr(8))
                   : media().find(path);
    }
    // That the volume shows what the device has, with sizes, everywhere below.
    void expectAgree(const std::string &path)
    {
        const MemoryNode *node = nodeAt(path);
        ASSERT_NE(node, nullptr) << path;
        std::multiset<std::string> there;
        for (const std::string &name : node->names) {
            if (name[0] != '.') {
                there.insert(name);
            }
        }
        const std::vector<std::string> listed = list(path);
        ASSERT_GE(listed.size(), 2U);
        EXPECT_EQ(std::multiset<std::string>(listed.begin() + 2, listed.end()),
                  there)
            << path;
        for (const std::string &name : there) {
            const std::string below = path + "/" + name;
            const struct stat st = attributes(below);
            const MemoryNode *entry = nodeAt(below);
            if (entry->type == LIBIUSB_FILE_FOLDER) {
                EXPECT_EQ(st.st_mode, 040777U) << below;
                expectAgree(below);
            } else {
                EXPECT_EQ(st.st_size, static_cast<off_t>(entry->data.size()))
                    << below;
            }
        }
    }
    void expectAllAgree()
    {
        for (const char *place : {"/Storage", "/Apps/Notes", "/Apps/Other"}) {
            expectAgree(place);
        }
    }
};

TEST_F(Move, EveryKindArrivesWhole)
{
    unmount();
    for (const Kind &each : KINDS) {
        SCOPED_TRACE(each.from + " to " + each.to);
        freshDevice();
        prepare();
        TrayReader tray(trayPipePath);
        look(each);
        const bool isFolder = Value(object(each.from)->mode) == KTL_MODE_FOLDER;
        std::map<std::string, std::string> before = onDevice(each.from);
        if (each.from == "/Media/Music/Album") {
            before = {{"/", ""}, {"/zero.mp3", ""}, {"/two.mp3", SONG}};
        }
        // What is replaced gives its room back.
        const MemoryNode *replaced = nodeAt(each.to);
        const uint64_t space =
            freeSpace() + (replaced != nullptr ? replaced->data.size() : 0);
        ASSERT_EQ(rename(each.from, each.to), 0);
        expectNothingRaised();
        EXPECT_EQ(log(), std::vector<std::string>());
        EXPECT_EQ(onDevice(each.to), before);
        EXPECT_EQ(exists(each.from), each.stays);
        EXPECT_EQ(space - freeSpace(), each.free);
        EXPECT_EQ(tray.read(), isFolder ? "-neon-neoff" : "");
        EXPECT_NEAR(static_cast<double>(Value(object(each.to)->modify_time)),
                    static_cast<double>(time(nullptr)), 5);
        const bool inApp = each.to.rfind("/Apps", 0) == 0;
        EXPECT_EQ(inApp, object(each.to)->app_id != nullptr);
        EXPECT_EQ(memoryWorld.houses(), 0);
        expectAllAgree();
        // What the volume shows is also there to be read.
        if (!isFolder) {
            tarni_file_info fi;
            ASSERT_EQ(open(each.to, &fi), 0);
            EXPECT_EQ(read(each.to, &fi, 1 << 20, 0), before[""]);
            EXPECT_EQ(release(each.to, &fi), 0);
        }
        unmount();
        EXPECT_EQ(memoryWorld.open(), "");
    }
    ASSERT_TRUE(mount());
}

TEST_F(Move, TheDeviceSeesTheStepsInOrder)
{
    struct Case {
        const char *from;
        const char *to;
        std::vector<std::string> calls;
    };
    const std::string open = "libiusb_afc_file_open ";
    const std::string info = "libiusb_afc_file_get_info ";
    const std::string init = "libiusb_housearrest_init";
    const std::string app = "libiusb_housearrest_openapp com.example.";
    const std::string exit = "libiusb_housearrest_exit";
    const std::string remove = "libiusb_afc_file_remove ";
    const std::string read = "libiusb_afc_file_read";
    const std::string write = "libiusb_afc_file_write";
    const std::string drain = "libiusb_afc_file_drain";
    const std::string close = "libiusb_afc_file_close";
    const Case cases[] = {
        {"/Media/Music/Album/zero.mp3",
         "/Storage/new",
         {info + "/iTunes_Control/zero.mp3",
          open + "/iTunes_Control/zero.mp3:1", open + "/general_storage/new:3",
          drain, close, close}},
        {"/Storage/doc.txt",
         "/Apps/Notes/new",
         {init, app + "notes", info + "/general_storage/doc.txt",
          open + "/general_storage/doc.txt:1", open + "/Documents/new:3", read,
          write, drain, close, close, remove + "/general_storage/doc.txt",
          exit}},
        {"/Apps/Notes/note.txt",
         "/Storage/new",
         {init, app + "notes", info + "/Documents/note.txt",
          open + "/Documents/note.txt:1", open + "/general_storage/new:3", read,
          write, drain, close, close, remove + "/Documents/note.txt", exit}},
        {"/Apps/Notes/old.txt",
         "/Apps/Other/new",
         {init, app + "other", init, app + "notes", info + "/Documents/old.txt",
          open + "/Documents/old.txt:1", open + "/Documents/new:3", read, write,
          drain, close, close, remove + "/Documents/old.txt", exit, exit}},
    };
    for (const Case &each : cases) {
        memoryWorld.forgetCalls();
        EXPECT_EQ(rename(each.from, each.to), 0);
        EXPECT_EQ(memoryWorld.calls, each.calls) << each.from;
    }
    memoryWorld.forgetCalls();
    EXPECT_EQ(rename("/Media/Music/song.mp3", "/Apps/Notes/song"), 0);
    EXPECT_EQ(memoryWorld.count(read), static_cast<int>(PIECES));
    EXPECT_EQ(memoryWorld.count(write), static_cast<int>(PIECES));
}

TEST_F(Move, RoomIsAskedForFileByFile)
{
    struct Case {
        const char *from;
        const char *to;
    };
    for (const Case &each :
         {Case{"/Media/Music/song.mp3", "/Storage/old.txt"},
          Case{"/Media/Music/song.mp3", "/Apps/Notes/old.txt"},
          Case{"/Storage/doc.txt", "/Apps/Notes/old.txt"},
          Case{"/Apps/Notes/note.txt", "/Storage/old.txt"}}) {
        context()->device_info.free_capacity = object(each.from)->size;
        EXPECT_EQ(rename(each.from, each.to), -ECANCELED) << each.from;
        expectError(FULL);
    }
    EXPECT_EQ(memoryWorld.calls, std::vector<std::string>());
    expectAllAgree();
    // The small ones of a folder go; the one that is too large stays.
    context()->device_info.free_capacity = SONG.size();
    EXPECT_EQ(rename("/Storage/dir", "/Apps/Notes/new"), -ECANCELED);
    expectError(FULL);
    EXPECT_EQ(sandbox(0).find("/Documents/new/a")->data, "in a");
    EXPECT_EQ(media().find("/general_storage/dir/sub/b")->data, SONG);
    expectAllAgree();
    context()->device_info.free_capacity = SONG.size() + 1;
    EXPECT_EQ(rename("/Media/Music/song.mp3", "/Storage/new"), 0);
    EXPECT_EQ(freeSpace(), 1U);
}

TEST_F(Move, NothingIsCutThatIsNotToBeReplaced)
{
    struct Case {
        const char *from;
        const char *to;
        const char *text;
    };
    const char *other = "Could not rename or move the contents.\nError Code : ";
    fill("/Storage/dir");
    addSong("/Media/Music/itself", "/general_storage/doc.txt");
    _KTL_OBJECT *nowhere = addMediaItem("/Media/Music/nowhere", "");
    nowhere->device_path = ReplaceString(nowhere->device_path, nullptr);
    for (const Case &each : {
             Case{"/Media/Music/itself", "/Storage/doc.txt", "-301"},
             Case{"/Media/Music/nowhere", "/Storage/old.txt", "-70"},
             Case{"/Media/Music/song.mp3", "/Storage/dir", "-209"},
             Case{"/Media/Music/Album", "/Storage/old.txt", "-216"},
             Case{"/Apps/Notes/dir", "/Storage/old.txt", "-216"},
             Case{"/Storage/doc.txt", "/Apps/Notes/dir", "-209"},
             Case{"/Apps/Notes/dir", "/Apps/Other/other.txt", "-216"},
             Case{"/Apps/Notes/dir", "/Apps/Notes/dir/in", "-207"},
             Case{"/Storage/doc.txt", "/Apps/Unknown/x", "-70"},
         }) {
        SCOPED_TRACE(std::string(each.from) + " to " + each.to);
        EXPECT_EQ(rename(each.from, each.to), -ECANCELED);
        expectError(std::string(other) + each.text);
        EXPECT_EQ(memoryWorld.houses(), 0);
    }
    EXPECT_EQ(media().find("/general_storage/old.txt")->data, "what was there");
    expectAllAgree();
    // Another spelling of the app's folder is the same app.
    fill("/Apps/Notes/dir");
    {
        const TarniLock lock;
        GetObject("/Apps/Same")->app_id =
            ReplaceString(nullptr, "com.example.notes");
    }
    EXPECT_EQ(rename("/Apps/Notes/note.txt", "/Apps/Same/note.txt"), 0);
    EXPECT_EQ(sandbox(0).find("/Documents/note.txt")->data,
              "contents of note.txt");
}

TEST_F(Move, AFolderThatIsThereKeepsWhatItHolds)
{
    for (const char *to : {"/Storage/dir", "/Apps/Notes/dir"}) {
        EXPECT_EQ(rename("/Media/Music/Album", to), 0);
        EXPECT_NE(nodeAt(std::string(to) + "/a"), nullptr);
    }
    expectAllAgree();
    expectNothingRaised();
}

TEST_F(Move, HiddenEntriesStayAndTheirFolderWithThem)
{
    media().addFile("/general_storage/dir/.secret", "hidden");
    sandbox(0).addFile("/Documents/dir/.secret", "hidden");
    EXPECT_EQ(rename("/Storage/dir", "/Apps/Notes/new"), 0);
    expectLogged("movetoapps libiusb_afc_file_remove failed. "
                 "from(/general_storage/dir), ret : -33");
    EXPECT_EQ(rename("/Apps/Notes/dir", "/Apps/Other/new"), 0);
    expectLogged("movetoapps libiusb_afc_file_remove failed, "
                 "path(/Documents/dir), ret : -33");
    EXPECT_EQ(onDevice("/Storage/dir"),
              (std::map<std::string, std::string>{{"/", ""},
                                                  {"/.secret", "hidden"}}));
    EXPECT_EQ(sandbox(0).find("/Documents/dir/.secret")->data, "hidden");
    EXPECT_TRUE(exists("/Storage/dir"));
    expectAllAgree();
    expectNothingRaised();
}

TEST_F(Move, ASourceThatChangesIsNotLost)
{
    for (const auto &[from, to] :
         {std::pair{"/Storage/doc.txt", "/Apps/Notes/new"},
          std::pair{"/Apps/Notes/note.txt", "/Storage/new"},
          std::pair{"/Apps/Other/other.txt", "/Apps/Notes/new2"}}) {
        MemoryNode *node = nodeAt(from);
        node->promised = 99999;
        EXPECT_EQ(rename(from, to), -ECANCELED);
        expectError("Could not rename or move the contents.\nError Code : "
                    "-214");
        EXPECT_NE(nodeAt(from), nullptr);
        // Grown since it was asked about, beyond a whole piece.
        node->promised = 65530;
        node->data = SONG;
        EXPECT_EQ(rename(from, to), 0);
        EXPECT_EQ(nodeAt(from), nullptr);
        EXPECT_EQ(nodeAt(to)->data, SONG);
    }
    expectAllAgree();
}

TEST_F(Move, StagedDataGoesAlong)
{
    tarni_file_info fi;
    const std::string targets[] = {"/Apps/Other/x", "/Storage/x"};
    for (const std::string &to : targets) {
        const bool fromApp = to == "/Storage/x";
        const std::string from =
            fromApp ? "/Apps/Notes/old.txt.sb-1" : "/Storage/old.txt.sb-1";
        ASSERT_EQ(create(from, &fi), 0);
        ASSERT_EQ(write(from, &fi, "staged bytes", 0), 12);
        ASSERT_EQ(release(from, &fi), 0);
        // An upload that fails keeps what it was to bring.
        memoryWorld.failNamed("libiusb_afc_file_write", 1, -62);
        EXPECT_EQ(rename(from, to), -ECANCELED);
        EXPECT_EQ(Value(object(from)->type), KTL_STAGED);
        expectError(FULL);
        memoryWorld.failNamed("libiusb_afc_file_drain", 1, -62);
        EXPECT_EQ(rename(from, to), -ECANCELED);
        expectError(FULL);
        EXPECT_EQ(nodeAt(from)->data, "staged bytes");
        EXPECT_EQ(rename(from, to), 0);
        EXPECT_EQ(nodeAt(to)->data, "staged bytes");
        EXPECT_FALSE(std::ifstream(privateFolder() + "/old.txt.sb-1").good());
        EXPECT_FALSE(exists(from));
    }
    expectAllAgree();
}

TEST_F(Move, LongFoldersAreAnnouncedOnceMore)
{
    TrayReader tray(trayPipePath);
    for (int i = 0; i <= 30000; ++i) {
        media().addFile("/general_storage/many/." + std::to_string(i));
    }
    media().addFile("/general_storage/many/last", "last");
    addFolder("/Storage/many");
    EXPECT_EQ(rename("/Storage/many", "/Apps/Notes/many"), 0);
    EXPECT_EQ(tray.read(), "-neon-neon-neoff-neoff");
    EXPECT_EQ(sandbox(0).find("/Documents/many/last")->data, "last");
    const struct {
        uint64_t size;
        const char *said;
    } files[] = {{3000000, ""}, {3000001, "-neon-neoff"}};
    for (const auto &each : files) {
        object("/Media/Music/song.mp3")->size = each.size;
        EXPECT_EQ(rename("/Media/Music/song.mp3", "/Storage/long"), 0);
        EXPECT_EQ(tray.read(), each.said);
    }
}

TEST_F(Move, TheAppsAreaBecomesAFolder)
{
    memoryWorld.failNamed("libiusb_afc_make_directory", 1, -62);
    EXPECT_EQ(rename("/Apps", "/Storage/all"), -ECANCELED);
    expectLogged("tarnifs_rename make directory failed. to : /Storage/all");
    expectError(FULL);
    // What an app can't let go of stays where it is.
    sandbox(1).addFile("/Documents/.keep", "kept");
    EXPECT_EQ(rename("/Apps", "/Storage/all"), 0);
    EXPECT_EQ(onDevice("/Storage/all"),
              (std::map<std::string, std::string>{
                  {"/", ""},
                  {"/Notes/", ""},
                  {"/Notes/note.txt", "contents of note.txt"},
                  {"/Notes/old.txt", "contents of old.txt"},
                  {"/Notes/dir/", ""},
                  {"/Notes/dir/a", "app a"},
                  {"/Notes/dir/sub/", ""},
                  {"/Notes/dir/sub/b", SONG},
                  {"/Other/", ""},
                  {"/Other/other.txt", "contents of other.txt"}}));
    EXPECT_EQ(sandbox(1).find("/Documents/.keep")->data, "kept");
    expectAgree("/Storage");
}

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
