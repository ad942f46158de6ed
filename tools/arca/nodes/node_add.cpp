// arca node add: registers a node for another host.
#include "client/config/node_keys.h"
#include "tools/arca/nodes/node_verbs.h"
#include "tools/arca/nodes/registration.h"

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

struct Asked {
    std::string node;
    bool fromStandardInput = false;
};

Result<void> add(const Command &command, const Asked &asked, Json &result)
{
    if (asked.node.empty() || asked.node.size() > config::kMaxNodeName)
        throw UsageError(fmt::format("a node name has 1 to {} characters", config::kMaxNodeName));
    ARCA_TRY(const config::Options options, optionsOf(command));
    ARCA_TRY(const auto repository, store::Repository::open(options.repository));
    ARCA_TRY(const bool now,
             registerNode(*repository, options, asked.node, asked.fromStandardInput));
    result["repository"] = repository->shownName();
    result["node"] = asked.node;
    result["registered"] = now;
    if (options.passwordAccess == config::PasswordAccess::generate)
        result["passwordFile"] = config::NodeKeys(options.file).path();
    if (!command.json)
        showRegistration(options, asked.node, now);
    return {};
}

} // namespace

void addNodeAdd(tools::Verb verb, Command &command)
{
    const tools::Verb inner = verb.addVerb("add", "Register a node, to be used on another host");
    auto asked = std::make_shared<Asked>();
    inner.addOption("NODE", asked->node, "Name of the node").required();
    inner.addFlag("--stdin", asked->fromStandardInput,
                  "With PASSWORDACCESS prompt: read the new password from standard input");
    addCommonOptions(inner, command);
    inner.footer("Example: arca node add dbhost2\n"
                 "arca key export dbhost2 carries its password to the other host. On a host that "
                 "can reach the repository itself, arca init there does both.");
    inner.onChosen([&command, asked] {
        command.verb = "node add";
        command.run = [&command, asked](Json &result) { return add(command, *asked, result); };
    });
}

} // namespace arca::tool
