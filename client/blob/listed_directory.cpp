// One sorted listing of a directory: see the header.
#include "client/blob/listed_directory.h"

#include <algorithm>

namespace arca::blob
{

Result<std::span<const std::string>> ListedDirectory::under(std::string_view prefix)
{
    const std::string_view directory = prefix.substr(0, prefix.rfind('/') + 1);
    if (directory != directory_) {
        directory_.clear();
        names_.clear();
        ARCA_CHECK(store_.list(std::string(directory), [&](const std::string &name) {
            names_.push_back(name);
            return true;
        }));
        std::ranges::sort(names_);
        directory_ = directory;
    }
    const auto beginning = [&](const std::string &name) {
        return std::string_view(name).substr(0, prefix.size());
    };
    const auto found = std::ranges::equal_range(names_, prefix, {}, beginning);
    return std::span<const std::string>(found.begin(), found.end());
}

} // namespace arca::blob
