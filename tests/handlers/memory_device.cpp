#include "tests/handlers/memory_device.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <sstream>
#include <utility>

MemoryWorld memoryWorld;

// The handles. `alive` goes when they are closed; the storage stays.
struct libiusb_context {
    bool alive = true;
    std::vector<libiusb_device *> list; // null-terminated
};
struct libiusb_device {
    bool alive = true;
    bool opened = false;
    MemoryDevice *device = nullptr;
};
struct libiusb_afc {
    bool alive = true;
    bool house = false;
    MemoryDevice *device = nullptr;
    MemoryTree *tree = nullptr; // null: a house that stands for no app yet
    bool announced = false;     // a file was, and is not open yet
};
struct libiusb_instproxy {
    bool alive = true;
    MemoryDevice *device = nullptr;
};

namespace
{

struct OpenFile {
    libiusb_afc *afc;
    std::string path;
    int mode;
    bool behind = false;  // writes tell of their failures later
    bool closing = false; // nothing but the drain and the close may come
    int failure = 0;      // that no drain has told
};

// Everything handed out since the last reset.
struct Handles {
    std::vector<std::unique_ptr<libiusb_context>> contexts;
    std::vector<std::unique_ptr<libiusb_device>> devices;
    std::vector<std::unique_ptr<libiusb_afc>> afcs;
    std::vector<std::unique_ptr<libiusb_instproxy>> proxies;
    std::map<libiusb_file, OpenFile> files;
    libiusb_file nextFile = 1;
};

Handles handles;

template <typename T>
T *give(std::vector<std::unique_ptr<T>> &all, T **out)
{
    all.push_back(std::make_unique<T>());
    *out = all.back().get();
    return *out;
}

template <typename T>
auto countOpen(const std::vector<std::unique_ptr<T>> &all)
{
    return std::count_if(all.begin(), all.end(),
                         [](const auto &each) { return each->alive; });
}

bool takeNull(const char *name)
{
    const bool taken = memoryWorld.givesNull == name;
    if (taken) {
        memoryWorld.givesNull.clear();
    }
    return taken;
}

int violate(const std::string &what)
{
    memoryWorld.violations.push_back(what);
    return LIBIUSB_ERROR_INVALID_ARG;
}

MemoryNode *nodeOf(libiusb_afc *afc, const std::string &path)
{
    return afc->tree == nullptr ? nullptr : afc->tree->find(path);
}

void closeFilesOf(const libiusb_afc *afc)
{
    std::erase_if(handles.files,
                  [afc](const auto &file) { return file.second.afc == afc; });
}

char *copyText(const std::string &text)
{
    auto *copy = new char[text.size() + 1]();
    memcpy(copy, text.data(), text.size());
    return copy;
}

} // namespace

// Notes a call and asks the fault script about it.
int note(const char *name, const std::string &detail)
{
    MemoryWorld &world = memoryWorld;
    world.calls.push_back(detail.empty() ? name
                                         : std::string(name) + " " + detail);
    if (world.allCode != 0) {
        world.faultFired = true;
        return world.allCode;
    }
    if (world.armedCall == 0 ||
        (!world.armedName.empty() && world.armedName != name) ||
        --world.armedCall > 0) {
        return 0;
    }
    world.faultFired = true;
    world.armedCall = --world.armedTimes > 0 ? 1 : 0;
    return world.armedCode;
}

