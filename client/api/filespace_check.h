// The filespace that an operation names must have been registered.
#ifndef KEEL_CLIENT_API_FILESPACE_CHECK_H
#define KEEL_CLIENT_API_FILESPACE_CHECK_H

#include "client/api/session.h"

namespace arca::api
{

/// HOX_RC_FS_UNKNOWN with a sentence that names it.
Answer<void> expectFilespace(Session &session, const std::string &name);

} // namespace arca::api

#endif
