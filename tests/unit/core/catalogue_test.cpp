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
        for (const char *path :
             {"/", "/Storage", "/Storage/a", "/Storage/a/b"}) {
            add(path, KTL_MODE_FOLDER);
        }
        add("/Storage/a/b/c");
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
};

TEST_F(Catalogue, RecordsAreMadeAndFound)
{
    // A miss leaves an entry that is no record.
    EXPECT_EQ(FindObject("/Storage/new"), nullptr);
    EXPECT_EQ(Object_list.count("/Storage/new"), 1U);
    const _KTL_OBJECT *object = GetObject("/Storage/new");
    EXPECT_EQ(FindObject("/Storage/new"), object);
    EXPECT_EQ(Value(object->mode), KTL_MODE_FILE);
    EXPECT_EQ(Value(object->type), KTL_ORDINARY);
    EXPECT_EQ(Value(object->size), 0U);
    EXPECT_EQ(Value(object->file_name), nullptr);
    EXPECT_FALSE(IsLinked(object));
    EXPECT_FALSE(HasChildren(object));
    EXPECT_EQ(sizeof(_KTL_OBJECT), 137U);
    EXPECT_EQ(GetParentObject("/Media"), FindObject("/"));
    EXPECT_EQ(GetParentObject("/Nowhere/x"), nullptr);
    // Spellings meet and names stay.
    object = GetObjectWithFileName("/Storage/cafe\u0301");
    EXPECT_EQ(GetObjectWithFileName("/Storage/caf\u00e9"), object);
    EXPECT_EQ(FindObject("/Storage/caf\u00e9"), object);
    EXPECT_EQ(FindObject("/Storage/cafe\u0301"), object);
    EXPECT_STREQ(object->file_name, "cafe\u0301");
    // Names that cannot be converted are kept raw.
    const std::string tooLong = "/Storage/" + std::string(5000, 'n');
    for (const std::string &path : {std::string("/Storage/\xff"), tooLong}) {
        EXPECT_EQ(FindObject(path.c_str()), nullptr);
        _KTL_OBJECT *raw = GetObjectWithFileName(path.c_str());
        EXPECT_EQ(FindObject(path.c_str()), raw);
        DeleteObject(raw, path.c_str());
        EXPECT_EQ(FindObject(path.c_str()), nullptr);
    }
    expectLogged("FindObject getUTF8MACName Failed");
    expectLogged("GetObject getUTF8MACName Failed, \xff");
    // Linking twice moves to the tail.
    _KTL_OBJECT *storage = FindObject("/Storage");
    _KTL_OBJECT *first = add("/Storage/1");
    add("/Storage/2");
    LinkChild(storage, first);
    EXPECT_EQ(ObjectOfSibling(ChildList(storage)->prev), first);
    EXPECT_EQ(ObjectOfSibling(ChildList(storage)->next),
              FindObject("/Storage/a"));
}

TEST_F(Catalogue, DeletingIsDeepAndLeavesTheFolder)
{
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
    DeleteObject(add("/Storage/cafe\u0301"), "/Storage/cafe\u0301");
    EXPECT_EQ(FindObject("/Storage/caf\u00e9"), nullptr);
    EXPECT_EQ(FindObject("/Storage/cafe\u0301"), nullptr);
    // A folder that goes under another spelling than its children were made
    // under leaves no entry to what is gone.
    add("/Storage/caf\u00e9", KTL_MODE_FOLDER);
    add("/Storage/caf\u00e9/menu");
    DeleteChildObject(FindObject("/Storage/caf\u00e9"), "/Storage/cafe\u0301");
    EXPECT_EQ(FindObject("/Storage/caf\u00e9/menu"), nullptr);
    // Children do not point nowhere.
    add("/Storage/a/b", KTL_MODE_FOLDER);
    DeleteObject(a, "/Storage/a");
    EXPECT_FALSE(IsLinked(FindObject("/Storage/a/b")));
    add("/Storage/tmp")->type = KTL_TEMPORARY;
    add("/Storage/kept");
    CleanupTmpObject("/Storage", ChildList(FindObject("/Storage")));
    EXPECT_EQ(FindObject("/Storage/tmp"), nullptr);
    _KTL_OBJECT *kept = FindObject("/Storage/kept");
    ASSERT_NE(kept, nullptr);
    void *mounted = testHost.privateData;
    testHost.privateData = nullptr;
    DeleteObject(kept, "/Storage/kept");
    testHost.privateData = mounted;
    EXPECT_EQ(FindObject("/Storage/kept"), kept);
}

TEST_F(Catalogue, DeletingClosesOnTheConnectionThatOpened)
{
    ClearCatalogue(context()->afc_handle);
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

TEST_F(Catalogue, UnfinishedListingsAreDroppedButNotWhatIsInUse)
{
    add("/Storage/open")->open_count = 1;
    add("/Storage/staged")->type = KTL_STAGED;
    add("/Storage/plain");
    DropUnfinishedListing("/Storage");
    EXPECT_NE(FindObject("/Storage/plain"), nullptr); // not marked
    NoteListing(FindObject("/Storage"), false);
    FindObject("/Storage/a/b/c")->open_count = 1; // deep inside
    DropUnfinishedListing("/Storage");
    EXPECT_EQ(FindObject("/Storage/plain"), nullptr);
    for (const char *kept :
         {"/Storage/open", "/Storage/staged", "/Storage/a/b/c"}) {
        EXPECT_NE(FindObject(kept), nullptr) << kept;
    }
    EXPECT_TRUE(IsListingUnfinished(FindObject("/Storage")));
    NoteListing(FindObject("/Storage"), true);
    EXPECT_FALSE(IsListingUnfinished(FindObject("/Storage")));
}

// The guardian of the other tests.
TEST_F(Catalogue, TheCheckFindsDamage)
{
    EXPECT_EQ(CheckCatalogue(), "");
    _KTL_OBJECT *a = FindObject("/Storage/a");
    _KTL_OBJECT *b = FindObject("/Storage/a/b");

    _KTL_LIST *link = SiblingLink(b);
    _KTL_LIST *kept = link->prev;
    link->prev = link;
    EXPECT_NE(CheckCatalogue(), "") << "a broken link";
    link->prev = kept;

    LinkChild(FindObject("/Storage"), b);
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
