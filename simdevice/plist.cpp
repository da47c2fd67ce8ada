#include "simdevice/plist.h"

#include <cstdlib>

namespace sim
{

namespace
{

constexpr int kMaxDepth = 64;

// True if no element is nested deeper than kMaxDepth. Counts tags without
// understanding them: a list that fools the count (tags inside comments) is
// merely refused.
bool nestingIsSane(std::string_view text)
{
    int depth = 0;
    for (size_t i = 0; i + 1 < text.size(); i++) {
        if (text[i] != '<' || text[i + 1] == '?' || text[i + 1] == '!') {
            continue;
        }
        if (text[i + 1] == '/') {
            depth--;
            continue;
        }
        const size_t end = text.find('>', i);
        if (end == std::string_view::npos) {
            return false;
        }
        if (text[end - 1] != '/' && ++depth > kMaxDepth) {
            return false;
        }
    }
    return true;
}

} // namespace

Plist newDict()
{
    return Plist(plist_new_dict());
}
Plist newArray()
{
    return Plist(plist_new_array());
}

void setString(plist_t dict, const char *key, const std::string &value)
{
    plist_dict_set_item(dict, key, plist_new_string(value.c_str()));
}

void setUint(plist_t dict, const char *key, uint64_t value)
{
    plist_dict_set_item(dict, key, plist_new_uint(value));
}

void setBool(plist_t dict, const char *key, bool value)
{
    plist_dict_set_item(dict, key, plist_new_bool(value ? 1 : 0));
}

void setData(plist_t dict, const char *key, const std::string &value)
{
    plist_dict_set_item(dict, key, plist_new_data(value.data(), value.size()));
}

void setNode(plist_t dict, const char *key, Plist value)
{
    plist_dict_set_item(dict, key, value.release());
}

void append(plist_t array, Plist value)
{
    plist_array_append_item(array, value.release());
}

plist_t getNode(plist_t dict, const char *key, plist_type type)
{
    if (dict == nullptr || plist_get_node_type(dict) != PLIST_DICT) {
        return nullptr;
    }
    plist_t node = plist_dict_get_item(dict, key);
    return node != nullptr && plist_get_node_type(node) == type ? node
                                                                : nullptr;
}

std::string stringOf(plist_t node)
{
    if (node == nullptr || plist_get_node_type(node) != PLIST_STRING) {
        return {};
    }
    uint64_t length = 0;
    const char *text = plist_get_string_ptr(node, &length);
    return text != nullptr ? std::string(text, length) : std::string();
}

std::optional<std::string> getString(plist_t dict, const char *key)
{
    plist_t node = getNode(dict, key, PLIST_STRING);
    return node != nullptr ? std::optional(stringOf(node)) : std::nullopt;
}

std::optional<uint64_t> getUint(plist_t dict, const char *key)
{
    plist_t node = getNode(dict, key, PLIST_UINT);
    if (node == nullptr) {
        return std::nullopt;
    }
    uint64_t value = 0;
    plist_get_uint_val(node, &value);
    return value;
}

std::optional<bool> getBool(plist_t dict, const char *key)
{
    plist_t node = getNode(dict, key, PLIST_BOOLEAN);
    if (node == nullptr) {
        return std::nullopt;
    }
    uint8_t value = 0;
    plist_get_bool_val(node, &value);
    return value != 0;
}

std::optional<std::string> getData(plist_t dict, const char *key)
{
    plist_t node = getNode(dict, key, PLIST_DATA);
    if (node == nullptr) {
        return std::nullopt;
    }
    uint64_t length = 0;
    const char *bytes = plist_get_data_ptr(node, &length);
    return bytes != nullptr ? std::string(bytes, length) : std::string();
}

std::string toXml(plist_t node)
{
    char *text = nullptr;
    uint32_t length = 0;
    plist_to_xml(node, &text, &length);
    std::string result = text != nullptr ? std::string(text, length) : "";
    std::free(text);
    return result;
}

Plist fromXml(std::string_view text)
{
    if (!(text.starts_with("<?xml") || text.starts_with("<plist")) ||
        !nestingIsSane(text)) {
        return {};
    }
    plist_t node = nullptr;
    plist_from_xml(text.data(), static_cast<uint32_t>(text.size()), &node);
    return Plist(node);
}

} // namespace sim
