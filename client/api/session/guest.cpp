// Sessions for another node's objects: see the header.
#include "client/api/session/guest.h"

#include "client/base/text.h"
#include "client/store/nodes/access.h"

namespace arca::api
{

Answer<void> expectOwnObjects(const Session &session)
{
    if (session.isGuest())
        return refused(HOX_RC_ACCESS_DENIED, "node " + printable(session.node) +
                                                 " may only find and read what node " +
                                                 printable(session.space->node()) + " granted it");
    return {};
}

Answer<bool> mayRead(Session &session, const store::ObjectName &name)
{
    ARCA_CHECK(refreshGranted(session));
    return session.granted.covers(name);
}

Answer<void> refreshGranted(Session &session)
{
    if (!session.isGuest())
        return {};
    ARCA_TRY(auto known, store::AccessRules::of(session.repository->blobs(), session.space->node(),
                                                session.space->incarnation()));
    // The state is taken before the rules are read: what changes in between differs from it, and is
    // read the next time.
    auto now = known.state();
    if (now && session.rulesSeen == *now)
        return {};
    session.granted = Granted(std::vector<store::AccessRule>());
    session.rulesSeen.reset();
    ARCA_CHECK(now);
    ARCA_TRY(auto rules, known.list(session.space->dataKey()));
    std::erase_if(rules, [&](const store::AccessRule &rule) {
        return !rule.admits(session.node, session.owner);
    });
    session.granted = Granted(std::move(rules));
    session.rulesSeen = std::move(*now);
    return {};
}

Answer<Admitted> admittedKey(store::Repository &repository, const std::string &grantor,
                             const std::string &node, const std::string &owner,
                             const SecretKey &identity)
{
    ARCA_TRY(auto known, store::AccessRules::of(repository.blobs(), grantor));
    ARCA_TRY(SecretKey key, known.keyFor(node, owner, identity));
    return Admitted{std::move(key), known.incarnation()};
}

} // namespace arca::api
