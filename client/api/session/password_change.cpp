// A node's new password: see the header.
#include "client/api/session/password_change.h"

#include "client/api/session/records.h"
#include "client/base/crypto/hash.h"
#include "client/base/crypto/password.h"
#include "client/config/node_keys.h"

namespace arca::api
{

namespace
{

Answer<void> changeKept(Session &session)
{
    store::NodeRegistry nodes = session.repository->nodes();
    ARCA_TRY(std::string fresh, generatePassword());
    auto changed = config::NodeKeys(session.options.file)
                       .replace(
                           session.repository->uuid(), session.node, fresh,
                           [&](const std::string &kept) -> Result<void> {
                               ARCA_CHECK(nodes.authenticate(session.node, kept));
                               return {};
                           },
                           [&](const std::string &kept) {
                               return nodes.changePassword(session.node, kept, fresh);
                           });
    wipe(fresh);
    ARCA_CHECK(std::move(changed));
    return {};
}

} // namespace

Answer<void> changePassword(Session &session, const char *oldPassword, const char *newPassword)
{
    if (session.options.passwordAccess == config::PasswordAccess::generate)
        return changeKept(session);
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
