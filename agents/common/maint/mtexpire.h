// Expiry: deletes the inactive versions that their management classes let go.
//
// Of the inactive versions of one name, the newest first (the one that was made inactive last),
// a version stays when
//   - it was made inactive less than daysKept days ago (its class's; mtNoLimit: for ever), and
//   - fewer than versionsKept versions before it stay (its class's; mtNoLimit: any number).
// Without an active version of the name, the newest inactive one stays in any case. The active
// version is never touched, nor is a version that is bound to a class the repository does not know;
// the rules of a deleted class still hold for what is bound to it. Every other version is deleted
// for good.
//
// Only versions that stay are counted, so what one run deletes changes nothing for the rest: expiry
// is idempotent, and after any number of interruptions it ends as if it had run once.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTEXPIRE_H
#define KEEL_AGENTS_COMMON_MAINT_MTEXPIRE_H

#include "agents/common/maint/mtpolicy.h"

struct mtExpiry_t {
    mtFilter_t names;     // only fsName, hlName, llName and progress are used
    std::int64_t now = 0; // seconds since 1970, UTC; ages are counted from it
    bool dryRun = false;  // reports and counts, deletes nothing
    /// Only versions of these identifiers are deleted; null: of any. The caller owns the list.
    const mtObjectIds_t *among = nullptr;
};

struct mtExpired_t {
    std::uint64_t looked = 0;     // versions, active and inactive
    std::uint64_t inactive = 0;   // of those
    std::uint64_t deleted = 0;    // in a dry run: would be
    std::uint64_t size = 0;       // bytes of the deleted ones
    std::uint64_t storedSize = 0; // bytes that they added to the repository
};

/// Works through all names, with the versions of one name in memory at a time. `finding` answers
/// the query while `changing` deletes; they are two idle sessions of one node. The report is called
/// for each version that expires, after its transaction, with what became of it. `totals` is
/// counted along the way and is right also when expiry ends early; what it counts as deleted is
/// durable. Returns 0, the client's code, HOX_RC_ABORTED when the report or the progress said stop,
/// or HOX_RC_REPOSITORY_DAMAGED when an object cannot be read: then all others were treated, as if
/// that one did not exist. The same code when a class cannot be read: what is bound to it stays.
int mtExpire(const mtSession &finding, const mtSession &changing, const mtExpiry_t &expiry,
             const mtRemovalReport_t &report, mtExpired_t &totals);

#endif
