// See option_lines.h.
#include "tools/keel/option_lines.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <fcntl.h>
#include <sstream>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

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
    // As the agent does it: a FIFO or device in the place of the file is not waited for, and
    // neither is the end of a file that has none.
    constexpr std::size_t kMostBytes = std::size_t{16} << 20;
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0)
        return {};
    struct stat status = {};
    ssize_t count = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) ? 1 : -1;
    std::string text, part(4096, '\0');
    while (count > 0 && text.size() <= kMostBytes) {
        count = ::read(descriptor, part.data(), part.size());
        if (count < 0 && errno == EINTR)
            count = 1;
        else if (count > 0)
            text.append(part, 0, static_cast<std::size_t>(count));
    }
    (void)::close(descriptor);
    if (count < 0 || text.size() > kMostBytes)
        return {};
    std::istringstream input(text);
    return optionLinesIn(input);
}

} // namespace keel
