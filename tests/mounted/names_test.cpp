// Names: spellings, lengths, and what must not be taken for one.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "tests/mounted/fixture.h"

namespace
{

// "é" as one character, and as "e" with an accent.
const std::string COMPOSED = "\xC3\xA9";
const std::string DECOMPOSED = "e\xCC\x81";

class NamesTest : public MountedTest
{
};

TEST_F(NamesTest, BothSpellingsMeetInEveryComponent)
{
    MakeDevice();
    device->Put("d" + DECOMPOSED + "/c" + COMPOSED + "/f" + DECOMPOSED, "text");
    Start();
    for (const std::string &first : {COMPOSED, DECOMPOSED}) {
        for (const std::string &second : {COMPOSED, DECOMPOSED}) {
            for (const std::string &third : {COMPOSED, DECOMPOSED}) {
                std::string path = "d" + first + "/c";
                path += second + "/f" + third;
                EXPECT_EQ(ReadFile(Storage(path)).data, "text");
            }
        }
    }
    // The device's own spelling is shown, and the device gets it back.
    EXPECT_EQ(List(volume->Path("Storage")).data.find("d" + COMPOSED),
              std::string::npos);
    const std::string other = "d" + COMPOSED + "/c" + DECOMPOSED + "/f";
    EXPECT_EQ(
        WriteFile(Storage(other + COMPOSED), O_WRONLY | O_TRUNC, "new").error,
        0);
    EXPECT_EQ(
        device->Get("d" + DECOMPOSED + "/c" + COMPOSED + "/f" + DECOMPOSED),
        "new");
}

TEST_F(NamesTest, LongNamesAndPaths)
{
    MakeDevice();
    const std::string name(255, 'n');
    std::string deep;
    for (int i = 0; i < 12; ++i) {
        deep += std::string(80, static_cast<char>('a' + i)) + "/";
    }
    device->Put(name, "long");
    device->Put(deep + "f", "deep");
    Start();
    EXPECT_EQ(ReadFile(Storage(name)).data, "long");
    EXPECT_EQ(ReadFile(Storage(deep + "f")).data, "deep");
    EXPECT_EQ(Stat(Storage(std::string(300, 'n'))).error, ENOENT);
    EXPECT_EQ(
        WriteFile(Storage(std::string(300, 'n')), O_CREAT | O_WRONLY, "").error,
        ENAMETOOLONG);
    EXPECT_TRUE(volume->Dialogs().empty());
}

TEST_F(NamesTest, WhatTheDeviceShouldNotSay)
{
    MakeDevice();
    device->Put("dir/good", "x");
    device->Put("dir/bad\xFF\xFE", "raw");
    Start();
    volume->ExpectTrouble();
    // "sla/sh", "..", and a name with invalid UTF-8 that is no file.
    simulator->Control("names add 736c612f7368");
    simulator->Control("names add 2e2e2f6574632f706173737764");
    simulator->Control("names raw on");
    const std::string names = List(Storage("dir")).data;
    EXPECT_NE(names.find("good\n"), std::string::npos);
    EXPECT_NE(names.find("bad\xFF\xFE\n"), std::string::npos);
    EXPECT_EQ(names.find("sla"), std::string::npos) << names;
    EXPECT_EQ(names.find("passwd"), std::string::npos) << names;
    EXPECT_EQ(ReadFile(Storage("dir/bad\xFF\xFE")).data, "raw");
    EXPECT_EQ(ReadFile(Storage("dir/good")).data, "x");
}

TEST_F(NamesTest, DialogsShowNamesAsTheyAre)
{
    MakeDevice();
    const std::string name = "50%s %n $(id) \"q'.txt";
    device->Put(name, "x");
    Start();
    volume->ExpectTrouble();
    simulator->Control("fail FileRefOpen 1 10");
    EXPECT_EQ(ReadFile(Storage(name)).error, ECANCELED);
    EXPECT_TRUE(volume->WaitForDialog("Could not open a file(" + name +
                                      ").\nError Code : -210"));
    EXPECT_EQ(ReadFile(Storage(name)).data, "x");
}

} // namespace
