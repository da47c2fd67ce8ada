#include "tests/handlers/fixture.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <utility>

#include "tarnifs/mount/startup.h"
#include "tarnifs/notify/tray_pipe.h"
#include "util/log.h"

namespace
{

std::vector<unsigned> *pausesTaken;

void notePause(unsigned microseconds)
{
    pausesTaken->push_back(microseconds);
}

int collect(void *buffer, const char *name, const struct stat *st, off_t offset)
{
    EXPECT_EQ(st, nullptr);
    EXPECT_EQ(offset, 0);
    static_cast<std::vector<std::string> *>(buffer)->emplace_back(name);
    return 0;
}

// Hands a result to whoever asks for it, or wants it to be good.
void takeResult(int result, const std::string &path, int *ret)
{
    if (ret != nullptr) {
        *ret = result;
    } else {
        EXPECT_GE(result, 0) << path;
    }
}

} // namespace

TrayReader::TrayReader(const std::string &path)
{
    mkfifo(path.c_str(), 0600);
    fd = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
}

TrayReader::~TrayReader()
{
    close(fd);
}

std::string TrayReader::read()
{
    char buffer[65536];
    const ssize_t count = ::read(fd, buffer, sizeof(buffer));
    return count <= 0 ? std::string()
                      : std::string(buffer, static_cast<size_t>(count));
}

std::string TrayReader::readBytes(size_t count)
{
    std::string all;
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (all.size() < count && std::chrono::steady_clock::now() < end) {
        pollfd ready{fd, POLLIN, 0};
        poll(&ready, 1, 100);
        all += read();
    }
    return all;
}

MountTest::MountTest()
    // Above INT_MAX and different in every process that runs at the same time.
    : locationId(3000000000U + static_cast<uint32_t>(getpid()))
{
    pausesTaken = &pauses;
    tarniPause = notePause;
    trayPipePath = strdup((folder.path + "/pipe").c_str());
    QNLogUseFolder(folder.path.c_str());
    testHost.reset();
    freshDevice();
}

MountTest::~MountTest()
{
    free(const_cast<char *>(trayPipePath));
    trayPipePath = "/nowhere";
    QNLogUseFolder(nullptr);
}

void MountTest::TearDown()
{
    expectLockFree();
    unmountCleanly();
    expectLockFree();
}

void MountTest::unmountCleanly()
{
    unmount();
    EXPECT_EQ(memoryWorld.open(), "");
    EXPECT_EQ(memoryWorld.violations, std::vector<std::string>());
    EXPECT_FALSE(std::filesystem::exists(privateFolder()));
}

MemoryDevice &MountTest::freshDevice()
{
    return memoryWorld.reset(locationId);
}

bool MountTest::mount()
{
    auto id = static_cast<int32_t>(locationId);
    testHost.privateData = &id;
    testHost.privateData = tarni_opers.init(nullptr);
    forgetRaised();
    forgetLog();
    return testHost.privateData != nullptr;
}

void MountTest::unmount()
{
    if (testHost.privateData != nullptr) {
        EXPECT_EQ(CheckCatalogue(), "");
    }
    tarni_opers.destroy(testHost.privateData);
    testHost.privateData = nullptr;
}

std::vector<std::string> MountTest::list(const std::string &path, int *ret)
{
    std::vector<std::string> names;
    tarni_file_info fi;
    const int result =
        tarni_opers.readdir(path.c_str(), &names, collect, 0, &fi);
    takeResult(result, path, ret);
    return names;
}

int MountTest::fill(const std::string &path)
{
    tarni_file_info fi;
    return tarni_opers.readdir(path.c_str(), nullptr, nullptr, 0, &fi);
}

struct stat MountTest::attributes(const std::string &path, int *ret)
{
    struct stat st {
    };
    const int result = tarni_opers.getattr(path.c_str(), &st);
    takeResult(result, path, ret);
    return st;
}

std::string MountTest::read(const std::string &path, tarni_file_info *fi,
                            size_t size, off_t offset, int *ret)
{
    std::string data(size, '\0');
    const int result =
        tarni_opers.read(path.c_str(), data.data(), size, offset, fi);
    takeResult(result, path, ret);
    data.resize(static_cast<size_t>(std::max(result, 0)));
    return data;
}

_KTL_OBJECT *MountTest::object(const std::string &path)
{
    const TarniLock lock;
    return FindObject(path.c_str());
}

