// Property lists from outside: parsed under limits, read without surprises.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <plist/plist.h>

namespace iusb
{

struct PlistFree {
    void operator()(void *node) const { plist_free(node); }
};
using Plist = std::unique_ptr<void, PlistFree>;

// Deepest nesting accepted: the messages of this layer need five levels, while
// libplist parses and frees by recursion and would run out of stack.
constexpr int kPlistMaxDepth = 32;

// Parses an XML or binary property list; null for anything that is none or is
// nested too deeply.
Plist parsePlist(std::string_view bytes);

// A new dictionary, and one string or number more in it.
Plist makeDict();
void setString(const Plist &dict, const char *key, const std::string &value);
void setUint(const Plist &dict, const char *key, uint64_t value);

// The XML text of a property list; empty when memory ran out.
std::string toXml(const Plist &plist);

// The text of a string node, up to the first NUL; nothing for other nodes.
std::optional<std::string> textOf(plist_t node);

// One member of a dictionary, when it is there and has that type. `node` may be
// null or no dictionary.
std::optional<std::string> getString(plist_t node, const char *key);
std::optional<std::string> getData(plist_t node, const char *key);
std::optional<uint64_t> getUint(plist_t node, const char *key);
plist_t getMember(plist_t node, const char *key, plist_type type);

// True for a true boolean, a number other than 0, "YES" or "true".
bool getTruth(plist_t node, const char *key);

} // namespace iusb
