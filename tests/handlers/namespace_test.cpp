// Making folders, removing folders and files.
#include <functional>

#include "tarnifs/namespace/make_remove.h"
#include "tests/handlers/fixture.h"

namespace
{

const std::string READ_ONLY =
    "This folder is read only. You can not write or modify.\n";
const std::string NO_RMDIR = "You can not remove this folder.\n";
const std::string NO_UNLINK = "You can not remove this file.\n";

class Namespace : public MountTest
{
  protected:
    void SetUp() override { prepare(); }
    void prepare()
    {
        ASSERT_TRUE(mount());
        media().addFile("/general_storage/a.txt", "12345");
        media().addFolder("/general_storage/dir");
        fill("/");
        fill("/Storage");
        addApp("Notes", "com.example.notes", {"a.txt", "b.txt"});
        sandbox().addFolder("/Documents/dir");
        ASSERT_EQ(mkdir("/Apps/Notes/dir"), 0);
        memoryWorld.forgetCalls();
    }
    MemoryTree &media() { return memoryWorld.devices[0].media; }
    MemoryTree &sandbox() { return memoryWorld.devices[0].apps[0].tree; }
    _KTL_OBJECT *app() { return object("/Apps/Notes"); }
    uint64_t freeSpace() { return context()->device_info.free_capacity; }

