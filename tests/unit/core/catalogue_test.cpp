#include <cstring>

#include "tarnifs/catalogue/key.h"
#include "tarnifs/catalogue/object.h"
#include "tests/handlers/fixture.h"

namespace
{

class Catalogue : public MountTest
{
  protected:
    void SetUp() override
    {
        ASSERT_TRUE(mount());
        pthread_mutex_lock(&tarni_mutex);
        ClearCatalogue(context()->afc_handle);
    }
    void TearDown() override
    {
        EXPECT_EQ(CheckCatalogue(), "");
        pthread_mutex_unlock(&tarni_mutex);
        MountTest::TearDown();
    }
    _KTL_OBJECT *add(const std::string &path, uint16_t mode = KTL_MODE_FILE)
    {
        _KTL_OBJECT *object = GetObjectWithFileName(path.c_str());
        object->mode = mode;
        _KTL_OBJECT *parent = GetParentObject(path.c_str());
        if (parent != nullptr && parent != object) {
            LinkChild(parent, object);
        }
        return object;
    }
    // "/", "/Storage", "/Storage/a", "/Storage/a/b", "/Storage/a/b/c"
    void addTree()
    {
        add("/", KTL_MODE_FOLDER);
        add("/Storage", KTL_MODE_FOLDER);
        add("/Storage/a", KTL_MODE_FOLDER);
        add("/Storage/a/b", KTL_MODE_FOLDER);
        add("/Storage/a/b/c");
    }
};

TEST_F(Catalogue, ARecordIsBornEmpty)
{
    const _KTL_OBJECT *object = GetObject("/Storage/new");
    EXPECT_EQ(Value(object->mode), KTL_MODE_FILE);
    EXPECT_EQ(Value(object->type), KTL_ORDINARY);
    EXPECT_EQ(Value(object->size), 0U);
    EXPECT_EQ(Value(object->file_name), nullptr);
    EXPECT_FALSE(IsLinked(object));
    EXPECT_FALSE(HasChildren(object));
    EXPECT_EQ(sizeof(_KTL_OBJECT), 137U);
}

TEST_F(Catalogue, TheRootIsTheParentOfTheAreas)
{
    _KTL_OBJECT *root = GetObject("/");
    EXPECT_EQ(FindObject("/"), root);
    EXPECT_EQ(GetParentObject("/Media"), root);
    EXPECT_EQ(Object_list.count("/"), 1U);
    EXPECT_EQ(GetParentObject("/Nowhere/x"), nullptr);
}

TEST_F(Catalogue, SpellingsMeetAndNamesStay)
{
    _KTL_OBJECT *object = GetObjectWithFileName("/Storage/cafe\u0301");
    EXPECT_EQ(GetObjectWithFileName("/Storage/caf\u00e9"), object);
    EXPECT_EQ(FindObject("/Storage/caf\u00e9"), object);
    EXPECT_EQ(FindObject("/Storage/cafe\u0301"), object);
    EXPECT_STREQ(object->file_name, "cafe\u0301");
}

TEST_F(Catalogue, NamesThatCannotBeConvertedAreKeptRaw)
{
    const std::string tooLong = "/Storage/" + std::string(5000, 'n');
    for (const std::string &path : {std::string("/Storage/\xff"), tooLong}) {
        EXPECT_EQ(FindObject(path.c_str()), nullptr);
        _KTL_OBJECT *object = GetObjectWithFileName(path.c_str());
        EXPECT_EQ(FindObject(path.c_str()), object);
        EXPECT_EQ(GetObject(path.c_str()), object);
        DeleteObject(object, path.c_str());
        EXPECT_EQ(FindObject(path.c_str()), nullptr);
    }
    expectLogged("FindObject getUTF8MACName Failed");
    expectLogged("GetObject getUTF8MACName Failed, \xff");
}

TEST_F(Catalogue, AMissLeavesAnEntryThatIsNoRecord)
{
    EXPECT_EQ(FindObject("/Storage/x"), nullptr);
    EXPECT_EQ(Object_list.count("/Storage/x"), 1U);
    const _KTL_OBJECT *object = GetObject("/Storage/x");
    EXPECT_EQ(FindObject("/Storage/x"), object);
}

TEST_F(Catalogue, DeletingIsDeepAndLeavesTheFolder)
{
    addTree();
    _KTL_OBJECT *a = FindObject("/Storage/a");
    DeleteChildObject(a, "/Storage/a");
    EXPECT_EQ(FindObject("/Storage/a/b"), nullptr);
    EXPECT_EQ(FindObject("/Storage/a/b/c"), nullptr);
    EXPECT_EQ(FindObject("/Storage/a"), a);
    EXPECT_TRUE(IsLinked(a));
    EXPECT_FALSE(HasChildren(a));
    DeleteObject(GetObject("/Storage/unlinked"), "/Storage/unlinked");
    EXPECT_EQ(Object_list.count("/Storage/unlinked"), 0U);
    DeleteObject(nullptr, "/Storage/a");
    EXPECT_EQ(FindObject("/Storage/a"), a);
}

TEST_F(Catalogue, DeletingANameInAnotherSpellingLeavesNoEntryBehind)
{
    _KTL_OBJECT *object = add("/Storage/cafe\u0301");
    DeleteObject(object, "/Storage/cafe\u0301");
    EXPECT_EQ(FindObject("/Storage/caf\u00e9"), nullptr);
    EXPECT_EQ(FindObject("/Storage/cafe\u0301"), nullptr);
}

TEST_F(Catalogue, ARemovedFolderDoesNotLeaveItsChildrenPointingNowhere)
{
    addTree();
    DeleteObject(FindObject("/Storage/a"), "/Storage/a");
    EXPECT_FALSE(IsLinked(FindObject("/Storage/a/b")));
}

TEST_F(Catalogue, LinkingTwiceMovesToTheTail)
{
    add("/", KTL_MODE_FOLDER);
    _KTL_OBJECT *storage = add("/Storage", KTL_MODE_FOLDER);
    _KTL_OBJECT *first = add("/Storage/1");
    _KTL_OBJECT *second = add("/Storage/2");
    LinkChild(storage, first);
    EXPECT_EQ(ObjectOfSibling(ChildList(storage)->next), second);
    EXPECT_EQ(ObjectOfSibling(ChildList(storage)->prev), first);
}

TEST_F(Catalogue, OnlyTemporaryRecordsAreCleanedUp)
{
    addTree();
    add("/Storage/tmp")->type = KTL_TEMPORARY;
    CleanupTmpObject("/Storage", ChildList(FindObject("/Storage")));
    EXPECT_EQ(FindObject("/Storage/tmp"), nullptr);
    EXPECT_NE(FindObject("/Storage/a"), nullptr);
}

TEST_F(Catalogue, DeletingClosesOnTheConnectionThatOpened)
{
    pthread_mutex_unlock(&tarni_mutex);
    addApp("Notes", "com.example.notes", {"n.txt"});
    pthread_mutex_lock(&tarni_mutex);
    libiusb_afc *house = nullptr;
    libiusb_file file = 0;
    ASSERT_EQ(libiusb_housearrest_init(context()->device_handle, &house), 0);
    ASSERT_EQ(libiusb_housearrest_openapp(house, "com.example.notes"), 0);
    ASSERT_EQ(libiusb_afc_file_open(house, "/Documents/n.txt", 1, &file), 0);
    _KTL_OBJECT *object = GetObject("/Storage/x");
    object->hhandle = reinterpret_cast<uint64_t>(house);
    object->file_handle = file;
    DeleteObject(object, "/Storage/x");
    EXPECT_EQ(memoryWorld.count("libiusb_afc_file_close"), 1);
    EXPECT_EQ(memoryWorld.count("libiusb_housearrest_exit"), 1);
}

TEST_F(Catalogue, WithoutAContextNothingIsDeleted)
{
    _KTL_OBJECT *object = GetObject("/Storage/x");
    void *mounted = testHost.privateData;
    testHost.privateData = nullptr;
    DeleteObject(object, "/Storage/x");
    testHost.privateData = mounted;
    EXPECT_EQ(FindObject("/Storage/x"), object);
}

TEST_F(Catalogue, UnfinishedListingsAreDroppedButNotWhatIsInUse)
{
    addTree();
    add("/Storage/open")->open_count = 1;
    add("/Storage/staged")->type = KTL_STAGED;
    add("/Storage/plain");
    DropUnfinishedListing("/Storage");
    EXPECT_NE(FindObject("/Storage/plain"), nullptr); // not marked
    NoteListing(FindObject("/Storage"), false);
    FindObject("/Storage/a/b/c")->file_handle = 0;
    FindObject("/Storage/a/b/c")->open_count = 1;
    DropUnfinishedListing("/Storage");
    EXPECT_EQ(FindObject("/Storage/plain"), nullptr);
    EXPECT_NE(FindObject("/Storage/open"), nullptr);
    EXPECT_NE(FindObject("/Storage/staged"), nullptr);
    EXPECT_NE(FindObject("/Storage/a/b/c"), nullptr); // deep inside
    EXPECT_TRUE(IsListingUnfinished(FindObject("/Storage")));
    NoteListing(FindObject("/Storage"), true);
    EXPECT_FALSE(IsListingUnfinished(FindObject("/Storage")));
}

TEST_F(Catalogue, TheCheckFindsDamage)
{
    addTree();
    EXPECT_EQ(CheckCatalogue(), "");
    _KTL_OBJECT *a = FindObject("/Storage/a");
    _KTL_OBJECT *b = FindObject("/Storage/a/b");
    _KTL_OBJECT *storage = FindObject("/Storage");

    _KTL_LIST *link = SiblingLink(b);
    _KTL_LIST *kept = link->prev;
    link->prev = link;
    EXPECT_NE(CheckCatalogue(), "") << "a broken link";
    link->prev = kept;

    LinkChild(storage, b);
    EXPECT_NE(CheckCatalogue(), "") << "a child of the wrong folder";
    LinkChild(a, b);

    a->mode = 0;
    EXPECT_NE(CheckCatalogue(), "") << "a mode that can't be";
    a->mode = KTL_MODE_FOLDER;

    a->open_count -= 1;
    EXPECT_NE(CheckCatalogue(), "") << "a count below 0";
    a->open_count = 0;

    b->app_id = a->file_name;
    EXPECT_NE(CheckCatalogue(), "") << "a shared string";
    b->app_id = nullptr;

    Object_list["/twice"] = reinterpret_cast<uint64_t>(a);
    EXPECT_NE(CheckCatalogue(), "") << "a record under two keys";
    Object_list.erase("/twice");

    const uint64_t address = Object_list["/Storage/a/b"];
    Object_list["/Storage/a/b"] = 0;
    EXPECT_NE(CheckCatalogue(), "") << "a child the map does not hold";
    Object_list["/Storage/a/b"] = address;

    char *name = b->file_name;
    b->file_name = nullptr;
    EXPECT_NE(CheckCatalogue(), "") << "a child without a name";
    b->file_name = name;
}

} // namespace
