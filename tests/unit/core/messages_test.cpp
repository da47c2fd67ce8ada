#include "tarnifs/notify/messages.h"

#include <algorithm>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace
{

size_t countOf(std::string_view text, std::string_view part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string_view::npos;
         at = text.find(part, at + part.size())) {
        ++count;
    }
    return count;
}

std::string compose(const char *text, const char *name, int code)
{
    char out[512];
    ComposeMessage(out, sizeof(out), text, name, code);
    return out;
}

TEST(Messages, EveryFailureNamesTheCodeUnlessTheConnectionIsLost)
{
    const DEVICE_FAILURE all[] = {
        FAILURE_READ_DIRECTORY, FAILURE_OPEN_SERVICE,     FAILURE_OPEN_APP,
        FAILURE_OPEN_FILE,      FAILURE_READ_FILE,        FAILURE_WRITE_FILE,
        FAILURE_CREATE_FILE,    FAILURE_MAKE_DIRECTORY,   FAILURE_REMOVE_FILE,
        FAILURE_RENAME,         FAILURE_REMOVE_DIRECTORY,
    };
    for (const DEVICE_FAILURE &failure : all) {
        SCOPED_TRACE(failure.other);
        EXPECT_EQ(countOf(failure.other, "%d"), 1U);
        EXPECT_EQ(countOf(failure.lost, "%d"), 0U);
        EXPECT_EQ(countOf(failure.other, "%s"), countOf(failure.lost, "%s"));
        EXPECT_EQ(std::string_view(failure.other).substr(0, 9), "Could not");
        const std::string_view lost = failure.lost;
        EXPECT_EQ(lost.substr(0, 21),
                  failure.lost == FAILURE_READ_DIRECTORY.lost
                      ? "Lost USB Connection.\n"
                      : "Lost USB connection.\n");
    }
}

TEST(Messages, NamesAreShownAsTheyAre)
{
    EXPECT_EQ(compose(FAILURE_OPEN_FILE.other, "%d%s%n.txt", -70),
              "Could not open a file(%d%s%n.txt).\nError Code : -70");
    EXPECT_EQ(compose(FAILURE_OPEN_FILE.lost, nullptr, -32),
              "Lost USB connection.\nOpening file() aborted.");
    EXPECT_EQ(compose(TEXT_NO_SPACE, "x", 1), "Not enough space on device.");
}

TEST(Messages, LongNamesAreCut)
{
    const std::string text =
        compose(TEXT_READ_ONLY, std::string(2000, 'n').c_str(), 0);
    EXPECT_EQ(text.size(), 511U);
}

} // namespace
