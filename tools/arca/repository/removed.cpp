// arca ls --removed: what can be brought back, and until when.
#include "tools/arca/repository/removed.h"

#include "client/base/text.h"
#include "client/store/marks/grace.h"
#include "tools/arca/moment.h"
#include "tools/arca/node_session.h"
#include "tools/arca/object_text.h"
#include "tools/arca/piece_name.h"
#include "tools/common/command/streams.h"
#include "tools/common/text.h"

#include <ctime>

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

/// In seconds; nothing when its record cannot be read.
using Grace = std::optional<std::int64_t>;

Json jsonOf(const store::RemovedPiece &piece, Grace grace)
{
    const store::PieceInfo &info = piece.info;
    return {{"piece", pieceOf(info.description.name)},
            {"filespace", info.description.name.filespace},
            {"id", idText(info.id)},
            {"active", info.isActive()},
            {"size", info.totals.streamBytes},
            {"stored", tools::utcTimeText(info.insertedAt)},
            {"removed", tools::utcTimeText(piece.removedAt)},
            {"keptUntil", grace ? Json(tools::utcTimeText(piece.removedAt + *grace)) : Json()}};
}

std::string leftText(std::int64_t seconds)
{
    return seconds <= 0 ? "over" : ageText(seconds);
}

void print(const store::RemovedPiece &piece, Grace grace)
{
    const store::PieceInfo &info = piece.info;
    const std::int64_t now = std::time(nullptr);
    tools::print("{}  {:>10}  {:>8}  {:>8}  {}{}\n", idText(info.id),
                 sizeText(info.totals.streamBytes), ageText(now - piece.removedAt),
                 grace ? leftText(piece.removedAt + *grace - now) : "unknown",
                 printable(pieceOf(info.description.name), 1300),
                 info.isActive() ? "" : "  (inactive)");
}

} // namespace

std::string pieceOf(const store::ObjectName &name)
{
    return name.highLevel == "/" && name.lowLevel.starts_with("/") ? name.lowLevel.substr(1)
                                                                   : name.joined();
}

bool isMeant(const store::ObjectName &name, const std::string &pattern)
{
    if (pattern.empty())
        return true;
    const bool whole = !typedName(pattern).filespace.empty();
    return matchesPattern(whole ? name.joined() : pieceOf(name), pattern);
}

Result<void> listRemoved(const Command &command, const std::string &pattern, bool fromStandardInput,
                         Json &result)
{
    ARCA_TRY(const NodeSession session, logOn(command, fromStandardInput, result));
    const auto kept = session.repository->grace().read();
    if (!kept && kept.error().kind != ErrorKind::damaged)
        return kept.error();
    const Grace grace = kept ? Grace(*kept) : Grace();
    Json &objects = result["objects"] = Json::array();
    std::uint64_t count = 0, size = 0;
    ARCA_CHECK(session.space->visitRemoved([&](const store::RemovedPiece &piece) {
        if (!isMeant(piece.info.description.name, pattern))
            return true;
        if (command.json)
            objects.push_back(jsonOf(piece, grace));
        else if (count == 0)
            tools::print("{:<16}  {:>10}  {:>8}  {:>8}  {}\n", "Identifier", "Size", "Removed",
                         "Kept for", "Piece");
        if (!command.json)
            print(piece, grace);
        ++count;
        size += piece.info.totals.streamBytes;
        return true;
    }));
    result["count"] = count;
    result["size"] = size;
    result["graceSeconds"] = grace ? Json(*grace) : Json();
    if (count == 0 && !pattern.empty())
        return Error{ErrorKind::notFound, "no removed piece matches " + printable(pattern, 1300)};
    if (!command.json)
        tools::print("{}, {}\n", tools::counted(count, "removed piece"), sizeText(size));
    if (!kept)
        return Error{ErrorKind::damaged,
                     kept.error().text +
                         "; nothing is purged by its time until arca grace sets it again"};
    return {};
}

} // namespace arca::tool
