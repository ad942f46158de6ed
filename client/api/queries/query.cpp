// Queries: which kind is begun, and the next answer of the one that is open.
#include "client/api/queries/queries.h"
#include "client/api/session/client.h"
#include "client/api/session/records.h"

using namespace arca;
using namespace arca::api;

namespace
{

Answer<std::unique_ptr<Query>> begin(Session &session, std::uint8_t type, const void *asked)
{
    switch (type) {
    case HOX_QUERY_BACKUP:
        return beginNameQuery(session, static_cast<const qryBackupData *>(asked));
    case HOX_QUERY_MGMT_CLASS:
        return beginClassQuery(session, static_cast<const qryMCData *>(asked));
    case HOX_QUERY_GROUP:
        return beginGroupQuery(session, static_cast<const qryGroupData *>(asked));
    case HOX_QUERY_OBJECTS:
        return beginListing(session, static_cast<const qryObjectsData *>(asked));
    case HOX_QUERY_LOG:
        return beginLogQuery(session, static_cast<const qryLogData *>(asked));
    default:
        return refused(HOX_RC_BAD_ARGUMENT, "the query type is unknown");
    }
}

} // namespace

std::int16_t hoxBeginQuery(hoxHandle_t handle, std::uint8_t queryType, const void *queryData)
{
    return inSession(handle, [&](Session &session) -> Code {
        if (!session.isIdle())
            return refused(HOX_RC_BAD_CALL_SEQUENCE);
        ARCA_TRY(session.query, begin(session, queryType, queryData));
        return success();
    });
}

std::int16_t hoxGetNextQObj(hoxHandle_t handle, DataBlk *data)
{
    return inSession(handle, [&](Session &session) -> Code {
        if (!session.query)
            return refused(HOX_RC_BAD_CALL_SEQUENCE);
        ARCA_CHECK(roomIn(data));
        data->numBytes = 0;
        return session.query->next(session, data);
    });
}

std::int16_t hoxEndQuery(hoxHandle_t handle)
{
    return inSession(handle, [](Session &session) -> Code {
        session.query.reset();
        return success();
    });
}
