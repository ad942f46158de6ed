// Sessions for another node's objects: what its access rules name may be found and read, nothing
// else.
#ifndef KEEL_CLIENT_API_GUEST_H
#define KEEL_CLIENT_API_GUEST_H

#include "client/api/session.h"

namespace arca::api
{

/// HOX_RC_ACCESS_DENIED in a session for another node's objects.
Answer<void> expectOwnObjects(const Session &session);

/// Brings session.granted up to date. It costs one listing of the directory of rules unless they
/// changed since; nothing in a session for its own objects. After a failure nothing is granted.
Answer<void> refreshGranted(Session &session);

/// Returns true when the session may find and read the object of that name, by the rules as they
/// are now.
Answer<bool> mayRead(Session &session, const store::ObjectName &name);

/// The data key of `grantor`, as a rule that admits the node gives it. HOX_RC_ACCESS_DENIED when
/// none does, also when there is no such grantor; the text tells a rule whose key is still to come.
Answer<SecretKey> admittedKey(store::Repository &repository, const std::string &grantor,
                              const std::string &node, const std::string &owner,
                              const SecretKey &identity);

} // namespace arca::api

#endif
