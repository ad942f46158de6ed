// keel info: shows what the agent knows of pieces.
#include "tools/common/command/streams.h"
#include "tools/common/table.h"
#include "tools/common/text.h"
#include "tools/keel/channel/failure.h"
#include "tools/keel/channel/open_channel.h"
#include "tools/keel/command.h"
#include "tools/keel/stored_length.h"

#include <algorithm>
#include <memory>

#include <fmt/format.h>

namespace keel
{

namespace
{

const char *sharing(const PieceInfo &piece)
{
    return piece.share == 0 ? "-" : piece.share == 2 ? "multiple" : "single";
}

/// The first version of the interface reports no expiry.
Json describe(const PieceInfo &piece, bool firstVersion)
{
    Json object = {{"name", piece.name}, {"found", piece.found}};
    if (!piece.found)
        return object;
    const auto time = [](std::int64_t seconds) {
        return seconds == 0 ? Json(nullptr) : Json(tools::utcTimeText(seconds));
    };
    object["created"] = time(piece.created);
    object["size"] = piece.size ? Json(*piece.size) : Json(nullptr);
    if (!firstVersion)
        object["expires"] = time(piece.expires);
    object["method"] = piece.method == 1 ? "stream" : "proxy";
    if (piece.share != 0)
        object["sharing"] = sharing(piece);
    object["label"] = piece.label;
    object["class"] = piece.managementClass;
    return object;
}

void printTable(const std::vector<PieceInfo> &pieces, bool firstVersion)
{
    tools::Table table({{"NAME"},
                        {"FOUND"},
                        {"CREATED"},
                        {"SIZE"},
                        {"EXPIRES"},
                        {"LABEL"},
                        {"SHARING"},
                        {"CLASS"}});
    for (const PieceInfo &piece : pieces) {
        if (!piece.found)
            table.add({piece.name, "no"});
        else
            table.add({piece.name, "yes",
                       piece.created == 0 ? "-" : tools::localTimeText(piece.created),
                       piece.size ? tools::byteText(static_cast<double>(*piece.size)) : "-",
                       firstVersion         ? "-"
                       : piece.expires == 0 ? "never"
                                            : tools::localTimeText(piece.expires),
                       piece.label, sharing(piece), piece.managementClass});
    }
    tools::print("{}", table.text());
}

int run(const std::vector<std::string> &names, const Command &command, Json &result)
{
    std::vector<PieceInfo> pieces = openChannel(command.channel)->info(names);
    addStoredLengths(command.channel, pieces);
    Json list = Json::array();
    for (const PieceInfo &piece : pieces)
        list.push_back(describe(piece, command.channel.firstVersion));
    result["pieces"] = list;
    if (!command.json)
        printTable(pieces, command.channel.firstVersion);
    const bool allFound = std::ranges::all_of(pieces, &PieceInfo::found);
    return allFound ? kExitDone : kExitFailed;
}

} // namespace

void addInfo(tools::Verb app, Command &command)
{
    const tools::Verb verb = app.addVerb("info", "Tell what is known of backup pieces");
    auto names = std::make_shared<std::vector<std::string>>();
    verb.addOption("NAME", *names, "Names of the pieces").required().valueName("");
    addCommonOptions(verb, command);
    verb.footer("Example: keel info data-monday data-tuesday\n"
                "The size is what is stored: blocks, with what keel added to fill them. A restore "
                "takes blocks that it is a multiple of, and needs no --block-size: which one the "
                "piece was stored with only its end tells, which no question reads.\n"
                "Status 0: all of them are there; 1: one is missing, or the question failed.");
    verb.onChosen([names, &command] {
        command.verb = "info";
        command.subject = subjectOf(*names);
        command.run = [names, &command](Json &result) { return run(*names, command, result); };
    });
}

} // namespace keel
