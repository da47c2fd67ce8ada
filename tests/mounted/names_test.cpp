// Names: spellings, and what must not be taken for one.
#include <fcntl.h>

#include <cerrno>

#include "tests/mounted/fixture.h"

namespace
{

// "é" as one character, and as "e" with an accent.
const std::string COMPOSED = "\xC3\xA9";
const std::string DECOMPOSED = "e\xCC\x81";

using NamesTest = MountedTest;

TEST_F(NamesTest, BothSpellingsMeetInEveryComponent)
{
    MakeDevice();
    const std::string own =
        "d" + DECOMPOSED + "/c" + COMPOSED + "/f" + DECOMPOSED;
    device->Put(own, "text");
    Start();
    for (unsigned which = 0; which < 8; ++which) {
        std::string path = "d";
        path += (which & 1) != 0 ? COMPOSED : DECOMPOSED;
        path += (which & 2) != 0 ? "/c" + COMPOSED : "/c" + DECOMPOSED;
        path += (which & 4) != 0 ? "/f" + COMPOSED : "/f" + DECOMPOSED;
        EXPECT_EQ(ReadFile(Storage(path)).data, "text") << which;
    }
    // The device's own spelling is shown, and the device gets it back.
    EXPECT_EQ(List(volume->Path("Storage")).data.find("d" + COMPOSED),
              std::string::npos);
    const std::string other =
        "d" + COMPOSED + "/c" + DECOMPOSED + "/f" + COMPOSED;
    EXPECT_EQ(WriteFile(Storage(other), O_WRONLY | O_TRUNC, "new").error, 0);
    EXPECT_EQ(device->Get(own), "new");
    EXPECT_EQ(Stat(Storage(std::string(300, 'n'))).error, ENOENT);
    EXPECT_TRUE(volume->Dialogs().empty());
}

TEST_F(NamesTest, NamesAreShownAsTheyAreUnlessTheyAreNone)
{
    MakeDevice();
    const std::string strange = "50%s %n $(id) \"q'.txt";
    device->Put("dir/" + strange, "x");
    device->Put("dir/bad\xFF\xFE", "raw");
    Start();
    volume->ExpectTrouble();
    // "sla/sh" and "..", which the device should not say.
    simulator->Control("names add 736c612f7368");
    simulator->Control("names add 2e2e2f6574632f706173737764");
    simulator->Control("names raw on");
    EXPECT_EQ(List(Storage("dir")).data, strange + "\nbad\xFF\xFE\n");
    EXPECT_EQ(ReadFile(Storage("dir/bad\xFF\xFE")).data, "raw");
    simulator->Control("fail FileRefOpen 1 10");
    EXPECT_EQ(ReadFile(Storage("dir/" + strange)).error, ECANCELED);
    EXPECT_TRUE(volume->WaitForDialog("Could not open a file(" + strange +
                                      ").\nError Code : -210"));
    EXPECT_EQ(ReadFile(Storage("dir/" + strange)).data, "x");
}

} // namespace
