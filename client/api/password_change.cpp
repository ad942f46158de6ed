// A node's new password: see the header.
#include "client/api/password_change.h"

#include "client/api/records.h"
#include "client/base/hash.h"

namespace arca::api
{

Answer<void> changePassword(Session &session, const char *oldPassword, const char *newPassword)
{
    if (session.options.passwordAccess == config::PasswordAccess::generate)
        return refused(HOX_RC_NOT_SUPPORTED,
                       "the storage client keeps the password of this node itself; it is not "
                       "changed by an application");
    ARCA_TRY(std::string fresh, pointerText(newPassword, HOX_MAX_PASSWORD, "the new password"));
    if (fresh.empty())
        return refused(HOX_RC_BAD_ARGUMENT, "the new password is empty");
    auto old = pointerText(oldPassword, HOX_MAX_PASSWORD, "the old password", HOX_RC_AUTH_FAILURE);
    Answer<void> changed;
    if (!old)
        changed = old.error();
    else if (auto done = session.repository->nodes().changePassword(session.node, *old, fresh);
             !done)
        changed = Refusal(std::move(done).error());
    wipe(fresh);
    if (old)
        wipe(*old);
    return changed;
}

} // namespace arca::api
