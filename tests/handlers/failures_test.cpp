// Device calls that fail: what the user and the log are told, and that the
// volume goes on working, whichever call of which operation it was.
#include <sstream>

#include "tests/handlers/fixture.h"

namespace
{

struct Operation {
    std::string name;
    std::string path;
    std::string to = {};
};

class Failures : public MountTest
{
  protected:
    // A use of a file from its opening to its release.
    int use(const Operation &what)
    {
        tarni_file_info fi;
        const bool fresh = what.name == "create";
        int ret = fresh ? create(what.path, &fi) : open(what.path, &fi);
        if (ret != 0) {
            EXPECT_EQ(fi.fh, 0U);
            return ret;
        }
        const std::string data = read(what.path, &fi, 100, 0, &ret);
        if (ret >= 0 && !fresh) {
            EXPECT_EQ(data.substr(0, 5), isApp(what) ? "conte" : "hello");
        }
        if (ret >= 0) {
            ret = write(what.path, &fi, "x", static_cast<off_t>(data.size()));
        }
        const int last = release(what.path, &fi);
        return ret < 0 ? ret : last;
    }

    int perform(const Operation &what)
    {
        int ret = 0;
        if (what.name == "list") {
            list(what.path, &ret);
        } else if (what.name == "mkdir") {
            ret = mkdir(what.path);
        } else if (what.name == "rmdir") {
            ret = rmdir(what.path);
        } else if (what.name == "unlink") {
            ret = unlink(what.path);
        } else if (what.name == "rename") {
            ret = rename(what.path, what.to);
        } else {
            ret = use(what);
        }
        return ret;
    }

    void prepare(const Operation &what)
    {
        populate();
        if (isSave(what)) {
            stage(what.path, "staged");
        }
    }

    // What the device has of a file; empty for a folder or nothing.
    std::string contents(const std::string &path)
    {
        const MemoryNode *node =
            path.starts_with("/Apps/Notes")
                ? sandbox().find("/Documents" + path.substr(11))
                : media().find("/general_storage/" +
                               path.substr(path.rfind('/') + 1));
        return node != nullptr ? node->data : "";
    }

    static bool isSave(const Operation &what)
    {
        return what.path.find(".sb-") != std::string::npos;
    }

