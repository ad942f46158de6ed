// keel doctor: looks the installation over.
#include "tools/common/command/streams.h"
#include "tools/keel/channel/failure.h"
#include "tools/keel/command.h"
#include "tools/keel/doctor/checkup.h"

#include <cstdio>

#include <fmt/format.h>

namespace keel
{

namespace
{

const char *nameOf(Health health)
{
    return health == Health::ok ? "ok" : health == Health::warning ? "warning" : "failed";
}

int run(const Command &command, Json &result)
{
    std::size_t failed = 0;
    Json &checks = result["checks"] = Json::array();
    const auto tell = [&](const Finding &finding) {
        failed += finding.health == Health::failed ? 1 : 0;
        Json line = {
            {"check", finding.check}, {"status", nameOf(finding.health)}, {"text", finding.text}};
        if (!finding.cure.empty())
            line["cure"] = finding.cure;
        checks.push_back(std::move(line));
        if (command.json)
            return;
        tools::print("{:<8} {:<11} {}\n", nameOf(finding.health), finding.check, finding.text);
        if (!finding.cure.empty())
            tools::print("{:<20} {}\n", "", finding.cure);
        std::fflush(stdout);
    };
    Checkup(command.channel, tell).run();
    if (failed != 0)
        throw Failure(fmt::format("{} of {} checks failed", failed, checks.size()));
    return kExitDone;
}

} // namespace

void addDoctor(tools::Verb app, Command &command)
{
    const tools::Verb verb =
        app.addVerb("doctor", "Look the installation over, and say what to do about what is wrong");
    addCommonOptions(verb, command);
    verb.footer(
        "Example: keel doctor --optfile /etc/keel/velo.opt\n"
        "Run it as the user that the database runs as, with the environment that the channel has.\n"
        "At the end a tiny piece is stored, read back and removed. Status 1 when anything failed.");
    verb.onChosen([&command] {
        command.verb = "doctor";
        command.run = [&command](Json &result) { return run(command, result); };
    });
}

} // namespace keel
