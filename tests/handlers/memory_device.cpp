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

int violate(const std::string &what)
{
    memoryWorld.violations.push_back(what);
    return LIBIUSB_ERROR_INVALID_ARG;
}

template <typename T>
bool isAlive(const T *handle, const char *name)
{
    if (handle != nullptr && handle->alive) {
        return true;
    }
    violate(std::string(name) + " on a handle that is not open");
    return false;
}

bool takeNull(const char *name)
{
    if (memoryWorld.givesNull != name) {
        return false;
    }
    memoryWorld.givesNull.clear();
    return true;
}

// The file behind a handle; null with *code set. A handle is good on its own
// connection only.
OpenFile *fileOf(libiusb_afc *afc, libiusb_file file, const char *name,
                 int *code)
{
    *code = LIBIUSB_ERROR_INVALID_ARG;
    if (!isAlive(afc, name)) {
        return nullptr;
    }
    const auto found = handles.files.find(file);
    if (found == handles.files.end()) {
        violate(std::string(name) + " on a file that is not open");
        return nullptr;
    }
    return found->second.afc == afc ? &found->second : nullptr;
}

MemoryNode *nodeOf(libiusb_afc *afc, const std::string &path)
{
    return afc->tree == nullptr ? nullptr : afc->tree->find(path);
}

void closeFilesOf(const libiusb_afc *afc)
{
    for (auto at = handles.files.begin(); at != handles.files.end();) {
        at = at->second.afc == afc ? handles.files.erase(at) : std::next(at);
    }
}

char **copyNames(const std::vector<std::string> &names)
{
    auto **list = new char *[names.size() + 1]();
    for (size_t i = 0; i < names.size(); ++i) {
        list[i] = new char[names[i].size() + 1]();
        memcpy(list[i], names[i].data(), names[i].size());
    }
    return list;
}

char *copyText(const std::string &text)
{
    auto *copy = new char[text.size() + 1]();
    memcpy(copy, text.data(), text.size());
    return copy;
}

template <typename T>
void tellOpen(std::ostringstream &out, const char *what,
              const std::vector<std::unique_ptr<T>> &all)
{
    const auto alive = std::count_if(
        all.begin(), all.end(), [](const auto &each) { return each->alive; });
    if (alive != 0) {
        out << alive << " " << what << "; ";
    }
}

} // namespace

// Notes a call and asks the fault script about it.
int enter(const char *name, const std::string &detail)
{
    MemoryWorld &world = memoryWorld;
    world.calls.push_back(detail.empty() ? name
                                         : std::string(name) + " " + detail);
    if (world.allCode != 0) {
        world.faultFired = true;
        return world.allCode;
    }
    if (world.armedCall == 0 ||
        (!world.armedName.empty() && world.armedName != name)) {
        return 0;
    }
    if (--world.armedCall > 0) {
        return 0;
    }
    world.faultFired = true;
    return world.armedCode;
}

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

void MemoryWorld::failNamed(const std::string &name, int n, int code)
{
    heal();
    faultFired = false;
    armedCall = n;
    armedName = name;
    armedCode = code;
}

void MemoryWorld::failAll(int code)
{
    heal();
    faultFired = false;
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
            return call == name ||
                   call.compare(0, name.size() + 1, name + " ") == 0;
        }));
}

std::string MemoryWorld::open() const
{
    std::ostringstream out;
    std::vector<std::string> files;
    for (const auto &file : handles.files) {
        out << "file " << file.second.path << "; ";
    }
    const auto devicesOpen = std::count_if(
        handles.devices.begin(), handles.devices.end(),
        [](const auto &each) { return each->alive && each->opened; });
    if (devicesOpen != 0) {
        out << devicesOpen << " device; ";
    }
    tellOpen(out, "context", handles.contexts);
    tellOpen(out, "connection", handles.afcs);
    tellOpen(out, "installation proxy", handles.proxies);
    return out.str();
}

int MemoryWorld::houses() const
{
    return static_cast<int>(std::count_if(
        handles.afcs.begin(), handles.afcs.end(),
        [](const auto &each) { return each->alive && each->house; }));
}

const char *libiusb_strerror(int)
{
    return "memory device";
}

