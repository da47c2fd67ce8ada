// The dialog thread, and what reaches the screen.
#include "tarnifs/notify/dialogs.h"

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
    const struct {
        int kind;
        const char *title;
        std::string text;
    } cases[] = {{0, "Quorvel Notification", "50% of %s \"quoted\""},
                 {1, "Quorvel Warnning!", "x"},
                 {2, "Quorvel Error!!", "%n"},
                 {7, "Quorvel Unknown", std::string(600, 'x')}};
    size_t count = 0;
    for (const auto &each : cases) {
        ShowMessageBox(each.kind, "%s", each.text.c_str());
        const std::vector<ShownDialog> shown = testHost.waitForDialogs(++count);
        ASSERT_EQ(shown.size(), count);
        EXPECT_EQ(shown.back().title, each.title);
        EXPECT_EQ(shown.back().text, each.text.substr(0, 511));
        EXPECT_EQ(shown.back().button, "Confirm");
    }
}

TEST_F(Dialogs, OfSeveralRaisedMeanwhileTheLastIsShown)
{
    testHost.holdDialogs();
    int ret = 0;
    list("/Nowhere", &ret);
    EXPECT_EQ(ret, -ECANCELED);
    ASSERT_EQ(testHost.waitForDialogs(1).size(), 1U);
    list("/Elsewhere", &ret); // does not wait for the user
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

TEST_F(Dialogs, WithoutAContextOrAThreadNobodyIsSignalled)
{
    void *mounted = testHost.privateData;
    testHost.privateData = nullptr;
    ShowMessageBox(2, "lost");
    testHost.privateData = mounted;
    expectLogged("ShowMessageBox getContext failed. ret : -38");
    expectLogged("ShowMessageBox Error. ret : -38");
    expectNothingRaised();
    StopDialogThread(context());
    ShowMessageBox(2, "unheard"); // must not signal a thread that is gone
    EXPECT_STREQ(context()->dialog.dialog_message, "unheard");
}

} // namespace
