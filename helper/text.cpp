#include "helper/text.h"

#include <utf8proc.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace helper
{

namespace
{

// Calls `take` with each character's bytes and code point (-1: no UTF-8).
template <typename Take>
void eachCharacter(std::string_view text, Take take)
{
    const auto *bytes = reinterpret_cast<const utf8proc_uint8_t *>(text.data());
    size_t at = 0;
    while (at < text.size()) {
        utf8proc_int32_t point = -1;
        utf8proc_ssize_t length = utf8proc_iterate(
            bytes + at, static_cast<utf8proc_ssize_t>(text.size() - at),
            &point);
        if (length < 1) {
            length = 1;
            point = -1;
        }
        take(text.substr(at, static_cast<size_t>(length)), point);
        at += static_cast<size_t>(length);
    }
}

bool harmless(utf8proc_int32_t point)
{
    if (point < 0) {
        return false;
    }
    const utf8proc_category_t category = utf8proc_category(point);
    // Format characters can turn the direction of what follows; the joiners
    // are part of names in many scripts and of emoji.
    const bool joiner = point == 0x200C || point == 0x200D;
    return joiner || (category != UTF8PROC_CATEGORY_CC &&
                      category != UTF8PROC_CATEGORY_CF &&
                      category != UTF8PROC_CATEGORY_ZL &&
                      category != UTF8PROC_CATEGORY_ZP);
}

size_t columnsOf(utf8proc_int32_t point)
{
    const int width = point < 0 ? 1 : utf8proc_charwidth(point);
    return width < 0 ? 0 : static_cast<size_t>(width);
}

} // namespace

std::string printable(std::string_view text)
{
    std::string shown;
    eachCharacter(text, [&](std::string_view bytes, utf8proc_int32_t point) {
        shown += harmless(point) ? bytes : std::string_view("?");
    });
    return shown;
}

size_t columns(std::string_view text)
{
    size_t sum = 0;
    eachCharacter(text, [&](std::string_view, utf8proc_int32_t point) {
        sum += columnsOf(point);
    });
    return sum;
}

std::string cutTo(std::string_view text, size_t width)
{
    if (columns(text) <= width) {
        return std::string(text);
    }
    std::string kept;
    size_t used = 1; // the ellipsis
    bool full = width == 0;
    eachCharacter(text, [&](std::string_view bytes, utf8proc_int32_t point) {
        used += columnsOf(point);
        full = full || used > width;
        if (!full) {
            kept += bytes;
        }
    });
    return width == 0 ? kept : kept + "…";
}

std::string bytesText(uint64_t bytes)
{
    static constexpr std::array UNITS = {"kB", "MB", "GB", "TB", "PB", "EB"};
    if (bytes < 1000) {
        return std::to_string(bytes) + " B";
    }
    double value = static_cast<double>(bytes) / 1000;
    size_t unit = 0;
    while (value >= 999.95 && unit + 1 < UNITS.size()) {
        value /= 1000;
        ++unit;
    }
    char text[32];
    snprintf(text, sizeof(text), "%.1f %s", value, UNITS[unit]);
    return text;
}

std::string secondsText(double seconds)
{
    const auto whole = static_cast<long long>(std::llround(seconds));
    char text[48];
    if (seconds < 9.95) {
        snprintf(text, sizeof(text), "%.1f s", seconds);
    } else if (whole < 60) {
        snprintf(text, sizeof(text), "%lld s", whole);
    } else if (whole < 3600) {
        snprintf(text, sizeof(text), "%lld:%02lld", whole / 60, whole % 60);
    } else {
        snprintf(text, sizeof(text), "%lld:%02lld:%02lld", whole / 3600,
                 whole / 60 % 60, whole % 60);
    }
    return text;
}

std::string clockText()
{
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    char text[16];
    return {text, strftime(text, sizeof(text), "%H:%M:%S", &local)};
}

std::string countText(uint64_t count, const char *one, const char *many)
{
    std::string digits = std::to_string(count);
    for (size_t at = digits.size(); at > 3; at -= 3) {
        digits.insert(at - 3, ",");
    }
    return digits + " " + (count == 1 ? one : many);
}

} // namespace helper
