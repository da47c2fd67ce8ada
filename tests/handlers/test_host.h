// The host of the handler tests: a FUSE context without FUSE, dialogs that are
// written down instead of shown, a real private folder.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

struct ShownDialog {
    std::string title;
    std::string text;
    std::string button;
};

class TestHost
{
  public:
    void reset();

    // What FUSE holds: nothing at all, or private data (null included).
    void *privateData = nullptr;
    bool haveFuseContext = true;
    bool refuseFolder = false;
    bool failBundlePath = false;

    // With holdDialogs, a dialog stays on the screen until releaseDialogs or
    // hostEndDialog.
    void holdDialogs() { set(&held, true); }
    void releaseDialogs() { set(&held, false); }
    // Waits until that many were shown since reset, ten seconds at most.
    std::vector<ShownDialog> waitForDialogs(size_t count);
    std::vector<ShownDialog> dialogs() { return waitForDialogs(0); }
    int refreshes();
    void waitForRefresh();

    void show(const ShownDialog &dialog);
    void refresh();
    void end() { set(&ended, true); }

  private:
    void set(bool *flag, bool value);

    std::mutex lock;
    std::condition_variable changed;
    std::vector<ShownDialog> shown;
    int refreshed = 0;
    bool held = false;
    bool ended = false;
};

extern TestHost testHost;
