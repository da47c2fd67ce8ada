#include "tests/handlers/test_host.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>

#include "tarnifs/mount/host.h"

TestHost testHost;

namespace
{
constexpr std::chrono::seconds PATIENCE(10);
}

void TestHost::reset()
{
    const std::lock_guard<std::mutex> guard(lock);
    privateData = nullptr;
    haveFuseContext = true;
    refuseFolder = failBundlePath = held = ended = false;
    shown.clear();
    refreshed = 0;
}

void TestHost::set(bool *flag, bool value)
{
    const std::lock_guard<std::mutex> guard(lock);
    *flag = value;
    changed.notify_all();
}

std::vector<ShownDialog> TestHost::waitForDialogs(size_t count)
{
    std::unique_lock<std::mutex> guard(lock);
    changed.wait_for(guard, PATIENCE,
                     [this, count] { return shown.size() >= count; });
    return shown;
}

int TestHost::refreshes()
{
    const std::lock_guard<std::mutex> guard(lock);
    return refreshed;
}

void TestHost::waitForRefresh()
{
    std::unique_lock<std::mutex> guard(lock);
    changed.wait_for(guard, PATIENCE, [this] { return refreshed > 0; });
}

void TestHost::show(const ShownDialog &dialog)
{
    std::unique_lock<std::mutex> guard(lock);
    if (ended) {
        return;
    }
    shown.push_back(dialog);
    changed.notify_all();
    changed.wait(guard, [this] { return !held || ended; });
}

void TestHost::refresh()
{
    const std::lock_guard<std::mutex> guard(lock);
    ++refreshed;
    changed.notify_all();
}

void hostInitConnection(struct fuse_conn_info *) {}

bool hostFuseContext(void **private_data)
{
    *private_data = testHost.privateData;
    return testHost.haveFuseContext;
}

int hostBundlePath(char *dst)
{
    if (testHost.failBundlePath) {
        return -1;
    }
    strcpy(dst, "/opt/quorvel");
    return 0;
}

void hostSetBirthTime(struct stat *, time_t) {}

bool hostMakePrivateFolder(const char *path)
{
    if (testHost.refuseFolder) {
        return false;
    }
    return mkdir(path, S_IRWXU) == 0 || errno == EEXIST;
}

void hostLeavePrivateFolder() {}

void hostRemoveFolder(const char *path)
{
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

void hostShowDialog(const char *title, const char *text, const char *button)
{
    testHost.show({title, text, button});
}

void hostEndDialog()
{
    testHost.end();
}

void hostRefreshFileManager()
{
    testHost.refresh();
}