namespace
{

// The same for a call with a handle, which must be open.
template <typename T>
int enter(const char *name, const T *handle, const std::string &detail)
{
    const int code = note(name, detail);
    if (handle != nullptr && handle->alive) {
        return code;
    }
    return violate(std::string(name) + " on a handle that is not open");
}

// And for one with the path of something that must be there.
int enter(const char *name, libiusb_afc *afc, const char *path,
          MemoryNode **node)
{
    const int code = enter(name, afc, path);
    *node = code == 0 ? nodeOf(afc, path) : nullptr;
    return code == 0 && *node == nullptr ? LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND
                                         : code;
}

// The file behind a handle; null for one of another connection.
OpenFile *fileOf(const libiusb_afc *afc, libiusb_file file, const char *name)
{
    const auto found = handles.files.find(file);
    if (found == handles.files.end()) {
        violate(std::string(name) + " on a file that is not open");
        return nullptr;
    }
    return found->second.afc == afc ? &found->second : nullptr;
}

// And for a call with an open file.
int enter(const char *name, const libiusb_afc *afc, libiusb_file file,
          OpenFile **open)
{
    const int code = enter(name, afc, std::string());
    *open = fileOf(afc, file, name);
    return code == 0 && *open == nullptr ? LIBIUSB_ERROR_INVALID_ARG : code;
}

} // namespace

MemoryDevice &MemoryWorld::reset(uint32_t locationId)
{
    handles = Handles();
    *this = MemoryWorld();
    return addDevice(locationId);
}

MemoryDevice &MemoryWorld::addDevice(uint32_t locationId)
{
    MemoryDevice &device = devices.emplace_back();
    device.info.location_id = locationId;
    device.info.block_size = 4096;
    device.info.total_capacity = 68719476736;
    device.info.free_capacity = 15000000000;
    snprintf(device.info.device_name, sizeof(device.info.device_name),
             "Device %zu", devices.size());
    snprintf(device.info.ios_version, sizeof(device.info.ios_version), "17.5");
    device.media.addFolder("/general_storage");
    return device;
}

void MemoryWorld::failCall(int n, int code)
{
    failNamed("", n, code);
}

void MemoryWorld::failNamed(const std::string &name, int n, int code, int times)
{
    heal();
    faultFired = false;
    armedCall = n;
    armedTimes = times;
    armedName = name;
    armedCode = code;
}

void MemoryWorld::failAll(int code)
{
    failNamed("", 0, 0);
    allCode = code;
}

void MemoryWorld::heal()
{
    armedCall = 0;
    allCode = 0;
}

int MemoryWorld::count(const std::string &name) const
{
    return static_cast<int>(std::count_if(
        calls.begin(), calls.end(), [&name](const std::string &call) {
            return call.substr(0, call.find(' ')) == name;
        }));
}

std::string MemoryWorld::open() const
{
    std::ostringstream out;
    for (const auto &file : handles.files) {
        out << "file " << file.second.path << "; ";
    }
    const auto devicesOpen = std::count_if(
        handles.devices.begin(), handles.devices.end(),
        [](const auto &each) { return each->alive && each->opened; });
    const std::pair<const char *, ptrdiff_t> kinds[] = {
        {"device", devicesOpen},
        {"context", countOpen(handles.contexts)},
        {"connection", countOpen(handles.afcs)},
        {"installation proxy", countOpen(handles.proxies)}};
    for (const auto &[kind, count] : kinds) {
        if (count != 0) {
            out << count << " " << kind << "; ";
        }
    }
    return out.str();
}

int MemoryWorld::houses() const
{
    return static_cast<int>(std::count_if(
        handles.afcs.begin(), handles.afcs.end(),
        [](const auto &each) { return each->alive && each->house; }));
}

int MemoryWorld::announced() const
{
    return static_cast<int>(std::count_if(
        handles.afcs.begin(), handles.afcs.end(),
        [](const auto &each) { return each->alive && each->announced; }));
}

const char *libiusb_strerror(int)
{
    return "memory device";
}

int libiusb_init_ex(const char *resources, int)
{
    return note(__func__, resources);
}

int libiusb_context_init(libiusb_context **out)
{
    *out = nullptr;
    const int code = note(__func__, "");
    if (code == 0 && !takeNull(__func__)) {
        give(handles.contexts, out);
    }
    return code;
}