int libiusb_init_ex(const char *resources, int)
{
    return enter("libiusb_init_ex", resources);
}

int libiusb_context_init(libiusb_context **out)
{
    *out = nullptr;
    const int code = enter("libiusb_context_init", "");
    if (code == 0 && !takeNull("libiusb_context_init")) {
        give(handles.contexts, out);
    }
    return code;
}

int libiusb_context_exit(libiusb_context *context)
{
    enter("libiusb_context_exit", "");
    if (!isAlive(context, "libiusb_context_exit")) {
        return 0;
    }
    context->alive = false;
    for (libiusb_device *device : context->list) {
        if (device != nullptr) {
            device->alive = false;
        }
    }
    return 0;
}

int libiusb_device_get_list(libiusb_context *context, libiusb_device ***list)
{
    *list = nullptr;
    const int code = enter("libiusb_device_get_list", "");
    if (code != 0 || !isAlive(context, "libiusb_device_get_list")) {
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
        libiusb_device *listed = nullptr;
        give(handles.devices, &listed)->device = &device;
        context->list.push_back(listed);
    }
    context->list.push_back(nullptr);
    *list = context->list.data();
    return 0;
}

int libiusb_device_get_info(libiusb_device *device, libiusb_device_info *info)
{
    *info = {};
    const int code = enter("libiusb_device_get_info", "");
    if (code != 0) {
        return code;
    }
    if (!isAlive(device, "libiusb_device_get_info")) {
        return LIBIUSB_ERROR_INVALID_ARG;
    }
    if (!device->opened && device->device->infoResult != 0) {
        return device->device->infoResult;
    }
    *info = device->device->info;
    return 0;
}

int libiusb_device_open(libiusb_device *device, libiusb_device **out)
{
    *out = nullptr;
    const int code = enter("libiusb_device_open", "");
    if (code != 0) {
        return code;
    }
    if (!isAlive(device, "libiusb_device_open")) {
        return LIBIUSB_ERROR_INVALID_ARG;
    }
    std::deque<int> &results = device->device->openResults;
    if (!results.empty()) {
        const int result = results.front();
        results.pop_front();
        if (result != 0) {
            return result;
        }
    }
    MemoryDevice *which = device->device;
    give(handles.devices, out);
    (*out)->opened = true;
    (*out)->device = which;
    return 0;
}

int libiusb_device_close(libiusb_device *device)
{
    enter("libiusb_device_close", "");
    if (isAlive(device, "libiusb_device_close")) {
        device->alive = false;
    }
    return 0;
}

int libiusb_afc_init(libiusb_device *device, libiusb_afc **out)
{
    *out = nullptr;
    const int code = enter("libiusb_afc_init", "");
    if (code != 0 || takeNull("libiusb_afc_init")) {
        return code;
    }
    if (!isAlive(device, "libiusb_afc_init")) {
        return LIBIUSB_ERROR_INVALID_ARG;
    }
    give(handles.afcs, out);
    (*out)->device = device->device;
    (*out)->tree = &device->device->media;
    return 0;
}

int libiusb_afc_exit(libiusb_afc *afc)
{
    enter("libiusb_afc_exit", "");
    if (isAlive(afc, "libiusb_afc_exit")) {
        closeFilesOf(afc);
        afc->alive = false;
    }
    return 0;
}

int libiusb_afc_file_get_info(libiusb_afc *afc, const char *path,
                              libiusb_afc_file_info *info)
{
    *info = {};
    const int code = enter("libiusb_afc_file_get_info", path);
    if (code != 0) {
        return code;
    }
    if (!isAlive(afc, "libiusb_afc_file_get_info")) {
        return LIBIUSB_ERROR_INVALID_ARG;
    }
    const MemoryNode *node = nodeOf(afc, path);
    if (node == nullptr) {
        return LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND;
    }
    *info = {node->type, node->data.size(), node->birth, node->modify};
    return 0;
}

int libiusb_afc_prefetch_info(libiusb_afc *afc, const char *const *, size_t)
{
    const int code = enter("libiusb_afc_prefetch_info", "");
    isAlive(afc, "libiusb_afc_prefetch_info");
    return code;
}

