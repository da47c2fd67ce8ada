// A table for people: columns as wide as their widest text.
#pragma once

#include <string>
#include <vector>

namespace helper
{

// Rows as lines, the first row being the headings. Texts are made printable.
std::string tableText(const std::vector<std::vector<std::string>> &rows);

} // namespace helper
