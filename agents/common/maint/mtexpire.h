// Expiry: deletes the inactive versions that their management classes let go.
//
// Of the inactive versions of one name, the newest first (the one that was made inactive last),
// a version stays when
//   - it was made inactive less than daysKept days ago (its class's; mtNoLimit: for ever), and
//   - fewer than versionsKept versions before it stay (its class's; mtNoLimit: any number).
// Without an active version of the name, the newest inactive one stays in any case. The active
// version is never touched, nor what is bound to a class that nobody knows; a class that was
// deleted goes on to say what it said. Every other version is deleted for good.
//
// Only versions that stay are counted, so what one run deletes changes nothing for the rest:
// however often expiry is interrupted and begun again, it ends as if it had run once.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTEXPIRE_H
#define KEEL_AGENTS_COMMON_MAINT_MTEXPIRE_H

#include "agents/common/maint/mtpolicy.h"

struct mtExpiry_t {
    mtFilter_t names; // whose versions, by fsName, hlName and llName, and who is told the progress
    std::int64_t now = 0; // seconds since 1970, UTC
    bool dryRun = false;
    /// Only versions of these identifiers are deleted; null: of any. The caller owns it.
    const mtObjectIds_t *among = nullptr;
};

struct mtExpired_t {
    std::uint64_t looked = 0; // versions, active and inactive
    std::uint64_t inactive = 0;
    std::uint64_t deleted = 0;
    std::uint64_t size = 0; // bytes of those
    std::uint64_t storedSize = 0;
};

/// Works through all names, holding the versions of one at a time. `finding` answers the query
/// while `changing` deletes; they are two sessions of one node. `totals` counts as it goes, and
/// holds when it ends early: HOX_RC_ABORTED when the report said stop. HOX_RC_REPOSITORY_DAMAGED
/// when an object cannot be read: then all others were treated, as if that one were not there.
int mtExpire(const mtSession &finding, const mtSession &changing, const mtExpiry_t &expiry,
             const mtRemovalReport_t &report, mtExpired_t &totals);

#endif
