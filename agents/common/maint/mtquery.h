// Bulk query: the objects of a node that a filter names, handed over one at a time, however many
// there are. What has not been handed over yet is held by the storage client, in bounded memory.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTQUERY_H
#define KEEL_AGENTS_COMMON_MAINT_MTQUERY_H

#include <functional>
#include <vector>

#include "agents/common/maint/mtsession.h"

/// How many objects the storage client has looked at, of about how many: before the first answer,
/// until both are the same, and then from the beginning once more while it answers. Told on the
/// query's thread, or on another one while that waits. False ends the query: HOX_RC_ABORTED.
using mtProgress_t = std::function<bool(std::uint64_t done, std::uint64_t planned)>;

/// Identifiers, in ascending order. What was counted and shown to a person is remembered so, for
/// the work to be done on it and on nothing else.
using mtObjectIds_t = std::vector<std::uint64_t>;

/// What is empty or 0 asks for nothing. In the three names "*" stands for any run of bytes and "?"
/// for one. Times are seconds since 1970, UTC.
struct mtFilter_t {
    std::string fsName, hlName, llName;
    std::string owner;
    std::string mcName; // a management class, in any case
    std::uint8_t objState = HOX_STATE_ACTIVE;
    std::int64_t insertedFrom = 0;
    std::int64_t insertedBefore = 0;
    std::int64_t inactiveBefore = 0;
    std::uint64_t minSize = 0; // bytes
    std::uint64_t maxSize = 0;
    /// Only objects of these identifiers; null: of any. The caller owns it.
    const mtObjectIds_t *among = nullptr;
    mtProgress_t progress; // empty: nobody wants to know
};

enum class mtOrder_t : std::uint8_t {
    inserted = HOX_ORDER_INSERTED, // by the time of insertion, then by the identifier
    name = HOX_ORDER_NAME,         // the objects of one name together, in the order of insertion
};

/// False ends the query.
using mtObjectVisitor_t = std::function<bool(const dhoxBackupObject_t &object)>;

/// Calls `visit` with each object that the filter names; the session answers nothing else
/// meanwhile. 0, also when there is none or `visit` had enough. HOX_RC_REPOSITORY_DAMAGED when an
/// object cannot be read, after all others were handed over.
int mtQueryObjects(const mtSession &session, const mtFilter_t &filter, mtOrder_t order,
                   const mtObjectVisitor_t &visit);

/// Members of the group that an object leads: `visit` is called with the leader first. 0, also when
/// it leads none.
int mtQueryGroup(const mtSession &session, std::uint64_t leader, const mtObjectVisitor_t &visit);

#endif
