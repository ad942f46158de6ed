// arca rm --blob: see the header.
#include "tools/arca/repository/rm_blob.h"

#include "client/base/text.h"
#include "client/store/listing/named_pieces.h"
#include "client/store/upkeep/blob_removal.h"
#include "tools/arca/each_once.h"
#include "tools/arca/node_session.h"
#include "tools/common/command/streams.h"

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

std::string fateText(const store::BlobRemoval &removal)
{
    if (removal.fate == store::BlobFate::setAside)
        return "is set aside: its name is free, and it is kept in the quarantine";
    return "is deleted for good" + (removal.goesWith.empty() ? "" : "; " + removal.goesWith);
}

Json jsonOf(const std::string &name, const store::BlobRemoval &removal)
{
    return {{"name", name},
            {"keptAs", removal.now.empty() ? Json(nullptr) : Json(removal.now)},
            {"goesWith", removal.goesWith},
            {"pieces", removal.pieces}};
}

/// Returns the one damaged piece that the filter names: its name may be in use in several
/// filespaces.
Result<store::ObjectName> damagedPiece(store::NodeSpace &space, const mtFilter_t &filter)
{
    ARCA_TRY(const auto names,
             store::literalNames(space, filter.fsName, filter.hlName, filter.llName));
    if (!names)
        return Error{ErrorKind::damaged, "the record of a filespace is damaged, so --filespace "
                                         "must say where the piece is"};
    std::vector<store::ObjectName> damaged;
    std::string told;
    for (const store::ObjectName &name : *names) {
        const auto found = space.find(name);
        if (found || found.error().kind != ErrorKind::damaged)
            continue;
        damaged.push_back(name);
        told += (told.empty() ? "" : ", ") + name.filespace;
    }
    if (damaged.empty())
        return Error{ErrorKind::notFound, "no piece of that name is damaged by now"};
    if (damaged.size() > 1)
        return Error{ErrorKind::badArgument, "pieces of that name are damaged in " +
                                                 printable(told, 400) +
                                                 "; --filespace says which is meant"};
    return damaged.front();
}

} // namespace

Result<void> removeBlobs(const Command &command, const BlobRequest &request, Json &result)
{
    ARCA_TRY(const NodeSession session, logOn(command, request.fromStandardInput, result));
    std::string question;
    std::vector<store::BlobRemoval> fates;
    Json &blobs = result["blobs"] = Json::array();
    const std::vector<std::string> names = eachOnce(request.names);
    for (const std::string &name : names) {
        ARCA_TRY(fates.emplace_back(), store::fateOfBlob(*session.space, name));
        question += fmt::format("{} {}.\n", printable(name, 400), fateText(fates.back()));
        if (request.dryRun)
            blobs.push_back(jsonOf(name, fates.back()));
    }
    result["dryRun"] = request.dryRun;
    if (request.dryRun) {
        if (!command.json)
            tools::print("Would be:\n{}", question);
        return {};
    }
    ARCA_CHECK(confirm(question + "Go on?", request.yes));
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::string &name = names[i];
        ARCA_TRY(const store::BlobRemoval done, store::removeBlob(*session.space, name));
        store::BlobRemoval &removal = fates[i];
        removal.fate = done.fate;
        removal.now = done.now;
        blobs.push_back(jsonOf(name, removal));
        if (!command.json)
            tools::print("{} {}\n", printable(name, 400),
                         done.fate == store::BlobFate::setAside ? "is kept as " + done.now
                                                                : fateText(removal));
    }
    return {};
}

Result<void> removeDamagedPiece(const Command &command, const Selection &selection,
                                const BlobRequest &request, Json &result)
{
    const mtFilter_t filter = filterFrom(selection);
    ARCA_TRY(const NodeSession session, logOn(command, request.fromStandardInput, result));
    ARCA_TRY(const store::ObjectName name, damagedPiece(*session.space, filter));
    const std::string shown = printable(name.joined(), 400);
    if (!request.dryRun)
        ARCA_CHECK(confirm(shown + " is damaged. It is set aside: its name is free, and what is "
                                   "left of it is kept in the quarantine. Go on?",
                           request.yes));
    result["dryRun"] = request.dryRun;
    if (request.dryRun) {
        if (!command.json)
            tools::print("Would be: {} is set aside\n", shown);
        return {};
    }
    ARCA_TRY(const std::string now, session.space->setAside(name));
    result["keptAs"] = now;
    if (!command.json)
        tools::print("{} is set aside as {}\n", shown, now);
    return {};
}

} // namespace arca::tool
