// A device with something to move in every area, and every kind of move.
#pragma once

#include <set>

#include "tarnifs/notify/tray_pipe.h"
#include "tests/handlers/fixture.h"

inline const std::string SONG(100000, 's'); // two pieces
constexpr uint64_t PIECES = 2;
inline const std::string FULL = "Not enough space on device.";

// Every kind of source and target; `free` is what the free capacity loses.
struct Kind {
    std::string from;
    std::string to;
    bool stays;
    uint64_t free;
};
inline const std::vector<Kind> KINDS = {
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
