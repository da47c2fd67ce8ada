#include "tarnifs/mount/linux/open_files.h"

#include <unordered_map>

#include "tarnifs/catalogue/object.h"
#include "tarnifs/mount/context.h"
#include "tarnifs/mount/linux/fuse_api.h"
#include "tarnifs/mount/linux/places.h"
#include "tarnifs/mount/operations.h"

namespace
{

std::unordered_map<uint64_t, std::unique_ptr<OpenFile>> open_files;

OpenState StateOf(OpenFile *file)
{
    const TarniLock lock;
    const _KTL_OBJECT *object = FindObject(file->path.c_str());
    if (object == nullptr) {
        return {file, false, false, 0};
    }
    return {file, object->reading != 0, object->writing != 0,
            object->read_offset};
}

bool Exists(const std::string &path)
{
    const TarniLock lock;
    return FindObject(path.c_str()) != nullptr;
}

void GiveBack(const OpenState &state)
{
    const TarniLock lock;
    _KTL_OBJECT *object = FindObject(state.file->path.c_str());
    if (object != nullptr) {
        object->reading = state.reading ? 1 : 0;
        object->writing = state.writing ? 1 : 0;
        object->read_offset = state.read_offset;
    }
}

} // namespace

uint64_t AddOpenFile(std::unique_ptr<OpenFile> file)
{
    const auto number = reinterpret_cast<uint64_t>(file.get());
    open_files[number] = std::move(file);
    return number;
}

OpenFile *OpenFileOf(const fuse_file_info *fi)
{
    if (fi == nullptr) {
        return nullptr;
    }
    const auto entry = open_files.find(fi->fh);
    return entry == open_files.end() ? nullptr : entry->second.get();
}

std::unique_ptr<OpenFile> TakeOpenFile(const fuse_file_info *fi)
{
    const auto entry = open_files.find(fi->fh);
    if (entry == open_files.end()) {
        return nullptr;
    }
    std::unique_ptr<OpenFile> file = std::move(entry->second);
    open_files.erase(entry);
    return file;
}

std::vector<OpenState> BeforeRename(const std::string &path)
{
    std::vector<OpenState> states;
    for (const auto &entry : open_files) {
        if (IsWithin(entry.second->path, path)) {
            states.push_back(StateOf(entry.second.get()));
        }
    }
    return states;
}

void AfterRename(const std::vector<OpenState> &states, const std::string &from,
                 const std::string &to)
{
    if (Exists(from)) {
        return;
    }
    for (const OpenState &state : states) {
        OpenFile *file = state.file;
        file->path = Moved(file->path, from, to);
        file->info.fh = 0;
        // A failure leaves fh at 0: reads and writes then say so.
        if (tarni_opers.open(file->path.c_str(), &file->info) == 0) {
            GiveBack(state);
        }
    }
}
