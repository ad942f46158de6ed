// arca undelete: brings a removed piece back before its grace time is over.
#include "client/base/text.h"
#include "tools/arca/node_session.h"
#include "tools/arca/object_text.h"
#include "tools/arca/repository/removed.h"
#include "tools/common/command/streams.h"

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

struct Asked {
    std::string name, id;
    bool fromStandardInput = false;
};

/// Returns the removed piece of that name; of several, the one that was removed last, and of those
/// removed in the same second the one that was stored last.
Result<store::PieceId> lastRemoved(store::NodeSpace &space, const std::string &name)
{
    const auto when = [](const store::RemovedPiece &piece) {
        return std::pair(piece.removedAt, piece.info.insertedAt);
    };
    std::optional<store::RemovedPiece> last;
    bool equal = false; // another one has the same moments
    ARCA_CHECK(space.visitRemoved([&](const store::RemovedPiece &piece) {
        const store::ObjectName &its = piece.info.description.name;
        if (pieceOf(its) != name && its.joined() != name)
            return true;
        const bool later = !last || when(*last) < when(piece);
        equal = !later && (equal || when(*last) == when(piece));
        if (later)
            last = piece;
        return true;
    }));
    if (!last)
        return Error{ErrorKind::notFound,
                     "no removed piece is called " + printable(name, 1300) +
                         " (arca ls --removed shows those that can be brought back)"};
    if (equal)
        return Error{ErrorKind::badArgument,
                     "several pieces called " + printable(name, 1300) +
                         " were stored in one second and removed in one, and the last is not known "
                         "apart; take one by --id (arca ls --removed)"};
    return last->info.id;
}

Result<void> perform(const Command &command, const Asked &asked, Json &result)
{
    if (asked.id.empty() == asked.name.empty())
        throw UsageError("it takes a NAME or --id, one of the two");
    store::PieceId id = 0;
    if (!asked.id.empty())
        id = idFrom(asked.id);
    ARCA_TRY(const NodeSession session, logOn(command, asked.fromStandardInput, result));
    if (asked.id.empty()) {
        ARCA_TRY(id, lastRemoved(*session.space, asked.name));
    }
    ARCA_TRY(const store::PieceInfo back, session.space->undelete(id));
    result["piece"] = pieceOf(back.description.name);
    result["filespace"] = back.description.name.filespace;
    result["id"] = idText(back.id);
    result["formerId"] = idText(id);
    result["active"] = back.isActive();
    if (!command.json)
        tools::print("{} is back{}, {}\n", printable(pieceOf(back.description.name), 1300),
                     back.isActive() ? "" : " as the inactive version " + idText(back.id),
                     sizeText(back.totals.streamBytes));
    return {};
}

} // namespace

void addUndelete(tools::Verb app, Command &command)
{
    const tools::Verb verb = app.addVerb("undelete", "Bring a removed piece back");
    const auto asked = std::make_shared<Asked>();
    verb.addOption("NAME", asked->name,
                   "What the piece was called; of several the last to be removed");
    verb.addOption("--id", asked->id, "By identifier, as arca ls --removed shows it")
        .valueName("ID");
    addCommonOptions(verb, command);
    addPasswordOption(verb, asked->fromStandardInput);
    verb.footer("Example: arca undelete df_12_1 --optfile /etc/arca/main.opt\n"
                "The piece has another identifier then, and the old one leads to it. A name that "
                "is in use again is an error; a piece that was inactive comes back inactive.\n"
                "It is about what NODENAME keeps itself; ASNODE changes nothing.");
    verb.onChosen([&command, asked] {
        command.verb = "undelete";
        command.run = [&command, asked](Json &result) { return perform(command, *asked, result); };
    });
}

} // namespace arca::tool