int libiusb_context_exit(libiusb_context *context)
{
    if (enter(__func__, context, "") != LIBIUSB_ERROR_INVALID_ARG) {
        context->alive = false;
        for (libiusb_device *device : context->list) {
            if (device != nullptr) {
                device->alive = false;
            }
        }
    }
    return 0;
}

int libiusb_device_get_list(libiusb_context *context, libiusb_device ***list)
{
    *list = nullptr;
    const int code = enter(__func__, context, "");
    if (code != 0) {
        return code;
    }
    for (libiusb_device *device : context->list) {
        if (device != nullptr) {
            device->alive = false; // belonged to the list before
        }
    }
    context->list.clear();
    for (MemoryDevice &device : memoryWorld.devices) {
        if (device.hiddenLists > 0) {
            --device.hiddenLists;
            continue;
        }
        context->list.push_back(nullptr);
        give(handles.devices, &context->list.back())->device = &device;
    }
    context->list.push_back(nullptr);
    *list = context->list.data();
    return 0;
}

int libiusb_device_get_info(libiusb_device *device, libiusb_device_info *info)
{
    *info = {};
    int code = enter(__func__, device, "");
    if (code == 0 && !device->opened) {
        code = device->device->infoResult;
    }
    if (code == 0) {
        *info = device->device->info;
    }
    return code;
}

int libiusb_device_open(libiusb_device *device, libiusb_device **out)
{
    *out = nullptr;
    int code = enter(__func__, device, "");
    if (code == 0 && !device->device->openResults.empty()) {
        code = device->device->openResults.front();
        device->device->openResults.pop_front();
    }
    if (code == 0) {
        MemoryDevice *which = device->device;
        give(handles.devices, out)->opened = true;
        (*out)->device = which;
    }
    return code;
}

int libiusb_device_close(libiusb_device *device)
{
    if (enter(__func__, device, "") != LIBIUSB_ERROR_INVALID_ARG) {
        device->alive = false;
    }
    return 0;
}

int libiusb_afc_init(libiusb_device *device, libiusb_afc **out)
{
    *out = nullptr;
    const int code = enter(__func__, device, "");
    if (code == 0 && !takeNull(__func__)) {
        give(handles.afcs, out)->device = device->device;
        (*out)->tree = &device->device->media;
    }
    return code;
}

int libiusb_afc_exit(libiusb_afc *afc)
{
    if (enter(__func__, afc, "") != LIBIUSB_ERROR_INVALID_ARG) {
        closeFilesOf(afc);
        afc->alive = false;
    }
    return 0;
}

int libiusb_afc_file_get_info(libiusb_afc *afc, const char *path,
                              libiusb_afc_file_info *info)
{
    *info = {};
    MemoryNode *node = nullptr;
    const int code = enter(__func__, afc, path, &node);
    if (code == 0) {
        *info = {node->type,
                 node->promised != 0 ? node->promised : node->data.size(),
                 node->birth, node->modify};
    }
    return code;
}

int libiusb_afc_prefetch_info(libiusb_afc *afc, const char *const *paths,
                              size_t count)
{
    memoryWorld.prefetched.insert(memoryWorld.prefetched.end(), paths,
                                  paths + count);
    return enter(__func__, afc, "");
}

int libiusb_afc_file_read_directory(libiusb_afc *afc, const char *path,
                                    char ***list, uint32_t *count)
{
    *count = 0;
    if (list != nullptr) {
        *list = nullptr;
    }
    MemoryNode *node = nullptr;
    const int code = enter(__func__, afc, path, &node);
    if (code != 0 || node->type != LIBIUSB_FILE_FOLDER) {
        return code != 0 ? code : LIBIUSB_ERROR_AFC_READ;
    }
    *count = static_cast<uint32_t>(node->names.size());
    if (list != nullptr) {
        *list = new char *[*count + 1]();
        std::transform(node->names.begin(), node->names.end(), *list, copyText);
    }
    return 0;
}

