// arca node remove: removes a node and everything that it keeps from the repository, for good.
#include "client/base/text.h"
#include "client/config/cache_place.h"
#include "client/config/node_keys.h"
#include "client/store/nodes/node_list.h"
#include "client/store/nodes/node_removal.h"
#include "client/store/nodes/repository.h"
#include "tools/arca/interrupt.h"
#include "tools/arca/nodes/node_verbs.h"
#include "tools/common/command/streams.h"
#include "tools/common/progress.h"
#include "tools/common/text.h"

#include <filesystem>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace arca::tool
{

namespace
{

struct Asked {
    std::string node;
    bool yes = false;
};

/// Of a NodeSummary, or of a NodeRemoval.
template <class Content> std::string contentText(const Content &node)
{
    return fmt::format("{}, {}, {} and {}", tools::counted(node.pieces, "piece"),
                       tools::counted(node.inactive, "inactive version"),
                       tools::counted(node.removed, "removed piece"),
                       tools::counted(node.packs, "pack"));
}

std::string question(const store::NodeSummary &node)
{
    return fmt::format(
        "Node {} goes for good with its keys, {}{}{}.\nNobody can bring that back. Remove it?",
        printable(node.name), contentText(node), node.filespaces.empty() ? "" : " of ",
        printable(fmt::format("{}", fmt::join(node.filespaces, ", "))));
}

/// Removes this host's caches of the node. What cannot be removed is harmless.
void removeCache(const std::string &directory, const std::string &key)
{
    std::error_code error;
    if (directory.empty())
        return;
    for (std::filesystem::directory_iterator at(directory, error), end; !error && at != end;
         at.increment(error)) {
        std::error_code unused;
        if (at->path().filename().string().find(key) != std::string::npos)
            std::filesystem::remove(at->path(), unused);
    }
}

Result<store::NodeRemoval> sweep(blob::BlobStore &blobs, const store::NodeSummary &node,
                                 const store::NodeSummary *shown)
{
    tools::Progress progress("Removing " + node.name);
    const std::uint64_t planned = node.pieces + node.inactive + node.packs;
    catchInterrupts();
    const auto step = [&](std::uint64_t removed) {
        progress.show(removed, planned, 0);
        return !interrupted();
    };
    return store::removeNode(blobs, node.name, step, shown);
}

Result<void> remove(const Command &command, const Asked &asked, Json &result)
{
    ARCA_TRY(const config::Options options, optionsOf(command));
    ARCA_TRY(const auto repository, store::Repository::open(options.repository));
    const HostCache cache = config::cacheFor(options, repository->uuid(), repository->shownName());
    result["repository"] = repository->shownName();
    result["node"] = asked.node;
    ARCA_TRY(const auto node, store::summaryOf(repository->blobs(), asked.node));
    ARCA_CHECK(confirm(question(node), asked.yes));
    ARCA_TRY(const store::NodeRemoval removal,
             sweep(repository->blobs(), node, asked.yes ? nullptr : &node));
    if (!removal.all)
        return interruption("the node is gone, the rest of what it kept goes when you run this "
                            "again");
    removeCache(cache.directory(), node.key);
    auto nodes = repository->nodes();
    const auto holds = [&](const std::string &password) -> Result<void> {
        ARCA_CHECK(nodes.authenticate(asked.node, password));
        return {};
    };
    ARCA_CHECK(config::NodeKeys(options.file).forget(repository->uuid(), asked.node, holds));
    result["pieces"] = removal.pieces;
    result["inactive"] = removal.inactive;
    result["removed"] = removal.removed;
    result["packs"] = removal.packs;
    if (!command.json)
        tools::print("Node {} removed, with {}\n", printable(asked.node), contentText(removal));
    return {};
}

} // namespace

void addNodeRemove(tools::Verb verb, Command &command)
{
    const tools::Verb inner =
        verb.addVerb("remove", "Remove a node for good, with all that it keeps");
    auto asked = std::make_shared<Asked>();
    inner.addOption("NODE", asked->node, "Name of the node").required();
    addYesOption(inner, asked->yes);
    addCommonOptions(inner, command);
    inner.footer("Example: arca node remove dbhost9\n"
                 "An interrupted removal is finished by running it again; until then nothing of "
                 "the node shows, and its name cannot be used.");
    inner.onChosen([&command, asked] {
        command.verb = "node remove";
        command.run = [&command, asked](Json &result) { return remove(command, *asked, result); };
    });
}

} // namespace arca::tool