    static bool isApp(const Operation &what)
    {
        return what.path.starts_with("/Apps/");
    }
};

struct Row {
    Operation what;
    std::string call;
    int n = 0;         // which of these calls
    std::string line;  // "@" stands for the code
    std::string lost;  // what was aborted
    std::string other; // what could not be done
};

// operation and path | call and which of them | log line | when the connection
// is lost | else
const char *const ROWS =
    R"(list /Storage/unlisted | afc_file_read_directory 1 | enumStorage libiusb_afc_file_read_directory failed. path(/Storage/unlisted), ret : @ | Directory reading | read directory
list /Storage/unlisted | afc_file_read_directory 2 | tarnifs_readdir enumStorage failed. error : @ | Directory reading | read directory
list /Storage/unlisted | afc_file_get_info 3 | enumStorage libiusb_afc_file_get_info failed. code : @ | Directory reading | read directory
open /Storage/a.txt | afc_file_open 1 | tarnifs_open libiusb_afc_file_open failed. path(/general_storage/a.txt) ret : @ | Opening file(a.txt) | open a file(a.txt)
open /Storage/a.txt | afc_file_read 1 | tarnifs_read libiusb_afc_file_read fail. Err=@, path(/Storage/a.txt) | Reading | read a file
open /Storage/a.txt | afc_file_write 1 | tarnifs_write libiusb_afc_file_write failed. path(/Storage/a.txt) ret @ | Writing | write a file
open /Apps/Notes/a.txt | housearrest_init 1 | tarnifs_open libiusb_housearrest_init failed. error : @ | Service opening | open the Device with Arrest Service
open /Apps/Notes/a.txt | housearrest_openapp 1 | tarnifs_open libiusb_housearrest_openapp failed. error : @, App ID : com.example.notes | Opening App(Notes) | open the App(Notes)
open /Apps/Notes/a.txt | afc_file_open 1 | tarnifs_open libiusb_afc_file_open failed. path(/Documents/a.txt) ret : @ | Opening file(a.txt) | open a file(a.txt)
create /Storage/new | afc_file_open 1 | CreateFileHandle libiusb_afc_file_open failed. path(/general_storage/new). ret : @ | Create a file | create a file
create /Apps/Notes/new | housearrest_init 1 | CreateFileHandle libiusb_housearrest_init failed. error : @ | Create a file | create a file
create /Apps/Notes/new | housearrest_openapp 1 | CreateFileHandle libiusb_housearrest_openapp failed. error : @ | Create a file | create a file
create /Apps/Notes/new | afc_file_open 1 | CreateFileHandle libiusb_afc_file_open failed. error : @ | Create a file | create a file
mkdir /Storage/new | afc_make_directory 1 | tarnifs_mkdir libiusb_afc_make_directory failed. path(/general_storage/new), error : @ | Directory making | make a directory
mkdir /Apps/Notes/new | housearrest_init 1 | tarnifs_mkdir libiusb_housearrest_init failed. error : @ | Service opening | open the Device with Arrest Service
mkdir /Apps/Notes/new | housearrest_openapp 1 | tarnifs_mkdir libiusb_housearrest_openapp failed. error : @, App ID : com.example.notes | Opening App(Notes) | open the App(Notes)
mkdir /Apps/Notes/new | afc_make_directory 1 | tarnifs_mkdir libiusb_afc_make_directory failed. path(/Documents/new). error : @ | Directory making | make a directory
rmdir /Storage/empty | afc_file_remove 1 | tarnifs_rmdir libiusb_afc_file_remove failed. path(/general_storage/empty). error : @ | Directory remove | remove a Directory
rmdir /Apps/Notes/empty | housearrest_init 1 | tarnifs_rmdir libiusb_housearrest_init failed. error : @ | Service opening | open the Device with Arrest Service
rmdir /Apps/Notes/empty | housearrest_openapp 1 | tarnifs_rmdir libiusb_housearrest_openapp failed. error : @, App ID : com.example.notes | Opening App(Notes) | open the App(Notes)
rmdir /Apps/Notes/empty | afc_file_remove 1 | tarnifs_rmdir libiusb_afc_file_remove failed. path(/Documents/empty). error : @ | Directory remove | remove a Directory
unlink /Storage/a.txt | afc_file_remove 1 | UnlinkStorageContents libiusb_afc_file_remove failed. path(/general_storage/a.txt). ret : @ | File remove | remove a file
unlink /Apps/Notes/a.txt | housearrest_init 1 | UnlinkAppsContents libiusb_housearrest_init failed. error : @ | File remove | remove a file
unlink /Apps/Notes/a.txt | housearrest_openapp 1 | UnlinkAppsContents libiusb_housearrest_openapp failed. error : @, App ID : com.example.notes | File remove | remove a file
unlink /Apps/Notes/a.txt | afc_file_remove 1 | UnlinkAppsContents libiusb_afc_file_remove failed. path(/Documents/a.txt). ret : @ | File remove | remove a file
rename /Storage/a.txt /Storage/b.txt | afc_rename 1 | tarnifs_rename libiusb_afc_rename failed. from(/general_storage/a.txt) to(/general_storage/b.txt). error : @ | Renaming or moving | rename or move the contents
rename /Apps/Notes/a.txt /Apps/Notes/b.txt | housearrest_init 1 | movetoapps libiusb_housearrest_init failed, ret : @ | Renaming or moving | rename or move the contents
rename /Apps/Notes/a.txt /Apps/Notes/b.txt | housearrest_openapp 1 | movetoapps libiusb_housearrest_openapp failed, ret : @ | Renaming or moving | rename or move the contents
rename /Apps/Notes/a.txt /Apps/Notes/b.txt | afc_rename 1 | movetoapps libiusb_afc_rename filed, from(/Documents/a.txt), to(/Documents/b.txt), ret : @ | Renaming or moving | rename or move the contents
)";

std::vector<Row> rows()
{
    std::vector<Row> all;
    std::istringstream text(ROWS);
    for (std::string fields; std::getline(text, fields);) {
        Names parts;
        for (size_t at = 0, end = 0; end != std::string::npos; at = end + 3) {
            end = fields.find(" | ", at);
            parts.push_back(fields.substr(at, end - at));
        }
        Row row{{}, "", 0, parts.at(2), parts.at(3), parts.at(4)};
        std::istringstream(parts[0]) >> row.what.name >> row.what.path >>
            row.what.to;
        std::istringstream(parts[1]) >> row.call >> row.n;
        all.push_back(row);
    }
    return all;
}

std::string expectedText(const Row &row, int code)
{
    const bool transfer =
        row.lost.starts_with("Opening file") || row.lost == "Reading";
    if (code == -32 || (code == -30 && transfer)) {
        const char c = row.lost == "Directory reading" ? 'C' : 'c';
        return std::string("Lost USB ") + c + "onnection.\n" + row.lost +
               " aborted.";
    }
    if (code == -62 && row.what.name == "rename") {
        return "Not enough space on device.";
    }
    return "Could not " + row.other + ".\nError Code : " + std::to_string(code);
}

