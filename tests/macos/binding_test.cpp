// The macOS binding's own work: what the library is handed at the start, names
// in several spellings, sizes, read-only places, error numbers, scripts.
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "tarnifs/mount/macos/adapters.h"
#include "tarnifs/mount/macos/applescript.h"
#include "tests/handlers/fixture.h"

// host_main.cpp, under the names it has here.
bool macosFuseContext(void **private_data);
void macosInitConnection(fuse_conn_info *conn);

namespace
{

// What the library was started with.
struct Started {
    int argc = 0;
    const fuse_operations *table = nullptr;
    size_t size = 0;
    void *data = nullptr;
} started;

fuse_context *library_context = nullptr;

} // namespace

int fuse_main_real(int argc, char ** /*argv*/, const fuse_operations *table,
                   size_t table_size, void *user_data)
{
    started = {argc, table, table_size, user_data};
    return 7;
}

fuse_context *fuse_get_context()
{
    return library_context;
}

namespace
{

class MacBinding : public MountTest
{
  protected:
    const fuse_operations &table = HostTable();

    off_t sizeOf(const std::string &path, int *ret)
    {
        struct stat st {
        };
        *ret = table.getattr(path.c_str(), &st);
        return st.st_size;
    }
    int setSize(const std::string &path, off_t size,
                fuse_file_info *fi = nullptr)
    {
        struct setattr_x change {
        };
        change.valid = 1 << 3;
        change.size = size;
        return fi == nullptr ? table.setattr_x(path.c_str(), &change)
                             : table.fsetattr_x(path.c_str(), &change, fi);
    }
    std::string onDevice(const std::string &path)
    {
        const MemoryNode *node = media().find(path);
        return node == nullptr ? "(none)" : node->data;
    }
};

TEST(MacStart, TheLibraryGetsTableAndLocation)
{
    int32_t location = 0;
    char name[] = "quorvelfs";
    char option[] = "-oafc_window=none";
    char *wrong[] = {name, option, nullptr};
    EXPECT_EQ(hostMain(2, wrong, &location), 2);
    EXPECT_EQ(started.argc, 0);
    char own[] = "-olocation_id=20123456";
    char *argv[] = {name, own, nullptr};
    EXPECT_EQ(hostMain(2, argv, &location), 7);
    EXPECT_EQ(location, 20123456);
    EXPECT_EQ(started.argc, 1);
    EXPECT_EQ(started.size, 464U);
    EXPECT_EQ(started.data, &location);
    // Exactly the handlers' members are there.
    const void *members[sizeof(fuse_operations) / sizeof(void *)];
    memcpy(members, started.table, sizeof(members));
    EXPECT_EQ(
        std::count(std::begin(members), std::end(members), nullptr),
        static_cast<ptrdiff_t>(std::size(members) -
                               sizeof(tarni_operations) / sizeof(void *)));
    fuse_conn_info conn{};
    macosInitConnection(&conn);
    EXPECT_TRUE(conn.enable.case_insensitive && conn.enable.setvolname &&
                conn.enable.xtimes);
    void *data = nullptr;
    EXPECT_FALSE(macosFuseContext(&data));
    fuse_context context{&location};
    library_context = &context;
    EXPECT_TRUE(macosFuseContext(&data));
    EXPECT_EQ(data, &location);
    library_context = nullptr;
}

TEST_F(MacBinding, SpellingsMeetInEveryComponent)
{
    const std::string composed = "/Storage/caf\u00e9";
    const std::string decomposed = "/Storage/cafe\u0301";
    media().addFile("/general_storage/caf\u00e9/r\u00e9sum\u00e9", "text");
    ASSERT_TRUE(mount());
    for (const std::string &path :
         {std::string("/"), std::string("/Storage"), decomposed}) {
        list(path == decomposed ? composed : path);
    }
    const std::string file = decomposed + "/re\u0301sume\u0301";
    int ret = 0;
    EXPECT_EQ(sizeOf(file, &ret), 4);
    EXPECT_EQ(ret, 0);
    EXPECT_EQ(table.access(file.c_str(), 0), 0);
    // The device hears the spelling that it has.
    EXPECT_EQ(table.rename(file.c_str(), (decomposed + "/new").c_str()), 0);
    EXPECT_EQ(onDevice("/general_storage/caf\u00e9/new"), "text");
    EXPECT_EQ(table.unlink((decomposed + "/new").c_str()), 0);
    EXPECT_EQ(table.rmdir(decomposed.c_str()), 0);
    EXPECT_EQ(media().find("/general_storage/caf\u00e9"), nullptr);
    EXPECT_EQ(table.access(decomposed.c_str(), 0), -ENOENT);
}

TEST_F(MacBinding, ASizeReachesTheDeviceFirst)
{
    populate();
    const uint64_t before = freeSpace();
    EXPECT_EQ(setSize("/Storage/a.txt", 5), 0);
    EXPECT_EQ(onDevice("/general_storage/a.txt"), "hello");
    EXPECT_EQ(freeSpace(), before + 7);
    fuse_file_info fi{};
    fi.flags = O_RDWR;
    ASSERT_EQ(table.open("/Storage/b.txt", &fi), 0);
    EXPECT_NE(fi.fh, 0U);
    EXPECT_EQ(setSize("/Storage/b.txt", 0, &fi), 0);
    EXPECT_EQ(table.write("/Storage/b.txt", "new one", 7, 0, &fi), 7);
    char buf[16] = {};
    EXPECT_EQ(table.read("/Storage/b.txt", buf, sizeof(buf), 0, &fi), 7);
    EXPECT_EQ(table.release("/Storage/b.txt", &fi), 0);
    EXPECT_EQ(onDevice("/general_storage/b.txt"), "new one");
    // A device that refuses leaves the shown size alone.
    memoryWorld.failNamed("libiusb_afc_file_set_size", 1, -32);
    EXPECT_EQ(setSize("/Storage/b.txt", 1), -ECANCELED);
    int ret = 0;
    EXPECT_EQ(sizeOf("/Storage/b.txt", &ret), 7);
    EXPECT_EQ(setSize("/Storage/b.txt", -1), -EINVAL);
    EXPECT_EQ(setSize("/Storage/dir", 1), -EISDIR);
}

TEST_F(MacBinding, ReadOnlyPlacesAndErrorNumbers)
{
    populate();
    addMediaItem("/Media/song.mp3", "/iTunes_Control/song.mp3");
    for (const int flags : {O_WRONLY, O_RDWR, O_RDONLY | O_TRUNC}) {
        fuse_file_info fi{};
        fi.flags = flags;
        EXPECT_EQ(table.open("/Media/song.mp3", &fi), -EROFS);
    }
    EXPECT_EQ(setSize("/Media/song.mp3", 0), -EROFS);
    // A record that a failed make left behind does not show.
    {
        const TarniLock lock;
        GetObject("/Storage/left");
    }
    int ret = 0;
    sizeOf("/Storage/left", &ret);
    EXPECT_EQ(ret, -ENOENT);
    // Values, with room to spare and without.
    ASSERT_EQ(table.setxattr("/Storage/a.txt", "color", "red", 3, 0, 0), 0);
    char value[32] = {};
    EXPECT_EQ(table.getxattr("/Storage/a.txt", "color", nullptr, 0, 0), 3);
    EXPECT_EQ(table.getxattr("/Storage/a.txt", "color", value, 32, 0), 3);
    EXPECT_EQ(table.getxattr("/Storage/a.txt", "color", value, 2, 0), -ERANGE);
    EXPECT_EQ(table.removexattr("/Storage/a.txt", "size"), -TARNI_ENOATTR);
    struct statvfs st {
    };
    EXPECT_EQ(table.statfs("/Storage", &st), 0);
    EXPECT_TRUE(st.f_blocks > 0 && st.f_frsize == st.f_bsize);
    unmount();
    fuse_file_info fi{};
    sizeOf("/", &ret);
    EXPECT_EQ(ret, -ENOSYS);
    EXPECT_EQ(table.open("/Storage/a.txt", &fi), -EIO);
}

TEST(MacScripts, TextsStayInTheirQuotes)
{
    EXPECT_EQ(
        DialogScript("Title", "say \"hi\" \\ & 'x'\nline", "Confirm"),
        "tell app \"Finder\" to display dialog "
        "\"say \\\"hi\\\" \\\\ & 'x'\nline\" with title \"Title\" buttons "
        "{\"Confirm\"} default button 1 with icon caution");
    // No quote of a text ends its literal: an even run of backslashes never
    // stands before one.
    const std::string quoted = QuoteAppleScript("\\\" & \\\\\"");
    size_t backslashes = 0;
    for (size_t i = 1; i + 1 < quoted.size(); ++i) {
        if (quoted[i] == '"') {
            EXPECT_EQ(backslashes % 2, 1U);
        }
        backslashes = quoted[i] == '\\' ? backslashes + 1 : 0;
    }
    EXPECT_EQ(backslashes % 2, 0U);
    EXPECT_EQ("osascript -e '" + RefreshScript() + "'",
              "osascript -e 'tell application \"Finder\" \n repeat with i from "
              "1 to count of Finder windows \n tell window i \n try \n update "
              "every item with necessity \n end try \n end tell \n end repeat "
              "\n end tell'");
    EXPECT_EQ(RefreshScript().size() + 15, 192U);
}

} // namespace
