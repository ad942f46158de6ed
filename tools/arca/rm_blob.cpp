// arca rm --blob: see the header.
#include "tools/arca/rm_blob.h"

#include "client/base/text.h"
#include "client/store/blob_removal.h"
#include "tools/arca/node_session.h"
#include "tools/arca/piece_name.h"

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

std::string fateText(store::BlobFate fate)
{
    return fate == store::BlobFate::setAside
               ? "is set aside: its name is free, and it is kept in the quarantine"
               : "is deleted for good";
}

} // namespace

Result<void> removeBlobs(const Command &command, const BlobRequest &request, Json &result)
{
    ARCA_TRY(const NodeSession session, logOn(command, request.fromStandardInput, result));
    std::string question;
    for (const std::string &name : request.names) {
        ARCA_TRY(const store::BlobFate fate, store::fateOfBlob(*session.space, name));
        question += fmt::format("{} {}.\n", printable(name, 400), fateText(fate));
    }
    result["dryRun"] = request.dryRun;
    if (request.dryRun) {
        if (!command.json)
            fmt::print("Would be:\n{}", question);
        return {};
    }
    ARCA_CHECK(confirm(question + "Go on?", request.yes));
    Json &blobs = result["blobs"] = Json::array();
    for (const std::string &name : request.names) {
        ARCA_TRY(const store::BlobRemoval removal, store::removeBlob(*session.space, name));
        const bool kept = removal.fate == store::BlobFate::setAside;
        blobs.push_back({{"name", name}, {"keptAs", kept ? Json(removal.now) : Json(nullptr)}});
        if (!command.json)
            fmt::print("{} {}\n", printable(name, 400),
                       kept ? "is kept as " + removal.now : "is deleted");
    }
    return {};
}

Result<void> removeDamagedPiece(const Command &command, const std::string &filespace,
                                const std::string &piece, const BlobRequest &request, Json &result)
{
    ARCA_TRY(const hoxObjName asked,
             objectName(filespace.empty() ? kAgentFilespace : filespace, piece));
    ARCA_TRY(const NodeSession session, logOn(command, request.fromStandardInput, result));
    const store::ObjectName name{asked.fsName, asked.hlName, asked.llName};
    const std::string shown = printable(name.joined(), 400);
    if (!request.dryRun)
        ARCA_CHECK(confirm(shown + " is damaged. It is set aside: its name is free, and what is "
                                   "left of it is kept in the quarantine. Go on?",
                           request.yes));
    result["dryRun"] = request.dryRun;
    if (request.dryRun) {
        if (!command.json)
            fmt::print("Would be: {} is set aside\n", shown);
        return {};
    }
    ARCA_TRY(const std::string now, session.space->setAside(name));
    result["keptAs"] = now;
    if (!command.json)
        fmt::print("{} is set aside as {}\n", shown, now);
    return {};
}

} // namespace arca::tool
