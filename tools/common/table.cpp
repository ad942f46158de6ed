// See table.h.
#include "tools/common/table.h"

#include "tools/common/terminal.h"
#include "tools/common/text.h"

#include <algorithm>

namespace tools
{

Table::Table(std::vector<Column> columns) : columns_(std::move(columns))
{
    for (const Column &column : columns_)
        widths_.push_back(displayWidth(column.heading));
}

void Table::add(std::vector<std::string> cells)
{
    cells.resize(columns_.size());
    for (std::size_t i = 0; i < cells.size(); ++i) {
        cells[i] = printable(cells[i]);
        widths_[i] = std::max(widths_[i], displayWidth(cells[i]));
    }
    rows_.push_back(std::move(cells));
}

void Table::appendLine(std::string &text, const std::vector<std::string> &cells) const
{
    std::string line;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        const std::string blanks(widths_[i] - displayWidth(cells[i]), ' ');
        line += i == 0 ? "" : "  ";
        line += columns_[i].align == Align::kRight ? blanks + cells[i] : cells[i] + blanks;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + "\n";
}

std::string Table::text() const
{
    std::vector<std::string> headings;
    for (const Column &column : columns_)
        headings.push_back(column.heading);
    std::string text;
    appendLine(text, headings);
    for (const auto &row : rows_)
        appendLine(text, row);
    return text;
}

} // namespace tools
