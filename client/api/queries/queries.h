// The kinds of queries. The caller holds the session's mutex.
#ifndef KEEL_CLIENT_API_QUERIES_QUERIES_H
#define KEEL_CLIENT_API_QUERIES_QUERIES_H

#include "client/api/session/query.h"

#include <memory>

namespace arca::api
{

using BegunQuery = Answer<std::unique_ptr<Query>>;

// Each checks the caller's record, of which nothing is kept but the routine for progress, and
// begins the query. Errors: HOX_RC_NULL_ARGUMENT, HOX_RC_BAD_VERSION, HOX_RC_BAD_ARGUMENT, and what
// the repository answers. An object or a record that is damaged is no error here: next() tells.

/// Objects by their exact name: the active one, inactive ones, or both.
BegunQuery beginNameQuery(Session &session, const qryBackupData *asked);
/// The leader of a group, and its members.
BegunQuery beginGroupQuery(Session &session, const qryGroupData *asked);
/// One management class, or all.
BegunQuery beginClassQuery(Session &session, const qryMCData *asked);
/// Objects by patterns and bounds, in an order.
BegunQuery beginListing(Session &session, const qryObjectsData *asked);
/// Events of the activity log.
BegunQuery beginLogQuery(Session &session, const qryLogData *asked);

} // namespace arca::api

#endif
