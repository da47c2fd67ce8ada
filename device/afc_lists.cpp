#include "device/afc_lists.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace iusb
{

// Cuts the string up to the next NUL (or the end) off the front of `rest`.
static std::string_view nextString(std::string_view &rest)
{
    size_t end = rest.find('\0');
    std::string_view text = rest.substr(0, end);
    rest.remove_prefix(end == rest.npos ? rest.size() : end + 1);
    return text;
}

std::vector<std::string_view> afcNames(std::string_view bytes)
{
    std::vector<std::string_view> names;
    while (!bytes.empty()) {
        std::string_view name = nextString(bytes);
        if (name.empty() || name == "." || name == ".." ||
            name.find('/') != name.npos)
            continue;
        names.push_back(name);
    }
    return names;
}

template <typename Number>
static std::optional<Number> decimal(std::string_view text)
{
    Number value{};
    auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

// 0 when there is none.
static int32_t fileType(std::string_view format)
{
    if (format.empty())
        return 0;
    if (format == "S_IFDIR")
        return LIBIUSB_FILE_FOLDER;
    if (format == "S_IFREG")
        return LIBIUSB_FILE_REGULAR;
    return format == "S_IFLNK" ? LIBIUSB_FILE_LINK : LIBIUSB_FILE_OTHER;
}

std::optional<libiusb_afc_file_info> afcFileInfo(std::string_view bytes)
{
    std::optional<uint64_t> size;
    std::optional<int64_t> modified = 0, born;
    libiusb_afc_file_info info{};
    while (!bytes.empty()) {
        std::string_view key = nextString(bytes);
        std::string_view value = nextString(bytes);
        if (key == "st_ifmt") {
            info.file_type = fileType(value);
        } else if (key == "st_size") {
            size = decimal<uint64_t>(value);
            if (!size)
                return std::nullopt;
        } else if (key == "st_mtime") {
            modified = decimal<int64_t>(value);
        } else if (key == "st_birthtime") {
            born = decimal<int64_t>(value);
        }
    }
    if (info.file_type == 0 || !modified ||
        (!size && info.file_type == LIBIUSB_FILE_REGULAR))
        return std::nullopt;
    info.size = size.value_or(0);
    info.modify_time = *modified;
    info.birth_time = born.value_or(*modified);
    return info;
}

std::optional<AfcDeviceInfo> afcDeviceInfo(std::string_view bytes)
{
    std::optional<uint64_t> block, total, free;
    while (!bytes.empty()) {
        std::string_view key = nextString(bytes);
        std::string_view value = nextString(bytes);
        if (key == "FSBlockSize") {
            block = decimal<uint64_t>(value);
        } else if (key == "FSTotalBytes") {
            total = decimal<uint64_t>(value);
        } else if (key == "FSFreeBytes") {
            free = decimal<uint64_t>(value);
        }
    }
    if (!total || !free)
        return std::nullopt;
    return AfcDeviceInfo{block.value_or(0), *total, *free};
}

} // namespace iusb