void libiusb_misc_free_strings_array(char **list)
{
    for (char **at = list; at != nullptr && *at != nullptr; ++at) {
        delete[] * at;
    }
    delete[] list;
}

int libiusb_afc_file_open(libiusb_afc *afc, const char *path, int mode,
                          libiusb_file *file)
{
    *file = 0;
    const int code = enter(__func__, afc, path + (":" + std::to_string(mode)));
    if (afc != nullptr) {
        afc->announced = false;
    }
    if (code != 0) {
        return code;
    }
    MemoryNode *node = nodeOf(afc, path);
    if (node == nullptr && mode != LIBIUSB_MODE_READ && afc->tree != nullptr) {
        node = &afc->tree->addFile(path);
    }
    if (node == nullptr) {
        return LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND;
    }
    if (node->type == LIBIUSB_FILE_FOLDER) {
        return LIBIUSB_ERROR_AFC_OBJECT_IS_DIR;
    }
    if (mode == LIBIUSB_MODE_WRITE) {
        node->data.clear();
    }
    *file = handles.nextFile++;
    handles.files[*file] = {afc, path, mode, false, false, 0};
    return 0;
}

int libiusb_afc_file_read(libiusb_afc *afc, libiusb_file file, void *buffer,
                          uint32_t length, uint64_t offset, uint32_t *count)
{
    *count = 0;
    OpenFile *open = nullptr;
    const int code = enter(__func__, afc, file, &open);
    if (code != 0) {
        return code;
    }
    const MemoryNode *node = nodeOf(afc, open->path);
    if (node == nullptr) {
        return LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND;
    }
    if (open->closing) {
        return violate("a read of a file that is closing");
    }
    if (offset < node->data.size()) {
        *count = static_cast<uint32_t>(
            node->data.copy(static_cast<char *>(buffer), length, offset));
    }
    return 0;
}

int libiusb_afc_file_write(libiusb_afc *afc, libiusb_file file,
                           const void *buffer, uint32_t length, uint64_t offset,
                           uint32_t *count)
{
    *count = 0;
    OpenFile *open = nullptr;
    const int code = enter(__func__, afc, file, &open);
    if (open == nullptr || open->mode == LIBIUSB_MODE_READ) {
        return code != 0 ? code : LIBIUSB_ERROR_INVALID_ARG;
    }
    if (open->closing) {
        return violate("a write to a file that is closing");
    }
    if (open->failure != 0) {
        return open->failure;
    }
    *count =
        code == 0 ? length : std::min(length, memoryWorld.confirmBeforeFailing);
    if (*count > 0) {
        std::string &data = nodeOf(afc, open->path)->data;
        data.resize(std::max(data.size(), offset + *count));
        data.replace(offset, *count, static_cast<const char *>(buffer), *count);
    }
    if (!open->behind) {
        return code;
    }
    *count = length;
    open->failure = code;
    return 0;
}

int libiusb_afc_file_write_behind(libiusb_afc *afc, libiusb_file file)
{
    OpenFile *open = fileOf(afc, file, __func__);
    if (open == nullptr) {
        return LIBIUSB_ERROR_INVALID_ARG;
    }
    open->behind = true;
    return 0;
}

int libiusb_afc_file_drain(libiusb_afc *afc, libiusb_file file)
{
    OpenFile *open = nullptr;
    const int code = enter(__func__, afc, file, &open);
    return open != nullptr && open->failure != 0
               ? std::exchange(open->failure, 0)
               : code;
}

void libiusb_afc_file_close_ahead(libiusb_afc *afc, libiusb_file file)
{
    OpenFile *open = fileOf(afc, file, __func__);
    if (open != nullptr) {
        open->closing = true;
    }
}

void libiusb_afc_prefetch_file(libiusb_afc *afc, const char *path)
{
    if (afc == nullptr || !afc->alive) {
        violate("libiusb_afc_prefetch_file on a handle that is not open");
        return;
    }
    afc->announced = path != nullptr;
}

