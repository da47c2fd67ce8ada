#include "tarnifs/media/naming.h"

#include <strings.h>

#include <algorithm>
#include <cstring>

#include "tarnifs/catalogue/object.h"
#include "tarnifs/names/composition.h"
#include "tarnifs/names/device_path.h"
#include "tarnifs/names/encoding.h"
#include "util/log.h"

namespace
{

constexpr int UTF8 = 3;
constexpr size_t ALBUM_NAME_ROOM = 2048;
// A character decomposes to three times its bytes at most.
constexpr size_t MOST_GROWTH = 3;
// What follows the last "." beyond this length is no extension.
constexpr size_t LONGEST_EXTENSION = 64;

bool isContinuation(char c)
{
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

// Bytes of the character that a byte begins.
size_t characterLength(char lead)
{
    const auto byte = static_cast<unsigned char>(lead);
    if (byte < 0xC0U) {
        return 1;
    }
    return byte < 0xE0U ? 2 : byte < 0xF0U ? 3 : 4;
}

// Text that can't be decomposed counts as it is.
size_t decomposedLength(std::string_view text)
{
    std::string parts;
    return decomposeUtf8(text, parts) ? parts.size() : text.size();
}

// The longest beginning of whole characters that fits. A letter that stands
// decomposed in the text is one character as well.
std::string fitting(const std::string &text, size_t room)
{
    std::string letters;
    if (!composeUtf8(text, letters)) {
        letters = text;
    }
    size_t end = 0;
    size_t used = 0;
    while (end < letters.size()) {
        const size_t length =
            std::min(characterLength(letters[end]), letters.size() - end);
        used += decomposedLength(letters.substr(end, length));
        if (used > room) {
            break;
        }
        end += length;
    }
    letters.resize(end);
    std::string parts;
    const bool wasDecomposed = decomposeUtf8(text, parts) && parts == text;
    return wasDecomposed && decomposeUtf8(letters, parts) ? parts : letters;
}

size_t extensionAt(std::string_view name)
{
    const size_t dot = name.rfind('.');
    return dot == std::string_view::npos ||
                   name.size() - dot > LONGEST_EXTENSION
               ? name.size()
               : dot;
}

// What a conversion wrote into a buffer of zeros.
void takeUpToNul(std::string *buffer, std::string *out)
{
    buffer->resize(strlen(buffer->c_str()));
    out->swap(*buffer);
}

bool isFree(const std::string &path, const std::string &devicePath)
{
    const _KTL_OBJECT *object = FindObject(path.c_str());
    if (object == nullptr) {
        return true;
    }
    const char *known = object->device_path;
    return !IsLinked(object) && (known == nullptr || devicePath == known);
}

} // namespace

bool CanonicalName(const char *caller, const std::string &text,
                   std::string *out)
{
    std::string buffer(text.size() + 1, '\0');
    if (getUTF8MACName(text.c_str(), buffer.data()) < 0) {
        QNLog(3, "%s getUTF8MACName failed.", caller);
        return false;
    }
    takeUpToNul(&buffer, out);
    return true;
}

bool AlbumName(const char *caller, const std::string &title, std::string *out)
{
    std::string clean = chkInvalidString(title.c_str());
    std::string buffer(ALBUM_NAME_ROOM, '\0');
    if (unicode_to_utf8(UTF8, clean.data(), static_cast<int>(clean.size()),
                        buffer.data(), ALBUM_NAME_ROOM - 1) != 0) {
        return CanonicalName(caller, title, out);
    }
    takeUpToNul(&buffer, out);
    return true;
}

void DropBrokenTail(std::string *text)
{
    size_t lead = text->size();
    while (lead > 0 && isContinuation((*text)[lead - 1])) {
        --lead;
    }
    if (lead > 0 &&
        text->size() - (lead - 1) < characterLength((*text)[lead - 1])) {
        text->resize(lead - 1);
    }
}

bool CanBeEntry(const char *caller, const std::string &name)
{
    if (!name.empty() && name != "." && name != "..") {
        return true;
    }
    QNLog(3, "%s no name for an entry, left out : (%s)", caller, name.c_str());
    return false;
}

bool LeadsOut(std::string_view path)
{
    const std::string framed = "/" + std::string(path) + "/";
    return framed.find("/../") != std::string::npos;
}

std::string FilmOf(const std::string &still)
{
    constexpr std::string_view HEIC = ".HEIC";
    const size_t stem = still.size() - std::min(still.size(), HEIC.size());
    if (strcasecmp(still.c_str() + stem, HEIC.data()) == 0) {
        return still.substr(0, stem) + ".MOV";
    }
    return replaceAll(still, "JPG", "MOV");
}

std::string NumberedName(std::string_view name, std::string_view number,
                         NUMBER_PLACE place)
{
    const size_t end =
        place == NUMBER_PLACE::AT_END ? name.size() : extensionAt(name);
    std::string stem(name.substr(0, end));
    std::string tail(number);
    tail += name.substr(end);
    if ((stem.size() + tail.size()) * MOST_GROWTH > LONGEST_NAME) {
        const size_t taken = std::min(decomposedLength(tail), LONGEST_NAME);
        if (decomposedLength(stem) > LONGEST_NAME - taken) {
            stem = fitting(stem, LONGEST_NAME - taken);
        }
    }
    return stem + tail;
}

std::string FreeNames::path(const std::string &name, NUMBER_PLACE place,
                            const std::string &devicePath)
{
    std::string candidate = ChildPath(folder, NumberedName(name, "", place));
    if (isFree(candidate, devicePath)) {
        return candidate;
    }
    int &number = numbers.try_emplace(name, 2).first->second;
    do {
        const std::string text = " (" + std::to_string(number++) + ")";
        candidate = ChildPath(folder, NumberedName(name, text, place));
    } while (!isFree(candidate, devicePath));
    return candidate;
}
