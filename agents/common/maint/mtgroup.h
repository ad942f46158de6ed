// Groups of objects: made, changed and deleted through the storage client. hoxapi.h says above
// hoxGroupHandler what a group is for. Each call returns the storage client's code; the session is
// idle. A call is done whole or not at all; one that returned 0 is durable.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTGROUP_H
#define KEEL_AGENTS_COMMON_MAINT_MTGROUP_H

#include <span>
#include <vector>

#include "agents/common/maint/mtsession.h"

/// Makes a group with that tag, led by the active object `leader`; `leaderId` receives that
/// object's identifier, by which the other calls name the group. After anything but 0 no group was
/// made and `leaderId` is unchanged. Errors: HOX_RC_OBJECT_UNKNOWN, HOX_RC_OBJECT_EXISTS (it leads
/// one already).
int mtGroupMake(const mtSession &session, const std::string &tag, const hoxObjName &leader,
                std::span<const std::uint64_t> members, std::uint64_t &leaderId);

/// Add members to a group (those that are in it already are passed over), and take members out of
/// it. Errors: HOX_RC_OBJECT_UNKNOWN when the group or an object does not exist, or one to be taken
/// out is no member.
int mtGroupAdd(const mtSession &session, std::uint64_t leaderId,
               std::span<const std::uint64_t> members);
int mtGroupTakeOut(const mtSession &session, std::uint64_t leaderId,
                   std::span<const std::uint64_t> members);

/// Deletes the group; its objects stay. Errors: HOX_RC_OBJECT_UNKNOWN.
int mtGroupDelete(const mtSession &session, std::uint64_t leaderId);

#endif
