// Object groups. A group that is open exists in its session alone; closing it stores it in one
// step.
#include "client/api/objects/filespace_check.h"
#include "client/api/session/client.h"
#include "client/api/session/guest.h"
#include "client/api/session/records.h"
#include "client/base/text.h"

#include <algorithm>

using namespace arca;
using namespace arca::api;

namespace
{

Answer<store::PieceId> firstIdOf(Session &session, hox64_t id)
{
    ARCA_TRY(const store::PieceId first, session.space->firstId(joined(id)));
    return first;
}

Answer<std::vector<store::PieceId>> membersIn(Session &session, const hoxGroupIn_t &input)
{
    if (input.memberCount == 0 || input.memberCount > store::kMaxGroupMembers)
        return refused(HOX_RC_BAD_ARGUMENT, "1 to 4,096 members are named");
    if (input.memberObjId == nullptr)
        return refused(HOX_RC_NULL_ARGUMENT, "the member list is null");
    std::vector<store::PieceId> members;
    for (std::uint32_t i = 0; i < input.memberCount; ++i) {
        ARCA_TRY(const store::PieceId first, firstIdOf(session, input.memberObjId[i]));
        members.push_back(first);
    }
    return members;
}

Result<void> add(store::Group &group, const std::vector<store::PieceId> &members)
{
    for (const store::PieceId member : members)
        if (member != group.leader &&
            std::find(group.members.begin(), group.members.end(), member) == group.members.end())
            group.members.push_back(member);
    if (group.members.size() > store::kMaxGroupMembers)
        return Error{ErrorKind::badArgument, "a group takes 4,096 members"};
    return {};
}

Result<void> takeOut(store::Group &group, const std::vector<store::PieceId> &members)
{
    for (const store::PieceId member : members)
        if (std::erase(group.members, member) == 0)
            return Error{ErrorKind::notFound,
                         "the object " + toHex(member) + " is not a member of the group"};
    return {};
}

Answer<store::PieceId> open(Session &session, const hoxGroupIn_t &input)
{
    if (session.openGroup)
        return refused(HOX_RC_BAD_CALL_SEQUENCE, "a group is open in this session");
    if (input.isLeader == 0)
        return refused(HOX_RC_BAD_ARGUMENT, "a group is opened with its leader");
    store::Group group;
    ARCA_TRY(group.tag, pointerText(input.tag, HOX_MAX_GROUP_TAG, "the tag"));
    if (group.tag.empty())
        return refused(HOX_RC_BAD_ARGUMENT, "the tag is empty");
    ARCA_TRY(const store::ObjectName name, objectNameOf(input.objName));
    ARCA_CHECK(expectFilespace(session, name.filespace));
    ARCA_TRY(const auto leader, session.space->find(name));
    if (!leader)
        return refused(HOX_RC_OBJECT_UNKNOWN, "there is no object " + printable(name.joined()));
    ARCA_TRY(group.leader, firstIdOf(session, split(leader->id)));
    if (session.space->groups().find(group.leader))
        return refused(HOX_RC_OBJECT_EXISTS, "the object leads a group already");
    session.openGroup = std::move(group);
    return leader->id;
}

Answer<void> close(Session &session)
{
    const auto made = session.space->groups().make(*session.openGroup);
    session.openGroup.reset();
    ARCA_CHECK(made);
    return {};
}

/// Adds to or closes the group that the session has open; refused when its leader is another one.
Answer<void> changeOpen(Session &session, const hoxGroupIn_t &input)
{
    ARCA_TRY(const store::PieceId leader, firstIdOf(session, input.leaderObjId));
    if (leader != session.openGroup->leader)
        return refused(HOX_RC_BAD_CALL_SEQUENCE, "another group is open in this session");
    if (input.action == HOX_GROUP_CLOSE)
        return close(session);
    ARCA_TRY(const auto members, membersIn(session, input));
    store::Group grown = *session.openGroup;
    ARCA_CHECK(add(grown, members));
    session.openGroup = std::move(grown);
    return {};
}

Answer<void> changeClosed(Session &session, const hoxGroupIn_t &input)
{
    ARCA_TRY(const store::PieceId leader, firstIdOf(session, input.leaderObjId));
    if (session.openGroup && session.openGroup->leader == leader) {
        if (input.action != HOX_GROUP_DELETE)
            return refused(HOX_RC_BAD_CALL_SEQUENCE, "the group is not closed yet");
        session.openGroup.reset();
        return {};
    }
    std::vector<store::PieceId> members;
    if (input.action != HOX_GROUP_DELETE) {
        ARCA_TRY(members, membersIn(session, input));
    }
    ARCA_CHECK(session.space->groups().change(leader, [&](store::Group &group) -> Result<void> {
        group.deleted = input.action == HOX_GROUP_DELETE;
        return input.action == HOX_GROUP_REMOVE ? takeOut(group, members) : add(group, members);
    }));
    return {};
}

} // namespace

std::int16_t hoxGroupHandler(hoxHandle_t handle, const hoxGroupIn_t *input, hoxGroupOut_t *output)
{
    return inSession(handle, [&](Session &session) -> Code {
        if (!session.isIdle())
            return refused(HOX_RC_BAD_CALL_SEQUENCE);
        ARCA_CHECK(expectOwnObjects(session));
        ARCA_CHECK(expectVersion(input, input == nullptr ? std::uint16_t{0} : input->stVersion,
                                 HOX_GROUP_VERSION, "the group record"));
        ARCA_CHECK(expectFillable(output, HOX_GROUP_VERSION, "the record of the leader"));
        if (output != nullptr)
            *output = hoxGroupOut_t{HOX_GROUP_VERSION, input->leaderObjId};
        switch (input->action) {
        case HOX_GROUP_OPEN: {
            if (output == nullptr)
                return refused(HOX_RC_NULL_ARGUMENT, "there is no place for the leader");
            ARCA_TRY(const store::PieceId leader, open(session, *input));
            output->leaderObjId = split(leader);
            return success();
        }
        case HOX_GROUP_ADD:
        case HOX_GROUP_CLOSE:
            if (!session.openGroup)
                return refused(HOX_RC_BAD_CALL_SEQUENCE, "no group is open in this session");
            ARCA_CHECK(changeOpen(session, *input));
            return success();
        case HOX_GROUP_ASSIGN:
        case HOX_GROUP_REMOVE:
        case HOX_GROUP_DELETE:
            ARCA_CHECK(changeClosed(session, *input));
            return success();
        default:
            return refused(HOX_RC_BAD_ARGUMENT, "the action is unknown");
        }
    });
}