TEST_F(Failures, TellWhatHappenedAndChangeNothing)
{
    for (const Row &row : rows()) {
        for (const int code : {-32, -30, -62, -212}) {
            std::string line = row.line;
            line.replace(line.find('@'), 1, std::to_string(code));
            SCOPED_TRACE(line);
            unmount();
            freshDevice();
            prepare(row.what);
            const _KTL_OBJECT *known = object(row.what.path);
            const uint64_t space = freeSpace();
            memoryWorld.failNamed("libiusb_" + row.call, row.n, code);
            EXPECT_EQ(perform(row.what), -ECANCELED);
            expectLogged(line);
            expectError(expectedText(row, code));
            EXPECT_EQ(freeSpace(), space);
            if (row.what.name == "create") { // in no folder's list
                EXPECT_FALSE(IsLinked(object(row.what.path)));
            } else {
                EXPECT_EQ(object(row.what.path), known);
            }
            // Making and unlinking leave a connection that could be had to
            // the folder's next listing.
            const bool kept =
                isApp(row.what) && row.call != "housearrest_init" &&
                (row.what.name == "create" || row.what.name == "mkdir" ||
                 row.what.name == "unlink");
            EXPECT_EQ(memoryWorld.houses(), kept ? 1 : 0);
            EXPECT_EQ(object("/Apps/Notes")->hhandle != 0, kept);
            EXPECT_EQ(Value(object("/Apps/Notes")->open_count), 0U);
            expectShown("/Storage", media(), "/general_storage");
            // Whatever the connection was left as, the next try works.
            EXPECT_EQ(perform(row.what), 0);
            expectNothingRaised();
        }
    }
}

const Operation OPERATIONS[] = {
    {"list", "/Storage/unlisted"},
    {"open", "/Storage/a.txt"},
    {"open", "/Apps/Notes/a.txt"},
    {"create", "/Storage/new"},
    {"create", "/Apps/Notes/new"},
    {"mkdir", "/Storage/new"},
    {"mkdir", "/Apps/Notes/new"},
    {"rmdir", "/Storage/empty"},
    {"rmdir", "/Apps/Notes/empty"},
    {"unlink", "/Storage/a.txt"},
    {"unlink", "/Apps/Notes/a.txt"},
    {"rename", "/Storage/a.txt", "/Storage/b.txt"},
    {"rename", "/Storage/dir", "/Storage/new"},
    {"rename", "/Storage/b.txt.sb-1", "/Storage/b.txt"},
    {"rename", "/Apps/Notes/a.txt", "/Apps/Notes/b.txt"},
    {"rename", "/Apps/Notes/dir", "/Apps/Notes/new"},
    {"rename", "/Apps/Notes/b.txt.sb-1", "/Apps/Notes/b.txt"},
};

TEST_F(Failures, EveryFailingCallLeavesAVolumeThatWorks)
{
    for (const Operation &what : OPERATIONS) {
        SCOPED_TRACE(what.name + " " + what.path);
        const bool removes = what.name == "rmdir" || what.name == "unlink" ||
                             what.name == "rename";
        forEachDeviceFailure(
            {-32, -30, -62, -212}, [&] { prepare(what); },
            [&](int code) {
                const std::string old = contents(what.to);
                int ret = perform(what);
                expectTold(ret, code);
                if (what.name == "mkdir" || what.name == "rmdir" ||
                    what.name == "unlink") {
                    EXPECT_EQ(ret != 0, memoryWorld.fired());
                }
                memoryWorld.heal();
                // The file that is saved over is whole, before and after. An
                // upload closes its file once more after a failure.
                if (isSave(what)) {
                    EXPECT_EQ(contents(what.to), ret == 0 ? "staged" : old);
                    memoryWorld.violations.clear();
                }
                expectAllShown();
                if (what.name == "rename") { // one name or the other
                    EXPECT_EQ(object(what.path) == nullptr, ret == 0);
                }
                if (!removes || object(what.path) != nullptr) {
                    ret = perform(what);
                }
                EXPECT_TRUE(ret == 0 || removes) << ret;
                EXPECT_EQ(object(what.path) == nullptr, removes);
                if (isSave(what)) {
                    EXPECT_EQ(contents(what.to), "staged");
                }
                if (!what.to.empty()) {
                    const bool tree = what.path.ends_with("/dir");
                    EXPECT_EQ(object(what.to)->mode == KTL_MODE_FOLDER, tree);
                    EXPECT_EQ(tree ? list(what.to)[2] : "x", "x");
                }
                expectAllShown();
                expectShown("/Storage/unlisted", media(),
                            "/general_storage/unlisted");
                EXPECT_EQ(Value(object("/Apps/Notes")->open_count), 0U);
                EXPECT_EQ(memoryWorld.houses(), 0);
                expectNothingRaised();
            });
    }
}

} // namespace
