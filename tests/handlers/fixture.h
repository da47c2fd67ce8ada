// What every handler test stands on: an in-memory device, a test host, a log
// and a tray pipe of its own, and checks at the end that nobody has to think of:
// everything that was opened is closed, the lock is free, the private folder is
// gone, no closed handle was used.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tarnifs/catalogue/object.h"
#include "tarnifs/mount/context.h"
#include "tarnifs/mount/operations.h"
#include "tests/handlers/memory_device.h"
#include "tests/handlers/test_host.h"
#include "tests/support/temp_folder.h"

// A field of a packed record by value: the test library takes references, which
// a field in the middle of such a record has not got.
template <typename T>
T Value(T value)
{
    return value;
}

// Reads a FIFO from its making on.
class TrayReader
{
  public:
    explicit TrayReader(const std::string &path);
    ~TrayReader();
    TrayReader(const TrayReader &) = delete;
    TrayReader &operator=(const TrayReader &) = delete;
    // What is there now.
    std::string read();
    // Waits until that many bytes came altogether, ten seconds at most.
    std::string readBytes(size_t count);

  private:
    int fd = -1;
};

using Names = std::vector<std::string>;

// What an operation asked the dialog thread to show.
struct Raised {
    std::string title; // empty: nothing
    std::string text;
};

// For failure sweeps: a lost connection, a full device, anything else.
const std::vector<int> FAILURE_CODES = {-32, -62, -212};

class MountTest : public testing::Test
{
  protected:
    MountTest();
    ~MountTest() override;
    void TearDown() override;

    // Starts over with one fresh device. The mount must be down.
    MemoryDevice &freshDevice();
    bool mount();
    void unmount();
    _CONTEXT *context() const
    {
        return static_cast<_CONTEXT *>(testHost.privateData);
    }
    MemoryTree &media() { return memoryWorld.devices[0].media; }
    // Of the first app.
    MemoryTree &sandbox() { return memoryWorld.devices[0].apps[0].tree; }
    uint64_t freeSpace() { return context()->device_info.free_capacity; }

    // Operations, with what a host adds.
    std::vector<std::string> list(const std::string &path, int *ret = nullptr);
    int fill(const std::string &path); // null filler
    struct stat attributes(const std::string &path, int *ret = nullptr);
    std::string read(const std::string &path, tarni_file_info *fi, size_t size,
                     off_t offset, int *ret = nullptr);
    int open(const std::string &path, tarni_file_info *fi)
    {
        return tarni_opers.open(path.c_str(), fi);
    }
    int release(const std::string &path, tarni_file_info *fi)
    {
        return tarni_opers.release(path.c_str(), fi);
    }
    int write(const std::string &path, tarni_file_info *fi,
              const std::string &data, off_t offset)
    {
        return tarni_opers.write(path.c_str(), data.data(), data.size(), offset,
                                 fi);
    }
    int create(const std::string &path, tarni_file_info *fi)
    {
        return tarni_opers.create(path.c_str(), 0644, fi);
    }
    int mkdir(const std::string &path)
    {
        return tarni_opers.mkdir(path.c_str(), 0755);
    }
    int rmdir(const std::string &path)
    {
        return tarni_opers.rmdir(path.c_str());
    }
    int unlink(const std::string &path)
    {
        return tarni_opers.unlink(path.c_str());
    }
    int rename(const std::string &from, const std::string &to)
    {
        return tarni_opers.rename(from.c_str(), to.c_str());
    }
    // Mounts a device with some of everything, most of it listed: files and
    // folders in the storage, the apps "Notes" and "Other", a song.
    void populate();
    // That the volume shows of the storage and of "Notes" what the device has.
    void expectAllShown();
    // A safe-save temporary of a file that exists: its data is staged.
    void stage(const std::string &path, const std::string &data);
    // An app folder with its records, as a listing of the apps area leaves
    // them; the app is on the device.
    void addApp(const std::string &name, const std::string &bundleId,
                const std::vector<std::string> &files);
    // An app on the device alone; its files.
    MemoryTree &addToDevice(const std::string &name,
                            const std::string &bundleId);
    // A media item's record.
    _KTL_OBJECT *addMediaItem(const std::string &path,
                              const std::string &devicePath);

    _KTL_OBJECT *object(const std::string &path);

    // What was raised since the last call.
    Raised raised();
    void expectError(const std::string &text);
    void expectRefusal(const std::string &text);
    void expectNothingRaised();
    // That the user was told once of a failure with `code`, or that the
    // operation passed, or handed on what ending a connection said.
    void expectTold(int ret, int code);
    // That the volume shows of a folder what the device has in it.
    void expectShown(const std::string &path, MemoryTree &tree,
                     const std::string &devicePath);

    // Lines of the log, without time and process id.
    std::vector<std::string> log() const;
    void forgetLog();
    int countLogged(const std::string &line) const;
    void expectLogged(const std::string &line) const;

    void expectLockFree();
    std::string privateFolder() const;

    // Runs `body` on a fresh mount again and again, each time with the next
    // device call failing with `code`, until a run sees no failure. After each:
    // the lock is free, the catalogue whole, a listing of "/Storage" works, and
    // after the unmount everything is closed.
    void forEachDeviceFailure(const std::vector<int> &codes,
                              const std::function<void()> &prepare,
                              const std::function<void(int code)> &body);

    TempFolder folder;
    uint32_t locationId;
    std::vector<unsigned> pauses; // what start-up would have waited

  private:
    void forgetRaised();
    std::vector<std::string> rawLog() const;
    void unmountCleanly();
    ptrdiff_t forgottenLines = 0;
};
