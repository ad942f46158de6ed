// arca node list: the nodes of the repository and what they keep.
#include "client/store/nodes/node_list.h"
#include "client/store/nodes/repository.h"
#include "tools/arca/nodes/node_verbs.h"
#include "tools/common/command/streams.h"
#include "tools/common/table.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace arca::tool
{

namespace
{

Json jsonOf(const store::NodeSummary &node)
{
    return {{"node", node.name},
            {"registered", node.registered},
            {"filespaces", node.filespaces},
            {"pieces", node.pieces},
            {"inactive", node.inactive},
            {"removed", node.removed},
            {"packs", node.packs},
            {"damagedRecords", node.damagedRecords}};
}

Result<void> list(const Command &command, Json &result)
{
    ARCA_TRY(const config::Options options, optionsOf(command));
    ARCA_TRY(const auto repository, store::Repository::open(options.repository));
    result["repository"] = repository->shownName();
    ARCA_TRY(const auto nodes, store::listNodes(repository->blobs()));
    using tools::Align;
    tools::Table table({{"Node"},
                        {"Pieces", Align::kRight},
                        {"Inactive", Align::kRight},
                        {"Removed", Align::kRight},
                        {"Packs", Align::kRight},
                        {"Filespaces"}});
    Json &shown = result["nodes"] = Json::array();
    for (const store::NodeSummary &node : nodes) {
        shown.push_back(jsonOf(node));
        std::string told = node.registered
                               ? fmt::format("{}", fmt::join(node.filespaces, " "))
                               : "its removal is not finished: arca node remove " + node.name;
        if (node.damagedRecords != 0)
            told +=
                fmt::format("{}({} of its records {} damaged: that node's arca verify tells more)",
                            told.empty() ? "" : " ", node.damagedRecords,
                            node.damagedRecords == 1 ? "is" : "are");
        table.add({node.name.empty() ? "(unknown)" : node.name, std::to_string(node.pieces),
                   std::to_string(node.inactive), std::to_string(node.removed),
                   std::to_string(node.packs), told});
    }
    if (!command.json)
        tools::print("{}", table.text());
    return {};
}

} // namespace

void addNodeList(tools::Verb verb, Command &command)
{
    const tools::Verb inner = verb.addVerb("list", "Show the nodes, and how much each keeps");
    addCommonOptions(inner, command);
    inner.footer("Example: arca node list --json");
    inner.onChosen([&command] {
        command.verb = "node list";
        command.run = [&command](Json &result) { return list(command, result); };
    });
}

} // namespace arca::tool
