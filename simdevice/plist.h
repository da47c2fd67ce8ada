// Property lists as the simulator needs them: a thin owner over libplist's C
// interface, with readers that answer "not there" instead of crashing on a
// value of the wrong type. What clients send is data from outside.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <plist/plist.h>

namespace sim
{

// Owns one plist tree. Values handed to the set* functions are copied.
class Plist
{
  public:
    Plist() = default;
    explicit Plist(plist_t node) : m_node(node) {}
    Plist(Plist &&other) noexcept : m_node(std::exchange(other.m_node, nullptr))
    {
    }
    Plist &operator=(Plist &&other) noexcept
    {
        std::swap(m_node, other.m_node);
        return *this;
    }
    Plist(const Plist &) = delete;
    Plist &operator=(const Plist &) = delete;
    ~Plist()
    {
        if (m_node != nullptr) {
            plist_free(m_node);
        }
    }

    plist_t get() const { return m_node; }
    plist_t release() { return std::exchange(m_node, nullptr); }
    explicit operator bool() const { return m_node != nullptr; }

  private:
    plist_t m_node = nullptr;
};

Plist newDict();
Plist newArray();

// Setters for a dictionary node.
void setString(plist_t dict, const char *key, const std::string &value);
void setUint(plist_t dict, const char *key, uint64_t value);
void setBool(plist_t dict, const char *key, bool value);
void setData(plist_t dict, const char *key, const std::string &value);
void setNode(plist_t dict, const char *key, Plist value);
void append(plist_t array, Plist value);

// Readers for a dictionary node; nothing when `dict` is null or no dictionary,
// when the key is missing, or when the value has another type. Numbers above
// INT64_MAX are taken as they are.
plist_t getNode(plist_t dict, const char *key, plist_type type);
std::optional<std::string> getString(plist_t dict, const char *key);
std::optional<uint64_t> getUint(plist_t dict, const char *key);
std::optional<bool> getBool(plist_t dict, const char *key);
std::optional<std::string> getData(plist_t dict, const char *key);

// The text of a string node, empty for any other node.
std::string stringOf(plist_t node);

std::string toXml(plist_t node);

// Parses an XML property list. Null for anything else: binary lists, text that
// does not begin with "<?xml" or "<plist", lists nested deeper than 64 levels
// (libplist recurses).
Plist fromXml(std::string_view text);

} // namespace sim