MemoryTree &MountTest::addToDevice(const std::string &name,
                                   const std::string &bundleId)
{
    memoryWorld.devices[0].apps.push_back({name, bundleId, {}});
    MemoryTree &tree = memoryWorld.devices[0].apps.back().tree;
    tree.addFolder("/Documents");
    return tree;
}

void MountTest::addApp(const std::string &name, const std::string &bundleId,
                       const std::vector<std::string> &files)
{
    MemoryTree &tree = addToDevice(name, bundleId);
    fill("/");
    const TarniLock lock;
    const std::string path = "/Apps/" + name;
    _KTL_OBJECT *app = GetObjectWithFileName(path.c_str());
    app->mode = KTL_MODE_FOLDER;
    app->type = KTL_DEVICE_FOLDER;
    app->app_id = ReplaceString(app->app_id, bundleId.c_str());
    LinkChild(FindObject("/Apps"), app);
    for (const std::string &file : files) {
        tree.addFile("/Documents/" + file, "contents of " + file);
        _KTL_OBJECT *record =
            GetObjectWithFileName((path + "/" + file).c_str());
        record->type = KTL_DEVICE_FILE;
        record->size = 12 + file.size();
        record->app_id = ReplaceString(record->app_id, bundleId.c_str());
        LinkChild(app, record);
    }
}

void MountTest::populate()
{
    ASSERT_TRUE(mount());
    media().addFile("/general_storage/a.txt", "hello, world");
    media().addFile("/general_storage/b.txt", "old");
    media().addFile("/general_storage/dir/x", "x");
    media().addFolder("/general_storage/dir/sub");
    media().addFolder("/general_storage/empty");
    media().addFile("/general_storage/unlisted/1", "1");
    media().addFile("/general_storage/unlisted/2", "2");
    fill("/");
    fill("/Storage");
    fill("/Storage/dir");
    addApp("Notes", "com.example.notes", {"a.txt", "b.txt"});
    addApp("Other", "com.example.other", {"a.txt"});
    addMediaItem("/Media/Music/x.mp3", "/iTunes_Control/x.mp3");
    object("/Media/Music")->mode = KTL_MODE_FOLDER;
    sandbox().addFile("/Documents/dir/x", "x");
    EXPECT_EQ(mkdir("/Apps/Notes/dir"), 0);
    EXPECT_EQ(mkdir("/Apps/Notes/empty"), 0);
    fill("/Apps/Notes/dir");
    memoryWorld.forgetCalls();
}

void MountTest::expectAllShown()
{
    expectShown("/Storage", media(), "/general_storage");
    expectShown("/Apps/Notes", sandbox(), "/Documents");
}

void MountTest::stage(const std::string &path, const std::string &data)
{
    tarni_file_info fi;
    ASSERT_EQ(create(path, &fi), 0);
    ASSERT_EQ(write(path, &fi, data, 0), static_cast<int>(data.size()));
    ASSERT_EQ(release(path, &fi), 0);
    ASSERT_EQ(Value(object(path)->type), KTL_STAGED);
    memoryWorld.forgetCalls();
}

_KTL_OBJECT *MountTest::addMediaItem(const std::string &path,
                                     const std::string &devicePath)
{
    fill("/");
    fill("/Media");
    const TarniLock lock;
    _KTL_OBJECT *record = GetObjectWithFileName(path.c_str());
    record->type = KTL_DEVICE_FILE;
    record->device_path =
        ReplaceString(record->device_path, devicePath.c_str());
    LinkChild(GetParentObject(path.c_str()), record);
    return record;
}

void MountTest::forgetRaised()
{
    if (context() != nullptr) {
        const std::lock_guard<std::mutex> guard(context()->dialog.lock);
        context()->dialog.dialog_title = nullptr;
    }
}

Raised MountTest::raised()
{
    Raised result;
    {
        const std::lock_guard<std::mutex> guard(context()->dialog.lock);
        const _DIALOG_BLOCK &block = context()->dialog;
        if (block.dialog_title != nullptr) {
            EXPECT_STREQ(block.dialog_button, "Confirm");
            result = {block.dialog_title, block.dialog_message};
        }
    }
    // The thread must have taken it, or it would show it without a title.
    if (!result.title.empty()) {
        while (context()->dialog.dialog_pending != 0) {
            usleep(100);
        }
    }
    forgetRaised();
    return result;
}

