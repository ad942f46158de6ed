// A check that the filespace that an operation names is registered. The caller holds the session's
// mutex; the session need not be idle, and nothing in it changes.
#ifndef KEEL_CLIENT_API_OBJECTS_FILESPACE_CHECK_H
#define KEEL_CLIENT_API_OBJECTS_FILESPACE_CHECK_H

#include "client/api/session/session.h"

namespace arca::api
{

/// Returns success when the node whose objects are meant (session.space) has the filespace `name`.
/// One whose record is damaged counts as registered. The answer holds for this moment only: the
/// filespace may be deleted right after, so a commit checks again. Fails with HOX_RC_FS_UNKNOWN,
/// and a sentence that names the filespace, when it was never registered or is deleted; otherwise
/// with what listing or reading the repository failed with.
Answer<void> expectFilespace(Session &session, const std::string &name);

} // namespace arca::api

#endif
