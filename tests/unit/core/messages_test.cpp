#include "tarnifs/notify/messages.h"

#include <string>

#include <gtest/gtest.h>

namespace
{

std::string compose(const char *text, const char *name, int code)
{
    char out[512];
    ComposeMessage(out, sizeof(out), text, name, code);
    return out;
}

TEST(Messages, NamesAreShownAsTheyAreAndCut)
{
    EXPECT_EQ(compose(FAILURE_OPEN_FILE.other, "%d%s%n.txt", -70),
              "Could not open a file(%d%s%n.txt).\nError Code : -70");
    EXPECT_EQ(compose(FAILURE_OPEN_FILE.lost, nullptr, -32),
              "Lost USB connection.\nOpening file() aborted.");
    EXPECT_EQ(compose(TEXT_NO_SPACE, "x", 1), "Not enough space on device.");
    EXPECT_EQ(compose(TEXT_READ_ONLY, std::string(2000, 'n').c_str(), 0).size(),
              511U);
}

} // namespace
