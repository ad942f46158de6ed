// See option_lines.h.
#include "tools/keel/option_lines.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <string_view>

namespace keel
{

namespace
{

constexpr std::string_view kBlank = " \t\v\f\r";

std::string trimmed(std::string text)
{
    std::erase(text, '"');
    const std::size_t first = text.find_first_not_of(kBlank);
    const std::size_t last = text.find_last_not_of(kBlank);
    return first == std::string::npos ? "" : text.substr(first, last + 1 - first);
}

} // namespace

OptionLines optionLinesIn(std::istream &input)
{
    OptionLines lines;
    for (std::string line; std::getline(input, line);) {
        const std::size_t begin = line.find_first_not_of(kBlank);
        if (begin == std::string::npos || line[begin] == '*')
            continue;
        const std::size_t from = std::min(line.find_first_not_of(" ,\t", begin), line.size());
        const std::size_t end = std::min(line.find_first_of(" ,\t\r", from), line.size());
        std::string keyword = line.substr(from, end - from);
        std::ranges::transform(keyword, keyword.begin(),
                               [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
        lines.emplace_back(std::move(keyword),
                           end < line.size() ? trimmed(line.substr(end + 1)) : std::string());
    }
    return lines;
}

OptionLines readOptionLines(const std::string &file)
{
    std::ifstream input(file);
    return optionLinesIn(input);
}

} // namespace keel
