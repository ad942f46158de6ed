// The damage that the repository has a record of: see checkup.h. The names of blobs show it
// (docs/repository.md), so no key is needed; of the node that a blob belongs to they show what
// stands for it, not its name, so with several nodes the cures name no option file.
#include "tools/common/text.h"
#include "tools/keel/doctor/checkup.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>

#include <fmt/format.h>

namespace keel
{

namespace
{

namespace fs = std::filesystem;

struct Found {
    std::size_t parts = 0, manifests = 0;
    std::string first; ///< of these manifests: its name in the repository
};

/// Calls `see` with the node's key and the name of every blob in one room, except the lists of
/// packs beside them. Returns why the room cannot be read, or nothing.
std::string visit(const fs::path &repository, const char *room,
                  const std::function<void(const std::string &key, const std::string &name)> &see)
{
    std::error_code error;
    const fs::path root = repository / room;
    if (!fs::exists(root, error))
        return "";
    for (fs::recursive_directory_iterator at(root, error), end; !error && at != end;
         at.increment(error)) {
        std::error_code unknown;
        if (at->path().extension() == ".packs" || at->is_directory(unknown))
            continue;
        const fs::path name = at->path().lexically_relative(repository);
        see(std::next(name.begin())->string(), name.string());
    }
    return error ? root.string() + ": " + error.message() : "";
}

/// Returns true when all that the repository keeps is of one node.
bool hasOneNode(const fs::path &repository)
{
    std::error_code error;
    const fs::directory_iterator nodes(repository / "nodes", error);
    return !error && std::distance(begin(nodes), end(nodes)) <= 1;
}

} // namespace

void Checkup::lookAtDamage(const std::string &repository)
{
    std::map<std::string, Found> nodes;
    std::string problem =
        visit(repository, "damage",
              [&](const std::string &key, const std::string &) { ++nodes[key].parts; });
    if (problem.empty())
        problem =
            visit(repository, "quarantine", [&](const std::string &key, const std::string &name) {
                Found &found = nodes[key];
                found.first = found.manifests++ == 0 ? name : std::min(found.first, name);
            });
    if (!problem.empty())
        return bad("damage", tools::printable(problem),
                   "Give the directory, with all in it, to the user that the database runs as.");
    if (nodes.empty())
        return good("damage", "no damaged part of a pack is recorded, and no manifest is set "
                              "aside; arca verify looks for more");
    const bool own = hasOneNode(repository);
    const std::string options = own ? tools::printable(options_.clientFile()) : "FILE";
    for (const auto &[key, found] : nodes) {
        std::string cure = fmt::format(
            "Run{}: arca repair --optfile {}",
            own ? "" : " with the option file of the node that arca stats counts it of", options);
        if (found.manifests != 0)
            cure += fmt::format(
                "; what stays set aside is given up with: arca rm --blob {} --optfile {}",
                tools::printable(found.first), options);
        warn("damage",
             fmt::format("{} of packs, {} set aside{}", tools::counted(found.parts, "damaged part"),
                         tools::counted(found.manifests, "damaged manifest"),
                         own ? "" : ", of the node with the key " + tools::printable(key)),
             cure);
    }
}

} // namespace keel