int libiusb_afc_file_read_directory(libiusb_afc *afc, const char *path,
                                    char ***list, uint32_t *count)
{
    *count = 0;
    if (list != nullptr) {
        *list = nullptr;
    }
    const int code = enter("libiusb_afc_file_read_directory", path);
    if (code != 0) {
        return code;
    }
    if (!isAlive(afc, "libiusb_afc_file_read_directory")) {
        return LIBIUSB_ERROR_INVALID_ARG;
    }
    const MemoryNode *node = nodeOf(afc, path);
    if (node == nullptr) {
        return LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND;
    }
    if (node->type != LIBIUSB_FILE_FOLDER) {
        return LIBIUSB_ERROR_AFC_READ;
    }
    *count = static_cast<uint32_t>(node->names.size());
    if (list != nullptr) {
        *list = copyNames(node->names);
    }
    return 0;
}

void libiusb_misc_free_strings_array(char **list)
{
    if (list == nullptr) {
        return;
    }
    for (char **at = list; *at != nullptr; ++at) {
        delete[] * at;
    }
    delete[] list;
}

int libiusb_afc_file_open(libiusb_afc *afc, const char *path, int mode,
                          libiusb_file *file)
{
    *file = 0;
    const int code =
        enter("libiusb_afc_file_open", path + (":" + std::to_string(mode)));
    if (code != 0) {
        return code;
    }
    if (!isAlive(afc, "libiusb_afc_file_open")) {
        return LIBIUSB_ERROR_INVALID_ARG;
    }
    MemoryNode *node = nodeOf(afc, path);
    if (node == nullptr &&
        (mode == LIBIUSB_MODE_READ || afc->tree == nullptr)) {
        return LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND;
    }
    if (node == nullptr) {
        node = &afc->tree->addFile(path);
    }
    if (node->type == LIBIUSB_FILE_FOLDER) {
        return LIBIUSB_ERROR_AFC_OBJECT_IS_DIR;
    }
    if (mode == LIBIUSB_MODE_WRITE) {
        node->data.clear();
    }
    *file = handles.nextFile++;
    handles.files[*file] = {afc, path, mode};
    return 0;
}

