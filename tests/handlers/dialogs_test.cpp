// The dialog thread, and what reaches the screen.
#include "tarnifs/notify/dialogs.h"

#include <cstring>

#include "tests/handlers/fixture.h"

namespace
{

class Dialogs : public MountTest
{
  protected:
    void SetUp() override { ASSERT_TRUE(mount()); }
};

TEST_F(Dialogs, ShowTitleTextAndButtonOfAKind)
{
    const std::pair<int, const char *> kinds[] = {
        {0, "Quorvel Notification"},
        {1, "Quorvel Warnning!"},
        {2, "Quorvel Error!!"},
        {7, "Quorvel Unknown"},
    };
    size_t count = 0;
    for (const auto &kind : kinds) {
        ShowMessageBox(kind.first, "%s", "50% of %s \"quoted\"");
        const std::vector<ShownDialog> shown = testHost.waitForDialogs(++count);
        ASSERT_EQ(shown.size(), count);
        EXPECT_EQ(shown.back().title, kind.second);
        EXPECT_EQ(shown.back().text, "50% of %s \"quoted\"");
        EXPECT_EQ(shown.back().button, "Confirm");
    }
}

TEST_F(Dialogs, ALongTextIsCut)
{
    ShowMessageBox(0, "%s", std::string(600, 'x').c_str());
    const std::vector<ShownDialog> shown = testHost.waitForDialogs(1);
    ASSERT_EQ(shown.size(), 1U);
    EXPECT_EQ(shown[0].text, std::string(511, 'x'));
}

TEST_F(Dialogs, OfSeveralRaisedMeanwhileTheLastIsShown)
{
    testHost.holdDialogs();
    ShowMessageBox(2, "first");
    ASSERT_EQ(testHost.waitForDialogs(1).size(), 1U);
    ShowMessageBox(2, "second");
    ShowMessageBox(2, "third");
    testHost.releaseDialogs();
    ASSERT_EQ(testHost.waitForDialogs(2).size(), 2U);
    usleep(50000); // time in which a further one would come
    const std::vector<ShownDialog> shown = testHost.dialogs();
    ASSERT_EQ(shown.size(), 2U);
    EXPECT_EQ(shown[1].text, "third");
}

TEST_F(Dialogs, ARefreshIsDoneOnceAndNotTwiceAtATime)
{
    _DIALOG_BLOCK &block = context()->dialog;
    block.refresh_busy = 1; // one is running
    block.finder_refresh = 1;
    pthread_kill(context()->dialog_thread, SIGUSR1);
    usleep(50000);
    EXPECT_EQ(testHost.refreshes(), 0);
    EXPECT_EQ(block.finder_refresh, 1);
    block.refresh_busy = 0;
    pthread_kill(context()->dialog_thread, SIGUSR1);
    testHost.waitForRefresh();
    while (block.refresh_busy != 0) {
        usleep(100);
    }
    EXPECT_EQ(block.finder_refresh, 0);
    EXPECT_EQ(testHost.refreshes(), 1);
}

TEST_F(Dialogs, AnOperationDoesNotWaitForTheUser)
{
    testHost.holdDialogs();
    int ret = 0;
    list("/Nowhere", &ret);
    list("/Elsewhere", &ret);
    EXPECT_EQ(ret, -ECANCELED);
    list("/");
    testHost.releaseDialogs();
    testHost.waitForDialogs(1);
}

TEST_F(Dialogs, WithoutAContextNothingIsShown)
{
    void *mounted = testHost.privateData;
    testHost.privateData = nullptr;
    ShowMessageBox(2, "lost");
    testHost.privateData = mounted;
    expectLogged("ShowMessageBox getContext failed. ret : -38");
    expectLogged("ShowMessageBox Error. ret : -38");
    expectNothingRaised();
}

TEST_F(Dialogs, WithoutAThreadNothingIsSignalled)
{
    StopDialogThread(context());
    ShowMessageBox(2, "unheard"); // must not signal a thread that is gone
    EXPECT_STREQ(context()->dialog.dialog_message, "unheard");
}

} // namespace
