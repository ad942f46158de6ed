// Small plots in lines of text: blocks of an eighth of a character where the locale of the
// environment is a UTF-8 one, else ASCII. They print nothing.
#ifndef KEEL_TOOLS_COMMON_PLOT_H
#define KEEL_TOOLS_COMMON_PLOT_H

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace tools
{

/// Returns a bar in proportion to value / most, `width` columns for `most` or more. A value above 0
/// has at least one step; one of 0 or less, and any where `most` is, is an empty text.
[[nodiscard]] std::string bar(double value, double most, std::size_t width);

/// Returns a column for each value, as high as the value is beside the greatest. With more values
/// than `width`, a column stands for the mean of neighbours. Empty for no values.
[[nodiscard]] std::string sparkline(std::span<const double> values, std::size_t width);

struct PlotLine {
    std::string label; ///< before the bar; all labels take the width of the widest
    double value = 0;
    std::string text; ///< the value in words, between label and bar
};

/// Returns a line with a bar for each, all ended by a newline, in `width` columns; the
/// longest bar has at least 8, also where that makes the lines longer. Control characters of the
/// texts are escaped.
[[nodiscard]] std::string barPlot(std::span<const PlotLine> lines, std::size_t width);

} // namespace tools

#endif
