// Sessions for another node's objects: what its access rules name may be found and read, nothing
// else. The caller holds the session's mutex.
#ifndef KEEL_CLIENT_API_SESSION_GUEST_H
#define KEEL_CLIENT_API_SESSION_GUEST_H

#include "client/api/session/session.h"

namespace arca::api
{

/// Fails with HOX_RC_ACCESS_DENIED in a session for another node's objects.
Answer<void> expectOwnObjects(const Session &session);

/// Brings session.granted up to date. Costs one listing of the directory of rules, and reading them
/// all when they changed since; nothing in a session for its own objects. When the rules cannot be
/// read, session.granted covers nothing.
Answer<void> refreshGranted(Session &session);

/// Returns true when the session may find and read the object of that name, after refreshGranted().
Answer<bool> mayRead(Session &session, const store::ObjectName &name);

/// What a rule gives: the data key of the node that grants, and which node of its name that is.
struct Admitted {
    SecretKey key;
    std::uint32_t incarnation;
};

/// Returns the data key of `grantor`, as a rule that admits `node` with `owner` gives it;
/// `identity` is the key of `node` that opens it. Errors: HOX_RC_ACCESS_DENIED when no rule does,
/// also when there is no such grantor; the text says when a rule admits the node but has no key
/// yet.
Answer<Admitted> admittedKey(store::Repository &repository, const std::string &grantor,
                             const std::string &node, const std::string &owner,
                             const SecretKey &identity);

} // namespace arca::api

#endif
