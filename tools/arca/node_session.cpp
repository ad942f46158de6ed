// Logging on: see the header.
#include "tools/arca/node_session.h"

#include "agents/common/maint/mttiming.h"
#include "client/base/crypto/hash.h"
#include "client/base/text.h"
#include "client/config/cache_place.h"
#include "client/config/node_keys.h"
#include "tools/arca/secrets.h"
#include "tools/common/command/streams.h"

#include <optional>

namespace arca::tool
{

namespace
{

Result<store::NodeKeys> prove(const config::Options &options, store::Repository &repository,
                              const std::string &node, bool fromStandardInput)
{
    std::optional<store::NodeKeys> keys;
    if (options.passwordAccess == config::PasswordAccess::prompt) {
        ARCA_TRY(std::string typed, password(node, fromStandardInput));
        auto proved = repository.authenticate(node, typed);
        wipe(typed);
        return proved;
    }
    ARCA_TRY(std::string kept,
             config::NodeKeys(options.file)
                 .find(repository.uuid(), node, [&](const std::string &one) -> Result<void> {
                     ARCA_TRY(keys, repository.authenticate(node, one));
                     return {};
                 }));
    wipe(kept);
    return std::move(*keys);
}

} // namespace

Result<NodeSession> logOn(const Command &command, bool passwordFromStandardInput, Json &result)
{
    const mtTimed timed(MT_TIME_CLIENT);
    ARCA_TRY(const config::Options options, optionsOf(command));
    ARCA_TRY(const std::string node, config::nodeNameFor(options));
    NodeSession session;
    ARCA_TRY(session.repository, store::Repository::open(options.repository));
    session.repository->use(
        config::cacheFor(options, session.repository->uuid(), session.repository->shownName()));
    result["repository"] = session.repository->shownName();
    result["node"] = node;
    ARCA_TRY(store::NodeKeys keys,
             prove(options, *session.repository, node, passwordFromStandardInput));
    if (!keys.proven)
        tools::complain("arca: " + store::unprovenText(node) + "\n");
    ARCA_TRY(session.space,
             session.repository->spaceOf(node, std::move(keys.data), keys.incarnation));
    session.space->use(options.engine);
    return session;
}

void addPasswordOption(tools::Verb verb, bool &fromStandardInput)
{
    verb.addFlag("--stdin", fromStandardInput,
                 "Read the node's password from standard input, with PASSWORDACCESS prompt");
}

} // namespace arca::tool
