// Small plots in lines of text: blocks of an eighth of a character where the locale has them, else
// ASCII.
#ifndef KEEL_TOOLS_COMMON_PLOT_H
#define KEEL_TOOLS_COMMON_PLOT_H

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace tools
{

/// A bar of at most `width` columns: that of `most` fills them. What is more than nothing shows.
[[nodiscard]] std::string bar(double value, double most, std::size_t width);

/// One column for each value, as high as it is to the greatest; at most `width` columns, then each
/// is the mean of neighbours. Empty for no values.
[[nodiscard]] std::string sparkline(std::span<const double> values, std::size_t width);

struct PlotLine {
    std::string label; ///< before the bar, as wide as the widest
    double value = 0;
    std::string text; ///< what the value is in words, between label and bar
};

/// A line with a bar for each, fitting in `width` columns; each ends in a newline.
[[nodiscard]] std::string barPlot(std::span<const PlotLine> lines, std::size_t width);

} // namespace tools

#endif
