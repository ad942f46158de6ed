// Groups of objects: made, changed and deleted through the storage client. What a group is, and
// what it is good for, hoxapi.h says above hoxGroupHandler. Codes are the storage client's; the
// session is idle. What returned 0 is durable, and each call is done whole or not at all.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTGROUP_H
#define KEEL_AGENTS_COMMON_MAINT_MTGROUP_H

#include <span>
#include <vector>

#include "agents/common/maint/mtsession.h"

/// Makes a group with that tag, led by the active object `leader`; `leaderId` receives its
/// identifier, by which the other calls name the group. After anything but 0 there is no group and
/// `leaderId` is unchanged. HOX_RC_OBJECT_UNKNOWN, HOX_RC_OBJECT_EXISTS (it leads one already).
int mtGroupMake(const mtSession &session, const std::string &tag, const hoxObjName &leader,
                std::span<const std::uint64_t> members, std::uint64_t &leaderId);

/// Adds members to a group, and takes members out of it. HOX_RC_OBJECT_UNKNOWN when the group or a
/// member is not there.
int mtGroupAdd(const mtSession &session, std::uint64_t leaderId,
               std::span<const std::uint64_t> members);
int mtGroupTakeOut(const mtSession &session, std::uint64_t leaderId,
                   std::span<const std::uint64_t> members);

/// Deletes the group; its objects stay.
int mtGroupDelete(const mtSession &session, std::uint64_t leaderId);

#endif
