// The damage that the repository has a record of: see checkup.h. The names of blobs show it
// (docs/repository.md), so no key is needed; which node a blob belongs to they do not show.
#include "tools/common/text.h"
#include "tools/keel/doctor/checkup.h"

#include <algorithm>
#include <filesystem>

#include <fmt/format.h>

namespace keel
{

namespace
{

namespace fs = std::filesystem;

struct Found {
    std::size_t count = 0;
    std::string first; ///< its name in the repository
    std::string problem;
};

/// Counts the blobs in one directory of each node, except the lists of packs beside them.
Found countIn(const fs::path &repository, const char *room)
{
    Found found;
    std::error_code error;
    const fs::path root = repository / room;
    if (!fs::exists(root, error))
        return found;
    for (fs::recursive_directory_iterator at(root, error), end; !error && at != end;
         at.increment(error)) {
        std::error_code unknown;
        if (at->path().extension() == ".packs" || at->is_directory(unknown))
            continue;
        const std::string name = at->path().lexically_relative(repository).string();
        found.first = found.count++ == 0 ? name : std::min(found.first, name);
    }
    found.problem = error ? root.string() + ": " + error.message() : "";
    return found;
}

} // namespace

void Checkup::lookAtDamage(const std::string &repository)
{
    const Found parts = countIn(repository, "damage");
    const Found manifests = countIn(repository, "quarantine");
    for (const Found *found : {&parts, &manifests})
        if (!found->problem.empty())
            return bad(
                "damage", tools::printable(found->problem),
                "Give the directory, with all in it, to the user that the database runs as.");
    if (parts.count + manifests.count == 0)
        return good("damage", "none is recorded");
    const std::string options = tools::printable(options_.clientFile());
    std::string cure = fmt::format("Run: arca repair --optfile {}", options);
    if (manifests.count != 0)
        cure +=
            fmt::format("; what stays set aside is given up with: arca rm --blob {} --optfile {}",
                        tools::printable(manifests.first), options);
    warn("damage",
         fmt::format("of all nodes: {} of packs, {} set aside",
                     tools::counted(parts.count, "damaged part"),
                     tools::counted(manifests.count, "damaged manifest")),
         cure);
}

} // namespace keel
