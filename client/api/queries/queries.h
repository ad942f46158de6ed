// The kinds of queries. The caller holds the session's mutex.
#ifndef KEEL_CLIENT_API_QUERIES_QUERIES_H
#define KEEL_CLIENT_API_QUERIES_QUERIES_H

#include "client/api/session/query.h"

#include <memory>

namespace arca::api
{

using BegunQuery = Answer<std::unique_ptr<Query>>;

// Each checks the caller's record, of which nothing is kept but the routine for progress, and
// begins the query; the session is idle. Errors: HOX_RC_NULL_ARGUMENT, HOX_RC_BAD_VERSION,
// HOX_RC_BAD_ARGUMENT, and what the repository answers. What is not found or may not be read is no
// error, and neither is a damaged object, or class of a list: next() tells. A damaged class that is
// asked for by its name is one, and so is the damaged record of a group.

/// Objects by their exact name: the active one, inactive ones, or both. Errors: HOX_RC_FS_UNKNOWN.
BegunQuery beginNameQuery(Session &session, const qryBackupData *asked);
/// The leader of a group, and its members; none in a session for another node's objects.
BegunQuery beginGroupQuery(Session &session, const qryGroupData *asked);
/// One management class, or all.
BegunQuery beginClassQuery(Session &session, const qryMCData *asked);
/// Objects by patterns and bounds, in an order. Errors: HOX_RC_ABORTED when the progress routine
/// stops it.
BegunQuery beginListing(Session &session, const qryObjectsData *asked);
/// Events of the activity log. Errors: HOX_RC_ACCESS_DENIED in a session for another node's
/// objects.
BegunQuery beginLogQuery(Session &session, const qryLogData *asked);

} // namespace arca::api

#endif
