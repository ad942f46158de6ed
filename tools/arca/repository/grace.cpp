// arca grace: how long removed pieces of the repository are kept, shown and set.
#include "tools/arca/repository/grace.h"

#include "client/base/text.h"
#include "client/store/marks/grace.h"
#include "tools/arca/node_session.h"
#include "tools/common/command/streams.h"
#include "tools/common/text.h"

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

struct Unit {
    char letter;
    std::int64_t seconds;
    const char *name;
};
constexpr Unit kUnits[] = {{'w', 7 * 86400, "week"},
                           {'d', 86400, "day"},
                           {'h', 3600, "hour"},
                           {'m', 60, "minute"},
                           {'s', 1, "second"}};

struct Asked {
    std::string time;
    bool fromStandardInput = false;
};

Result<void> perform(const Command &command, const Asked &asked, Json &result)
{
    std::int64_t wanted = 0;
    if (!asked.time.empty())
        wanted = graceFrom(asked.time, "the grace time");
    ARCA_TRY(const NodeSession session, logOn(command, asked.fromStandardInput, result));
    if (!session.space->keepsRemoved())
        return Error{ErrorKind::olderFormat,
                     "the repository has the layout of an older release: what is removed there "
                     "cannot be brought back"};
    store::GraceTime grace = session.repository->grace();
    if (!asked.time.empty())
        ARCA_CHECK(grace.write(wanted));
    ARCA_TRY(const std::int64_t seconds, grace.read());
    result["graceSeconds"] = seconds;
    if (!command.json)
        tools::print("Removed pieces of every node are kept for {}\n", graceText(seconds));
    return {};
}

} // namespace

std::int64_t graceFrom(const std::string &text, const std::string &option)
{
    const UsageError wrong(option +
                           " is a time such as 12h, 7d or 4w, or 0 for none, at most 100 "
                           "years, not '" +
                           printable(text, 40) + "'");
    if (text == "0")
        return 0;
    const std::string digits = text.substr(0, text.empty() ? 0 : text.size() - 1);
    if (digits.empty() || digits.size() > 10 ||
        digits.find_first_not_of("0123456789") != std::string::npos)
        throw wrong;
    for (const Unit &unit : kUnits)
        if (unit.letter == text.back()) {
            const std::int64_t seconds = std::stoll(digits) * unit.seconds;
            if (seconds > store::kMaxGrace)
                throw wrong;
            return seconds;
        }
    throw wrong;
}

std::string graceText(std::int64_t seconds)
{
    for (const Unit &unit : kUnits)
        if (seconds != 0 && seconds % unit.seconds == 0 && unit.letter != 'w') {
            return tools::counted(static_cast<std::uint64_t>(seconds / unit.seconds), unit.name);
        }
    return "no time: the next arca reclaim of a node frees their space";
}

void addGrace(tools::Verb app, Command &command)
{
    const tools::Verb verb = app.addVerb("grace", "Show or set how long removed pieces are kept");
    const auto asked = std::make_shared<Asked>();
    verb.addOption("TIME", asked->time, "The new time, for all nodes: 12h, 7d, 4w; 0: none");
    addCommonOptions(verb, command);
    addPasswordOption(verb, asked->fromStandardInput);
    verb.footer(
        "Example: arca grace 14d --optfile /etc/arca/main.opt\n"
        "Until the time is over arca undelete brings a removed piece back. A repository "
        "begins with 7 days. It is about the whole repository: every node has the same time, "
        "each may set it, and ASNODE changes nothing.");
    verb.onChosen([&command, asked] {
        command.verb = "grace";
        command.run = [&command, asked](Json &result) { return perform(command, *asked, result); };
    });
}

} // namespace arca::tool