int libiusb_afc_file_read(libiusb_afc *afc, libiusb_file file, void *buffer,
                          uint32_t length, uint64_t offset, uint32_t *count)
{
    *count = 0;
    int code = enter("libiusb_afc_file_read", "");
    if (code != 0) {
        return code;
    }
    const OpenFile *open = fileOf(afc, file, "libiusb_afc_file_read", &code);
    if (open == nullptr) {
        return code;
    }
    const MemoryNode *node = nodeOf(afc, open->path);
    if (node == nullptr) {
        return LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND;
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
    const int fault = enter("libiusb_afc_file_write", "");
    int code = 0;
    const OpenFile *open = fileOf(afc, file, "libiusb_afc_file_write", &code);
    if (open == nullptr || open->mode == LIBIUSB_MODE_READ) {
        return fault != 0 ? fault : LIBIUSB_ERROR_INVALID_ARG;
    }
    const uint32_t confirmed =
        fault == 0 ? length
                   : std::min(length, memoryWorld.confirmBeforeFailing);
    if (confirmed > 0) {
        std::string &data = nodeOf(afc, open->path)->data;
        data.resize(std::max(data.size(), offset + confirmed));
        data.replace(offset, confirmed, static_cast<const char *>(buffer),
                     confirmed);
    }
    *count = confirmed;
    return fault;
}

int libiusb_afc_file_set_size(libiusb_afc *afc, libiusb_file file,
                              uint64_t size)
{
    int code = enter("libiusb_afc_file_set_size", "");
    if (code != 0) {
        return code;
    }
    const OpenFile *open =
        fileOf(afc, file, "libiusb_afc_file_set_size", &code);
    if (open == nullptr) {
        return code;
    }
    nodeOf(afc, open->path)->data.resize(size);
    return 0;
}

int libiusb_afc_file_close(libiusb_afc *afc, libiusb_file file)
{
    const int fault = enter("libiusb_afc_file_close", "");
    int code = 0;
    if (fileOf(afc, file, "libiusb_afc_file_close", &code) == nullptr) {
        return code;
    }
    handles.files.erase(file);
    return fault;
}

int libiusb_afc_file_remove(libiusb_afc *afc, const char *path)
{
    const int code = enter("libiusb_afc_file_remove", path);
    if (code != 0) {
        return code;
    }
    if (!isAlive(afc, "libiusb_afc_file_remove")) {
        return LIBIUSB_ERROR_INVALID_ARG;
    }
    const MemoryNode *node = nodeOf(afc, path);
    if (node == nullptr) {
        return LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND;
    }
    if (!node->names.empty()) {
        return LIBIUSB_ERROR_AFC_DIR_NOT_EMPTY;
    }
    afc->tree->remove(path);
    return 0;
}

int libiusb_afc_make_directory(libiusb_afc *afc, const char *path)
{
    const int code = enter("libiusb_afc_make_directory", path);
    if (code != 0) {
        return code;
    }
    if (!isAlive(afc, "libiusb_afc_make_directory") || afc->tree == nullptr) {
        return LIBIUSB_ERROR_INVALID_ARG;
    }
    afc->tree->addFolder(path);
    return 0;
}

int libiusb_afc_rename(libiusb_afc *afc, const char *from, const char *to)
{
    const int code = enter("libiusb_afc_rename", from);
    if (code != 0) {
        return code;
    }
    if (!isAlive(afc, "libiusb_afc_rename")) {
        return LIBIUSB_ERROR_INVALID_ARG;
    }
    if (nodeOf(afc, from) == nullptr) {
        return LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND;
    }
    afc->tree->rename(from, to);
    return 0;
}

int libiusb_housearrest_init(libiusb_device *device, libiusb_afc **out)
{
    *out = nullptr;
    const int code = enter("libiusb_housearrest_init", "");
    if (code != 0) {
        return code;
    }
    if (!isAlive(device, "libiusb_housearrest_init")) {
        return LIBIUSB_ERROR_INVALID_ARG;
    }
    give(handles.afcs, out);
    (*out)->house = true;
    (*out)->device = device->device;
    return 0;
}

int libiusb_housearrest_openapp(libiusb_afc *house, const char *bundle_id)
{
    const int code = enter("libiusb_housearrest_openapp",
                           bundle_id == nullptr ? "(null)" : bundle_id);
    if (code != 0) {
        return code;
    }
    if (!isAlive(house, "libiusb_housearrest_openapp") || !house->house ||
        bundle_id == nullptr) {
        return LIBIUSB_ERROR_INVALID_ARG;
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
    const int code = enter("libiusb_housearrest_exit", "");
    if (!isAlive(house, "libiusb_housearrest_exit")) {
        return LIBIUSB_ERROR_INVALID_ARG;
    }
    if (code != 0) {
        return code; // and may be ended again
    }
    closeFilesOf(house);
    house->alive = false;
    return 0;
}

int libiusb_instproxy_init(libiusb_device *device, libiusb_instproxy **out)
{
    *out = nullptr;
    const int code = enter("libiusb_instproxy_init", "");
    if (code != 0 || takeNull("libiusb_instproxy_init")) {
        return code;
    }
    if (!isAlive(device, "libiusb_instproxy_init")) {
        return LIBIUSB_ERROR_INVALID_ARG;
    }
    give(handles.proxies, out)->device = device->device;
    return 0;
}

int libiusb_instproxy_exit(libiusb_instproxy *instproxy)
{
    enter("libiusb_instproxy_exit", "");
    if (isAlive(instproxy, "libiusb_instproxy_exit")) {
        instproxy->alive = false;
    }
    return 0;
}

int libiusb_instproxy_getAppId(libiusb_instproxy *instproxy, libiusb_app **list)
{
    *list = nullptr;
    const int code = enter("libiusb_instproxy_getAppId", "");
    if (code != 0) {
        return code;
    }
    if (!isAlive(instproxy, "libiusb_instproxy_getAppId")) {
        return LIBIUSB_ERROR_INVALID_ARG;
    }
    libiusb_app **end = list;
    for (const MemoryApp &app : instproxy->device->apps) {
        *end = new libiusb_app{copyText(app.name), copyText(app.bundleId),
                               nullptr};
        end = &(*end)->next;
    }
    return 0;
}
