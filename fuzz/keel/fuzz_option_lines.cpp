// Any bytes as an option file that keel reads for its checks: what comes out is clean, and reads
// the same when it is written down again.
#include "tools/keel/option_lines.h"

#include <cstdint>
#include <cstdlib>
#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    constexpr const char *kBlank = " \t\v\f\r";
    std::istringstream input(std::string(reinterpret_cast<const char *>(data), size));
    for (const auto &[keyword, value] : keel::optionLinesIn(input)) {
        const std::size_t last = value.empty() ? 0 : value.size() - 1;
        if (keyword.find_first_of(" ,\t\r\nabcdefghijklmnopqrstuvwxyz") != std::string::npos ||
            value.find_first_of("\"\n") != std::string::npos ||
            value.find_first_not_of(kBlank) != (value.empty() ? std::string::npos : 0) ||
            (!value.empty() && value.find_last_not_of(kBlank) != last))
            std::abort();
        if (keyword.empty() || std::string("*\v\f").find(keyword[0]) != std::string::npos)
            continue; // what is no keyword need not be one again
        std::istringstream again(keyword + " " + value);
        if (keel::optionLinesIn(again) != keel::OptionLines{{keyword, value}})
            std::abort();
    }
    return 0;
}
