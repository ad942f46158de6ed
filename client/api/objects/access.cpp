// Access for other nodes: granting it, showing what was granted, taking it back.
#include "client/store/nodes/access.h"
#include "client/api/objects/filespace_check.h"
#include "client/api/session/client.h"
#include "client/api/session/guest.h"
#include "client/api/session/records.h"

using namespace arca;
using namespace arca::api;

namespace
{

Answer<store::AccessRule> ruleFrom(Session &session, const hoxObjName *name, const char *nodeName,
                                   const char *ownerName)
{
    store::AccessRule rule;
    ARCA_TRY(rule.name, objectNameOf(name));
    if (nodeName == nullptr)
        return refused(HOX_RC_NULL_ARGUMENT, "the node name is null");
    ARCA_TRY(rule.node,
             pointerText(nodeName, HOX_MAX_NODE_NAME, "the node name", HOX_RC_NODE_NAME_TOO_LONG));
    ARCA_TRY(rule.owner, pointerText(ownerName, HOX_MAX_OWNER_NAME, "the owner name"));
    if (rule.node.empty())
        return refused(HOX_RC_BAD_ARGUMENT, "the node name is empty");
    if (rule.node == session.node)
        return refused(HOX_RC_BAD_ARGUMENT,
                       "a node may read its own pieces anyway; access is for another one");
    ARCA_CHECK(expectFilespace(session, rule.name.filespace));
    return rule;
}

/// Returns the rules of the session's node. Errors: HOX_RC_ACCESS_DENIED in a session for another
/// node's objects.
Answer<store::AccessRules> ownRules(Session &session)
{
    ARCA_CHECK(expectOwnObjects(session));
    ARCA_TRY(auto rules, store::AccessRules::of(session.repository->blobs(), session.node,
                                                session.space->incarnation()));
    return rules;
}

void fillRule(qryRespAccessData &record, const store::AccessRule &rule)
{
    record = qryRespAccessData{};
    record.stVersion = HOX_QRY_RESP_ACCESS_VERSION;
    fill(record.nodeName, rule.node);
    fill(record.ownerName, rule.owner);
    fill(record.objName, rule.name);
    record.accessType = HOX_ACCESS_READ;
    record.ruleNumber = rule.number;
}

} // namespace

std::int16_t hoxSetAccess(hoxHandle_t handle, std::uint8_t accessType, const hoxObjName *name,
                          const char *nodeName, const char *ownerName)
{
    return inSession(handle, [&](Session &session) -> Code {
        ARCA_TRY(auto rules, ownRules(session));
        if (accessType != HOX_ACCESS_READ)
            return refused(HOX_RC_BAD_ARGUMENT, "the access type is unknown");
        ARCA_TRY(store::AccessRule rule, ruleFrom(session, name, nodeName, ownerName));
        const std::string filespace = rule.name.filespace;
        ARCA_CHECK(rules.add(std::move(rule), session.space->dataKey()));
        // A filespace that was deleted meanwhile must leave no rule: see hoxDeleteFS.
        if (auto registered = expectFilespace(session, filespace); !registered) {
            ARCA_TRY(const auto deleted, session.space->deletedRegistration(filespace));
            ARCA_CHECK(rules.removeOf(filespace, [&]() -> Result<bool> {
                ARCA_TRY(const auto now, session.space->deletedRegistration(filespace));
                return now && now == deleted;
            }));
            return registered.error();
        }
        return success();
    });
}

std::int16_t hoxQueryAccess(hoxHandle_t handle, qryRespAccessData *rules, std::uint16_t *count)
{
    return inSession(handle, [&](Session &session) -> Code {
        ARCA_TRY(auto known, ownRules(session));
        if (count == nullptr || (rules == nullptr && *count != 0))
            return refused(HOX_RC_NULL_ARGUMENT, "there is no place for the rules");
        std::vector<std::string> damaged;
        ARCA_TRY(const auto found, known.list(session.space->dataKey(), &damaged));
        const std::size_t room = *count;
        const std::size_t filled = std::min(room, found.size());
        for (std::size_t i = 0; i < filled; ++i)
            ARCA_CHECK(expectFillable(&rules[i], HOX_QRY_RESP_ACCESS_VERSION, "a rule's record"));
        for (std::size_t i = 0; i < filled; ++i)
            fillRule(rules[i], found[i]);
        // AccessRules::add() refuses more rules than *count can hold.
        *count = static_cast<std::uint16_t>(found.size());
        if (found.size() > room)
            return outcome(HOX_RC_MORE_DATA);
        return damaged.empty()
                   ? success()
                   : Code(damagedRecords(
                         "access rules cannot be read, or were not made by this node", damaged));
    });
}

std::int16_t hoxDeleteAccess(hoxHandle_t handle, std::uint32_t ruleNumber)
{
    return inSession(handle, [&](Session &session) -> Code {
        ARCA_TRY(auto rules, ownRules(session));
        ARCA_CHECK(rules.remove(ruleNumber));
        return success();
    });
}
