// Text for people: sizes, times, and names that can be shown safely.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace helper
{

// What may be written to a terminal: control characters and bytes that are no
// UTF-8 become "?". Names come from devices and must not move the cursor.
std::string printable(std::string_view text);

// Columns that a printable text takes on a terminal.
size_t columns(std::string_view text);

// The text cut to at most `width` columns, its end replaced by an ellipsis.
std::string cutTo(std::string_view text, size_t width);

// "34.0 MB", in steps of 1000 as file managers count.
std::string bytesText(uint64_t bytes);

// "1:05", "2:00:00"; "45 s" below a minute, "4.2 s" below ten seconds.
std::string secondsText(double seconds);

// The time of the day, "14:05:09".
std::string clockText();

// "1 file", "1,234 files".
std::string countText(uint64_t count, const char *one, const char *many);

} // namespace helper
