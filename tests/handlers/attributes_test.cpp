// Attributes and extended attributes: answered by the catalogue alone.
#include <cstring>
#include <ctime>

#include "tests/handlers/fixture.h"

namespace
{

class Attributes : public MountTest
{
  protected:
    void SetUp() override
    {
        media().addFile("/general_storage/a", "hello");
        media().addFile("/general_storage/caf\u00e9", "1");
        ASSERT_TRUE(mount());
        list("/");
        list("/Storage");
        memoryWorld.forgetCalls();
    }
    void TearDown() override
    {
        EXPECT_EQ(memoryWorld.calls, Names());
        MountTest::TearDown();
    }
    int set(const char *name, const std::string &value)
    {
        return tarni_opers.setxattr("/Storage/a", name, value.data(),
                                    value.size(), 0, 0);
    }
    int sizeOf(const char *name)
    {
        return tarni_opers.getxattr("/Storage/a", name, nullptr, 0, 0);
    }
};

TEST_F(Attributes, WhatThereIsAndWhatThereIsNot)
{
    EXPECT_EQ(attributes("/").st_mode, 0x41ffU);
    EXPECT_EQ(attributes("/").st_nlink, 0U);
    EXPECT_NEAR(static_cast<double>(attributes("/").st_mtime),
                static_cast<double>(time(nullptr)), 2);
    {
        const TarniLock lock;
        GetObjectWithFileName("/.Trashes");
        GetObjectWithFileName("/Storage/.hidden");
    }
    int ret = 0;
    attributes("/.Trashes", &ret); // never, whatever the catalogue has
    EXPECT_EQ(ret, -ENOENT);
    attributes("/Storage/nosuch", &ret);
    EXPECT_EQ(ret, -ENOENT);
    EXPECT_EQ(attributes("/Storage/.hidden").st_mode, 0x81ffU);
    EXPECT_EQ(attributes("/Storage/cafe\u0301").st_size, 1);
    EXPECT_STREQ(object("/Storage/cafe\u0301")->file_name, "caf\u00e9");
    expectNothingRaised();
}

TEST_F(Attributes, ChangingATimeSetsThePresentOne)
{
    _KTL_OBJECT *a = object("/Storage/a");
    a->modify_time = 1;
    a->birth_time = 2;
    a->access_time = 3;
    tarni_setattr attr;
    attr.valid = TARNI_SETATTR_MODE | TARNI_SETATTR_ACCTIME;
    attr.size = 99;
    EXPECT_EQ(tarni_opers.setattr_x("/Storage/a", &attr), 0);
    EXPECT_EQ(Value(a->modify_time) + Value(a->birth_time) +
                  Value(a->access_time),
              6);
    EXPECT_EQ(Value(a->size), 5U);
    attr.valid =
        TARNI_SETATTR_MODTIME | TARNI_SETATTR_CRTIME | TARNI_SETATTR_SIZE;
    tarni_file_info fi;
    EXPECT_EQ(tarni_opers.fsetattr_x("/Storage/a", &attr, &fi), 0);
    for (const int64_t moment : {a->modify_time, a->birth_time}) {
        EXPECT_NEAR(static_cast<double>(moment),
                    static_cast<double>(time(nullptr)), 2);
    }
    EXPECT_EQ(Value(a->access_time), 3);
    struct stat st {
    };
    EXPECT_EQ(tarni_opers.fgetattr("/Storage/a", &st, &fi), 0);
    EXPECT_EQ(st.st_size, 99);
    EXPECT_EQ(tarni_opers.setattr_x("/Storage/new", &attr), 0);
    EXPECT_EQ(attributes("/Storage/new").st_mode, 0x81ffU);
}

TEST_F(Attributes, ExtendedOnesAreKeptReplacedAndRemoved)
{
    EXPECT_EQ(sizeOf("one"), -TARNI_ENOATTR);
    EXPECT_EQ(set("one", "first"), 0);
    EXPECT_EQ(set("two", "second"), 0);
    EXPECT_EQ(set("three", ""), 0);
    EXPECT_EQ(set("one", "changed!"), 0);
    EXPECT_EQ(sizeOf("one"), 8);
    char value[64] = {};
    EXPECT_EQ(tarni_opers.getxattr("/Storage/a", "one", value, 8, 0), 8);
    EXPECT_STREQ(value, "changed!");
    // In the middle, at the head, the last, and once more.
    for (const char *name : {"two", "three", "one"}) {
        EXPECT_EQ(tarni_opers.removexattr("/Storage/a", name), 0) << name;
        EXPECT_EQ(tarni_opers.removexattr("/Storage/a", name), -TARNI_ENOATTR);
    }
    EXPECT_EQ(Value(object("/Storage/a")->xattr_list), nullptr);
    // One ends at its first NUL, and a caller that asks for more than there is
    // gets zeros, not memory.
    EXPECT_EQ(set("nul", std::string("ab\0cd", 5)), 0);
    EXPECT_EQ(sizeOf("nul"), 2);
    memset(value, 'x', sizeof(value));
    EXPECT_EQ(tarni_opers.getxattr("/Storage/a", "nul", value, 64, 0), 64);
    EXPECT_EQ(std::string(value, 64), "ab" + std::string(62, '\0'));
}

TEST_F(Attributes, ExtendedOnesOfNothing)
{
    EXPECT_EQ(tarni_opers.getxattr("/", "any", nullptr, 0, 0), 0);
    EXPECT_EQ(tarni_opers.getxattr("/Storage/a", nullptr, nullptr, 0, 0),
              -TARNI_ENOATTR);
    EXPECT_EQ(tarni_opers.setxattr("/Storage/no", "n", "v", 1, 0, 0),
              -TARNI_ENOATTR);
    EXPECT_EQ(tarni_opers.setxattr("/Storage/a", "n", nullptr, 0, 0, 0),
              -TARNI_ENOATTR);
    EXPECT_EQ(tarni_opers.setxattr("/Storage/a", "n", "v", SIZE_MAX, 0, 0),
              -ENOMEM);
    // The node that could not be filled counts as none.
    EXPECT_EQ(sizeOf("n"), -TARNI_ENOATTR);
    EXPECT_EQ(set("n", "v"), 0);
    EXPECT_EQ(sizeOf("n"), 1);
}

} // namespace
