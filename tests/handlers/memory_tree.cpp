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

bool isIn(const std::string &path, const std::string &tree)
{
    return path == tree || path.starts_with(tree + "/");
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
    std::erase(nodes[folderOf(path)].names, nameOf(path));
    std::erase_if(nodes,
                  [&](const auto &node) { return isIn(node.first, path); });
}

void MemoryTree::rename(const std::string &from, const std::string &to)
{
    std::map<std::string, MemoryNode> moved;
    for (const auto &entry : nodes) {
        if (isIn(entry.first, from)) {
            moved[to + entry.first.substr(from.size())] = entry.second;
        }
    }
    remove(from);
    remove(to);
    addFolder(folderOf(to)).names.push_back(nameOf(to));
    nodes.merge(moved);
}
