// keel remove: deletes pieces.
#include "agents/common/maint/mtprompt.h"
#include "agents/oracle/common/sbt.h"
#include "tools/common/text.h"
#include "tools/keel/channel/failure.h"
#include "tools/keel/channel/open_channel.h"
#include "tools/keel/command.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <unistd.h>

#include <fmt/format.h>

namespace keel
{

namespace
{

struct Remove {
    std::vector<std::string> names;
    bool yes = false;
};

/// A script has to give --yes: what it removes must not depend on what its standard input holds.
bool confirmed(const Remove &remove)
{
    if (remove.yes)
        return true;
    const std::string question =
        fmt::format("Remove {}{}?", tools::printable(remove.names.front()),
                    remove.names.size() > 1 ? fmt::format(" and {} more", remove.names.size() - 1)
                                            : std::string());
    bool yes = false;
    mtAsk_t code = MT_ASK_NO_TERMINAL;
    if (::isatty(STDIN_FILENO) == 1)
        code = mtAskYesNo(question.c_str(), false, mtAskFrom::terminal, yes);
    if (code == MT_ASK_NO_TERMINAL)
        throw UsageError("nobody is there to be asked; --yes removes without asking");
    if (code != MT_ASK_OK)
        throw Failure(fmt::format("nothing was removed: {}", mtAskText(code)));
    return yes;
}

/// Asks for one piece: a damaged one would end the question for all. Such a piece is there, and
/// removing it sets it aside.
bool isThere(Channel &channel, const std::string &name)
{
    constexpr std::uint32_t kDamaged = 2105;
    try {
        return channel.info({name}).front().found;
    } catch (const Failure &failure) {
        if (failure.reason() != kDamaged)
            throw;
        return true;
    }
}

/// The agent passes over pieces that it cannot find or delete and returns success, so each is asked
/// for before and after.
int run(const Remove &remove, const Command &command, Json &result)
{
    if (!confirmed(remove))
        throw Failure("nothing was removed");
    const auto channel = openChannel(command.channel);
    std::vector<std::string> present, missing, removed, remaining;
    for (const std::string &name : remove.names)
        (isThere(*channel, name) ? present : missing).push_back(name);
    std::optional<Failure> refused;
    try {
        if (!present.empty())
            channel->remove(present);
    } catch (const Failure &failure) {
        refused = failure; // what was removed all the same is told
    }
    for (const std::string &name : present)
        (isThere(*channel, name) ? remaining : removed).push_back(name);
    result["removed"] = removed;
    result["missing"] = missing;
    result["remaining"] = remaining;
    if (refused)
        throw Failure(*refused);
    if (!remaining.empty())
        throw Failure(fmt::format("{} is still there; veloerror.log tells more",
                                  tools::printable(remaining.front())),
                      SBT_FAILED);
    if (!missing.empty())
        throw Failure(fmt::format("there is no piece {}", tools::printable(missing.front())),
                      SBT_NOT_FOUND);
    return kExitDone;
}

} // namespace

void addRemove(tools::Verb app, Command &command)
{
    const tools::Verb verb = app.addVerb("remove", "Delete backup pieces");
    auto remove = std::make_shared<Remove>();
    verb.addOption("NAME", remove->names, "Names of the pieces").required().valueName("");
    verb.addFlag("--yes,-y", remove->yes, "Do not ask");
    addCommonOptions(verb, command);
    verb.footer(
        "Example: keel remove data-monday --yes\n"
        "Pieces that are there are removed even when others are missing; then the status is 1. A "
        "damaged piece is set aside: its name is free, and what is left of it is kept in the "
        "repository's quarantine. The calls of --sbt1 refuse such a piece.");
    verb.onChosen([remove, &command] {
        std::ranges::sort(remove->names); // to drop names that were given twice
        const auto again = std::ranges::unique(remove->names);
        remove->names.erase(again.begin(), again.end());
        command.verb = "remove";
        command.subject = subjectOf(remove->names);
        command.run = [remove, &command](Json &result) { return run(*remove, command, result); };
    });
}

} // namespace keel
