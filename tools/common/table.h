// A table of text: the columns are as wide as what is in them.
#ifndef KEEL_TOOLS_COMMON_TABLE_H
#define KEEL_TOOLS_COMMON_TABLE_H

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

namespace tools
{

enum class Align { kLeft, kRight };

class Table
{
public:
    struct Column {
        std::string heading;
        Align align = Align::kLeft;
    };

    explicit Table(std::vector<Column> columns);

    /// Cells that are missing at the end are empty. What would not be one line is made printable.
    void add(std::vector<std::string> cells);

    [[nodiscard]] bool empty() const { return rows_.empty(); }

    /// All of it, headings first, every line ended; nothing follows the last cell of a line.
    [[nodiscard]] std::string text() const;

private:
    void appendLine(std::string &text, const std::vector<std::string> &cells) const;

    std::vector<Column> columns_;
    std::vector<std::size_t> widths_;
    std::vector<std::vector<std::string>> rows_;
};

} // namespace tools

#endif
