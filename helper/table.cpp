#include "helper/table.h"

#include <algorithm>

#include "helper/text.h"

namespace helper
{

namespace
{

constexpr size_t GAP = 2;

std::vector<size_t> widths(const std::vector<std::vector<std::string>> &rows)
{
    std::vector<size_t> widest;
    for (const auto &row : rows) {
        widest.resize(std::max(widest.size(), row.size()));
        for (size_t i = 0; i < row.size(); ++i) {
            widest[i] = std::max(widest[i], columns(row[i]));
        }
    }
    return widest;
}

} // namespace

std::string tableText(const std::vector<std::vector<std::string>> &rows)
{
    std::vector<std::vector<std::string>> shown = rows;
    for (auto &row : shown) {
        for (std::string &cell : row) {
            cell = printable(cell);
        }
    }
    const std::vector<size_t> wide = widths(shown);
    std::string text;
    for (const auto &row : shown) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size()) {
                line.append(wide[i] + GAP - columns(row[i]), ' ');
            }
        }
        text += line + "\n";
    }
    return text;
}

} // namespace helper
