// A node's new password.
#ifndef KEEL_CLIENT_API_SESSION_PASSWORD_CHANGE_H
#define KEEL_CLIENT_API_SESSION_PASSWORD_CHANGE_H

#include "client/api/session/session.h"

namespace arca::api
{

/// Replaces the password of the session's node, durably; the caller holds the session's mutex. When
/// the client keeps the password, it makes the new one, too, and reads neither argument. After a
/// failure or an interruption the node can log on as before or as after. Errors:
/// HOX_RC_AUTH_FAILURE when the old password is wrong, HOX_RC_BAD_ARGUMENT when the new one has not
/// 1 to 64 characters, HOX_RC_NO_PASS_FILE, HOX_RC_RETRY_SESSION.
Answer<void> changePassword(Session &session, const char *oldPassword, const char *newPassword);

} // namespace arca::api

#endif
