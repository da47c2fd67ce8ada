// The device's databases: whatever bytes they hold, the media views list what
// they can, and every entry is one that a host can show.
//
// Input: one byte that chooses which database the bytes are and which version
// the device has, then the file.
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/target.h"
#include "tarnifs/catalogue/object.h"
#include "tarnifs/media/databases.h"
#include "tarnifs/media/statement.h"
#include "tarnifs/mount/context.h"
#include "tarnifs/mount/operations.h"
#include "tarnifs/mount/startup.h"
#include "tarnifs/names/composition.h"
#include "tests/handlers/media_samples.h"
#include "tests/handlers/memory_device.h"
#include "tests/handlers/test_host.h"

namespace
{

constexpr const char *VERSIONS[] = {"9.2", "9.3.5", "17.6.1"};
constexpr const char *FILES[] = {
    "/iTunes_Control/iTunes/MediaLibrary.sqlitedb", "/PhotoData/Photos.sqlite",
    "/PhotoData/Photos.sqlite-wal", "/Recordings/Recordings.db",
    "/Recordings/CloudRecordings.db"};

void Pause(unsigned) {}

// A mount for all inputs: what they change is put back after each.
_CONTEXT *Mount()
{
    setenv("QUORVEL_LOGLEVEL", "-1", 1);
    tarniPause = Pause;
    longestQuery = std::chrono::milliseconds(300);
    const auto id = static_cast<uint32_t>(getpid());
    MemoryDevice &device = memoryWorld.reset(id);
    for (const SampleAsset &asset : SampleAssets()) {
        device.media.addFile("/DCIM/" + asset.file, std::string(100, 'x'));
        device.media.addFile("/DCIM/" + asset.film + ".MOV", "film");
    }
    device.media.addFile("/iTunes_Control/Music/F00/a.mp3", "music");
    device.media.addFile("/Recordings/a.m4a", "sound");
    testHost.reset();
    testHost.holdDialogs(); // the first stays on the screen
    auto given = static_cast<int32_t>(id);
    testHost.privateData = &given;
    testHost.privateData = tarni_opers.init(nullptr);
    Require(testHost.privateData != nullptr);
    atexit([] { tarni_opers.destroy(testHost.privateData); });
    return static_cast<_CONTEXT *>(testHost.privateData);
}

int Collect(void *names, const char *name, const struct stat *, off_t)
{
    static_cast<std::vector<std::string> *>(names)->emplace_back(name);
    return 0;
}

// Lists a folder and all below it.
void ListAll(const std::string &path)
{
    std::vector<std::string> names;
    tarni_file_info fi;
    tarni_opers.readdir(path.c_str(), &names, Collect, 0, &fi);
    Require(names.size() >= 2); // "." and ".."
    for (size_t i = 2; i < names.size(); ++i) {
        const std::string &name = names[i];
        std::string parts;
        Require(!name.empty() && name != "." && name != ".." &&
                name.find('/') == std::string::npos);
        Require(decomposeUtf8(name, parts) && parts.size() <= 255);
        const std::string child = path == "/" ? "/" + name : path + "/" + name;
        const _KTL_OBJECT *record = FindObject(child.c_str());
        Require(record != nullptr && IsLinked(record));
        if (record->mode == KTL_MODE_FOLDER) {
            ListAll(child);
        } else {
            const char *device = record->device_path;
            Require(std::string_view(device).find("/../") ==
                    std::string_view::npos);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static _CONTEXT *const context = Mount();
    if (size == 0) {
        return 0;
    }
    MemoryTree &media = memoryWorld.devices[0].media;
    for (const char *file : FILES) {
        media.remove(file);
    }
    // Beside a log there is the database it may belong to.
    static const std::string photos = PhotoDatabase(IOS_17);
    const char *chosen = FILES[data[0] % 5];
    if (chosen == FILES[2]) {
        media.addFile(FILES[1], photos);
    }
    media.addFile(chosen).data.assign(reinterpret_cast<const char *>(data) + 1,
                                      size - 1);
    snprintf(context->device_info.ios_version,
             sizeof(context->device_info.ios_version), "%s",
             VERSIONS[data[0] / 5 % 3]);
    ListAll("/Media");
    Require(CheckCatalogue().empty());
    CloseDatabases(context);
    ClearCatalogue(context->afc_handle);
    memoryWorld.calls.clear();
    memoryWorld.prefetched.clear();
    Require(memoryWorld.violations.empty());
    return 0;
}
