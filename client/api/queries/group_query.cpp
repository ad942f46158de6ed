// The objects of a group, its leader first.
#include "client/api/queries/found_objects.h"
#include "client/api/queries/queries.h"
#include "client/api/session/records.h"

namespace arca::api
{

BegunQuery beginGroupQuery(Session &session, const qryGroupData *asked)
{
    ARCA_CHECK(expectVersion(asked, asked == nullptr ? std::uint16_t{0} : asked->stVersion,
                             HOX_QRY_GROUP_VERSION, "the query record"));
    auto query = std::make_unique<FoundObjects>();
    if (session.isGuest())
        return BegunQuery(std::move(query)); // rules name objects, not groups
    const auto leader = session.space->firstId(joined(asked->leaderObjId), true);
    if (!leader && leader.error().kind == ErrorKind::notFound)
        return BegunQuery(std::move(query));
    ARCA_CHECK(leader);
    const auto group = session.space->groups().find(*leader);
    if (!group && group.error().kind == ErrorKind::notFound)
        return BegunQuery(std::move(query));
    ARCA_CHECK(group);
    std::vector<store::PieceId> ids{*leader};
    ids.insert(ids.end(), group->members.begin(), group->members.end());
    for (const store::PieceId id : ids) {
        auto found = session.space->find(id);
        if (!found && found.error().kind == ErrorKind::notFound)
            continue; // deleted
        if (!found && isUnreadable(found.error())) {
            query->endWith(std::move(found).error());
            continue;
        }
        ARCA_CHECK(found);
        query->add(std::move(*found));
    }
    return BegunQuery(std::move(query));
}

} // namespace arca::api
