// Bulk query: see the header.
#include "agents/common/maint/mtquery.h"

#include <algorithm>

#include "common/cu/cu64.h"

namespace
{

hox64_t halves(std::uint64_t value)
{
    return {cuHigh32(value), cuLow32(value)};
}

/// Hands the answers over until there are no more or `visit` returns false.
int handOver(const mtSession &session, const mtObjectVisitor_t &visit)
{
    qryRespBackupData answer{};
    DataBlk block{HOX_DATABLK_VERSION, sizeof answer, 0, reinterpret_cast<char *>(&answer)};
    dhoxBackupObject_t object;
    for (;;) {
        const int rc = mtApi()->dhoxGetNextQObj(mtStatus(), session.handle(), &block, &object);
        if (rc == HOX_RC_FINISHED || rc == HOX_RC_NO_MATCH) {
            return HOX_RC_OK;
        }
        if (rc != HOX_RC_MORE_DATA) {
            return rc;
        }
        if (!visit(object)) {
            return HOX_RC_OK;
        }
    }
}

extern "C" int16_t tellProgress(void *context, std::uint64_t done, std::uint64_t planned) noexcept
{
    try {
        return (*static_cast<const mtProgress_t *>(context))(done, planned) ? 0 : 1;
    } catch (...) {
        return 1;
    }
}

int query(const mtSession &session, std::uint8_t type, const void *asked,
          const mtObjectVisitor_t &visit)
{
    int rc = mtApi()->dhoxBeginQuery(mtStatus(), session.handle(), type, asked);
    if (rc != HOX_RC_OK) {
        return rc;
    }
    rc = handOver(session, visit);
    const int ended = mtApi()->dhoxEndQuery(mtStatus(), session.handle());
    return rc != HOX_RC_OK ? rc : ended;
}

} // namespace

int mtQueryObjects(const mtSession &session, const mtFilter_t &filter, mtOrder_t order,
                   const mtObjectVisitor_t &visit)
{
    qryObjectsData asked{};
    asked.stVersion = HOX_QRY_OBJECTS_VERSION;
    asked.fsName = filter.fsName.c_str();
    asked.hlName = filter.hlName.c_str();
    asked.llName = filter.llName.c_str();
    asked.owner = filter.owner.c_str();
    asked.mcName = filter.mcName.c_str();
    asked.objState = filter.objState;
    asked.order = static_cast<std::uint8_t>(order);
    asked.insertedFrom = filter.insertedFrom;
    asked.insertedBefore = filter.insertedBefore;
    asked.inactiveBefore = filter.inactiveBefore;
    asked.minSize = halves(filter.minSize);
    asked.maxSize = halves(filter.maxSize);
    mtProgress_t progress = filter.progress;
    if (progress) {
        asked.progress = tellProgress;
        asked.progressContext = &progress;
    }
    if (filter.among == nullptr) {
        return query(session, HOX_QUERY_OBJECTS, &asked, visit);
    }
    return query(session, HOX_QUERY_OBJECTS, &asked, [&](const dhoxBackupObject_t &object) {
        return !std::ranges::binary_search(*filter.among, object.objId) || visit(object);
    });
}

int mtQueryGroup(const mtSession &session, std::uint64_t leader, const mtObjectVisitor_t &visit)
{
    const qryGroupData asked{HOX_QRY_GROUP_VERSION, halves(leader)};
    return query(session, HOX_QUERY_GROUP, &asked, visit);
}
