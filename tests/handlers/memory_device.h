// An in-memory implementation of the whole device layer, for driving the
// handlers without wire or process: devices with folders, files, apps and trust
// states, a fault script, and a memory of everything that was opened, closed
// and asked for. Handles that were closed stay recognisable until the next
// reset, so that their use is noticed instead of crashing elsewhere.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "device/libiusb.h"

struct MemoryNode {
    int32_t type = LIBIUSB_FILE_REGULAR;
    std::string data;
    int64_t birth = 0;              // nanoseconds
    int64_t modify = 0;             // nanoseconds
    std::vector<std::string> names; // of a folder, in the device's order
    uint64_t promised = 0; // the size that information gives; 0: the real one
};

// One file tree; paths as the device layer takes them.
class MemoryTree
{
  public:
    MemoryTree();
    // Both make missing parents. Names need not be valid anything.
    MemoryNode &addFolder(const std::string &path);
    MemoryNode &addFile(const std::string &path, const std::string &data = {});
    MemoryNode *find(const std::string &path);
    void remove(const std::string &path);
    void rename(const std::string &from, const std::string &to);

  private:
    MemoryNode &add(const std::string &path, int32_t type);
    std::map<std::string, MemoryNode> nodes;
};

struct MemoryApp {
    std::string name;
    std::string bundleId;
    MemoryTree tree;
};

struct MemoryDevice {
    libiusb_device_info info{};
    std::deque<int> openResults; // of the next opens; then 0
    int hiddenLists = 0;         // not in that many lists to come
    int infoResult = 0;          // of get_info on the listed device
    MemoryTree media;
    std::vector<MemoryApp> apps;
};

class MemoryWorld
{
  public:
    // Forgets everything; one device, at `locationId`, with an empty
    // "/general_storage".
    MemoryDevice &reset(uint32_t locationId);
    MemoryDevice &addDevice(uint32_t locationId);

    // Fault script, counted from here: the n-th call (1 is the next), whatever
    // it is, or the n-th of one function, fails with `code` without being
    // carried out. A failed close of a file still ends its handle; a failed end
    // of house arrest does not.
    void failCall(int n, int code);
    void failNamed(const std::string &name, int n, int code, int times = 1);
    // Every call from now on fails.
    void failAll(int code);
    void heal();
    // Whether what was armed last has happened.
    bool fired() const { return faultFired; }

    // The next failing write confirms that many bytes first.
    uint32_t confirmBeforeFailing = 0;
    // The next call of that name succeeds without giving a handle.
    std::string givesNull;

    // Calls since the last forgetCalls, "name" or "name path".
    std::vector<std::string> calls;
    int count(const std::string &name) const;
    void forgetCalls() { calls.clear(); }
    // Paths that libiusb_afc_prefetch_info was told of.
    std::vector<std::string> prefetched;

    // What is still open, as text; empty when everything was closed.
    std::string open() const;
    // House-arrest handles that are open.
    int houses() const;
    // Handles on which a file was announced that was not opened then.
    int announced() const;
    // Calls that a caller must never make: a closed, stale or foreign handle,
    // something closed twice.
    std::vector<std::string> violations;

    std::deque<MemoryDevice> devices;

  private:
    friend int note(const char *name, const std::string &detail);
    int armedCall = 0;
    int armedTimes = 1;
    std::string armedName;
    int armedCode = 0;
    int allCode = 0;
    bool faultFired = false;
};

extern MemoryWorld memoryWorld;
