#include "device/plist_tools.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace iusb
{

// ---------------------------------------------------------------------------
// Nesting of an XML list. Only text that can be read in one way alone is let
// through: what a comment, a quoted "<" or a stray closing tag hides from this
// count would still be nested for libplist.

static bool endsTagName(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '/';
}

// The name of a container tag without "/" and attributes; empty for others.
static std::string_view containerName(std::string_view tag)
{
    if (tag.substr(0, 1) == "/")
        tag.remove_prefix(1);
    for (std::string_view name : {"dict", "array", "plist"}) {
        bool same = tag.substr(0, name.size()) == name;
        if (same &&
            (tag.size() == name.size() || endsTagName(tag[name.size()])))
            return name;
    }
    return {};
}

// A tag, without its brackets, that every reader ends at the same place.
static bool isPlainTag(std::string_view tag, size_t at)
{
    auto quotes = std::count(tag.begin(), tag.end(), '"');
    if (tag.find_first_of("<'[") != tag.npos || quotes % 2 != 0)
        return false;
    if (tag.substr(0, 1) == "?")
        return at == 0;
    return tag.substr(0, 1) != "!" || tag.substr(0, 9) == "!DOCTYPE ";
}

static bool xmlIsShallow(std::string_view text)
{
    std::vector<std::string_view> open;
    size_t end = 0;
    for (size_t at = text.find('<'); at != text.npos;
         at = text.find('<', end)) {
        end = text.find('>', at);
        if (end == text.npos)
            return false;
        std::string_view tag = text.substr(at + 1, end - at - 1);
        std::string_view name = containerName(tag);
        if (!isPlainTag(tag, at))
            return false;
        if (name.empty() || tag.back() == '/')
            continue;
        if (tag[0] != '/') {
            open.push_back(name);
        } else if (open.empty() || open.back() != name) {
            return false;
        } else {
            open.pop_back();
        }
        if (open.size() > static_cast<size_t>(kPlistMaxDepth))
            return false;
    }
    return true;
}

// ---------------------------------------------------------------------------
// Nesting of a binary list: a walk over the object table with a depth limit.

struct BinaryList {
    std::string_view bytes;
    uint64_t objects = 0;
    uint64_t table = 0; // where the offset table begins; objects end there
    unsigned offset_size = 0;
    unsigned ref_size = 0;
};

static uint64_t bigEndian(std::string_view bytes, uint64_t at, unsigned size)
{
    uint64_t value = 0;
    for (unsigned i = 0; i < size; i++)
        value = value << 8 | static_cast<uint8_t>(bytes[at + i]);
    return value;
}

static bool readTrailer(std::string_view bytes, BinaryList &list,
                        uint64_t &root)
{
    constexpr size_t header = 8, trailer = 32;
    if (bytes.size() < header + trailer)
        return false;
    uint64_t at = bytes.size() - trailer;
    list.bytes = bytes;
    list.offset_size = static_cast<uint8_t>(bytes[at + 6]);
    list.ref_size = static_cast<uint8_t>(bytes[at + 7]);
    list.objects = bigEndian(bytes, at + 8, 8);
    root = bigEndian(bytes, at + 16, 8);
    list.table = bigEndian(bytes, at + 24, 8);
    return list.offset_size >= 1 && list.offset_size <= 8 &&
           list.ref_size >= 1 && list.ref_size <= 8 && list.table >= header &&
           list.table <= at && root < list.objects &&
           list.objects <= (at - list.table) / list.offset_size;
}

// Members of the container at `at`: how many references follow, and where.
static bool containerSpan(const BinaryList &list, uint64_t at, uint64_t &first,
                          uint64_t &count)
{
    uint8_t marker = static_cast<uint8_t>(list.bytes[at]);
    unsigned kind = marker >> 4;
    first = at + 1;
    count = 0;
    if (kind != 0xA && kind != 0xC && kind != 0xD)
        return true;
    count = marker & 0xF;
    if (count == 0xF) {
        if (first >= list.table)
            return false;
        unsigned size = 1U << (static_cast<uint8_t>(list.bytes[first]) & 0x3);
        if (first + 1 + size > list.table)
            return false;
        count = bigEndian(list.bytes, first + 1, size);
        first += 1 + size;
    }
    if (count > list.objects)
        return false;
    if (kind == 0xD)
        count *= 2;
    return count <= (list.table - first) / list.ref_size;
}

static bool binaryIsShallow(std::string_view bytes)
{
    struct Visit {
        uint64_t object;
        int depth;
    };
    BinaryList list;
    uint64_t root = 0;
    if (!readTrailer(bytes, list, root))
        return false;
    // References may be shared, so that a small list stands for a huge tree.
    uint64_t budget = 4 * list.objects + 1024;
    std::vector<Visit> open{{root, 1}};
    while (!open.empty()) {
        Visit visit = open.back();
        open.pop_back();
        if (visit.depth > kPlistMaxDepth || budget-- == 0)
            return false;
        uint64_t at =
            bigEndian(bytes, list.table + visit.object * list.offset_size,
                      list.offset_size);
        uint64_t first = 0, count = 0;
        if (at < 8 || at >= list.table ||
            !containerSpan(list, at, first, count))
            return false;
        if (count > budget)
            return false;
        for (uint64_t i = 0; i < count; i++) {
            uint64_t ref =
                bigEndian(bytes, first + i * list.ref_size, list.ref_size);
            if (ref >= list.objects)
                return false;
            open.push_back({ref, visit.depth + 1});
        }
    }
    return true;
}

Plist parsePlist(std::string_view bytes)
{
    plist_t node = nullptr;
    if (bytes.size() > UINT32_MAX)
        return nullptr;
    auto size = static_cast<uint32_t>(bytes.size());
    if (bytes.substr(0, 8) == "bplist00") {
        if (binaryIsShallow(bytes))
            plist_from_bin(bytes.data(), size, &node);
    } else if (bytes.substr(0, 1) == "<" && xmlIsShallow(bytes)) {
        plist_from_xml(bytes.data(), size, &node);
    }
    return Plist(node);
}

// ---------------------------------------------------------------------------

Plist makeDict()
{
    return Plist(plist_new_dict());
}

void setString(const Plist &dict, const char *key, const std::string &value)
{
    plist_dict_set_item(dict.get(), key, plist_new_string(value.c_str()));
}

void setUint(const Plist &dict, const char *key, uint64_t value)
{
    plist_dict_set_item(dict.get(), key, plist_new_uint(value));
}

std::string toXml(const Plist &plist)
{
    char *text = nullptr;
    uint32_t length = 0;
    plist_to_xml(plist.get(), &text, &length);
    std::unique_ptr<char, decltype(&free)> owned(text, free);
    return text ? std::string(text, length) : std::string();
}

plist_t getMember(plist_t node, const char *key, plist_type type)
{
    if (!node || plist_get_node_type(node) != PLIST_DICT)
        return nullptr;
    plist_t member = plist_dict_get_item(node, key);
    if (!member || plist_get_node_type(member) != type)
        return nullptr;
    return member;
}

// Not plist_get_string_val: that stops the process when the text holds a NUL.
std::optional<std::string> textOf(plist_t node)
{
    if (!node || plist_get_node_type(node) != PLIST_STRING)
        return std::nullopt;
    const char *text = plist_get_string_ptr(node, nullptr);
    return text ? std::optional<std::string>(text) : std::nullopt;
}

std::optional<std::string> getString(plist_t node, const char *key)
{
    return textOf(getMember(node, key, PLIST_STRING));
}

std::optional<std::string> getData(plist_t node, const char *key)
{
    plist_t member = getMember(node, key, PLIST_DATA);
    char *bytes = nullptr;
    uint64_t length = 0;
    if (member)
        plist_get_data_val(member, &bytes, &length);
    std::unique_ptr<char, decltype(&free)> owned(bytes, free);
    if (!bytes)
        return std::nullopt;
    return std::string(bytes, length);
}

std::optional<uint64_t> getUint(plist_t node, const char *key)
{
    plist_t member = getMember(node, key, PLIST_UINT);
    if (!member)
        return std::nullopt;
    uint64_t value = 0;
    plist_get_uint_val(member, &value);
    return value;
}

bool getTruth(plist_t node, const char *key)
{
    if (plist_t member = getMember(node, key, PLIST_BOOLEAN)) {
        uint8_t value = 0;
        plist_get_bool_val(member, &value);
        return value != 0;
    }
    if (auto number = getUint(node, key))
        return *number != 0;
    auto text = getString(node, key);
    return text && (*text == "YES" || *text == "true" || *text == "1");
}

} // namespace iusb
