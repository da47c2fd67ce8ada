#include <algorithm>

#include "tests/handlers/memory_device.h"

namespace
{

std::string folderOf(const std::string &path)
{
    const size_t slash = path.rfind('/');
    return slash == 0 || slash == std::string::npos ? "/"
                                                    : path.substr(0, slash);
}

std::string nameOf(const std::string &path)
{
    return path.substr(path.rfind('/') + 1);
}

} // namespace

MemoryTree::MemoryTree()
{
    nodes["/"].type = LIBIUSB_FILE_FOLDER;
}

MemoryNode &MemoryTree::add(const std::string &path, int32_t type)
{
    const auto known = nodes.find(path);
    if (known != nodes.end()) {
        return known->second;
    }
    addFolder(folderOf(path)).names.push_back(nameOf(path));
    MemoryNode &node = nodes[path];
    node.type = type;
    return node;
}

MemoryNode &MemoryTree::addFolder(const std::string &path)
{
    return add(path, LIBIUSB_FILE_FOLDER);
}

MemoryNode &MemoryTree::addFile(const std::string &path,
                                const std::string &data)
{
    MemoryNode &node = add(path, LIBIUSB_FILE_REGULAR);
    node.data = data;
    return node;
}

MemoryNode *MemoryTree::find(const std::string &path)
{
    const auto known = nodes.find(path);
    return known == nodes.end() ? nullptr : &known->second;
}

void MemoryTree::remove(const std::string &path)
{
    std::vector<std::string> &names = nodes[folderOf(path)].names;
    names.erase(std::remove(names.begin(), names.end(), nameOf(path)),
                names.end());
    const std::string below = path + "/";
    for (auto at = nodes.lower_bound(path); at != nodes.end();) {
        const bool gone =
            at->first == path || at->first.compare(0, below.size(), below) == 0;
        at = gone ? nodes.erase(at) : std::next(at);
    }
}

void MemoryTree::rename(const std::string &from, const std::string &to)
{
    std::map<std::string, MemoryNode> moved;
    const std::string below = from + "/";
    for (const auto &entry : nodes) {
        if (entry.first == from ||
            entry.first.compare(0, below.size(), below) == 0) {
            moved[to + entry.first.substr(from.size())] = entry.second;
        }
    }
    remove(from);
    remove(to);
    addFolder(folderOf(to)).names.push_back(nameOf(to));
    for (auto &entry : moved) {
        nodes[entry.first] = entry.second;
    }
}