    int perform(const std::string &operation, const std::string &path)
    {
        if (operation == "mkdir") {
            return mkdir(path);
        }
        return operation == "rmdir" ? rmdir(path) : unlink(path);
    }
};

TEST_F(Namespace, FoldersAreMadeAtTheEndOfTheirParents)
{
    EXPECT_EQ(mkdir("/Storage/New"), 0);
    EXPECT_EQ(memoryWorld.calls,
              std::vector<std::string>{
                  "libiusb_afc_make_directory /general_storage/New"});
    EXPECT_EQ(list("/Storage"),
              (std::vector<std::string>{".", "..", "a.txt", "dir", "New"}));
    EXPECT_EQ(attributes("/Storage/New").st_mode, 040777U);
    EXPECT_EQ(Value(object("/Storage/New")->type), KTL_ORDINARY);
    EXPECT_EQ(Value(object("/Storage/New")->enumerated), 0);
    EXPECT_NEAR(static_cast<double>(attributes("/Storage/New").st_mtime),
                static_cast<double>(time(nullptr)), 5);

    memoryWorld.forgetCalls();
    EXPECT_EQ(mkdir("/Apps/Notes/New"), 0);
    EXPECT_EQ(memoryWorld.calls,
              (std::vector<std::string>{
                  "libiusb_housearrest_init",
                  "libiusb_housearrest_openapp com.example.notes",
                  "libiusb_afc_make_directory /Documents/New",
                  "libiusb_housearrest_exit"}));
    EXPECT_STREQ(object("/Apps/Notes/New")->app_id, "com.example.notes");
    // One level deeper the app is known too.
    EXPECT_EQ(mkdir("/Apps/Notes/New/deeper"), 0);
    EXPECT_NE(sandbox().find("/Documents/New/deeper"), nullptr);
    EXPECT_EQ(rmdir("/Apps/Notes/New"), -ENOTEMPTY);
    EXPECT_EQ(rmdir("/Apps/Notes/New/deeper"), 0);
    EXPECT_EQ(rmdir("/Apps/Notes/New"), 0);
    EXPECT_EQ(sandbox().find("/Documents/New"), nullptr);
    EXPECT_EQ(memoryWorld.houses(), 0);
    expectNothingRaised();
}

TEST_F(Namespace, RemovingAsksTheCatalogueFirst)
{
    EXPECT_EQ(mkdir("/Storage/dir/x"), 0);
    memoryWorld.forgetCalls();
    EXPECT_EQ(rmdir("/Storage/dir"), -ENOTEMPTY);
    EXPECT_EQ(rmdir("/Storage/unknown"), 0);
    EXPECT_EQ(rmdir("/Apps/Notes/unknown"), 0);
    EXPECT_EQ(unlink("/Storage/unknown"), 0);
    expectLogged("UnlinkStorageContents Target not exitst! "
                 "path(/Storage/unknown)");
    EXPECT_EQ(unlink("/Apps/Notes/unknown"), 0);
    expectLogged("UnlinkAppsContents Target not exitst! "
                 "path(/Apps/Notes/unknown)");
    EXPECT_EQ(memoryWorld.calls, std::vector<std::string>());
    EXPECT_EQ(rmdir("/Storage/dir/x"), 0);
    EXPECT_EQ(rmdir("/Storage/dir"), 0);
    EXPECT_EQ(object("/Storage/dir"), nullptr);
    EXPECT_EQ(media().find("/general_storage/dir"), nullptr);
    expectNothingRaised();
}

TEST_F(Namespace, ARecordWithoutAParentIsForgottenOnly)
{
    {
        const TarniLock lock;
        GetObjectWithFileName("/Apps/Gone/x")->mode = KTL_MODE_FOLDER;
        GetObjectWithFileName("/Apps/Gone/y");
    }
    EXPECT_EQ(rmdir("/Apps/Gone/x"), 0);
    EXPECT_EQ(object("/Apps/Gone/x"), nullptr);
    EXPECT_EQ(unlink("/Apps/Gone/y"), 0);
    expectLogged("UnlinkAppsContents parent object not exitst! "
                 "path(/Apps/Gone/y)");
    EXPECT_EQ(memoryWorld.calls, std::vector<std::string>());
}

TEST_F(Namespace, ReadOnlyPlacesAreRefused)
{
    struct Case {
        const char *operation;
        const char *path;
        const char *line;
        std::string text;
    };
    const Case cases[] = {
        {"mkdir", "/Media/Music/x",
         "make directory not supported. path : ", READ_ONLY + "/Media/Music"},
        {"mkdir", "/Apps/NewApp",
         "make directory not supported. path : ", READ_ONLY + "/Apps"},
        {"mkdir", "/Apps",
         "make directory not supported. path : ", READ_ONLY + "/"},
        {"mkdir", "/100%s",
         "make directory not supported. path : ", READ_ONLY + "/"},
        {"rmdir", "/Storage",
         "rmdir not supported. path : ", NO_RMDIR + "/Storage"},
        {"rmdir", "/Apps/Notes",
         "rmdir not supported. path : ", NO_RMDIR + "/Apps/Notes"},
        {"rmdir", "/.fseventsd",
         "rmdir not supported. path : ", NO_RMDIR + "/.fseventsd"},
        {"rmdir", "/Media/100%s",
         "rmdir not supported. path : ", NO_RMDIR + "/Media/100%s"},
        {"unlink", "/Media/a",
         "unlink not supported. path : ", NO_UNLINK + "/Media/a"},
        {"unlink", "/Apps/Notes",
         "unlink not supported. path : ", NO_UNLINK + "/Apps/Notes"},
        {"unlink", "/Storage",
         "unlink not supported. path : ", NO_UNLINK + "/Storage"},
        {"unlink", "/x", "unlink not supported. path : ", NO_UNLINK + "/x"},
    };
    for (const Case &each : cases) {
        SCOPED_TRACE(std::string(each.operation) + " " + each.path);
        forgetLog();
        EXPECT_EQ(perform(each.operation, each.path), -ECANCELED);
        const bool blank = std::string("rmdir") == each.operation;
        expectLogged(std::string("tarnifs_") + each.operation + " " +
                     each.line + each.path + (blank ? " " : ""));
        expectRefusal(each.text);
    }
    expectLogged("tarnifs_unlink unlink not supported. path : /x");
    unlink("/Apps/Notes");
    expectLogged(
        "UnlinkAppsContents unlink not supported. path : /Apps/Notes ");
    EXPECT_EQ(memoryWorld.calls, std::vector<std::string>());
    EXPECT_NE(app(), nullptr);
}

TEST_F(Namespace, HousekeepingFoldersAndNoMountAreSilent)
{
    for (const char *path : {"/.Trashes", "/.TemporaryItems", "/.fseventsd"}) {
        EXPECT_EQ(mkdir(path), -ENOENT);
    }
    EXPECT_EQ(rmdir("/.Trashes"), -ENOENT);
    EXPECT_EQ(rmdir("/.TemporaryItems"), -ENOENT);
    expectNothingRaised();
    void *kept = testHost.privateData;
    testHost.privateData = nullptr;
    EXPECT_EQ(mkdir("/Storage/x"), -ENOSYS);
    expectLogged("tarnifs_mkdir getContext failed");
    EXPECT_EQ(rmdir("/Storage/dir"), -ENOSYS);
    expectLogged("tarnifs_rmdir getContext failed");
    EXPECT_EQ(unlink("/Storage/a.txt"), -ENOSYS);
    testHost.privateData = kept;
    EXPECT_EQ(memoryWorld.calls, std::vector<std::string>());
}

struct Failure {
    const char *operation;
    const char *path;
    const char *call;
    const char *line; // without the code and what follows
    const char *end;  // after the code
    const char *lost;
    const char *other; // without the code
};

const Failure FAILURES[] = {
    {"mkdir", "/Storage/new", "libiusb_afc_make_directory",
     "tarnifs_mkdir libiusb_afc_make_directory failed. "
     "path(/general_storage/new), error : ",
     "", "Lost USB connection.\nDirectory making aborted.",
     "Could not make a directory.\nError Code : "},
    {"mkdir", "/Apps/Notes/new", "libiusb_housearrest_init",
     "tarnifs_mkdir libiusb_housearrest_init failed. error : ", "",
     "Lost USB connection.\nService opening aborted.",
     "Could not open the Device with Arrest Service.\nError Code : "},
    {"mkdir", "/Apps/Notes/new", "libiusb_housearrest_openapp",
     "tarnifs_mkdir libiusb_housearrest_openapp failed. error : ",
     ", App ID : com.example.notes",
     "Lost USB connection.\nOpening App(Notes) aborted.",
     "Could not open the App(Notes).\nError Code : "},
    {"mkdir", "/Apps/Notes/new", "libiusb_afc_make_directory",
     "tarnifs_mkdir libiusb_afc_make_directory failed. path(/Documents/new). "
     "error : ",
     "", "Lost USB connection.\nDirectory making aborted.",
     "Could not make a directory.\nError Code : "},
    {"rmdir", "/Storage/dir", "libiusb_afc_file_remove",
     "tarnifs_rmdir libiusb_afc_file_remove failed. "
     "path(/general_storage/dir). error : ",
     "", "Lost USB connection.\nDirectory remove aborted.",
     "Could not remove a Directory.\nError Code : "},
    {"rmdir", "/Apps/Notes/dir", "libiusb_housearrest_init",
     "tarnifs_rmdir libiusb_housearrest_init failed. error : ", "",
     "Lost USB connection.\nService opening aborted.",
     "Could not open the Device with Arrest Service.\nError Code : "},
    {"rmdir", "/Apps/Notes/dir", "libiusb_housearrest_openapp",
     "tarnifs_rmdir libiusb_housearrest_openapp failed. error : ",
     ", App ID : com.example.notes",
     "Lost USB connection.\nOpening App(Notes) aborted.",
     "Could not open the App(Notes).\nError Code : "},
    {"rmdir", "/Apps/Notes/dir", "libiusb_afc_file_remove",
     "tarnifs_rmdir libiusb_afc_file_remove failed. path(/Documents/dir). "
     "error : ",
     "", "Lost USB connection.\nDirectory remove aborted.",
     "Could not remove a Directory.\nError Code : "},
    {"unlink", "/Storage/a.txt", "libiusb_afc_file_remove",
     "UnlinkStorageContents libiusb_afc_file_remove failed. "
     "path(/general_storage/a.txt). ret : ",
     "", "Lost USB connection.\nFile remove aborted.",
     "Could not remove a file.\nError Code : "},
    {"unlink", "/Apps/Notes/a.txt", "libiusb_housearrest_init",
     "UnlinkAppsContents libiusb_housearrest_init failed. error : ", "",
     "Lost USB connection.\nFile remove aborted.",
     "Could not remove a file.\nError Code : "},
    {"unlink", "/Apps/Notes/a.txt", "libiusb_housearrest_openapp",
     "UnlinkAppsContents libiusb_housearrest_openapp failed. error : ",
     ", App ID : com.example.notes",
     "Lost USB connection.\nFile remove aborted.",
     "Could not remove a file.\nError Code : "},
    {"unlink", "/Apps/Notes/a.txt", "libiusb_afc_file_remove",
     "UnlinkAppsContents libiusb_afc_file_remove failed. "
     "path(/Documents/a.txt). ret : ",
     "", "Lost USB connection.\nFile remove aborted.",
     "Could not remove a file.\nError Code : "},
};

TEST_F(Namespace, FailuresTellWhatHappenedAndChangeNothing)
{
    for (const Failure &each : FAILURES) {
        for (const int code : {-32, -212}) {
            SCOPED_TRACE(std::string(each.line) + std::to_string(code));
            unmount();
            freshDevice();
            prepare();
            forgetLog();
            const bool known = object(each.path) != nullptr;
            const uint64_t space = freeSpace();
            memoryWorld.failNamed(each.call, 1, code);
            EXPECT_EQ(perform(each.operation, each.path), -ECANCELED);
            expectLogged(each.line + std::to_string(code) + each.end);
            expectError(code == -32 ? each.lost
                                    : each.other + std::to_string(code));
            EXPECT_EQ(object(each.path) != nullptr, known);
            EXPECT_EQ(freeSpace(), space);
            // A connection that could be had stays on the folder, except where
            // a folder was to be removed.
            const bool kept =
                std::string(each.operation) != "rmdir" &&
                std::string(each.path).compare(0, 5, "/Apps") == 0 &&
                std::string(each.call) != "libiusb_housearrest_init";
            EXPECT_EQ(memoryWorld.houses(), kept ? 1 : 0);
            EXPECT_EQ(app()->hhandle != 0, kept);
            // Whatever the connection was left as, the next try works.
            EXPECT_EQ(perform(each.operation, each.path), 0);
            expectNothingRaised();
        }
    }
}

TEST_F(Namespace, AFolderThatIsNotEmptyOnTheDevice)
{
    media().addFile("/general_storage/dir/.hidden");
    EXPECT_EQ(rmdir("/Storage/dir"), -ECANCELED);
    expectError("Could not remove a Directory.\nError Code : -33");
    sandbox().addFile("/Documents/dir/.hidden");
    EXPECT_EQ(rmdir("/Apps/Notes/dir"), -ECANCELED);
    expectLogged("tarnifs_rmdir not support dir. path : /Apps/Notes/dir, error "
                 ": -33");
    expectRefusal(NO_RMDIR + "/Apps/Notes/dir");
    EXPECT_NE(object("/Apps/Notes/dir"), nullptr);
}

TEST_F(Namespace, AConnectionThatCannotBeEnded)
{
    // Made all the same; the connection stays and is used again.
    memoryWorld.failNamed("libiusb_housearrest_exit", 1, -212);
    EXPECT_EQ(mkdir("/Apps/Notes/new"), -212);
    expectLogged("tarnifs_mkdir libiusb_housearrest_exit failed. error : -212");
    EXPECT_NE(object("/Apps/Notes/new"), nullptr);
    EXPECT_EQ(memoryWorld.houses(), 1);
    memoryWorld.forgetCalls();
    EXPECT_EQ(mkdir("/Apps/Notes/more"), 0);
    EXPECT_EQ(memoryWorld.count("libiusb_housearrest_init"), 0);
    EXPECT_EQ(memoryWorld.houses(), 0);
    // Removed all the same: ended at the second try, the record kept until the
    // folder is listed.
    memoryWorld.failNamed("libiusb_housearrest_exit", 1, -212);
    EXPECT_EQ(rmdir("/Apps/Notes/more"), -212);
    expectLogged("tarnifs_rmdir libiusb_housearrest_exit failed. error : -212");
    EXPECT_NE(object("/Apps/Notes/more"), nullptr);
    EXPECT_EQ(Value(app()->hhandle), 0U);
    EXPECT_EQ(memoryWorld.houses(), 0);
    expectShown("/Apps/Notes", sandbox(), "/Documents");
    EXPECT_EQ(object("/Apps/Notes/more"), nullptr);
    expectNothingRaised();
}

TEST_F(Namespace, OpenFilesKeepTheirFoldersConnection)
{
    tarni_file_info fi;
    ASSERT_EQ(open("/Apps/Notes/a.txt", &fi), 0);
    EXPECT_EQ(mkdir("/Apps/Notes/new"), 0);
    EXPECT_EQ(rmdir("/Apps/Notes/new"), 0);
    EXPECT_EQ(unlink("/Apps/Notes/b.txt"), 0);
    EXPECT_EQ(memoryWorld.count("libiusb_housearrest_init"), 1);
    EXPECT_EQ(memoryWorld.count("libiusb_housearrest_exit"), 0);
    EXPECT_EQ(read("/Apps/Notes/a.txt", &fi, 8, 0), "contents");
    EXPECT_EQ(release("/Apps/Notes/a.txt", &fi), 0);
    EXPECT_EQ(memoryWorld.houses(), 0);
    // A removal leaves its connection to the next listing.
    EXPECT_EQ(unlink("/Apps/Notes/a.txt"), 0);
    EXPECT_EQ(memoryWorld.houses(), 1);
    list("/Apps/Notes");
    EXPECT_EQ(memoryWorld.houses(), 0);
}

TEST_F(Namespace, AnOpenFileThatIsRemovedHoldsNothingAnyMore)
{
    tarni_file_info fi;
    ASSERT_EQ(open("/Apps/Notes/a.txt", &fi), 0);
    EXPECT_EQ(unlink("/Apps/Notes/a.txt"), 0);
    EXPECT_EQ(Value(app()->open_count), 0U);
    EXPECT_EQ(memoryWorld.open().find("file"), std::string::npos);
    EXPECT_EQ(release("/Apps/Notes/a.txt", &fi), 0);
    list("/Apps/Notes");
    EXPECT_EQ(memoryWorld.houses(), 0);
}

TEST_F(Namespace, RemovedFilesGiveTheirSpaceBack)
{
    const uint64_t space = freeSpace();
    EXPECT_EQ(unlink("/Storage/a.txt"), 0);
    EXPECT_EQ(freeSpace(), space + 5);
    EXPECT_EQ(object("/Storage/a.txt"), nullptr);
    // Gone on the device already: as good as removed.
    sandbox().remove("/Documents/a.txt");
    EXPECT_EQ(unlink("/Apps/Notes/a.txt"), 0);
    expectLogged("UnlinkAppsContents libiusb_afc_file_remove return "
                 "LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND");
    EXPECT_EQ(freeSpace(), space + 5 + 17);
    EXPECT_EQ(object("/Apps/Notes/a.txt"), nullptr);
    expectNothingRaised();
}

TEST_F(Namespace, EveryFailingCallLeavesAVolumeThatWorks)
{
    struct Case {
        const char *operation;
        std::string path;
    };
    const Case cases[] = {
        {"mkdir", "/Storage/new"},    {"rmdir", "/Storage/dir"},
        {"unlink", "/Storage/a.txt"}, {"mkdir", "/Apps/Notes/new"},
        {"rmdir", "/Apps/Notes/dir"}, {"unlink", "/Apps/Notes/a.txt"}};
    unmount();
    for (const Case &each : cases) {
        SCOPED_TRACE(std::string(each.operation) + " " + each.path);
        forEachDeviceFailure(
            FAILURE_CODES, [this] { prepare(); },
            [this, &each](int code) {
                const int ret = perform(each.operation, each.path);
                expectTold(ret, code);
                EXPECT_EQ(ret != 0, memoryWorld.fired());
                memoryWorld.heal();
                expectShown("/Storage", media(), "/general_storage");
                expectShown("/Apps/Notes", sandbox(), "/Documents");
                const bool made = std::string("mkdir") == each.operation;
                if (made || object(each.path) != nullptr) {
                    EXPECT_EQ(perform(each.operation, each.path), 0);
                }
                EXPECT_EQ(object(each.path) != nullptr, made);
                expectShown("/Storage", media(), "/general_storage");
                expectShown("/Apps/Notes", sandbox(), "/Documents");
                expectNothingRaised();
            });
    }
}

class Cleanup : public Namespace
{
  protected:
    int clean(const std::string &path)
    {
        const TarniLock lock;
        return CleanupSubFiles(context(), path.c_str(),
                               FindObject(path.c_str()));
    }
};

TEST_F(Cleanup, EmptiesAFolderDepthFirst)
{
    ASSERT_EQ(mkdir("/Storage/dir/sub"), 0);
    media().addFile("/general_storage/dir/sub/x");
    fill("/Storage/dir/sub");
    ASSERT_EQ(mkdir("/Apps/Notes/dir/sub"), 0);
    memoryWorld.forgetCalls();
    EXPECT_EQ(clean("/Storage/dir"), 0);
    EXPECT_EQ(memoryWorld.calls,
              (std::vector<std::string>{
                  "libiusb_afc_file_remove /general_storage/dir/sub/x",
                  "libiusb_afc_file_remove /general_storage/dir/sub"}));
    EXPECT_EQ(object("/Storage/dir/sub"), nullptr);
    EXPECT_FALSE(HasChildren(object("/Storage/dir")));
    EXPECT_EQ(clean("/Apps/Notes"), 0);
    EXPECT_EQ(sandbox().find("/Documents")->names, std::vector<std::string>());
    EXPECT_FALSE(HasChildren(app()));
    EXPECT_EQ(memoryWorld.houses(), 0);
    EXPECT_EQ(clean("/Apps/Notes"), 0); // nothing left to do
}

TEST_F(Cleanup, StopsAtTheFirstFailure)
{
    struct Case {
        const char *call;
        int n;
        const char *line;
        int ret;
    };
    const Case cases[] = {
        {"libiusb_housearrest_init", 1,
         "CleanupSubFiles libiusb_housearrest_init failed. error : -212", -212},
        {"libiusb_housearrest_openapp", 1,
         "CleanupSubFiles libiusb_housearrest_openapp failed. error : -212",
         -212},
        {"libiusb_afc_file_remove", 2,
         "CleanupSubFiles libiusb_afc_file_remove failed. "
         "path(/Documents/b.txt). ret : -212",
         -212},
        {"libiusb_housearrest_exit", 1,
         "CleanupSubFiles libiusb_housearrest_exit failed. path(/Apps/Notes). "
         "ret : -212",
         0},
    };
    for (const Case &each : cases) {
        SCOPED_TRACE(each.line);
        unmount();
        freshDevice();
        prepare();
        memoryWorld.failNamed(each.call, each.n, -212);
        EXPECT_EQ(clean("/Apps/Notes"), each.ret);
        expectLogged(each.line);
        EXPECT_EQ(object("/Apps/Notes/b.txt") != nullptr, each.ret != 0);
        memoryWorld.heal();
        expectShown("/Apps/Notes", sandbox(), "/Documents");
    }
}

} // namespace
