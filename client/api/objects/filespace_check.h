// A check that the filespace that an operation names is registered. The caller holds the session's
// mutex.
#ifndef KEEL_CLIENT_API_OBJECTS_FILESPACE_CHECK_H
#define KEEL_CLIENT_API_OBJECTS_FILESPACE_CHECK_H

#include "client/api/session/session.h"

namespace arca::api
{

/// Fails with HOX_RC_FS_UNKNOWN, and a sentence that names the filespace, when it is not registered
/// now; otherwise with what reading the repository failed with.
Answer<void> expectFilespace(Session &session, const std::string &name);

} // namespace arca::api

#endif
