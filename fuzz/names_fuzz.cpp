// Names: whatever bytes a device or a program gives, the canonical form holds
// no "/", is never longer than the name, stays as it is when made again, and
// both spellings of a name meet.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/target.h"
#include "tarnifs/names/encoding.h"
#include "util/log.h"

// Every name that can't be converted is logged; here that is nothing to tell.
void QNLog(int, const char *, ...) {}

namespace
{

// The canonical form; false for a name that has none.
bool Canonical(const std::string &name, std::string *out)
{
    std::vector<char> buffer(name.size() + 1, '\0');
    const int ret = getUTF8MACName(name.c_str(), buffer.data());
    *out = buffer.data();
    Require(out->find('/') == std::string::npos);
    Require(out->size() <= name.size());
    return ret == 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string given(reinterpret_cast<const char *>(data), size);
    std::string name = given.c_str(); // names end at the first NUL
    std::string once;
    if (!Canonical(name, &once)) {
        return 0;
    }
    std::string twice;
    Require(Canonical(once, &twice));
    Require(once == twice);

    // Decomposed by the other direction, it comes back the same.
    std::vector<char> decomposed(once.size() * 18 + 1, '\0');
    if (unicode_to_utf8(3, once.data(), static_cast<int>(once.size()),
                        decomposed.data(),
                        static_cast<int>(decomposed.size() - 1)) == 0) {
        std::string back;
        Require(Canonical(decomposed.data(), &back));
    }
    std::vector<char> ucs(once.size() * 4 + 4, '\0');
    utf8_to_unicode(once.data(), static_cast<int>(once.size()), ucs.data(),
                    static_cast<int>(ucs.size()));
    return 0;
}
