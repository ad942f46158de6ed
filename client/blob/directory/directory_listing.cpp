// Listing the blobs of a directory store.
#include "client/blob/directory/directory_store.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace arca::blob
{

Result<void> DirectoryStore::list(const std::string &prefix,
                                  const std::function<bool(const std::string &)> &visit)
{
    return walk(prefix, false, [&](const std::string &name, std::uint64_t) { return visit(name); });
}

Result<void>
DirectoryStore::listStamped(const std::string &prefix,
                            const std::function<bool(const std::string &, std::uint64_t)> &visit)
{
    return walk(prefix, true, visit);
}

/// Depth first, with one directory open at a time. What is deeper than any blob can be is not gone
/// into: it is not of a repository, and could go on for ever.
Result<void>
DirectoryStore::walk(const std::string &prefix, bool stamped,
                     const std::function<bool(const std::string &, std::uint64_t)> &visit)
{
    constexpr std::ptrdiff_t kDeepest = 16;
    const auto slash = prefix.rfind('/');
    // Directories, with a slash at the end; the last is the next.
    std::vector<std::string> left{slash == std::string::npos ? "" : prefix.substr(0, slash + 1)};
    while (!left.empty()) {
        const std::string directory = std::move(left.back());
        left.pop_back();
        const std::string_view begin = prefix.size() > directory.size()
                                           ? std::string_view(prefix).substr(directory.size())
                                           : std::string_view();
        auto listed = files_.entries(pathOf(directory), begin, stamped);
        if (!listed && listed.error().kind == ErrorKind::notFound)
            continue;
        ARCA_TRY(const auto entries, std::move(listed));
        for (const FileLayer::Entry &entry : entries) {
            const std::string name = directory + entry.name;
            if (name == "tmp" || name == "locks" || name == "reserve" || name == "cache")
                continue;
            if (entry.state.directory && std::ranges::count(name, '/') < kDeepest)
                left.push_back(name + "/");
            else if (!visit(name, entry.state.stamp))
                return {};
        }
    }
    return {};
}

} // namespace arca::blob
