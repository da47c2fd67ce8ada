#include "tarnifs/mount/linux/open_files.h"

#include <unordered_map>

#include "tarnifs/catalogue/object.h"
#include "tarnifs/mount/common/places.h"
#include "tarnifs/mount/context.h"
#include "tarnifs/mount/linux/fuse_api.h"
#include "tarnifs/mount/linux/lookup.h"
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

void SetMarks(const std::string &path, bool reading, bool writing,
              uint64_t read_offset)
{
    const TarniLock lock;
    _KTL_OBJECT *object = FindObject(path.c_str());
    if (object != nullptr) {
        object->reading = reading ? 1 : 0;
        object->writing = writing ? 1 : 0;
        object->read_offset = read_offset;
    }
}

// Ends what a rename has left of the open under the old name: nothing where the
// catalogue deleted the record, a record of its own for a name that is in no
// list. No transfer is over yet.
void LetGoOne(const OpenState &state)
{
    OpenFile *file = state.file;
    if (Exists(file->path)) {
        SetMarks(file->path, false, false, 0);
        tarni_opers.release(file->path.c_str(), &file->info);
    }
    file->info.fh = 0;
}

// A failure leaves fh at 0: reads and writes then say so.
void OpenOne(const OpenState &state)
{
    OpenFile *file = state.file;
    std::string spelled;
    if (ResolvePath(file->path.c_str(), &spelled) != 0) {
        return;
    }
    file->path = spelled;
    if (tarni_opers.open(spelled.c_str(), &file->info) == 0) {
        SetMarks(spelled, state.reading, state.writing, state.read_offset);
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

std::vector<OpenState> OpensBelow(const std::string &path)
{
    std::vector<OpenState> states;
    for (const auto &entry : open_files) {
        if (IsWithin(entry.second->path, path)) {
            states.push_back(StateOf(entry.second.get()));
        }
    }
    return states;
}

std::vector<OpenState> LetGo(const std::vector<OpenState> &states,
                             const std::string &from)
{
    const bool stays = Exists(from);
    std::vector<OpenState> moved;
    for (const OpenState &state : states) {
        if (!stays || !Exists(state.file->path)) {
            LetGoOne(state);
            moved.push_back(state);
        }
    }
    return moved;
}

void OpenAnew(const std::vector<OpenState> &states, const std::string &from,
              const std::string &to)
{
    for (const OpenState &state : states) {
        state.file->path = Moved(state.file->path, from, to);
        OpenOne(state);
    }
}
