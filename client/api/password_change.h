// A node's new password.
#ifndef KEEL_CLIENT_API_PASSWORD_CHANGE_H
#define KEEL_CLIENT_API_PASSWORD_CHANGE_H

#include "client/api/session.h"

namespace arca::api
{

/// Replaces the password of the session's node, durably. HOX_RC_AUTH_FAILURE when the old one is
/// wrong. When the client keeps the password itself, it makes the new one itself, too, and reads
/// neither argument; whatever is interrupted, the node can log on afterwards.
Answer<void> changePassword(Session &session, const char *oldPassword, const char *newPassword);

} // namespace arca::api

#endif
