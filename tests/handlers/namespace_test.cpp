// Making folders, removing folders and files.
#include "tarnifs/namespace/make_remove.h"
#include "tests/handlers/fixture.h"

namespace
{

class Namespace : public MountTest
{
  protected:
    void SetUp() override { populate(); }
    _KTL_OBJECT *app() { return object("/Apps/Notes"); }
    int clean(const std::string &path)
    {
        const TarniLock lock;
        return CleanupSubFiles(context(), path.c_str(),
                               FindObject(path.c_str()));
    }
};

TEST_F(Namespace, FoldersAreMadeAtTheEndOfTheirParents)
{
    EXPECT_EQ(mkdir("/Storage/New"), 0);
    EXPECT_EQ(memoryWorld.calls,
              Names{"libiusb_afc_make_directory /general_storage/New"});
    EXPECT_EQ(list("/Storage").back(), "New");
    EXPECT_EQ(attributes("/Storage/New").st_mode, 040777U);
    EXPECT_EQ(Value(object("/Storage/New")->type), KTL_ORDINARY);
    EXPECT_EQ(Value(object("/Storage/New")->enumerated), 0);
    EXPECT_NEAR(static_cast<double>(attributes("/Storage/New").st_mtime),
                static_cast<double>(time(nullptr)), 5);
    memoryWorld.forgetCalls();
    EXPECT_EQ(mkdir("/Apps/Notes/New"), 0);
    EXPECT_EQ(memoryWorld.calls,
              (Names{"libiusb_housearrest_init",
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
    expectAllShown();
    EXPECT_EQ(memoryWorld.houses(), 0);
    expectNothingRaised();
}

TEST_F(Namespace, RemovingAsksTheCatalogueFirst)
{
    {
        const TarniLock lock; // records without a parent are only forgotten
        GetObjectWithFileName("/Apps/Gone/x")->mode = KTL_MODE_FOLDER;
        GetObjectWithFileName("/Apps/Gone/y");
    }
    EXPECT_EQ(rmdir("/Apps/Gone/x"), 0);
    EXPECT_EQ(object("/Apps/Gone/x"), nullptr);
    EXPECT_EQ(unlink("/Apps/Gone/y"), 0);
    expectLogged("UnlinkAppsContents parent object not exitst! "
                 "path(/Apps/Gone/y)");
    EXPECT_EQ(rmdir("/Storage/dir"), -ENOTEMPTY);
    EXPECT_EQ(rmdir("/Storage/unknown"), 0);
    EXPECT_EQ(rmdir("/Apps/Notes/unknown"), 0);
    EXPECT_EQ(unlink("/Storage/unknown"), 0);
    expectLogged("UnlinkStorageContents Target not exitst! "
                 "path(/Storage/unknown)");
    EXPECT_EQ(unlink("/Apps/Notes/unknown"), 0);
    expectLogged("UnlinkAppsContents Target not exitst! "
                 "path(/Apps/Notes/unknown)");
    EXPECT_EQ(memoryWorld.calls, Names());
    expectNothingRaised();
}

TEST_F(Namespace, ReadOnlyPlacesAreRefused)
{
    const struct {
        const char *operation;
        const char *path;
        const char *place; // that the text names
    } cases[] = {
        {"mkdir", "/Media/Music/x", "/Media/Music"},
        {"mkdir", "/Apps/NewApp", "/Apps"},
        {"mkdir", "/Apps", "/"},
        {"mkdir", "/100%s", "/"},
        {"rmdir", "/Storage", "/Storage"},
        {"rmdir", "/Apps/Notes", "/Apps/Notes"},
        {"rmdir", "/.fseventsd", "/.fseventsd"},
        {"rmdir", "/Media/100%s", "/Media/100%s"},
        {"unlink", "/Media/a", "/Media/a"},
        {"unlink", "/Apps/Notes", "/Apps/Notes"},
        {"unlink", "/Storage", "/Storage"},
        {"unlink", "/x", "/x"},
    };
    for (const auto &each : cases) {
        const std::string operation = each.operation;
        const std::string path = each.path;
        SCOPED_TRACE(operation + " " + path);
        if (operation == "mkdir") {
            EXPECT_EQ(mkdir(path), -ECANCELED);
            expectLogged("tarnifs_mkdir make directory not supported. path : " +
                         path);
            expectRefusal("This folder is read only. You can not write or "
                          "modify.\n" +
                          std::string(each.place));
        } else if (operation == "rmdir") {
            EXPECT_EQ(rmdir(path), -ECANCELED);
            expectLogged("tarnifs_rmdir rmdir not supported. path : " + path +
                         " ");
            expectRefusal("You can not remove this folder.\n" + path);
        } else {
            EXPECT_EQ(unlink(path), -ECANCELED);
            expectLogged("tarnifs_unlink unlink not supported. path : " + path);
            expectRefusal("You can not remove this file.\n" + path);
        }
    }
    expectLogged(
        "UnlinkAppsContents unlink not supported. path : /Apps/Notes ");
    // Housekeeping folders, and everything without a mount, are silent.
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
    EXPECT_EQ(memoryWorld.calls, Names());
    EXPECT_NE(app(), nullptr);
}

TEST_F(Namespace, AFolderThatIsNotEmptyOnTheDevice)
{
    media().addFile("/general_storage/empty/.hidden");
    EXPECT_EQ(rmdir("/Storage/empty"), -ECANCELED);
    expectError("Could not remove a Directory.\nError Code : -33");
    sandbox().addFile("/Documents/empty/.hidden");
    EXPECT_EQ(rmdir("/Apps/Notes/empty"), -ECANCELED);
    expectLogged("tarnifs_rmdir not support dir. path : /Apps/Notes/empty, "
                 "error : -33");
    expectRefusal("You can not remove this folder.\n/Apps/Notes/empty");
    EXPECT_NE(object("/Apps/Notes/empty"), nullptr);
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
    // One that is removed itself holds nothing any more; the connection is
    // left to the next listing.
    EXPECT_EQ(unlink("/Apps/Notes/a.txt"), 0);
    EXPECT_EQ(Value(app()->open_count), 0U);
    EXPECT_EQ(memoryWorld.open().find("file"), std::string::npos);
    EXPECT_EQ(release("/Apps/Notes/a.txt", &fi), 0);
    EXPECT_EQ(memoryWorld.houses(), 1);
    list("/Apps/Notes");
    EXPECT_EQ(memoryWorld.houses(), 0);
}

TEST_F(Namespace, RemovedFilesGiveTheirSpaceBack)
{
    const uint64_t space = freeSpace();
    EXPECT_EQ(unlink("/Storage/a.txt"), 0);
    EXPECT_EQ(freeSpace(), space + 12);
    // Gone on the device already: as good as removed.
    sandbox().remove("/Documents/a.txt");
    EXPECT_EQ(unlink("/Apps/Notes/a.txt"), 0);
    expectLogged("UnlinkAppsContents libiusb_afc_file_remove return "
                 "LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND");
    EXPECT_EQ(freeSpace(), space + 12 + 17);
    expectAllShown();
    expectNothingRaised();
}

TEST_F(Namespace, CleanupEmptiesAFolderDepthFirst)
{
    EXPECT_EQ(clean("/Storage/dir"), 0);
    EXPECT_EQ(memoryWorld.calls,
              (Names{"libiusb_afc_file_remove /general_storage/dir/x",
                     "libiusb_afc_file_remove /general_storage/dir/sub"}));
    EXPECT_EQ(object("/Storage/dir/sub"), nullptr);
    EXPECT_FALSE(HasChildren(object("/Storage/dir")));
    EXPECT_EQ(clean("/Apps/Notes"), 0);
    EXPECT_EQ(sandbox().find("/Documents")->names, Names());
    EXPECT_FALSE(HasChildren(app()));
    EXPECT_EQ(memoryWorld.houses(), 0);
    EXPECT_EQ(clean("/Apps/Notes"), 0); // nothing left to do
}

TEST_F(Namespace, CleanupStopsAtTheFirstFailure)
{
    const struct {
        const char *call;
        int n;
        const char *line;
        int ret;
    } cases[] = {
        {"libiusb_housearrest_init", 1,
         "CleanupSubFiles libiusb_housearrest_init failed. error : -212", -212},
        {"libiusb_housearrest_openapp", 1,
         "CleanupSubFiles libiusb_housearrest_openapp failed. error : -212",
         -212},
        {"libiusb_afc_file_remove", 2,
         "CleanupSubFiles libiusb_afc_file_remove failed. "
         "path(/Documents/b.txt). ret : -212",
         -212},
        // After that of the folder inside.
        {"libiusb_housearrest_exit", 2,
         "CleanupSubFiles libiusb_housearrest_exit failed. path(/Apps/Notes). "
         "ret : -212",
         0},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.line);
        unmount();
        freshDevice();
        populate();
        memoryWorld.failNamed(each.call, each.n, -212);
        EXPECT_EQ(clean("/Apps/Notes"), each.ret);
        expectLogged(each.line);
        EXPECT_EQ(object("/Apps/Notes/b.txt") != nullptr, each.ret != 0);
        memoryWorld.heal();
        expectShown("/Apps/Notes", sandbox(), "/Documents");
    }
}

} // namespace
