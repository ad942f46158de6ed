// See plot.h.
#include "tools/common/plot.h"

#include "tools/common/terminal.h"
#include "tools/common/text.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace tools
{

namespace
{

constexpr std::size_t kEighths = 8;

/// Returns value / most in steps, at least 1 for a value above 0.
std::size_t stepsOf(double value, double most, std::size_t steps)
{
    if (!(value > 0) || !(most > 0))
        return 0;
    const double share = std::min(value / most, 1.0);
    return std::max<std::size_t>(
        1, static_cast<std::size_t>(std::lround(share * static_cast<double>(steps))));
}

std::vector<double> means(std::span<const double> values, std::size_t width)
{
    std::vector<double> gathered;
    const std::size_t count = std::min(values.size(), width);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t from = i * values.size() / count;
        const std::size_t to = (i + 1) * values.size() / count;
        double sum = 0;
        for (std::size_t j = from; j < to; ++j)
            sum += values[j];
        gathered.push_back(sum / static_cast<double>(to - from));
    }
    return gathered;
}

std::string padded(const std::string &text, std::size_t width, bool right)
{
    const std::string blanks(width - std::min(width, displayWidth(text)), ' ');
    return right ? blanks + text : text + blanks;
}

} // namespace

std::string bar(double value, double most, std::size_t width)
{
    if (!speaksUtf8())
        return std::string(stepsOf(value, most, width), '#');
    constexpr std::array parts = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
    const std::size_t steps = stepsOf(value, most, width * kEighths);
    std::string drawn;
    for (std::size_t i = 0; i < steps / kEighths; ++i)
        drawn += "█";
    return drawn + parts[steps % kEighths];
}

std::string sparkline(std::span<const double> values, std::size_t width)
{
    constexpr std::array blocks = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    constexpr std::array ascii = {" ", "_", ".", "-", "=", "+", "*", "%", "#"};
    const bool utf8 = speaksUtf8();
    const std::vector<double> columns = means(values, width);
    if (columns.empty())
        return {};
    const double most = *std::ranges::max_element(columns);
    std::string drawn;
    for (const double value : columns) {
        const std::size_t step = stepsOf(value, most, kEighths);
        drawn += utf8 ? blocks[step] : ascii[step];
    }
    return drawn;
}

std::string barPlot(std::span<const PlotLine> lines, std::size_t width)
{
    constexpr std::size_t kLeastBar = 8;
    std::size_t labels = 0;
    std::size_t texts = 0;
    double most = 0;
    for (const PlotLine &line : lines) {
        labels = std::max(labels, displayWidth(printable(line.label)));
        texts = std::max(texts, displayWidth(printable(line.text)));
        most = std::max(most, line.value);
    }
    const std::size_t taken = labels + texts + 4;
    const std::size_t room = width > taken + kLeastBar ? width - taken : kLeastBar;
    std::string drawn;
    for (const PlotLine &line : lines)
        drawn += padded(printable(line.label), labels, false) + "  " +
                 padded(printable(line.text), texts, true) + "  " + bar(line.value, most, room) +
                 "\n";
    return drawn;
}

} // namespace tools
