#include "tarnifs/names/composition.h"

#include <utf8proc.h>

#include <algorithm>
#include <vector>

namespace
{

bool isAscii(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) {
        return static_cast<unsigned char>(c) < 0x80;
    });
}

bool takesNoPart(utf8proc_int32_t c)
{
    return (c >= 0x2000 && c <= 0x2FFF) || (c >= 0xF900 && c <= 0xFAFF) ||
           (c >= 0x2F800 && c <= 0x2FAFF);
}

bool decode(std::string_view text, std::vector<utf8proc_int32_t> &out)
{
    const auto *at = reinterpret_cast<const utf8proc_uint8_t *>(text.data());
    auto left = static_cast<utf8proc_ssize_t>(text.size());
    out.reserve(text.size());
    while (left > 0) {
        utf8proc_int32_t c = 0;
        const utf8proc_ssize_t used = utf8proc_iterate(at, left, &c);
        if (used <= 0) {
            return false;
        }
        out.push_back(c);
        at += used;
        left -= used;
    }
    return true;
}

void append(std::string &out, utf8proc_int32_t c)
{
    utf8proc_uint8_t bytes[4];
    const utf8proc_ssize_t count = utf8proc_encode_char(c, bytes);
    out.append(reinterpret_cast<const char *>(bytes),
               static_cast<size_t>(count));
}

int combiningClass(utf8proc_int32_t c)
{
    return utf8proc_get_property(c)->combining_class;
}

// The character that a starter and what follows it compose to, or 0.
utf8proc_int32_t composePair(utf8proc_int32_t first, utf8proc_int32_t second)
{
    if (second < 0x300) {
        return 0; // nothing below composes with what stands before it
    }
    utf8proc_int32_t pair[3] = {first, second, 0};
    const auto options =
        static_cast<utf8proc_option_t>(UTF8PROC_COMPOSE | UTF8PROC_STABLE);
    if (utf8proc_normalize_utf32(pair, 2, options) != 1 || takesNoPart(first) ||
        takesNoPart(pair[0])) {
        return 0;
    }
    return pair[0];
}

// Composes in place, without the decomposition that goes before it in the usual
// normal form. Input is expected in canonical order, as decomposed names are.
void compose(std::vector<utf8proc_int32_t> &text)
{
    size_t kept = 0;
    size_t starter = 0;
    bool haveStarter = false;
    int last = -1; // class of what was kept after the starter; -1: nothing
    for (const utf8proc_int32_t c : text) {
        const int cls = combiningClass(c);
        // A mark of the same or a higher class in between blocks; directly
        // after the starter nothing does.
        const bool blocked = !haveStarter || (last != -1 && last >= cls);
        const utf8proc_int32_t composed =
            blocked ? 0 : composePair(text[starter], c);
        if (composed != 0) {
            text[starter] = composed;
            continue;
        }
        if (cls == 0) {
            starter = kept;
            haveStarter = true;
            last = -1;
        } else {
            last = cls;
        }
        text[kept++] = c;
    }
    text.resize(kept);
}

// Sorts each run of combining characters by class, keeping equals in order.
void orderMarks(std::vector<utf8proc_int32_t> &text)
{
    auto at = text.begin();
    while (at != text.end()) {
        auto end = at;
        while (end != text.end() && combiningClass(*end) != 0) {
            ++end;
        }
        std::stable_sort(at, end, [](utf8proc_int32_t a, utf8proc_int32_t b) {
            return combiningClass(a) < combiningClass(b);
        });
        at = end == text.end() ? end : end + 1;
    }
}

void decomposeCharacter(utf8proc_int32_t c, std::vector<utf8proc_int32_t> &out)
{
    if (takesNoPart(c)) {
        out.push_back(c);
        return;
    }
    utf8proc_int32_t parts[8];
    int boundary = 0;
    const auto options =
        static_cast<utf8proc_option_t>(UTF8PROC_DECOMPOSE | UTF8PROC_STABLE);
    const utf8proc_ssize_t count =
        utf8proc_decompose_char(c, parts, 8, options, &boundary);
    if (count <= 0 || count > 8) {
        out.push_back(c);
        return;
    }
    out.insert(out.end(), parts, parts + count);
}

} // namespace

bool composeUtf8(std::string_view text, std::string &out)
{
    if (isAscii(text)) {
        out.assign(text);
        return true;
    }
    std::vector<utf8proc_int32_t> characters;
    if (!decode(text, characters)) {
        return false;
    }
    compose(characters);
    out.clear();
    out.reserve(text.size());
    for (const utf8proc_int32_t c : characters) {
        append(out, c);
    }
    return true;
}

bool decomposeUtf8(std::string_view text, std::string &out)
{
    std::vector<utf8proc_int32_t> characters;
    if (!decode(text, characters)) {
        return false;
    }
    std::vector<utf8proc_int32_t> parts;
    parts.reserve(characters.size());
    for (const utf8proc_int32_t c : characters) {
        decomposeCharacter(c, parts);
    }
    orderMarks(parts);
    out.clear();
    for (const utf8proc_int32_t c : parts) {
        append(out, c);
    }
    return true;
}
