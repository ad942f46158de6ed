// Bulk query: the objects of a node that a filter names, handed over one at a time, in any number.
// The storage client holds what has not been handed over yet, in bounded memory. Each call returns
// the storage client's code, 0 for success; the session is idle before and after it.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTQUERY_H
#define KEEL_AGENTS_COMMON_MAINT_MTQUERY_H

#include <functional>
#include <vector>

#include "agents/common/maint/mtsession.h"

/// Receives how many objects the storage client has looked at, of about how many. It counts up
/// twice: before the first answer, and again while it answers. Called on the query's thread, or on
/// another one while that thread waits. Returning false, or throwing, ends the query with
/// HOX_RC_ABORTED.
using mtProgress_t = std::function<bool(std::uint64_t done, std::uint64_t planned)>;

/// Identifiers, in ascending order (not checked): the objects that were counted and shown to a
/// person, so that the work is done on them and on no others.
using mtObjectIds_t = std::vector<std::uint64_t>;

/// An object must meet every condition; an empty or 0 field is no condition. In the three names "*"
/// stands for any run of bytes and "?" for one. Times are seconds since 1970, UTC; From includes
/// its second, Before does not.
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
    mtProgress_t progress; // empty: none is reported
};

enum class mtOrder_t : std::uint8_t {
    inserted = HOX_ORDER_INSERTED, // by the time of insertion, then by the identifier
    name = HOX_ORDER_NAME,         // the objects of one name together, in the order of insertion
};

/// Receives one object, valid during the call. Returning false ends the query, which then returns
/// 0. It must not throw: the query would stay open, and the session take nothing else until it
/// ends.
using mtObjectVisitor_t = std::function<bool(const dhoxBackupObject_t &object)>;

/// Calls `visit` with each object that the filter names. `visit` must not use the session. Returns
/// 0 also when no object matches. Errors: HOX_RC_ABORTED; HOX_RC_REPOSITORY_DAMAGED when an object
/// cannot be read, after all others were handed over.
int mtQueryObjects(const mtSession &session, const mtFilter_t &filter, mtOrder_t order,
                   const mtObjectVisitor_t &visit);

/// Calls `visit` with the leader of the group that the object `leader` leads, then with its
/// members. Returns 0 also when the object leads no group.
int mtQueryGroup(const mtSession &session, std::uint64_t leader, const mtObjectVisitor_t &visit);

#endif