int libiusb_afc_file_set_size(libiusb_afc *afc, libiusb_file file,
                              uint64_t size)
{
    OpenFile *open = nullptr;
    const int code = enter(__func__, afc, file, &open);
    if (code == 0) {
        nodeOf(afc, open->path)->data.resize(size);
    }
    return code;
}

int libiusb_afc_file_close(libiusb_afc *afc, libiusb_file file)
{
    OpenFile *open = nullptr;
    int code = enter(__func__, afc, file, &open);
    if (open != nullptr) {
        code = open->failure != 0 ? open->failure : code;
        handles.files.erase(file);
    }
    return code;
}

int libiusb_afc_file_remove(libiusb_afc *afc, const char *path)
{
    MemoryNode *node = nullptr;
    const int code = enter(__func__, afc, path, &node);
    if (code != 0 || !node->names.empty()) {
        return code != 0 ? code : LIBIUSB_ERROR_AFC_DIR_NOT_EMPTY;
    }
    afc->tree->remove(path);
    return 0;
}

int libiusb_afc_make_directory(libiusb_afc *afc, const char *path)
{
    const int code = enter(__func__, afc, path);
    if (code != 0 || afc->tree == nullptr) {
        return code != 0 ? code : LIBIUSB_ERROR_INVALID_ARG;
    }
    afc->tree->addFolder(path);
    return 0;
}

int libiusb_afc_rename(libiusb_afc *afc, const char *from, const char *to)
{
    MemoryNode *node = nullptr;
    const int code = enter(__func__, afc, from, &node);
    if (code == 0) {
        afc->tree->rename(from, to);
    }
    return code;
}

int libiusb_housearrest_init(libiusb_device *device, libiusb_afc **out)
{
    *out = nullptr;
    const int code = enter(__func__, device, "");
    if (code == 0) {
        give(handles.afcs, out)->device = device->device;
        (*out)->house = true;
    }
    return code;
}

int libiusb_housearrest_openapp(libiusb_afc *house, const char *bundle_id)
{
    const int code =
        enter(__func__, house, bundle_id == nullptr ? "(null)" : bundle_id);
    if (code != 0 || !house->house || bundle_id == nullptr) {
        return code != 0 ? code : LIBIUSB_ERROR_INVALID_ARG;
    }
    for (MemoryApp &app : house->device->apps) {
        if (app.bundleId == bundle_id) {
            house->tree = &app.tree;
            return 0;
        }
    }
    return LIBIUSB_ERROR_APP_LOOKUP_FAILED;
}

int libiusb_housearrest_exit(libiusb_afc *house)
{
    const int code = enter(__func__, house, "");
    if (code == 0) { // or it may be ended again
        closeFilesOf(house);
        house->alive = false;
    }
    return code;
}

int libiusb_instproxy_init(libiusb_device *device, libiusb_instproxy **out)
{
    *out = nullptr;
    const int code = enter(__func__, device, "");
    if (code == 0 && !takeNull(__func__)) {
        give(handles.proxies, out)->device = device->device;
    }
    return code;
}

int libiusb_instproxy_exit(libiusb_instproxy *instproxy)
{
    if (enter(__func__, instproxy, "") != LIBIUSB_ERROR_INVALID_ARG) {
        instproxy->alive = false;
    }
    return 0;
}

int libiusb_instproxy_getAppId(libiusb_instproxy *instproxy, libiusb_app **list)
{
    *list = nullptr;
    const int code = enter(__func__, instproxy, "");
    if (code != 0) {
        return code;
    }
    for (const MemoryApp &app : instproxy->device->apps) {
        *list = new libiusb_app{copyText(app.name), copyText(app.bundleId),
                                nullptr};
        list = &(*list)->next;
    }
    return 0;
}
