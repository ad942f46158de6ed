// A table of text, each column as wide as its widest cell. It holds all rows. One thread.
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

    /// Adds a row. Cells that are missing at the end are empty, more than there are columns are
    /// dropped. Control characters are escaped (text.h).
    void add(std::vector<std::string> cells);

    [[nodiscard]] bool empty() const { return rows_.empty(); }

    /// Returns the headings and all rows, each line ended by a newline, without blanks at its end.
    [[nodiscard]] std::string text() const;

private:
    void appendLine(std::string &text, const std::vector<std::string> &cells) const;

    std::vector<Column> columns_;
    std::vector<std::size_t> widths_;
    std::vector<std::vector<std::string>> rows_;
};

} // namespace tools

#endif
