#include "tarnifs/names/encoding.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <iconv.h>

#include "tarnifs/names/composition.h"
#include "util/log.h"

namespace
{

constexpr const char *DECOMPOSED = "UTF-8-MAC";

struct TEXT {
    char *data;
    size_t length;
};

// Not tried again after a failure: the descriptor may be gone by then.
int closeConversion(const char *caller, iconv_t conversion)
{
    if (iconv_close(conversion) == 0) {
        return 0;
    }
    QNLog(3, "%s iconv_colse() failed.", caller);
    return -1;
}

// One conversion of the whole input. On success out.length is what was written.
// 0 or -1; *error is iconv's errno, 0 when it was not iconv itself that failed.
int convert(const char *caller, const char *to, const char *from, TEXT in,
            TEXT &out, int *error)
{
    *error = 0;
    iconv_t conversion = iconv_open(to, from);
    if (conversion == reinterpret_cast<iconv_t>(-1)) {
        QNLog(3, "%s iconv_open() failed.", caller);
        return -1;
    }
    char *end = out.data;
    size_t room = out.length;
    const size_t result = iconv(conversion, &in.data, &in.length, &end, &room);
    const bool failed = result == static_cast<size_t>(-1);
    if (failed) {
        *error = errno;
    }
    out.length = static_cast<size_t>(end - out.data);
    const int closed = closeConversion(caller, conversion);
    return failed || closed != 0 ? -1 : 0;
}

// Whether the host's iconv knows the decomposed form; asked once.
bool hostKnowsDecomposed()
{
    static const bool known = [] {
        iconv_t probe = iconv_open("UTF-8", DECOMPOSED);
        if (probe == reinterpret_cast<iconv_t>(-1)) {
            return false;
        }
        iconv_close(probe);
        return true;
    }();
    return known;
}

bool areUsable(const char *in, int inLen, const char *out, int outLen)
{
    return in != nullptr && out != nullptr && inLen >= 0 && outLen >= 0;
}

int put(const std::string &text, char *out, int outLen)
{
    if (text.size() > static_cast<size_t>(outLen)) {
        errno = E2BIG;
        return -1;
    }
    text.copy(out, text.size());
    return 0;
}

int composeInto(std::string_view in, char *out, int outLen)
{
    std::string composed;
    if (!composeUtf8(in, composed)) {
        errno = EILSEQ;
        return -1;
    }
    return put(composed, out, outLen);
}

int decomposeInto(std::string_view in, char *out, int outLen)
{
    std::string parts;
    if (!decomposeUtf8(in, parts)) {
        errno = EILSEQ;
        return -1;
    }
    return put(parts, out, outLen);
}

// A conversion whose iconv failures are logged without their errno.
int convertDecomposed(const char *caller, const char *to, TEXT in, TEXT out)
{
    int error = 0;
    const int result = convert(caller, to, DECOMPOSED, in, out, &error);
    if (error != 0) {
        QNLog(3, "%s iconv() failed.", caller);
    }
    return result;
}

} // namespace

std::string replaceAll(std::string str, const std::string &from,
                       const std::string &to)
{
    if (from.empty()) {
        return str;
    }
    for (size_t at = str.find(from); at != std::string::npos;
         at = str.find(from, at + to.size())) {
        str.replace(at, from.size(), to);
    }
    return str;
}

std::string chkInvalidString(const char *name)
{
    return name == nullptr ? std::string() : replaceAll(name, "/", ":");
}

int getUTF8MACName(const char *name, char *out)
{
    if (name == nullptr || out == nullptr) {
        return -1;
    }
    const std::string text = chkInvalidString(name);
    text.copy(out, text.size());
    const int result = GetEncodedString(out, text.size(), text.size());
    if (result < 0) {
        QNLog(3, "%s GetEncodedString failed", "getUTF8MACName");
    }
    return result;
}

int GetEncodedString(char *buf, size_t len, size_t size)
{
    // One byte at least: what an allocation of nothing answers is the library's
    // choice, and an empty name is no failure.
    char *converted = static_cast<char *>(calloc(1, size == 0 ? 1 : size));
    if (converted == nullptr) {
        return -1;
    }
    const int result = utf8_to_utf8mac(buf, static_cast<int>(len), converted,
                                       static_cast<int>(size));
    if (result != -1 && size != 0) {
        memcpy(buf, converted, size);
    }
    free(converted);
    return result;
}

int utf8_to_utf8mac(char *in, int inLen, char *out, int outLen)
{
    static const char *const self = "utf8_to_utf8mac";
    if (!areUsable(in, inLen, out, outLen)) {
        QNLog(3, "%s iconv() failed.", self);
        return -1;
    }
    const auto length = static_cast<size_t>(inLen);
    if (hostKnowsDecomposed()) {
        return convertDecomposed(self, "UTF-8", {in, length},
                                 {out, static_cast<size_t>(outLen)});
    }
    if (composeInto({in, length}, out, outLen) != 0) {
        QNLog(3, "%s iconv() failed.", self);
        return -1;
    }
    return 0;
}

int utf8_to_unicode(char *in, int inLen, char *out, int outLen)
{
    static const char *const self = "utf8_to_unicode";
    if (!areUsable(in, inLen, out, outLen)) {
        QNLog(3, "%s iconv() failed.", self);
        return -1;
    }
    const auto length = static_cast<size_t>(inLen);
    TEXT result{out, static_cast<size_t>(outLen)};
    if (hostKnowsDecomposed()) {
        return convertDecomposed(self, "UCS-2LE", {in, length}, result);
    }
    std::string composed;
    int error = 0;
    if (!composeUtf8({in, length}, composed)) {
        QNLog(3, "%s iconv() failed.", self);
        return -1;
    }
    const int converted =
        convert(self, "UCS-2LE", "UTF-8", {composed.data(), composed.size()},
                result, &error);
    if (error != 0) {
        QNLog(3, "%s iconv() failed.", self);
    }
    return converted;
}

int unicode_to_utf8(int code, char *in, int inLen, char *out, int outLen)
{
    static const char *const self = "unicode_to_utf8";
    if (!areUsable(in, inLen, out, outLen)) {
        QNLog(3, "%s iconv() failed. ErrNO : %d", self, EINVAL);
        return -1;
    }
    const bool direct = hostKnowsDecomposed();
    const TEXT source{in, static_cast<size_t>(inLen)};
    // No set needs more than three times the room in UTF-8.
    std::string between(direct ? 0 : source.length * 3, '\0');
    TEXT result = direct ? TEXT{out, static_cast<size_t>(outLen)}
                         : TEXT{between.data(), between.size()};
    int error = 0;
    int converted = convert(self, direct ? DECOMPOSED : "UTF-8",
                            GetStringfromCode(code), source, result, &error);
    if (converted == 0 && !direct &&
        decomposeInto({between.data(), result.length}, out, outLen) != 0) {
        error = errno;
        converted = -1;
    }
    if (error != 0) {
        QNLog(3, "%s iconv() failed. ErrNO : %d", self, error);
    }
    return converted;
}

const char *GetStringfromCode(int code)
{
    switch (code) {
    case 1:
        return "UCS-2LE";
    case 2:
        return "UCS-2BE";
    case 3:
        return "UTF-8";
    case 255:
        return "EUC-KR";
    default:
        return "ISO-8859-1";
    }
}