void MountTest::expectError(const std::string &text)
{
    const Raised got = raised();
    EXPECT_EQ(got.title, "Quorvel Error!!");
    EXPECT_EQ(got.text, text);
}

void MountTest::expectRefusal(const std::string &text)
{
    const Raised got = raised();
    EXPECT_EQ(got.title, "Quorvel Notification");
    EXPECT_EQ(got.text, text);
}

void MountTest::expectTold(int ret, int code)
{
    const Raised got = raised();
    if (ret != -ECANCELED) {
        EXPECT_EQ(got.text, "");
        EXPECT_TRUE(ret == 0 || ret == code) << ret;
        return;
    }
    EXPECT_EQ(got.title, "Quorvel Error!!");
    const std::string number = "Error Code : " + std::to_string(code);
    // A closed pipe counts as lost where files are read.
    const bool lost = got.text.starts_with("Lost USB ");
    EXPECT_TRUE(lost ? code == -32 || code == -30 : code != -32) << got.text;
    if (lost) {
        return;
    }
    if (got.text != "Not enough space on device.") {
        EXPECT_NE(got.text.find(number), std::string::npos) << got.text;
    } else {
        EXPECT_EQ(code, LIBIUSB_ERROR_NO_SPACE);
    }
}

void MountTest::expectShown(const std::string &path, MemoryTree &tree,
                            const std::string &devicePath)
{
    std::vector<std::string> shown = list(path);
    std::vector<std::string> there = tree.addFolder(devicePath).names;
    there.insert(there.end(), {".", ".."});
    std::sort(shown.begin(), shown.end());
    std::sort(there.begin(), there.end());
    EXPECT_EQ(shown, there) << path;
}

void MountTest::expectNothingRaised()
{
    EXPECT_EQ(raised().text, "");
}

std::vector<std::string> MountTest::rawLog() const
{
    std::vector<std::string> lines;
    for (const auto &entry : std::filesystem::directory_iterator(folder.path)) {
        if (entry.path().extension() != ".log") {
            continue;
        }
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line);) {
            // "[14H05M09S][4711]text"
            const size_t pid = line.find("][");
            const size_t text = line.find(']', pid + 1);
            lines.push_back(pid == std::string::npos ? line
                                                     : line.substr(text + 1));
        }
    }
    return lines;
}

std::vector<std::string> MountTest::log() const
{
    std::vector<std::string> lines = rawLog();
    lines.erase(lines.begin(), lines.begin() + forgottenLines);
    return lines;
}

void MountTest::forgetLog()
{
    forgottenLines = static_cast<ptrdiff_t>(rawLog().size());
}

int MountTest::countLogged(const std::string &line) const
{
    const std::vector<std::string> lines = log();
    return static_cast<int>(std::count(lines.begin(), lines.end(), line));
}

void MountTest::expectLogged(const std::string &line) const
{
    EXPECT_GE(countLogged(line), 1) << line << "\nlogged:\n"
                                    << testing::PrintToString(log());
}

void MountTest::expectLockFree()
{
    const int ret = pthread_mutex_trylock(&tarni_mutex);
    EXPECT_EQ(ret, 0) << "an operation kept the lock";
    if (ret == 0) {
        pthread_mutex_unlock(&tarni_mutex);
    }
}

std::string MountTest::privateFolder() const
{
    return "/tmp/" + std::to_string(locationId);
}

void MountTest::forEachDeviceFailure(const std::vector<int> &codes,
                                     const std::function<void()> &prepare,
                                     const std::function<void(int code)> &body)
{
    for (const int code : codes) {
        bool fired = true;
        for (int n = 1; fired; ++n) {
            SCOPED_TRACE("call " + std::to_string(n) + " failing with " +
                         std::to_string(code));
            ASSERT_LT(n, 1000) << "the failure never ran out";
            freshDevice();
            testHost.reset();
            prepare();
            memoryWorld.failCall(n, code);
            body(code);
            fired = memoryWorld.fired();
            memoryWorld.heal();
            expectLockFree();
            if (context() != nullptr) {
                EXPECT_EQ(CheckCatalogue(), "");
                int ret = -1;
                list("/Storage", &ret);
                EXPECT_EQ(ret, 0);
            }
            unmountCleanly();
            if (HasFailure()) {
                return;
            }
        }
    }
}
